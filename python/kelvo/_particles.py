"""The particles that tracks are fitted as, as the library has them."""

from __future__ import annotations

import functools
from typing import Any, Union

from ._arrays import is_whole
from ._root import cpp
from .errors import Error, shown

#: The name of a particle, its PDG code, or a Particle of the package "particle".
Hypothesis = Union[str, int, Any]


# The package "particle" calls them so; the codes of these have a sign.
_WITH_CHARGE = {"mu-": 13, "mu+": -13, "pi+": 211, "pi-": -211, "p~": -2212}


@functools.cache
def pdg_codes() -> dict[str, int]:
    """Returns the PDG codes by name: mu, pi, p."""
    return {str(particle.fName): int(particle.fPDG) for particle in cpp().Particles()}


@functools.cache
def masses() -> dict[str, float]:
    """Returns the masses [GeV] by name."""
    return {str(particle.fName): float(particle.fMass) for particle in cpp().Particles()}


def pdg_code(name: str, hypothesis: Hypothesis) -> int:
    """Returns the PDG code of what an option names."""
    if isinstance(hypothesis, str):
        names = {**pdg_codes(), **_WITH_CHARGE}
        if hypothesis not in names:
            raise Error(f"hypothesis {shown(hypothesis)} is none of {', '.join(names)}")
        return names[hypothesis]
    code = getattr(hypothesis, "pdgid", hypothesis)
    if not is_whole(code) or abs(code) not in pdg_codes().values():
        allowed = f"{cpp().ParticleCodes()}, of either sign"
        raise Error(f"a code in {name} is {shown(hypothesis)}; it must be {allowed}")
    return int(code)
