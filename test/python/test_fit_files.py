"""Files of fits as Python users read them: uproot and pandas, without ROOT and without kelvo."""

import os
import pathlib
import subprocess

import awkward as ak
import numpy as np
import pandas as pd
import pytest
import uproot

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELVO_BUILD_DIR", SOURCE / "build/release"))
COMMAND = BUILD / "bin/kelvo"
HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"
TRUTH = f"{SOURCE}/examples/data/fine_mu_truth.csv.gz"
DETECTOR = f"{SOURCE}/detectors/fine.toml"
TRACKS = 200

SCALARS = (
    "track pdg status message best n_x n_y n_outliers chi2_x chi2_y chi2_kink_x chi2_kink_y ndf prob "
    "log_likelihood log_likelihood_charge prob_hypothesis x y z ux uy uz T p beta gamma length radlen sig_T sig_p sig_length "
    "leaves end_distance end_planes stop_chi2 p_min p_scattering p_scattering_low "
    "p_scattering_high inv_p_scattering sig_inv_p_scattering prob_scattering"
).split()
PER_HIT = "hit_view hit_z hit_u hit_sigu fit_u fit_sigu residual pull residual_unbiased sig_residual_unbiased hit_weight".split()
PER_PLANE = "plane_s plane_x plane_y plane_z plane_sigalpha kink_x kink_y".split()


def fit(folder, *options):
    command = [COMMAND, "fit", HITS, "--limit", str(TRACKS), "--detector", DETECTOR, *options]
    subprocess.run(command, check=True, cwd=folder, stdout=subprocess.DEVNULL)


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    folder = tmp_path_factory.mktemp("fits")
    fit(folder, "-o", "tree.root", "--format", "ttree", "--planes", "--csv", "fits.csv")
    fit(folder, "-o", "ntuple.root", "--format", "rntuple", "--planes")
    return folder


@pytest.fixture(scope="module")
def fits(folder):
    return uproot.open(folder / "tree.root")["fits"].arrays()


@pytest.fixture(scope="module")
def hits():
    return pd.read_csv(HITS, nrows=50_000)


@pytest.fixture(scope="module")
def truth():
    return pd.read_csv(TRUTH)


def test_all_columns_are_there(fits):
    assert sorted(fits.fields) == sorted(SCALARS + ["cov"] + PER_HIT + PER_PLANE)
    assert len(fits) == 3 * TRACKS


def test_columns_are_plain_numbers_and_vectors_of_numbers(fits):
    types = {name: str(fits[name].type.content) for name in fits.fields}
    assert types["track"] == "int64"
    assert types["best"] == types["leaves"] == "bool"
    assert types["message"] == "string"
    for name in "pdg status n_x n_y ndf".split():
        assert types[name] == "int32", name
    for name in SCALARS[6:]:
        assert types[name] in ("float64", "int32") or name == "leaves", name
    assert types["hit_view"] == "var * int32"
    for name in ["cov"] + PER_HIT[1:] + PER_PLANE:
        assert types[name] in ("var * float64", "var * float32"), name


def test_tracks_come_in_the_order_of_the_input(fits, hits):
    order = hits["track"].drop_duplicates().to_numpy()[:TRACKS]
    np.testing.assert_array_equal(fits["track"], np.repeat(order, 3))
    np.testing.assert_array_equal(fits["pdg"], np.tile([13, 211, 2212], TRACKS))


def test_each_fit_has_the_hits_of_its_track(fits, hits):
    groups = dict(list(hits.groupby("track")))
    for entry in fits:
        group = groups[entry["track"]].sort_values("z", kind="stable")
        np.testing.assert_array_equal(entry["hit_z"], group["z"])
        np.testing.assert_array_equal(entry["hit_u"], group["u"])
        np.testing.assert_array_equal(entry["hit_sigu"], group["sigu"])
        np.testing.assert_array_equal(entry["hit_view"], group["view"] == "Y")
        assert entry["n_x"] + entry["n_y"] == len(group)


def test_vectors_of_one_kind_have_one_length(fits):
    for names, first in ((PER_HIT, "hit_z"), (PER_PLANE, "plane_s")):
        for name in names:
            assert ak.all(ak.num(fits[name]) == ak.num(fits[first])), name
    assert ak.all(ak.num(fits["cov"]) == 10)


