// The fitted track beside its hits: against KinkSmoother, against fits of fewer hits, and against
// the truth of simulated tracks.

#include "fit/KinkSmoother.h"
#include "sim/Simulator.h"
#include "track/TrackFitter.h"

#include "test/support/BlockTracks.h"
#include "test/support/BundledDetector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using kelvo::CrossedPlane;
using kelvo::FitStatus;
using kelvo::Hit3D;
using kelvo::HitFit;
using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::KinkPoint;
using kelvo::KinkSmoother;
using kelvo::LineAt;
using kelvo::PlaceFit;
using kelvo::SimulatedTrack;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kTracks = 200;
#else
constexpr int kTracks = 1000;
#endif

/// Returns the fit of one view with the planes of another fit.
/// @param without hits that are left out
KinkSmoother FittedView(const HypothesisFit& fit, int view, double without) {
  std::vector<double> z, u, sig, s, width;
  for (const HitFit& hit : fit.fHit) {
    if (hit.fView != view || hit.fZ == without) continue;
    z.push_back(hit.fZ);
    u.push_back(hit.fU);
    sig.push_back(hit.fSigU);
  }
  for (std::size_t j = 0; j < fit.fPlaneS.size(); j++) {
    s.push_back(fit.fPlanePoint[j].Z());
    width.push_back(fit.fPlaneSigAlpha[j]);
  }
  KinkSmoother smoother(1, 0);
  smoother.Load(static_cast<unsigned>(z.size()), z.data(), u.data(), sig.data(),
                static_cast<unsigned>(s.size()), s.data(), width.data());
  smoother.Fit(nullptr, nullptr, nullptr, nullptr);
  return smoother;
}

void ExpectPoint(const LineAt& line, const KinkPoint& expected) {
  constexpr double kAccuracy = 1e-5; // a course at an angle changes what a kink does to a slope
  const double sigU = std::sqrt(expected.fVarX), sigSlope = std::sqrt(expected.fVarSlope);
  EXPECT_NEAR((line.fU - expected.fX) / sigU, 0, kAccuracy);
  EXPECT_NEAR((line.fSlope - expected.fSlope) / sigSlope, 0, kAccuracy);
  EXPECT_NEAR(line.fSigU / sigU, 1, kAccuracy);
  EXPECT_NEAR(line.fSigSlope / sigSlope, 1, kAccuracy);
  EXPECT_NEAR((line.fCov - expected.fCovXSlope) / (sigU * sigSlope), 0, kAccuracy);
}

/// Hits of both views in each of n planes, along z.
HitList3D Pairs(int n) {
  HitList3D hits;
  for (int i = 0; i < n; i++) {
    AddX(hits, 3 + 0.1 * Wiggle(2 * i), 50 + kSpacing * i);
    AddY(hits, -2 + 0.1 * Wiggle(2 * i + 1), 50 + kSpacing * i);
  }
  return hits;
}

TEST(TrackFitterStates, LinesAtAnyPlaceAreThoseOfTheViewsWithAndWithoutTheHitsThere) {
  TrackFitOptions options;
  options.fBeamMomentum = 1;
  options.fHypotheses = {13, 2212};
  options.fWithPlanes = true;
  const std::vector<double> places = {40, 50, 51, 52.5, 56, 80, 81.9, 86, 104, 107};
  for (const double z : places) options.fAt.push_back("z=" + std::to_string(z));
  const kelvo::TrackFit track = TrackFitter(Block(), options).Fit(Pairs(10));
  for (const HypothesisFit& fit : track.fHypothesis) {
    ASSERT_EQ(fit.fPlace.size(), places.size());
    for (std::size_t k = 0; k < places.size(); k++) {
      SCOPED_TRACE(places[k]);
      const PlaceFit& place = fit.fPlace[k];
      EXPECT_EQ(place.fZ, places[k]);
      for (int view : {0, 1}) {
        const auto v = static_cast<std::size_t>(view);
        ExpectPoint(place.fView[v], FittedView(fit, view, kNaN).At(places[k]));
        ExpectPoint(place.fOthers[v], FittedView(fit, view, places[k]).At(places[k]));
      }
    }
  }
}

