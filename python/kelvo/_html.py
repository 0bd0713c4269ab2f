"""How results show themselves in a notebook."""

from __future__ import annotations

import html
from typing import Iterable, Sequence


def table(names: Sequence[str], rows: Iterable[Sequence[object]]) -> str:
    """Returns a table of HTML; numbers have four digits."""
    head = "".join(f"<th>{html.escape(name)}</th>" for name in names)
    lines = ("".join(f"<td>{_cell(value)}</td>" for value in row) for row in rows)
    body = "".join(f"<tr>{line}</tr>" for line in lines)
    return f"<table><thead><tr>{head}</tr></thead><tbody>{body}</tbody></table>"


def _cell(value: object) -> str:
    return html.escape(f"{value:.4g}" if isinstance(value, float) else str(value))


def paragraph(text: str) -> str:
    return f"<p>{html.escape(text)}</p>"
