#!/usr/bin/env python3
"""Write the published elements and materials into matter/PublishedTables.cxx, or check them there.

    cd tools/materials
    python generate.py ../../matter/PublishedTables.cxx
    python generate.py ../../matter/PublishedTables.cxx --check

elements.csv and materials.csv beside this program hold the numbers; docs/materials.md has their
sources.
"""

import argparse
import csv
import sys
from pathlib import Path

HERE = Path(__file__).parent
HEAD = """\
// Written by tools/materials/generate.py from elements.csv and materials.csv there.

#include "matter/PublishedTables.h"

namespace matter {
namespace {

// clang-format off
"""
TAIL = """\
// clang-format on

} // namespace

Rows<Element> PublishedElements() {
  return {std::begin(kElements), std::end(kElements)};
}

Rows<PublishedMaterial> PublishedMaterials() {
  return {std::begin(kMaterials), std::end(kMaterials)};
}

} // namespace matter
"""
DENSITY_EFFECT = ("C", "x0", "x1", "a", "m", "delta0")


def rows(name):
    with open(HERE / name, encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file))


def element_line(row):
    return f'    {{{row["Z"]}, "{row["symbol"]}", "{row["name"]}", {row["A_g_mol"]}, {row["I_eV"]}}},'


def material_line(row, z_of):
    """Name, density, gas or not, I, radiation length, density effect, composition by Z."""
    gas = "true" if row["state"] == "gas" else "false"
    effect = ", ".join(row[key] for key in DENSITY_EFFECT)
    parts = (part.split(":") for part in row["composition_mass_fractions"].split())
    composition = ", ".join(f"{{{z_of[symbol]}, {fraction}}}" for symbol, fraction in parts)
    return (
        f'    {{"{row["name"]}", {row["density_g_cm3"]}, {gas}, {row["I_eV"]}, {row["X0_g_cm2"]},\n'
        f"     {{{effect}}},\n     {{{{{composition}}}}}}},"
    )


def source():
    elements, materials = rows("elements.csv"), rows("materials.csv")
    z_of = {row["symbol"]: row["Z"] for row in elements}
    lines = [
        "constexpr Element kElements[] = {",
        *(element_line(row) for row in elements),
        "};",
        "",
        "constexpr PublishedMaterial kMaterials[] = {",
        *(material_line(row, z_of) for row in materials),
        "};",
        "",
    ]
    return HEAD + "\n".join(lines) + TAIL


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("source", type=Path, help="C++ source to be written")
    parser.add_argument(
        "--check", action="store_true", help="compare only; exit status 1 on any difference"
    )
    arguments = parser.parse_args()
    if not arguments.check:
        arguments.source.write_text(source(), encoding="utf-8")
        return 0
    if arguments.source.read_text(encoding="utf-8") == source():
        return 0
    print(f"{arguments.source}: differs from the tables; write it without --check")
    return 1


if __name__ == "__main__":
    sys.exit(main())
