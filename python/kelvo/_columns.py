"""Tables of fits: from the columns of C++ to NumPy, awkward and pandas, without copying numbers."""

from __future__ import annotations

import functools
import importlib
from typing import Any, Callable, Sequence

import numpy as np
import numpy.typing as npt

from .errors import Error

Column = tuple[str, npt.NDArray[Any], "npt.NDArray[np.int64] | None"]
#: All numbers of a column, and the offsets of the rows in them where a row has several.
Flat = tuple[npt.NDArray[Any], "npt.NDArray[np.int64] | None"]
Convert = Callable[[dict[str, Column], dict[str, Any]], Any]


class _Memory:
    """Numbers in memory of C++; keeps their owner while an array looks at them."""

    def __init__(self, owner: Any, vector: Any) -> None:
        self._owner = owner
        self.__array_interface__ = vector.__array_interface__


def _view(owner: Any, vector: Any, dtype: str) -> npt.NDArray[Any]:
    if vector.empty():
        return np.empty(0, dtype)
    return np.asarray(_Memory(owner, vector)).view(dtype)


def views(owner: Any, columns: Any) -> dict[str, Column]:
    """Returns type, values and offsets of each column of a kelvo::FitColumns by name; offsets are
    None for a column of one number a row.

    owner: the object of C++ that keeps the columns
    """
    found: dict[str, Column] = {}
    for i in range(columns.Size()):
        column = columns.Column(i)
        kind = str(column.fType)
        values = _view(owner, column.fData, "uint8" if kind == "text" else kind)
        offsets = None
        if not column.fOffsets.empty():
            offsets = _view(owner, column.fOffsets, "int64")
        found[str(column.fName)] = (kind, values, offsets)
    return found


def needed(module: str, what: str) -> Any:
    """Imports a package that only what it is needed for asks for."""
    try:
        return importlib.import_module(module)
    except ImportError:
        package = module.split(".")[0]
        raise Error(f"{what} needs {package}, which is not installed: pip install {package}") from None


def _for_awkward() -> Convert:
    return functools.partial(_to_awkward, needed("awkward", 'output="awkward"'))


def _for_pandas() -> Convert:
    what = 'output="pandas"'
    return functools.partial(_to_pandas, needed("pandas", what), needed("pyarrow", what))


def _to_awkward(ak: Any, columns: dict[str, Column], attrs: dict[str, Any]) -> Any:
    contents = []
    for kind, values, offsets in columns.values():
        of_text = {"__array__": "char"} if kind == "text" else None
        content = ak.contents.NumpyArray(values, parameters=of_text)
        if offsets is not None:
            as_text = {"__array__": "string"} if kind == "text" else None
            index = ak.index.Index64(offsets)
            content = ak.contents.ListOffsetArray(index, content, parameters=as_text)
        contents.append(content)
    return ak.Array(ak.contents.RecordArray(contents, list(columns)), attrs=attrs)


def _to_pandas(pd: Any, pa: Any, columns: dict[str, Column], attrs: dict[str, Any]) -> Any:
    series = {}
    for name, (kind, values, offsets) in columns.items():
        if offsets is None:
            series[name] = values
        elif kind == "text":
            buffers = pa.py_buffer(offsets), pa.py_buffer(values)
            text = pa.LargeStringArray.from_buffers(len(offsets) - 1, *buffers)
            series[name] = pd.array(text, dtype=pd.StringDtype("pyarrow", na_value=np.nan))
        else:
            lists = pa.LargeListArray.from_arrays(pa.array(offsets), pa.array(values))
            series[name] = pd.arrays.ArrowExtensionArray(lists)
    frame = pd.DataFrame(series, copy=False)
    frame.attrs.update(attrs)
    return frame


def arrays_of_rows(rows: Sequence[Any], types: dict[str, tuple[str, bool]]) -> dict[str, Flat]:
    """Returns the same for objects that have the columns as attributes; what they lack is 0."""
    found = {}
    for name, (kind, is_list) in types.items():
        values: Any = [getattr(row, name, 0) for row in rows]
        offsets: Any = None
        if is_list:
            parts: list[Any] = [_of_text(v) if isinstance(v, str) else v for v in values]
            values = np.concatenate(parts)
            offsets = np.cumsum([0, *map(len, parts)])
        found[name] = _of_type(kind, values, offsets)
    return found


def _of_text(text: str) -> npt.NDArray[np.uint8]:
    return np.frombuffer(text.encode(), np.uint8)


def arrays_of(fits: Any, types: dict[str, tuple[str, bool]]) -> dict[str, Flat]:
    """Returns the numbers of each column of fits, and the offsets of its vectors and texts: the way
    back from a table to columns; without vectors where the table has none.

    types: kind of numbers, and whether a row has several, by the names of the columns
    """
    names: Any = getattr(fits, "fields", None) or getattr(fits, "columns", ())
    flat: Any = _flat_of_awkward if hasattr(fits, "fields") else _flat_of_pandas
    with_vectors = "residual" in names
    wanted = [n for n, (kind, more) in types.items() if with_vectors or kind == "text" or not more]
    missing = [name for name in wanted if name not in names]
    if missing:
        raise Error(f'fits has no column "{missing[0]}"; it must have those that kelvo.fit_tracks gives')
    found = {name: (types[name][0], *flat(fits[name], types[name][1])) for name in wanted}
    return {name: _of_type(kind, values, offsets) for name, (kind, values, offsets) in found.items()}


def _of_type(kind: str, values: Any, offsets: Any) -> Flat:
    made = np.ascontiguousarray(values, "uint8" if kind == "text" else kind)
    return made, None if offsets is None else np.ascontiguousarray(offsets, np.int64)


def _flat_of_awkward(column: Any, is_list: bool) -> Any:
    ak = needed("awkward", "an awkward array")
    if not is_list:
        return ak.to_numpy(column), None
    layout = ak.to_packed(column).layout.to_ListOffsetArray64(True)
    return layout.content.data, layout.offsets.data


def _flat_of_pandas(column: Any, is_list: bool) -> Any:
    if not is_list:
        return column.to_numpy(), None
    pa = needed("pyarrow", "a pandas frame")
    array = pa.array(column)
    if pa.types.is_string(array.type) or pa.types.is_large_string(array.type):
        encoded = [text.encode() for text in array.to_pylist()]
        lengths = [len(text) for text in encoded]
        return np.frombuffer(b"".join(encoded), np.uint8), np.concatenate(([0], np.cumsum(lengths)))
    if isinstance(array, pa.ChunkedArray):
        array = array.combine_chunks()
    lengths = array.value_lengths().to_numpy(zero_copy_only=False)
    return array.flatten().to_numpy(zero_copy_only=False), np.concatenate(([0], np.cumsum(lengths)))


#: What finds the packages for a kind of table, and returns what makes it.
OUTPUTS = {"pandas": _for_pandas, "awkward": _for_awkward}
