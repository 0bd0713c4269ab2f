"""The page on Python says what happens, and the example with plots runs."""

import doctest
import re
import sys

import awkward as ak
import numpy as np
import pandas as pd
import pytest
import uproot
from matplotlib.image import imread

from conftest import SOURCE


@pytest.fixture
def top(tmp_path, monkeypatch):
    """A folder with what the top folder has that users read."""
    for name in ("detectors", "examples"):
        (tmp_path / name).symlink_to(SOURCE / name)
    monkeypatch.chdir(tmp_path)
    return tmp_path


def write_hits(file):
    hits = pd.read_csv("examples/data/fine_mu_hits_smeared.csv.gz", nrows=20000)
    groups = [group for _, group in list(hits.groupby("track"))[:200]]
    columns = {name: ak.Array([g[name].to_numpy() for g in groups]) for name in ("u", "z", "sigu")}
    columns["view"] = ak.Array([(g["view"] == "Y").to_numpy().astype(np.int32) for g in groups])
    with uproot.recreate(file) as out:
        out["hits"] = columns


def test_every_line_of_the_page_prints_what_it_says(top):
    write_hits("hits.root")
    done = doctest.testfile(str(SOURCE / "docs/python.md"), module_relative=False)
    assert done.attempted > 20 and done.failed == 0


def test_the_example_draws_its_plots(top, run):
    printed = run(sys.executable, SOURCE / "examples/06-python.py", cwd=top)
    assert printed.startswith("3000 of 3000 tracks are fitted, with 196994 hits\n")
    median = float(re.search(r"median ([\d.]+)", printed).group(1))
    assert abs(median - 1) < 0.01
    picture = imread(top / "python-fits.png")
    assert picture.shape[:2] == (825, 1210)
    # All four quarters have ink.
    for part in (picture[:412, :605], picture[:412, 605:], picture[412:, :605], picture[412:, 605:]):
        assert (part[..., :3].min(axis=2) < 0.5).mean() > 0.005


def imported(text):
    return set(re.findall(r"^(?:>>> )?import (\w+)", text, re.MULTILINE))


def test_pip_install_all_brings_what_pages_and_examples_import():
    tomllib = pytest.importorskip("tomllib")
    project = tomllib.loads((SOURCE / "pyproject.toml").read_text())["project"]
    wanted = project["dependencies"] + project["optional-dependencies"]["all"]
    brought = {re.match(r"\w+", package)[0] for package in wanted} | {"kelvo", *sys.stdlib_module_names}
    pages = [SOURCE / "docs/python.md", SOURCE / "docs/recipes.md", *SOURCE.glob("examples/*.py")]
    for page in pages:
        missing = imported(page.read_text(encoding="utf-8")) - brought
        assert missing <= ({"polars"} if page.name == "recipes.md" else set()), page  # of the user's own
