"""kelvo.fit_tracks against the files of the command: same names, same bits, for every input."""

import os
import pickle
import signal
import subprocess
import warnings

import awkward as ak
import numpy as np
import pandas as pd
import pytest
import uproot

import kelvo
from conftest import BUILD, SOURCE

HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"
DETECTOR = f"{SOURCE}/detectors/fine.toml"
TRACKS = 150


def command(folder, *options):
    subprocess.run(
        [BUILD / "bin/kelvo", "fit", *options, "-o", "fits.root"],
        check=True,
        cwd=folder,
        stdout=subprocess.DEVNULL,
    )
    return uproot.open(folder / "fits.root")["fits"].arrays()


@pytest.fixture(scope="module")
def expected(tmp_path_factory):
    folder = tmp_path_factory.mktemp("fits")
    return command(folder, HITS, "--limit", str(TRACKS), "--detector", DETECTOR)


@pytest.fixture(scope="module")
def frame():
    hits = pd.read_csv(HITS, nrows=100 * TRACKS)
    return hits[hits["track"].isin(hits["track"].unique()[:TRACKS])]


def test_places_and_excluded_planes_are_those_of_the_file(tmp_path):
    options = ("--exclude", "20", "--at", "20", "--at", "z=12.5", "--robust", "tukey")
    expected = command(tmp_path, HITS, "--limit", "30", "--detector", DETECTOR, *options)
    fits = kelvo.fit_tracks(
        HITS, DETECTOR, limit=30, output="awkward", exclude=20, at=["20", 12.5], robust="tukey"
    )
    assert_same(fits, expected)
    z = kelvo.PlaneDetector.FromFile(DETECTOR).Planes()[20]
    assert fits.at_z[0].to_list() == [(z.z_low + z.z_high) / 2, 12.5]
    assert ak.all(ak.num(fits.at_cov_y_unbiased[fits.status == 0]) == 2)
    with pytest.raises(kelvo.Error, match="robust is 'mean'; it must be \"keep\", \"huber\""):
        kelvo.fit_tracks(HITS, DETECTOR, robust="mean")
    with pytest.raises(kelvo.Error, match="at holds None; it must hold numbers or names of planes"):
        kelvo.fit_tracks(HITS, DETECTOR, at=[None])
    with pytest.raises(kelvo.Error, match='"200" is not the number, from 0 to 127, or name'):
        kelvo.fit_tracks(HITS, DETECTOR, exclude=[200])


def entries(frame, names=("view", "u", "z", "sigu")):
    """The same hits, one track an entry."""
    groups = list(frame.groupby("track", sort=False))
    columns = {name: ak.Array([list(group[name]) for _, group in groups]) for name in names}
    return ak.zip({"track": [t for t, _ in groups], **columns}, depth_limit=1)


def bits(values):
    return np.ascontiguousarray(ak.to_numpy(ak.flatten(values, axis=None))).tobytes()


def assert_same(fits, expected):
    """Every column has the name, the type and the bits of the file."""
    assert set(fits.fields) == set(expected.fields)
    for name in expected.fields:
        assert fits[name].type == expected[name].type, name
        if name == "message":
            assert fits[name].to_list() == expected[name].to_list()
            continue
        if fits[name].ndim > 1:
            assert ak.all(ak.num(fits[name]) == ak.num(expected[name])), name
        assert bits(fits[name]) == bits(expected[name]), name


@pytest.mark.parametrize("threads", [1, 2, 5])
def test_files_give_the_bits_of_the_command(expected, threads):
    fits = kelvo.fit_tracks(HITS, DETECTOR, limit=TRACKS, threads=threads, output="awkward")
    assert_same(fits, expected)


def test_frames_give_the_bits_of_the_command(expected, frame):
    assert_same(kelvo.fit_tracks(frame, DETECTOR, output="awkward"), expected)
    for view in (
        (frame["view"] == "Y").astype(int),
        frame["view"].astype("category"),
        frame["view"].astype(object).str.lower(),
    ):
        assert_same(kelvo.fit_tracks(frame.assign(view=view), DETECTOR, output="awkward"), expected)


def test_awkward_arrays_give_the_bits_of_the_command(expected, frame):
    tracks = entries(frame)
    assert_same(kelvo.fit_tracks(tracks, DETECTOR, output="awkward"), expected)
    numbers = ak.with_field(tracks, ak.values_astype(tracks["view"] == "Y", np.int32), "view")
    assert_same(kelvo.fit_tracks(numbers, DETECTOR, output="awkward"), expected)
    # A part of an array has offsets that do not begin at 0.
    part = kelvo.fit_tracks(tracks[40:60], DETECTOR, output="awkward")
    assert_same(part, expected[3 * 40 : 3 * 60])


