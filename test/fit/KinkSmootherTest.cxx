// References: the dense fit in 34 digits (KinkReference.h), Lutz, closed forms, simulated truth.
#include "fit/KinkSmoother.h"

#include <TMath.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>

#include "func/KelvoException.h"
#include "func/Lutz.h"
#include "test/support/Allocations.h"
#include "test/support/KinkReference.h"
#include "test/support/SameBits.h"

namespace kelvo {
namespace {

using reference::DenseFit;
using reference::Problem;
using reference::Real;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
// Rounding of the inputs alone moves a result by |x| 1e-16; |x| / sigma reaches 1e6 here.
constexpr double kOfSigma = 1e-8;   // deviation over standard deviation
constexpr double kRelative = 1e-11; // of variances, which do not depend on x

double Sqrt(Real x) {
  return std::sqrt(static_cast<double>(x));
}

/// |value - expected| over sigma.
double Off(double value, Real expected, double sigma) {
  return std::abs(static_cast<double>(static_cast<Real>(value) - expected)) / sigma;
}

struct Results {
  double x0 = -1, slope = -1, chi2 = -1;
  std::vector<double> alpha;
};

template <class Fitter>
Results FitOf(Fitter& fitter) {
  Results r;
  r.alpha.resize(fitter.NScat(), -1);
  fitter.Fit(&r.x0, &r.slope, r.alpha.data(), &r.chi2);
  return r;
}

KinkSmoother Fitted(const Problem& problem) {
  KinkSmoother fit(static_cast<unsigned>(problem.z.size()),
                   static_cast<unsigned>(problem.s.size()));
  reference::Load(problem, fit);
  fit.Fit(nullptr, nullptr, nullptr, nullptr);
  return fit;
}

/// Calls check(problem, fit, dense) for random problems of all small sizes.
template <class Check>
void ForRandomProblems(unsigned seed, Check check) {
  std::mt19937_64 random(seed);
  for (unsigned m = 0; m <= 12; m++)
    for (unsigned extra = 1; extra < 10; extra += 3) {
      const Problem problem = reference::RandomProblem(m + 1 + extra, m, random);
      SCOPED_TRACE(testing::Message() << "m = " << m << ", n = " << m + 1 + extra);
      check(problem, Fitted(problem), DenseFit(problem));
    }
  for (unsigned m = 4; m <= 12; ++m) {
    const Problem problem = reference::RandomProblem(m / 2 + 1, m, random);
    SCOPED_TRACE(testing::Message() << "m = " << m << ", half as many measurements");
    check(problem, Fitted(problem), DenseFit(problem));
  }
}

TEST(KinkSmootherReference, DenseFitIsTheLineThroughTwoPoints) {
  const DenseFit fit({{1, 3}, {3, 7}, {0.5, 0.25}, {}, {}});
  EXPECT_EQ(static_cast<double>(fit.Parameter(0)), 1);
  EXPECT_EQ(static_cast<double>(fit.Parameter(1)), 2);
  // Var x0 = (3/2)^2 / 4 + (1/2)^2 / 16
  EXPECT_NEAR(static_cast<double>(fit.Covariance(0, 0)), 0.578125, 1e-15);
}

TEST(KinkSmoother, StraightTrackHasNoKinks) {
  Problem problem{{0, 1, 2, 4, 8}, {1, 3, 5, 9, 17}, {1, 1, 2, 1, 1}, {0.5, 3, 6}, {1, 2, 1e-3}};
  const KinkSmoother fit = Fitted(problem);
  for (unsigned j = 0; j < 3; j++) EXPECT_NEAR(fit.Kink(j), 0, 1e-15);
  EXPECT_NEAR(fit.Chi2XI() + fit.Chi2Beta(), 0, 1e-28);
  EXPECT_NEAR(fit.X(100), 201, 1e-12);
}

TEST(KinkSmoother, TwoMeasurementsFixALineThroughAnyNumberOfPlanes) {
  // The line through both points has no kinks, and each kink keeps the width it is given.
  const KinkSmoother fit = Fitted({{0, 10}, {1, 3}, {1, 1}, {2, 4, 6, 8}, {0.1, 0.2, 0.3, 0.4}});
  EXPECT_EQ(fit.NDOF(), 0);
  EXPECT_NEAR(fit.X(5), 2, 1e-14);
  for (unsigned j = 0; j < 4; ++j) {
    EXPECT_NEAR(fit.Kink(j), 0, 1e-15);
    EXPECT_NEAR(fit.VarKink(j), 0.01 * (j + 1) * (j + 1), 1e-15);
  }
}

TEST(KinkSmoother, OneFreeKinkBetweenTwoPairsIsTwoLines) {
  const Problem problem{{0, 1, 3, 4}, {0, 1, 5, 5}, {1, 1, 1, 1}, {2}, {kInfinity}};
  const KinkSmoother fit = Fitted(problem);
  // Lines x = z and x = 5 miss each other by 3 at the plane; each end of variance 5 there gives way
  // by half, which closed forms turn into chi2 = 3^2 / (5 + 5).
  EXPECT_NEAR(fit.Chi2XI(), 0.9, 1e-14);
  EXPECT_EQ(fit.Chi2Beta(), 0);
  EXPECT_EQ(fit.NDOF(), 1);
}

TEST(KinkSmoother, OrderOfInputChangesNoBit) {
  std::mt19937_64 random(11);
  Problem problem = reference::RandomProblem(40, 20, random);
  problem.z[7] = problem.s[3];
  const KinkSmoother one = Fitted(problem);
  std::vector<unsigned> at(40), plane(20);
  for (unsigned i = 0; i < 40; i++) at[i] = i;
  for (unsigned j = 0; j < 20; j++) plane[j] = j;
  std::sort(at.begin(), at.end(),
            [&](unsigned a, unsigned b) { return problem.z[a] < problem.z[b]; });
  std::sort(plane.begin(), plane.end(),
            [&](unsigned a, unsigned b) { return problem.s[a] < problem.s[b]; });
  Problem sorted;
  for (const unsigned i : at) {
    sorted.z.push_back(problem.z[i]);
    sorted.x.push_back(problem.x[i]);
    sorted.sigx.push_back(problem.sigx[i]);
  }
  for (const unsigned j : plane) {
    sorted.s.push_back(problem.s[j]);
    sorted.sigAlpha.push_back(problem.sigAlpha[j]);
  }
  const KinkSmoother two = Fitted(sorted);
  EXPECT_EQ(one.X(0), two.X(0));
  for (unsigned i = 0; i < 40; i++) {
    EXPECT_EQ(one.XFit(at[i]), two.XFit(i));
    EXPECT_EQ(one.Residual(at[i]).fPull, two.Residual(i).fPull);
  }
  for (unsigned j = 0; j < 20; j++) EXPECT_EQ(one.Kink(plane[j]), two.Kink(j));
}

TEST(KinkSmoother, MirroredInputGivesTheMirroredTrack) {
  std::mt19937_64 random(12);
  const Problem problem = reference::RandomProblem(30, 12, random);
  Problem mirrored = problem;
  for (double& z : mirrored.z) z = -z;
  for (double& s : mirrored.s) s = -s;
  const KinkSmoother one = Fitted(problem), two = Fitted(mirrored);
  EXPECT_NEAR(one.Chi2XI() + one.Chi2Beta(), two.Chi2XI() + two.Chi2Beta(), 1e-9 * one.Chi2XI());
  EXPECT_NEAR(one.LogLikelihood(), two.LogLikelihood(), 1e-9 * std::abs(one.LogLikelihood()));
  for (double z = -150.5; z < 1200; z += 50) {
    const KinkPoint here = one.At(z), there = two.At(-z);
    EXPECT_LT(Off(here.fX, there.fX, std::sqrt(here.fVarX)), kOfSigma);
    EXPECT_LT(Off(here.fSlope, -there.fSlope, std::sqrt(here.fVarSlope)), kOfSigma);
    EXPECT_NEAR(here.fVarX / there.fVarX, 1, kRelative);
  }
  for (unsigned j = 0; j < 12; j++)
    EXPECT_LT(Off(one.Kink(j), two.Kink(j), std::sqrt(one.VarKink(j))), kOfSigma);
}

TEST(KinkSmoother, AgreesWithTheDenseFitInParametersAndCovariance) {
  ForRandomProblems(1, [](const Problem& problem, const KinkSmoother& fit, const DenseFit& dense) {
    const TMatrixDSym c = fit.Covariance();
    const auto value = [&fit](unsigned p) {
      return p == 0   ? fit.X(-1e3) + 1e3 * fit.Slope(-1e3)
             : p == 1 ? fit.Slope(-1e3)
                      : fit.Kink(p - 2);
    };
    for (unsigned p = 0; p < dense.Size(); p++) {
      const double sigma = Sqrt(dense.Covariance(p, p));
      EXPECT_LT(Off(value(p), dense.Parameter(p), sigma), kOfSigma) << p;
      for (unsigned q = 0; q < dense.Size(); q++)
        EXPECT_LT(Off(c(static_cast<int>(p), static_cast<int>(q)), dense.Covariance(p, q),
                      sigma * Sqrt(dense.Covariance(q, q))),
                  kRelative)
            << p << ' ' << q;
    }
    for (unsigned j = 0; j < fit.NScat(); j++)
      EXPECT_NEAR(fit.VarKink(j) / static_cast<double>(dense.Covariance(j + 2, j + 2)), 1,
                  kRelative);
    const double chi2 = static_cast<double>(dense.Chi2());
    EXPECT_NEAR(fit.Chi2XI() + fit.Chi2Beta(), chi2, kOfSigma * std::max(1.0, chi2));
    (void)problem;
  });
}

TEST(KinkSmoother, AgreesWithTheDenseFitAtAnyPosition) {
  ForRandomProblems(2, [](const Problem& problem, const KinkSmoother& fit, const DenseFit& dense) {
    std::vector<double> positions = problem.z;
    positions.insert(positions.end(), problem.s.begin(), problem.s.end());
    for (double z = -300; z < 1500; z += 100) positions.push_back(z);
    for (const double z : positions) {
      const auto h = dense.Row(z), slope = dense.SlopeRow(z);
      const KinkPoint point = fit.At(z);
      const double sigX = Sqrt(dense.Covariance(h, h)),
                   sigSlope = Sqrt(dense.Covariance(slope, slope));
      EXPECT_LT(Off(point.fX, dense.Value(h), sigX), kOfSigma) << z;
      EXPECT_LT(Off(point.fSlope, dense.Value(slope), sigSlope), kOfSigma) << z;
      EXPECT_NEAR(std::sqrt(point.fVarX) / sigX, 1, kRelative) << z;
      EXPECT_NEAR(std::sqrt(point.fVarSlope) / sigSlope, 1, kRelative) << z;
      EXPECT_LT(Off(point.fCovXSlope, dense.Covariance(h, slope), sigX * sigSlope), kRelative) << z;
      EXPECT_EQ(fit.X(z), point.fX);
      EXPECT_EQ(fit.Slope(z), point.fSlope);
    }
    for (unsigned i = 0; i < fit.NMeas(); i++) EXPECT_EQ(fit.XFit(i), fit.X(problem.z[i]));
  });
}

TEST(KinkSmoother, UnbiasedResidualsAreThoseOfTheFitWithoutTheMeasurement) {
  ForRandomProblems(3, [](const Problem& problem, const KinkSmoother& fit, const DenseFit& dense) {
    if (fit.NMeas() < 3) return; // without one measurement there is no fit
    for (unsigned i = 0; i < fit.NMeas(); i++) {
      Problem without = problem;
      without.sigx[i] = kInfinity;
      const DenseFit others(without);
      const auto h = dense.Row(problem.z[i]);
      const KinkResidual r = fit.Residual(i);
      const double sigma = problem.sigx[i];
      const double expected = sigma * sigma + static_cast<double>(others.Covariance(h, h));
      EXPECT_NEAR(r.fVarUnbiased / expected, 1, kRelative);
      EXPECT_LT(
          Off(r.fUnbiased, static_cast<Real>(problem.x[i]) - others.Value(h), std::sqrt(expected)),
          kOfSigma);
      const Real biased =
          static_cast<Real>(sigma) * static_cast<Real>(sigma) - dense.Covariance(h, h);
      EXPECT_NEAR(r.fVarBiased / static_cast<double>(biased), 1, kRelative);
      EXPECT_LT(Off(r.fBiased, static_cast<Real>(problem.x[i]) - dense.Value(h), Sqrt(biased)),
                kOfSigma);
      EXPECT_NEAR(r.fLeverage, static_cast<double>(dense.Covariance(h, h)) / (sigma * sigma),
                  kRelative);
      EXPECT_DOUBLE_EQ(r.fPull, r.fUnbiased / std::sqrt(r.fVarUnbiased));
      EXPECT_NEAR(r.fPull, r.fBiased / std::sqrt(r.fVarBiased), 1e-6 * (1 + std::abs(r.fPull)));
      EXPECT_DOUBLE_EQ(r.fChi2, fit.Chi2XIi(i));
    }
  });
}

/// -1/2 [log det V + log det H^T V^-1 H + r^T V^-1 r + (n - 2) log 2 pi] with the n x n covariance
/// V of the measurements about a straight line H: no kink is a parameter here.
double MarginalLogLikelihood(const Problem& problem) {
  const std::size_t n = problem.z.size();
  std::vector<Real> v(n * n);
  for (std::size_t i = 0; i < n; i++)
    for (std::size_t k = 0; k < n; k++) {
      Real sum = i == k ? 1 / DenseFit::Weight(problem.sigx[i]) : 0;
      for (std::size_t j = 0; j < problem.s.size(); j++) {
        const double lever = std::min(problem.z[i], problem.z[k]) - problem.s[j];
        if (lever > 0)
          sum += (static_cast<Real>(problem.z[i]) - static_cast<Real>(problem.s[j])) *
                 (static_cast<Real>(problem.z[k]) - static_cast<Real>(problem.s[j])) /
                 DenseFit::Weight(problem.sigAlpha[j]);
      }
      v[i * n + k] = sum;
    }
  const reference::Cholesky factor(v, n);
  const std::vector<Real> one(n, 1), z(problem.z.begin(), problem.z.end()),
      x(problem.x.begin(), problem.x.end());
  const auto dot = [&](const std::vector<Real>& a, const std::vector<Real>& b) {
    const std::vector<Real> c = factor.Solve(b);
    Real sum = 0;
    for (std::size_t i = 0; i < n; i++) sum += a[i] * c[i];
    return sum;
  };
  const Real a = dot(one, one), b = dot(one, z), c = dot(z, z), determinant = a * c - b * b;
  const Real yOne = dot(one, x), yZ = dot(z, x);
  const Real chi2 = dot(x, x) - (c * yOne * yOne - 2 * b * yOne * yZ + a * yZ * yZ) / determinant;
  return -0.5 * (factor.LogDeterminant() + reference::Log(determinant) + static_cast<double>(chi2) +
                 (static_cast<double>(n) - 2) * std::log(2 * M_PI));
}

TEST(KinkSmoother, LogLikelihoodIsThatOfTheMeasurementsWithTheKinksIntegratedOut) {
  ForRandomProblems(4, [](const Problem& problem, const KinkSmoother& fit, const DenseFit&) {
    const double expected = MarginalLogLikelihood(problem);
    EXPECT_NEAR(fit.LogLikelihood(), expected, kOfSigma * (1 + std::abs(expected)));
  });
}

// All kinds of awkward input at once, against the dense fit and Lutz.
TEST(KinkSmoother, TakesUnsetInfiniteCoincidentAndOutlyingInputAsLutzDoes) {
  const unsigned n = 9, m = 6;
  Lutz lutz(n, m);
  KinkSmoother fit(n, m);
  const auto load = [](auto& f) {
    f.SetMeasurement(0, 3, 1.5, 0.1);
    f.SetMeasurement(1, 1, 0.4, 0.2);
    f.SetMeasurement(2, 5, 2.0, kInfinity);
    // 3 is never set
    f.SetMeasurement(4, 3, 1.6, 0.1);
    f.SetMeasurement(5, -2, -1.1, 0.1);
    f.SetMeasurement(6, 7, 4.1, 0.3);
    f.SetMeasurement(7, 9, 5.0, 0.1);
    f.SetMeasurement(8, 10, 5.7, 0.1);
    f.SetScatteringPlane(0, 3, 0.1); // on two measurements
    f.SetScatteringPlane(1, 3, 0.2); // and on another plane
    f.SetScatteringPlane(2, 20, 0.1);
    f.SetScatteringPlane(3, -20, 0.1);
    // 4 is never set: a free kink at z = 0
    f.SetScatteringPlane(5, 6, kInfinity);
  };
  load(lutz);
  load(fit);
  const Results expected = FitOf(lutz), found = FitOf(fit);
  ASSERT_TRUE(lutz.Succeeded());
  ASSERT_TRUE(fit.Succeeded());
  EXPECT_NEAR(found.x0, expected.x0, 1e-11);
  EXPECT_NEAR(found.slope, expected.slope, 1e-11);
  EXPECT_NEAR(found.chi2, expected.chi2, 1e-10);
  EXPECT_EQ(fit.NDOF(), lutz.NDOF());
  for (unsigned j = 0; j < m; j++) EXPECT_NEAR(found.alpha[j], expected.alpha[j], 1e-11);
  const TMatrixDSym c = fit.Covariance(), expectedC = lutz.Covariance();
  for (int p = 0; p < 8; p++)
    for (int q = 0; q < 8; q++)
      EXPECT_NEAR(c(p, q), expectedC(p, q), 1e-11 * std::sqrt(expectedC(p, p) * expectedC(q, q)));
  for (double z = -3; z < 22; z += 0.5) {
    EXPECT_NEAR(fit.X(z), lutz.X(z), 1e-10);
    EXPECT_NEAR(fit.At(z).fVarX, lutz.VarX(z), 1e-10 * lutz.VarX(z));
  }
  EXPECT_EQ(fit.Chi2XIi(2), 0);
  EXPECT_EQ(fit.Residual(2).fPull, 0);
  EXPECT_EQ(fit.Residual(3).fLeverage, 0);
}

TEST(KinkSmoother, SaysWhyAProblemIsSingularAndGivesTheNullResult) {
  const auto status = [](const Problem& problem) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    KinkSmoother fit(static_cast<unsigned>(problem.z.size()),
                     static_cast<unsigned>(problem.s.size()));
    reference::Load(problem, fit);
    const Results r = FitOf(fit);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    if (fit.Status() != KinkStatus::kSucceeded && fit.Status() != KinkStatus::kNotFinite) {
      double chi2 = 0;
      for (std::size_t i = 0; i < problem.z.size(); i++)
        chi2 += problem.x[i] * problem.x[i] / (problem.sigx[i] * problem.sigx[i]);
      EXPECT_EQ(r.x0, 0);
      EXPECT_EQ(r.slope, 0);
      EXPECT_DOUBLE_EQ(r.chi2, chi2);
      EXPECT_EQ(fit.Chi2XI(), r.chi2);
      for (const double alpha : r.alpha) EXPECT_EQ(alpha, 0);
      EXPECT_EQ(fit.X(7), 0);
      EXPECT_EQ(fit.Slope(7), 0);
      EXPECT_TRUE(std::isnan(fit.At(7).fVarX));
      EXPECT_TRUE(std::isnan(fit.LogLikelihood()));
      EXPECT_TRUE(std::isnan(fit.Residual(0).fPull));
      EXPECT_TRUE(std::isnan(fit.Covariance()(0, 1)));
      for (unsigned j = 0; j < fit.NScat(); j++) EXPECT_TRUE(std::isnan(fit.VarKink(j)));
    }
    return fit.Status();
  };
  const std::vector<double> ones(5, 1);
  const double far = 0.1 + 0.2; // not a short binary fraction
  EXPECT_EQ(status({{1, 2}, {3, 4}, {kInfinity, kInfinity}, {}, {}}), KinkStatus::kNoMeasurement);
  EXPECT_EQ(status({{far, far, far}, {1, 2, 3}, {0.3, 0.7, 0.9}, {}, {}}),
            KinkStatus::kOnePosition);
  EXPECT_EQ(status({{2}, {1}, {1}, {}, {}}), KinkStatus::kOnePosition);
  EXPECT_EQ(status({{1, 2, 2, 2}, {1, 2, 3, 4}, {kInfinity, 1, 1, 1}, {1, 3}, {1, 1}}),
            KinkStatus::kOnePosition);
  // A free kink beyond all, before all, two with too little between, two on one spot.
  EXPECT_EQ(status({{1, 2, 3}, {1, 2, 3}, {1, 1, 1}, {far + 3}, {kInfinity}}),
            KinkStatus::kFreeKink);
  EXPECT_EQ(status({{1, 2, 3}, {1, 2, 3}, {1, 1, 1}, {far}, {kInfinity}}), KinkStatus::kFreeKink);
  EXPECT_EQ(status({{1, 2, far + 3}, {1, 2, 3}, {.1, .7, .3}, {far + 3}, {kInfinity}}),
            KinkStatus::kFreeKink);
  EXPECT_EQ(
      status({{far, far, 1, 2, 3}, {1, 2, 3, 4, 5}, {.1, .7, .3, .3, .3}, {far}, {kInfinity}}),
      KinkStatus::kFreeKink);
  EXPECT_EQ(status({{0, .1, 3, 4, 5}, ones, ones, {far, far}, {kInfinity, kInfinity}}),
            KinkStatus::kFreeKink);
  // Two apart: the line between them hangs on the lines outside.
  EXPECT_EQ(status({{0, .1, 3, 4, 5}, ones, ones, {far, 1}, {kInfinity, kInfinity}}),
            KinkStatus::kSucceeded);
  EXPECT_EQ(status({{1, 2, 3}, {1, kInfinity, 3}, {1, 1, 1}, {}, {}}), KinkStatus::kNotFinite);
  EXPECT_EQ(status({{1, kInfinity, 3}, {1, 2, 3}, {1, 1, 1}, {}, {}}), KinkStatus::kNotFinite);
}

TEST(KinkSmoother, AMeasurementThatAloneFixesTheTrackHasNoPull) {
  const KinkSmoother fit = Fitted({{0, 1}, {3, 5}, {0.1, 0.2}, {}, {}});
  for (unsigned i = 0; i < 2; i++) {
    const KinkResidual r = fit.Residual(i);
    EXPECT_EQ(r.fPull, 0);
    EXPECT_EQ(r.fUnbiased, 0);
    EXPECT_EQ(r.fVarUnbiased, kInfinity);
    EXPECT_EQ(r.fVarBiased, 0);
    EXPECT_EQ(r.fLeverage, 1);
  }
}

TEST(KinkSmoother, WeightFactorsActOnTheNextFit) {
  std::mt19937_64 random(13);
  const Problem problem = reference::RandomProblem(20, 7, random);
  Problem changed = problem;
  changed.sigx[4] *= 2;
  changed.sigx[9] = kInfinity;
  KinkSmoother fit = Fitted(problem);
  fit.SetWeightFactor(4, 0.25);
  fit.SetWeightFactor(9, 0);
  const Results found = FitOf(fit);
  KinkSmoother other = Fitted(changed);
  const Results expected = FitOf(other);
  EXPECT_EQ(found.x0, expected.x0);
  EXPECT_EQ(found.alpha, expected.alpha);
  EXPECT_EQ(fit.NDOF(), other.NDOF());
  // The measurement that was left out still has its own sigma.
  const KinkResidual r = fit.Residual(9);
  EXPECT_EQ(r.fLeverage, 0);
  EXPECT_DOUBLE_EQ(r.fVarUnbiased, problem.sigx[9] * problem.sigx[9] + fit.At(problem.z[9]).fVarX);
  fit.SetWeightFactor(4, 1);
  fit.SetMeasurement(9, problem.z[9], problem.x[9], problem.sigx[9]);
  KinkSmoother fresh = Fitted(problem);
  EXPECT_EQ(FitOf(fit).alpha, FitOf(fresh).alpha);
}

struct Pulls {
  void Add(double pull) {
    fN += 1;
    fSum += pull;
    fSquares += pull * pull;
  }
  double Mean() const { return fSum / fN; }
  double Rms() const { return std::sqrt(fSquares / fN); }
  double fN = 0, fSum = 0, fSquares = 0;
};

/// Bounds are five standard deviations of the estimate.
void ExpectStandard(const Pulls& pulls, const char* name) {
  EXPECT_LT(std::abs(pulls.Mean()) * std::sqrt(pulls.fN), 5) << name;
  EXPECT_LT(std::abs(pulls.Rms() - 1) * std::sqrt(2 * pulls.fN), 5) << name;
}

TEST(KinkSmoother, UncertaintiesAreThoseOfSimulatedTracks) {
  std::mt19937_64 random(20);
  Pulls x0, slope, kink, between, slopeBetween, beyond, residual, biased;
  double chi2 = 0, leverage = 0, better = 0;
  std::vector<int> probability(10);
  const int tracks = 4000;
  const unsigned n = 20, m = 8;
  for (int track = 0; track < tracks; track++) {
    Problem problem = reference::RandomProblem(n, m, random);
    const reference::Truth truth = reference::Draw(problem, random);
    const KinkSmoother fit = Fitted(problem);
    const TMatrixDSym c = fit.Covariance();
    const double before = -200;
    x0.Add((fit.X(before) - before * fit.Slope(before) - truth.x0) / std::sqrt(c(0, 0)));
    slope.Add((fit.Slope(before) - truth.slope) / std::sqrt(c(1, 1)));
    kink.Add((fit.Kink(3) - truth.kinks[3]) / std::sqrt(fit.VarKink(3)));
    const KinkPoint inside = fit.At(432), outside = fit.At(1500);
    between.Add((inside.fX - truth.X(problem, 432)) / std::sqrt(inside.fVarX));
    double trueSlope = truth.slope;
    for (unsigned j = 0; j < m; j++)
      if (problem.s[j] < 432) trueSlope += truth.kinks[j];
    slopeBetween.Add((inside.fSlope - trueSlope) / std::sqrt(inside.fVarSlope));
    beyond.Add((outside.fX - truth.X(problem, 1500)) / std::sqrt(outside.fVarX));
    const KinkResidual r = fit.Residual(5);
    residual.Add(r.fUnbiased / std::sqrt(r.fVarUnbiased));
    biased.Add(r.fBiased / std::sqrt(r.fVarBiased));
    chi2 += fit.Chi2XI() + fit.Chi2Beta();
    for (unsigned i = 0; i < n; i++) leverage += fit.Residual(i).fLeverage;
    for (unsigned j = 0; j < m; j++) leverage += fit.VarKink(j) / std::pow(problem.sigAlpha[j], 2);
    const double p = TMath::Prob(fit.Chi2XI() + fit.Chi2Beta(), fit.NDOF());
    ++probability[std::min(static_cast<std::size_t>(10 * p), std::size_t{9})];
    Problem wrong = problem;
    for (double& width : wrong.sigAlpha) width *= 3;
    if (fit.LogLikelihood() > Fitted(wrong).LogLikelihood()) better++;
  }
  ExpectStandard(x0, "x0");
  ExpectStandard(slope, "slope");
  ExpectStandard(kink, "kink");
  ExpectStandard(between, "x between planes");
  ExpectStandard(slopeBetween, "slope between planes");
  ExpectStandard(beyond, "x beyond all");
  ExpectStandard(residual, "unbiased residual");
  ExpectStandard(biased, "biased residual");
  const double ndof = n - 2;
  EXPECT_LT(std::abs(chi2 / tracks - ndof), 5 * std::sqrt(2 * ndof / tracks));
  // The trace of the whole fit's projection, the kinks' widths being measurements too.
  EXPECT_NEAR(leverage / tracks, 2 + m, 1e-6);
  double flat = 0; // chi-square of ten equal bins
  for (const int count : probability) flat += std::pow(count - tracks / 10., 2) / (tracks / 10.);
  EXPECT_LT(flat, 33.7) << "probability 1e-4 for 9 degrees of freedom";
  EXPECT_GT(better, 0.75 * tracks) << "the likelihood prefers the true widths to wrong ones";
}

void ExpectThrow(unsigned code, double value, const std::function<void()>& act) {
  try {
    act();
    ADD_FAILURE() << "nothing thrown";
  } catch (const KelvoException& e) {
    EXPECT_EQ(e.fCode, code);
    EXPECT_EQ(std::memcmp(&e.fValue, &value, sizeof value), 0) << e.fValue;
    EXPECT_STREQ(e.fFile, "fit/KinkSmoother");
  }
}

TEST(KinkSmoother, RefusesBadInputInTheOrderOfLutz) {
  KinkSmoother fit(3, 2);
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetMeasurement(3, kNotANumber, 1, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetMeasurement(0, kNotANumber, 1, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetMeasurement(0, 1, kNotANumber, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetMeasurement(0, 1, 1, kNotANumber); });
  ExpectThrow(kBadSigX, 0, [&] { fit.SetMeasurement(0, 1, 1, 0); });
  ExpectThrow(kBadSigX, -0.0, [&] { fit.SetMeasurement(0, 1, 1, -0.0); });
  ExpectThrow(kBadSigX, -2, [&] { fit.SetMeasurement(0, 1, 1, -2); });
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetScatteringPlane(2, kNotANumber, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetScatteringPlane(0, kNotANumber, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetScatteringPlane(0, 1, kNotANumber); });
  ExpectThrow(kBadSigSJ, -3, [&] { fit.SetScatteringPlane(0, 1, -3); });
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetWeightFactor(3, 1); });
  ExpectThrow(kIndexProblem, 1.5, [&] { fit.SetWeightFactor(0, 1.5); });
  ExpectThrow(kIndexProblem, -0.5, [&] { fit.SetWeightFactor(0, -0.5); });
}

