#!/usr/bin/env python3
"""Write the muon stopping-power tables into func/dEdxTable.cxx, or check them there.

    cd tools/stopping_power
    python generate.py --source ../../func/dEdxTable.cxx
    python generate.py --source ../../func/dEdxTable.cxx --check

Without --source the block of C++ is printed. Needs numpy; docs/stopping-power.md
has the method.
"""

import argparse
import difflib
import sys
from pathlib import Path

from literature import Literature
from marked import split_marked, write_marked
from materials import MATERIALS
from source_block import BEGIN, END, cxx_block


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--source", type=Path, help="C++ source with the two marker comments")
    parser.add_argument(
        "--check", action="store_true", help="compare only; exit status 1 on any difference"
    )
    arguments = parser.parse_args()
    if arguments.check and arguments.source is None:
        parser.error("--check needs --source")
    return arguments


def differences(old, new):
    """Lines that differ, as a unified diff without context."""
    names = ("in the source", "computed")
    return list(difflib.unified_diff(old.splitlines(), new.splitlines(), *names, "", "", 0, ""))


def check(source, block):
    """Exit status: 0 where the source holds exactly this block, else 1 with the differences."""
    _, old, _ = split_marked(source, BEGIN, END)
    if old == block:
        return 0
    print("\n".join(differences(old, block)))
    print(f"{source}: tables differ from the calculation; write them without --check")
    return 1


def run(arguments):
    """Exit status of the command."""
    block = cxx_block(MATERIALS, Literature())
    if arguments.source is None:
        print(block, end="")
        return 0
    if arguments.check:
        return check(arguments.source, block)
    write_marked(arguments.source, block, BEGIN, END)
    return 0


def main():
    arguments = parse_arguments()
    try:
        return run(arguments)
    except OSError as error:
        print(f"{error.filename}: {error.strerror}", file=sys.stderr)
    except ValueError as error:
        print(error, file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