TEST(TrackFitterStates, LinesDoNotChangeTheFit) {
  const HitList3D hits = Hits({3, -2, 0.2, -0.1}, 40, Wiggle);
  TrackFitOptions options;
  TrackFitter plain(Block(), options);
  options.fAt = {"z=100", "z=3", "z=500"};
  options.fCrossings = true; // of which a geometry without planes knows nothing
  TrackFitter asked(Block(), options);
  const kelvo::TrackFit fit = asked.Fit(hits), expected = plain.Fit(hits);
  for (std::size_t h = 0; h < fit.fHypothesis.size(); h++) {
    ExpectSameNumbers(fit.fHypothesis[h], expected.fHypothesis[h]);
    EXPECT_TRUE(fit.fHypothesis[h].fCrossing.empty());
  }
}

TEST(TrackFitterStates, WithoutEnoughOtherHitsThereIsNoLine) {
  HitList3D hits;
  for (const double z : {50., 80.}) {
    AddX(hits, 1, z);
    AddY(hits, 2, z + 6);
  }
  TrackFitOptions options;
  options.fAt = {"z=50"};
  const PlaceFit place = TrackFitter(Block(), options).Fit(hits).fHypothesis[0].fPlace.at(0);
  EXPECT_NEAR(place.fView[0].fU, 1, kRounding);
  EXPECT_TRUE(std::isnan(place.fOthers[0].fU));
  EXPECT_TRUE(std::isnan(place.fOthers[0].fSigU));
  EXPECT_NEAR(place.fOthers[1].fU, 2, kRounding);
}

/// Hits in the first n planes of a detector, along a line.
HitList3D HitsIn(const geo::PlaneDetector& detector, const Line& line, unsigned n) {
  HitList3D hits;
  for (unsigned p = 0; p < n; p++) {
    const geo::ActivePlane& plane = detector.Planes()[p];
    const double z = plane.ZMid(), noise = 0.1 * std::sin(7. * p);
    if (plane.Measures(0)) AddX(hits, line.X(z) + noise, z, plane.fCells[0].fResolution);
    if (plane.Measures(1)) AddY(hits, line.Y(z) - noise, z, plane.fCells[1].fResolution);
  }
  return hits;
}

TEST(TrackFitterStates, ExcludedPlanesLeaveTheFitOfTheOthers) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  const HitList3D hits = HitsIn(detector, {3, -2, 0.1, -0.2}, 60);
  TrackFitOptions options;
  options.fEnd = kelvo::TrackEndMode::kStops;
  TrackFitter plain(detector, options);
  options.fExclude = {"7", "20", "59"};
  options.fAt = {"7", "20"};
  TrackFitter excluding(detector, options);
  const kelvo::TrackFit fit = excluding.Fit(hits);
  EXPECT_EQ(fit.fOutliers, 0u);
  HitList3D others;
  for (std::size_t i = 0; i < hits.size(); i++)
    if (i != 7 && i != 20 && i != 59) others.push_back(hits[i]);
  const kelvo::TrackFit expected = plain.Fit(others);
  for (std::size_t h = 0; h < 3; h++) {
    const HypothesisFit& f = fit.fHypothesis[h];
    EXPECT_EQ(f.fP, expected.fHypothesis[h].fP);
    EXPECT_EQ(f.fLogLikelihood, expected.fHypothesis[h].fLogLikelihood);
    EXPECT_EQ(f.fCov, expected.fHypothesis[h].fCov);
    ASSERT_EQ(f.fHit.size(), 60u);
    const std::size_t device[] = {7, 20};
    for (std::size_t k = 0; k < 2; k++) {
      const HitFit& hit = f.fHit[device[k]];
      const LineAt& line = f.fPlace[k].fView[static_cast<std::size_t>(hit.fView)];
      EXPECT_EQ(hit.fWeight, 0);
      EXPECT_EQ(hit.fFitU, line.fU);
      EXPECT_EQ(hit.fFitSigU, line.fSigU);
      EXPECT_EQ(hit.fUnbiased, hit.fU - line.fU);
      EXPECT_EQ(line.fU, f.fPlace[k].fOthers[static_cast<std::size_t>(hit.fView)].fU);
    }
  }
}