void LoadArrays(const Problem& p, KinkSmoother& fit) {
  fit.Load(static_cast<unsigned>(p.z.size()), p.z.data(), p.x.data(), p.sigx.data(),
           static_cast<unsigned>(p.s.size()), p.s.data(), p.sigAlpha.data());
}

TEST(KinkSmoother, LoadingArraysIsLoadingEachElement) {
  std::mt19937_64 random(15);
  KinkSmoother fit(1, 0);
  for (unsigned m : {0u, 1u, 6u, 13u}) {
    Problem problem = reference::RandomProblem(m + 9, m, random);
    problem.sigx[2] = kInfinity;
    if (m > 3) problem.sigAlpha[3] = kInfinity;
    fit.SetWeightFactor(0, 0.5);
    LoadArrays(problem, fit);
    EXPECT_EQ(fit.Status(), KinkStatus::kNotFitted);
    EXPECT_EQ(fit.WeightFactor(0), 1);
    EXPECT_EQ(fit.Chi2XI(), 0);
    KinkSmoother each = Fitted(problem);
    const Results expected = FitOf(each);
    const Results found = FitOf(fit);
    EXPECT_EQ(found.x0, expected.x0);
    EXPECT_EQ(found.slope, expected.slope);
    EXPECT_EQ(found.chi2, expected.chi2);
    EXPECT_EQ(found.alpha, expected.alpha);
    EXPECT_EQ(fit.LogLikelihood(), each.LogLikelihood());
    EXPECT_EQ(fit.Residual(5).fPull, each.Residual(5).fPull);
  }
}

