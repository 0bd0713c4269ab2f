"""What a track fit is made of: frame, path, energy loss, scattering."""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np

from ._arrays import (
    EachFloat, FloatOrFloats, Floats, count, each, each_row, floats, index, is_number, listed, number, output, text
)  # fmt: skip
from ._html import paragraph, table
from ._particles import masses, pdg_codes
from ._root import NotCopied, call, cpp, root
from .detector import DetectorLike, cpp_detector
from .errors import Error, ErrorCode, shown

_SIX = ("x", "y", "z", "dx", "dy", "dz")
_SAYS = {
    ErrorCode.kIndexProblem: "the path has no material step; its points coincide",
    ErrorCode.kNaN: "a path coordinate is not a number (NaN)",
}
_FARTHEST = 100_000.0  #: as of a hit [cm]; time and memory grow with the length of a path


def _near(name: str, values: Any, *shape: int | None) -> Floats:
    """Returns coordinates [cm] that C++ can read."""
    near = floats(name, values, *shape)
    if near.size and np.abs(near).max() > _FARTHEST:
        far = near.flat[np.argmax(np.abs(near))]
        raise Error(f"{name} has {far:g} cm; coordinates lie within +-{_FARTHEST:.0f} cm")
    return near


def _vectors(values: tuple[Any, ...]) -> tuple[Floats, ...]:
    n = len(values[0]) if isinstance(values[0], np.ndarray) and values[0].ndim else None
    return tuple(floats(name, v, n) for name, v in zip(_SIX, values))


def _components(v: Any) -> Floats:
    return np.array([v.X(), v.Y(), v.Z()])


class TrackBasis(NotCopied):
    """Right-handed Cartesian frame along a track; the third axis runs along it. Lengths in cm."""

    def __init__(self) -> None:
        self._cpp: Any = cpp().TrackBasis()

    def MakeBasis(
        self,
        x: Floats,
        y: Floats,
        z: Floats,
        dx: Floats,
        dy: Floats,
        dz: Floats,
        origin: tuple[float, float, float] = (0.0, 0.0, 0.0),
    ) -> None:
        """Builds the frame from the hits' positions and uncertainties in the detector frame."""
        rule = "it must be three numbers, x, y and z"
        place = [number("a number in origin", v) for v in listed("origin", origin, rule)]
        if len(place) != 3:
            raise Error(f"origin is {shown(origin)}; {rule}")
        call(self._cpp.MakeBasis, *_vectors((x, y, z, dx, dy, dz)), *place)

    @staticmethod
    def FindAxis(x: Floats, y: Floats, z: Floats, dx: Floats, dy: Floats, dz: Floats) -> Floats:
        """Returns the direction of the track as a unit vector, from straight lines x(z), y(z)."""
        axis = root().TVector3()
        call(cpp().TrackBasis.FindAxis, *_vectors((x, y, z, dx, dy, dz)), axis)
        return _components(axis)

    def AdjustBasisDir(
        self, x: Floats, y: Floats, z: Floats, dx: Floats, dy: Floats, dz: Floats
    ) -> None:
        """Turns the frame by 180 degrees about its first axis when the hits lie behind the
        origin."""
        call(self._cpp.AdjustBasisDir, *_vectors((x, y, z, dx, dy, dz)))

    def SetOrigin(self, x: float, y: float, z: float) -> None:
        """Moves the origin; axes stay."""
        self._cpp.SetOrigin(number("x", x), number("y", y), number("z", z))

    def DetToTrk(self, *point: FloatOrFloats) -> Floats:
        """Takes x, y, z and their uncertainties dx, dy, dz from the detector frame to the track
        frame: six numbers, or six arrays of n. Returns an array of six, or of 6 x n."""
        return self._transform(cpp().ArrayCalls.DetToTrk, point)

    def TrkToDet(self, *point: FloatOrFloats) -> Floats:
        """The reverse of DetToTrk."""
        return self._transform(cpp().ArrayCalls.TrkToDet, point)

    def _transform(self, function: Any, point: tuple[Any, ...]) -> Floats:
        if len(point) != len(_SIX):
            raise Error(f"a point has {len(point)} values; it must have six: {', '.join(_SIX)}")
        single = all(is_number(v) for v in point)
        named = zip(_SIX, point)
        values = tuple(np.array([number(*v)]) for v in named) if single else _vectors(point)
        n = len(point[0]) if not single else 1
        out, written = output(len(_SIX), n)
        call(function, self._cpp, n, np.concatenate(values), written)
        return out[:, 0] if single else out

    def Origin(self) -> Floats:
        """Returns the origin in the detector frame [cm]."""
        return _components(self._cpp.Origin())

    def XAxis(self) -> Floats:
        """Returns the first transverse axis, a unit vector in the detector frame."""
        return _components(self._cpp.XAxis())

    def YAxis(self) -> Floats:
        """Returns the second transverse axis."""
        return _components(self._cpp.YAxis())

    def ZAxis(self) -> Floats:
        """Returns the axis along the track."""
        return _components(self._cpp.ZAxis())


