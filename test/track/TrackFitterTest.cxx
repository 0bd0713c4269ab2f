// The numbers of a fit against straight lines and range integrals in closed or elementary form, and
// relations that a fit must obey. Statistics with simulated tracks are in TrackFitterTruthTest,
// what cannot be fitted in TrackFitterRefusalTest, beams in TrackFitterBeamTest.

#include "track/TrackFitter.h"

#include "func/dEdxTable.h"
#include "test/support/BlockTracks.h"
#include "test/support/KinkReference.h"

#include <TMath.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

TrackFitOptions WithPlanes() {
  TrackFitOptions options;
  options.fWithPlanes = true;
  return options;
}

TEST(TrackFitter, AStraightTrackHasNoKinksAndIsFound) {
  TrackFitter fitter(Block(), WithPlanes());
  for (const Line& line : {Line{3, -2, 0, 0}, Line{3, -2, 0.4, -0.7}, Line{-60, 5, 1.2, 0.9}}) {
    const TrackFit fit = fitter.Fit(Hits(line, 40));
    ASSERT_TRUE(fit.Fitted());
    for (const HypothesisFit& h : fit.fHypothesis) {
      ExpectNear(h.fPosition, TVector3(line.X(50), line.Y(50), 50), kRounding);
      ExpectNear(h.fDirection, TVector3(line.fDxDz, line.fDyDz, 1).Unit(), kRounding);
      EXPECT_GT(h.fPlaneS.size(), 4u);
      for (const kelvo::ViewFit& view : h.fView)
        for (double kink : view.fKink) EXPECT_NEAR(kink, 0, kRounding);
      for (const kelvo::HitFit& hit : h.fHit) EXPECT_NEAR(hit.fPull, 0, 1e-7);
      for (const TVector3& p : h.fPlanePoint)
        ExpectNear(p, TVector3(line.X(p.Z()), line.Y(p.Z()), p.Z()), kRounding);
      EXPECT_NEAR(h.fProb, 1, 1e-12);
    }
  }
}

TEST(TrackFitter, AMirroredTrackGivesAMirroredFit) {
  TrackFitter fitter(Block(), WithPlanes());
  const Line line{3, -2, 0.2, 0.3}, mirrored{-3, -2, -0.2, 0.3};
  const TrackFit a = fitter.Fit(Hits(line, 40, Wiggle));
  const TrackFit b =
      fitter.Fit(Hits(mirrored, 40, [](int i) { return i % 2 == 0 ? -Wiggle(i) : Wiggle(i); }));
  ASSERT_TRUE(a.Fitted() && b.Fitted());
  for (std::size_t h = 0; h < 3; h++) {
    const HypothesisFit &f = a.fHypothesis[h], &g = b.fHypothesis[h];
    EXPECT_NEAR(g.fPosition.X(), -f.fPosition.X(), kRounding);
    EXPECT_NEAR(g.fPosition.Y(), f.fPosition.Y(), kRounding);
    EXPECT_NEAR(g.fDirection.X(), -f.fDirection.X(), kRounding);
    EXPECT_NEAR(g.fDirection.Y(), f.fDirection.Y(), kRounding);
    EXPECT_NEAR(g.fLogLikelihood, f.fLogLikelihood, 1e-6);
    EXPECT_NEAR(g.fP, f.fP, 1e-6);
    ASSERT_EQ(g.fPlaneS.size(), f.fPlaneS.size());
    for (std::size_t j = 0; j < f.fPlaneS.size(); j++)
      EXPECT_NEAR(g.fView[0].fKink[j], -f.fView[0].fKink[j], kRounding);
  }
}

