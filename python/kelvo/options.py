"""What a fit is to do: the one list of its options, from which fitters, tables and frames take them."""

from __future__ import annotations

import dataclasses
import inspect
import math
from typing import Any, Callable, Literal, Sequence, TypedDict, TypeVar, Union

from ._arrays import is_number, is_whole, listed, number, truth
from ._particles import Hypothesis, pdg_code
from ._root import PYTHON_NAMES, cpp, root, strings, version
from .errors import Error, shown

Plane = Union[str, int]
Place = Union[str, int, float]
Function = TypeVar("Function", bound=Callable[..., Any])


@dataclasses.dataclass(frozen=True)
class TrackFitOptions:
    """What a fit is to do; the defaults are what users want for stopping particles."""

    hypotheses: Hypothesis | Sequence[Hypothesis] | None = None
    """particles to fit tracks as: "mu", "pi", "p", "mu-", ..., PDG codes 13, 211, 2212, or those of
    the package "particle"; None takes all three, of a beam "mu\""""
    scattering_factor: float = math.sqrt(3)
    """factor on the library's scattering widths; root 3 gives those of Highland's formula"""
    beyond_last_hit: float = 0.5
    """where a stopping track ends behind its last hit: fraction of the energy loss up to its next"""
    beam_momentum: float = 0.0
    """known momentum of a beam at its first hit [GeV/c]; 0: the particle stops"""
    sig_beam_momentum: float = 0.0
    """its uncertainty [GeV/c]"""
    with_planes: bool = False
    """whether the fit at the scattering planes is wanted: kinks, points and widths"""
    end: Literal["auto", "stops", "leaves"] = "auto"
    """whether tracks stop in the detector; "auto" tells by the end of each. A track that leaves has no
    momentum from range but a lower limit, p_min"""
    scattering_momentum: bool = True
    """whether tracks that stop get a momentum from scattering, too"""
    charge_resolution: float = 0.0
    """hits have deposits q, whose relative standard deviation is this for a minimum-ionising particle
    that crosses a plane at right angles; 0: they are not used"""
    charge_scale: float = 0.0
    """deposit in q per GeV; 0: fit_tracks finds it from the first tracks, else q is in GeV"""
    robust: Literal["keep", "huber", "tukey", "cauchy"] = "keep"
    """what becomes of hits far from the track: "keep" lets all count fully, the others take them the less
    the farther they are"""
    reject: float = 0.0
    """hits whose pull is above it are taken out, the worst first; 0: none"""
    exclude: Plane | Sequence[Plane] = ()
    """planes, by number from 0 or name, whose hits are not fitted but compared with the fit"""
    at: Place | Sequence[Place] = ()
    """where the track is wanted, with and without the hits there: planes, by number (an int) or name,
    or places along z (a float, in cm)"""
    fractions: Sequence[float] = ()
    """of the hypotheses among all tracks, for the probability of each; empty: equal"""

    def _to_cpp(self) -> Any:
        options = cpp().TrackFitOptions()
        members = {member.lower(): member for member in dir(options)}
        for field in dataclasses.fields(self):
            given = getattr(self, field.name)
            if given is None and field.name == "hypotheses":
                is_beam = number("beam_momentum", self.beam_momentum) != 0
                given = "mu" if is_beam else ("mu", "pi", "p")
            convert: Callable[[str, Any], Any] = _CONVERSIONS.get(field.name, number)
            setattr(options, members[_in_small_letters(field.name)], convert(field.name, given))
        return options


class FitOptions(TypedDict, total=False):
    """The same options as keywords, for those who check types."""

    hypotheses: Hypothesis | Sequence[Hypothesis] | None
    scattering_factor: float
    beyond_last_hit: float
    beam_momentum: float
    sig_beam_momentum: float
    with_planes: bool
    end: Literal["auto", "stops", "leaves"]
    scattering_momentum: bool
    charge_resolution: float
    charge_scale: float
    robust: Literal["keep", "huber", "tukey", "cauchy"]
    reject: float
    exclude: Plane | Sequence[Plane]
    at: Place | Sequence[Place]
    fractions: Sequence[float]


