"""Fits of many tracks at once, from a data frame, an awkward array or files."""

from __future__ import annotations

import dataclasses
import os
import sys
import warnings
from typing import (
    TYPE_CHECKING, Any, Callable, Literal, Mapping, Protocol, Sequence, Union, overload
)  # fmt: skip

import numpy as np

from ._arrays import count, is_whole, number, text, truth
from ._columns import OUTPUTS, views
from ._inputs import factorized, normal_form, with_tracks_together
from ._root import call, column_names, cpp, strings
from ._progress import Progress, shown_progress
from .detector import DetectorLike, cpp_detector
from .errors import Error, FitWarning, shown
from .options import FitOptions, TrackFitOptions, about, takes_fit_options
from .summaries import FitSummary, from_cpp

if TYPE_CHECKING:
    import awkward  # type: ignore[import-untyped, unused-ignore]
    import pandas  # type: ignore[import-untyped, unused-ignore]
    from typing_extensions import Unpack

Unit = Literal["cm", "mm", "m", "um"]
File = Union[str, "os.PathLike[str]"]


class Table(Protocol):
    """What can become a pandas frame: tables of polars, Arrow and others."""

    def to_pandas(self) -> Any: ...


HitsLike = Union[
    File, Sequence[File], Mapping[str, Any], Table, "pandas.DataFrame", "awkward.Array"
]

# How long the library works until Python looks whether the user wants to stop it.
_SECONDS = 0.1


class TableOptions(FitOptions, total=False):
    """The keywords of fit_tracks beside output, for those who check types."""

    threads: int | None
    vectors: bool
    columns: Mapping[str, str | int] | None
    key: str | Sequence[str] | None
    unit: Unit
    sigma: float
    tree: str
    limit: int
    progress: Progress


@overload
def fit_tracks(
    hits: HitsLike,
    detector: DetectorLike,
    *,
    output: Literal["pandas"] = "pandas",
    **options: Unpack[TableOptions],
) -> pandas.DataFrame: ...


@overload
def fit_tracks(
    hits: HitsLike,
    detector: DetectorLike,
    *,
    output: Literal["awkward"],
    **options: Unpack[TableOptions],
) -> awkward.Array: ...