TEST(TrackFitter, AShiftedTrackGivesAShiftedFit) {
  TrackFitter fitter(Block());
  const TrackFit a = fitter.Fit(Hits({3, -2, 0.2, 0.3}, 40, Wiggle));
  const TrackFit b = fitter.Fit(Hits({103, -52, 0.2, 0.3}, 40, Wiggle));
  ASSERT_TRUE(a.Fitted() && b.Fitted());
  for (std::size_t h = 0; h < 3; h++) {
    const HypothesisFit &f = a.fHypothesis[h], &g = b.fHypothesis[h];
    ExpectNear(g.fPosition, f.fPosition + TVector3(100, -50, 0), kRounding);
    ExpectNear(g.fDirection, f.fDirection, kRounding);
    EXPECT_NEAR(g.fLogLikelihood, f.fLogLikelihood, 1e-6);
    EXPECT_NEAR(g.fP, f.fP, 1e-6);
  }
}

TEST(TrackFitter, TheOrderOfTheHitsDoesNotMatter) {
  TrackFitter fitter(Block());
  HitList3D hits = Hits({3, -2, 0.2, 0.3}, 40, Wiggle);
  AddX(hits, 13, 50); // two hits in one plane
  const TrackFit a = fitter.Fit(hits);
  std::mt19937_64 random(1);
  std::shuffle(hits.begin(), hits.end(), random);
  const TrackFit b = fitter.Fit(hits);
  ASSERT_TRUE(a.Fitted());
  for (std::size_t h = 0; h < 3; h++) ExpectSameNumbers(a.fHypothesis[h], b.fHypothesis[h]);
}

TEST(TrackFitter, AFitDoesNotDependOnTheOneBeforeIt) {
  const HitList3D hits = Hits({3, -2, 0.2, 0.3}, 40, Wiggle);
  TrackFitter fresh(Block()), used(Block());
  TrackFit out;
  used.Fit(Hits({1, 1, -1, 0.5}, 80, Wiggle), out);
  used.Fit(Hits({1, 1, 0, 0}, 1), out);
  EXPECT_FALSE(out.Fitted());
  used.Fit(hits, out);
  TrackFitter copy(used);
  const TrackFit expected = fresh.Fit(hits), copied = copy.Fit(hits);
  for (std::size_t h = 0; h < 3; h++) {
    ExpectSameNumbers(expected.fHypothesis[h], out.fHypothesis[h]);
    ExpectSameNumbers(expected.fHypothesis[h], copied.fHypothesis[h]);
    EXPECT_EQ(out.fHypothesis[h].fMessage, "");
  }
}

/// The problem of one view that a fit solved, from what it tells of its planes.
reference::Problem ProblemOf(const HypothesisFit& fit, const kelvo::HitList3D& hits, int view,
                             const Line& line) {
  reference::Problem problem;
  for (const kelvo::Hit3D& hit : hits) {
    if (hit.fView != view) continue;
    problem.z.push_back(hit.fZ - hits.front().fZ);
    problem.x.push_back(view == 0 ? hit.fX : hit.fY);
    problem.sigx.push_back(kSigma);
  }
  // The slope dx/dz = tan a changes by da / cos^2 a for an angle in the x-z plane; projected along
  // a track with dy/dz, an angle in the plane of the track is smaller by the cosine of its tilt.
  const double slope = view == 0 ? line.fDxDz : line.fDyDz;
  const double stretch = std::hypot(1, line.fDxDz, line.fDyDz);
  for (std::size_t j = 0; j < fit.fPlanePoint.size(); j++) {
    problem.s.push_back(fit.fPlanePoint[j].Z() - hits.front().fZ);
    problem.sigAlpha.push_back(fit.fPlaneSigAlpha[j] * stretch * std::hypot(1, slope));
  }
  return problem;
}