def test_derived_columns_agree_with_each_other(fits):
    residual = fits["hit_u"] - fits["fit_u"]
    assert ak.max(abs(residual - fits["residual"])) < 1e-5
    view = fits["hit_view"]
    sums = {0: fits["chi2_x"], 1: fits["chi2_y"]}
    for v, chi2 in sums.items():
        expected = ak.sum((residual[view == v] / 0.3) ** 2, axis=1)
        # The fit measures across the track, at angles of up to 45 degrees to the planes.
        np.testing.assert_allclose(chi2, expected, rtol=0.05)
    kinks = ak.sum((fits["kink_x"] / fits["plane_sigalpha"]) ** 2, axis=1)
    np.testing.assert_allclose(fits["chi2_kink_x"], kinks, rtol=1e-4, atol=1e-9)
    norm = fits["ux"] ** 2 + fits["uy"] ** 2 + fits["uz"] ** 2
    np.testing.assert_allclose(norm, 1, rtol=1e-12)
    mass = ak.where(fits["pdg"] == 13, 0.105658, ak.where(fits["pdg"] == 211, 0.13957, 0.938272))
    np.testing.assert_allclose(fits["p"], np.sqrt(fits["T"] * (fits["T"] + 2 * mass)), rtol=1e-5)


def test_the_track_is_straight_between_the_points_of_its_planes(fits):
    between = 0
    for entry in fits:
        z = np.asarray(entry["plane_z"])
        assert np.all(np.diff(z) > 0)
        for view, name in ((0, "plane_x"), (1, "plane_y")):
            at = np.asarray(entry["hit_z"][entry["hit_view"] == view])
            inside = (at > z[0]) & (at < z[-1])
            fitted = np.asarray(entry["fit_u"][entry["hit_view"] == view])[inside]
            # The fit goes by the hits' interpolated points, which can lie on the other side of a
            # plane that stands across the track; the hits are known to 0.3 cm.
            np.testing.assert_allclose(np.interp(at[inside], z, entry[name]), fitted, atol=0.01)
            between += inside.sum()
    assert between > 30 * len(fits)


def test_one_hypothesis_of_each_track_that_stops_is_the_best(fits):
    leaves = np.asarray(fits["leaves"]).reshape(-1, 3)[:, 0]
    best = np.asarray(fits["best"]).reshape(-1, 3)
    np.testing.assert_array_equal(best.sum(axis=1), np.where(leaves, 0, 1))
    likelihood = np.asarray(fits["log_likelihood"]).reshape(-1, 3)[~leaves]
    np.testing.assert_allclose(likelihood[best[~leaves]], likelihood.max(axis=1), atol=1e-6)


def test_tracks_that_leave_have_a_limit_in_place_of_a_momentum(fits):
    leaves = np.asarray(fits["leaves"])
    assert 0 < leaves.sum() < 0.05 * len(leaves)
    np.testing.assert_array_equal(np.isnan(np.asarray(fits["p"])), leaves)
    np.testing.assert_array_equal(np.isnan(np.asarray(fits["p_min"])), ~leaves)
    assert (np.asarray(fits["p_scattering_low"]) > 0).all()


def test_momenta_are_those_of_the_particles(fits, truth):
    muons = fits[(fits["pdg"] == 13) & ~fits["leaves"]]
    true = truth.set_index("track").loc[np.asarray(muons["track"])]
    momentum = np.sqrt(true["px"] ** 2 + true["py"] ** 2 + true["pz"] ** 2)
    assert abs(np.median(muons["p"] / momentum) - 1) < 0.01


def test_trees_and_ntuples_hold_the_same(fits, folder):
    ntuple = uproot.open(folder / "ntuple.root")["fits"].arrays()
    assert sorted(ntuple.fields) == sorted(fits.fields)
    for name in fits.fields:
        assert ak.array_equal(ntuple[name], fits[name], equal_nan=True), name


@pytest.mark.parametrize("name", ["tree.root", "ntuple.root"])
def test_pandas_reads_the_scalars(folder, fits, name):
    table = uproot.open(folder / name)["fits"]
    numbers = [column for column in SCALARS if column != "message"]
    frame = table.arrays(numbers, library="pd")
    assert sorted(frame.columns) == sorted(numbers)
    assert len(frame) == 3 * TRACKS
    for column in numbers:
        assert np.array_equal(frame[column], np.asarray(fits[column]), equal_nan=True), column
    assert (frame[~frame["leaves"]].groupby("track", sort=False)["best"].sum() == 1).all()
    # uproot alone makes no pandas column of texts
    assert ak.to_dataframe(table.arrays(SCALARS))["message"].tolist() == fits["message"].to_list()


@pytest.mark.parametrize("name", ["tree.root", "ntuple.root"])
def test_columns_are_read_alone(folder, fits, name):
    columns = uproot.open(folder / name)["fits"].arrays(["p", "pull"])
    assert columns.fields == ["p", "pull"]
    assert ak.array_equal(columns["pull"], fits["pull"])
    assert ak.array_equal(columns["p"], fits["p"], equal_nan=True)


@pytest.mark.parametrize("table", ["ttree", "rntuple"])
def test_scalars_alone_are_the_same_scalars(folder, fits, tmp_path, table):
    fit(tmp_path, "-o", "f.root", "--scalars", "--format", table)
    scalars = uproot.open(tmp_path / "f.root")["fits"].arrays()
    assert sorted(scalars.fields) == sorted(SCALARS)
    for name in SCALARS:
        assert ak.array_equal(scalars[name], fits[name], equal_nan=True), name