class Kinematics(NamedTuple):
    """State of a particle; arrays where several were asked for."""

    T: FloatOrFloats  #: kinetic energy [GeV]
    p: FloatOrFloats  #: momentum [GeV/c]
    beta: FloatOrFloats  #: velocity in units of c
    gamma: FloatOrFloats  #: Lorentz factor


def _kinematics(name: str, values: FloatOrFloats, write: Any) -> Kinematics:
    out = each_row(name, values, write, len(Kinematics._fields))
    return Kinematics(*(out.tolist() if out.ndim == 1 else out))


class Path(NotCopied):
    """The path of one track through a detector: a polyline from its start to the point where the
    particle stops. Path coordinates s and lengths in cm, energies in GeV.

        path = kelvo.Path("detectors/fine.toml", np.array([[0., 0, 0], [0, 0, 80]]))
        path.MuonParams(10.0).p
    """

    def __init__(self, detector: DetectorLike, points: Floats, s0: float = 0.0) -> None:
        """points: n x 3 coordinates [cm], in order; s0: path coordinate of the first one [cm]."""
        _near("points", points, None, 3)
        if len(points) < 2:
            raise Error(f"points has {len(points)} rows; a path needs two or more")
        self._detector = cpp_detector(detector)
        geometry = self._detector.Geometry()
        make = cpp().ArrayCalls.MakePath
        self._cpp: Any = call(make, geometry, len(points), points, number("s0", s0))
        self._n = len(points)

    def SetPoint(self, i: int, xyz: Floats) -> None:
        """Sets point i to three coordinates [cm]."""
        call(self._cpp.SetPoint, index("i", i, self._n), _near("xyz", xyz, 3))

    def ScrubOne(self, eps: float) -> bool:
        """Removes the first point closer to its predecessor than the root of eps [cm2]; returns
        whether there was one."""
        return self._scrubbed(int(self._cpp.ScrubOne(number("eps", eps)))) > 0

    def Scrub(self, eps: float) -> int:
        """Removes all such points; returns how many."""
        return self._scrubbed(int(self._cpp.Scrub(number("eps", eps))))

    def _scrubbed(self, removed: int) -> int:
        self._n -= removed
        return removed

    def Integrate(self) -> None:
        """Integrates the energy loss; queries do so themselves when needed."""
        call(self._cpp.Integrate, says=_SAYS)

    def IntegrateT(self, ds: float, material: str, m: float, T0: float) -> float:
        """Returns the kinetic energy [GeV] upstream of a length ds [cm] of material, given T0
        downstream of it, for a mass m [GeV]."""
        _check_material(material)
        if not abs(number("ds", ds)) <= _FARTHEST:
            raise Error(f"ds is {shown(ds)}; it must be within +-{_FARTHEST:.0f} cm")
        values = float(ds), material, number("m", m), number("T0", T0)
        return float(call(self._cpp.IntegrateT, *values, says=_SAYS))

    @staticmethod
    def Interp(x: float, xs: Floats, ys: Floats) -> float:
        """Returns ys as a piecewise linear function of rising xs, two or more, at x."""
        floats("xs", xs, None)
        arrays = xs, floats("ys", ys, len(xs))
        says = {ErrorCode.kIndexProblem: f"xs has {len(xs)} values; it needs two or more"}
        return float(call(cpp().Path.Interp, number("x", x), *arrays, says=says))

    @staticmethod
    def TPBG(T: FloatOrFloats, m: float) -> Kinematics:
        """Returns the kinematics for kinetic energies T and a mass m [GeV]."""
        write = cpp().ArrayCalls.TPBG
        mass = number("m", m)
        says = {ErrorCode.kBadKE: "a kinetic energy is below 0; T must be 0 or above"}
        return _kinematics("T", T, lambda n, given, out: call(write, n, given, mass, out, says=says))

    def X0(self, s: EachFloat) -> EachFloat:
        """Returns the radiation lengths from the first point to one s or an array of them."""
        return each("s", s, lambda *a: call(cpp().ArrayCalls.X0, self._cpp, *a, says=_SAYS))

    def Length(self) -> float:
        """Returns the length of the path [cm]."""
        return float(call(self._cpp.Length, says=_SAYS))

    def Dir(self, s: float) -> Floats:
        """Returns the unit direction at s; (0, 0, 1) outside of the path."""
        return _components(call(self._cpp.Dir, number("s", s), says=_SAYS))

    def MuonParams(self, s: FloatOrFloats) -> Kinematics:
        """Returns the kinematics of a muon that stops at the path's end, at one s or an array."""
        return self._params("mu", s)

    def PionParams(self, s: FloatOrFloats) -> Kinematics:
        """As MuonParams, for a charged pion."""
        return self._params("pi", s)

    def ProtonParams(self, s: FloatOrFloats) -> Kinematics:
        """As MuonParams, for a proton."""
        return self._params("p", s)

    def _params(self, particle: str, s: FloatOrFloats) -> Kinematics:
        write, pdg = cpp().ArrayCalls.Params, pdg_codes()[particle]
        return _kinematics("s", s, lambda *a: call(write, self._cpp, pdg, *a, says=_SAYS))