TEST(TrackFitter, AFitIsTheLeastSquaresSolutionForItsPlanes) {
  constexpr double kAccuracy = 1e-7; // relative; the first hits bend the line that gives the slopes
  TrackFitter fitter(Block(), WithPlanes());
  const Line line{3, -2, 0.2, -0.3};
  for (int n : {4, 5, 8, 30}) {
    // Deviations so small that the slopes on which the widths depend are those of the line.
    const HitList3D hits = Hits(line, n, [](int i) { return 1e-9 * Wiggle(i); });
    const TrackFit fit = fitter.Fit(hits);
    ASSERT_TRUE(fit.Fitted());
    for (const HypothesisFit& h : fit.fHypothesis) {
      ASSERT_EQ(h.fPlanePoint.size(), static_cast<std::size_t>(2 * (n - 1)));
      double logLikelihood = 0;
      for (std::size_t v = 0; v < 2; v++) {
        const reference::Problem problem = ProblemOf(h, hits, static_cast<int>(v), line);
        const reference::DenseFit dense(problem);
        const auto value = [](reference::Real x) { return static_cast<double>(x); };
        const kelvo::ViewFit& view = h.fView[v];
        EXPECT_NEAR(view.fIntercept, value(dense.Parameter(0)), kRounding);
        EXPECT_NEAR(view.fSlope, value(dense.Parameter(1)), kRounding);
        EXPECT_NEAR(view.fCov[0] / value(dense.Covariance(0, 0)), 1, kAccuracy);
        EXPECT_NEAR(view.fCov[2] / value(dense.Covariance(1, 1)), 1, kAccuracy);
        EXPECT_NEAR(view.fChi2 + view.fChi2Kink, value(dense.Chi2()), kRounding);
        logLikelihood -= (dense.LogDeterminant() + value(dense.Chi2()) +
                          (static_cast<double>(problem.z.size()) - 2) * std::log(2 * TMath::Pi())) /
                         2;
        for (double sigma : problem.sigx) logLikelihood -= std::log(sigma);
        for (double sigma : problem.sigAlpha) logLikelihood -= std::log(sigma);
        std::size_t k = 0;
        for (const kelvo::HitFit& hit : h.fHit) {
          if (hit.fView != static_cast<int>(v)) continue;
          const auto row = dense.Row(problem.z[k]), slopes = dense.SlopeRow(problem.z[k]);
          k++;
          EXPECT_NEAR(hit.fFitU, value(dense.Value(row)), kRounding);
          EXPECT_NEAR(hit.fFitSlope, value(dense.Value(slopes)), kRounding);
          EXPECT_NEAR(hit.fFitSigU / std::sqrt(value(dense.Covariance(row, row))), 1, kAccuracy);
          EXPECT_NEAR(hit.fFitSigSlope / std::sqrt(value(dense.Covariance(slopes, slopes))), 1,
                      kAccuracy);
        }
        for (std::size_t j = 0; j < view.fSigKink.size(); j++) {
          const double perSlope = h.fPlaneSigAlpha[j] / problem.sigAlpha[j];
          EXPECT_NEAR(view.fSigKink[j], perSlope * std::sqrt(value(dense.Covariance(j + 2, j + 2))),
                      kAccuracy * h.fPlaneSigAlpha[j]);
        }
      }
      EXPECT_NEAR(h.fLogLikelihood, logLikelihood, 1e-5);
    }
  }
}

/// Kinetic energy [GeV] at the start of a way through scintillator, from fine steps.
double EnergyForRange(double length, double mass) {
  const kelvo::dEdxTable table("Scintillator");
  const int n = 200000;
  double energy = 1e-6 * mass;
  for (int i = 0; i < n; i++) {
    const double h = length / n;
    energy += h * table(energy + h / 2 * table(energy, mass), mass);
  }
  return energy;
}

