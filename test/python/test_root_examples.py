"""The numbered examples for ROOT users, run as they say: a macro and a program with a data frame."""

import os
import re
import subprocess

import numpy as np
import pytest
import uproot

TRACKS = 300


@pytest.fixture
def folder(tmp_path, source):
    """A folder that looks like the top folder, where the examples' files are."""
    for name in ("detectors", "examples"):
        (tmp_path / name).symlink_to(source / name)
    return tmp_path


def output_of(folder, build, *command):
    environment = {**os.environ, "LD_LIBRARY_PATH": str(build / "lib"), "ROOT_INCLUDE_PATH": ""}
    result = subprocess.run(
        [str(word) for word in command], cwd=folder, env=environment, capture_output=True, text=True
    )
    assert result.returncode == 0, result.stdout + result.stderr
    assert "Error" not in result.stderr, result.stderr
    return result.stdout


def assert_is_picture(file):
    picture = file.read_bytes()
    assert picture[:8] == b"\x89PNG\r\n\x1a\n"
    assert len(picture) > 5000  # an empty one has less


def test_macro_fits_a_file_of_hits_and_draws(folder, build, root):
    output = output_of(folder, build, root, "-l", "-b", "-q", "examples/04-fit-in-root.C")
    words = re.search(r"(\d+) tracks are fitted; .* width of the pulls ([\d.]+)", output)
    assert int(words[1]) == 3000
    assert abs(float(words[2]) - 1) < 0.03
    assert_is_picture(folder / "fit-in-root.png")


def simulate(folder, build):
    options = "--particle mu --kinetic-energy 0.3..1.6 --hits gauss --seed 1 -o hits.root".split()
    output_of(folder, build, build / "bin/kelvo", "simulate", "--detector", "detectors/fine.toml",
              "--tracks", TRACKS, *options)


MACRO = """R__LOAD_LIBRARY(libkelvo_frame)
int frame() {
  auto planes = std::make_shared<geo::PlaneDetector>(
      geo::PlaneDetector::FromFile("detectors/fine.toml"));
  ROOT::RDataFrame tracks("hits", "hits.root");
  kelvo::TrackFitOptions options;
  options.fEnd = kelvo::TrackEndMode::kStops;
  auto fits = kelvo::DefineFit(tracks, planes, options);
  // As far as a muon comes a pion with more momentum only.
  auto more = fits.Filter("All(fit_each_p[fit_each_pdg == 211] > fit_each_p[fit_each_pdg == 13])")
                  .Count();
  auto best = fits.Filter("fit_status == 0").Histo1D("fit_p");
  std::cout << best->GetEntries() << " tracks, " << *more << " of them" << std::endl;
  return 0;
}
"""


def test_macro_fits_a_data_frame(folder, build, root):
    simulate(folder, build)
    (folder / "frame.C").write_text(MACRO)
    output = output_of(folder, build, root, "-l", "-b", "-q", "frame.C")
    assert f"{TRACKS} tracks, {TRACKS} of them\n" in output


def test_program_fits_a_data_frame_draws_and_stores(folder, build):
    simulate(folder, build)
    output = output_of(folder, build, build / "bin/05-fit-in-data-frame", "hits.root",
                       "detectors/fine.toml", "fits")
    words = re.search(r"(\d+) of (\d+) tracks are fitted; .* ([\d.]+)", output)
    assert int(words[1]) == int(words[2]) == TRACKS
    assert abs(float(words[3]) - 1) < 0.005
    assert_is_picture(folder / "fits.png")
    fits = uproot.open(folder / "fits.root")["fits"].arrays()
    assert sorted(fits["track"].to_list()) == list(range(TRACKS))
    assert np.all(np.asarray(fits["fit_p"]) > 0)
    assert abs(np.median(fits["ratio"]) - 1) < 0.005
