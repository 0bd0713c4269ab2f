"""Who checks types is told of wrong options, and what calls give."""

import inspect
import os
import subprocess
import sys

import kelvo
from conftest import SOURCE
from kelvo.options import FitOptions
from kelvo.tracks import TableOptions

# The lines with a mark are wrong.
CLIENT = """
import numpy as np
from numpy.typing import NDArray
from typing_extensions import assert_type
import kelvo

z: NDArray[np.float64] = np.zeros(3)
fit = kelvo.KinkSmoother(3, 1)
assert_type(fit.X(1.0), float)
assert_type(fit.X(z), NDArray[np.float64])
assert_type(fit.Kink(0), float)
assert_type(fit.Kink(), NDArray[np.float64])
assert_type(fit.Residual().pull, NDArray[np.float64])
assert_type(kelvo.dEdxTable("PVC")(0.5, 0.1), float)
view = np.zeros(3, np.int64)
best = kelvo.TrackFitter("fine").Fit(kelvo.HitList3D(view, z, z, z)).best
if best is not None:
    assert_type(best.p, float)
best.p  # wrong
kelvo.TrackFitOptions(end="somewhere")  # wrong
kelvo.fit_tracks("hits.csv", "fine", unit="inch")  # wrong
kelvo.fit_tracks("hits.csv", "fine", scattering="a")  # wrong
kelvo.fit_tracks("hits.csv", "fine", hypotheses="mu", unit="mm", key=("event", "track"))
assert_type(kelvo.summary(kelvo.fit_tracks(["a.csv"], "fine")).by_status, tuple[int, ...])
kelvo.simulate("fine", tracks=3, seed=1, particle="e")  # wrong
assert_type(kelvo.__version__, str)
"""


def mypy(*words):
    command = [sys.executable, "-m", "mypy", "--strict", "--python-version", "3.10", *words]
    environment = {**os.environ, "MYPYPATH": str(SOURCE / "python")}
    return subprocess.run(command, env=environment, capture_output=True, text=True)


def test_the_package_has_the_types_that_it_says(tmp_path):
    checked = mypy("--cache-dir", tmp_path, SOURCE / "python/kelvo")
    assert checked.returncode == 0, checked.stdout + checked.stderr


def test_wrong_options_are_found_before_anything_runs(tmp_path):
    (tmp_path / "client.py").write_text(CLIENT)
    checked = mypy("--cache-dir", tmp_path / "cache", tmp_path / "client.py")
    found = {int(line.split(":")[1]) for line in checked.stdout.splitlines() if ": error: " in line}
    wrong = {n for n, line in enumerate(CLIENT.splitlines(), 1) if line.endswith("# wrong")}
    assert found == wrong, checked.stdout + checked.stderr


def test_the_lists_of_keywords_are_those_of_the_functions():
    for name, kind in kelvo.TrackFitOptions.__annotations__.items():
        assert FitOptions.__annotations__[name].__forward_arg__ == kind, name
    assert list(FitOptions.__annotations__) == list(kelvo.TrackFitOptions.__annotations__)
    keywords = [
        p.name
        for p in inspect.signature(kelvo.fit_tracks).parameters.values()
        if p.kind is p.KEYWORD_ONLY and p.name != "output"
    ]
    assert set(TableOptions.__annotations__) == set(keywords)
