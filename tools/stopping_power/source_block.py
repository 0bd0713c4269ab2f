"""The tables as C++: the part of func/dEdxTable.cxx between two marker comments."""

from total import grid, table

BEGIN = "// --- tables written by tools/stopping_power/generate.py ---"
END = "// --- end of tables ---"
PER_LINE = 6


def cxx_block(materials, literature):
    """The text from the first marker to the last, both included."""
    stopping = {material.name: table(material, literature) for material in materials}
    lines = [
        BEGIN,
        "// clang-format off",  # it would set the arrays in columns of its own width
        *array_lines("Grid", grid()),
        *(line for name, values in stopping.items() for line in array_lines(name, values)),
        "// clang-format on",
        *(line for material in materials for line in init_function(material)),
        END,
    ]
    return "\n".join(lines) + "\n"


def init_function(material):
    """One selector: grid [GeV], stopping powers [MeV cm2/g], number of points, density [g/cm3]."""
    yield ""
    yield f"void dEdxTable::Init{material.name}() {{"
    yield f"  Select(kGrid, k{material.name}, {len(grid())}, {material.density:g});"
    yield "}"


def array_lines(name, values):
    """A constant array with six significant digits per number."""
    yield f"constexpr double k{name}[{len(values)}] = {{"
    for start in range(0, len(values), PER_LINE):
        row = ", ".join(f"{value:.6g}" for value in values[start : start + PER_LINE])
        yield f"    {row},"
    yield "};"