TEST(KinkSmoother, RefusesArraysWithABadElementAndIsThenEmpty) {
  std::mt19937_64 random(16);
  const Problem good = reference::RandomProblem(5, 2, random);
  KinkSmoother fit(3, 1);
  const auto expect = [&](unsigned code, double value, const std::function<void(Problem&)>& spoil) {
    Problem bad = good;
    spoil(bad);
    LoadArrays(good, fit);
    FitOf(fit);
    ExpectThrow(code, value, [&] { LoadArrays(bad, fit); });
    EXPECT_EQ(fit.NMeas(), 5u);
    FitOf(fit);
    EXPECT_EQ(fit.Status(), KinkStatus::kNoMeasurement);
  };
  expect(kNaN, 0, [](Problem& p) { p.z[4] = kNotANumber; });
  expect(kNaN, 0, [](Problem& p) { p.x[4] = kNotANumber; });
  expect(kNaN, 0, [](Problem& p) { p.sigx[0] = kNotANumber; });
  expect(kBadSigX, 0, [](Problem& p) { p.sigx[3] = 0; });
  expect(kBadSigX, -1, [](Problem& p) { p.sigx[3] = p.sigAlpha[0] = -1; });
  expect(kNaN, 0, [](Problem& p) { p.s[1] = kNotANumber; });
  expect(kNaN, 0, [](Problem& p) { p.sigAlpha[1] = kNotANumber; });
  expect(kBadSigSJ, -2, [](Problem& p) { p.sigAlpha[1] = -2; });
}

