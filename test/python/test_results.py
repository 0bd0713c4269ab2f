"""What fit_tracks gives can be kept, read again, added up and written into files."""

import dataclasses
import json
import math
import pickle
import sys
import xml.etree.ElementTree

import numpy as np
import pandas as pd
import pytest
import uproot

import kelvo
from conftest import SOURCE

HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"
DETECTOR = f"{SOURCE}/detectors/fine.toml"


@pytest.fixture(scope="module")
def fits():
    return kelvo.fit_tracks(HITS, DETECTOR, limit=20)


def test_what_is_told_beside_the_fits_is_plain_data(fits):
    assert json.loads(json.dumps(fits.attrs)) == fits.attrs
    told, given = fits.attrs["options"], dataclasses.asdict(kelvo.TrackFitOptions())
    lists = {"hypotheses": [13, 211, 2212], "fractions": [], "at": [], "exclude": []}
    assert told == {**given, **lists}
    assert fits.attrs["version"] == kelvo.__version__
    assert kelvo.PlaneDetector(fits.attrs["detector"]).Name() == "fine"


def test_fits_go_into_a_parquet_file_and_come_back(fits, tmp_path):
    fits.to_parquet(tmp_path / "fits.parquet")
    again = pd.read_parquet(tmp_path / "fits.parquet", dtype_backend="pyarrow")
    assert kelvo.summary(again) == kelvo.summary(fits)
    assert again["p"].to_numpy().tobytes() == fits["p"].to_numpy().tobytes()
    assert again["residual"].list.flatten().to_list() == fits["residual"].list.flatten().to_list()


def test_summaries_of_several_runs_are_added(fits):
    hits = pd.read_csv(HITS)
    first, last = hits[hits.track < 15], hits[hits.track.between(15, 39)]
    parts = [kelvo.summary(kelvo.fit_tracks(part, DETECTOR)) for part in (first, last)]
    both = kelvo.summary(kelvo.fit_tracks(pd.concat([first, last]), DETECTOR))
    total = sum(parts)
    for name in ("tracks", "hits", "fitted", "left", "by_status", "problem_count", "doubts"):
        assert getattr(total, name) == getattr(both, name), name
    for mine, expected in zip(total.hypotheses, both.hypotheses):
        assert (mine.pdg, mine.fitted, mine.best) == (expected.pdg, expected.fitted, expected.best)
        assert math.isnan(mine.median_chi2_per_ndf)  # of both is not known from those of each
    with pytest.raises(TypeError):
        parts[0] + 3
    for other in (None, 3, pd.DataFrame(), fits.attrs):
        with pytest.raises(kelvo.Error, match="^fits has no summary; it must be a table that"):
            kelvo.summary(other)


def test_a_package_that_is_missing_is_asked_for_before_the_fit(run):
    """The hits do not exist, which is found later."""
    code = """
import sys, kelvo
for name, output in (("pandas", "pandas"), ("pyarrow", "pandas"), ("awkward", "awkward")):
    sys.modules[name] = None
    try: kelvo.fit_tracks("nowhere.csv", "nowhere.toml", output=output)
    except kelvo.Error as error: print(error)
    del sys.modules[name]
sys.modules["tqdm.auto"] = None
try: kelvo.fit_tracks("nowhere.csv", "nowhere.toml", progress=True)
except kelvo.Error as error: print(error)
"""
    printed = run(sys.executable, "-c", code)
    assert printed.splitlines() == [
        f'{what} needs {package}, which is not installed: pip install {package}'
        for what, package in (
            ('output="pandas"', "pandas"), ('output="pandas"', "pyarrow"), ('output="awkward"', "awkward"),
            ("progress=True", "tqdm"))
    ]  # fmt: skip


def test_a_bar_shows_the_progress(capsys):
    pytest.importorskip("tqdm")
    kelvo.fit_tracks(HITS, DETECTOR, limit=20, progress=True)
    assert "100%" in capsys.readouterr().err