TEST(TrackFitter, KinematicsAreThoseOfTheRangeInAUniformBlock) {
  constexpr double kAccuracy = 1e-3; // of the energy: unfitted bends make the way longer
  TrackFitter fitter(Block());
  const double masses[] = {0.105658, 0.13957, 0.938272}; // GeV
  for (double slope : {0., 0.75}) {
    const TrackFit fit = fitter.Fit(Hits({0, 0, slope, 0}, 60));
    ASSERT_TRUE(fit.Fitted());
    const double length = 59.5 * kSpacing * std::hypot(1, slope);
    for (std::size_t h = 0; h < 3; h++) {
      const HypothesisFit& f = fit.fHypothesis[h];
      const double m = masses[h];
      EXPECT_NEAR(f.fLength / length, 1, 1e-3);
      EXPECT_NEAR(f.fRadLen, f.fLength / 51.447, kRounding);
      EXPECT_NEAR(f.fT / EnergyForRange(length, m), 1, kAccuracy);
      EXPECT_NEAR(f.fP, std::sqrt(f.fT * f.fT + 2 * f.fT * m), kRounding);
      EXPECT_NEAR(f.fBeta, f.fP / (f.fT + m), kRounding);
      EXPECT_NEAR(f.fGamma, (f.fT + m) / m, kRounding);
      ExpectNear(f.fEnd, TVector3(slope * (50 + 59.5 * kSpacing), 0, 50 + 59.5 * kSpacing), 1e-6);
    }
  }
}

TEST(TrackFitter, TheEndIsAFractionOfTheGapBehindTheLastHit) {
  for (double fraction : {0., 0.5, 1.}) {
    TrackFitOptions options;
    options.fBeyondLastHit = fraction;
    TrackFitter fitter(Block(), options);
    HitList3D hits = Hits({0, 0, 0, 0}, 20);
    hits.erase(hits.begin() + 10); // a missing hit does not change the typical gap
    EXPECT_NEAR(Best(fitter.Fit(hits)).fEnd.Z(), 50 + (19 + fraction) * kSpacing, kRounding);
  }
}

TEST(TrackFitter, APullIsTheResidualOverItsStandardDeviation) {
  // Without scattering to speak of, a view is a line through equidistant points: the i-th of n at
  // t_i = i - (n - 1) / 2 has the fitted variance sigma^2 (1 / n + t_i^2 / sum t^2).
  TrackFitOptions options;
  options.fScatteringFactor = 1e-6;
  TrackFitter fitter(Block(), options);
  const int n = 10;
  const TrackFit fit = fitter.Fit(Hits({0, 0, 0, 0}, 2 * n, Wiggle));
  const double sum = n * (n * n - 1.) / 12;
  for (const kelvo::HitFit& hit : Best(fit).fHit) {
    const double first = hit.fView == 0 ? 50 : 50 + kSpacing;
    const double t = (hit.fZ - first) / (2 * kSpacing) - (n - 1) / 2.;
    const double variance = kSigma * kSigma * (1. / n + t * t / sum);
    EXPECT_NEAR(hit.fFitSigU, std::sqrt(variance),
                1e-3 * kSigma); // the axis is not exactly along z
    EXPECT_NEAR(hit.fFitSigSlope, kSigma / (2 * kSpacing) / std::sqrt(sum), 1e-5);
    EXPECT_NEAR(hit.fPull, hit.fResidual / std::sqrt(kSigma * kSigma - variance), 1e-2);
  }
}

/// Least-squares line u(z) through hits of one view and of equal uncertainties, in closed form.
struct ClosedLine {
  double fMean, fSlope, fZ;   // at the mean z
  double fVarMean, fVarSlope; // independent of each other
  ClosedLine(const HitList3D& hits, int view, double sigma) {
    double n = 0, sz = 0, szz = 0, su = 0, szu = 0;
    for (const kelvo::Hit3D& hit : hits) {
      if (hit.fView != view) continue;
      const double u = view == 0 ? hit.fX : hit.fY;
      n++;
      sz += hit.fZ;
      szz += hit.fZ * hit.fZ;
      su += u;
      szu += hit.fZ * u;
    }
    fZ = sz / n;
    fMean = su / n;
    fSlope = (szu - sz * su / n) / (szz - sz * sz / n);
    fVarMean = sigma * sigma / n;
    fVarSlope = sigma * sigma / (szz - sz * sz / n);
  }
  double At(double z) const { return fMean + fSlope * (z - fZ); }
  double VarAt(double z) const { return fVarMean + (z - fZ) * (z - fZ) * fVarSlope; }
  double CovAt(double z) const { return (z - fZ) * fVarSlope; } // of position and slope
};

