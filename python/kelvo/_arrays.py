"""The rule for arrays: float64 (int64 for whole numbers), contiguous, of the right length. Nothing
is converted in silence, since a conversion hides a mistake or costs time; the error says how to."""

from __future__ import annotations

import os
from typing import Any, Callable, Sequence, TypeVar, Union

import numpy as np
import numpy.typing as npt

from .errors import Error, ErrorCode, shown

Floats = npt.NDArray[np.float64]
Integers = npt.NDArray[np.int64]
FloatOrFloats = Union[float, Floats]
#: A number or an array of them; what is calculated from it is the same.
EachFloat = TypeVar("EachFloat", float, Floats)


def _array(name: str, values: Any, dtype: type, shape: tuple[int | None, ...]) -> Any:
    kind = np.dtype(dtype).name
    if not isinstance(values, np.ndarray):
        raise Error(
            f"{name} is a {type(values).__name__}; kelvo takes a NumPy array of {kind}: "
            f"np.array({name}, dtype=np.{kind})"
        )
    if values.dtype != np.dtype(dtype):
        raise Error(f"{name} is {values.dtype}; kelvo takes {kind}: {name}.astype(np.{kind})")
    if values.ndim != len(shape) or any(n not in (None, m) for n, m in zip(shape, values.shape)):
        wanted = ", ".join("n" if n is None else str(n) for n in shape)
        raise Error(f"{name} has the shape {values.shape}; kelvo takes ({wanted}) here")
    if not values.flags.c_contiguous:
        raise Error(
            f"{name} is strided; kelvo takes contiguous arrays: np.ascontiguousarray({name})"
        )
    # An empty array has no address for C++.
    return values if values.size else np.zeros(1, dtype)


def floats(name: str, values: Any, *shape: int | None) -> Floats:
    """Returns an array of float64 that C++ can read; a size None may be any."""
    return _array(name, values, np.float64, shape)  # type: ignore[no-any-return]


def integers(name: str, values: Any, *shape: int | None) -> Integers:
    """Returns an array of int64 that C++ can read; a size None may be any."""
    return _array(name, values, np.int64, shape)  # type: ignore[no-any-return]


def is_number(value: Any) -> bool:
    return isinstance(value, (int, float, np.integer, np.floating)) and not isinstance(value, bool)


def is_whole(value: Any) -> bool:
    return isinstance(value, (int, np.integer)) and not isinstance(value, bool)


def number(name: str, value: Any) -> float:
    if not is_number(value):
        raise Error(f"{name} is {shown(value)}; it must be a number")
    try:
        return float(value)
    except OverflowError:
        raise Error(f"{name} is {shown(value)}, which is too large for a number") from None


def listed(name: str, values: Any, rule: str) -> list[Any]:
    """Returns the elements of a list, tuple or array; a text is none."""
    is_list = isinstance(values, Sequence) and not isinstance(values, (str, bytes))
    if is_list or (isinstance(values, np.ndarray) and values.ndim == 1):
        return list(values)
    raise Error(f"{name} is {shown(values)}; {rule}")


def truth(name: str, value: Any) -> bool:
    if not isinstance(value, (bool, np.bool_)):
        raise Error(f"{name} is {shown(value)}; it must be True or False")
    return bool(value)


def text(name: str, value: Any) -> bytes:
    """Returns what C++ takes for a text; bytes of a file's name that are no UTF-8 stay as they are."""
    if not isinstance(value, str):
        raise Error(f"{name} is {shown(value)}; it must be a text")
    try:
        encoded = os.fsencode(value)
    except UnicodeEncodeError:
        encoded = b"\0"
    if b"\0" in encoded:
        raise Error(f"{name} is {shown(value)}, which has a character that no name has")
    return encoded


def file_name(name: str, value: str | os.PathLike[str]) -> bytes:
    """Returns the bytes of a file's name for C++."""
    if not isinstance(value, (str, os.PathLike)):
        raise Error(f"{name} is {shown(value)}; it must be the name of a file")
    return text(name, os.fsdecode(value))


def count(name: str, value: Any, minimum: int = 0, maximum: int = 2**31 - 1) -> int:
    if not is_whole(value) or not minimum <= value <= maximum:
        allowed = f"it must be a whole number from {minimum} to {maximum}"
        raise Error(f"{name} is {shown(value)}; {allowed}")
    return int(value)


def index(name: str, value: Any, size: int) -> int:
    if not is_whole(value) or not 0 <= value < size:
        allowed = f"it must be from 0 to {size - 1}" if size else "there is none"
        raise Error(f"{name} is {shown(value)}; {allowed}", ErrorCode.kIndexProblem, 0.0)
    return int(value)


def output(*shape: int) -> tuple[Floats, Floats]:
    """Returns an array, and the same for C++ to write into."""
    out = np.zeros(shape)
    return out, out if out.size else np.zeros(1)


def each_row(
    name: str, values: Any, write: Callable[[int, Floats, Floats], Any], rows: int
) -> Floats:
    """Calls write(n, in, out) for a number or an array of n numbers; gives so many rows of one or of
    n numbers back."""
    single = is_number(values)
    checked = floats(name, np.array([number(name, values)]) if single else values, None)
    n = 1 if single else len(values)
    out, written = output(rows, n)
    write(n, checked, written)
    return out[:, 0] if single else out


def each(
    name: str, values: EachFloat, write: Callable[[int, Floats, Floats], Any]
) -> EachFloat:
    """Does the same for one row."""
    row = each_row(name, values, write, 1)[0]
    return float(row) if is_number(values) else row  # type: ignore[return-value]


def all_or_one(
    name: str, i: int | None, size: int, write: Callable[[Floats], Any], one: Callable[[int], Any]
) -> FloatOrFloats:
    """Returns one(i), or without an index an array of all that write fills."""
    if i is not None:
        return float(one(index(name, i, size)))
    out, written = output(size)
    write(written)
    return out
