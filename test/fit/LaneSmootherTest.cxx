// Both views of tracks under four hypotheses at once against one KinkSmoother for each view and
// hypothesis.

#include "fit/LaneSmoother.h"

#include "fit/KinkSmoother.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using kelvo::KinkPoint;
using kelvo::KinkSmoother;
using kelvo::kLanes;
using kelvo::LaneKink;
using kelvo::LaneMeasurement;
using kelvo::LanePlane;
using kelvo::LanePoint;
using kelvo::Lanes;
using kelvo::LaneSmoother;
using kelvo::LineNoise;

constexpr double kAccuracy = 1e-9; // of a standard deviation, and relative for variances

/// Measurements of two views and, in each gap between them, none, one or two planes.
struct Problem {
  std::vector<LaneMeasurement> fMeasurements;
  std::vector<std::vector<LanePlane>> fPlanes; // by gap; the same in both views
};

/// @param scale of the widths of planes beside what a measurement resolves
Problem RandomProblem(std::size_t n, double scale, std::mt19937_64& random) {
  std::uniform_real_distribution<double> uniform;
  std::normal_distribution<double> gauss;
  Problem problem;
  double z = 1000 * uniform(random);
  for (std::size_t i = 0; i < n; i++) {
    // Two of each view at different z, the rest as it comes; some at the same z.
    const std::size_t view = i < 4 ? i / 2 : uniform(random) < 0.5;
    const double sigma = std::exp(-3 * uniform(random));
    problem.fMeasurements.push_back({view, z, gauss(random), sigma * sigma});
    if (i + 1 == n) break;
    const double step = i > 4 && uniform(random) < 0.1 ? 0 : 10 * uniform(random);
    std::vector<LanePlane> planes;
    const std::size_t in = step == 0 ? 0 : i % 4 == 3 ? 1 : i % 7 == 5 ? 0 : 2;
    for (std::size_t k = 0; k < in; k++) {
      const double part = (static_cast<double>(k) + uniform(random)) / static_cast<double>(in);
      const double sig = scale * (0.01 + uniform(random));
      planes.push_back({z + part * step, sig * sig * Lanes(1, 4, 0.01, 1e6)});
    }
    problem.fPlanes.push_back(planes);
    z += step;
  }
  return problem;
}

std::vector<LaneSmoother::Noise> NoiseOf(const Problem& problem) {
  std::vector<LaneSmoother::Noise> noise;
  for (const std::vector<LanePlane>& planes : problem.fPlanes) {
    LineNoise sum;
    if (planes.size() == 1) sum = {planes[0].fZ, 0, planes[0].fVariance};
    if (planes.size() == 2)
      sum = kelvo::TwoPlanes(planes[0].fZ, planes[0].fVariance, planes[1].fZ, planes[1].fVariance);
    noise.push_back({sum, sum});
  }
  return noise;
}

KinkSmoother Reference(const Problem& problem, std::size_t view, std::size_t lane) {
  std::vector<double> z, u, sig, s, width;
  for (const LaneMeasurement& m : problem.fMeasurements) {
    if (m.fView != view) continue;
    z.push_back(m.fZ);
    u.push_back(m.fU);
    sig.push_back(std::sqrt(m.fVariance));
  }
  for (const std::vector<LanePlane>& planes : problem.fPlanes)
    for (const LanePlane& plane : planes) {
      s.push_back(plane.fZ);
      width.push_back(std::sqrt(plane.fVariance[lane]));
    }
  KinkSmoother fit(1, 0);
  fit.Load(static_cast<unsigned>(z.size()), z.data(), u.data(), sig.data(),
           static_cast<unsigned>(s.size()), s.data(), width.data());
  fit.Fit(nullptr, nullptr, nullptr, nullptr);
  return fit;
}