@takes_fit_options
def fit_tracks(
    hits: HitsLike,
    detector: DetectorLike,
    *,
    threads: int | None = None,
    output: Literal["pandas", "awkward"] = "pandas",
    vectors: bool = True,
    columns: Mapping[str, str | int] | None = None,
    key: str | Sequence[str] | None = None,
    unit: Unit = "cm",
    sigma: float = 0.0,
    tree: str = "",
    limit: int = 0,
    progress: Progress = None,
    **fit_options: Any,
) -> Any:
    """Fits all tracks under each hypothesis: one row per track and hypothesis, in the order of the
    input, with the columns of a file of fits. Lengths in cm, energies in GeV, momenta in GeV/c.

        fits = kelvo.fit_tracks("hits.csv.gz", "detectors/fine.toml")
        muons = fits[fits.best & (fits.pdg == 13)]

    hits: one hit a row, in any order: a pandas frame, where the track may also be the index, a dict
        of arrays, a polars frame, an Arrow table; one track an entry: an awkward array or Arrow
        table of lists, whose hits may be records, and whose tracks may be in events; a Parquet
        file of either; or names of files as the command takes them, one or a sequence. Columns:
        track (whole number), view (X or Y, 0 or 1), u, z, sigu; or x, y, sigx, sigy for planes that
        measure both; optional sigz, t, sigt, w, q. Numbers of any type. Others are skipped.
    detector: the name of a detector's file, or a kelvo.PlaneDetector
    threads: None takes all that the process may use; the result does not depend on it
    output: "pandas" gives a DataFrame, with vectors as Arrow lists; "awkward" an awkward array
    vectors: False leaves out the columns of hits, planes, kinks and covariance
    columns: from a name above to the one in the input, such as {"track": "event"}
    key: columns that tell the tracks apart together, such as ("event", "track"), in place of one
        number; they are columns of the result; for one hit a row
    unit: of the lengths in the input: "cm", "mm", "m" or "um"
    sigma: uncertainty of u, x and y, in that unit, where the input has no column of it; 0: the
        detector's resolution
    tree: table of hits in ROOT files; empty: "hits", or the only one
    limit: number of tracks after which to stop; 0: all
    progress: True shows a bar of the package tqdm; or a function that is called some ten times a
        second with the fraction of the input that is read, 0 to 1
    fit_options: hypotheses, scattering_factor, ... by name, see TrackFitOptions

    What cannot be used is never guessed: such a track has a status above 0 and a message, the
    others are fitted, and a FitWarning tells the first problem. Hits that cannot be meant so
    (lengths in mm, views exchanged, another detector's, several tracks under one number) are
    fitted, and told with numbers by a FitWarning. kelvo.summary(fits) tells what came out. Raises
    Error for missing columns, files and options that cannot be used.
    """
    if not isinstance(output, str) or output not in OUTPUTS:
        raise Error(f'output is {shown(output)}; it must be "pandas" or "awkward"')
    convert = OUTPUTS[output]()  # asks for what it needs now, not when all is fitted
    bar = shown_progress(progress)
    options = _run_options(fit_options, threads, vectors, limit)
    geometry = cpp_detector(detector)
    conventions = _conventions(columns, unit, sigma, geometry)
    hits, keys = _prepared(normal_form(hits), (columns or {}).get("track", "track"), key)
    source = _source(hits, conventions, text("tree", tree))
    table = call(cpp().FitTable, geometry, source.cpp, options)
    with bar as show:
        _fit(table, show)
    summary = from_cpp(table.Summary())
    for sentence in _told(summary):
        warnings.warn(FitWarning(sentence), stacklevel=2)
    attrs = {**about(geometry, options.fFit), "summary": summary._plain()}
    return _with_keys(convert(views(table, table.Columns()), attrs), keys, output)


def _run_options(fit_options: Mapping[str, Any], threads: Any, vectors: Any, limit: Any) -> Any:
    options = cpp().FitRunOptions()
    options.fFit = TrackFitOptions(**fit_options)._to_cpp()
    allowed = len(os.sched_getaffinity(0))
    options.fThreads = allowed if threads is None else count("threads", threads, 1, 1024)
    options.fScalarsOnly = not truth("vectors", vectors)
    options.fLimit = count("limit", limit, maximum=2**63 - 1)
    return options


def _fit(table: Any, show: Callable[[float], object]) -> None:
    try:
        while call(table.Fit, _SECONDS):
            show(table.Fraction())
    except BaseException:
        table.__destruct__()  # ends its threads, which read from the source
        raise


def _key(key: Any) -> list[str] | None:
    if key is None:
        return None
    names = [key] if _is_name(key) else key
    if not isinstance(names, (list, tuple)) or not names or not all(map(_is_name, names)):
        raise Error(f'key is {shown(key)}; it must be one or more names of columns, such as ("event", "track")')
    return [str(name) for name in names]


def _is_name(name: Any) -> bool:
    return isinstance(name, str) or is_whole(name)


def _prepared(hits: Any, track: str | int, given: Any) -> tuple[Any, Any]:
    key = _key(given)
    pandas = sys.modules.get("pandas")
    if pandas and isinstance(hits, pandas.DataFrame):
        return with_tracks_together(hits, str(track), key)
    if key:
        raise Error("key is for hits with one hit a row, such as pandas.read_csv(FILE)")
    return hits, None


def _with_keys(fits: Any, keys: Any, output: str) -> Any:
    """Gives the fits the columns of the key, whose values are in the order of the tracks' numbers."""
    if keys is None:
        return fits
    numbers = np.asarray(fits["track"])
    for place, name in enumerate(keys.columns):
        values = keys[name].to_numpy()[numbers]
        if output == "awkward":
            fits = sys.modules["awkward"].with_field(fits, values, name)
        elif name in fits:
            fits[name] = values
        else:
            fits.insert(place, name, values)
    return fits


