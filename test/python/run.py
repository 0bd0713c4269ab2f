"""Runs one file of tests with pytest; without the modules it needs, says so and counts as skipped.

    run.py test_files.py MODULE...
"""

import importlib.util
import pathlib
import sys

SKIPPED = 77  # exit status, as told to CTest

missing = [name for name in ["pytest", *sys.argv[2:]] if importlib.util.find_spec(name) is None]
if missing:
    print(f"skipped: {sys.executable} has no {', '.join(missing)}; scripts/test installs them")
    sys.exit(SKIPPED)

import pytest  # noqa: E402

file = pathlib.Path(__file__).parent / sys.argv[1]
sys.exit(pytest.main(["-q", "-p", "no:cacheprovider", "-W", "ignore::UserWarning", str(file)]))
