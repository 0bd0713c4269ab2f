#include <TError.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "func/Lutz.h"
#include "test/support/Allocations.h"
#include "test/support/LutzPlain.h"
#include "test/support/LutzPrecise.h"
#include "test/support/LutzStages.h"

// The numbers of the fit: bit for bit against the plain scalar program, and within rounding against
// a solution by another method in extended precision.

namespace kelvo {
namespace {

using test::LutzPrecise;
using test::LutzProblem;
using test::LutzSolution;

// Rounding errors seen are at most a third of these many units; see LutzPrecise for the unit.
constexpr double kUlps = 12;

/// Singular problems are part of what is compared, and their messages would fill the screen.
class QuietFailures {
public:
  QuietFailures() : fHandler(GetErrorHandler()), fBuffer(std::cerr.rdbuf(fText.rdbuf())) {
    SetErrorHandler([](int, bool, const char*, const char*) {});
  }
  ~QuietFailures() {
    SetErrorHandler(fHandler);
    std::cerr.rdbuf(fBuffer);
  }
  QuietFailures(const QuietFailures&) = delete;
  QuietFailures& operator=(const QuietFailures&) = delete;

private:
  std::ostringstream fText;
  ErrorHandlerFunc_t fHandler;
  std::streambuf* fBuffer;
};

/// Equal bits; numbers that are none are equal, since their payload is the processor's business.
bool Same(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

LutzSolution Solve(const LutzProblem& p) {
  Lutz fit(p.NMeas(), p.NScat());
  Load(p, fit);
  LutzStages::Prepare(fit);
  LutzStages::FillA(fit);
  LutzSolution s;
  s.fA = test::Elements(LutzStages::A(fit));
  s.fAlpha.resize(p.NScat());
  fit.Fit(&s.fX0, &s.fSlope, s.fAlpha.data(), &s.fChi2);
  s.fSucceeded = fit.Succeeded();
  for (unsigned int i = 0; i < p.NMeas(); i++) {
    s.fXfit.push_back(fit.X(std::isnan(p.fSigX[i]) ? 0 : p.fZ[i])); // slots never loaded are at 0
    s.fChi2XI.push_back(fit.Chi2XIi(i));
  }
  s.fAinv = test::Elements(fit.Covariance());
  return s;
}

::testing::AssertionResult SameBits(const LutzSolution& fit, const LutzSolution& plain) {
  if (fit.fSucceeded != plain.fSucceeded)
    return ::testing::AssertionFailure() << "succeeded " << fit.fSucceeded;
  const auto compare = [](const char* what, double a, double b) {
    if (Same(a, b)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << what << " " << std::hexfloat << a << " plain " << b;
  };
  ::testing::AssertionResult result = compare("x0", fit.fX0, plain.fX0);
  for (std::size_t k = 0; result && k < plain.fA.size(); k++)
    result = compare("normal matrix", fit.fA[k], plain.fA[k]);
  if (result) result = compare("slope", fit.fSlope, plain.fSlope);
  if (result) result = compare("chi2", fit.fChi2, plain.fChi2);
  for (std::size_t j = 0; result && j < plain.fAlpha.size(); j++)
    result = compare("kink", fit.fAlpha[j], plain.fAlpha[j]);
  for (std::size_t i = 0; result && i < plain.fXfit.size(); i++) {
    result = compare("chi2 of a measurement", fit.fChi2XI[i], plain.fChi2XI[i]);
    // A null result times an infinite position is no number, but the fitted value is 0.
    if (result && plain.fSucceeded) result = compare("fitted x", fit.fXfit[i], plain.fXfit[i]);
  }
  const std::size_t size = plain.fAlpha.size() + 2;
  for (std::size_t p = 0; result && plain.fSucceeded && p < size; p++)
    for (std::size_t q = 0; result && q < size; q++) {
      const double a = plain.fAinv[p * size + q], b = plain.fAinv[q * size + p];
      result = compare("covariance", fit.fAinv[p * size + q], p == q ? a : 0.5 * (a + b));
    }
  return result;
}

/// Measurements and planes anywhere, in any order, with ties among and between them.
LutzProblem RandomProblem(unsigned int m, std::mt19937_64& random) {
  std::uniform_real_distribution<double> uniform(0, 1);
  const unsigned int n = m + 1 + static_cast<unsigned int>(random() % (m + 8));
  const double range = std::pow(10, 4 * uniform(random));
  const double offset = random() % 3 == 0 ? 0 : 1000 * (uniform(random) - 0.5);
  const bool grid = random() % 4 == 0;
  const auto position = [&] {
    const double z = offset + range * (uniform(random) - 0.5);
    return grid ? std::round(z) : z;
  };
  LutzProblem p;
  for (unsigned int j = 0; j < m; j++) {
    p.fS.push_back(j > 0 && random() % 16 == 0 ? p.fS[random() % j] : position());
    p.fSigAlpha.push_back(std::pow(10, -4 + 3 * uniform(random)));
  }
  for (unsigned int i = 0; i < n; i++) {
    p.fZ.push_back(m > 0 && random() % 8 == 0 ? p.fS[random() % m] : position());
    p.fX.push_back(200 * (uniform(random) - 0.5));
    p.fSigX.push_back(std::pow(10, -2 + 3 * uniform(random)));
  }
  return p;
}

/// Replaces some sigmas by infinity and some slots by ones never loaded.
void LoseSome(LutzProblem& p, std::mt19937_64& random) {
  const double lost[] = {INFINITY, NAN};
  for (double& sigma : p.fSigX)
    if (random() % 16 == 0) sigma = lost[random() % 2];
  for (double& sigma : p.fSigAlpha)
    if (random() % 64 == 0) sigma = lost[random() % 2];
}

void ExpectSameBits(const LutzProblem& p) {
  const LutzSolution fit = Solve(p);
  ASSERT_TRUE(SameBits(fit, test::PlainSolutionO0(p))) << p.NMeas() << "/" << p.NScat();
  ASSERT_TRUE(SameBits(fit, test::PlainSolutionO3(p))) << p.NMeas() << "/" << p.NScat();
}

TEST(LutzNumericsTest, EveryNumberOfPlanesGivesTheBitsOfThePlainProgram) {
  const QuietFailures quiet;
  std::mt19937_64 random(20);
  for (unsigned int m = 0; m <= 120; m++) {
    const LutzProblem p = RandomProblem(m, random);
    ASSERT_NO_FATAL_FAILURE(ExpectSameBits(p));
  }
}

TEST(LutzNumericsTest, ThousandsOfProblemsGiveTheBitsOfThePlainProgram) {
  const QuietFailures quiet;
  std::mt19937_64 random(21);
  int succeeded = 0;
  for (unsigned int k = 0; k < 3000; k++) {
    LutzProblem p = RandomProblem(k % 31, random);
    if (k % 2 == 0) LoseSome(p, random);
    ASSERT_NO_FATAL_FAILURE(ExpectSameBits(p));
    if (Solve(p).fSucceeded) succeeded++;
  }
  EXPECT_GT(succeeded, 2000);
}

TEST(LutzNumericsTest, InfinitePositionsAndValuesGiveTheBitsOfThePlainProgram) {
  const QuietFailures quiet;
  std::mt19937_64 random(22);
  for (unsigned int k = 0; k < 500; k++) {
    LutzProblem p = RandomProblem(k % 21, random);
    const double infinity = random() % 2 ? INFINITY : -INFINITY;
    const std::size_t i = random() % p.fZ.size();
    if (k % 4 == 0) p.fZ[i] = infinity;
    if (k % 4 == 1) p.fX[i] = infinity;
    if (k % 4 == 2 && p.NScat() > 0) p.fS[random() % p.fS.size()] = infinity;
    if (k % 4 == 3) p.fSigX[i] = 1e-200; // the weight is infinite, too
    ASSERT_NO_FATAL_FAILURE(ExpectSameBits(p));
  }
}

TEST(LutzNumericsTest, OverflowingSumsGiveTheBitsOfThePlainProgram) {
  const QuietFailures quiet;
  std::mt19937_64 random(23);
  for (unsigned int k = 0; k < 200; k++) {
    LutzProblem p = RandomProblem(k % 21, random);
    for (double& z : p.fZ) z *= 1e150;
    for (double& s : p.fS) s *= 1e150;
    ASSERT_NO_FATAL_FAILURE(ExpectSameBits(p));
  }
}

TEST(LutzNumericsTest, LoadingAndTheNormalMatrixTakeNothingFromTheHeap) {
  for (const unsigned int m : {0u, 3u, 20u, 120u}) {
    const LutzProblem p = test::TrackProblem(m + 10, m, 1);
    Lutz fit(p.NMeas(), p.NScat());
    const std::size_t before = bench::AllocationCount();
    Load(p, fit);
    LutzStages::Prepare(fit);
    LutzStages::FillA(fit);
    EXPECT_EQ(bench::AllocationCount(), before) << m;
  }
}

/// Holds the fit and all it tells against the solution in extended precision. Returns the largest
/// tolerance of a parameter in units of its standard deviation.
double ExpectPrecise(const LutzProblem& p) {
  const LutzPrecise precise(p);
  Lutz fit(p.NMeas(), p.NScat());
  Load(p, fit);
  std::vector<double> q(p.NScat() + 2);
  double chi2 = 0;
  fit.Fit(&q[0], &q[1], q.data() + 2, &chi2);
  EXPECT_TRUE(fit.Succeeded());
  const TMatrixDSym c = fit.Covariance();
  double worst = 0;
  for (std::size_t a = 0; a < q.size(); a++) {
    EXPECT_NEAR(q[a], static_cast<double>(precise.Parameter(a)), kUlps * precise.ParameterUlp(a))
        << "parameter " << a;
    const double sigma = std::sqrt(static_cast<double>(precise.Covariance(a, a)));
    worst = std::max(worst, kUlps * precise.ParameterUlp(a) / sigma);
    for (const std::size_t b : {std::size_t{0}, std::size_t{1}, a / 2, a})
      EXPECT_NEAR(c(static_cast<int>(a), static_cast<int>(b)),
                  static_cast<double>(precise.Covariance(a, b)),
                  kUlps * precise.CovarianceUlp(a, b))
          << "covariance " << a << ", " << b;
  }
  for (const double z : {p.fZ.front(), p.fZ.back(), p.fZ.front() - 7, p.fZ.back() + 11}) {
    const std::vector<long double> h = precise.Levers(z);
    double tolerance = 0, tolerance2 = 0;
    for (std::size_t a = 0; a < q.size(); a++) {
      tolerance += static_cast<double>(std::abs(h[a])) * precise.ParameterUlp(a);
      for (std::size_t b = 0; b < q.size() && q.size() < 200; b++)
        tolerance2 += static_cast<double>(std::abs(h[a] * h[b])) * precise.CovarianceUlp(a, b);
    }
    EXPECT_NEAR(fit.X(z), static_cast<double>(precise.X(z)), kUlps * tolerance) << "x at " << z;
    if (q.size() < 200) {
      EXPECT_NEAR(fit.VarX(z), static_cast<double>(precise.VarX(z)), kUlps * tolerance2)
          << "variance at " << z;
    }
  }
  return worst;
}

TEST(LutzNumericsTest, ExtendedPrecisionSolvesAStraightLineLikeTheTextbook) {
  const LutzProblem p{{1, 2, 4}, {3, 4, 9}, {1, 0.5, 0.25}, {}, {}};
  const double s = 21, sz = 73, szz = 273, sx = 163, szx = 611; // weights 1, 4, 16
  const LutzPrecise precise(p);
  const double det = s * szz - sz * sz;
  EXPECT_NEAR(static_cast<double>(precise.Parameter(0)), (szz * sx - sz * szx) / det, 1e-14);
  EXPECT_NEAR(static_cast<double>(precise.Parameter(1)), (s * szx - sz * sx) / det, 1e-14);
  EXPECT_NEAR(static_cast<double>(precise.Covariance(0, 0)), szz / det, 1e-15);
  EXPECT_NEAR(static_cast<double>(precise.Covariance(1, 0)), -sz / det, 1e-15);
  EXPECT_NEAR(static_cast<double>(precise.Covariance(1, 1)), s / det, 1e-15);
}

TEST(LutzNumericsTest, ExtendedPrecisionFindsTheMinimumOfChi2) {
  const LutzProblem p = test::TrackProblem(12, 5, 3);
  const LutzPrecise precise(p);
  std::vector<long double> slope(p.fS.size() + 2); // of chi2 in each parameter
  for (std::size_t i = 0; i < p.fZ.size(); i++)
    for (std::size_t a = 0; a < slope.size(); a++)
      slope[a] += (p.fX[i] - precise.X(p.fZ[i])) * precise.Levers(p.fZ[i])[a] / (0.3L * 0.3L);
  for (std::size_t j = 0; j < p.fS.size(); j++) slope[j + 2] -= precise.Parameter(j + 2) / 1e-6L;
  for (const long double each : slope) EXPECT_NEAR(static_cast<double>(each), 0, 1e-9);
}

TEST(LutzNumericsTest, RandomProblemsAgreeWithExtendedPrecision) {
  std::mt19937_64 random(24);
  int sharp = 0;
  for (unsigned int k = 0; k < 410; k++) {
    SCOPED_TRACE("problem " + std::to_string(k));
    if (ExpectPrecise(RandomProblem(k % 41, random)) < 0.1) sharp++;
  }
  EXPECT_GT(sharp, 205) << "tolerances too wide to test anything";
}

TEST(LutzNumericsTest, TracksAgreeWithExtendedPrecision) {
  for (const unsigned int m : {0u, 1u, 3u, 4u, 5u, 8u, 20u, 60u, 120u}) {
    SCOPED_TRACE(m);
    const LutzProblem p = test::TrackProblem(m + 10, m, m);
    EXPECT_LT(ExpectPrecise(p), 1e-4);
    // Parameters within 1e-4 of their standard deviations leave chi2 well within this.
    const double chi2 = static_cast<double>(LutzPrecise(p).Chi2());
    EXPECT_NEAR(Solve(p).fChi2, chi2, 1e-4 * chi2);
  }
}

// ROOT's fast inversion takes sizes 257 to 262 and 513 to 518, two above m, for 1 to 6.
TEST(LutzNumericsTest, SizesThatTheFastInversionMistakesAgreeWithExtendedPrecision) {
  for (unsigned int m = 250; m <= 517; m == 265 ? m = 511 : ++m) {
    SCOPED_TRACE(m);
    EXPECT_LT(ExpectPrecise(test::TrackProblem(m + 3, m, m)), 1);
  }
}

} // namespace
} // namespace kelvo
