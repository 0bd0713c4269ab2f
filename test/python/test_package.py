"""The package kelvo as a user meets it: silence, the classes over arrays, and their errors."""

import dataclasses
import inspect
import copy
import pickle
import re
import sys

import numpy as np
import pytest

import kelvo
from conftest import SOURCE

DETECTOR = f"{SOURCE}/detectors/fine.toml"


def test_the_import_prints_nothing_and_leaves_root_alone(run):
    """run() fails for anything on the standard error stream, with all warnings on."""
    code = "import kelvo, sys; assert 'ROOT' not in sys.modules"
    assert run(sys.executable, "-W", "always", "-c", code, env={"PYTHONWARNINGS": ""}) == ""


def test_the_first_use_prints_nothing_and_keeps_the_warnings_of_others(run):
    code = f"""
import kelvo, warnings
kelvo.PlaneDetector.FromFile({DETECTOR!r})
with warnings.catch_warnings(record=True) as caught:
    warnings.warn("mine")
print(len(caught))
"""
    assert run(sys.executable, "-W", "always", "-c", code, env={"PYTHONWARNINGS": ""}) == "1\n"


@pytest.fixture(params=[kelvo.Lutz, kelvo.KinkSmoother])
def line_fit(request):
    """A track with two kinks and its design matrix: columns intercept, slope, kinks."""
    random = np.random.default_rng(7)
    z = np.arange(0.0, 90, 10)
    s = np.array([25.0, 55.0])
    sigalpha = np.array([0.02, 0.03])
    sigx = random.uniform(0.1, 0.3, len(z))
    design = np.stack([np.ones_like(z), z, *(np.maximum(z - at, 0) for at in s)], axis=1)
    x = design @ [1, 0.1, 0.02, -0.03] + random.normal(0, sigx)
    fit = request.param(len(z), len(s))
    fit.SetMeasurements(z, x, sigx)
    fit.SetScatteringPlanes(s, sigalpha)
    return fit, z, x, sigx, sigalpha, design


def test_line_fits_are_those_of_least_squares(line_fit):
    fit, z, x, sigx, sigalpha, design = line_fit
    result = fit.Fit()
    # Kinks are measured as 0: two more rows.
    rows = np.vstack([design / sigx[:, None], [[0, 0, 1 / sigalpha[0], 0], [0, 0, 0, 1 / sigalpha[1]]]])
    values = np.concatenate([x / sigx, [0, 0]])
    expected, chi2 = np.linalg.lstsq(rows, values, rcond=None)[:2]
    np.testing.assert_allclose([result.x0, result.dxdz, *result.alpha], expected, rtol=1e-9)
    assert result.chi2 == pytest.approx(chi2[0])
    np.testing.assert_allclose(fit.Covariance(), np.linalg.inv(rows.T @ rows), rtol=1e-8)
    np.testing.assert_allclose(fit.X(z), design @ expected)
    np.testing.assert_allclose(fit.Chi2XIi(), ((x - design @ expected) / sigx) ** 2, rtol=1e-6)
    np.testing.assert_allclose(fit.Chi2BetaJ(), (expected[2:] / sigalpha) ** 2, rtol=1e-7)
    assert fit.Chi2XIi().sum() + fit.Chi2BetaJ().sum() == pytest.approx(result.chi2)
    assert (fit.Chi2XI(), fit.Chi2Beta()) == (
        pytest.approx(fit.Chi2XIi().sum()),
        pytest.approx(fit.Chi2BetaJ().sum()),
    )
    assert (fit.NMeas(), fit.NScat(), fit.NDOF(), fit.Succeeded()) == (9, 2, 7, True)


