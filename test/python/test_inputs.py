"""Hits in every form that people keep them in give the same fits."""

import doctest
import subprocess
import sys

import awkward as ak
import numpy as np
import pandas as pd
import pyarrow as pa
import pytest

import kelvo
from conftest import BUILD, SOURCE

DETECTOR = f"{SOURCE}/detectors/fine.toml"
FILE = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"


@pytest.fixture(scope="module")
def hits():
    frame = pd.read_csv(FILE, nrows=2000)
    return frame[frame["track"].isin(frame["track"].unique()[:10])]


@pytest.fixture(scope="module")
def fits(hits):
    return kelvo.fit_tracks(hits, DETECTOR)


def records(hits):
    return ak.Array(
        [
            {"track": track, "hits": rows.drop(columns="track").to_dict("records")}
            for track, rows in hits.groupby("track")
        ]
    )


def lists(hits):
    return hits.groupby("track").agg(list).reset_index()


FORMS = {
    "the track as index": lambda h, _: h.set_index("track"),
    "rows in turn of the tracks": lambda h, _: h.assign(n=h.groupby("track").cumcount()).sort_values(
        ["n", "track"]
    ),
    "a dict of arrays": lambda h, _: {name: h[name].to_numpy() for name in h},
    "an Arrow table": lambda h, _: pa.Table.from_pandas(h),
    "an Arrow table of lists": lambda h, _: pa.Table.from_pandas(lists(h)),
    "a Parquet file": lambda h, folder: parquet(h, folder / "hits.parquet"),
    "a Parquet file of lists": lambda h, folder: parquet(lists(h), folder / "tracks.parquet"),
    "records of hits": lambda h, _: records(h),
    "events of tracks": lambda h, _: ak.unflatten(records(h), [3, 0, 7]),
    "events with a number": lambda h, _: ak.Array(
        {"event": [7, 8], "tracks": ak.unflatten(records(h), [4, 6])}
    ),
}


def parquet(frame, name):
    frame.to_parquet(name)
    return str(name)


def assert_same(found, expected):
    for name in expected.columns:
        if expected[name].dtype.kind in "fiub":
            np.testing.assert_array_equal(found[name].to_numpy(), expected[name].to_numpy())


@pytest.mark.parametrize("form", FORMS)
def test_hits_in_every_form_give_the_same_fits(form, hits, fits, tmp_path):
    assert_same(kelvo.fit_tracks(FORMS[form](hits, tmp_path), DETECTOR), fits)


def test_a_polars_frame_gives_the_same_fits(hits, fits):
    polars = pytest.importorskip("polars")
    assert_same(kelvo.fit_tracks(polars.from_pandas(hits), DETECTOR), fits)


@pytest.mark.parametrize("output", ["pandas", "awkward"])
def test_several_columns_are_the_key_and_columns_of_the_result(hits, fits, output):
    events = hits.assign(event=100 - hits["track"] // 3, track=hits["track"] % 3)
    events = events.sort_values("u")  # in any order
    found = kelvo.fit_tracks(events, DETECTOR, key=("event", "track"), output=output)
    number = (100 - np.asarray(found["event"])) * 3 + np.asarray(found["track"])
    p = {(t, h): value for t, h, value in zip(fits["track"], fits["pdg"], fits["p"])}
    assert len(found) == len(fits)
    # Hits in another order round in another way.
    expected = [p[t, h] for t, h in zip(number, np.asarray(found["pdg"]))]
    np.testing.assert_allclose(np.asarray(found["p"]), expected, rtol=1e-6)


def test_a_key_may_have_texts_and_gaps(hits, fits):
    named = hits.assign(run=np.where(hits["track"] < 4, "a", None))
    found = kelvo.fit_tracks(named, DETECTOR, key=["run", "track"])
    assert found["run"][:3].tolist() == ["a"] * 3 and found["run"].isna().any()
    assert_same(found.drop(columns="run"), fits)


def test_the_recipes_run(hits, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "detectors").symlink_to(SOURCE / "detectors")
    hits.to_csv("hits.csv", index=False)
    options = "-o hits.root --particle mu --kinetic-energy 0.5 --tracks 3 --seed 1".split()
    command = [BUILD / "bin/kelvo", "simulate", "-d", DETECTOR, *options]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    page = SOURCE / "docs/recipes.md"
    results = doctest.testfile(str(page), module_relative=False)
    assert results.attempted > 15 and results.failed == 0
    for block in page.read_text().split("```python\n")[2:]:
        assert block.split("```")[0].count(">>>") <= 2


FIRST_USE = """
import sys, threading
together = threading.Barrier(8)
failed = []

def use(i):
    try:
        together.wait()
        import kelvo
        if i % 2:
            assert len(kelvo.fit_tracks(sys.argv[1], sys.argv[2], limit=5)) == 15
        else:
            kelvo.Lutz(5, 2)
    except BaseException as e:
        failed.append(repr(e))

threads = [threading.Thread(target=use, args=[i]) for i in range(8)]
for thread in threads: thread.start()
for thread in threads: thread.join()
print(failed)
"""


def test_the_first_use_may_be_by_several_threads_at_once(run):
    for _ in range(3):
        assert run(sys.executable, "-c", FIRST_USE, FILE, DETECTOR) == "[]\n"


def test_a_mapping_of_columns_is_of_texts(hits):
    with pytest.raises(kelvo.Error, match="a name in columns is 1"):
        kelvo.fit_tracks(hits, DETECTOR, columns={1: "event"})