def test_pandas_gives_what_awkward_gives(expected):
    fits = kelvo.fit_tracks(HITS, kelvo.PlaneDetector.FromFile(DETECTOR), limit=TRACKS)
    assert set(fits.columns) == set(expected.fields)
    for name in expected.fields:
        column = fits[name]
        if name == "message":
            assert column.tolist() == expected[name].to_list()
        elif expected[name].ndim > 1:
            np.testing.assert_array_equal(column.list.len(), ak.num(expected[name]), name)
            flat = column.list.flatten().to_numpy()
            assert np.ascontiguousarray(flat).tobytes() == bits(expected[name]), name
        else:
            values = ak.to_numpy(expected[name])
            assert column.dtype == values.dtype, name
            assert column.to_numpy().tobytes() == values.tobytes(), name


def test_numbers_alone_are_the_same_numbers(expected):
    fits = kelvo.fit_tracks(HITS, DETECTOR, limit=TRACKS, vectors=False)
    assert set(fits.columns) == {n for n in expected.fields if expected[n].ndim == 1}
    assert fits["p"].to_numpy().tobytes() == bits(expected["p"])


def test_options_are_those_of_the_command(tmp_path, frame):
    options = {
        "scattering_factor": 1.5,
        "beyond_last_hit": 0.4,
        "beam_momentum": 3.0,
        "sig_beam_momentum": 0.1,
    }
    words = [w for k, v in options.items() for w in ("--" + k.replace("_", "-"), str(v))]
    words += ["--hypothesis", "p,mu", "--limit", "20"]
    expected = command(tmp_path, HITS, "--detector", DETECTOR, *words)
    fits = kelvo.fit_tracks(
        frame, DETECTOR, hypotheses=("p", 13), limit=20, output="awkward", **options
    )
    assert_same(fits, expected)


def test_deposits_give_the_bits_of_the_command(tmp_path, frame):
    hits = frame.assign(q=0.01 + 0.01 * np.random.default_rng(6).random(len(frame)))
    hits.to_csv(tmp_path / "hits.csv", index=False)
    expected = command(
        tmp_path, tmp_path / "hits.csv", "--detector", DETECTOR, "--limit", "20",
        "--charge-resolution", "0.2", "--fractions", "pi=0.3,mu=0.5,p=0.2",
    )
    fits = kelvo.fit_tracks(
        hits, DETECTOR, limit=20, output="awkward", charge_resolution=0.2, fractions=(0.5, 0.3, 0.2)
    )
    assert_same(fits, expected)
    scale = kelvo.summary(fits).charge_scale
    assert 0.2 < scale < 5
    first = hits[hits.track == hits.track.iloc[0]]
    view = (first.view == "Y").to_numpy(np.int64)
    options = kelvo.TrackFitOptions(charge_resolution=0.2, charge_scale=scale, fractions=(0.5, 0.3, 0.2))
    track = kelvo.HitList3D(view, *(first[name].to_numpy() for name in ("u", "z", "sigu")))
    single = kelvo.TrackFitter(DETECTOR, options).Fit(track, first.q.to_numpy())
    assert [h.log_likelihood_charge for h in single.hypotheses] == list(fits.log_likelihood_charge[:3])
    assert [h.prob_hypothesis for h in single.hypotheses] == list(fits.prob_hypothesis[:3])


def test_planes_of_both_views_and_columns_of_other_names(tmp_path):
    random = np.random.default_rng(5)
    z = np.tile(np.arange(4.0), 30)
    hits = pd.DataFrame(
        {
            "event": np.repeat(np.arange(30), 4),
            "x": random.normal(1, 0.001, 120),
            "y": random.normal(1, 0.001, 120),
            "z": z,
            "ex": 0.001,
            "sigy": 0.002,
        }
    )
    hits.to_csv(tmp_path / "hits.csv", index=False)
    detector = f"{SOURCE}/detectors/telescope.toml"
    names = ["--column", "track=event", "--column", "sigx=ex", "--beam-momentum", "120"]
    expected = command(tmp_path, "hits.csv", "--detector", detector, *names)
    options = {"columns": {"track": "event", "sigx": "ex"}, "beam_momentum": 120.0}
    options["output"] = "awkward"
    assert_same(kelvo.fit_tracks(hits, detector, **options), expected)
    assert_same(kelvo.fit_tracks(tmp_path / "hits.csv", detector, **options), expected)
    # Numbers of other types and columns that are not contiguous mean the same.
    mixed = hits.astype({"event": "int16", "z": "float32", "x": "Float64"})
    assert_same(kelvo.fit_tracks(mixed, detector, **options), expected)


