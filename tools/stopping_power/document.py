#!/usr/bin/env python3
"""Write the pictures and tables of docs/stopping-power.md.

    cd tools/stopping_power
    python document.py --docs ../../docs

Needs numpy and matplotlib.
"""

import argparse
from pathlib import Path

from doc_tables import BEGIN, END, markdown
from literature import Literature
from marked import write_marked
from materials import MATERIALS
from plots import plot_material, plot_terms


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--docs", type=Path, required=True, help="folder of stopping-power.md")
    parser.add_argument("--format", choices=("svg", "png"), default="svg", help="of the pictures")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    literature = Literature()
    write_marked(arguments.docs / "stopping-power.md", markdown(MATERIALS, literature), BEGIN, END)
    pictures = arguments.docs / "img"
    pictures.mkdir(exist_ok=True)
    for index, material in enumerate(MATERIALS):
        path = pictures / f"stopping-power-{material.name.lower()}.{arguments.format}"
        plot_material(index, material, literature, path)
    plot_terms(MATERIALS, literature, pictures / f"stopping-power-terms.{arguments.format}")


if __name__ == "__main__":
    main()
