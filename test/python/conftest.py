"""What the tests share: the folders, the shared data, and programs run as a user runs them."""

import os
import pathlib
import subprocess
import sys

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELVO_BUILD_DIR", SOURCE / "build/release"))


@pytest.fixture(scope="session")
def source():
    return SOURCE


@pytest.fixture(scope="session")
def build():
    return BUILD


@pytest.fixture(scope="session")
def installed(tmp_path_factory):
    """An install tree of its own, which knows nothing of where it was built."""
    prefix = tmp_path_factory.mktemp("installed")
    subprocess.run(
        ["cmake", "--install", BUILD, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL
    )
    return prefix


@pytest.fixture(scope="session")
def data():
    """The folder of simulated tracks with known truth."""
    shared = pathlib.Path(os.environ.get("KELVO_SHARED_DATA", SOURCE.parent / "shared"))
    if not (shared / "data/geant4").is_dir():
        pytest.skip(f"no simulated tracks in {shared}; set KELVO_SHARED_DATA to their folder")
    return shared / "data/geant4"


@pytest.fixture(scope="session")
def run():
    """Runs a program, which must end well and with nothing on the standard error stream."""

    def run_it(*command, env=None, cwd=None):
        result = subprocess.run(
            [str(word) for word in command],
            env={**os.environ, "PYTHONWARNINGS": "ignore::UserWarning", **(env or {})},
            cwd=cwd,
            capture_output=True,
            text=True,
        )
        assert result.returncode == 0, result.stdout + result.stderr
        assert result.stderr == ""
        return result.stdout

    return run_it


@pytest.fixture(scope="session")
def root():
    """The program root that belongs to this Python or lies on the path."""
    beside = pathlib.Path(sys.executable).parent / "root"
    return beside if beside.exists() else "root"
