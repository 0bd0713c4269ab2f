// References: the definition of an M-estimate, simulated truth.
#include "fit/RobustFit.h"

#include <gtest/gtest.h>

#include <functional>

#include "func/KelvoException.h"
#include "test/support/KinkReference.h"

namespace kelvo {
namespace {

using reference::Problem;

constexpr RobustWeight kAll[] = {RobustWeight::kHuber, RobustWeight::kTukey, RobustWeight::kCauchy};

KinkSmoother Loaded(const Problem& problem) {
  KinkSmoother fit(static_cast<unsigned>(problem.z.size()),
                   static_cast<unsigned>(problem.s.size()));
  reference::Load(problem, fit);
  return fit;
}

/// n measurements 5 cm apart, sigma 3 mm, and m planes of 3 mrad among them.
Problem Detector(unsigned n, unsigned m) {
  Problem problem;
  for (unsigned i = 0; i < n; i++) {
    problem.z.push_back(5.0 * i);
    problem.sigx.push_back(0.3);
  }
  for (unsigned j = 0; j < m; j++) {
    problem.s.push_back((j + 0.4) * 5 * n / m);
    problem.sigAlpha.push_back(3e-3);
  }
  return problem;
}

TEST(RobustFit, WeightFunctionsFallFromOneAsTheirDefinitionsSay) {
  for (const RobustWeight weight : kAll) {
    const double c = StandardThreshold(weight);
    EXPECT_EQ(RobustWeightFactor(weight, 0, c), 1);
    double last = 1;
    for (double u = 0.5; u < 30; u += 0.5) {
      const double factor = RobustWeightFactor(weight, u, c);
      EXPECT_LE(factor, last);
      EXPECT_EQ(factor, RobustWeightFactor(weight, -u, c));
      last = factor;
    }
  }
  EXPECT_DOUBLE_EQ(RobustWeightFactor(RobustWeight::kHuber, 2.69, 1.345), 0.5);
  EXPECT_DOUBLE_EQ(RobustWeightFactor(RobustWeight::kTukey, 1, 2), 0.5625);
  EXPECT_EQ(RobustWeightFactor(RobustWeight::kTukey, 2, 2), 0);
  EXPECT_DOUBLE_EQ(RobustWeightFactor(RobustWeight::kCauchy, 6, 3), 0.2);
}

// The threshold's meaning: variance of the estimate of a mean, E[psi^2] / E[psi']^2, is 1 / 0.95.
TEST(RobustFit, StandardThresholdsKeep95PercentEfficiency) {
  for (const RobustWeight weight : kAll) {
    const double c = StandardThreshold(weight);
    const auto psi = [&](double u) { return u * RobustWeightFactor(weight, u, c); };
    double square = 0, slope = 0;
    const double step = 1e-3;
    for (double u = -9 + step / 2; u < 9; u += step) {
      const double density = std::exp(-u * u / 2) / std::sqrt(2 * M_PI) * step;
      square += density * psi(u) * psi(u);
      slope += density * (psi(u + 1e-5) - psi(u - 1e-5)) / 2e-5;
    }
    EXPECT_NEAR(slope * slope / square, 0.95, 5e-4);
  }
}

TEST(RobustFit, ConvergesToWeightsThatItsOwnPullsGive) {
  std::mt19937_64 random(1);
  for (const RobustWeight weight : kAll) {
    Problem problem = Detector(30, 12);
    reference::Draw(problem, random);
    problem.x[7] += 6;
    problem.x[20] -= 6;
    KinkSmoother fit = Loaded(problem);
    RobustOptions options;
    options.fWeight = weight;
    options.fTolerance = 1e-9;
    const RobustResult result = FitRobustly(fit, options);
    EXPECT_TRUE(result.fConverged);
    EXPECT_LT(result.fIterations, 100);
    for (unsigned i = 0; i < fit.NMeas(); i++)
      EXPECT_NEAR(fit.WeightFactor(i),
                  RobustWeightFactor(weight, fit.Residual(i).fPull, StandardThreshold(weight)),
                  1e-8);
    EXPECT_LT(fit.WeightFactor(7), 0.1);
    EXPECT_LT(fit.WeightFactor(20), 0.1);
  }
}

TEST(RobustFit, LeavesATrackWithoutOutliersNearlyAsItIs) {
  std::mt19937_64 random(2);
  Problem problem = Detector(30, 12);
  reference::Draw(problem, random);
  KinkSmoother plain = Loaded(problem);
  plain.Fit(nullptr, nullptr, nullptr, nullptr);
  for (const RobustWeight weight : kAll) {
    KinkSmoother fit = Loaded(problem);
    RobustOptions options;
    options.fWeight = weight;
    options.fThreshold = 1000; // nothing is near it
    EXPECT_TRUE(FitRobustly(fit, options).fConverged);
    EXPECT_NEAR(fit.AtStart().fX, plain.AtStart().fX, 1e-4 * std::sqrt(plain.AtStart().fVarX));
  }
  EXPECT_EQ(RejectOutliers(plain, 1000), 0u);
}

TEST(RobustFit, RejectionTakesOutTheDisplacedMeasurementAndNoOther) {
  std::mt19937_64 random(3);
  Problem problem = Detector(30, 12);
  reference::Draw(problem, random);
  problem.x[11] += 6;
  problem.x[25] += 6;
  KinkSmoother fit = Loaded(problem);
  EXPECT_EQ(RejectOutliers(fit, 5), 2u);
  for (unsigned i = 0; i < 30; i++) EXPECT_EQ(fit.WeightFactor(i), i == 11 || i == 25 ? 0 : 1) << i;
  EXPECT_EQ(fit.NDOF(), 26);
  EXPECT_EQ(RejectOutliers(fit, 5, 1), 1u) << "it starts anew, and stops at the limit";
}

TEST(RobustFit, RejectionKeepsWhatTheTrackNeeds) {
  // A free kink: three parameters need three measurements, however badly five fit together.
  KinkSmoother fit = Loaded({{0, 1, 3, 4, 5}, {0, 9, 1, 8, 1}, {1, 1, 1, 1, 1}, {2}, {INFINITY}});
  EXPECT_EQ(RejectOutliers(fit, 1e-6), 2u);
  EXPECT_TRUE(fit.Succeeded());
  EXPECT_EQ(fit.NDOF(), 0);
}

TEST(RobustFit, SingularProblemStaysSingular) {
  KinkSmoother fit = Loaded({{1, 1}, {2, 3}, {1, 1}, {}, {}});
  const RobustResult result = FitRobustly(fit);
  EXPECT_FALSE(result.fConverged);
  EXPECT_EQ(fit.Status(), KinkStatus::kOnePosition);
  EXPECT_EQ(RejectOutliers(fit), 0u);
  EXPECT_EQ(fit.Status(), KinkStatus::kOnePosition);
}

TEST(RobustFit, RefusesAThresholdBelowZero) {
  KinkSmoother fit = Loaded({{0, 1}, {3, 5}, {1, 1}, {}, {}});
  RobustOptions options;
  options.fThreshold = -1;
  try {
    FitRobustly(fit, options);
    ADD_FAILURE() << "nothing thrown";
  } catch (const KelvoException& e) {
    EXPECT_EQ(e.fCode, kIndexProblem);
    EXPECT_EQ(e.fValue, -1);
  }
}

struct Pulls {
  double x0 = 0, slope = 0, middle = 0, end = 0;
};

/// Root mean squares of the pulls of 2,000 tracks; each hit is displaced by 20 sigma, to either
/// side, with probability 10%.
Pulls WithOutliers(const std::function<void(KinkSmoother&)>& fitIt) {
  const int tracks = 2000;
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> uniform;
  Problem problem = Detector(50, 20);
  Pulls squares;
  for (int track = 0; track < tracks; track++) {
    const reference::Truth truth = reference::Draw(problem, random);
    for (std::size_t i = 0; i < problem.z.size(); i++)
      if (uniform(random) < 0.1)
        problem.x[i] += (uniform(random) < 0.5 ? -20 : 20) * problem.sigx[i];
    KinkSmoother fit = Loaded(problem);
    fitIt(fit);
    EXPECT_TRUE(fit.Succeeded());
    const auto square = [&](double z) {
      const KinkPoint point = fit.At(z);
      return std::pow(point.fX - truth.X(problem, z), 2) / point.fVarX;
    };
    const KinkPoint start = fit.AtStart();
    squares.x0 += std::pow(start.fX - truth.x0, 2) / start.fVarX;
    squares.slope += std::pow(start.fSlope - truth.slope, 2) / start.fVarSlope;
    squares.middle += square(123);
    squares.end += square(250);
  }
  const auto rms = [](double sum) { return std::sqrt(sum / tracks); };
  return {rms(squares.x0), rms(squares.slope), rms(squares.middle), rms(squares.end)};
}

void ExpectWithin(const Pulls& pulls, double low, double high) {
  for (const double rms : {pulls.x0, pulls.slope, pulls.middle, pulls.end}) {
    EXPECT_GT(rms, low);
    EXPECT_LT(rms, high);
  }
}

TEST(RobustFit, PullsStayStandardWithTenPercentOfHitsFarOff) {
  const auto robust = [](RobustWeight weight) {
    return [weight](KinkSmoother& fit) {
      RobustOptions options;
      options.fWeight = weight;
      FitRobustly(fit, options);
    };
  };
  const Pulls plain =
      WithOutliers([](KinkSmoother& fit) { fit.Fit(nullptr, nullptr, nullptr, nullptr); });
  EXPECT_GT(plain.x0, 4) << "without protection they do not";
  ExpectWithin(WithOutliers(robust(RobustWeight::kTukey)), 0.9, 1.1);
  ExpectWithin(WithOutliers(robust(RobustWeight::kCauchy)), 0.9, 1.1);
  ExpectWithin(WithOutliers([](KinkSmoother& fit) { RejectOutliers(fit); }), 0.9, 1.1);
  // Under Huber's weight an outlier keeps pulling; that is its nature.
  ExpectWithin(WithOutliers(robust(RobustWeight::kHuber)), 0.9, 1.2);
}

} // namespace
} // namespace kelvo
