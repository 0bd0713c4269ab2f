"""Nothing that is given to the package ends Python or shows the words of what lies below it."""

import copy
import inspect
import multiprocessing
import os
import pickle
import sys
import warnings
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pandas as pd
import pytest

import kelvo
from conftest import SOURCE

DETECTOR = f"{SOURCE}/detectors/fine.toml"
FILE = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"
NOT_UTF8 = os.fsdecode(b"\xff")
JUNK = [
    None, True, -1, 2**31, 2**63, 2**64, 10**400, -(10**400), 0.5, float("nan"), float("inf"), 1j,
    "", "a", "\ud800", NOT_UTF8, "a\0b", "\N{GREEK SMALL LETTER PI}", b"\xff", [], [1, "a"], {1: 2},
    object(), print, np.zeros(0), np.zeros((2, 2)), np.ones(3, ">f8"), np.full(3, 1e300),
    np.array([1j]), np.array(None), np.ones(6)[::2], np.full(3, np.nan), np.float64(2),
    np.int64(2**62), np.datetime64(1, "s"), pd.DataFrame(), pd.Series([1.0]),
]  # fmt: skip
THREE = np.arange(3.0)
SIX = [THREE, THREE, THREE, *[np.ones(3)] * 3]
POINTS = np.array([[0.0, 0, 0], [0, 0, 70]])


def hits_of_one_track():
    n = np.arange(20)
    return kelvo.HitList3D(n % 2, 50 + 0.1 * n, 3 + 6.05 * n, np.full(20, 0.3))


def line_fit(kind):
    fit = kind(3, 1)
    fit.SetMeasurements(THREE, THREE, np.ones(3))
    fit.SetScatteringPlanes(np.ones(1), np.ones(1))
    fit.Fit()
    return fit


def basis():
    made = kelvo.TrackBasis()
    made.MakeBasis(*SIX)
    return made


def path():
    return kelvo.Path(DETECTOR, POINTS)


def surfaces():
    made = kelvo.ScatteringSurfaces(13, 30, 3, 0.3)
    made.MakeSurfaces(DETECTOR, POINTS[0], POINTS[1], THREE)
    return made


OBJECTS = {
    "Lutz": lambda: line_fit(kelvo.Lutz),
    "KinkSmoother": lambda: line_fit(kelvo.KinkSmoother),
    "HitList3D": hits_of_one_track,
    "TrackBasis": basis,
    "Path": path,
    "dEdxTable": lambda: kelvo.dEdxTable("Steel"),
    "ScatteringSurfaces": surfaces,
    "PlaneDetector": lambda: kelvo.PlaneDetector.FromFile(DETECTOR),
    "TrackFitter": lambda: kelvo.TrackFitter(DETECTOR),
    "TrackFitOptions": kelvo.TrackFitOptions,
    "TrackFit": lambda: kelvo.TrackFitter(DETECTOR).Fit(hits_of_one_track()),
    "FitSummary": lambda: kelvo.summary(fit_few(few_hits())),
}

# Arguments that are right, so that one wrong one is met alone.
RIGHT = {
    "nmeas": 3, "nscat": 1, "i": 0, "j": 0, "z": THREE, "x": THREE, "sigx": np.ones(3), "sigalpha": np.ones(1),
    "factor": 0.5, "detector": DETECTOR, "points": POINTS, "s0": 0.0, "xyz": THREE, "eps": 0.1, "ds": 1.0,
    "material": "Steel", "m": 0.1, "M": 0.1, "T": 0.5, "T0": 0.5, "xs": THREE, "ys": THREE, "s": THREE, "bg": 3.0,
    "pdg": 13, "max_ds": 30.0, "max_dx0": 3.0, "max_dt": 0.3, "p0": POINTS[0], "p1": POINTS[1], "dx0": 0.1,
    "beta": 1.0, "p": 1.0, "view": np.zeros(3, np.int64), "u": THREE, "sigu": np.ones(3), "file": DETECTOR,
    "toml": "", "y": THREE, "dx": np.ones(3), "dy": np.ones(3), "dz": np.ones(3),
}  # fmt: skip
SINGLE = {"SetMeasurement", "SetScatteringPlane", "SetOrigin", "NearestPlane", "Interp", "Dir"}