def _checked(path: Any) -> Path:
    if not isinstance(path, Path):
        raise Error(f"path is a {type(path).__name__}; it must be a kelvo.Path")
    return path


def _check_material(material: str) -> None:
    if dEdxTable.Knows(material):
        return
    known = ", ".join(str(name) for name in cpp().MaterialsWithTable())
    raise Error(f"{shown(material)} has no stopping-power table; the known materials are {known}")


class dEdxTable:
    """Mean energy loss of a charged particle in one material.

        kelvo.dEdxTable("Steel")(0.5, 0.105658)     # GeV/cm
    """

    def __init__(self, material: str) -> None:
        _check_material(material)
        self._material = material
        self._cpp: Any = cpp().dEdxTable(material)

    def __reduce__(self) -> tuple[type[dEdxTable], tuple[str]]:
        return type(self), (self._material,)

    def _repr_html_(self) -> str:
        T = np.array([1e-3, 1e-2, 0.1, 1.0, 10.0, 100.0])
        losses = [self(T, mass).tolist() for mass in masses().values()]
        head = ["T [GeV]", *(f"{name} [GeV/cm]" for name in masses())]
        return paragraph(f"Energy loss in {self._material}") + table(head, zip(T.tolist(), *losses))

    def __call__(self, T: EachFloat, M: float) -> EachFloat:
        """Returns the loss [GeV/cm] at one kinetic energy or an array of them, for a mass M
        [GeV]."""
        mass = number("M", M)
        write = cpp().ArrayCalls.Loss
        return each("T", T, lambda n, given, out: write(self._cpp, n, given, mass, out))

    def TtoBetaGamma(self, T: float, M: float) -> float:
        """Returns beta gamma of a particle of kinetic energy T and mass M [GeV]."""
        return float(self._cpp.TtoBetaGamma(number("T", T), number("M", M)))

    def BetaGammaToT(self, bg: float, M: float) -> float:
        """Returns the kinetic energy [GeV] of a particle of mass M [GeV] with beta gamma bg."""
        return float(self._cpp.BetaGammaToT(number("bg", bg), number("M", M)))

    @staticmethod
    def Knows(material: str) -> bool:
        """Returns whether there is a table of that name."""
        return isinstance(material, str) and bool(cpp().HasTable(text("material", material)))