TEST(TrackFitter, WithoutScatteringObliqueViewsAreIndependentLinesAgainstZ) {
  constexpr double kAccuracy = 1e-5; // relative; the frame's axis is not exactly along the track
  TrackFitOptions options;
  options.fScatteringFactor = 1e-6;
  TrackFitter fitter(Block(), options);
  const HitList3D hits = Hits({-60, 5, 1.2, 0.9}, 30, Wiggle);
  const HypothesisFit fit = Best(fitter.Fit(hits));
  const ClosedLine x(hits, 0, kSigma), y(hits, 1, kSigma);
  for (const kelvo::HitFit& hit : fit.fHit) {
    const ClosedLine& line = hit.fView == 0 ? x : y;
    EXPECT_NEAR(hit.fFitU, line.At(hit.fZ), kAccuracy);
    EXPECT_NEAR(hit.fFitSigU / std::sqrt(line.VarAt(hit.fZ)), 1, kAccuracy);
    EXPECT_NEAR(hit.fFitSlope, line.fSlope, kAccuracy);
    EXPECT_NEAR(hit.fFitSigSlope / std::sqrt(line.fVarSlope), 1, kAccuracy);
    const double variance = kSigma * kSigma - line.VarAt(hit.fZ);
    EXPECT_NEAR(hit.fPull, hit.fResidual / std::sqrt(variance), 1e-4);
  }
  // Covariance of (x, y, ux, uy): u = (a, b, 1) / sqrt(1 + a^2 + b^2) for slopes a and b, whose
  // derivatives come from finite steps.
  const double z = fit.fPosition.Z(), step = 1e-5;
  const auto direction = [&](double a, double b) { return TVector3(a, b, 1).Unit(); };
  const TVector3 byA =
      (direction(x.fSlope + step, y.fSlope) - direction(x.fSlope - step, y.fSlope)) * (0.5 / step);
  const TVector3 byB =
      (direction(x.fSlope, y.fSlope + step) - direction(x.fSlope, y.fSlope - step)) * (0.5 / step);
  const double va = x.fVarSlope, vb = y.fVarSlope, ca = x.CovAt(z), cb = y.CovAt(z);
  const double expected[10] = {x.VarAt(z),
                               0,
                               byA.X() * ca,
                               byA.Y() * ca, //
                               y.VarAt(z),
                               byB.X() * cb,
                               byB.Y() * cb,                                    //
                               byA.X() * byA.X() * va + byB.X() * byB.X() * vb, //
                               byA.X() * byA.Y() * va + byB.X() * byB.Y() * vb, //
                               byA.Y() * byA.Y() * va + byB.Y() * byB.Y() * vb};
  for (std::size_t i = 0; i < 10; i++)
    EXPECT_NEAR(fit.fCov[i], expected[i], 1e-4 * x.VarAt(z)) << "element " << i;
  EXPECT_NEAR(fit.fCov[7] / expected[7], 1, 1e-3);
  EXPECT_NEAR(fit.fCov[8] / expected[8], 1, 1e-3);
  EXPECT_NEAR(fit.fCov[9] / expected[9], 1, 1e-3);
}

TEST(TrackFitter, BendsTooSmallToBeFittedMakeATrackLonger) {
  TrackFitOptions options;
  options.fScatteringFactor = 1e-6;
  TrackFitter fitter(Block(), options);
  HitList3D hits = Hits({0, 0, 0, 0}, 20);
  for (kelvo::Hit3D& hit : hits) hit.fSigX = hit.fSigY = 3;
  const HypothesisFit fit = Best(fitter.Fit(hits));
  const double straight = 19.5 * kSpacing;
  const double variances = ClosedLine(hits, 0, 3).fVarSlope + ClosedLine(hits, 1, 3).fVarSlope;
  EXPECT_GT(variances, 1e-3);
  EXPECT_NEAR(fit.fLength / straight - 1, variances / 2, 1e-6);
}