void ExpectPoint(const LanePoint& point, std::size_t lane, const KinkPoint& expected) {
  const double sigX = std::sqrt(expected.fVarX), sigSlope = std::sqrt(expected.fVarSlope);
  EXPECT_NEAR((point.fX[lane] - expected.fX) / sigX, 0, kAccuracy);
  EXPECT_NEAR((point.fSlope[lane] - expected.fSlope) / sigSlope, 0, kAccuracy);
  EXPECT_NEAR(point.fVarX[lane] / expected.fVarX, 1, kAccuracy);
  EXPECT_NEAR(point.fVarSlope[lane] / expected.fVarSlope, 1, kAccuracy);
  EXPECT_NEAR((point.fCovXSlope[lane] - expected.fCovXSlope) / (sigX * sigSlope), 0, kAccuracy);
}

void ExpectView(const Problem& problem, const LaneSmoother& fit, std::size_t view,
                std::size_t lane) {
  const KinkSmoother reference = Reference(problem, view, lane);
  ASSERT_TRUE(reference.Succeeded());
  const double chi2 = reference.Chi2XI() + reference.Chi2Beta();
  EXPECT_NEAR(fit.Chi2(view)[lane], reference.Chi2XI(), kAccuracy * (1 + chi2));
  EXPECT_NEAR(fit.Chi2Kink(view)[lane], reference.Chi2Beta(), kAccuracy * (1 + chi2));
  EXPECT_NEAR(fit.LogLikelihood(view)[lane], reference.LogLikelihood(), kAccuracy * (1 + chi2));
  unsigned int plane = 0;
  for (std::size_t i = 0; i < problem.fMeasurements.size(); i++) {
    const double z = problem.fMeasurements[i].fZ;
    ExpectPoint(fit.At(view, i), lane, reference.Between(plane, z));
    if (i == problem.fPlanes.size()) break;
    const std::vector<LanePlane>& planes = problem.fPlanes[i];
    LaneKink kinks[2];
    fit.FitPlanes(view, i, planes.data(), planes.size(), kinks);
    for (std::size_t k = 0; k < planes.size(); k++, plane++) {
      const double width = std::sqrt(planes[k].fVariance[lane]);
      const KinkPoint at = reference.Between(plane, planes[k].fZ);
      EXPECT_NEAR((kinks[k].fKink[lane] - reference.Kink(plane)) / width, 0, kAccuracy);
      EXPECT_NEAR(kinks[k].fVarKink[lane] / reference.VarKink(plane), 1, kAccuracy);
      EXPECT_NEAR((kinks[k].fX[lane] - at.fX) / std::sqrt(at.fVarX), 0, kAccuracy);
    }
  }
}

TEST(LaneSmoother, GivesWhatAKinkSmootherGivesForEachViewAndHypothesis) {
  std::mt19937_64 random(42);
  for (double scale : {1e-6, 1e-3, 0.1})
    for (std::size_t n : {4u, 5u, 9u, 30u, 66u, 300u}) {
      SCOPED_TRACE(testing::Message() << "scale " << scale << ", n = " << n);
      const Problem problem = RandomProblem(n, scale, random);
      LaneSmoother fit;
      fit.Fit(problem.fMeasurements, NoiseOf(problem), true);
      for (std::size_t view = 0; view < 2; view++)
        for (std::size_t lane = 0; lane < kLanes; lane++) ExpectView(problem, fit, view, lane);
    }
}

TEST(LaneSmoother, AViewWithoutTwoDifferentPlacesHasNoLikelihood) {
  LaneSmoother fit;
  fit.Fit({{0, 1, 0, 1}, {1, 2, 0, 1}, {1, 2, 0.5, 1}, {0, 3, 0, 1}},
          std::vector<LaneSmoother::Noise>(3), false);
  for (std::size_t lane = 0; lane < kLanes; lane++) {
    EXPECT_TRUE(std::isfinite(fit.LogLikelihood(0)[lane]));
    EXPECT_FALSE(std::isfinite(fit.LogLikelihood(1)[lane]));
  }
}

} // namespace
