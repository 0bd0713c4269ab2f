"""The tables of numbers in docs/stopping-power.md."""

from reference_rows import ROWS, rounded
from total import StoppingPower, grid, table

BEGIN = "<!-- tables written by tools/stopping_power/document.py -->"
END = "<!-- end of tables -->"

COLUMNS = (
    "leading",
    "density",
    "shells",
    "Barkas",
    "Bloch",
    "Mott",
    "knock-ons",
    "join",
    "bremsstrahlung",
    "pairs",
)


def markdown(materials, literature):
    """Both sets of tables between their markers."""
    parts = [BEGIN, "### Terms at the rows in use, in % of the total", ""]
    for material in materials:
        parts += [*term_table(material, literature), ""]
    parts += ["### Residuals at the rows in use", "", *residual_table(materials, literature)]
    return "\n".join([*parts, "", END]) + "\n"


def term_table(material, literature):
    """Lines of one material: share of each term at each row."""
    stopping = StoppingPower(material, literature)
    yield f"**{material.name}**"
    yield ""
    yield from header("T [GeV]", "S [MeV cm²/g]", *COLUMNS)
    for index in ROWS:
        energy = grid()[index]
        terms = stopping.terms(1e3 * energy)
        total = sum(terms.values())
        shares = [share(100 * terms[name] / total) if name in terms else "" for name in COLUMNS]
        yield line(f"{energy:.6g}", f"{total:.6g}", *shares)


def share(percent):
    """A tenth of a percent for large shares, a thousandth for small ones, never "-0.000"."""
    if abs(percent) < 0.0005:
        return "0"
    return f"{percent:.1f}" if abs(percent) >= 1 else f"{percent:.3f}"


def residual_table(materials, literature):
    """Lines: computed minus given value after rounding to six digits."""
    yield from header("index", "T [GeV]", *(material.name for material in materials))
    computed = [table(material, literature) for material in materials]
    for index, given in ROWS.items():
        residuals = [f"{rounded(c[index]) - g:g}" for c, g in zip(computed, given, strict=True)]
        yield line(f"{index}", f"{grid()[index]:.6g}", *residuals)


def header(*names):
    yield line(*names)
    yield line(*("--:" for _ in names))


def line(*cells):
    return "| " + " | ".join(cells) + " |"