def test_histograms_hold_all_residuals_and_pulls(fits):
    pytest.importorskip("hist")
    muons = fits[fits.pdg == 13]
    histograms = kelvo.histograms(muons, bins=50)
    view = muons.hit_view.list.flatten().to_numpy()
    for name in ("residual", "pull"):
        filled = getattr(histograms, name)
        values = muons[name].list.flatten().to_numpy()
        for number, letter in enumerate("xy"):
            mine = filled[letter, :]
            edges = mine.axes[0].edges
            expected, _ = np.histogram(values[view == number], edges)
            assert mine.values().tolist() == expected.tolist()
            assert mine.sum(flow=True) == (view == number).sum()
    assert histograms.residual.sum() > 0.99 * len(view)
    again = kelvo.fit_tracks(HITS, DETECTOR, limit=20, output="awkward")
    again = kelvo.histograms(again[again.pdg == 13], bins=50)
    assert again.pull == histograms.pull and again.residual == histograms.residual
    assert kelvo.histograms(fits[:0]).pull.sum() == 0
    for wrong in (fits.drop(columns="residual"), None, 3):
        with pytest.raises(kelvo.Error, match="fits has no residuals; it must be a table from"):
            kelvo.histograms(wrong)


def one_track():
    n = np.arange(20)
    hits = kelvo.HitList3D(n % 2, 50 + 0.1 * n, 3 + 6.05 * n, np.full(20, 0.3))
    return kelvo.TrackFitter(DETECTOR).Fit(hits)


def test_results_detectors_and_tables_show_themselves(fits):
    shown = {
        "fit": one_track(),
        "detector": kelvo.PlaneDetector.FromFile(DETECTOR),
        "table": kelvo.dEdxTable("Steel"),
        "summary": kelvo.summary(fits),
    }
    for name, thing in shown.items():
        page = f"<html>{thing._repr_html_()}</html>"
        root = xml.etree.ElementTree.fromstring(page)  # well formed
        assert ("{http://www.w3.org/2000/svg}svg" in {e.tag for e in root}) == (name in ("fit", "detector"))
    assert f">{kelvo.summary(fits).fitted}<" in shown["summary"]._repr_html_()


def test_a_single_track_is_drawn_as_in_a_table(tmp_path):
    hits = pd.read_csv(HITS)
    one = hits[hits.track == 7]
    view = (one["view"] == "Y").to_numpy(np.int64)
    track = kelvo.HitList3D(view, *(one[n].to_numpy() for n in ("u", "z", "sigu")))
    fit = pickle.loads(pickle.dumps(kelvo.TrackFitter(DETECTOR).Fit(track)))
    table = kelvo.fit_tracks(one.assign(track=0), DETECTOR)
    assert kelvo.display(fit).svg == kelvo.display(table, 0).svg
    kelvo.write_fits(fit, tmp_path / "one.root")
    kelvo.write_fits(table, tmp_path / "table.root")
    columns = [uproot.open(tmp_path / f"{n}.root")["fits"].arrays() for n in ("one", "table")]
    assert repr(columns[0].to_list()) == repr(columns[1].to_list())


def test_particles_go_by_the_names_of_the_package_particle(fits):
    particle = pytest.importorskip("particle").Particle
    expected = fits[fits.pdg == 13].p.tolist()
    for name in ("mu", "mu-", 13, particle.from_name("mu-"), particle.from_name("mu-").pdgid):
        found = kelvo.fit_tracks(HITS, DETECTOR, limit=20, hypotheses=name)
        assert found.p.tolist() == expected
    options = kelvo.TrackFitOptions(hypotheses=("mu+", "pi-", "p~", "pi+", "p"))
    codes = [particle.from_name(name).pdgid for name in options.hypotheses]
    assert list(options._to_cpp().fHypotheses) == codes
