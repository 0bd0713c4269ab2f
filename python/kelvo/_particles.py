"""The particles that tracks are fitted as, as the library has them."""

from __future__ import annotations

import functools

from ._root import cpp


@functools.cache
def pdg_codes() -> dict[str, int]:
    """Returns the PDG codes by name: mu, pi, p."""
    return {str(particle.fName): int(particle.fPDG) for particle in cpp().Particles()}
