"""The hits of one track."""

from __future__ import annotations

from typing import Any

import numpy as np

from ._arrays import Floats, Integers, floats, integers
from ._root import call, cpp
from .errors import Error

_NUMBERS = ("x", "y", "z", "t", "sigx", "sigy", "sigz", "sigt", "w")


class HitList3D:
    """The hits of one track, as arrays of one number per hit.

        hits = kelvo.HitList3D(view, u, z, sigu)

    view: 0 measures x, 1 measures y (int64); u, sigu: the measured coordinate and its standard
    deviation [cm]; z: place of the plane [cm]; sigz: uncertainty of z [cm], 0 if absent; t, sigt: a
    time, carried and not used; w: weight in the completion to three dimensions, 1 if absent.
    Objects can be pickled and copied.
    """

    def __init__(
        self,
        view: Integers,
        u: Floats,
        z: Floats,
        sigu: Floats,
        *,
        sigz: Floats | None = None,
        t: Floats | None = None,
        sigt: Floats | None = None,
        w: Floats | None = None,
    ) -> None:
        integers("view", view, None)
        n = len(view)
        bad = np.flatnonzero((view != 0) & (view != 1))
        if bad.size:
            raise Error(f"view[{bad[0]}] is {view[bad[0]]}; it must be 0 (X) or 1 (Y)")
        for name, values in (("u", u), ("z", z), ("sigu", sigu)):
            floats(name, values, n)
        numbers = dict.fromkeys(_NUMBERS, np.zeros(n))
        numbers["w"] = np.ones(n)
        numbers["z"] = z
        for name, given in (("sigz", sigz), ("t", t), ("sigt", sigt), ("w", w)):
            if given is not None:
                floats(name, given, n)
                numbers[name] = given
        numbers["x"], numbers["y"] = np.where(view == 0, u, 0), np.where(view == 1, u, 0)
        numbers["sigx"], numbers["sigy"] = np.where(view == 0, sigu, 0), np.where(view == 1, sigu, 0)
        self._set(view, np.stack([numbers[name] for name in _NUMBERS], axis=1))

    def _set(self, view: Integers, numbers: Floats) -> None:
        self._cpp: Any = cpp().HitList3D()
        if len(view):
            call(cpp().ArrayCalls.SetHits, self._cpp, len(view), view, numbers)

    def _get(self) -> tuple[Integers, Floats]:
        view, numbers = np.zeros(len(self), np.int64), np.zeros((len(self), len(_NUMBERS)))
        if len(self):
            call(cpp().ArrayCalls.GetHits, self._cpp, view, numbers)
        return view, numbers

    def __len__(self) -> int:
        return int(self._cpp.size())

    def __getstate__(self) -> tuple[Integers, Floats]:
        return self._get()

    def __setstate__(self, state: tuple[Integers, Floats]) -> None:
        self._set(*state)

    def columns(self) -> dict[str, Any]:
        """Returns copies of all numbers as arrays by name: view, x, y, z, t, sigx, sigy, sigz,
        sigt, w. The coordinate that a hit does not measure is 0 until CompleteOrtho."""
        view, numbers = self._get()
        return {"view": view, **dict(zip(_NUMBERS, numbers.T.copy()))}

    def SortByZ(self) -> None:
        """Sorts by increasing z."""
        self._cpp.SortByZ()

    def SortByY(self) -> None:
        """Sorts by decreasing y."""
        self._cpp.SortByY()

    def CompleteOrtho(self) -> None:
        """Sorts by z and fills the coordinate that each hit does not measure from a straight line
        through the hits of the other view nearby."""
        call(self._cpp.CompleteOrtho)
