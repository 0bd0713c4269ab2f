"""From the hits of one track to the fitted track under each hypothesis."""

from __future__ import annotations

import dataclasses
from typing import Any

import numpy as np
import numpy.typing as npt

from ._arrays import Floats, floats
from ._columns import views
from ._html import table
from ._pictures import drawn_or_nothing
from ._root import call, cpp, root
from .detector import DetectorLike, PlaneDetector, cpp_detector
from .errors import Error, shown
from .hits import HitList3D
from .options import TrackFitOptions, about
from .pages import display

Singles = npt.NDArray[np.float32]


@dataclasses.dataclass(frozen=True, eq=False)
class HypothesisFit:
    """The fit of one track under one hypothesis; the names are those of the columns in files of
    fits. In a fit that failed real numbers are NaN and arrays empty."""

    pdg: int  #: 13 muon, 211 charged pion, 2212 proton
    status: int  #: 0 fitted; 1 too few hits; 2 bad number; 3 geometry; 4 no solution; 5 library
    message: str  #: empty when fitted, else one sentence
    best: bool  #: whether it is the most likely fitted hypothesis
    n_x: int  #: hits that measure x
    n_y: int  #: hits that measure y
    n_outliers: int  #: hits that are far from the track and count less than half
    chi2_x: float  #: chi-square of the hits
    chi2_y: float
    chi2_kink_x: float  #: chi-square of the kinks
    chi2_kink_y: float
    ndf: int  #: degrees of freedom of both views
    prob: float  #: probability of a larger chi-square
    log_likelihood: float  #: of the hits, all kinks integrated over
    log_likelihood_charge: float  #: of the deposits; NaN without
    prob_hypothesis: float  #: probability of this hypothesis among all, for the fractions given
    x: float  #: the track at the plane of its first hit [cm]
    y: float
    z: float
    ux: float  #: its direction there, of length 1
    uy: float
    uz: float
    T: float  #: kinetic energy there [GeV]
    p: float  #: momentum there [GeV/c]
    beta: float  #: velocity there, in units of c
    gamma: float  #: Lorentz factor there
    length: float  #: from there to the end of the track [cm]
    radlen: float  #: radiation lengths on that way
    sig_T: float  #: uncertainty of T [GeV]
    sig_p: float  #: uncertainty of p [GeV/c]
    sig_length: float  #: uncertainty of length [cm]
    leaves: bool  #: fitted as leaving the detector: T and p are NaN, p_min is a lower limit
    end_distance: float  #: from the last hit to the boundary of what can measure, along z [cm]
    end_planes: float  #: the same in gaps between planes
    stop_chi2: float  #: twice the log-likelihood ratio of a free end against a stopping one
    p_min: float  #: of a track that leaves: what it takes to get to the last hit [GeV/c]
    p_scattering: float  #: momentum at the first hit from scattering [GeV/c]; may be infinite
    p_scattering_low: float  #: ends of an interval of 68 % [GeV/c]
    p_scattering_high: float  #: may be infinite: then the other one is a lower limit
    inv_p_scattering: float  #: 1 / p_scattering [c/GeV]
    sig_inv_p_scattering: float  #: its uncertainty [c/GeV]
    prob_scattering: float  #: probability that a particle that stops scatters so differently
    cov: Floats  #: of (x, y, ux, uy) at fixed z: the upper triangle, row by row
    hit_view: npt.NDArray[np.int32]  #: per hit, by increasing z: 0 measures x, 1 measures y
    hit_z: Floats  #: [cm]
    hit_u: Floats  #: measured coordinate [cm]
    hit_sigu: Floats  #: its standard deviation as given [cm]
    fit_u: Floats  #: fitted coordinate [cm]
    fit_sigu: Singles  #: its standard deviation [cm]
    residual: Singles  #: measured minus fitted [cm]
    pull: Singles  #: residual over its standard deviation
    residual_unbiased: Singles  #: measured minus the fit of all other hits [cm]
    sig_residual_unbiased: Singles  #: its standard deviation [cm]
    hit_weight: Singles  #: how much the hit counts, 0 to 1
    plane_s: Singles  #: per scattering plane: place along the track [cm]
    plane_x: Singles  #: the fitted track at the planes [cm]
    plane_y: Singles
    plane_z: Singles
    plane_sigalpha: Singles  #: width of the scattering angle [rad]
    kink_x: Singles  #: fitted kinks [rad]
    kink_y: Singles