TEST(TrackFitter, TheLeadIsTheDistanceToTheSecondBest) {
  TrackFitter fitter(Block());
  const TrackFit fit = fitter.Fit(Hits({0, 0, 0.1, 0}, 60, Wiggle));
  std::vector<double> l;
  for (const HypothesisFit& h : fit.fHypothesis) l.push_back(h.fLogLikelihood);
  EXPECT_EQ(Best(fit).fLogLikelihood, *std::max_element(l.begin(), l.end()));
  std::sort(l.rbegin(), l.rend());
  EXPECT_EQ(fit.fLead, l[0] - l[1]);
}

TEST(TrackFitter, AFitOfOneHypothesisHasNoLead) {
  TrackFitOptions options;
  options.fHypotheses = {-2212};
  TrackFitter fitter(Block(), options);
  const TrackFit fit = fitter.Fit(Hits({0, 0, 0.1, 0}, 60, Wiggle));
  EXPECT_EQ(fit.fBest, 0);
  EXPECT_EQ(fit.fLead, 0);
  EXPECT_EQ(fit.fHypothesis[0].fPDG, -2212);
}

TEST(TrackFitter, AUniformGapScattersAtTwoPlanesThatShareIt) {
  // At 21 and 79 % of the gap, half of the variance each: then the variance of the angle behind a
  // length L is all, that of the displacement its part L^2 / 3, and their covariance L / 2.
  TrackFitOptions options;
  options.fWithPlanes = true;
  options.fBeamMomentum = 1000; // so that it hardly falls
  TrackFitter fitter(Block(), options);
  const HypothesisFit f = Best(fitter.Fit(Hits({0, 0, 0, 0}, 20)));
  ASSERT_EQ(f.fPlaneS.size(), 38u);
  const double x = kSpacing / 51.447;
  const double theta = 0.0136 / 1000 * std::sqrt(x) * (1 + 0.038 * std::log(x));
  for (std::size_t j = 0; j < f.fPlaneS.size(); j++) {
    const double part = j % 2 == 0 ? 0.5 - std::sqrt(1. / 12) : 0.5 + std::sqrt(1. / 12);
    const std::size_t gap = j / 2; // two planes in each
    const double s = (static_cast<double>(gap) + part) * kSpacing;
    EXPECT_NEAR(f.fPlaneS[j], s, kRounding);
    ExpectNear(f.fPlanePoint[j], TVector3(0, 0, 50 + s), kRounding);
    EXPECT_NEAR(f.fPlaneSigAlpha[j] / (theta / std::sqrt(2.)), 1, 1e-3);
  }
}

TEST(TrackFitter, HowTheMaterialOfAGapIsCutDoesNotMatter) {
  // The logarithm of Highland's formula is that of the gap between hits, in however many pieces the
  // detector reports it.
  constexpr double kAccuracy = 1e-6; // of sums of thousands of pieces
  const auto fit = [](int cuts) {
    std::vector<LayeredGeometry::Layer> layers;
    const double thickness = kSpacing / cuts;
    for (int i = 0; i < 60 * cuts; i++) layers.push_back({thickness, "Steel"});
    const LayeredGeometry block(layers);
    return Best(TrackFitter(block, WithPlanes()).Fit(Hits({0, 0, 0.1, 0}, 20, Wiggle)));
  };
  const HypothesisFit one = fit(1);
  for (int cuts : {2, 10}) {
    const HypothesisFit other = fit(cuts);
    ASSERT_EQ(other.fPlaneSigAlpha.size(), one.fPlaneSigAlpha.size());
    for (std::size_t j = 0; j < one.fPlaneSigAlpha.size(); j++)
      EXPECT_NEAR(other.fPlaneSigAlpha[j] / one.fPlaneSigAlpha[j], 1, kAccuracy);
    EXPECT_NEAR(other.fP / one.fP, 1, kAccuracy);
  }
}

