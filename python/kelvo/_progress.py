"""How far a fit is, told while it runs."""

from __future__ import annotations

import contextlib
from typing import Any, Callable, ContextManager, Iterator, Union

from ._columns import needed
from .errors import Error, shown

Show = Callable[[float], object]
Progress = Union[bool, None, Show]


def shown_progress(progress: Progress) -> ContextManager[Show]:
    """Returns what gives the function to call with the fraction that is done, 0 to 1."""
    if progress is True:
        return _bar(needed("tqdm.auto", "progress=True").tqdm)
    if progress is None or progress is False:
        return contextlib.nullcontext(_nothing)
    if callable(progress):
        return contextlib.nullcontext(progress)
    raise Error(
        f"progress is {shown(progress)}; it must be True, False or a function of the fraction"
    )


def _nothing(fraction: float) -> None:
    pass


@contextlib.contextmanager
def _bar(tqdm: Any) -> Iterator[Show]:
    with tqdm(total=100, unit="%", bar_format="{l_bar}{bar}| {elapsed}<{remaining}") as bar:
        yield lambda fraction: bar.update(100 * fraction - bar.n)
        bar.update(100 - bar.n)
