"""What came out of a whole run."""

from __future__ import annotations

import dataclasses
from typing import Any, Mapping

from ._html import paragraph, table
from .errors import Error


@dataclasses.dataclass(frozen=True)
class HypothesisSummary:
    """What came out for one hypothesis."""

    pdg: int
    fitted: int  #: tracks
    best: int  #: tracks that it fits best
    #: hits and kinks of both views, within 0.5 %; NaN without fits and in sums
    median_chi2_per_ndf: float


@dataclasses.dataclass(frozen=True)
class FitSummary:
    """What came out of a whole run; summaries of several runs can be added."""

    tracks: int
    hits: int
    fitted: int  #: tracks with at least one fitted hypothesis
    left: int  #: of these, tracks that are taken to leave the detector
    by_status: tuple[int, ...]  #: tracks by their status, 0 to 5
    bad_rows: int  #: rows, lines or hits that could not be used
    problem_count: int  #: those, and the tracks that are not fitted besides
    problems: tuple[str, ...]  #: the first ten of these problems
    doubts: tuple[str, ...]  #: what cannot be meant, such as lengths in mm or views exchanged
    hypotheses: tuple[HypothesisSummary, ...]
    charge_scale: float  #: measured deposit per GeV; 0: deposits were not used; NaN in sums
    seconds: float

    def __add__(self, other: FitSummary) -> FitSummary:
        """Returns the summary of both runs; a median of both is not known from those of each."""
        if not isinstance(other, FitSummary):
            return NotImplemented
        counted = ("tracks", "hits", "fitted", "left", "bad_rows", "problem_count", "seconds")
        sums = {name: getattr(self, name) + getattr(other, name) for name in counted}
        same_scale = self.charge_scale == other.charge_scale
        return FitSummary(
            **sums,
            by_status=tuple(a + b for a, b in zip(self.by_status, other.by_status)),
            problems=(self.problems + other.problems)[:10],
            doubts=tuple(dict.fromkeys(self.doubts + other.doubts)),
            hypotheses=_added(self.hypotheses + other.hypotheses),
            charge_scale=self.charge_scale if same_scale else float("nan"),
        )

    def __radd__(self, other: int) -> FitSummary:
        """Makes sum() of summaries work, which begins with 0."""
        return self if isinstance(other, int) and other == 0 else NotImplemented

    def _plain(self) -> dict[str, Any]:
        """Returns numbers, texts, lists and dicts alone, as JSON has them."""
        made = {name: _listed(value) for name, value in vars(self).items()}
        return {**made, "hypotheses": [dict(vars(h)) for h in self.hypotheses]}

    def _repr_html_(self) -> str:
        told = (
            f"{self.fitted:,} of {self.tracks:,} tracks are fitted, with {self.hits:,} hits; "
            f"{self.left:,} leave the detector; {self.problem_count:,} problems; "
            f"{self.seconds:.1f} s"
        )
        doubts = "".join(map(paragraph, self.doubts + self.problems[:3]))
        names = ("pdg", "fitted", "best", "median of chi-square per degree of freedom")
        return paragraph(told) + doubts + table(names, map(dataclasses.astuple, self.hypotheses))


def _listed(value: Any) -> Any:
    return list(value) if isinstance(value, tuple) else value


def _added(all_of_both: tuple[HypothesisSummary, ...]) -> tuple[HypothesisSummary, ...]:
    by_pdg: dict[int, HypothesisSummary] = {}
    for h in all_of_both:
        before = by_pdg.get(h.pdg)
        by_pdg[h.pdg] = h if before is None else _sum(before, h)
    return tuple(by_pdg.values())


def _sum(a: HypothesisSummary, b: HypothesisSummary) -> HypothesisSummary:
    if not a.fitted or not b.fitted:
        median = (a if a.fitted else b).median_chi2_per_ndf
    else:
        median = float("nan")
    return HypothesisSummary(a.pdg, a.fitted + b.fitted, a.best + b.best, median)


def summary(fits: Any) -> FitSummary:
    """Returns what came out of the run that made a table of fits.

        fits = kelvo.fit_tracks("hits.csv.gz", "detectors/fine.toml")
        kelvo.summary(fits).fitted

    fits: from fit_tracks, or read again from a Parquet file of it
    """
    kept = getattr(fits, "attrs", {}).get("summary")
    if not isinstance(kept, Mapping):
        raise Error("fits has no summary; it must be a table that kelvo.fit_tracks has made")
    made: dict[str, Any] = {
        n: tuple(v) if isinstance(v, (list, tuple)) else v for n, v in kept.items()
    }
    made["hypotheses"] = tuple(HypothesisSummary(**h) for h in kept["hypotheses"])
    return FitSummary(**made)


def from_cpp(s: Any) -> FitSummary:
    """Returns a kelvo::FitSummary of C++ as Python has it."""
    return FitSummary(
        tracks=s.fTracks,
        hits=s.fHits,
        fitted=s.fFitted,
        left=s.fLeft,
        by_status=tuple(int(n) for n in s.fByStatus),
        bad_rows=s.fBadLines,
        problem_count=s.fProblemCount,
        problems=tuple(str(problem) for problem in s.fProblems),
        doubts=tuple(str(doubt) for doubt in s.fDoubts),
        hypotheses=tuple(
            HypothesisSummary(h.fPDG, h.fFitted, h.fBest, h.fMedianChi2PerNDF)
            for h in s.fHypotheses
        ),
        charge_scale=s.fChargeScale,
        seconds=s.fSeconds,
    )
