"""Tables of fits: from the columns of C++ to NumPy, awkward and pandas, without copying numbers."""

from __future__ import annotations

import importlib
from typing import Any

import numpy as np
import numpy.typing as npt

from .errors import Error

Column = tuple[str, npt.NDArray[Any], "npt.NDArray[np.int64] | None"]


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
    try:
        return importlib.import_module(module)
    except ImportError:
        package = module.split(".")[0]
        raise Error(f"{what} needs {package}, which is not installed: pip install {package}") from None


def to_awkward(columns: dict[str, Column], attrs: dict[str, Any]) -> Any:
    ak = needed("awkward", 'output="awkward"')
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


def to_pandas(columns: dict[str, Column], attrs: dict[str, Any]) -> Any:
    pd = needed("pandas", 'output="pandas"')
    pa = needed("pyarrow", 'output="pandas"')
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