def test_several_files_are_read_one_after_the_other(expected, frame, tmp_path):
    first = frame["track"] <= frame["track"].median()
    frame[first].to_csv(tmp_path / "a.csv", index=False)
    frame[~first].to_csv(tmp_path / "b.csv", index=False)
    files = [tmp_path / "a.csv", str(tmp_path / "b.csv")]
    fits = kelvo.fit_tracks(files, DETECTOR, output="awkward")
    assert_same(fits, expected)


def test_the_summary_counts_what_came_out(frame):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        fractions = []
        fits = kelvo.fit_tracks(frame, DETECTOR, progress=fractions.append)
    summary = kelvo.summary(fits)
    assert (summary.tracks, summary.fitted, summary.hits) == (TRACKS, TRACKS, len(frame))
    assert summary.by_status == (TRACKS, 0, 0, 0, 0, 0) and summary.problems == ()
    for hypothesis in summary.hypotheses:
        chosen = fits[fits["pdg"] == hypothesis.pdg]
        assert hypothesis.best == chosen["best"].sum()
    assert all(0 <= fraction <= 1 for fraction in fractions)


def test_the_user_can_stop_a_fit_at_any_time():
    for _ in range(10):
        with pytest.raises(KeyboardInterrupt):
            kelvo.fit_tracks(
                [HITS] * 100,
                DETECTOR,
                threads=4,
                progress=lambda fraction: os.kill(os.getpid(), signal.SIGINT),
            )
    assert len(kelvo.fit_tracks(HITS, DETECTOR, limit=5)) == 15


def test_what_cannot_be_used_is_told_and_kept(frame, tmp_path):
    tracks = frame["track"].unique()[:4]
    bad = frame[frame["track"].isin(tracks)].reset_index(drop=True).copy()
    rows = [bad.index[bad["track"] == t][0] for t in tracks]
    bad.loc[rows[0], "sigu"] = 0
    bad.loc[rows[1], "u"] = np.nan
    bad.loc[rows[2], "view"] = None
    told = [
        f"hits, row {rows[0]}, column sigu: is not above 0",
        f"hits, row {rows[1]}, column u: is not a finite number",
        f"hits, row {rows[2]}, column view: is not a finite number",
    ]
    with pytest.warns(kelvo.FitWarning) as caught:
        fits = kelvo.fit_tracks(bad, DETECTOR)
    assert str(caught[0].message) == (
        f"3 of 4 tracks could not be used; the first problem: {told[0]}. See the columns status and "
        'message, and kelvo.summary(fits).problems'
    )
    assert caught[0].filename == __file__
    summary = kelvo.summary(fits)
    assert summary.problems == tuple(told)
    assert (summary.bad_rows, summary.problem_count, summary.by_status[2]) == (3, 3, 3)
    assert fits["message"].tolist() == [text for text in told for _ in range(3)] + [""] * 3
    assert fits["status"].tolist() == [2] * 9 + [0] * 3
    assert fits["p"].isna().sum() == 9