def test_calls_over_arrays_are_those_of_single_numbers(line_fit):
    fit, z, x, sigx, sigalpha, _ = line_fit
    fit.Fit()
    assert fit.X(z).tolist() == [fit.X(at) for at in z]
    assert fit.Chi2XIi().tolist() == [fit.Chi2XIi(i) for i in range(9)]
    assert fit.Chi2BetaJ().tolist() == [fit.Chi2BetaJ(j) for j in range(2)]
    again = type(fit)(9, 2)
    for i in range(9):
        again.SetMeasurement(i, z[i], x[i], sigx[i])
    for j, at in enumerate((25, 55)):
        again.SetScatteringPlane(j, at, sigalpha[j])
    assert again.Fit().chi2 == fit.Fit().chi2
    assert fit.X(np.zeros(0)).shape == (0,)


def test_a_fit_without_planes_is_a_straight_line():
    fit = kelvo.Lutz(3, 0)
    fit.SetMeasurements(np.array([0.0, 1, 2]), np.array([1.0, 3, 5]), np.full(3, 0.1))
    result = fit.Fit()
    assert (result.x0, result.dxdz) == (pytest.approx(1), pytest.approx(2))
    assert result.alpha.shape == fit.Chi2BetaJ().shape == (0,)


def test_the_variance_of_the_line_is_the_covariance_seen_there(line_fit):
    fit, z, *_, design = line_fit
    fit.Fit()
    expected = np.einsum("ij,jk,ik->i", design, fit.Covariance(), design)
    variance = fit.VarX(z) if isinstance(fit, kelvo.Lutz) else fit.At(z).var_x
    np.testing.assert_allclose(variance, expected, rtol=1e-8)


def test_the_smoother_tells_slopes_kinks_and_residuals():
    fit = kelvo.KinkSmoother(4, 1)
    z = np.array([0.0, 10, 20, 30])
    fit.SetMeasurements(z, np.array([0.0, 1, 3, 5]), np.full(4, 0.1))
    fit.SetScatteringPlanes(np.array([10.0]), np.array([np.inf]))
    assert fit.Status() == kelvo.KinkStatus.kNotFitted
    fit.Fit()
    assert fit.Status() == kelvo.KinkStatus.kSucceeded
    np.testing.assert_allclose(fit.Slope(np.array([5.0, 15])), [0.1, 0.2])
    np.testing.assert_allclose(fit.Kink(), [0.1])
    np.testing.assert_allclose(fit.XFit(), [0, 1, 3, 5], atol=1e-12)
    at = fit.At(np.array([5.0, 15]))
    assert [at.x[0], at.slope[1]] == [fit.At(5.0).x, fit.At(15.0).slope]
    start = fit.AtStart()
    assert (start.x, start.slope) == (pytest.approx(0, abs=1e-12), pytest.approx(0.1))
    assert fit.VarKink(0) == pytest.approx(fit.Covariance()[2, 2])
    residual = fit.Residual()
    assert len(residual.pull) == 4 and residual.leverage.sum() == pytest.approx(3)
    fit.SetWeightFactor(0, 0.5)
    assert fit.WeightFactor(0) == 0.5
    fit.Reset(3, 1)
    assert fit.NMeas() == 3
    assert np.isnan(fit.LogLikelihood())


HITS = {
    "view": np.array([0, 1, 0, 1]),
    "u": np.array([4.0, 2, 3, 1]),
    "z": np.array([30.0, 20, 10, 0]),
    "sigu": np.full(4, 0.3),
}


def test_the_linear_fit_takes_more_planes_than_measurements():
    fit = kelvo.KinkSmoother(3, 5)
    fit.SetMeasurements(np.array([0.0, 10, 20]), np.array([0.0, 1, 2]), np.full(3, 0.1))
    fit.SetScatteringPlanes(np.linspace(2, 18, 5), np.full(5, 0.01))
    fit.Fit()
    assert fit.X(30.0) == pytest.approx(3)  # straight through all three
    assert fit.Chi2XI() == pytest.approx(0, abs=1e-12)