class ScatteringSurfaces(NotCopied):
    """The scattering planes of one track and how wide each of them scatters.

        surfaces = kelvo.ScatteringSurfaces(13, max_ds=30, max_dx0=3, max_dt=0.3)
        surfaces.MakeSurfaces("detectors/fine.toml", p0, p1, s)
        surfaces.S(), surfaces.SigAlpha()
    """

    def __init__(self, pdg: int, max_ds: float, max_dx0: float, max_dt: float) -> None:
        """pdg: 13 muon, 211 charged pion, 2212 proton; limits of a step: length [cm], thickness
        [radiation lengths], product of scattering width and length [rad cm]."""
        codes = pdg_codes().values()
        if abs(count("pdg", pdg, minimum=-max(codes))) not in codes:
            raise Error(f"pdg is {pdg}; it must be {cpp().ParticleCodes()}")
        limits = number("max_ds", max_ds), number("max_dx0", max_dx0), number("max_dt", max_dt)
        self._cpp: Any = cpp().ScatteringSurfaces(pdg, *limits)

    def MakeSurfaces(self, detector: DetectorLike, p0: Floats, p1: Floats, s: Floats) -> None:
        """Replaces the surfaces by those of the straight track from p0 to p1 (three coordinates
        each [cm]); s: rising path coordinates on it, s[0] that of p0 [cm]."""
        _near("s", s, None)
        says = {ErrorCode.kIndexProblem: "s is empty; it needs the position of p0 at least"}
        made = cpp_detector(detector)
        points = _near("p0", p0, 3), _near("p1", p1, 3)
        call(self._cpp.MakeSurfaces, made.Geometry(), *points, s, says=says)

    def MakeSteps(self, path: Path, s: Floats) -> None:
        """Appends one surface per step over the whole of s, on a path of the caller."""
        _near("s", s, None)
        call(self._cpp.MakeSteps, _checked(path)._cpp, s)

    def ForceOnePlane(self, path: Path, s: Floats) -> None:
        """Appends one surface for the whole span of s, whatever the limits."""
        _near("s", s, None)
        says = {ErrorCode.kIndexProblem: "s is empty; it needs one position at least"}
        call(self._cpp.ForceOnePlane, _checked(path)._cpp, s, says=says)

    @staticmethod
    def Width(dx0: float, beta: float, p: float) -> float:
        """Returns the root mean square projected scattering angle [rad] behind dx0 radiation
        lengths, for a velocity beta [c] and a momentum p [GeV/c]."""
        values = number("dx0", dx0), number("beta", beta), number("p", p)
        return float(cpp().ScatteringSurfaces.Width(*values))

    def N(self) -> int:
        """Returns the number of surfaces."""
        return int(self._cpp.N())

    def S(self) -> Floats:
        """Returns their path coordinates [cm]."""
        return np.array([self._cpp.S(j) for j in range(self.N())], np.float64)

    def SigAlpha(self) -> Floats:
        """Returns their scattering widths [rad]."""
        return np.array([self._cpp.SigAlpha(j) for j in range(self.N())], np.float64)
