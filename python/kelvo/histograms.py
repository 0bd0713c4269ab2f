"""Residuals and pulls as histograms of the package hist."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, NamedTuple

import numpy as np

from ._arrays import Floats, count
from ._columns import arrays_of, needed
from .errors import Error

if TYPE_CHECKING:
    import hist

_WANTED = {"hit_view": ("int32", True), "residual": ("float32", True), "pull": ("float32", True)}


class Histograms(NamedTuple):
    """The hits of many fits; the axes are view, "x" or "y", and the value."""

    residual: hist.Hist[Any]  #: measured minus fitted [cm]
    pull: hist.Hist[Any]  #: residual over its standard deviation


def histograms(fits: Any, bins: int = 100) -> Histograms:
    """Fills histograms of the residuals and pulls of all hits.

        muons = fits[fits.pdg == 13]
        kelvo.histograms(muons).pull["x", :].plot()

    fits: a table that fit_tracks has made, or rows of one; choose one hypothesis, else each hit
        counts several times
    bins: of residual and pull; they reach to five standard deviations
    """
    hist = needed("hist", "kelvo.histograms")
    bins = count("bins", bins, 1, 100_000)
    names: Any = getattr(fits, "fields", None) or getattr(fits, "columns", ())
    if "residual" not in names:
        raise Error(
            "fits has no residuals; it must be a table from kelvo.fit_tracks with vectors=True"
        )
    columns = arrays_of(fits, _WANTED)
    view = np.array(["x", "y"])[columns["hit_view"][0]]

    def filled(name: str, label: str, limit: float) -> Any:
        axes = (
            hist.axis.StrCategory(["x", "y"], name="view"),
            hist.axis.Regular(bins, -limit, limit, name=name, label=label),
        )
        return hist.Hist(*axes).fill(view, columns[name][0])

    limit = _five_widths(columns["residual"][0])
    return Histograms(filled("residual", "residual [cm]", limit), filled("pull", "pull", 5.0))


def _five_widths(values: Floats) -> float:
    """Returns five times the half of the interval that holds the middle 68 %, with two digits."""
    finite = values[np.isfinite(values)]
    low, high = np.percentile(finite, [16, 84]) if finite.size else (-1.0, 1.0)
    return float(f"{5 * (high - low) / 2:.1e}") or 1.0
