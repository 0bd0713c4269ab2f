"""What fit_tracks gives can be kept, read again, added up and written into files."""

import json
import math
import subprocess
import sys

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


def test_what_is_told_beside_the_fits_is_plain_data(fits):
    assert json.loads(json.dumps(fits.attrs)) == fits.attrs
    assert fits.attrs["options"]["hypotheses"] == [13, 211, 2212]
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
    assert total == parts[0] + parts[1] or math.isnan(total.hypotheses[0].median_chi2_per_ndf)
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