def test_simulated_hits_and_their_truth_are_tables(tmp_path):
    command = [COMMAND, "simulate", "--detector", DETECTOR, "--particle", "mu",
               "--kinetic-energy", "0.5..1", "--tracks", "50", "--seed", "1", "--hit-truth",
               "-o", "hits.root"]
    subprocess.run(command, check=True, cwd=tmp_path, stdout=subprocess.DEVNULL)
    file = uproot.open(tmp_path / "hits.root")
    hits, hit_truth = file["hits"].arrays(), file["hittruth"].arrays()
    truth = file["truth"].arrays(library="pd")
    assert truth["track"].tolist() == hits["track"].to_list() == list(range(50))
    assert ak.array_equal(hits["z"], hit_truth["z"])
    true = ak.where(hits["view"] == 0, hit_truth["x"], hit_truth["y"])
    assert ak.max(abs(hits["u"] - true)) < 5  # half a cell and what the particle moves in it
    assert ak.all(ak.num(hits["u"]) == ak.num(hits["sigu"]))
    assert truth["T"].between(0.4, 1).all()


def test_csv_holds_the_same_scalars(fits, folder):
    csv = pd.read_csv(folder / "fits.csv", dtype={"message": str})
    assert list(csv.columns) == SCALARS
    for name in SCALARS:
        if name == "message":
            assert csv[name].isna().all()
        elif csv[name].dtype == float:
            # pandas reads decimal numbers to within one unit in the last place
            np.testing.assert_allclose(csv[name], ak.to_numpy(fits[name]), rtol=3e-16, err_msg=name)
        else:
            np.testing.assert_array_equal(csv[name].to_numpy(), ak.to_numpy(fits[name]), name)


def test_options_and_detector_are_kept(folder):
    tree = uproot.open(folder / "tree.root")
    about = uproot.open(folder / "ntuple.root")["about"].arrays()[0]
    texts = {name: str(tree[name]) for name in ("options", "detector", "version")}
    with open(DETECTOR, encoding="utf-8") as detector:
        assert texts["detector"] == detector.read()
    assert "hypotheses = [13, 211, 2212]\n" in texts["options"]
    assert f"limit = {TRACKS}\n" in texts["options"]
    assert texts["version"]
    assert {name: about[name] for name in texts} == texts
    assert "-o ntuple.root" in about["command"]


@pytest.mark.parametrize("table", ["ttree", "rntuple"])
def test_failed_fits_are_entries_without_numbers(tmp_path, table):
    (tmp_path / "hits.csv").write_text("track,view,u,z,sigu\n7,X,1,3,0.3\n8,X,a \"b\", 3,0.3\n")
    done = subprocess.run(
        [COMMAND, "fit", "hits.csv", "--detector", DETECTOR, "-o", "f.root", "--csv", "f.csv",
         "--format", table],
        cwd=tmp_path,
        capture_output=True,
    )
    assert done.returncode == 1
    fits = uproot.open(tmp_path / "f.root")["fits"].arrays()
    assert fits["track"].to_list() == [7, 7, 7, 8, 8, 8]
    assert fits["status"].to_list() == [1, 1, 1, 2, 2, 2]
    assert not ak.any(fits["best"])
    assert np.all(np.isnan(fits["p"]))
    assert ak.all(ak.num(fits["hit_u"]) == 0)
    csv = pd.read_csv(tmp_path / "f.csv")
    assert csv["message"].tolist() == fits["message"].to_list()
    assert csv["message"][3] == 'hits.csv, line 3, column u: "a "b"" is not a number'
    assert csv["p"].isna().all()


def test_hits_written_by_uproot_are_fitted(folder, hits, tmp_path):
    """A tree of jagged arrays, as uproot writes it from awkward arrays, gives the same fits."""
    tracks = [group for _, group in list(hits.groupby("track"))[:50]]

    def column(name):
        return ak.Array([group[name].to_numpy() for group in tracks])

    with uproot.recreate(tmp_path / "hits.root") as file:
        file["hits"] = {
            "track": np.array([group["track"].iloc[0] for group in tracks]),
            "view": ak.Array([(group["view"] == "Y").to_numpy().astype(np.int32) for group in tracks]),
            "u": column("u"),
            "z": column("z"),
            "sigu": column("sigu"),
        }
    command = [COMMAND, "fit", "hits.root", "--detector", DETECTOR, "-o", "f.root", "--csv", "f.csv"]
    subprocess.run(command, check=True, cwd=tmp_path, stdout=subprocess.DEVNULL)
    lines = (folder / "fits.csv").read_text().splitlines()
    assert (tmp_path / "f.csv").read_text().splitlines() == lines[: 3 * 50 + 1]

