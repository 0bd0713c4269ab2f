#include "track/TrackFitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>

#include "func/KelvoException.h"
#include "func/ScatteringSurfaces.h"
#include "func/dEdxTable.h"
#include "test/support/TestGeometry.h"
#include "track/ErrorSentence.h"
#include "track/Materials.h"

// References: straight lines and range integrals in closed or elementary form, and relations that a
// fit must obey. Statistics with simulated tracks are in TrackFitterTruthTest.

namespace {

using kelvo::FitStatus;
using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

constexpr double kSigma = 0.3;     // cm, of a hit
constexpr double kSpacing = 6;     // cm, between planes
constexpr double kRounding = 1e-9; // of lengths [cm] and angles after a few thousand operations
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

const LayeredGeometry& Block() {
  static const LayeredGeometry block({{1000, "Scintillator"}});
  return block;
}

/// A line in space.
struct Line {
  double fX, fY, fDxDz, fDyDz; // at z = 0
  double X(double z) const { return fX + fDxDz * z; }
  double Y(double z) const { return fY + fDyDz * z; }
};

void AddX(HitList3D& hits, double x, double z, double sigma = kSigma) {
  hits.AddHit(geo::kX, x, kNaN, z, 0, sigma, 0, 0, 0, 1);
}

void AddY(HitList3D& hits, double y, double z, double sigma = kSigma) {
  hits.AddHit(geo::kY, kNaN, y, z, 0, 0, sigma, 0, 0, 1);
}

/// Hits in n planes of alternating views, the first one at z0, moved off a line by noise(i).
HitList3D Hits(
    const Line& line, int n, const std::function<double(int)>& noise = [](int) { return 0.; },
    double z0 = 50) {
  HitList3D hits;
  for (int i = 0; i < n; i++) {
    const double z = z0 + kSpacing * i;
    if (i % 2 == 0)
      AddX(hits, line.X(z) + noise(i), z);
    else
      AddY(hits, line.Y(z) + noise(i), z);
  }
  return hits;
}

double Wiggle(int i) {
  return kSigma * std::sin(1.7 * i * i);
}

const HypothesisFit& Best(const TrackFit& fit) {
  return fit.fHypothesis.at(static_cast<std::size_t>(fit.fBest));
}

void ExpectNear(const TVector3& a, const TVector3& b, double tolerance) {
  for (int i = 0; i < 3; i++) EXPECT_NEAR(a[i], b[i], tolerance) << "component " << i;
}

void ExpectSameNumbers(const HypothesisFit& a, const HypothesisFit& b) {
  ASSERT_EQ(a.fStatus, b.fStatus);
  EXPECT_EQ(a.fProb, b.fProb);
  EXPECT_EQ(a.fLogLikelihood, b.fLogLikelihood);
  EXPECT_EQ(a.fP, b.fP);
  EXPECT_EQ(a.fCov, b.fCov);
  EXPECT_EQ(a.fPosition, b.fPosition);
  EXPECT_EQ(a.fDirection, b.fDirection);
  ASSERT_EQ(a.fHit.size(), b.fHit.size());
  for (std::size_t i = 0; i < a.fHit.size(); i++) EXPECT_EQ(a.fHit[i].fFitU, b.fHit[i].fFitU);
}

/// What the fit says about these hits, which must be the same for all hypotheses.
std::string Message(const HitList3D& hits, FitStatus status, const geo::GeometryBase& geo = Block(),
                    const TrackFitOptions& options = {}) {
  TrackFitter fitter(geo, options);
  const TrackFit fit = fitter.Fit(hits);
  EXPECT_FALSE(fit.Fitted());
  EXPECT_EQ(fit.fHypothesis.size(), options.fHypotheses.size());
  for (const HypothesisFit& h : fit.fHypothesis) {
    EXPECT_EQ(h.fStatus, status);
    EXPECT_EQ(h.fMessage, fit.fHypothesis[0].fMessage);
  }
  return fit.fHypothesis[0].fMessage;
}

TEST(TrackFitterTest, AStraightTrackHasNoKinksAndIsFound) {
  TrackFitter fitter(Block());
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

TEST(TrackFitterTest, AMirroredTrackGivesAMirroredFit) {
  TrackFitter fitter(Block());
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

TEST(TrackFitterTest, AShiftedTrackGivesAShiftedFit) {
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

TEST(TrackFitterTest, TheOrderOfTheHitsDoesNotMatter) {
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

TEST(TrackFitterTest, AFitDoesNotDependOnTheOneBeforeIt) {
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

TEST(TrackFitterTest, BothSolversGiveTheSameFit) {
  TrackFitOptions options;
  TrackFitter linear(Block(), options);
  options.fSolver = kelvo::Solver::kDense;
  TrackFitter dense(Block(), options);
  const auto near = [](double a, double b, double scale) { EXPECT_NEAR(a, b, 1e-9 * scale); };
  for (int n : {4, 5, 8, 20, 60}) {
    const HitList3D hits = Hits({3, -2, 0.2, -0.3}, n, Wiggle);
    const TrackFit a = dense.Fit(hits), b = linear.Fit(hits);
    ASSERT_TRUE(a.Fitted() && b.Fitted());
    EXPECT_EQ(a.fBest, b.fBest);
    for (std::size_t k = 0; k < 3; k++) {
      const HypothesisFit &f = a.fHypothesis[k], &g = b.fHypothesis[k];
      near(f.fLogLikelihood, g.fLogLikelihood, std::abs(f.fLogLikelihood));
      near(f.fProb, g.fProb, 10);
      near(f.fP, g.fP, f.fP);
      for (std::size_t v = 0; v < 2; v++) {
        const kelvo::ViewFit &d = f.fView[v], &l = g.fView[v];
        near(d.fIntercept, l.fIntercept, 1);
        near(d.fSlope, l.fSlope, 1);
        for (int c : {0, 2}) near(d.fCov[c], l.fCov[c], d.fCov[c]);
        near(d.fCov[1], l.fCov[1], std::sqrt(d.fCov[0] * d.fCov[2]));
        near(d.fChi2, l.fChi2, 1 + d.fChi2);
        near(d.fChi2Kink, l.fChi2Kink, 1 + d.fChi2Kink);
        ASSERT_EQ(d.fKink.size(), l.fKink.size());
        for (std::size_t j = 0; j < d.fKink.size(); j++) {
          near(d.fKink[j], l.fKink[j], 1);
          near(d.fSigKink[j], l.fSigKink[j], 1);
        }
      }
      for (std::size_t i = 0; i < f.fHit.size(); i++) {
        near(f.fHit[i].fFitU, g.fHit[i].fFitU, 10);
        near(f.fHit[i].fFitSigU, g.fHit[i].fFitSigU, 10);
        near(f.fHit[i].fFitSigSlope, g.fHit[i].fFitSigSlope, 1);
        EXPECT_NEAR(f.fHit[i].fPull, g.fHit[i].fPull, 1e-6);
      }
      for (std::size_t c = 0; c < 10; c++) near(f.fCov[c], g.fCov[c], 1);
    }
  }
}

/// Kinetic energy [GeV] at the start of a way through scintillator, from fine steps.
double EnergyForRange(double length, double mass) {
  const kelvo::dEdxTable table("Scintillator");
  const int n = 200000;
  double energy = 0.01 * mass; // where the library takes a particle to be stopped
  for (int i = 0; i < n; i++) {
    const double h = length / n;
    energy += h * table(energy + h / 2 * table(energy, mass), mass);
  }
  return energy;
}

TEST(TrackFitterTest, KinematicsAreThoseOfTheRangeInAUniformBlock) {
  constexpr double kAccuracy = 0.003; // of the energy: steps of the range-out, unfitted bends
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

TEST(TrackFitterTest, TheEndIsAFractionOfTheGapBehindTheLastHit) {
  for (double fraction : {0., 0.5, 1.}) {
    TrackFitOptions options;
    options.fBeyondLastHit = fraction;
    TrackFitter fitter(Block(), options);
    HitList3D hits = Hits({0, 0, 0, 0}, 20);
    hits.erase(hits.begin() + 10); // a missing hit does not change the typical gap
    EXPECT_NEAR(Best(fitter.Fit(hits)).fEnd.Z(), 50 + (19 + fraction) * kSpacing, kRounding);
  }
}

TEST(TrackFitterTest, APullIsTheResidualOverItsStandardDeviation) {
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

TEST(TrackFitterTest, WithoutScatteringObliqueViewsAreIndependentLinesAgainstZ) {
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

TEST(TrackFitterTest, BendsTooSmallToBeFittedMakeATrackLonger) {
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

TEST(TrackFitterTest, TheLeadIsTheDistanceToTheSecondBest) {
  TrackFitter fitter(Block());
  const TrackFit fit = fitter.Fit(Hits({0, 0, 0.1, 0}, 60, Wiggle));
  std::vector<double> l;
  for (const HypothesisFit& h : fit.fHypothesis) l.push_back(h.fLogLikelihood);
  EXPECT_EQ(Best(fit).fLogLikelihood, *std::max_element(l.begin(), l.end()));
  std::sort(l.rbegin(), l.rend());
  EXPECT_EQ(fit.fLead, l[0] - l[1]);
}

TEST(TrackFitterTest, AFitOfOneHypothesisHasNoLead) {
  TrackFitOptions options;
  options.fHypotheses = {-2212};
  TrackFitter fitter(Block(), options);
  const TrackFit fit = fitter.Fit(Hits({0, 0, 0.1, 0}, 60, Wiggle));
  EXPECT_EQ(fit.fBest, 0);
  EXPECT_EQ(fit.fLead, 0);
  EXPECT_EQ(fit.fHypothesis[0].fPDG, -2212);
}

TEST(TrackFitterTest, LimitsAreWidenedUntilEachViewHasMoreHitsThanPlanes) {
  TrackFitOptions options;
  options.fMaxDs = 1;
  options.fMaxDX0 = 0.01;
  options.fMaxDT = 1e-4;
  TrackFitter fitter(Block(), options);
  for (int n : {4, 5, 6, 20, 61}) {
    const HypothesisFit f = Best(fitter.Fit(Hits({0, 0, 0.1, 0}, n, Wiggle)));
    EXPECT_LT(f.fPlaneS.size(), static_cast<std::size_t>(n / 2));
    EXPECT_GE(f.fPlaneS.size(), 1u);
    const double steps = std::log(f.fMaxDs / options.fMaxDs) / std::log(1.5);
    EXPECT_NEAR(steps, std::round(steps), kRounding);
    EXPECT_NEAR(f.fMaxDX0 / options.fMaxDX0, f.fMaxDs / options.fMaxDs, 1e-6 * f.fMaxDs);
    EXPECT_NEAR(f.fMaxDT / options.fMaxDT, f.fMaxDs / options.fMaxDs, 1e-6 * f.fMaxDs);
  }
}

TEST(TrackFitterTest, LimitsThatFitAreNotWidened) {
  TrackFitOptions options;
  options.fMaxDs = 5 * kSpacing + 1;
  options.fMaxDX0 = options.fMaxDT = 1e9;
  TrackFitter fitter(Block(), options);
  const HypothesisFit f = Best(fitter.Fit(Hits({0, 0, 0, 0}, 51)));
  EXPECT_EQ(f.fMaxDs, options.fMaxDs);
  ASSERT_EQ(f.fPlaneS.size(), 10u); // 50 intervals, five in each step
  for (std::size_t j = 0; j < 10; j++) {
    const double s = (5 * static_cast<double>(j) + 2.5) * kSpacing;
    EXPECT_NEAR(f.fPlaneS[j], s, kRounding);
    ExpectNear(f.fPlanePoint[j], TVector3(0, 0, 50 + s), kRounding);
  }
}

TEST(TrackFitterTest, TheFactorScalesTheWidths) {
  const HitList3D hits = Hits({0, 0, 0.1, 0}, 60);
  TrackFitOptions options;
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

TEST(TrackFitterTest, FewerThanTwoHitsInAViewAreRefused) {
  HitList3D hits;
  EXPECT_EQ(Message(hits, FitStatus::kTooFewHits),
            "view X has 0 hits; a fit needs two or more in each view");
  AddX(hits, 0, 0);
  EXPECT_EQ(Message(hits, FitStatus::kTooFewHits),
            "view X has 1 hit; a fit needs two or more in each view");
  AddX(hits, 0, 1);
  AddY(hits, 0, 2);
  EXPECT_EQ(Message(hits, FitStatus::kTooFewHits),
            "view Y has 1 hit; a fit needs two or more in each view");
}

TEST(TrackFitterTest, AViewWithAllHitsAtOneZIsRefused) {
  HitList3D hits;
  for (int i = 0; i < 3; i++) AddX(hits, i, 12.5);
  for (int i = 0; i < 3; i++) AddY(hits, i, 10 * i);
  EXPECT_EQ(
      Message(hits, FitStatus::kTooFewHits),
      "the 3 hits of view X are all at z = 12.5 cm; a fit needs two different z in each view");
}

TEST(TrackFitterTest, ABadHitIsNamedWithItsFault) {
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    std::function<void(kelvo::Hit3D&)> fSpoil;
    const char* fMessage;
  } cases[] = {
      {[](auto& h) { h.fView = static_cast<geo::_plane_proj>(2); },
       "hit 2 (z = 62 cm): the view is 2; it must be 0 (measures x) or 1 (measures y)"},
      {[](auto& h) { h.fZ = kNaN; }, "hit 2 (z = nan cm): z is nan; it must be a finite number"},
      {[=](auto& h) { h.fX = -infinity; },
       "hit 2 (z = 62 cm): x is -inf; it must be a finite number"},
      {[](auto& h) { h.fX = 2e5; },
       "hit 2 (z = 62 cm): x is 200000 cm; it must be within +-100000 cm"},
      {[](auto& h) { h.fSigX = 0; },
       "hit 2 (z = 62 cm): the uncertainty of x is 0 cm; it must be between 1e-07 and 1e+06 cm"},
      {[](auto& h) { h.fSigX = kNaN; },
       "hit 2 (z = 62 cm): the uncertainty of x is nan cm; it must be between 1e-07 and 1e+06 cm"},
      {[](auto& h) { h.fSigZ = -1; },
       "hit 2 (z = 62 cm): the uncertainty of z is -1 cm; it must be between 0 and 1e+06 cm"},
      {[](auto& h) { h.fW = -0.5; },
       "hit 2 (z = 62 cm): the weight is -0.5; it must be between 0 and 1e+12"},
  };
  for (const auto& c : cases) {
    HitList3D hits = Hits({0, 0, 0, 0}, 8);
    c.fSpoil(hits[2]);
    EXPECT_EQ(Message(hits, FitStatus::kBadNumber), c.fMessage);
  }
  HitList3D hits = Hits({0, 0, 0, 0}, 8);
  hits[3].fY = kNaN;
  EXPECT_EQ(Message(hits, FitStatus::kBadNumber),
            "hit 3 (z = 68 cm): y is nan; it must be a finite number");
}

TEST(TrackFitterTest, ATrackAlongThePlanesIsRefused) {
  EXPECT_EQ(
      Message(Hits({0, 0, 1000, 0}, 8), FitStatus::kBadGeometry),
      "the hits lie along a line at more than 88.8 degrees to the z axis; a fit needs a track "
      "that crosses the planes");
}

TEST(TrackFitterTest, AMaterialWithoutStoppingPowerIsRefusedByNameAndSilently) {
  const LayeredGeometry block({{1000, "Concrete"}});
  testing::internal::CaptureStderr();
  EXPECT_EQ(Message(Hits({0, 0, 0, 0}, 8), FitStatus::kBadGeometry, block),
            "the track crosses the material \"Concrete\", for which there is no stopping-power "
            "table (known: Scintillator, PVC, Glue, Steel, Vacuum); fit it as a beam of known "
            "momentum or rename the material");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

/// A detector that reports what it is told.
struct OneStep : geo::GeometryBase {
  std::vector<double> fDs;
  std::vector<const TGeoMaterial*> fMats;
  void MaterialsBetweenPoints(const double*, const double*, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    ds = fDs;
    mats = fMats;
  }
};

TEST(TrackFitterTest, ADetectorThatReportsNonsenseIsRefused) {
  const HitList3D hits = Hits({0, 0, 0, 0}, 8);
  const TGeoMaterial steel("Steel", 55.8, 26, 7.87, -1.7584);
  OneStep geo;
  EXPECT_EQ(Message(hits, FitStatus::kLibraryError, geo),
            "the detector reports no material along the track; check that the hits lie in it");
  geo.fDs = {1};
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the detector reports 1 lengths for 0 materials on the track");
  geo.fMats = {nullptr};
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the detector reports a step without material on the track");
  geo.fMats = {&steel};
  geo.fDs = {-1};
  EXPECT_EQ(
      Message(hits, FitStatus::kBadGeometry, geo),
      "the detector reports a step of -1 cm on the track; it must be finite and not negative");
  struct : TGeoMaterial {
    using TGeoMaterial::TGeoMaterial;
    double GetRadLen() const override { return 0; }
  } bad("Glue", 12, 6, 1.34);
  geo.fDs = {1};
  geo.fMats = {&bad};
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the track crosses the material \"Glue\", whose radiation length is 0 cm; it must be "
            "above 0");
}

TEST(TrackFitterTest, AnExceptionOfTheDetectorBecomesAMessage) {
  struct : geo::GeometryBase {
    void MaterialsBetweenPoints(const double*, const double*, std::vector<double>&,
                                std::vector<const TGeoMaterial*>&) const override {
      throw std::runtime_error("no map for this region");
    }
  } geo;
  EXPECT_EQ(Message(Hits({0, 0, 0, 0}, 8), FitStatus::kLibraryError, geo),
            "the fit stopped with: no map for this region");
}

TEST(TrackFitterTest, EveryErrorOfTheLibraryHasItsSentence) {
  using kelvo::ErrorSentence;
  EXPECT_EQ(ErrorSentence(kelvo::kBadKE, -0.25),
            "a kinetic energy or thickness along the track comes out at -0.25, below 0; check that "
            "the hits lie in this detector");
  EXPECT_EQ(ErrorSentence(kelvo::kBadRadLength, 0),
            "a material on the track has a radiation length of 0 cm; give it one above 0 in the "
            "detector's description");
  EXPECT_EQ(ErrorSentence(kelvo::kBadNScat, 0),
            "a view has no more measurements than scattering planes; raise the step limits");
  EXPECT_EQ(ErrorSentence(kelvo::kIndexProblem, 0),
            "the detector reports no material along the track; check that the hits lie in it");
  EXPECT_EQ(ErrorSentence(kelvo::kNaN, 0),
            "a quantity of the fit is not a number; check hits and detector for extreme values");
  EXPECT_EQ(ErrorSentence(kelvo::kBadSigX, -1),
            "the uncertainty of a measurement is -1 cm; it must be above 0");
  EXPECT_EQ(ErrorSentence(kelvo::kBadSigSJ, -1),
            "the width of a scattering angle is -1 rad; it must be above 0");
  for (unsigned int code : {kelvo::kBadP, kelvo::kBadBeta})
    EXPECT_EQ(ErrorSentence(code, 1e-5),
              "the momentum or velocity at a scattering plane comes out at 1e-05, out of range; "
              "check that the hits lie in this detector");
  for (unsigned int code : {kelvo::kNDOFTooSmall, kelvo::kTooFewPlanes})
    EXPECT_EQ(ErrorSentence(code, 0), "a view has too few hits for a fit");
  EXPECT_EQ(ErrorSentence(kelvo::kTrackingFailure, 0),
            "the track has no direction at one of its points, since two of them coincide");
  EXPECT_EQ(ErrorSentence(13, 1.5), "the fit library raised the unknown error 13 with value 1.5");
}

TEST(TrackFitterTest, OptionsOutOfRangeAreRefusedWithTheRule) {
  const auto message = [](const std::function<void(TrackFitOptions&)>& spoil) -> std::string {
    TrackFitOptions options;
    spoil(options);
    try {
      TrackFitter fitter(Block(), options);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "accepted";
  };
  EXPECT_EQ(message([](auto&) {}), "accepted");
  EXPECT_EQ(message([](auto& o) { o.fHypotheses.clear(); }),
            "fHypotheses is empty; name one or more of 13 (muon), 211 (pion) or 2212 (proton)");
  EXPECT_EQ(message([](auto& o) {
              o.fHypotheses = {13, 11};
            }),
            "a code in fHypotheses is 11; it must be 13 (muon), 211 (pion) or 2212 (proton), of "
            "either sign");
  EXPECT_EQ(message([](auto& o) { o.fMaxDs = 0; }), "fMaxDs is 0; it must be above 0 cm");
  EXPECT_EQ(message([](auto& o) { o.fMaxDX0 = kNaN; }),
            "fMaxDX0 is nan; it must be above 0 radiation lengths");
  EXPECT_EQ(message([](auto& o) { o.fMaxDT = -1; }), "fMaxDT is -1; it must be above 0 rad cm");
  EXPECT_EQ(message([](auto& o) { o.fScatteringFactor = 0; }),
            "fScatteringFactor is 0; it must be above 0 and at most 100");
  EXPECT_EQ(message([](auto& o) { o.fBeyondLastHit = -0.1; }),
            "fBeyondLastHit is -0.1; it must be between 0 and 100");
  EXPECT_EQ(message([](auto& o) { o.fBeamMomentum = -1; }),
            "fBeamMomentum is -1; it must be 0 (stopping particles) or between 0.001 and 1e+06 "
            "GeV/c");
}

TEST(TrackFitterTest, MaterialsWithoutATableAreListedOnce) {
  EXPECT_EQ(kelvo::MaterialsWithoutTable({"Steel", "Air", "PVC", "Silicon", "Air", "steel"}),
            (std::vector<std::string>{"Air", "Silicon", "steel"}));
  EXPECT_TRUE(kelvo::MaterialsWithoutTable(kelvo::MaterialsWithTable()).empty());
  for (const std::string& name : kelvo::MaterialsWithTable())
    EXPECT_TRUE(name == "Vacuum" || kelvo::dEdxTable(name.c_str())(1, 0.1) > 1e-4) << name;
}

/// Four thin plates in air, 10 cm apart, each with a hit in both views at its middle.
struct Telescope {
  LayeredGeometry fGeometry{{{0.1, "Glue"},
                             {9.9, "Vacuum"},
                             {0.1, "Glue"},
                             {9.9, "Vacuum"},
                             {0.1, "Glue"},
                             {9.9, "Vacuum"},
                             {0.1, "Glue"}}};
  static HitList3D Hits(const Line& line, const std::function<double(int)>& noise) {
    HitList3D hits;
    for (int i = 0; i < 4; i++) {
      const double z = 0.05 + 10 * i;
      AddX(hits, line.X(z) + noise(2 * i), z, 0.01);
      AddY(hits, line.Y(z) + noise(2 * i + 1), z, 0.01);
    }
    return hits;
  }
};

TEST(TrackFitterTest, ABeamScattersOncePerPlaneBetweenItsFirstAndLastHit) {
  const Telescope telescope;
  TrackFitOptions options;
  options.fBeamMomentum = 3;
  options.fHypotheses = {211, 2212};
  TrackFitter fitter(telescope.fGeometry, options);
  const TrackFit fit = fitter.Fit(Telescope::Hits({1, 2, 0.01, 0}, [](int) { return 0.; }));
  ASSERT_TRUE(fit.Fitted());
  const double masses[] = {0.13957, 0.938272}; // GeV
  for (std::size_t h = 0; h < 2; h++) {
    const HypothesisFit& f = fit.fHypothesis[h];
    const double e = std::hypot(3, masses[h]);
    ASSERT_EQ(f.fPlaneS.size(), 2u);
    for (std::size_t j = 0; j < 2; j++) {
      EXPECT_NEAR(f.fPlanePoint[j].Z(), 10.05 + 10 * static_cast<double>(j), 1e-6);
      const double x = 0.1 * std::hypot(1, 0.01) / 31.864;
      EXPECT_NEAR(f.fPlaneSigAlpha[j],
                  0.0136 / (3 * 3 / e) * std::sqrt(x) * (1 + 0.038 * std::log(x)), kRounding);
    }
    EXPECT_NEAR(f.fP, 3, kRounding);
    EXPECT_NEAR(f.fT, e - masses[h], kRounding);
    EXPECT_NEAR(f.fBeta, 3 / e, kRounding);
    EXPECT_NEAR(f.fGamma, e / masses[h], kRounding);
    EXPECT_NEAR(f.fLength, 30 * std::hypot(1, 0.01), 1e-6);
    EXPECT_NEAR(f.fRadLen, 0.3 * std::hypot(1, 0.01) / 31.864, 1e-6);
    ExpectNear(f.fPosition, TVector3(1 + 0.0005, 2, 0.05), kRounding);
  }
}

TEST(TrackFitterTest, AFastBeamIsFittedWithAStraightLine) {
  const Telescope telescope;
  TrackFitOptions options;
  options.fBeamMomentum = 1e5;
  TrackFitter fitter(telescope.fGeometry, options);
  const auto noise = [](int i) { return 0.01 * std::sin(3. * i); };
  // Unweighted line through four equidistant points at t = -3, -1, 1, 3 (in units of 5 cm).
  double mean = 0, slope = 0;
  for (int i = 0; i < 4; i++) {
    mean += noise(2 * i) / 4;
    slope += (2 * i - 3) * noise(2 * i) / 20;
  }
  const TrackFit fit = fitter.Fit(Telescope::Hits({1, 2, 0, 0}, noise));
  ASSERT_TRUE(fit.Fitted());
  for (const kelvo::HitFit& hit : Best(fit).fHit) {
    if (hit.fView != 0) continue;
    EXPECT_NEAR(hit.fFitU, 1 + mean + slope * ((hit.fZ - 0.05) / 5 - 3), 1e-6);
  }
}

TEST(TrackFitterTest, ABeamCrossesMaterialsThatHaveNoStoppingPower) {
  const LayeredGeometry block({{1000, "Concrete"}});
  TrackFitOptions options;
  options.fBeamMomentum = 10;
  TrackFitter fitter(block, options);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(fitter.Fit(Hits({0, 0, 0.1, 0}, 20, Wiggle)).Fitted());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(TrackFitterTest, PlanesOfABeamStayBelowItsMeasurements) {
  std::vector<LayeredGeometry::Layer> layers;
  for (int i = 0; i < 100; i++) {
    layers.push_back({2, "Steel"});
    layers.push_back({4, "Scintillator"});
  }
  const LayeredGeometry stack(layers);
  TrackFitOptions options;
  options.fBeamMomentum = 1;
  TrackFitter fitter(stack, options);
  for (int n : {4, 7, 20, 60}) {
    const HypothesisFit f = Best(fitter.Fit(Hits({0, 0, 0.1, 0}, n, Wiggle)));
    EXPECT_EQ(f.fPlaneS.size(), static_cast<std::size_t>(n / 2 - 1));
    EXPECT_TRUE(std::is_sorted(f.fPlaneS.begin(), f.fPlaneS.end()));
  }
}

/// A detector that can be asked a number of times before it fails.
struct FailsLater : geo::GeometryBase {
  mutable int fLeft = 0;
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    if (fLeft-- <= 0) throw std::runtime_error("out of the map");
    Block().MaterialsBetweenPoints(p0, p1, ds, mats);
  }
};

TEST(TrackFitterTest, ATrackThatFailsLateLeavesNoHalfResult) {
  FailsLater geo;
  TrackFitter fitter(geo);
  TrackFit fit;
  int refused = 0;
  for (int calls = 0; calls < 60; calls++) {
    geo.fLeft = calls;
    fitter.Fit(Hits({0, 0, 0, 0}, 20, Wiggle), fit);
    if (fit.Fitted()) continue;
    refused++;
    for (const HypothesisFit& h : fit.fHypothesis) {
      EXPECT_EQ(h.fStatus, FitStatus::kLibraryError);
      EXPECT_EQ(h.fMessage, "the fit stopped with: out of the map");
      EXPECT_EQ(h.fHit.size() + h.fPlaneS.size() + h.fPlanePoint.size(), 0u);
      EXPECT_EQ(h.fP, 0);
    }
  }
  EXPECT_GT(refused, 20);
  EXPECT_LT(refused, 60);
}

TEST(TrackFitterTest, AnyHitsGiveAFitOfFiniteNumbersOrASentence) {
  const double values[] = {0,    -0.,  1,     -1,   12.5, 12.5, 50,    1e-300, 1e-7, 1e-3,
                           1e-4, 1e3,  1e5,   -1e5, 1e6,  -1e6, 1e300, kNaN,   3.2,  17,
                           100,  99.9, 200.1, 400,  5e-8, 40,   41,    42,     43,   44};
  std::mt19937_64 random(2);
  const auto pick = [&] { return values[random() % std::size(values)]; };
  TrackFitOptions options;
  TrackFitter stopping(Block(), options);
  options.fSolver = kelvo::Solver::kDense;
  options.fBeamMomentum = 1;
  TrackFitter beam(Block(), options);
  int fitted = 0;
  for (int k = 0; k < 1000; k++) {
    HitList3D hits;
    const int n = static_cast<int>(random() % 12);
    const bool tame = random() % 4 != 0; // uncertainties that are not refused
    for (int i = 0; i < n; i++) {
      const double sigma = tame ? std::clamp(std::abs(pick()), 1e-6, 1e6) : pick();
      hits.AddHit(static_cast<geo::_plane_proj>(random() % (tame ? 2 : 3)), pick(), pick(), pick(),
                  0, sigma, sigma, tame ? 0 : pick(), 0, tame ? 1 : pick());
      if (tame)
        for (double* u : {&hits.back().fX, &hits.back().fY, &hits.back().fZ})
          *u = *u == *u ? std::clamp(*u, -1e5, 1e5) : 0;
    }
    for (TrackFitter* fitter : {&stopping, &beam}) {
      const TrackFit fit = fitter->Fit(hits);
      for (const HypothesisFit& h : fit.fHypothesis) {
        EXPECT_EQ(h.fMessage.empty(), h.fStatus == FitStatus::kFitted);
        if (h.fStatus != FitStatus::kFitted) continue;
        fitted++;
        EXPECT_TRUE(std::isfinite(h.fP + h.fLength + h.fLogLikelihood + h.fProb));
        EXPECT_TRUE(std::isfinite(h.fPosition.Mag() + h.fDirection.Mag() + h.fEnd.Mag()));
        for (const kelvo::HitFit& hit : h.fHit)
          EXPECT_TRUE(std::isfinite(hit.fFitU + hit.fFitSigU + hit.fPull + hit.fFitSigSlope));
      }
    }
  }
  EXPECT_GT(fitted, 300);
}

} // namespace