def test_hits_that_cannot_be_meant_are_told_once_with_numbers(frame):
    for change, words in (
        ({"z": 10 * frame["z"], "u": 10 * frame["u"]}, "are lengths in mm?"),
        ({"view": frame["view"].map({"X": "Y", "Y": "X"})}, "are the views exchanged?"),
        ({"track": frame["track"] // 4}, "are several tracks under one number?"),
    ):
        with pytest.warns(kelvo.FitWarning) as caught:
            fits = kelvo.fit_tracks(frame.assign(**change), DETECTOR, hypotheses="mu")
        (doubt,) = kelvo.summary(fits).doubts
        assert words in doubt and " of " in doubt
        assert [str(w.message) for w in caught].count(doubt) == 1
        assert caught[-1].filename == __file__


def test_lengths_are_taken_in_the_unit_that_is_named(frame, expected, tmp_path):
    lengths = {name: 10 * frame[name] for name in ("u", "z", "sigu")}
    in_mm = frame.assign(**lengths)
    in_mm.to_csv(tmp_path / "mm.csv", index=False)
    for hits in (in_mm, entries(in_mm), tmp_path / "mm.csv"):
        fits = kelvo.fit_tracks(hits, DETECTOR, unit="mm", output="awkward")
        assert np.allclose(fits["p"], expected["p"], rtol=1e-9, equal_nan=True)
        assert kelvo.summary(fits).doubts == ()
    with pytest.raises(kelvo.Error, match='^the unit "inch" is none of cm, mm, m or um$'):
        kelvo.fit_tracks(frame, DETECTOR, unit="inch")


def test_an_installed_detector_goes_by_its_name(expected, frame, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    assert_same(kelvo.fit_tracks(frame, "fine", output="awkward"), expected)
    assert kelvo.PlaneDetector.FromFile("telescope").Name() == "telescope"


def test_what_hits_lack_is_taken_from_the_detector(frame, tmp_path):
    planes = kelvo.PlaneDetector.FromFile(DETECTOR)
    plane = frame["z"].map(planes.NearestPlane)
    told = frame.assign(sigu=4 / 12**0.5)
    bare = frame.assign(plane=plane).drop(columns=["z", "sigu"])
    bare.to_csv(tmp_path / "hits.csv", index=False)
    wanted = kelvo.fit_tracks(told, DETECTOR, output="awkward")
    for hits in (bare, entries(bare, ["view", "u", "plane"]), tmp_path / "hits.csv"):
        fits = kelvo.fit_tracks(hits, DETECTOR, output="awkward")
        assert np.allclose(fits["chi2_x"], wanted["chi2_x"], rtol=1e-6, equal_nan=True)
        assert np.allclose(fits["p"], wanted["p"], rtol=1e-6, equal_nan=True)
    constant = kelvo.fit_tracks(frame.drop(columns="sigu"), DETECTOR, sigma=0.3, output="awkward")
    assert_same(constant, kelvo.fit_tracks(frame.assign(sigu=0.3), DETECTOR, output="awkward"))
    with pytest.warns(kelvo.FitWarning, match="column plane: is not the number, from 0, or name of"):
        kelvo.fit_tracks(bare.assign(plane=128), DETECTOR, limit=1)


def test_planes_have_names_where_these_are_unique():
    text = open(f"{SOURCE}/detectors/telescope.toml").read()
    frame = pd.DataFrame({"track": 1, "x": 1.0, "y": 1.0, "plane": ["sensor"] * 4})
    with pytest.warns(kelvo.FitWarning, match="name of one plane"):
        kelvo.fit_tracks(frame, kelvo.PlaneDetector(text), beam_momentum=100.0)


def test_gaps_in_awkward_arrays_are_told():
    hits = ak.Array(
        [
            {"track": 1, "view": ["X", None], "u": [1.0, 2.0], "z": [3.0, 4.0], "sigu": [1, 1]},
            {"track": 2, "view": ["X", "Left"], "u": [1.0, None], "z": [3.0, 4.0], "sigu": [1, 1]},
            {"track": 3, "view": ["X"], "u": [1.0, 2.0], "z": [3.0, 4.0], "sigu": [1, 1]},
            {"track": 4, "view": None, "u": [1.0, 2.0], "z": [3.0, 4.0], "sigu": [1, 1]},
        ]
    )
    with pytest.warns(kelvo.FitWarning):
        fits = kelvo.fit_tracks(hits, DETECTOR, output="awkward")
    assert fits["message"].to_list()[::3] == [
        "hits, row 0, hit 1, column view: is not a view, which is X or Y, 0 or 1",
        "hits, row 1, hit 1, column view: is not a view, which is X or Y, 0 or 1",
        "hits, row 2, column view: has 1 values where column z has 2",
        "hits, row 3, column view: has 0 values where column z has 2",
    ]


def test_nothing_in_gives_nothing_out(frame):
    for hits in (frame[:0], entries(frame)[:0]):
        for output in ("pandas", "awkward"):
            fits = kelvo.fit_tracks(hits, DETECTOR, output=output)
            assert len(fits) == 0 and kelvo.summary(fits).tracks == 0
            assert len(fits["residual"]) == 0


def test_results_travel_between_processes(frame):
    few = frame[frame["track"] < frame["track"].iloc[0] + 5]
    fits = kelvo.fit_tracks(few, DETECTOR)
    again = pickle.loads(pickle.dumps(fits))
    pd.testing.assert_frame_equal(again, fits, check_exact=True)
    assert kelvo.summary(again) == kelvo.summary(fits)
    fits = kelvo.fit_tracks(few, DETECTOR, output="awkward")
    again = pickle.loads(pickle.dumps(fits))
    assert_same(again, fits)
    assert kelvo.summary(again) == kelvo.summary(fits)


def test_results_outlive_what_made_them(frame):
    """They refer to memory of the library, which must stay."""
    few = frame[frame["track"] < frame["track"].iloc[0] + 5]
    p = kelvo.fit_tracks(few, DETECTOR)["p"].to_numpy()
    kept = p.copy()
    for _ in range(5):
        kelvo.fit_tracks(few, DETECTOR)
    np.testing.assert_array_equal(p, kept)


KNOWN = "track, view, u, sigu, x, y, sigx, sigy, z, sigz, t, sigt, w, q, plane"
LAYOUTS = "hits have track,view,u,z,sigu or track,x,y,z,sigx,sigy"

MISTAKES = [
    (lambda f: kelvo.fit_tracks(f.drop(columns="z"), DETECTOR),
     'hits: there is no column "z" but "track, view, u, sigu"; a column of another name needs '
     'columns={"z": "NAME"}; ' + LAYOUTS),
    (lambda f: kelvo.fit_tracks(f, DETECTOR, columns={"angle": "u"}),
     f'column "angle" is none of those that hits have: {KNOWN}'),
    (lambda f: kelvo.fit_tracks(f.astype({"track": float}), DETECTOR),
     "column track is float64; track numbers are whole numbers without gaps: "
     'hits["track"].astype("int64")'),
    (lambda f: kelvo.fit_tracks(f.astype({"u": str}), DETECTOR),
     'column u is str; it must hold numbers: pandas.to_numeric(hits["u"])'),
    (lambda f: kelvo.fit_tracks(pd.concat([f, f["u"]], axis=1), DETECTOR),
     'hits: names the column "u" twice'),
    (lambda f: kelvo.fit_tracks(entries(f[:9], ["view", "u", "sigu"]), DETECTOR),
     'hits: there is no column "z" but "track, view, u, sigu"; a column of another name needs '
     'columns={"z": "NAME"}; ' + LAYOUTS),
    (lambda f: kelvo.fit_tracks(ak.Array([{"track": 1, "view": 0, "u": 1, "z": 1, "sigu": 1}]), DETECTOR),
     "column view is int64; it must be a list of numbers a track"),
    (lambda f: kelvo.fit_tracks(
        ak.Array([{"track": 1, "view": [0], "u": ["a"], "z": [1], "sigu": [1]}]), DETECTOR),
     "column u is var * string; it must hold numbers"),
    (lambda f: kelvo.fit_tracks(
        ak.Array([{"track": None, "view": [0], "u": [1], "z": [1], "sigu": [1]}]), DETECTOR),
     "column track is ?unknown; it must be one whole number a track"),
    (lambda f: kelvo.fit_tracks(3, DETECTOR),
     "hits is a int; fit_tracks takes a table with one hit a row (pandas, polars, Arrow, dict of "
     "arrays), an awkward array (one track an entry), or names of files"),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, key="event"),
     "key is for hits with one hit a row, such as pandas.read_csv(FILE)"),
    (lambda f: kelvo.fit_tracks(f, DETECTOR, key=("event", "track")),
     'hits: there is no column "event", which key names'),
    (lambda f: kelvo.fit_tracks([], DETECTOR), "there is no file of hits"),
    (lambda f: kelvo.fit_tracks("nowhere.csv", DETECTOR),
     "nowhere.csv: cannot be opened: No such file or directory"),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, columns={"sigu": "error"}),
     f'{HITS}, line 1: there is no column "error" but "track, view, u, z, sigu"; a column of '
     'another name needs columns={"sigu": "NAME"}; ' + LAYOUTS),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, output="root"),
     "output is 'root'; it must be \"pandas\" or \"awkward\""),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, threads=0),
     "threads is 0; it must be a whole number from 1 to 1024"),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, limit=-1),
     "limit is -1; it must be a whole number from 0 to 9223372036854775807"),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, scattering_factor=0.0),
     "scattering_factor is 0; it must be above 0 and at most 100"),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, hypotheses=()),
     "hypotheses is empty; name one or more of 13 (muon), 211 (pion) or 2212 (proton)"),
    (lambda f: kelvo.fit_tracks(HITS, DETECTOR, hypotheses=("mu", 13)),
     "hypotheses names 13 more than once"),
]


@pytest.mark.parametrize("mistake, sentence", MISTAKES, ids=[m[1][:30] for m in MISTAKES])
def test_mistakes_are_told_in_one_sentence(mistake, sentence, frame):
    with pytest.raises(kelvo.Error) as told:
        mistake(frame)
    assert str(told.value) == sentence
