// The momentum from scattering against the likelihood of the fit of lines with kinks, and in
// simulated tracks whose truth is known.

#include "track/ScatteringMomentum.h"

#include "fit/KinkSmoother.h"
#include "test/support/Allocations.h"
#include "test/support/TestGeometry.h"
#include "track/EnergyAlong.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using kelvo::EnergyAlong;
using kelvo::KinkSmoother;
using kelvo::MaterialAlong;
using kelvo::ScatteringMomentum;
using kelvo::ScatteringMomentumFit;

constexpr double kMass = 0.105658; // GeV, muon

/// Planes every 4 cm that measure x and y in turn, in scintillator behind steel or in nothing but
/// steel, and tracks that scatter in two thin planes in each gap.
class Stack {
public:
  static constexpr std::size_t kPlanes = 50;
  static constexpr double kSigma = 0.3; // of the hits [cm]

  explicit Stack(double scintillator = 1.5) : fGeometry(Layers(scintillator)) {
    std::vector<kelvo::WayPoint> points;
    for (std::size_t i = 0; i < kPlanes; i++)
      points.push_back({{0, 0, 3.25 + 4 * static_cast<double>(i)}, {0, 0}});
    fMaterial.Trace(points);
    for (std::size_t i = 0; i + 1 < kPlanes; i++)
      for (std::size_t k = 0; k < 2; k++) {
        const double z = fMaterial.Gaps()[i].fPlane[k].fZ;
        const double x0 = fMaterial.Gaps()[i].fPlane[k].fRadLen;
        fPlanes.push_back({z, i, (z - points[i].fX[2]) / 4, 13.6e-3 * std::sqrt(x0), {1.2, 1.1}});
        fPlaneZ.push_back(z);
      }
    for (const kelvo::ScatteringPlane& plane : fPlanes) fLast = plane.fZ;
    fFinder.Clear();
  }

  /// Returns the standard deviations of the slopes of a view at a momentum, by plane.
  std::vector<double> Widths(double p, std::size_t view) {
    EnergyAlong energy({kMass});
    energy.Pass(fMaterial, fStretch, {p});
    std::vector<double> widths;
    for (const kelvo::ScatteringPlane& plane : fPlanes) {
      const double up = BetaP2(energy.T(0)[plane.fGap]), down = BetaP2(energy.T(0)[plane.fGap + 1]);
      widths.push_back(plane.fScale * plane.fSlopePerAngle[view] /
                       std::sqrt(up + plane.fPart * (down - up)));
    }
    return widths;
  }

  /// Makes the hits of a track.
  void Simulate(double p, std::mt19937_64& random) {
    std::normal_distribution<double> gauss;
    for (std::size_t v = 0; v < 2; v++) {
      fZ[v].clear();
      fU[v].clear();
      const std::vector<double> widths = Widths(p, v);
      double u = 3, slope = 0.2, last = 0;
      std::size_t j = 0;
      for (std::size_t i = 0; i < kPlanes; i++) {
        const double z = 3.25 + 4 * static_cast<double>(i);
        for (; j < fPlanes.size() && fPlanes[j].fZ < z; j++) {
          u += slope * (fPlanes[j].fZ - last);
          last = fPlanes[j].fZ;
          slope += widths[j] * gauss(random);
        }
        u += slope * (z - last);
        last = z;
        if (i % 2 != v) continue;
        fZ[v].push_back(z);
        fU[v].push_back(u + kSigma * gauss(random));
      }
    }
  }

  ScatteringMomentum& Load() {
    fFinder.Clear();
    for (std::size_t v = 0; v < 2; v++)
      for (std::size_t i = 0; i < fZ[v].size(); i++) fFinder.AddHit(v, fZ[v][i], fU[v][i], kSigma);
    LoadPlanes();
    return fFinder;
  }

  void LoadPlanes() { fFinder.Load(fPlanes, fStretch, false); }

  /// The marginal likelihood of the lines with kinks.
  double LogLikelihood(double p) {
    double sum = 0;
    for (std::size_t v = 0; v < 2; v++) {
      const std::vector<double> widths = Widths(p, v), sigma(fZ[v].size(), kSigma);
      KinkSmoother view(1, 0);
      view.Load(static_cast<unsigned>(fZ[v].size()), fZ[v].data(), fU[v].data(), sigma.data(),
                static_cast<unsigned>(fPlaneZ.size()), fPlaneZ.data(), widths.data());
      view.Fit(nullptr, nullptr, nullptr, nullptr);
      sum += view.LogLikelihood();
    }
    return sum;
  }