def _told(summary: FitSummary) -> list[str]:
    """Returns the sentences that users are warned with."""
    if not summary.problem_count:
        return list(summary.doubts)
    lost = (
        f"{summary.tracks - summary.fitted} of {summary.tracks} tracks could not be used; the first "
        f"problem: {summary.problems[0]}. See the columns status and message, and "
        "kelvo.summary(fits).problems"
    )
    return [lost, *summary.doubts]


@dataclasses.dataclass
class _Source:
    """Where C++ reads tracks from; keeps what that refers to."""

    cpp: Any
    arrays: list[Any] = dataclasses.field(default_factory=list)


def _source(hits: Any, conventions: Any, tree: bytes) -> _Source:
    if isinstance(hits, (str, os.PathLike)):
        hits = [hits]
    if isinstance(hits, (list, tuple)) and all(isinstance(h, (str, os.PathLike)) for h in hits):
        return _files(hits, conventions, tree)
    # A frame or an array can only be there where its package has been imported.
    pandas, awkward = sys.modules.get("pandas"), sys.modules.get("awkward")
    if pandas and isinstance(hits, pandas.DataFrame):
        return _frame(hits, conventions)
    if awkward and isinstance(hits, awkward.Array):
        return _awkward(hits, conventions)
    raise Error(
        f"hits is a {type(hits).__name__}; fit_tracks takes a table with one hit a row (pandas, polars, "
        "Arrow, dict of arrays), an awkward array (one track an entry), or names of files"
    )


def _conventions(
    columns: Mapping[str, str | int] | None, unit: str, sigma: float, detector: Any
) -> Any:
    conventions = cpp().HitConventions()
    conventions.fColumns = column_names(columns)
    conventions.fUnit = text("unit", unit)
    conventions.fSigma = number("sigma", sigma)
    if detector.Planes():
        conventions.fPlanes = detector.Planes()
    call(cpp().CheckHitConventions, conventions)
    return conventions


def _files(files: Sequence[Any], conventions: Any, tree: bytes) -> _Source:
    if not files:
        raise Error("there is no file of hits")
    options = cpp().HitReaderOptions()
    for member in ("fColumns", "fUnit", "fSigma", "fPlanes"):
        setattr(options, member, getattr(conventions, member))
    options.fTree = tree
    names = strings("hits", [os.fsdecode(file) for file in files])
    return _Source(call(cpp().HitReader, names, options))


class _Columns:
    """The columns of hits in a table in memory, found by the rules for files."""

    def __init__(self, names: Sequence[str], conventions: Any) -> None:
        vector = strings("the columns of hits", names)
        self.cpp = call(cpp().ArrayCalls.MakeColumns, "hits", vector, conventions)
        # Those that there are: number in C++, and name in the table.
        self.found = {
            name: (number, str(self.cpp.Name(number)))
            for number, name in enumerate(map(str, cpp().HitColumnNames()))
            if self.cpp.Has(number)
        }

    def plane_number(self, name: object) -> float:
        return float(self.cpp.PlaneNumber(text("a name in plane", str(name))))


def _track_numbers(name: str, values: Any) -> Any:
    """values: with a dtype of NumPy's kinds; a gap has made it one of objects or numbers"""
    if values.dtype.kind not in "iu" or (hasattr(values, "isna") and values.isna().any()):
        raise Error(
            f"column {name} is {values.dtype}; track numbers are whole numbers without gaps: "
            f'hits["{name}"].astype("int64")'
        )
    if values.dtype.kind == "u" and len(values) and int(values.max()) > np.iinfo(np.int64).max:
        raise Error(
            f"column {name} has {int(values.max())}; track numbers are whole numbers of 64 bits "
            "with sign"
        )
    return np.ascontiguousarray(values, np.int64)


def _code_of_view(view: object) -> float:
    return float(ord(view)) if isinstance(view, str) and len(view) == 1 else -1.0


