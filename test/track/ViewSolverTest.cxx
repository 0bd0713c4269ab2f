#include "track/ViewSolver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

// Reference of the likelihood: the Gaussian density of the measurements with their full covariance
// matrix, in extended precision. It shares neither parameters nor normal equations with the
// solvers.

namespace {

using Matrix = std::vector<std::vector<long double>>;

/// Solves V x = b by Gaussian elimination with pivots, for several b at once; returns ln |det V|.
long double Solve(Matrix v, Matrix& b) {
  const std::size_t n = v.size();
  long double logDeterminant = 0;
  for (std::size_t k = 0; k < n; k++) {
    std::size_t pivot = k;
    for (std::size_t i = k + 1; i < n; i++)
      if (std::fabs(v[i][k]) > std::fabs(v[pivot][k])) pivot = i;
    std::swap(v[k], v[pivot]);
    std::swap(b[k], b[pivot]);
    logDeterminant += std::log(std::fabs(v[k][k]));
    for (std::size_t i = 0; i < n; i++) {
      if (i == k) continue;
      const long double f = v[i][k] / v[k][k];
      for (std::size_t j = 0; j < n; j++) v[i][j] -= f * v[k][j];
      for (std::size_t j = 0; j < b[i].size(); j++) b[i][j] -= f * b[k][j];
    }
  }
  for (std::size_t k = 0; k < n; k++)
    for (long double& x : b[k]) x /= v[k][k];
  return logDeterminant;
}

/// The marginal likelihood from V = diag(sig^2) + Z diag(sigAlpha^2) Z^T, Z the lever arms, and
/// H = (1, s): with M = H^T V^-1 H and t = M^-1 H^T V^-1 a the line of least squares,
///   -1/2 [(a - H t)^T V^-1 (a - H t) + ln det V + ln det M + (n - 2) ln 2 pi].
double Reference(const kelvo::ViewProblem& p, const kelvo::PlaneList& planes) {
  const std::size_t n = p.fS.size();
  Matrix v(n, std::vector<long double>(n)), b(n);
  for (std::size_t i = 0; i < n; i++) {
    v[i][i] += static_cast<long double>(p.fSig[i]) * p.fSig[i];
    for (std::size_t k = 0; k < n; k++)
      for (std::size_t j = 0; j < planes.fS.size(); j++)
        v[i][k] += std::pow(static_cast<long double>(planes.fSigAlpha[j]), 2) *
                   std::max(p.fS[i] - planes.fS[j], 0.) * std::max(p.fS[k] - planes.fS[j], 0.);
    b[i] = {1, p.fS[i], p.fA[i]};
  }
  const Matrix right = b;
  const long double logV = Solve(v, b); // b becomes V^-1 (1, s, a)
  long double g[3][3] = {};
  for (std::size_t i = 0; i < n; i++)
    for (int j = 0; j < 3; j++)
      for (int k = 0; k < 3; k++)
        g[j][k] += right[i][static_cast<std::size_t>(j)] * b[i][static_cast<std::size_t>(k)];
  const long double det = g[0][0] * g[1][1] - g[0][1] * g[1][0];
  const long double t0 = (g[1][1] * g[0][2] - g[0][1] * g[1][2]) / det;
  const long double t1 = (g[0][0] * g[1][2] - g[1][0] * g[0][2]) / det;
  const long double chi2 = g[2][2] - t0 * g[0][2] - t1 * g[1][2];
  const long double two = 2 * std::acos(-1.0L);
  return static_cast<double>(
      -(chi2 + logV + std::log(det) + (static_cast<long double>(n) - 2) * std::log(two)) / 2);
}

TEST(ViewSolverTest, TheLikelihoodIsTheDensityOfTheMeasurements) {
  constexpr double kAccuracy = 1e-8; // of the logarithm; conditioning takes some digits
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> uniform(0, 1);
  for (kelvo::Solver solver : {kelvo::Solver::kLinear, kelvo::Solver::kDense}) {
    kelvo::ViewSolver fit(solver);
    for (int k = 0; k < 200; k++) {
      kelvo::ViewProblem problem;
      kelvo::PlaneList planes;
      const std::size_t n = 2 + random() % 30, m = random() % n;
      for (std::size_t i = 0; i < n; i++)
        problem.Add(6 * static_cast<double>(i) + uniform(random), uniform(random),
                    0.1 + uniform(random));
      for (std::size_t j = 0; j < m; j++) {
        planes.fS.push_back(6 * static_cast<double>(n) * (static_cast<double>(j) + 0.5) /
                            static_cast<double>(m));
        planes.fSigAlpha.push_back(0.001 + 0.05 * uniform(random));
      }
      kelvo::ViewFit result;
      std::vector<kelvo::KinkPoint> state;
      double logLikelihood = 0;
      ASSERT_TRUE(fit.Solve(problem, planes, problem.fS, result, state, logLikelihood));
      const double expected = Reference(problem, planes);
      EXPECT_NEAR(logLikelihood, expected, kAccuracy * std::max(1., std::abs(expected)))
          << n << " measurements, " << m << " planes";
      EXPECT_EQ(state.size(), n);
      EXPECT_EQ(result.fNDF, static_cast<int>(n) - 2);
    }
  }
}

TEST(ViewSolverTest, InterceptAndSlopeAreThoseBeforeAllPlanesWhereverTheyAre) {
  constexpr double kAccuracy = 1e-9;
  kelvo::ViewProblem problem;
  for (int i = 0; i < 12; i++) problem.Add(-100 + 6 * i, 0.3 * std::sin(i * i), 0.3);
  kelvo::PlaneList planes;
  planes.fS = {-80, -50};
  planes.fSigAlpha = {0.01, 0.02};
  kelvo::ViewFit fits[2];
  std::vector<kelvo::KinkPoint> state;
  double logLikelihood = 0;
  kelvo::ViewSolver linear(kelvo::Solver::kLinear), dense(kelvo::Solver::kDense);
  ASSERT_TRUE(linear.Solve(problem, planes, problem.fS, fits[0], state, logLikelihood));
  ASSERT_TRUE(dense.Solve(problem, planes, problem.fS, fits[1], state, logLikelihood));
  EXPECT_NEAR(fits[0].fIntercept, fits[1].fIntercept, kAccuracy);
  EXPECT_NEAR(fits[0].fSlope, fits[1].fSlope, kAccuracy);
  for (int i = 0; i < 3; i++) EXPECT_NEAR(fits[0].fCov[i] / fits[1].fCov[i], 1, kAccuracy);
}

TEST(ViewSolverTest, ASingularViewIsRefusedSilentlyByBothSolvers) {
  for (kelvo::Solver solver : {kelvo::Solver::kLinear, kelvo::Solver::kDense}) {
    kelvo::ViewSolver fit(solver);
    kelvo::ViewProblem problem;
    for (int i = 0; i < 5; i++) problem.Add(3, i, 1); // all at one place: no slope
    kelvo::ViewFit result;
    std::vector<kelvo::KinkPoint> state;
    double logLikelihood = 0;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fit.Solve(problem, {}, problem.fS, result, state, logLikelihood));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
}

} // namespace
