"""pip install . gives a package that works by itself: in a Python of its own, from elsewhere."""

import os
import pathlib
import shutil
import subprocess
import sys
import sysconfig

import pandas
import pytest

import kelvo
from conftest import BUILD, SOURCE

HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"

CODE = f"""
import importlib.metadata, kelvo, pandas
print(kelvo.__file__)
detector = kelvo.PlaneDetector({(SOURCE / "detectors/fine.toml").read_text()!r})
fits = kelvo.fit_tracks({HITS!r}, detector, limit=20, vectors=False)
hits = pandas.read_csv({HITS!r})
of_frame = kelvo.fit_tracks(hits, detector, limit=20, vectors=False)
assert of_frame.p.tolist() == fits.p.tolist()
simulated = kelvo.simulate("fine", tracks=2, seed=1, kinetic_energy=1.0)
assert kelvo.fit_tracks(simulated.hits, "fine").track.nunique() == 2
assert kelvo.__version__ == importlib.metadata.version("kelvo")
print(fits.p.tolist())
"""


def make_python(folder):
    """A virtual environment with links to all packages of the one of the tests."""
    subprocess.run([sys.executable, "-m", "venv", "--clear", folder], check=True)
    python = folder / "bin/python"
    where = "import sysconfig; print(sysconfig.get_path('purelib'))"
    packages = pathlib.Path(subprocess.check_output([python, "-c", where], text=True).strip())
    for package in pathlib.Path(sysconfig.get_path("purelib")).iterdir():
        if not (packages / package.name).exists():
            (packages / package.name).symlink_to(package)
    return python


@pytest.fixture(scope="module")
def wheel():
    """The wheel of the checkout, and a Python that has it."""
    # Folders that stay from one run of the test to the next leave it little to compile.
    folder = BUILD / "wheel"
    python = make_python(folder / "python")
    launcher = {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache"} if shutil.which("ccache") else {}
    shutil.rmtree(folder / "dist", ignore_errors=True)
    pip(
        python,
        ["wheel", "--no-index", "--no-deps", "--no-build-isolation", "--wheel-dir", folder / "dist"]
        + ["--config-settings", f"build-dir={folder}/build", SOURCE],
        launcher,
    )
    (file,) = (folder / "dist").glob("*.whl")
    pip(python, ["install", "--no-index", "--no-deps", file])
    return file, python


def pip(python, words, environment=None):
    log = subprocess.run(
        [python, "-m", "pip", *words],
        env={**os.environ, **(environment or {})},
        capture_output=True,
        text=True,
    )
    assert log.returncode == 0, log.stdout + log.stderr
    return log.stdout


# What a new shell has.
ALONE = {"PYTHONPATH": "", "LD_LIBRARY_PATH": "", "PYTHONWARNINGS": "ignore::UserWarning"}


def expected():
    return kelvo.fit_tracks(HITS, f"{SOURCE}/detectors/fine.toml", limit=20, vectors=False).p.tolist()


def test_the_installed_package_fits_tracks(wheel, tmp_path, run):
    file, momenta = run(wheel[1], "-c", CODE, env=ALONE, cwd=tmp_path).splitlines()
    assert BUILD / "wheel/python" in pathlib.Path(file).parents
    assert eval(momenta) == expected()
    libraries = pathlib.Path(file).parent / "lib"
    for library in libraries.glob("*.so"):
        needed = subprocess.check_output(["readelf", "-d", library], text=True)
        assert "[$ORIGIN:$ORIGIN/../lib:$ORIGIN/../../ROOT/lib]" in needed, library


def test_the_installed_command_fits_and_draws(wheel, tmp_path, run):
    kelvo_command = wheel[1].parent / "kelvo"
    outputs = ["-o", "fits.root", "--report", "fits.html", "--csv", "fits.csv"]
    run(kelvo_command, "fit", HITS, "-d", "fine", "--limit", 20, *outputs, env=ALONE, cwd=tmp_path)
    display = ["display", "fits.root", "--track", 3, "-o", "track.svg"]
    run(wheel[1], "-m", "kelvo", *display, env=ALONE, cwd=tmp_path)
    assert pandas.read_csv(tmp_path / "fits.csv").p.tolist() == pytest.approx(expected(), nan_ok=True)
    assert (tmp_path / "fits.html").stat().st_size > 10_000
    assert (tmp_path / "track.svg").read_text().startswith("<?xml")


def test_the_package_works_where_root_is_elsewhere(wheel, tmp_path, run):
    place = tmp_path / "place"
    pip(wheel[1], ["install", "--no-index", "--no-deps", "--target", place, wheel[0]])
    pip(wheel[1], ["uninstall", "--yes", "kelvo"])
    alone = {**ALONE, "PYTHONPATH": str(place)}
    file, momenta = run(wheel[1], "-c", CODE, env=alone, cwd=tmp_path).splitlines()
    assert place in pathlib.Path(file).parents
    assert eval(momenta) == expected()
    assert run(place / "bin/kelvo", "--version", env=alone, cwd=tmp_path).startswith("kelvo ")
    assert "X0" in run(wheel[1], "-m", "kelvo", "detector", "fine", env=alone, cwd=tmp_path)
    pip(wheel[1], ["install", "--no-index", "--no-deps", wheel[0]])


def test_a_folder_with_headers_of_the_same_names_is_not_looked_into(wheel, tmp_path, run):
    for name in ("func/HitList3D.h", "geo/Detector.h", "track/TrackFit.h", "track/TrackFitter.h"):
        (tmp_path / name).parent.mkdir(exist_ok=True)
        (tmp_path / name).write_text("#error another one's\n")
    for folder in (tmp_path, SOURCE):
        momenta = run(wheel[1], "-c", CODE, env=ALONE, cwd=folder).splitlines()[1]
        assert eval(momenta) == expected()


def test_nothing_is_left_behind_when_it_is_uninstalled(wheel, tmp_path, run):
    packages = run(wheel[1], "-c", "import sysconfig; print(sysconfig.get_path('purelib'))").strip()
    pip(wheel[1], ["uninstall", "--yes", "kelvo"])
    left = [str(file) for file in pathlib.Path(packages).glob("kelvo*")]
    assert left == []
    assert not (wheel[1].parent / "kelvo").exists()
    pip(wheel[1], ["install", "--no-index", "--no-deps", wheel[0]])
