"""ROOT and PyROOT find the classes by themselves: in the build tree and in an install tree."""

import sys

import pytest


@pytest.fixture(params=["build tree", "install tree"])
def libraries(request, build, tmp_path):
    tree = build if request.param == "build tree" else request.getfixturevalue("installed")
    # Elsewhere than in the sources, which would lend their headers.
    return {"env": {"LD_LIBRARY_PATH": str(tree / "lib"), "ROOT_INCLUDE_PATH": ""}, "cwd": tmp_path}


def test_root_loads_the_library_at_the_first_name(run, root, libraries):
    code = "kelvo::Lutz fit(3, 1); std::cout << fit.NMeas() + fit.NScat() << std::endl; 0"
    assert run(root, "-l", "-b", "-q", "-e", code, **libraries).splitlines()[0] == "4"


NAMES = {
    "kelvo.Lutz(3, 1).NMeas()": 3,
    "kelvo.Hit3D().fW": 1,
    "kelvo.HitList3D(5).size()": 5,
    "kelvo.TrackBasis().ZAxis().Z()": 0,
    "kelvo.dEdxTable('Steel')(1.0, 0.105658) > 0": True,
    "kelvo.ScatteringSurfaces.Width(1, 1, 1) > 0": True,
    "kelvo.KinkSmoother(4, 2).NScat()": 2,
    "kelvo.KinkBatchInput().fNTracks": 0,
    "kelvo.KinkSmootherBatch() is not None": True,
    "kelvo.StandardThreshold(kelvo.RobustWeight.kHuber)": 1.345,
    "kelvo.RejectOutliers(kelvo.KinkSmoother(4, 2))": 0,
    "kelvo.SimulationOptions().fEfficiency": 1,
    "kelvo.SimulatedTrack().fHits.size()": 0,
    "kelvo.TrackFitOptions().fBeyondLastHit": 0.5,
    "kelvo.TrackFit().fBest": -1,
    "int(kelvo.FitStatus.kSingular)": 4,
    "kelvo.MaterialsWithTable().size() > 4": True,
    "str(kelvo.ErrorSentence(5, 0.)) != ''": True,
    "ROOT.geo.CellRow().fCount": 0,
    "int(ROOT.geo.kY)": 1,
}


def test_python_finds_every_name_without_further_declarations(run, libraries):
    code = f"import ROOT; kelvo = ROOT.kelvo; print([{', '.join(NAMES)}])"
    assert eval(run(sys.executable, "-c", code, **libraries)) == list(NAMES.values())


PATH = """
import numpy, ROOT
detector = ROOT.geo.PlaneDetector.FromText('''
name = "block"
world = "Vacuum"
[[material]]
name = "Vacuum"
density = 1e-25
[[material]]
name = "Steel"
density = 7.87
radiation_length = 1.7584
[[plane]]
name = "block"
view = "X"
count = 1
cell = { width = 10, length = 10, depth = 10 }
filling = "Steel"
[[stack]]
parts = ["block"]
''', "block")
path = ROOT.kelvo.Path(detector, numpy.array([0., 0, 0]), numpy.array([0., 0, 10]), 0.)
print(round(path.X0(10.) * 1.7584, 9))
"""


def test_python_lays_a_path_through_a_detector(run, libraries):
    assert run(sys.executable, "-c", PATH, **libraries).strip() == "10.0"


STORE = """
fit = ROOT.kelvo.TrackFit()
hypothesis = ROOT.kelvo.HypothesisFit()
hypothesis.fP = 1.5
hypothesis.fView[1].fKink.push_back(0.25)
fit.fHypothesis.push_back(hypothesis)
file = ROOT.TFile("fit.root", "RECREATE")
tree = ROOT.TTree("fits", "")
tree.Branch("fit", fit)
tree.Fill()
tree.Write()
file.Close()
"""
READ = """
file = ROOT.TFile("fit.root")
for entry in file.Get("fits"):
    print(entry.fit.fHypothesis[0].fP, entry.fit.fHypothesis[0].fView[1].fKink[0])
"""


def test_a_fit_is_stored_in_a_tree_and_read_in_another_process(run, libraries):
    run(sys.executable, "-c", "import ROOT" + STORE, **libraries)
    assert run(sys.executable, "-c", "import ROOT" + READ, **libraries).strip() == "1.5 0.25"