TEST(TrackFitterStates, UnbiasedResidualsAreThoseBesideAFitWithoutTheHit) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  const HitList3D hits = HitsIn(detector, {3, -2, 0.1, -0.2}, 20);
  TrackFitOptions options;
  options.fBeamMomentum = 5; // the same widths without the hit
  options.fHypotheses = {13};
  const HypothesisFit fit = TrackFitter(detector, options).Fit(hits).fHypothesis[0];
  for (unsigned p = 0; p < 20; p++) {
    options.fExclude = {std::to_string(p)};
    const HitFit without = TrackFitter(detector, options).Fit(hits).fHypothesis[0].fHit[p];
    EXPECT_NEAR(fit.fHit[p].fUnbiased / without.fUnbiased, 1, 0.01);
    EXPECT_NEAR(fit.fHit[p].fSigUnbiased / without.fSigUnbiased, 1, 0.01);
    EXPECT_NEAR(fit.fHit[p].fPull, without.fPull, 0.01);
  }
}

/// Mean and width of pulls.
struct Pulls {
  double fSum = 0, fSum2 = 0, fN = 0;
  void Add(double pull) {
    fSum += pull;
    fSum2 += pull * pull;
    fN++;
  }
  void ExpectStandard() const {
    EXPECT_NEAR(fSum / fN, 0, 4.5 / std::sqrt(fN));
    EXPECT_NEAR(std::sqrt(fSum2 / fN), 1, 4.5 / std::sqrt(2 * fN));
  }
};

TEST(TrackFitterStates, PullsOfADeviceUnderTestAreStandard) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  kelvo::SimulationOptions muons;
  muons.fKineticEnergy = {0.8, 1.2};
  muons.fScattering = kelvo::ScatteringModel::kFit;
  muons.fHits = kelvo::HitModel::kGaussian;
  muons.fStart[2] = {0, 0};
  kelvo::Simulator simulator(detector, muons);
  TrackFitOptions options = muons.fFit;
  options.fHypotheses = {13};
  options.fEnd = kelvo::TrackEndMode::kStops;
  options.fScatteringMomentum = false;
  options.fExclude = {"20"};
  options.fAt = {"20"};
  TrackFitter fitter(detector, options);
  Pulls u, slope, sum, residual;
  for (int t = 0; t < kTracks; t++) {
    const SimulatedTrack track = simulator.Make(t);
    const HypothesisFit fit = fitter.Fit(track.Hits()).fHypothesis[0];
    ASSERT_EQ(fit.fStatus, FitStatus::kFitted) << fit.fMessage;
    const PlaceFit& place = fit.fPlace[0];
    for (std::size_t i = 0; i < track.fHits.size(); i++) {
      const kelvo::SimulatedHit& hit = track.fHits[i];
      if (fit.fHit[i].fWeight > 0) continue;
      const LineAt& line = place.fOthers[static_cast<std::size_t>(hit.fView)];
      const double du = line.fU - hit.fTrue[hit.fView], ds = line.fSlope - hit.fSlope[hit.fView];
      u.Add(du / line.fSigU);
      slope.Add(ds / line.fSigSlope);
      // A sum tells whether the covariance is right.
      const double l = line.fSigU / line.fSigSlope;
      sum.Add((du + l * ds) / std::sqrt(2 * line.fSigU * line.fSigU + 2 * l * line.fCov));
      residual.Add(fit.fHit[i].fUnbiased / fit.fHit[i].fSigUnbiased);
    }
  }
  for (const Pulls& pulls : {u, slope, sum, residual}) pulls.ExpectStandard();
}