@dataclasses.dataclass(frozen=True, eq=False)
class TrackFit:
    """The fit of one track under each hypothesis, in the order of the options."""

    hypotheses: tuple[HypothesisFit, ...]
    #: detector, options and version of the fit, as plain data
    attrs: dict[str, Any] = dataclasses.field(default_factory=dict, repr=False)

    def _repr_html_(self) -> str:
        names = ("pdg", "status", "best", "n_x", "n_y", "p", "sig_p", "prob", "prob_hypothesis")
        rows = [[getattr(h, name) for name in names] for h in self.hypotheses]
        return table(names, rows) + drawn_or_nothing(lambda: display(self))

    @property
    def best(self) -> HypothesisFit | None:
        """The most likely hypothesis; None where none is fitted, and where several differ by their
        velocity alone: of a beam, or of a track that leaves."""
        return next((h for h in self.hypotheses if h.best), None)


class TrackFitter:
    """Fits the hits of one track after the other; fit_tracks is faster for many.

        fitter = kelvo.TrackFitter("detectors/fine.toml")
        fit = fitter.Fit(kelvo.HitList3D(view, u, z, sigu))
        fit.best.p
    """

    def __init__(
        self, detector: DetectorLike, options: TrackFitOptions = TrackFitOptions()
    ) -> None:
        self._detector = cpp_detector(detector)
        if not isinstance(options, TrackFitOptions):
            raise Error(f"options is {shown(options)}; it must be a kelvo.TrackFitOptions")
        self._options = options
        made = options._to_cpp()
        self._cpp: Any = call(cpp().ArrayCalls.MakeFitter, self._detector.Geometry(), made)
        self._about = about(self._detector, made)

    def __reduce__(self) -> tuple[type[TrackFitter], tuple[PlaneDetector, TrackFitOptions]]:
        if not self._detector.Planes():
            raise Error("a TrackFitter in a geometry of ROOT's cannot be copied or pickled")
        return type(self), (PlaneDetector(str(self._detector.Text())), self._options)

    def Options(self) -> TrackFitOptions:
        return self._options

    def Fit(self, hits: HitList3D, q: Floats | None = None) -> TrackFit:
        """Fits one track. Bad hits raise nothing: status and message say what is wrong.

        q: energy deposited in the cell of each hit, in GeV or in the unit of the options' charge_scale,
            infinity where none was measured; used where the options have a charge_resolution
        """
        if not isinstance(hits, HitList3D):
            raise Error(f"hits is a {type(hits).__name__}; TrackFitter.Fit takes a kelvo.HitList3D")
        made = call(cpp().FitOneTrack, self._cpp, hits._cpp, _charges(q, len(hits)))
        columns = views(made, made)
        names = [field.name for field in dataclasses.fields(HypothesisFit)]
        rows = range(made.Rows())
        fits = (HypothesisFit(*(_value(*columns[name], row) for name in names)) for row in rows)
        return TrackFit(tuple(fits), self._about)


def _charges(q: Floats | None, n: int) -> Any:
    if q is not None:
        floats("q", q, n)
    return root().std.vector["double"](() if q is None else q)


def _value(kind: str, values: Any, offsets: Any, row: int) -> Any:
    if offsets is None:
        return values[row].item()
    part = values[offsets[row] : offsets[row + 1]]
    return part.tobytes().decode() if kind == "text" else part.copy()
