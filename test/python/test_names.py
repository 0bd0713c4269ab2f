"""Names that a file system takes as they are and ROOT does not: files are found under them, and all
others in the folder stay as they were."""

import os
import shutil

import pytest

import kelvo
from conftest import SOURCE

STEMS = ["hits#1", "a?b", "a|b", "$HOME", " lead", "~", "file:x", "http:;x", "a b*[1]", "quote'\"\\",
         "line\nend", os.fsdecode(b"not-utf8-\xff")]  # fmt: skip


def contents(folder):
    return {name: (folder / name).read_bytes() for name in os.listdir(folder)}


@pytest.fixture(scope="module")
def simulated(build, run, tmp_path_factory):
    folder = tmp_path_factory.mktemp("simulated")
    for end in (".csv", ".csv.gz", ".root"):
        run(
            build / "bin/kelvo", "simulate", "-d", SOURCE / "detectors/fine.toml", "-o", f"hits{end}",
            "--particle", "mu", "--kinetic-energy", "0.5..1", "--tracks", "3", "--seed", "1",
            cwd=folder,
        )  # fmt: skip
    return folder


@pytest.mark.parametrize("stem", STEMS)
def test_files_of_hits_and_detectors_are_read_under_their_names(
    simulated, tmp_path, monkeypatch, stem
):
    expected = kelvo.fit_tracks(str(simulated / "hits.csv"), f"{SOURCE}/detectors/fine.toml")
    monkeypatch.chdir(tmp_path)
    shutil.copy(SOURCE / "detectors/fine.toml", stem + ".toml")
    for decoy in ("hits", "a", "lead.root", "x.root"):
        (tmp_path / decoy).write_text("kept")
    for end in (".csv", ".csv.gz", ".root"):
        shutil.copy(simulated / f"hits{end}", stem + end)
    before = contents(tmp_path)
    detector = kelvo.PlaneDetector.FromFile(stem + ".toml")
    for end in (".csv", ".csv.gz", ".root"):
        for given in (detector, stem + ".toml"):
            fits = kelvo.fit_tracks(stem + end, given)
            assert fits.p.tolist() == expected.p.tolist()
    assert contents(tmp_path) == before


def test_a_message_tells_a_name_as_it_stands(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for name in ("a#b.root", os.fsdecode(b"\xff.csv")):
        with pytest.raises(kelvo.Error) as told:
            kelvo.fit_tracks(name, f"{SOURCE}/detectors/fine.toml")
        assert str(told.value) == f"{name}: cannot be opened: No such file or directory"
