"""Track fitting with multiple scattering in segmented detectors.

    fits = kelvo.fit_tracks("hits.csv.gz", "detectors/fine.toml")

Three levels: fit_tracks for files, data frames and awkward arrays; define_fit for an RDataFrame;
and the classes under their own names, with NumPy arrays in and out. Lengths in cm, energies in GeV,
momenta in GeV/c, angles in rad. ROOT is loaded at the first use, not by the import.
"""

from ._pictures import Picture
from ._root import version
from .detector import ActivePlane, MaterialThickness, PlaneDetector
from .errors import Error, ErrorCode, FitWarning
from .fitter import HypothesisFit, TrackFit, TrackFitter
from .frame import define_fit
from .histograms import Histograms, histograms
from .hits import HitList3D
from .line_fits import KinkPoint, KinkResidual, KinkSmoother, KinkStatus, LineFit, Lutz
from .options import TrackFitOptions
from .pages import SimulatedTracks, dedx, display, materials, report, simulate, write_fits
from .track import Kinematics, Path, ScatteringSurfaces, TrackBasis, dEdxTable
from .summaries import FitSummary, HypothesisSummary, summary
from .tracks import fit_tracks

__all__ = [
    "ActivePlane",
    "Error",
    "ErrorCode",
    "FitSummary",
    "FitWarning",
    "Histograms",
    "HitList3D",
    "HypothesisFit",
    "HypothesisSummary",
    "Kinematics",
    "KinkPoint",
    "KinkResidual",
    "KinkSmoother",
    "KinkStatus",
    "LineFit",
    "Lutz",
    "MaterialThickness",
    "Path",
    "Picture",
    "PlaneDetector",
    "ScatteringSurfaces",
    "SimulatedTracks",
    "TrackBasis",
    "TrackFit",
    "TrackFitOptions",
    "TrackFitter",
    "dEdxTable",
    "dedx",
    "define_fit",
    "display",
    "fit_tracks",
    "histograms",
    "materials",
    "report",
    "simulate",
    "summary",
    "write_fits",
]

__version__: str


def __getattr__(name: str) -> str:
    if name == "__version__":  # is the library's, which the import leaves alone
        return version()
    raise AttributeError(f"module 'kelvo' has no attribute {name!r}")