TEST(TrackFitter, ExtraHitsInAGapHardlyChangeWhatScattersThere) {
  constexpr double kHardly = 0.01;
  // Width of all kinks between two hits of a track that otherwise keeps its own.
  const auto width = [](std::size_t gap, int cuts) {
    HitList3D hits = Hits({0, 0, 0, 0}, 30);
    const double begin = 50 + kSpacing * static_cast<double>(gap);
    for (int i = 1; i < cuts; i++) AddX(hits, 0, begin + kSpacing * i / cuts);
    TrackFitOptions options = WithPlanes();
    options.fBeamMomentum = 1000;
    const HypothesisFit fit = Best(TrackFitter(Block(), options).Fit(hits));
    double variance = 0;
    for (std::size_t j = 0; j < fit.fPlaneSigAlpha.size(); j++)
      if (fit.fPlanePoint[j].Z() > begin && fit.fPlanePoint[j].Z() < begin + kSpacing)
        variance += fit.fPlaneSigAlpha[j] * fit.fPlaneSigAlpha[j];
    return std::sqrt(variance);
  };
  for (const std::size_t gap : {0u, 14u, 28u})
    for (const int cuts : {2, 10})
      EXPECT_NEAR(width(gap, cuts) / width(gap, 1), 1, kHardly) << gap << ' ' << cuts;
}

TEST(TrackFitter, AFitDoesNotDependOnWhatMaterialsWereMetBefore) {
  std::vector<LayeredGeometry::Layer> layers{{200, "Glue"}};
  for (int i = 0; i < 100; i++) {
    layers.push_back({2, "Steel"});
    layers.push_back({4, "PVC"});
    layers.push_back({1, "Glue"});
  }
  const LayeredGeometry stack(layers);
  const HitList3D hits = Hits({3, -2, 0.2, 0.3}, 40, Wiggle, 250);
  TrackFitter fresh(stack), used(stack);
  used.Fit(Hits({0, 0, 0, 0}, 10, Wiggle, 20));
  const TrackFit a = fresh.Fit(hits), b = used.Fit(hits);
  for (std::size_t h = 0; h < 3; h++) ExpectSameNumbers(a.fHypothesis[h], b.fHypothesis[h]);
}

TEST(TrackFitter, AMomentumDoesNotDependOnTheOtherHypotheses) {
  const HitList3D hits = Hits({0, 0, 0.1, 0}, 40, Wiggle);
  TrackFitter all(Block());
  const TrackFit together = all.Fit(hits);
  for (std::size_t h = 0; h < 3; h++) {
    TrackFitOptions options;
    options.fHypotheses = {together.fHypothesis[h].fPDG};
    TrackFitter alone(Block(), options);
    ExpectSameNumbers(alone.Fit(hits).fHypothesis[0], together.fHypothesis[h]);
  }
}

TEST(TrackFitter, HitsBehindTheLastMaterialLeaveTheMomentumWithItsUncertainty) {
  const LayeredGeometry block({{150, "Scintillator"}, {100, "Vacuum"}});
  TrackFitter fitter(block);
  for (const HypothesisFit& fit : fitter.Fit(Hits({0, 0, 0, 0}, 25)).fHypothesis) {
    EXPECT_GT(fit.fSigP, 0.001 * fit.fP);
    EXPECT_LT(fit.fSigP, 0.1 * fit.fP);
  }
}

TEST(TrackFitter, TheFactorScalesTheWidths) {
  const HitList3D hits = Hits({0, 0, 0.1, 0}, 60);
  TrackFitOptions options;
  options.fWithPlanes = true;
  options.fScatteringFactor = 1;
  TrackFitter one(Block(), options);
  options.fScatteringFactor = 2;
  TrackFitter two(Block(), options);
  const TrackFit a = one.Fit(hits), b = two.Fit(hits);
  for (std::size_t h = 0; h < 3; h++) {
    const auto &f = a.fHypothesis[h].fPlaneSigAlpha, &g = b.fHypothesis[h].fPlaneSigAlpha;
    ASSERT_EQ(f.size(), g.size());
    for (std::size_t j = 0; j < f.size(); j++) EXPECT_NEAR(g[j], 2 * f[j], kRounding);
  }
}

} // namespace
