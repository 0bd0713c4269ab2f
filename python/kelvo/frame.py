"""Fits as columns of ROOT's data frames."""

from __future__ import annotations

from typing import Any, Mapping

from ._arrays import text
from ._root import call, column_names, cpp, root
from .detector import DetectorLike, cpp_detector
from .errors import Error
from .options import TrackFitOptions, takes_fit_options


@takes_fit_options
def define_fit(
    rdf: Any,
    detector: DetectorLike,
    *,
    columns: Mapping[str, str | int] | None = None,
    prefix: str = "fit_",
    **fit_options: Any,
) -> Any:
    """Adds the fits of its tracks to an RDataFrame (or a node of one) whose entries are tracks;
    gives a node with more columns. Lengths in cm, energies in GeV, momenta in GeV/c.

        ROOT.EnableImplicitMT()
        tracks = ROOT.RDataFrame("hits", "hits.root")
        momentum = kelvo.define_fit(tracks, "detectors/fine.toml").Histo1D("fit_p")

    The hits are columns of vectors: view, u, z, sigu; or x, y, z, sigx, sigy; optional sigz, t,
    sigt, w, q. The new columns have the names of those in files of fits: fit_p, fit_status, fit_pull,
    ... of the best hypothesis (the first one where there is none), and fit_each_p, ... of all
    hypotheses as a vector for each column of one number. An entry is fitted once, in whichever
    thread works on it; the bits do not depend on the number of threads.

    columns: from a name above to the one in the frame
    prefix: of the new names; another one for a second fit in the same frame
    fit_options: hypotheses, scattering_factor, ... by name, see TrackFitOptions

    Raises Error for missing columns, columns that are no vectors of numbers, and options that
    cannot be used. Switch threads on before the data frame is made.
    """
    try:
        node = root().RDF.AsRNode(rdf)
    except TypeError:
        raise Error(
            f"rdf is a {type(rdf).__name__}; define_fit takes a ROOT.RDataFrame or a node of one"
        ) from None
    options = TrackFitOptions(**fit_options)._to_cpp()
    mapping = column_names(columns)
    geometry = cpp_detector(detector).SharedGeometry()
    return call(cpp().DefineFit, node, geometry, options, mapping, text("prefix", prefix))