def few_hits():
    frame = pd.read_csv(FILE, nrows=500)
    return frame[frame["track"].isin(frame["track"].unique()[:5])]


def fit_few(hits, **options):
    return kelvo.fit_tracks(
        hits, DETECTOR, **{"threads": 2, "vectors": False, "hypotheses": "mu", **options}
    )


def told_well(call):
    """Calls; what is raised must be an Error of one line, in words of Python and physics."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            call()
    except kelvo.Error as error:
        words = str(error)
        assert words and "\n" not in words
        for word in ("std::", "overload", "convert argument", "template", "cppyy"):
            assert word not in words.lower(), words


def right_value(function, parameter):
    if parameter.name == "path":
        return path()
    if parameter.name == "hits":
        return hits_of_one_track()
    value = RIGHT.get(parameter.name, THREE)
    return 1.0 if isinstance(value, np.ndarray) and function.__name__ in SINGLE else value


def calls_with_junk(function):
    """Yields calls with one wrong argument each."""
    parameters = [
        p
        for p in inspect.signature(function).parameters.values()
        if p.name not in ("self", "cls") and p.kind is not p.VAR_POSITIONAL
    ]
    for wrong in parameters:
        for junk in JUNK:
            needed = {
                p.name: right_value(function, p)
                for p in parameters
                if p is not wrong and p.default is p.empty
            }
            yield lambda: function(**needed, **{wrong.name: junk})


@pytest.mark.parametrize("name", OBJECTS)
def test_wrong_arguments_of_the_classes_are_told(name):
    made = OBJECTS[name]()
    kind = type(made)
    if not name.startswith(("Fit", "TrackFitOptions")) and name != "TrackFit":
        for call in calls_with_junk(kind):
            told_well(call)
    for method in dir(kind):
        if method.startswith("_") and method != "__call__":
            continue
        if callable(getattr(made, method)):
            for call in calls_with_junk(getattr(made, method)):
                told_well(call)


def test_points_of_any_kind_are_told():
    for junk in JUNK:
        told_well(lambda: basis().DetToTrk(junk, 1.0, 1.0, 1.0, 1.0, 1.0))
        told_well(lambda: basis().TrkToDet(*[junk] * 6))


FIT_OPTIONS = [*inspect.signature(kelvo.fit_tracks).parameters]


@pytest.mark.parametrize("option", FIT_OPTIONS)
def test_wrong_options_of_a_fit_are_told(option):
    hits = few_hits()
    arguments = {
        "hits": hits,
        "detector": DETECTOR,
        "limit": 1,
        "vectors": False,
        "threads": 1,
        "end": "leaves",
    }
    for junk in JUNK:
        told_well(lambda: kelvo.fit_tracks(**{**arguments, option: junk}))
        if option in ("fractions", "hypotheses", "key"):
            told_well(lambda: kelvo.fit_tracks(**{**arguments, option: [junk]}))
        if option == "columns":
            told_well(lambda: kelvo.fit_tracks(**{**arguments, option: {"u": junk}}))


@pytest.mark.parametrize("column", ["track", "view", "u", "z", "sigu"])
def test_columns_of_any_kind_are_told(column):
    hits = few_hits()
    for junk in (
        None,
        True,
        2**62,
        2**63,
        2**64,
        10**400,
        0.5,
        np.nan,
        1j,
        "a",
        NOT_UTF8,
        b"x",
        object(),
        np.datetime64(1, "s"),
        [1],
        {},
    ):
        values = pd.Series([junk] * len(hits), index=hits.index, dtype=object)
        told_well(lambda: fit_few(hits.assign(**{column: values})))
        if junk != NOT_UTF8:  # of which pandas makes no column
            told_well(lambda: fit_few(hits.assign(**{column: values.infer_objects()})))
        told_well(lambda: fit_few({**hits.to_dict("list"), column: junk}))


def test_wrong_arguments_of_a_data_frame_are_told():
    node = pytest.importorskip("ROOT").RDataFrame(1)
    for junk in JUNK:
        told_well(lambda: kelvo.define_fit(junk, DETECTOR))
        told_well(lambda: kelvo.define_fit(node, junk))
        told_well(lambda: kelvo.define_fit(node, DETECTOR, columns=junk))
        told_well(lambda: kelvo.define_fit(node, DETECTOR, columns={"u": junk}))
        told_well(lambda: kelvo.define_fit(node, DETECTOR, prefix=junk))


def test_columns_may_have_numbers_as_names():
    hits = few_hits()
    expected = fit_few(hits)
    numbered = hits.set_axis(range(hits.shape[1]), axis=1)
    names = {name: place for place, name in enumerate(hits.columns)}
    shuffled = numbered.sample(frac=1, random_state=1)
    for given in (numbered, shuffled):
        found = fit_few(given, columns=names)
        assert found["track"].nunique() == expected["track"].nunique()
    assert fit_few(numbered, columns=names)["p"].tolist() == expected["p"].tolist()
    keyed = fit_few(numbered, columns=names, key=0)
    assert keyed["0"].tolist() == expected["track"].tolist()


def test_a_name_that_is_no_text_in_utf8_is_told_as_it_stands(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for call in (
        lambda: kelvo.PlaneDetector.FromFile(NOT_UTF8),
        lambda: kelvo.fit_tracks([NOT_UTF8], DETECTOR),
    ):
        with pytest.raises(kelvo.Error) as told:
            call()
        assert NOT_UTF8 in str(told.value) and "No such file" in str(told.value)


@pytest.mark.parametrize("name", OBJECTS)
def test_every_object_can_be_copied_and_pickled_or_says_that_it_cannot(name):
    made = OBJECTS[name]()
    for again in (
        copy.copy,
        copy.deepcopy,
        *(lambda x, n=n: pickle.loads(pickle.dumps(x, n)) for n in range(6)),
    ):
        try:
            other = again(made)
        except kelvo.Error as error:
            assert "cannot be copied or pickled" in str(error)
            assert name in ("Lutz", "KinkSmoother", "TrackBasis", "Path", "ScatteringSurfaces")
        else:
            assert type(other) is type(made)


def momenta(hits):
    return fit_few(hits)["p"].tolist()


def momentum(fitter):
    return fitter.Fit(hits_of_one_track()).best.p


@pytest.mark.parametrize("way", ["fork", "spawn", "forkserver"])
def test_processes_of_every_kind_give_the_same_fits(way):
    hits, fitter = few_hits(), kelvo.TrackFitter(DETECTOR)
    expected, single = momenta(hits), momentum(fitter)
    with multiprocessing.get_context(way).Pool(2) as pool:
        assert pool.map(momenta, [hits] * 3) == [expected] * 3
        assert pool.map(momentum, [fitter] * 3) == [single] * 3
    assert momenta(hits) == expected  # what the children did is theirs


def test_threads_give_the_same_fits():
    hits, fitter = few_hits(), kelvo.TrackFitter(DETECTOR)
    expected, single = momenta(hits), momentum(fitter)
    with ThreadPoolExecutor(4) as threads:
        assert list(threads.map(momenta, [hits] * 8)) == [expected] * 8
        assert list(threads.map(momentum, [fitter] * 8)) == [single] * 8


def test_threads_may_be_the_first_to_load_the_library(run):
    code = f"""
import threading, kelvo
def load():
    found.append(kelvo.PlaneDetector.FromFile({DETECTOR!r}).Name())
    assert kelvo.dEdxTable("Steel")(0.5, 0.1) > 0
found = []
threads = [threading.Thread(target=load) for _ in range(8)]
for thread in threads: thread.start()
for thread in threads: thread.join()
fits = kelvo.fit_tracks({FILE!r}, {DETECTOR!r}, limit=3, vectors=False)
print(found == ["fine"] * 8, len(fits))
"""
    assert run(sys.executable, "-c", code) == "True 9\n"
