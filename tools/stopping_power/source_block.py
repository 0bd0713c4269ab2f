"""The tables as C++: the part of func/dEdxTable.cxx between two marker comments."""

from total import grid, table

BEGIN = "// --- tables written by tools/stopping_power/generate.py ---"
END = "// --- end of tables ---"
PER_LINE = 6


def cxx_block(materials, literature):
    """The text from the first marker to the last, both included."""
    members = [init_function(material, table(material, literature)) for material in materials]
    # clang-format would set the arrays in columns of its own width
    parts = [BEGIN, "// clang-format off", *members, "// clang-format on", END]
    return "\n".join(parts) + "\n"


def init_function(material, stopping):
    """One selector: grid [GeV], stopping powers [MeV cm2/g], logarithms, density [g/cm3]."""
    count = len(stopping)
    lines = [
        f"void dEdxTable::Init{material.name}() {{",
        *array_lines("T", grid()),
        *array_lines("dEdx", stopping),
        "  static const LogTable kLog(T, dEdx);",
        f"  Select(T, dEdx, {count}, {material.density:g}, &kLog);",
        "}",
        "",
    ]
    return "\n".join(lines)


def array_lines(name, values):
    """A constant array with six significant digits per number."""
    yield f"  static const double {name}[{len(values)}] = {{"
    for start in range(0, len(values), PER_LINE):
        row = ", ".join(f"{value:.6g}" for value in values[start : start + PER_LINE])
        yield f"      {row},"
    yield "  };"