def test_hits_are_sorted_and_completed():
    hits = kelvo.HitList3D(**HITS, t=np.arange(4.0))
    assert hits.columns()["x"].tolist() == [4, 0, 3, 0]
    assert hits.columns()["sigy"].tolist() == [0, 0.3, 0, 0.3]
    assert hits.columns()["w"].tolist() == [1] * 4
    hits.CompleteOrtho()
    columns = hits.columns()
    assert columns["z"].tolist() == [0, 10, 20, 30]
    assert columns["t"].tolist() == [3, 2, 1, 0]
    np.testing.assert_allclose(columns["x"], [2.5, 3, 3.5, 4])
    np.testing.assert_allclose(columns["y"], [1, 1.5, 2, 2.5])
    hits.SortByY()
    assert hits.columns()["z"].tolist() == [30, 20, 10, 0]
    nothing = np.zeros(0)
    assert len(kelvo.HitList3D(np.zeros(0, np.int64), nothing, nothing, nothing)) == 0


def test_a_basis_turns_points_into_the_track_frame_and_back():
    z = np.array([0.0, 10, 20])
    sigma = np.full(3, 0.1)
    basis = kelvo.TrackBasis()
    basis.MakeBasis(0.5 * z, 0 * z, z, sigma, sigma, sigma, origin=(1.0, 2.0, 3.0))
    axes = np.stack([basis.XAxis(), basis.YAxis(), basis.ZAxis()])
    np.testing.assert_allclose(axes @ axes.T, np.eye(3), atol=1e-15)
    np.testing.assert_allclose(basis.ZAxis(), np.array([0.5, 0, 1]) / np.sqrt(1.25))
    np.testing.assert_allclose(basis.ZAxis(), basis.FindAxis(0.5 * z, 0 * z, z, sigma, sigma, sigma))
    assert basis.Origin().tolist() == [1, 2, 3]
    there = basis.DetToTrk(0.5 * z, 0 * z, z, sigma, sigma, sigma)
    np.testing.assert_allclose(there[:3], axes @ np.stack([0.5 * z - 1, 0 * z - 2, z - 3]))
    back = basis.TrkToDet(*np.ascontiguousarray(there))
    np.testing.assert_allclose(back[:3], np.stack([0.5 * z, 0 * z, z]), atol=1e-12)
    np.testing.assert_array_equal(basis.DetToTrk(5.0, 0.0, 10.0, 0.1, 0.1, 0.1), there[:, 1])


def test_a_path_knows_length_and_energy():
    points = np.array([[0.0, 0, 0], [0, 3, 4], [0, 3, 14]])
    path = kelvo.Path(DETECTOR, points, s0=100.0)
    assert path.Length() == pytest.approx(15)
    np.testing.assert_allclose(path.Dir(101.0), [0, 0.6, 0.8])
    s = np.array([100.0, 107.0, 114.0])
    muon, pion, proton = path.MuonParams(s), path.PionParams(s), path.ProtonParams(s)
    assert np.all(np.diff(muon.T) < 0) and np.all(muon.T < pion.T) and np.all(pion.T < proton.T)
    # Energy at the end is 1 % of the mass; on the way it is what the particle loses from there.
    assert muon.T[0] == path.MuonParams(100.0).T
    np.testing.assert_allclose(muon.gamma, 1 + muon.T / 0.105658, rtol=1e-6)
    np.testing.assert_allclose(path.TPBG(muon.T, 0.105658), muon, rtol=1e-6)
    assert path.TPBG(3.0, 1.0).gamma == 4
    assert np.all(np.diff(path.X0(s)) > 0)
    path.SetPoint(2, np.array([0.0, 3, 4]))
    assert path.ScrubOne(1e-6) and path.Length() == pytest.approx(5)
    assert path.Interp(1.5, np.array([1.0, 2]), np.array([10.0, 20])) == 15
    assert path.IntegrateT(10.0, "Steel", 0.105658, 0.1) > 0.2


