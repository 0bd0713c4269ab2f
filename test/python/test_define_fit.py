"""kelvo.define_fit: the columns that it adds to a data frame are those of the command's file."""

import subprocess

import awkward as ak
import numpy as np
import pandas as pd
import pytest
import uproot

import kelvo
from conftest import BUILD, SOURCE

HITS = f"{SOURCE}/examples/data/fine_mu_hits_smeared.csv.gz"
DETECTOR = f"{SOURCE}/detectors/fine.toml"
TRACKS = 60


@pytest.fixture(scope="module")
def ROOT():
    from kelvo._root import root

    return root()


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    """A file of hits with one track an entry, and the command's fits of it."""
    folder = tmp_path_factory.mktemp("frame")
    hits = pd.read_csv(HITS, nrows=100 * TRACKS)
    groups = [group for _, group in list(hits.groupby("track"))[:TRACKS]]
    columns = {name: ak.Array([g[name].to_numpy() for g in groups]) for name in ("u", "z", "sigu")}
    columns["view"] = ak.Array([(g["view"] == "Y").to_numpy().astype(np.int32) for g in groups])
    columns["track"] = np.array([g["track"].iloc[0] for g in groups])
    with uproot.recreate(folder / "hits.root") as file:
        file["hits"] = columns
    command = [BUILD / "bin/kelvo", "fit", "hits.root", "--detector", DETECTOR, "-o", "fits.root"]
    subprocess.run(command, check=True, cwd=folder, stdout=subprocess.DEVNULL)
    return folder


@pytest.fixture(params=[1, 3])
def hits(request, ROOT, folder):
    """A data frame for one thread and for several."""
    if request.param > 1:
        ROOT.EnableImplicitMT(request.param)
    yield ROOT.RDataFrame("hits", str(folder / "hits.root"))
    if request.param > 1:
        ROOT.DisableImplicitMT()


def test_a_data_frame_gets_the_bits_of_the_command(hits, folder):
    fits = uproot.open(folder / "fits.root")["fits"].arrays()
    best = fits[fits["best"]]
    node = kelvo.define_fit(hits, kelvo.PlaneDetector.FromFile(DETECTOR))
    scalars = [n for n in fits.fields if fits[n].ndim == 1 and n not in ("track", "message")]
    found = node.AsNumpy(["track", *(f"fit_{name}" for name in scalars), "fit_residual", "fit_each_p"])
    order = np.argsort(found["track"])  # threads change it
    for name in scalars:
        np.testing.assert_array_equal(found[f"fit_{name}"][order], ak.to_numpy(best[name]), name)
    residual = np.concatenate([np.asarray(r) for r in found["fit_residual"][order]])
    np.testing.assert_array_equal(residual, ak.to_numpy(ak.flatten(best["residual"])))
    each = np.concatenate([np.asarray(p) for p in found["fit_each_p"][order]])
    np.testing.assert_array_equal(each, ak.to_numpy(fits["p"]))


def test_the_node_is_one_like_others_and_outlives_the_detector(hits):
    nodes = [
        kelvo.define_fit(hits.Filter("track > 3"), kelvo.PlaneDetector.FromFile(DETECTOR))
        for _ in range(3)
    ]
    momentum = nodes[0].Define("half", "fit_p / 2").Filter("fit_status == 0").Mean("half")
    assert 0.1 < momentum.GetValue() < 2


def test_options_columns_and_prefix_are_passed_on(hits):
    renamed = hits.Define("error", "sigu").Define("place", "z")
    node = kelvo.define_fit(
        hits, DETECTOR, hypotheses=("p", "mu"), beam_momentum=5.0, prefix="beam_"
    )
    found = node.AsNumpy(["beam_each_pdg", "beam_p"])
    assert list(found["beam_each_pdg"][0]) == [2212, 13]
    np.testing.assert_allclose(found["beam_p"], 5)
    wider = renamed.Redefine("sigu", "2 * sigu")
    same = kelvo.define_fit(wider, DETECTOR, columns={"sigu": "error"}).Sum("fit_chi2_x")
    assert same.GetValue() == pytest.approx(kelvo.define_fit(hits, DETECTOR).Sum("fit_chi2_x").GetValue())


def test_mistakes_are_told_in_one_sentence(ROOT, folder):
    hits = ROOT.RDataFrame("hits", str(folder / "hits.root"))
    names = ", ".join(map(str, hits.GetColumnNames()))
    for wrong, sentence in [
        (lambda: kelvo.define_fit(3, DETECTOR),
         "rdf is a int; define_fit takes a ROOT.RDataFrame or a node of one"),
        (lambda: kelvo.define_fit(hits, DETECTOR, columns={"sigu": "error"}),
         f'the data frame: there is no column "error" but "{names}"; a column of another name needs '
         'columns={"sigu": "NAME"}; hits have track,view,u,z,sigu or track,x,y,z,sigx,sigy'),
        (lambda: kelvo.define_fit(hits, DETECTOR, columns={"sigu": "track"}),
         "the data frame, column track: is of the type std::int64_t, which is no vector of numbers"),
        (lambda: kelvo.define_fit(hits, DETECTOR, scattering_factor=0.0),
         "scattering_factor is 0; it must be above 0 and at most 100"),
        (lambda: kelvo.define_fit(hits, "nowhere.toml"),
         'cannot read the detector file "nowhere.toml": No such file or directory'),
    ]:
        with pytest.raises(kelvo.Error) as told:
            wrong()
        assert str(told.value) == sentence