def about(detector: Any, options: Any) -> dict[str, Any]:
    """Returns what is kept beside fits, as numbers, texts, lists and dicts.

    detector, options: geo::Detector and kelvo::TrackFitOptions of C++
    """
    text, used = str(detector.Text()), _plain_options(options)
    return {"detector": text, "options": used, "version": version()}


def _plain_options(options: Any) -> dict[str, Any]:
    members = {member.lower(): member for member in dir(options)}
    named = {f.name: members[_in_small_letters(f.name)] for f in dataclasses.fields(TrackFitOptions)}
    made = {name: getattr(options, member) for name, member in named.items()}
    made["end"] = str(cpp().EndModeName(options.fEnd))
    made["robust"] = str(cpp().OutlierModeName(options.fRobust))
    made.update({name: list(made[name]) for name in ("hypotheses", "fractions")})
    made.update({name: [str(place) for place in made[name]] for name in ("exclude", "at")})
    return made


def _in_small_letters(name: str) -> str:
    """Returns the name of an option in C++, fBeamMomentum for beam_momentum, in small letters."""
    return "f" + name.replace("_", "")


PYTHON_NAMES.update({_in_small_letters(f.name): f.name for f in dataclasses.fields(TrackFitOptions)})


def _hypotheses(name: str, value: Any) -> Any:
    is_one = isinstance(value, str) or is_whole(value) or hasattr(value, "pdgid")
    given = [value] if is_one else listed(name, value, 'it must be a particle or several, such as "mu"')
    return root().std.vector["int"]([pdg_code(name, hypothesis) for hypothesis in given])


def _places(name: str, value: Any) -> Any:
    is_one = isinstance(value, str) or is_number(value)
    given = [value] if is_one else listed(name, value, "it must be a plane or a place along z, or several")
    return strings(name, [_place(name, place) for place in given])


def _place(name: str, value: Any) -> str:
    if isinstance(value, str):
        return value
    if not is_number(value):
        raise Error(f"{name} holds {shown(value)}; it must hold numbers or names of planes, or places along z")
    return str(int(value)) if is_whole(value) else f"z={float(value)!r}"


def _fractions(name: str, value: Any) -> Any:
    given = listed(name, value, "it must have a number for each hypothesis, such as (0.7, 0.2, 0.1)")
    return root().std.vector["double"]([number("a number in " + name, v) for v in given])


def _end(name: str, value: Any) -> Any:
    if not isinstance(value, str) or value not in ("auto", "stops", "leaves"):
        raise Error(f'{name} is {shown(value)}; it must be "auto", "stops" or "leaves"')
    return cpp().EndMode(value)


def _robust(name: str, value: Any) -> Any:
    if not isinstance(value, str) or value not in ("keep", "huber", "tukey", "cauchy"):
        raise Error(f'{name} is {shown(value)}; it must be "keep", "huber", "tukey" or "cauchy"')
    return cpp().OutlierModeOf(value)


_CONVERSIONS = {
    "hypotheses": _hypotheses,
    "with_planes": truth,
    "end": _end,
    "scattering_momentum": truth,
    "fractions": _fractions,
    "robust": _robust,
    "exclude": _places,
    "at": _places,
}


def takes_fit_options(function: Function) -> Function:
    """Shows the options of a fit, which a function takes as **options, in its signature."""
    signature = inspect.signature(function)
    own = [p for p in signature.parameters.values() if p.kind is not inspect.Parameter.VAR_KEYWORD]
    options = inspect.signature(TrackFitOptions).parameters.values()
    keywords = [option.replace(kind=inspect.Parameter.KEYWORD_ONLY) for option in options]
    function.__signature__ = signature.replace(parameters=own + keywords)  # type: ignore[attr-defined]
    return function
