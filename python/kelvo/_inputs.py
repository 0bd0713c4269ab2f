"""What people keep hits in, brought into the two forms that C++ reads: a pandas frame with one hit a
row, the rows of a track together, or an awkward array with one track an entry."""

from __future__ import annotations

import os
import sys
from typing import Any, Mapping, Sequence

import numpy as np

from ._columns import needed
from .errors import Error

Key = Sequence[str]


def is_file(hits: Any) -> bool:
    return isinstance(hits, (str, os.PathLike))


def normal_form(hits: Any) -> Any:
    """Returns a frame whose columns have texts as names, an awkward array, or names of files as they
    are."""
    if is_file(hits) and _is_parquet(hits):
        hits = needed("pyarrow.parquet", "a Parquet file").read_table(os.fspath(hits))
    pyarrow, awkward = sys.modules.get("pyarrow"), sys.modules.get("awkward")
    if pyarrow and isinstance(hits, pyarrow.Table) and any(map(_is_list, hits.schema.types)):
        hits = needed("awkward", "an Arrow table of lists").from_arrow(hits)
    elif isinstance(hits, Mapping):
        hits = _frame_of_dict(needed("pandas", "a dict of arrays"), hits)
    elif hasattr(hits, "to_pandas"):  # of Arrow, polars and others
        hits = hits.to_pandas()
    if awkward and isinstance(hits, awkward.Array):
        return _one_entry_a_track(awkward, hits)
    pandas = sys.modules.get("pandas")
    if pandas and isinstance(hits, pandas.DataFrame) and not all(map(_is_text, hits.columns)):
        return hits.set_axis([str(name) for name in hits.columns], axis=1)
    return hits


def _frame_of_dict(pandas: Any, hits: Mapping[Any, Any]) -> Any:
    try:
        return pandas.DataFrame(dict(hits))
    except ValueError as e:
        raise Error(f"hits is a dict that is no table: {e}") from None


def _is_text(name: object) -> bool:
    return isinstance(name, str)


def _is_parquet(file: Any) -> bool:
    try:
        with open(file, "rb") as opened:
            return opened.read(4) == b"PAR1"
    except (OSError, ValueError):
        return False  # who opens it next tells why


def _is_list(arrow_type: Any) -> bool:
    types = sys.modules["pyarrow"].types
    return bool(types.is_list(arrow_type) or types.is_large_list(arrow_type))


def _one_entry_a_track(ak: Any, hits: Any) -> Any:
    """Gives hits as records (hits.x) and tracks of an event the form of one track an entry."""
    fields = dict(zip(ak.fields(hits), ak.unzip(hits)))
    while any(ak.fields(column) for column in fields.values()):
        inner = [(name, dict(zip(ak.fields(c), ak.unzip(c))) or {name: c}) for name, c in fields.items()]
        fields = {name: column for _, columns in inner for name, column in columns.items()}
    if not fields or max(column.ndim for column in fields.values()) < 3:
        return ak.zip(fields, depth_limit=1) if fields else hits
    # What an event has once is no column of hits.
    return ak.zip({n: ak.flatten(c) for n, c in fields.items() if c.ndim > 1}, depth_limit=1)


def factorized(name: object, values: Any) -> Any:
    """Returns a code for each value, and the different values."""
    try:
        return sys.modules["pandas"].factorize(values)
    except TypeError:
        raise Error(f"column {name} holds lists or dicts; it must hold numbers or texts") from None


def with_tracks_together(frame: Any, track: str, key: Key | None) -> tuple[Any, Any]:
    """Returns a frame with a number for each track and its rows together, the tracks and the rows of
    each in the order of the input, and with a key the frame of its values by that number.

    track: column with the number of the track; with a key it is made
    """
    wanted = list(key) if key else [track]
    if any(name not in frame.columns for name in wanted) and any(n in wanted for n in frame.index.names):
        frame = frame.reset_index([name for name in frame.index.names if name in wanted])
    values = None
    if key:
        for name in key:
            if name not in frame.columns:
                raise Error(f'hits: there is no column "{name}", which key names')
        for name in key:
            factorized(name, frame[name])
        numbers = frame.groupby(list(key), sort=False, dropna=False).ngroup().to_numpy()
        values = frame.loc[~frame.duplicated(list(key)), list(key)].reset_index(drop=True)
        frame = frame.assign(**{track: numbers})
    elif track in frame.columns and getattr(frame[track], "ndim", 2) == 1:
        numbers = factorized(track, frame[track])[0]
    else:
        return frame, None
    if np.any(np.diff(numbers) < 0):
        frame = frame.iloc[np.argsort(numbers, kind="stable")]
    return frame, values
