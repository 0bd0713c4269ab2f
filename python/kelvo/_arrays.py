"""The rule for arrays: float64 (int64 for whole numbers), contiguous, of the right length. Nothing
is converted in silence, since a conversion hides a mistake or costs time; the error says how to."""

from __future__ import annotations

from typing import Any, Callable, Union

import numpy as np
import numpy.typing as npt

from .errors import Error, ErrorCode

Floats = npt.NDArray[np.float64]
Integers = npt.NDArray[np.int64]
FloatOrFloats = Union[float, Floats]


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


def number(name: str, value: Any) -> float:
    if not is_number(value):
        raise Error(f"{name} is a {type(value).__name__}; kelvo takes one number here")
    return float(value)


def count(name: str, value: Any, minimum: int = 0, maximum: int = 2**31 - 1) -> int:
    is_whole = isinstance(value, (int, np.integer)) and not isinstance(value, bool)
    if not is_whole or not minimum <= value <= maximum:
        raise Error(f"{name} is {value!r}; it must be a whole number from {minimum} to {maximum}")
    return int(value)


def index(name: str, value: Any, size: int) -> int:
    if not isinstance(value, (int, np.integer)) or isinstance(value, bool) or not 0 <= value < size:
        allowed = f"it must be from 0 to {size - 1}" if size else "there is none"
        raise Error(f"{name} is {value!r}; {allowed}", ErrorCode.kIndexProblem, 0.0)
    return int(value)


def output(*shape: int) -> tuple[Floats, Floats]:
    """Returns an array, and the same for C++ to write into."""
    out = np.zeros(shape)
    return out, out if out.size else np.zeros(1)


def each(
    name: str, values: Any, write: Callable[[int, Floats, Floats], Any], rows: int = 0
) -> Any:
    """Calls write(n, in, out) for a number or an array of n numbers; gives one or n back, or of
    either as many rows as told."""
    single = is_number(values)
    given = np.array([values], np.float64) if single else values
    checked = floats(name, given, None)
    n = len(given)
    out, written = output(*((rows, n) if rows else (n,)))
    write(n, checked, written)
    if not single:
        return out
    return out[:, 0] if rows else float(out[0])


def all_or_one(
    name: str, i: int | None, size: int, write: Callable[[Floats], Any], one: Callable[[int], Any]
) -> Any:
    """Returns one(i), or without an index an array of all that write fills."""
    if i is not None:
        return one(index(name, i, size))
    out, written = output(size)
    write(written)
    return out