def test_energy_loss_is_that_of_a_minimum_ionising_particle():
    table = kelvo.dEdxTable("Steel")
    assert table(0.25, 0.105658) == pytest.approx(1.45e-3 * 7.87, rel=0.02)
    T = np.array([0.01, 0.1, 1])
    assert table(T, 0.105658).tolist() == [table(t, 0.105658) for t in T]
    assert table.BetaGammaToT(table.TtoBetaGamma(0.5, 0.1), 0.1) == pytest.approx(0.5)
    assert kelvo.dEdxTable.Knows("PVC") and not kelvo.dEdxTable.Knows("Gold")


def test_surfaces_lie_in_the_middle_of_their_steps():
    surfaces = kelvo.ScatteringSurfaces(13, max_ds=30, max_dx0=3, max_dt=100)
    end = np.array([0.0, 0, 80])
    surfaces.MakeSurfaces(DETECTOR, np.zeros(3), end, np.linspace(0, 80, 9))
    np.testing.assert_allclose(surfaces.S(), [15, 45, 70])
    assert surfaces.N() == 3 and np.all(np.diff(surfaces.SigAlpha()) > 0)
    path = kelvo.Path(DETECTOR, np.stack([np.zeros(3), end]))
    surfaces.MakeSteps(path, np.linspace(0, 80, 9))
    surfaces.ForceOnePlane(path, np.array([0.0, 60]))
    np.testing.assert_allclose(surfaces.S(), [15, 45, 70, 15, 45, 70, 30])
    assert surfaces.Width(1, 1, 1) == pytest.approx(0.0136 / np.sqrt(3))


def test_a_detector_tells_its_planes_and_materials():
    detector = kelvo.PlaneDetector.FromFile(DETECTOR)
    assert detector.Name() == "fine"
    planes = detector.Planes()
    assert [plane.view for plane in planes[:2]] == ["X", "Y"]
    nearest = planes[detector.NearestPlane(100.0)]
    assert nearest.z_low - 1 < 100 < nearest.z_high + 1
    p0, p1 = np.zeros(3), np.array([1.0, 2, 70])
    ds, materials = detector.MaterialsBetweenPoints(p0, p1)
    assert len(ds) == len(materials) and ds.sum() == pytest.approx(np.linalg.norm(p1))
    for found in detector.ThicknessBetweenPoints(p0, p1):
        steps = [d for d, name in zip(ds, materials) if name == found.material]
        assert found.length == pytest.approx(sum(steps))
        assert found.material in detector.MaterialNames()
    assert kelvo.PlaneDetector.FromText(detector.Text()).Name() == "fine"


def test_options_have_the_defaults_of_the_library():
    from kelvo._root import cpp

    ours, library = kelvo.TrackFitOptions()._to_cpp(), cpp().TrackFitOptions()
    names = (
        "fScatteringFactor fBeyondLastHit fBeamMomentum fSigBeamMomentum fWithPlanes fEnd "
        "fScatteringMomentum fRobust fReject"
    )
    for name in names.split():
        assert getattr(ours, name) == getattr(library, name), name
    assert list(ours.fHypotheses) == list(library.fHypotheses)


def test_functions_show_the_options_of_a_fit():
    fields = inspect.signature(kelvo.TrackFitOptions).parameters.values()
    for function in kelvo.fit_tracks, kelvo.define_fit:
        shown = inspect.signature(function).parameters
        for field in fields:
            assert shown[field.name].default == field.default
            assert shown[field.name].kind is inspect.Parameter.KEYWORD_ONLY
        assert "fit_options" not in shown
    with pytest.raises(TypeError, match="unexpected keyword argument 'max_d'"):
        kelvo.fit_tracks("hits.csv", DETECTOR, max_d=30)


def test_codes_are_those_of_the_library():
    from kelvo._root import cpp

    for code in kelvo.ErrorCode:
        assert getattr(cpp(), code.name) == code


@pytest.fixture(scope="module")
def track():
    random = np.random.default_rng(1)
    z = 3 + 6.05 * np.arange(20)
    u = 50 + 0.1 * z + random.normal(0, 0.3, 20)
    return kelvo.HitList3D(np.arange(20) % 2, u, z, np.full(20, 0.3))


