"""The command from Python: fits in memory written, reported and drawn; tracks simulated; materials."""

import os
import subprocess
import sys
import xml.etree.ElementTree

import awkward as ak
import numpy as np
import pandas as pd
import pytest
import uproot

import kelvo
from conftest import BUILD, SOURCE

HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"
DETECTOR = f"{SOURCE}/detectors/fine.toml"


@pytest.fixture(scope="module")
def fits():
    return kelvo.fit_tracks(HITS, DETECTOR, limit=20)


@pytest.fixture(scope="module")
def file(tmp_path_factory):
    name = tmp_path_factory.mktemp("fits") / "fits.root"
    options = ["-d", DETECTOR, "--limit", "20", "-o", name]
    subprocess.run(
        [BUILD / "bin/kelvo", "fit", HITS, *options], check=True, stdout=subprocess.DEVNULL
    )
    return name


def columns(file):
    table = uproot.open(file)["fits"].arrays()
    return {name: (str(table[name].type), table[name].to_list()) for name in table.fields}


@pytest.mark.parametrize("form", ["pandas", "awkward", "Parquet"])
def test_fits_of_every_form_make_the_file_of_the_command(form, fits, file, tmp_path):
    table = fits
    if form == "awkward":
        table = kelvo.fit_tracks(HITS, DETECTOR, limit=20, output="awkward")
    if form == "Parquet":
        fits.to_parquet(tmp_path / "fits.parquet")
        table = pd.read_parquet(tmp_path / "fits.parquet", dtype_backend="pyarrow")
    kelvo.write_fits(table, tmp_path / "fits.root")
    assert repr(columns(tmp_path / "fits.root")) == repr(columns(file))  # NaN is as NaN


def test_parts_of_a_table_make_files_of_these(fits, tmp_path):
    muons = fits[fits.pdg == 13]
    kelvo.write_fits(muons, tmp_path / "muons.root")
    assert columns(tmp_path / "muons.root")["p"][1] == muons.p.tolist()
    kelvo.write_fits(fits[:0], tmp_path / "none.root")
    assert columns(tmp_path / "none.root")["p"][1] == []
    numbers = kelvo.fit_tracks(HITS, DETECTOR, limit=20, vectors=False)
    kelvo.write_fits(numbers, tmp_path / "numbers.root")
    assert "residual" not in columns(tmp_path / "numbers.root")


def test_the_track_at_other_places_comes_into_the_file(tmp_path):
    options = {"limit": 5, "at": [3, 100.0], "exclude": 3}
    fits = kelvo.fit_tracks(HITS, DETECTOR, **options)
    kelvo.write_fits(fits, tmp_path / "fits.root")
    words = ["--limit", "5", "--at", "3", "z=100", "--exclude", "3", "-o", tmp_path / "command.root"]
    command = [BUILD / "bin/kelvo", "fit", HITS, "-d", DETECTOR, *words]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    made = columns(tmp_path / "fits.root")
    assert "at_sig_x_unbiased" in made
    assert repr(made) == repr(columns(tmp_path / "command.root"))


def test_texts_and_failed_fits_come_into_the_file(tmp_path):
    hits = pd.read_csv(HITS, nrows=300)
    hits.loc[0, "sigu"] = -1
    with pytest.warns(kelvo.FitWarning):
        fits = kelvo.fit_tracks(hits, DETECTOR)
    kelvo.write_fits(fits, tmp_path / "fits.root")
    assert columns(tmp_path / "fits.root")["message"][1] == fits.message.tolist()
    assert fits.message[0] != ""


def test_a_report_tells_what_the_table_and_the_file_have(fits, file, tmp_path):
    kelvo.report(fits, tmp_path / "table.html")
    kelvo.report(file, tmp_path / "file.html")
    for page in ("table.html", "file.html"):
        text = (tmp_path / page).read_text(encoding="utf-8")
        assert "<h1>Fit report: fine</h1>" in text and f"kelvo {kelvo.__version__}" in text
        assert text.count("<svg") > 10


def test_a_report_compares_with_the_truth(file, tmp_path):
    hits, truth = kelvo.simulate(DETECTOR, tracks=60, seed=1, kinetic_energy=(0.3, 1.6))
    kelvo.report(kelvo.fit_tracks(hits, DETECTOR), tmp_path / "table.html", truth=truth, worst=3)
    text = (tmp_path / "table.html").read_text(encoding="utf-8")
    assert "60 of 60 true tracks in " in text
    assert text.count('<a href="#track-') == 3
    kelvo.report(file, tmp_path / "file.html", truth=f"{SOURCE}/examples/data/fine_mu_truth.csv.gz")
    assert " of 3000 true tracks in " in (tmp_path / "file.html").read_text(encoding="utf-8")
    with pytest.raises(kelvo.Error, match="truth.csv, line 1: has no column x0"):
        kelvo.report(file, tmp_path / "bad.html", truth=truth.drop(columns="x0"))