TEST(TrackFitterStates, CrossingsTellWhichPlanesOfABeamHaveAHit) {
  const geo::PlaneDetector& detector = BundledDetector("telescope");
  kelvo::SimulationOptions beam;
  beam.fPDG = 211;
  beam.fBeamMomentum = 5;
  beam.fHits = kelvo::HitModel::kGaussian;
  beam.fSigma = 0.0015;
  beam.fSpot = 0.2;
  beam.fEfficiency = 0.9;
  kelvo::Simulator simulator(detector, beam);
  TrackFitOptions options;
  options.fHypotheses = {211};
  options.fBeamMomentum = 5;
  options.fCrossings = true;
  TrackFitter fitter(detector, options);
  for (int t = 0; t < kTracks; t++) {
    SimulatedTrack track = simulator.Make(t);
    HitList3D hits = track.Hits();
    bool has[4] = {};
    for (const kelvo::SimulatedHit& hit : track.fHits) has[std::lround(hit.fZ)] = true;
    const HypothesisFit fit = fitter.Fit(hits).fHypothesis[0];
    ASSERT_EQ(fit.fCrossing.size(), 8u);
    for (const CrossedPlane& crossing : fit.fCrossing)
      EXPECT_EQ(crossing.fFound, has[crossing.fPlane]);
  }
}

TEST(TrackFitterStates, AHitFarFromTheCrossingIsNotThatOfThePlane) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  TrackFitOptions options;
  options.fCrossings = true;
  HitList3D hits = HitsIn(detector, {3, -2, 0, 0}, 30);
  hits[12].fX += 10; // 8 standard deviations
  for (const double reject : {0., 4.}) {
    options.fReject = reject;
    const HypothesisFit fit = TrackFitter(detector, options).Fit(hits).fHypothesis[0];
    ASSERT_EQ(fit.fCrossing.size(), 28u);
    for (const CrossedPlane& crossing : fit.fCrossing)
      EXPECT_EQ(crossing.fFound, crossing.fPlane != 12);
  }
}

TEST(TrackFitterStates, CrossingsAreBetweenTheHitsOfAParticleThatStopsAndWithinTheCells) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  TrackFitOptions options;
  options.fCrossings = true;
  TrackFitter fitter(detector, options);
  HitList3D hits = HitsIn(detector, {3, -2, 0, 0}, 30), kept;
  for (std::size_t i = 4; i < hits.size(); i++)
    if (i != 12) kept.push_back(hits[i]);
  const HypothesisFit inside = fitter.Fit(kept).fHypothesis[0];
  ASSERT_EQ(inside.fCrossing.size(), 24u);
  for (const CrossedPlane& crossing : inside.fCrossing)
    EXPECT_EQ(crossing.fFound, crossing.fPlane != 12);
  EXPECT_EQ(inside.fCrossing.front().fPlane, 5u);
  EXPECT_EQ(inside.fCrossing.back().fPlane, 28u);
  const HypothesisFit atEdge = fitter.Fit(HitsIn(detector, {69, -2, 0, 0}, 30)).fHypothesis[0];
  EXPECT_TRUE(atEdge.fCrossing.empty()); // three sigma more, and it passes by
}

TEST(TrackFitterStates, WhatIsNoPlaceIsRefused) {
  const auto text = [](const geo::GeometryBase& geometry, const TrackFitOptions& options) {
    try {
      const TrackFitter fitter(geometry, options);
      return std::string("no error");
    } catch (const std::invalid_argument& e) {
      return std::string(e.what());
    }
  };
  TrackFitOptions options;
  options.fAt = {"z=1o"};
  EXPECT_EQ(text(Block(), options), "\"z=1o\" is no place along z [cm], such as z=12.5");
  options.fAt = {"z=1e9"};
  EXPECT_EQ(text(Block(), options), "\"z=1e9\" is no place along z [cm], such as z=12.5");
  options.fAt = {"3"};
  EXPECT_EQ(text(Block(), options),
            "the plane \"3\" is asked for, but the detector does not tell its planes; give a place "
            "along z, such as z=12.5");
  for (const char* name : {"128", "-1", "1.5", "x cells"}) {
    options.fAt = {name};
    EXPECT_EQ(text(BundledDetector("fine"), options),
              std::string("\"") + name +
                  "\" is not the number, from 0 to 127, or name of one plane of the detector; "
                  "planes that share a name go by their numbers");
  }
  options.fAt = {};
  options.fExclude = {"z=3"};
  EXPECT_EQ(text(BundledDetector("fine"), options),
            "\"z=3\" is not the number, from 0 to 127, or name of one plane of the detector; "
            "planes that share a name go by their numbers");
}

} // namespace