  /// Returns the momentum that just gets to the last plane.
  double Least() {
    EnergyAlong energy({kMass});
    fMaterial.TraceEnd({{0, 0, fLast}, {0, 0}}, {0, 0}, 4, 0);
    std::vector<double> stretch = fStretch;
    stretch.push_back(1);
    energy.Stop(fMaterial, stretch);
    const double T = energy.T(0)[0];
    return std::sqrt(T * (T + 2 * kMass));
  }

  std::vector<double> fStretch = std::vector<double>(kPlanes - 1, 1.1);

private:
  static double BetaP2(double T) {
    const double betaP = T * (T + 2 * kMass) / (T + kMass);
    return betaP * betaP;
  }
  static std::vector<LayeredGeometry::Layer> Layers(double scintillator) {
    std::vector<LayeredGeometry::Layer> layers;
    for (std::size_t i = 0; i <= kPlanes; i++) {
      layers.push_back({4 - scintillator, "Steel"});
      if (scintillator > 0) layers.push_back({scintillator, "Scintillator"});
    }
    return layers;
  }

  LayeredGeometry fGeometry;
  MaterialAlong fMaterial{kelvo::DetectorMaterials(fGeometry, {13}, true)};
  std::vector<kelvo::ScatteringPlane> fPlanes;
  std::vector<double> fPlaneZ;
  double fLast = 0;
  std::array<std::vector<double>, 2> fZ, fU;
  ScatteringMomentum fFinder{fMaterial, 0, kMass};
};

/// @param tolerance of differences of log-likelihoods
void ExpectLikelihoodOfLinesWithKinks(Stack& stack, double tolerance) {
  std::mt19937_64 random(1);
  for (int track = 0; track < 5; track++) {
    stack.Simulate(4, random);
    ScatteringMomentum& finder = stack.Load();
    const double at4 = finder.At(4).fLogLikelihood, same = stack.LogLikelihood(4);
    for (double p : {2.2, 3.2, 5., 20., 90.})
      EXPECT_NEAR(finder.At(p).fLogLikelihood - at4, stack.LogLikelihood(p) - same, tolerance) << p;
  }
}

TEST(ScatteringMomentum, HasTheLikelihoodOfTheFitOfLinesWithKinks) {
  Stack steel(0);
  ExpectLikelihoodOfLinesWithKinks(steel, 1e-5); // tables of ranges are as good
}

TEST(ScatteringMomentum, SeveralMaterialsCountAsOne) {
  Stack both;
  ExpectLikelihoodOfLinesWithKinks(both, 0.1);
}

TEST(ScatteringMomentum, ItsScoreIsTheDerivativeOfTheLikelihood) {
  constexpr double kStep = 1e-4;
  Stack stack;
  std::mt19937_64 random(2);
  stack.Simulate(3, random);
  ScatteringMomentum& finder = stack.Load();
  for (double p : {2.2, 3., 8., 40.}) {
    const double up = finder.At(p * std::exp(kStep)).fLogLikelihood;
    const double down = finder.At(p * std::exp(-kStep)).fLogLikelihood;
    const double score = finder.At(p).fScore;
    EXPECT_NEAR(score, (up - down) / (2 * kStep), 1e-4 * (1 + std::abs(score))) << p;
  }
}

TEST(ScatteringMomentum, TheScoreOfACommonFactorIsItsDerivativeToo) {
  constexpr double kStep = 1e-4;
  Stack stack;
  std::mt19937_64 random(3);
  stack.Simulate(3, random);
  ScatteringMomentum& finder = stack.Load();
  const auto at = [&](double factor) {
    // Kinetic energy of a particle of no mass, whose velocity times momentum it is.
    return finder.AtScale(std::vector<double>(Stack::kPlanes, 2 * factor).data(), 0);
  };
  const double slope = (at(std::exp(kStep)).fLogLikelihood - at(std::exp(-kStep)).fLogLikelihood);
  EXPECT_NEAR(at(1).fScore, slope / (2 * kStep), 1e-5);
}

TEST(ScatteringMomentum, TheScoreHasTheMomentsThatAreToldOfIt) {
  constexpr int kTracks = 20000;
  Stack stack;
  std::mt19937_64 random(4);
  double sum = 0, squares = 0, cubes = 0;
  ScatteringMomentum::Point point{};
  for (int track = 0; track < kTracks; track++) {
    stack.Simulate(3, random);
    point = stack.Load().At(3);
    sum += point.fScore;
    squares += point.fScore * point.fScore;
    cubes += point.fScore * point.fScore * point.fScore;
  }
  const double sigma = std::sqrt(point.fInformation);
  EXPECT_NEAR(sum / kTracks / sigma, 0, 4 / std::sqrt(kTracks));
  EXPECT_NEAR(squares / kTracks / point.fInformation, 1, 4 * std::sqrt(3. / kTracks));
  EXPECT_NEAR((cubes / kTracks - point.fSkew) / (sigma * sigma * sigma), 0,
              4 * std::sqrt(30. / kTracks));
}

