"""Runs one file of tests with pytest; without the modules it needs, says so and counts as skipped.

    run.py test_files.py MODULE...
"""

import importlib.util
import pathlib
import sys

SKIPPED = 77  # exit status, as told to CTest


def main() -> int:
    missing = [name for name in ["pytest", *sys.argv[2:]] if importlib.util.find_spec(name) is None]
    if missing:
        print(f"skipped: {sys.executable} has no {', '.join(missing)}; scripts/test installs them")
        return SKIPPED
    import pytest

    file = pathlib.Path(__file__).parent / sys.argv[1]
    return pytest.main(["-q", "-p", "no:cacheprovider", "-W", "ignore::UserWarning", str(file)])


# Processes that a test starts may read this file again.
if __name__ == "__main__":
    sys.exit(main())