def test_a_picture_of_a_track_is_that_of_the_command(fits, file, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    command = [
        BUILD / "bin/kelvo",
        "display",
        file,
        "--track",
        "7",
        "--hypothesis",
        "p",
        "-o",
        "7.svg",
    ]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    expected = (tmp_path / "7.svg").read_text(encoding="utf-8")
    for given in (fits, file):
        picture = kelvo.display(given, 7, hypothesis="p", output="again.svg")
        assert picture._repr_svg_() == expected
        assert (tmp_path / "again.svg").read_text(encoding="utf-8") == expected
    assert xml.etree.ElementTree.fromstring(expected.encode()).tag.endswith("svg")


def test_simulated_tracks_are_those_of_the_command(tmp_path):
    options = {"tracks": 5, "seed": 3, "kinetic_energy": (0.3, 1.6), "hits": "gauss", "sigma": 0.2}
    words = "--particle mu --tracks 5 --seed 3 --kinetic-energy 0.3..1.6 --hits gauss --sigma 0.2"
    command = [BUILD / "bin/kelvo", "simulate", "-d", DETECTOR, *words.split(), "-o", "hits.csv"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, cwd=tmp_path)
    for detector in (DETECTOR, "fine", kelvo.PlaneDetector.FromFile(DETECTOR)):
        simulated = kelvo.simulate(detector, **options)
        pd.testing.assert_frame_equal(simulated.hits, pd.read_csv(tmp_path / "hits.csv"))
        pd.testing.assert_frame_equal(simulated.truth, pd.read_csv(tmp_path / "hits.truth.csv"))
    fits = kelvo.fit_tracks(simulated.hits, DETECTOR, hypotheses="mu")
    truth = simulated.truth[["px", "py", "pz"]].pow(2).sum(axis=1).pow(0.5)
    np.testing.assert_allclose(fits.p, truth, rtol=0.2)


def test_energy_loss_has_its_minimum_where_it_is_marked():
    loss = kelvo.dedx("PVC", "p")
    assert loss.dedx.idxmin() == loss.index[loss["min"]].item()
    at = loss["min"].idxmax()
    # Momentum and velocity of a proton; the loss is that of the class.
    assert loss.beta_gamma[at] == pytest.approx(loss.p[at] / 0.938272, rel=1e-5)
    table = kelvo.dEdxTable("PVC")
    assert loss.dedx[at] == pytest.approx(1e3 * table(float(loss["T"][at]), 0.938272), rel=1e-4)


def test_materials_are_those_of_the_command(run):
    materials = kelvo.materials()
    printed = run(BUILD / "bin/kelvo", "materials").splitlines()
    assert len(materials) == len(printed) - 2
    assert printed[2].split()[0] == materials.index[0] == "Scintillator"
    assert materials.loc["Lead" if "Lead" in materials.index else "Pb"].radlen == pytest.approx(
        6.37, 1e-3
    )


def test_the_module_is_the_command(run):
    run_module = [sys.executable, "-m", "kelvo"]
    assert run(*run_module, "--version") == f"kelvo {kelvo.__version__}\n"
    assert run(*run_module, "fit", "--help") == run(BUILD / "bin/kelvo", "fit", "--help")
    wrong = subprocess.run([*run_module, "fly"], capture_output=True, text=True)
    assert wrong.returncode == 2 and wrong.stderr.startswith('kelvo: "fly" is not a command')


MISTAKES = [
    (lambda f: kelvo.display(f, 999), "fits has no track 999"),
    (lambda f: kelvo.display(f, 7, hypothesis="e"),
     "hypothesis 'e' is none of mu, pi, p, mu-, mu+, pi+, pi-, p~"),
    (lambda f: kelvo.display(f, 1.5), "track is 1.5; it must be a whole number from "
     "-9223372036854775808 to 9223372036854775807"),
    (lambda f: kelvo.display(3, 7), "fits is a int; it must be the name of a file of fits, or a table "
     "that kelvo.fit_tracks has made"),
    (lambda f: kelvo.report([], "a.html"), "fits is a list; it must be the name of a file of fits, or a "
     "table that kelvo.fit_tracks has made"),
    (lambda f: kelvo.report(f.drop(columns="p"), "a.html"),
     'fits has no column "p"; it must have those that kelvo.fit_tracks gives'),
    (lambda f: kelvo.report(pd.DataFrame(f).pipe(without_attrs), "a.html"),
     "fits does not tell its detector; kelvo.fit_tracks keeps it in fits.attrs, which some functions "
     "of pandas drop"),
    (lambda f: kelvo.write_fits(f, None), "file is None; it must be the name of a file"),
    (lambda f: kelvo.simulate("fine", tracks=1, seed=1),
     "give either kinetic_energy, of particles that stop, or beam_momentum"),
    (lambda f: kelvo.simulate("fine", tracks=-1, seed=1, kinetic_energy=1.0),
     'tracks: "-1" is not a whole number from 1 to 1000000000000'),
    (lambda f: kelvo.simulate("fine", tracks=1, seed=1, kinetic_energy=[1]),
     "kinetic_energy is [1]; it must be a number, a text, or two numbers (MIN, MAX)"),
    (lambda f: kelvo.simulate("fine", tracks=1, seed=1, particle="e", kinetic_energy=1.0),
     "hypothesis 'e' is none of mu, pi, p, mu-, mu+, pi+, pi-, p~"),
    (lambda f: kelvo.dedx(3), "material is 3; it must be a text"),
]  # fmt: skip


def without_attrs(frame):
    frame = frame.copy()
    frame.attrs.clear()
    return frame


@pytest.mark.parametrize("mistake, sentence", MISTAKES, ids=[m[1][:30] for m in MISTAKES])
def test_mistakes_are_told_in_one_sentence(mistake, sentence, fits, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with pytest.raises(kelvo.Error) as told:
        mistake(fits)
    assert str(told.value) == sentence
    assert os.listdir(tmp_path) == []


def test_a_file_that_cannot_be_written_is_told(fits):
    for write in (kelvo.write_fits, kelvo.report):
        with pytest.raises(kelvo.Error, match="^/nowhere/x.html: cannot be written: No such file"):
            write(fits, "/nowhere/x.html")
