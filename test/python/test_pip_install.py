"""pip install . gives a package that works by itself: in a Python of its own, from elsewhere."""

import os
import pathlib
import shutil
import subprocess
import sys
import sysconfig

import kelvo
from conftest import BUILD, SOURCE

HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"

CODE = f"""
import kelvo, pandas
print(kelvo.__file__)
detector = kelvo.PlaneDetector({(SOURCE / "detectors/fine.toml").read_text()!r})
fits = kelvo.fit_tracks({HITS!r}, detector, limit=20, vectors=False)
hits = pandas.read_csv({HITS!r})
of_frame = kelvo.fit_tracks(hits, detector, limit=20, vectors=False)
assert of_frame.p.tolist() == fits.p.tolist()
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


def test_the_installed_package_fits_tracks(tmp_path, run):
    # Folders that stay from one run of the test to the next leave it little to compile.
    folder = BUILD / "wheel"
    python = make_python(folder / "python")
    launcher = {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache"} if shutil.which("ccache") else {}
    log = subprocess.run(
        [python, "-m", "pip", "install", "--no-index", "--no-deps", "--no-build-isolation"]
        + ["--config-settings", f"build-dir={folder}/build", SOURCE],
        env={**os.environ, **launcher},
        capture_output=True,
        text=True,
    )
    assert log.returncode == 0, log.stdout + log.stderr
    alone = {"PYTHONPATH": "", "LD_LIBRARY_PATH": "", "PYTHONWARNINGS": ""}
    file, momenta = run(python, "-c", CODE, env=alone, cwd=tmp_path).splitlines()
    assert folder / "python" in pathlib.Path(file).parents
    fits = kelvo.fit_tracks(HITS, f"{SOURCE}/detectors/fine.toml", limit=20, vectors=False)
    assert eval(momenta) == fits.p.tolist()
    libraries = pathlib.Path(file).parent / "lib"
    for library in libraries.glob("*.so"):
        needed = subprocess.check_output(["readelf", "-d", library], text=True)
        assert "[$ORIGIN:$ORIGIN/../../ROOT/lib]" in needed, library