TEST(ScatteringMomentum, FindsTheMaximumOfTheLikelihood) {
  constexpr double kClose = 0.02; // nats below it: a fifth of a standard deviation
  Stack stack;
  std::mt19937_64 random(5);
  int far = 0;
  for (double p : {2.3, 3., 6., 15.})
    for (int track = 0; track < 50; track++) {
      stack.Simulate(p, random);
      ScatteringMomentum& finder = stack.Load();
      const ScatteringMomentumFit fit = finder.Fit(stack.Least());
      double most = -1e300;
      for (double x = std::log(1.9); x < std::log(100.); x += 0.02)
        most = std::max(most, finder.At(std::exp(x)).fLogLikelihood);
      far += finder.At(std::min(fit.fP, 100.)).fLogLikelihood < most - kClose;
      EXPECT_LE(fit.fLow, fit.fP);
      EXPECT_GE(fit.fHigh, fit.fP);
    }
  EXPECT_LE(far, 6); // of 200
}

TEST(ScatteringMomentum, ItsIntervalHoldsTheTruthInTwoThirdsOfTheTracks) {
  constexpr int kTracks = 1000;
  Stack stack;
  std::mt19937_64 random(6);
  for (double p : {2.5, 4.}) {
    int held = 0;
    std::vector<double> pulls, ratios;
    for (int track = 0; track < kTracks; track++) {
      stack.Simulate(p, random);
      const ScatteringMomentumFit fit = stack.Load().Fit(stack.Least());
      held += fit.fLow < p && p < fit.fHigh;
      pulls.push_back((1 / fit.fP - 1 / p) / fit.SigInverse());
      ratios.push_back(p / fit.fP);
    }
    const double bound = 1 / std::sqrt(stack.Load().At(p).fInformation);
    std::sort(pulls.begin(), pulls.end());
    std::sort(ratios.begin(), ratios.end());
    const std::size_t low = kTracks * 16 / 100, high = kTracks * 84 / 100;
    EXPECT_GT(held, 0.66 * kTracks) << p;
    EXPECT_LT(held, 0.75 * kTracks) << p; // the spread allows for tails, of which there are none
    EXPECT_NEAR((pulls[high] - pulls[low]) / 2, 0.97, 0.12) << p;
    EXPECT_NEAR((ratios[high] - ratios[low]) / 2 / bound, 1.05, 0.12) << p;
    EXPECT_NEAR(ratios[kTracks / 2], 1, 0.08) << p;
  }
}

TEST(ScatteringMomentum, AStraightTrackGivesALowerLimit) {
  Stack stack;
  std::mt19937_64 random(7);
  int infinite = 0, finite = 0;
  for (int track = 0; track < 200; track++) {
    stack.Simulate(90, random);
    const ScatteringMomentumFit fit = stack.Load().Fit(stack.Least());
    if (std::isinf(fit.fP)) {
      infinite++;
      EXPECT_TRUE(std::isinf(fit.fHigh));
    } else {
      finite++;
    }
    EXPECT_TRUE(std::isfinite(fit.fLow));
    EXPECT_TRUE(std::isfinite(fit.fLikely));
    EXPECT_GT(fit.SigInverse(), 0);
  }
  EXPECT_GT(infinite, 40);
  EXPECT_GT(finite, 40);
}

TEST(ScatteringMomentum, TwoHitsInEachViewTellNothing) {
  Stack stack;
  ScatteringMomentum& finder = stack.Load(); // without any hits
  for (std::size_t v = 0; v < 2; v++)
    for (double z : {3.25, 43.25}) finder.AddHit(v, z, 1, 0.3);
  stack.LoadPlanes();
  EXPECT_TRUE(std::isnan(finder.Fit(1).fP));
}

TEST(ScatteringMomentum, HitsAtOnePlaceCountAsTheirMean) {
  Stack stack;
  std::mt19937_64 random(8);
  stack.Simulate(3, random);
  const double once = stack.Load().Fit(2).fP;
  ScatteringMomentum& finder = stack.Load();
  finder.AddHit(0, 3.25 + 4 * 48, 7, 1e9); // at the last hit of x, and worthless
  stack.LoadPlanes();
  EXPECT_NEAR(finder.Fit(2).fP, once, 1e-6 * once);
}

TEST(ScatteringMomentum, AllocatesNothingOnceItHasServedATrack) {
  Stack stack;
  std::mt19937_64 random(9);
  stack.Simulate(3, random);
  stack.Load().Fit(2);
  ScatteringMomentum& finder = stack.Load();
  const std::size_t before = bench::AllocationCount();
  finder.Fit(2);
  stack.Load().Fit(2);
  EXPECT_EQ(bench::AllocationCount(), before);
}

} // namespace