def _frame(frame: Any, conventions: Any) -> _Source:
    columns = _Columns([str(name) for name in frame.columns], conventions)
    arrays = {}
    for name, (column, other) in columns.found.items():
        series = frame[other]
        if name == "track":
            tracks = _track_numbers(other, series)
        else:
            code = {"view": _code_of_view, "plane": columns.plane_number}.get(name)
            arrays[column] = _frame_codes(series, code) if code else _frame_numbers(series)
    make = cpp().HitArrays
    n = len(frame)
    source = call(make, "hits", columns.cpp, cpp().HitLayout.kRowIsHit, _addressed(tracks), n)
    for column, values in arrays.items():
        call(source.SetColumn, column, _addressed(values), n)
    return _Source(source, [tracks, arrays])


def _is_numeric(series: Any) -> bool:
    pandas = sys.modules["pandas"]
    return bool(pandas.api.types.is_numeric_dtype(series) and series.dtype != bool)


def _frame_numbers(series: Any) -> Any:
    if not _is_numeric(series):
        raise Error(
            f"column {series.name} is {series.dtype}; it must hold numbers: "
            f'pandas.to_numeric(hits["{series.name}"])'
        )
    return np.ascontiguousarray(series.to_numpy(np.float64, na_value=np.nan))


def _frame_codes(series: Any, code: Callable[[Any], float]) -> Any:
    if _is_numeric(series):
        return _frame_numbers(series)
    codes, texts = factorized(series.name, series)
    # The last one is for what is missing, which has the code -1.
    return np.array([*map(code, texts), np.nan])[codes]


def _awkward(array: Any, conventions: Any) -> _Source:
    ak = sys.modules["awkward"]
    columns = _Columns(ak.fields(array), conventions)
    vectors = {}
    for name, (index, other) in columns.found.items():
        column = array[other]
        if name == "track":
            tracks = _track_numbers(other, _awkward_tracks(ak, other, column))
        else:
            vectors[index] = _awkward_vectors(ak, other, column, name == "view")
    make = cpp().HitArrays
    n = len(array)
    source = call(make, "hits", columns.cpp, cpp().HitLayout.kRowIsTrack, _addressed(tracks), n)
    for index, (values, offsets) in vectors.items():
        call(source.SetVectors, index, _addressed(values), len(values), offsets)
    return _Source(source, [tracks, vectors])


def _awkward_tracks(ak: Any, name: str, column: Any) -> Any:
    if column.ndim != 1 or ak.any(ak.is_none(column)):
        raise Error(f"column {name} is {column.type.content}; it must be one whole number a track")
    return ak.to_numpy(column)


def _awkward_vectors(ak: Any, name: str, column: Any, is_view: bool) -> tuple[Any, Any]:
    if column.ndim != 2:
        raise Error(f"column {name} is {column.type.content}; it must be a list of numbers a track")
    lengths = ak.to_numpy(ak.fill_none(ak.num(column), 0))
    offsets = np.concatenate(([0], np.cumsum(lengths))).astype(np.int64)
    flat = ak.flatten(column)
    if is_view and _is_text(flat):
        return _codes_of_texts(ak, flat), offsets
    values = ak.to_numpy(ak.fill_none(flat, np.nan))
    if values.dtype.kind not in "iuf":
        raise Error(f"column {name} is {column.type.content}; it must hold numbers")
    return np.ascontiguousarray(values, np.float64), offsets


def _is_text(flat: Any) -> bool:
    return "string" in str(flat.type.content)


def _codes_of_texts(ak: Any, texts: Any) -> Any:
    layout = ak.to_packed(ak.drop_none(ak.fill_none(texts, ""))).layout
    starts, lengths = layout.offsets.data[:-1], np.diff(layout.offsets.data)
    codes = np.full(len(starts), -1.0)
    single = lengths == 1
    codes[single] = layout.content.data[starts[single]]
    return codes


def _addressed(values: Any) -> Any:
    """An empty array has no address for C++."""
    return values if values.size else np.zeros(1, values.dtype)
