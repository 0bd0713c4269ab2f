"""Pictures that a notebook shows."""

from __future__ import annotations

import pathlib
import tempfile
from typing import Callable

from ._command import run
from .errors import Error


class Picture:
    """A picture that a notebook shows."""

    def __init__(self, svg: str) -> None:
        self.svg = svg  #: the text of the SVG file

    def _repr_svg_(self) -> str:
        return self.svg

    def __repr__(self) -> str:
        return f"<kelvo.Picture, {len(self.svg)} characters of SVG>"


def draw_detector(text: str) -> Picture:
    """Draws a detector of planes."""
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "detector.toml").write_text(text, encoding="utf-8")
        run("detector", "detector.toml", "-o", "detector.svg", cwd=folder)
        return Picture(pathlib.Path(folder, "detector.svg").read_text(encoding="utf-8"))


def drawn_or_nothing(draw: Callable[[], Picture]) -> str:
    """Returns the picture as an element of a page; nothing where it cannot be drawn."""
    try:
        svg = draw().svg
    except Error:
        return ""
    return svg[svg.index("<svg") :]
