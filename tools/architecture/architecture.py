#!/usr/bin/env python3
"""Draws the folders and the arrows between them from the #include lines of the sources.

architecture.py TOP            writes TOP/docs/img/architecture.svg
architecture.py TOP --check    fails when a folder includes what does not lie below it, or when the
                               drawing is not that of the sources
"""

import os
import re
import sys
from pathlib import Path

# From top to bottom. A folder may include what lies in the rows below its own.
ROWS = (
    (("app", "the kelvo command"), ("python", "import kelvo")),
    (("draw", "pictures and report"), ("run", "many tracks through the fit")),
    (("io", "readers and writers of files"),),
    (("sim", "simulated tracks"),),
    (("track", "from hits to a fitted track"),),
    (("fit", "further solvers"),),
    (("func", "the seven classes"),),
    (("geo", "detectors"),),
    (("matter", "materials"),),
    (("util", "small helpers"),),
)
ROW_OF = {name: row for row, folders in enumerate(ROWS) for name, _ in folders}
SOURCES = (".cxx", ".h")
INCLUDE = re.compile(r'\s*#\s*include\s*["<]([^">]+)[">]')
DRAWING = Path("docs/img/architecture.svg")


def includes(top):
    """Each include of one of our folders by another: (from, to, "file:line")."""
    for folder in ROW_OF:
        for source in sorted((top / folder).rglob("*")):
            if source.suffix not in SOURCES:
                continue
            for number, line in enumerate(source.read_text().splitlines(), 1):
                match = INCLUDE.match(line)
                to = match and folder_of(top, source, match.group(1))
                if to and to != folder:
                    yield folder, to, f"{source.relative_to(top)}:{number}"


def folder_of(top, source, path):
    """The folder of ours in which an included file lies, or None for one of elsewhere."""
    for start in (source.parent, top):
        file = Path(os.path.normpath(start / path))
        if file.is_file() and top in file.parents:
            return file.relative_to(top).parts[0]
    return None


def wrong_arrows(found):
    """One sentence for each include of what does not lie below."""
    for start, end, place in found:
        if end not in ROW_OF:
            yield f"{place}: {start}/ includes {end}/, which is no folder of the libraries"
        elif ROW_OF[end] <= ROW_OF[start]:
            yield f"{place}: {start}/ includes {end}/, which does not lie below it"


def drawn_arrows(found):
    """The arrows without those that a way through other folders makes superfluous."""
    arrows = {(start, end) for start, end, _ in found}

    def reaches(start, end, direct):
        return any(
            (to == end and direct) or reaches(to, end, True)
            for begin, to in arrows
            if begin == start and ROW_OF[to] <= ROW_OF[end]
        )

    return sorted(arrow for arrow in arrows if not reaches(*arrow, False))


WIDTH, BOX_WIDTH, BOX_HEIGHT, PITCH, MARGIN = 640, 230, 46, 72, 14

HEAD = """\
<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="15">
  <style>
    rect {{ fill: #f4f7fb; stroke: #35608f; stroke-width: 1.5 }}
    path {{ stroke: #35608f; stroke-width: 1.8; fill: none; marker-end: url(#head) }}
    .note {{ font-size: 12px; fill: #444 }}
    .bg {{ fill: #ffffff; stroke: none }}
  </style>
  <defs><marker id="head" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" orient="auto"><path d="M0 0L8 4L0 8z" style="fill:#35608f;stroke:none;marker-end:none"/></marker></defs>
  <rect class="bg" width="{width}" height="{height}"/>
"""


def middle(name):
    """The middle of a folder's box in x."""
    names = [folder for folder, _ in ROWS[ROW_OF[name]]]
    return WIDTH * (2 * names.index(name) + 1) // (2 * len(names))


def upper_edge(name):
    return MARGIN + PITCH * ROW_OF[name]


def box(name, note):
    x, y = middle(name) - BOX_WIDTH // 2, upper_edge(name)
    return (
        f'  <rect x="{x}" y="{y}" width="{BOX_WIDTH}" height="{BOX_HEIGHT}" rx="6"/>'
        f'<text x="{x + 14}" y="{y + 19}">{name}/</text>'
        f'<text class="note" x="{x + 14}" y="{y + 36}">{note}</text>\n'
    )


def arrow(start, end):
    """Straight to the next row, around the boxes between to one further down."""
    x1, x2 = middle(start), middle(end)
    if ROW_OF[end] == ROW_OF[start] + 1:
        # Towards the other box where the two do not stand above each other.
        aside = (x2 > x1) - (x2 < x1)
        x1, x2 = x1 + aside * BOX_WIDTH // 6, x2 - aside * BOX_WIDTH // 6
        return f'  <path d="M{x1} {upper_edge(start) + BOX_HEIGHT}L{x2} {upper_edge(end)}"/>\n'
    side = -1 if x1 < WIDTH // 2 else 1
    x1, x2 = x1 + side * BOX_WIDTH // 2, x2 + side * BOX_WIDTH // 2
    y1, y2 = upper_edge(start) + BOX_HEIGHT // 2, upper_edge(end) + BOX_HEIGHT // 2
    outside = max(x1 * side, x2 * side) * side + side * 28 * (ROW_OF[end] - ROW_OF[start])
    outside = min(max(outside, -MARGIN), WIDTH + MARGIN)
    return f'  <path d="M{x1} {y1}C{outside} {y1} {outside} {y2} {x2} {y2}"/>\n'


def drawing(found):
    height = 2 * MARGIN + PITCH * (len(ROWS) - 1) + BOX_HEIGHT
    boxes = "".join(box(*folder) for row in ROWS for folder in row)
    arrows = "".join(arrow(*ends) for ends in drawn_arrows(found))
    return HEAD.format(width=WIDTH, height=height) + boxes + arrows + "</svg>\n"


def main(top, check=False):
    """The exit code."""
    top = Path(top).resolve()
    found = list(includes(top))
    wrong = list(wrong_arrows(found))
    if wrong:
        print("\n".join(wrong), file=sys.stderr)
        return 1
    if not check:
        (top / DRAWING).write_text(drawing(found))
    elif (top / DRAWING).read_text() != drawing(found):
        print(f"{DRAWING} is not what the sources say; run python3 {sys.argv[0]} {top}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    if sys.argv[1:2] == [] or sys.argv[2:] not in ([], ["--check"]):
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], check=sys.argv[2:] == ["--check"]))