def test_one_track_is_fitted_under_each_hypothesis(track):
    fitter = kelvo.TrackFitter(DETECTOR, kelvo.TrackFitOptions(("mu", 2212)))
    fit = fitter.Fit(track)
    assert [h.pdg for h in fit.hypotheses] == [13, 2212]
    best = fit.best
    assert best is not None and best.best and best.status == 0 and best.message == ""
    np.testing.assert_array_equal(best.hit_z, track.columns()["z"])
    np.testing.assert_allclose(best.residual, best.hit_u - best.fit_u, atol=1e-5)
    assert len(best.cov) == 10 and len(best.kink_x) == len(best.plane_s)
    assert fitter.Options().hypotheses == ("mu", 2212)


def test_a_track_that_cannot_be_fitted_says_why():
    one = np.ones(1)
    fit = kelvo.TrackFitter(DETECTOR).Fit(kelvo.HitList3D(np.array([0]), one, one, one))
    assert fit.best is None
    assert fit.hypotheses[0].status == 1 and np.isnan(fit.hypotheses[0].p)
    assert fit.hypotheses[0].message == "view X has 1 hit; a fit needs two or more in each view"


def test_options_and_results_travel_between_processes(track):
    options = kelvo.TrackFitOptions(beyond_last_hit=0.4)
    assert pickle.loads(pickle.dumps(options)) == options
    fit = kelvo.TrackFitter(DETECTOR, options).Fit(track)
    for field in dataclasses.fields(kelvo.HypothesisFit):
        before, after = (getattr(f.best, field.name) for f in (fit, pickle.loads(pickle.dumps(fit))))
        np.testing.assert_array_equal(before, after, field.name)
    detector = pickle.loads(pickle.dumps(kelvo.PlaneDetector.FromFile(DETECTOR)))
    again = kelvo.TrackFitter(detector, options).Fit(pickle.loads(pickle.dumps(track)))
    assert again.best.p == fit.best.p
    lines = kelvo.Lutz(3, 1).Fit()
    assert pickle.loads(pickle.dumps(lines)).chi2 == lines.chi2
    error = pickle.loads(pickle.dumps(kelvo.Error("no", kelvo.ErrorCode.kNaN, 1.0)))
    assert (str(error), error.code, error.value) == ("no", 5, 1.0)


def test_every_object_can_be_copied_or_says_that_it_cannot(track):
    fitter = kelvo.TrackFitter(DETECTOR, kelvo.TrackFitOptions(beyond_last_hit=0.4))
    table = kelvo.dEdxTable("Steel")
    for again in (copy.copy, copy.deepcopy, lambda x: pickle.loads(pickle.dumps(x))):
        assert again(fitter).Fit(track).best.p == fitter.Fit(track).best.p
        assert again(table)(0.5, 0.1) == table(0.5, 0.1)
        for other in (kelvo.Lutz(3, 1), kelvo.KinkSmoother(3, 1), kelvo.TrackBasis(),
                      kelvo.ScatteringSurfaces(13, 30, 3, 0.3),
                      kelvo.Path(DETECTOR, np.array([[0.0, 0, 0], [0, 0, 1]]))):
            with pytest.raises(kelvo.Error, match="cannot be copied or pickled"):
                again(other)


def fit33():
    return kelvo.Lutz(3, 1)


THREE = np.ones(3)

def test_a_problem_larger_than_the_memory_is_refused():
    with pytest.raises(kelvo.Error, match=r"need \d+ GB, and this machine has \d+; KinkSmoother"):
        kelvo.Lutz(2_000_000, 1_000_000)