TEST(KinkSmoother, CopyKeepsItsFitWhenTheOriginalTakesAnother) {
  const Problem problem = {{0, 1, 3, 4, 6}, {1, 2, 5, 5, 9}, {1, 1, 1, 1, 1}, {2}, {0.5}};
  KinkSmoother original = Fitted(problem);
  const KinkSmoother copy = original;
  KinkSmoother assigned(1, 0);
  assigned = original;
  const KinkSmoother expected = Fitted(problem);
  original.Reset(2, 0);
  for (const KinkSmoother* fit : {&copy, static_cast<const KinkSmoother*>(&assigned)}) {
    EXPECT_TRUE(SameBits(fit->At(3.5).fVarX, expected.At(3.5).fVarX));
    EXPECT_TRUE(SameBits(fit->Kink(0), expected.Kink(0)));
    EXPECT_TRUE(SameBits(fit->Residual(2).fPull, expected.Residual(2).fPull));
    EXPECT_TRUE(SameBits(fit->LogLikelihood(), expected.LogLikelihood()));
  }
}

TEST(KinkSmoother, SecondUseAllocatesNothingAndRemembersNothing) {
  std::mt19937_64 random(14);
  const Problem large = reference::RandomProblem(60, 30, random);
  const Problem small = reference::RandomProblem(20, 7, random);
  KinkSmoother used = Fitted(large);
  used.Residual(0);
  Results found;
  found.alpha.resize(7);
  const std::size_t before = bench::AllocationCount();
  used.Reset(20, 7);
  reference::Load(small, used);
  used.Fit(&found.x0, &found.slope, found.alpha.data(), &found.chi2);
  used.LogLikelihood();
  used.Residual(3);
  const std::size_t after = bench::AllocationCount();
  EXPECT_EQ(after, before);
  KinkSmoother fresh = Fitted(small);
  const Results expected = FitOf(fresh);
  EXPECT_EQ(found.x0, expected.x0);
  EXPECT_EQ(found.chi2, expected.chi2);
  EXPECT_EQ(found.alpha, expected.alpha);
}

} // namespace
} // namespace kelvo
