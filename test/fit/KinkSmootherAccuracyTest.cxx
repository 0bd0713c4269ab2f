// How many digits survive, against the banded fit in 34 digits (KinkReference.h).
#include <gtest/gtest.h>

#include "fit/KinkSmoother.h"
#include "func/Lutz.h"
#include "test/support/KinkReference.h"

namespace kelvo {
namespace {

using reference::Problem;
using reference::Real;

// In units of each result's standard deviation. x and z as given are rounded by 1e-16 of their own
// size, and x / sigma reaches 1e6 here.
constexpr double kInputRounding = 2e-10;
constexpr double kOfSigma = 5e-10;

struct Parameters {
  double x0 = 0, slope = 0;
  std::vector<double> alpha;
};

template <class Fitter>
Parameters Fit(const Problem& problem, Fitter& fitter) {
  Parameters p;
  p.alpha.resize(problem.s.size());
  reference::Load(problem, fitter);
  fitter.Fit(&p.x0, &p.slope, p.alpha.data(), nullptr);
  return p;
}

/// The largest error of all parameters in units of their standard deviations.
double Error(const Parameters& p, const reference::BandedFit& expected, const KinkSmoother& fit) {
  const KinkPoint before = fit.At(-1000);
  const double varX0 =
      before.fVarX + 1e6 * before.fVarSlope + 2000 * before.fCovXSlope; // moved to z = 0
  const auto off = [](double value, Real reference, double variance) {
    return std::abs(static_cast<double>(static_cast<Real>(value) - reference)) /
           std::sqrt(variance);
  };
  double error =
      std::max(off(p.x0, expected.x0, varX0), off(p.slope, expected.slope, before.fVarSlope));
  for (unsigned j = 0; j < p.alpha.size(); j++)
    error = std::max(error, off(p.alpha[j], expected.kinks[j], fit.VarKink(j)));
  return error;
}

TEST(KinkSmootherReference, BandedFitAgreesWithTheDenseOne) {
  std::mt19937_64 random(1);
  for (const unsigned m : {0u, 1u, 5u, 12u}) {
    const Problem problem = reference::RandomProblem(m + 4, m, random);
    const reference::DenseFit dense(problem, false);
    const reference::BandedFit banded(problem);
    const auto expectNear = [](Real a, Real b) {
      EXPECT_LT(std::abs(static_cast<double>(a - b)), 1e-18);
    };
    expectNear(dense.Parameter(0), banded.x0);
    expectNear(dense.Parameter(1), banded.slope);
    for (unsigned j = 0; j < m; j++) expectNear(dense.Parameter(j + 2), banded.kinks[j]);
  }
}

/// Widths of planes over five decades, sigmas of measurements over three.
void Sweep(unsigned n, unsigned m, int problems, bool besideLutz) {
  SCOPED_TRACE(testing::Message() << "n = " << n << ", m = " << m);
  std::mt19937_64 random(n);
  testing::internal::CaptureStderr(); // Lutz says when it gives up
  for (int i = 0; i < problems; i++) {
    const Problem problem = reference::RandomProblem(n, m, random);
    const reference::BandedFit expected(problem);
    KinkSmoother fit(n, m);
    const double error = Error(Fit(problem, fit), expected, fit);
    EXPECT_LT(error, kOfSigma) << "problem " << i;
    if (!besideLutz) continue;
    Lutz dense(n, m);
    const Parameters p = Fit(problem, dense);
    if (!dense.Succeeded()) continue;
    EXPECT_LT(error, std::max(kInputRounding, 10 * Error(p, expected, fit))) << "problem " << i;
  }
  testing::internal::GetCapturedStderr();
}

TEST(KinkSmootherAccuracy, KeepsNineDigitsOfSigmaInSmallProblems) {
  Sweep(2, 0, 2000, true);
  Sweep(4, 1, 1000, true);
  Sweep(10, 3, 1000, true);
  Sweep(20, 8, 500, true);
}

TEST(KinkSmootherAccuracy, KeepsThemInLargeProblemsToo) {
  Sweep(100, 40, 50, false);
  Sweep(400, 200, 10, false);
  Sweep(4000, 2000, 2, false);
}

} // namespace
} // namespace kelvo