# What a user does wrong, and what they read: code, value, sentence.
MISTAKES = [
    (lambda: fit33().SetMeasurements(THREE.astype(np.float32), THREE, THREE), None, None,
     "z is float32; kelvo takes float64: z.astype(np.float64)"),
    (lambda: fit33().SetMeasurements(THREE, np.arange(3), THREE), None, None,
     "x is int64; kelvo takes float64: x.astype(np.float64)"),
    (lambda: fit33().SetMeasurements(np.ones(6)[::2], THREE, THREE), None, None,
     "z is strided; kelvo takes contiguous arrays: np.ascontiguousarray(z)"),
    (lambda: fit33().SetMeasurements([1, 2, 3], THREE, THREE), None, None,
     "z is a list; kelvo takes a NumPy array of float64: np.array(z, dtype=np.float64)"),
    (lambda: fit33().SetMeasurements(THREE, THREE, np.ones(4)), None, None,
     "sigx has the shape (4,); kelvo takes (3) here"),
    (lambda: fit33().X(np.ones((2, 2))), None, None, "z has the shape (2, 2); kelvo takes (n) here"),
    (lambda: fit33().X("3"), None, None,
     "z is a str; kelvo takes a NumPy array of float64: np.array(z, dtype=np.float64)"),
    (lambda: fit33().SetMeasurement(0, "a", 1, 1), None, None,
     "z is 'a'; it must be a number"),
    (lambda: fit33().SetMeasurement(3, 1, 1, 1), 4, 0, "i is 3; it must be from 0 to 2"),
    (lambda: kelvo.Lutz(3, 0).Chi2BetaJ(0), 4, 0, "j is 0; there is none"),
    (lambda: fit33().SetMeasurement(0, 1, 1, -0.5), 6, -0.5,
     "the uncertainty of a measurement is -0.5 cm; it must be above 0"),
    (lambda: fit33().SetMeasurements(THREE, THREE, np.zeros(3)), 6, 0,
     "the uncertainty of a measurement is 0 cm; it must be above 0"),
    (lambda: fit33().SetMeasurement(0, float("nan"), 1, 1), 5, 0,
     "a position, coordinate or uncertainty is not a number (NaN)"),
    (lambda: fit33().SetScatteringPlanes(np.ones(1), np.zeros(1)), 7, 0,
     "the width of a scattering angle is 0 rad; it must be above 0"),
    (lambda: kelvo.Lutz(2, 2), 3, 0,
     "there are 2 measurements and 2 scattering planes; this fit needs more measurements than planes"),
    (lambda: kelvo.Lutz(2**31, 0), None, None,
     "nmeas is 2147483648; it must be a whole number from 0 to 2147483647"),
    (lambda: kelvo.KinkSmoother(2**32 + 5, 0), None, None,
     "nmeas is 4294967301; it must be a whole number from 0 to 2147483647"),
    (lambda: kelvo.Lutz(2.5, 2), None, None, "nmeas is 2.5; it must be a whole number from 0 to 2147483647"),
    (lambda: kelvo.KinkSmoother(3, 1).SetWeightFactor(0, 2), 4, 0, "factor is 2; it must be from 0 to 1"),
    (lambda: kelvo.HitList3D(np.array([0, 2]), np.ones(2), np.ones(2), np.ones(2)), None, None,
     "view[1] is 2; it must be 0 (X) or 1 (Y)"),
    (lambda: kelvo.HitList3D(np.zeros(2, np.int32), np.ones(2), np.ones(2), np.ones(2)), None, None,
     "view is int32; kelvo takes int64: view.astype(np.int64)"),
    (lambda: kelvo.TrackBasis().DetToTrk(1.0, 2.0), None, None,
     "a point has 2 values; it must have six: x, y, z, dx, dy, dz"),
    (lambda: kelvo.Path(DETECTOR, np.ones((1, 3))), None, None,
     "points has 1 rows; a path needs two or more"),
    (lambda: kelvo.Path(DETECTOR, np.ones((4, 2))), None, None,
     "points has the shape (4, 2); kelvo takes (n, 3) here"),
    (lambda: kelvo.Path(DETECTOR, np.ones((2, 3))).MuonParams(1.0), 4, 0,
     "the path has no material step; its points coincide"),
    (lambda: kelvo.Path.TPBG(-1.0, 0.1), 1, -1,
     "a kinetic energy is below 0; T must be 0 or above"),
    (lambda: kelvo.Path.Interp(1.0, np.ones(1), np.ones(1)), 4, 0, "xs has 1 values; it needs two or more"),
    (lambda: kelvo.dEdxTable("Gold"), None, None,
     "'Gold' has no stopping-power table; the known materials are Scintillator, PVC, Glue, Steel, "
     "Vacuum"),
    (lambda: kelvo.ScatteringSurfaces(11, 1, 1, 1), None, None,
     "pdg is 11; it must be 13 (muon), 211 (pion) or 2212 (proton)"),
    (lambda: kelvo.ScatteringSurfaces(13, 1, 1, 1).MakeSurfaces(DETECTOR, THREE, 2 * THREE, np.ones(0)),
     4, 0, "s is empty; it needs the position of p0 at least"),
    (lambda: kelvo.ScatteringSurfaces(13, 1, 1, 1).MakeSurfaces(DETECTOR, THREE, 1e6 * THREE, THREE),
     None, None, "p1 has 1e+06 cm; coordinates lie within +-100000 cm"),
    (lambda: kelvo.ScatteringSurfaces(13, 1, 1, 1).MakeSurfaces(DETECTOR, THREE, 2 * THREE, 7e302 * THREE),
     None, None, "s has 7e+302 cm; coordinates lie within +-100000 cm"),
    (lambda: kelvo.Path(DETECTOR, np.array([[0.0, 0, 0], [0, 0, -1e9]])), None, None,
     "points has -1e+09 cm; coordinates lie within +-100000 cm"),
    (lambda: kelvo.TrackFitter(DETECTOR, kelvo.TrackFitOptions(scattering_factor=-1)), None, None,
     "scattering_factor is -1; it must be above 0 and at most 100"),
    (lambda: kelvo.TrackFitter(DETECTOR, kelvo.TrackFitOptions(beam_momentum="a")), None, None,
     "beam_momentum is 'a'; it must be a number"),
    (lambda: kelvo.TrackFitter(DETECTOR, kelvo.TrackFitOptions(("e",))), None, None,
     "hypothesis 'e' is none of mu, pi, p, mu-, mu+, pi+, pi-, p~"),
    (lambda: kelvo.TrackFitter(DETECTOR).Fit([1, 2]), None, None,
     "hits is a list; TrackFitter.Fit takes a kelvo.HitList3D"),
    (lambda: kelvo.TrackFitter(3), None, None,
     "detector is a int; kelvo takes the name of a detector's file, a kelvo.PlaneDetector, or a "
     "geo::GeometryBase of C++"),
    (lambda: kelvo.PlaneDetector.FromFile("nowhere.toml"), None, None,
     'cannot read the detector file "nowhere.toml": No such file or directory'),
]


# Twice: a call that succeeded before must not change what a mistake says.
@pytest.mark.parametrize("again", [False, True])
@pytest.mark.parametrize("mistake, code, value, sentence", MISTAKES, ids=[m[3][:30] for m in MISTAKES])
def test_mistakes_are_told_in_one_sentence(mistake, code, value, sentence, again, track):
    kelvo.TrackFitter(DETECTOR).Fit(track)
    with pytest.raises(kelvo.Error) as told:
        mistake()
    assert (str(told.value), told.value.code, told.value.value) == (sentence, code, value)
    assert not re.search("std::|overload|TypeError|=>", str(told.value))


def test_every_code_has_a_sentence():
    from kelvo._root import call, cpp, root

    root().gInterpreter.Declare(
        'namespace kelvo { void Throw(unsigned c) { throw KelvoException("f", 1, c, 2.5); } }'
    )
    for code in kelvo.ErrorCode:
        with pytest.raises(kelvo.Error) as told:
            call(cpp().Throw, int(code))
        assert (told.value.code, told.value.value) == (code, 2.5)
        assert str(told.value) == str(cpp().ErrorSentence(int(code), 2.5))
        assert "unknown error" not in str(told.value)
