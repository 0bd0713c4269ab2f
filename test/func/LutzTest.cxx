#include "func/Lutz.h"

#include <TError.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "func/KelvoException.h"

// What the fit accepts, refuses and answers, against closed forms and relations between fits, and
// against simulated tracks with known truth. LutzNumericsTest holds its numbers against others'.

namespace kelvo {
namespace {

const double kNan = std::nan("");
constexpr double kInfinity = INFINITY;
constexpr double kRounding = 1e-12; // of numbers near 1 after a few operations

/// Expects the statement to throw the code and value from a throw statement of func/Lutz.
template <class Statement>
void ExpectThrow(unsigned int code, double value, const Statement& statement) {
  try {
    statement();
    FAIL() << "nothing thrown, expected code " << code;
  } catch (const KelvoException& e) {
    EXPECT_EQ(e.fCode, code);
    EXPECT_EQ(e.fValue, value);
    EXPECT_EQ(std::signbit(e.fValue), std::signbit(value));
    EXPECT_STREQ(e.fFile, "func/Lutz");
    std::ifstream source(KELVO_SOURCE_DIR "/func/Lutz.cxx");
    std::string line;
    for (unsigned int i = 0; i < e.fLine; i++) std::getline(source, line);
    EXPECT_NE(line.find("throw KelvoException"), std::string::npos) << e.fLine << ": " << line;
  }
}

/// Catches what is written to std::cerr, and keeps ROOT's own messages off the screen.
class ErrorLines {
public:
  ErrorLines() : fHandler(GetErrorHandler()), fBuffer(std::cerr.rdbuf(fText.rdbuf())) {
    SetErrorHandler([](int, bool, const char*, const char*) {});
  }
  ~ErrorLines() {
    SetErrorHandler(fHandler);
    std::cerr.rdbuf(fBuffer);
  }
  ErrorLines(const ErrorLines&) = delete;
  ErrorLines& operator=(const ErrorLines&) = delete;

  std::string Text() const { return fText.str(); }

private:
  std::ostringstream fText;
  ErrorHandlerFunc_t fHandler;
  std::streambuf* fBuffer;
};

/// Returns whether the text is one line "func/Lutz:<line> Matrix inversion failed".
bool IsFailureLine(const std::string& text) {
  const std::string begin = "func/Lutz:", end = " Matrix inversion failed\n";
  if (text.size() <= begin.size() + end.size()) return false;
  const std::string number = text.substr(begin.size(), text.size() - begin.size() - end.size());
  return number.find_first_not_of("0123456789") == std::string::npos &&
         text == begin + number + end;
}

struct Result {
  double fX0 = -1, fSlope = -1, fChi2 = -1;
  std::vector<double> fAlpha;
};

Result Fit(Lutz& fit) {
  Result r;
  r.fAlpha.assign(fit.NScat(), -1);
  fit.Fit(&r.fX0, &r.fSlope, r.fAlpha.data(), &r.fChi2);
  return r;
}

/// Five measurements, two planes between them, a track that bends.
Lutz Example(double shift = 0, double scale = 1) {
  Lutz fit(5, 2);
  const double x[] = {1.0, 1.9, 3.2, 4.9, 7.1};
  for (unsigned int i = 0; i < 5; i++)
    fit.SetMeasurement(i, shift + 10.0 * i, scale * x[i], std::abs(scale) * 0.1);
  fit.SetScatteringPlane(0, shift + 15, 0.02);
  fit.SetScatteringPlane(1, shift + 25, 0.03);
  return fit;
}

/// Measurements that no straight line can be fitted to, since all stand at one place.
Lutz Singular() {
  Lutz fit(3, 0);
  for (unsigned int i = 0; i < 3; i++) fit.SetMeasurement(i, 0, 1.0 + i, 0.5);
  return fit;
}

TEST(LutzTest, MeasurementsMustOutnumberPlanes) {
  ExpectThrow(kBadNScat, 0, [] { Lutz(0, 0); });
  ExpectThrow(kBadNScat, 0, [] { Lutz(3, 3); });
  ExpectThrow(kBadNScat, 0, [] { Lutz(2, 3); });
  EXPECT_NO_THROW(Lutz(3, 2));
  EXPECT_NO_THROW(Lutz(1, 0));
}

TEST(LutzTest, MeasurementsAreCheckedIndexFirstThenNanThenSigma) {
  Lutz fit(2, 1);
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetMeasurement(2, 1, 1, 1); });
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetMeasurement(2, kNan, 1, -1); });
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetMeasurement(0xFFFFFFFF, 1, 1, 1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetMeasurement(0, kNan, 1, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetMeasurement(0, 1, kNan, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetMeasurement(0, 1, 1, kNan); });
  ExpectThrow(kBadSigX, 0.0, [&] { fit.SetMeasurement(0, 1, 1, 0); });
  ExpectThrow(kBadSigX, -0.0, [&] { fit.SetMeasurement(0, 1, 1, -0.0); });
  ExpectThrow(kBadSigX, -2.5, [&] { fit.SetMeasurement(0, 1, 1, -2.5); });
  ExpectThrow(kBadSigX, -kInfinity, [&] { fit.SetMeasurement(0, 1, 1, -kInfinity); });
}

TEST(LutzTest, PlanesAreCheckedIndexFirstThenNanThenSigma) {
  Lutz fit(2, 1);
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetScatteringPlane(1, 1, 1); });
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetScatteringPlane(1, kNan, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetScatteringPlane(0, kNan, -1); });
  ExpectThrow(kNaN, 0, [&] { fit.SetScatteringPlane(0, 1, kNan); });
  ExpectThrow(kBadSigSJ, 0.0, [&] { fit.SetScatteringPlane(0, 1, 0); });
  ExpectThrow(kBadSigSJ, -0.0, [&] { fit.SetScatteringPlane(0, 1, -0.0); });
  ExpectThrow(kBadSigSJ, -2.5, [&] { fit.SetScatteringPlane(0, 1, -2.5); });
}

TEST(LutzTest, WithoutPlanesEveryPlaneIndexIsRefused) {
  Lutz fit(1, 0);
  ExpectThrow(kIndexProblem, 0, [&] { fit.SetScatteringPlane(0, 1, 1); });
}

TEST(LutzTest, EveryThrowStatementHasItsOwnLine) {
  Lutz fit(2, 1);
  std::set<unsigned int> lines;
  const auto note = [&](auto statement) {
    try {
      statement();
    } catch (const KelvoException& e) {
      lines.insert(e.fLine);
    }
  };
  note([] { Lutz(0, 0); });
  note([&] { fit.SetMeasurement(2, 1, 1, 1); });
  note([&] { fit.SetMeasurement(0, kNan, 1, 1); });
  note([&] { fit.SetMeasurement(0, 1, 1, 0); });
  note([&] { fit.SetScatteringPlane(1, 1, 1); });
  note([&] { fit.SetScatteringPlane(0, kNan, 1); });
  note([&] { fit.SetScatteringPlane(0, 1, 0); });
  EXPECT_EQ(lines.size(), 7u);
}

TEST(LutzTest, RefusedInputLeavesTheFitAsItWas) {
  Lutz fit = Example();
  const Result before = Fit(fit);
  EXPECT_THROW(fit.SetMeasurement(1, 99, 99, -1), KelvoException);
  EXPECT_THROW(fit.SetMeasurement(1, 99, kNan, 1), KelvoException);
  EXPECT_THROW(fit.SetScatteringPlane(1, 99, -1), KelvoException);
  const Result after = Fit(fit);
  EXPECT_EQ(after.fX0, before.fX0);
  EXPECT_EQ(after.fAlpha, before.fAlpha);
}

TEST(LutzTest, WeightsAreInverseSquaresOfTheSigmas) {
  Lutz fit(3, 1);
  fit.SetMeasurement(0, 1, 1, 0.5);
  EXPECT_EQ(fit.Chi2XIi(0), 4);
  fit.SetMeasurement(1, 2, 1, 1);
  fit.SetMeasurement(2, 3, 1, 1);
  fit.SetScatteringPlane(0, 5, 0.5); // beyond all measurements: nothing else is known of its kink
  Fit(fit);
  EXPECT_EQ(fit.Covariance()(2, 2), 0.25);
}

TEST(LutzTest, BeforeAFitTheTrajectoryIsZero) {
  Lutz fit(2, 1);
  fit.SetMeasurement(0, 1, 3, 0.5);
  fit.SetScatteringPlane(0, 0, 0.1);
  EXPECT_EQ(fit.X(7), 0);
  EXPECT_EQ(fit.Chi2XIi(0), 36);
  EXPECT_EQ(fit.Chi2XI(), 36);
  EXPECT_EQ(fit.Chi2BetaJ(0), 0);
  EXPECT_EQ(fit.Chi2Beta(), 0);
  EXPECT_FALSE(fit.Succeeded());
  EXPECT_TRUE(std::isnan(fit.VarX(1)));
  EXPECT_TRUE(std::isnan(fit.Covariance()(0, 0)));
  EXPECT_EQ(fit.Covariance().GetNrows(), 3);
}

TEST(LutzTest, TwoMeasurementsGiveTheLineThroughBoth) {
  Lutz fit(2, 0);
  fit.SetMeasurement(0, 1, 3, 0.5);
  fit.SetMeasurement(1, 3, 7, 0.25);
  const Result r = Fit(fit);
  EXPECT_NEAR(r.fX0, 1, kRounding);
  EXPECT_NEAR(r.fSlope, 2, kRounding);
  EXPECT_NEAR(r.fChi2, 0, kRounding);
  EXPECT_TRUE(fit.Succeeded());
}

TEST(LutzTest, WithoutPlanesItIsTheWeightedStraightLine) {
  Lutz fit(3, 0);
  fit.SetMeasurement(0, 1, 3, 1);
  fit.SetMeasurement(1, 2, 4, 0.5);
  fit.SetMeasurement(2, 4, 9, 0.25);
  const Result r = Fit(fit);
  const double s = 21, sz = 73, szz = 273, sx = 163, szx = 611; // weights 1, 4, 16
  const double det = s * szz - sz * sz;
  EXPECT_NEAR(r.fX0, (szz * sx - sz * szx) / det, kRounding);
  EXPECT_NEAR(r.fSlope, (s * szx - sz * sx) / det, kRounding);
  EXPECT_EQ(fit.Chi2Beta(), 0);
  EXPECT_EQ(fit.X(2.5), r.fSlope * 2.5 + r.fX0);
  const TMatrixDSym c = fit.Covariance();
  EXPECT_NEAR(c(0, 0), szz / det, kRounding);
  EXPECT_NEAR(c(0, 1), -sz / det, kRounding);
  EXPECT_NEAR(c(1, 1), s / det, kRounding);
}

TEST(LutzTest, EqualWeightsGiveTheVarianceOfTheMeanAtTheCentre) {
  Lutz fit(4, 0);
  for (unsigned int i = 0; i < 4; i++) fit.SetMeasurement(i, 2.0 * i - 3, 1.0 + i, 0.5);
  Fit(fit);
  EXPECT_NEAR(fit.VarX(0), 0.25 / 4, kRounding);
  EXPECT_NEAR(fit.VarX(3), 0.25 / 4 + 9 * 0.25 / 20, kRounding); // sum of z^2 is 20
}

TEST(LutzTest, CollinearMeasurementsHaveNoKink) {
  Lutz fit(3, 1);
  for (unsigned int i = 0; i < 3; i++) fit.SetMeasurement(i, 10.0 * i, 1 + 2.0 * i, 0.1);
  fit.SetScatteringPlane(0, 15, 0.01);
  const Result r = Fit(fit);
  EXPECT_NEAR(r.fAlpha[0], 0, kRounding);
  EXPECT_NEAR(r.fChi2, 0, kRounding);
  EXPECT_NEAR(r.fX0, 1, kRounding);
  EXPECT_NEAR(r.fSlope, 0.2, kRounding);
}

// Measurements 0, 0, h at z = -1, 0, 1 and a plane at 0: by hand, the second difference h is shared
// between residuals and kink, (1, -2, 1) being the combination that no straight line feels.
TEST(LutzTest, AKinkTakesItsShareOfTheBend) {
  const double h = 0.3, sigma = 0.1, width = 0.2;
  Lutz fit(3, 1);
  fit.SetMeasurement(0, -1, 0, sigma);
  fit.SetMeasurement(1, 0, 0, sigma);
  fit.SetMeasurement(2, 1, h, sigma);
  fit.SetScatteringPlane(0, 0, width);
  const Result r = Fit(fit);
  const double variance = 6 * sigma * sigma + width * width;
  EXPECT_NEAR(r.fAlpha[0], h * width * width / variance, kRounding);
  EXPECT_NEAR(r.fChi2, h * h / variance, kRounding);
}

TEST(LutzTest, AFreeKinkTakesTheWholeBend) {
  Lutz fit(3, 1);
  fit.SetMeasurement(0, -1, 0, 0.1);
  fit.SetMeasurement(1, 0, 0, 0.1);
  fit.SetMeasurement(2, 1, 0.3, 0.1);
  fit.SetScatteringPlane(0, 0, kInfinity);
  const Result r = Fit(fit);
  EXPECT_NEAR(r.fAlpha[0], 0.3, kRounding);
  EXPECT_NEAR(r.fChi2, 0, kRounding);
}

TEST(LutzTest, AMeasurementAtAPlaneDoesNotFeelItsKink) {
  Lutz fit(2, 1);
  fit.SetMeasurement(0, 0, 1, 0.1);
  fit.SetMeasurement(1, 5, 2, 0.1);
  fit.SetScatteringPlane(0, 5, 0.1); // so both measurements lie on the first segment
  const Result r = Fit(fit);
  EXPECT_EQ(r.fAlpha[0], 0);
  EXPECT_NEAR(r.fSlope, 0.2, kRounding);
  EXPECT_NEAR(r.fChi2, 0, kRounding);
}

TEST(LutzTest, APlaneBeyondAllMeasurementsHasNoKinkAndCostsNothing) {
  Lutz without(4, 0);
  Lutz with(4, 1);
  for (unsigned int i = 0; i < 4; i++) {
    without.SetMeasurement(i, i, i * i, 0.1);
    with.SetMeasurement(i, i, i * i, 0.1);
  }
  with.SetScatteringPlane(0, 9, 0.1);
  const Result a = Fit(without), b = Fit(with);
  EXPECT_EQ(b.fAlpha[0], 0);
  EXPECT_NEAR(b.fChi2, a.fChi2, kRounding * a.fChi2);
  EXPECT_NEAR(b.fX0, a.fX0, kRounding);
}

TEST(LutzTest, ThePlaneBendsTheTrajectoryStrictlyBeyondItself) {
  Lutz fit = Example();
  const Result r = Fit(fit);
  EXPECT_EQ(fit.X(15), r.fSlope * 15 + r.fX0);
  const double beyond = std::nextafter(15, 16);
  EXPECT_EQ(fit.X(beyond), (beyond - 15) * r.fAlpha[0] + (r.fSlope * beyond + r.fX0));
  EXPECT_NE(fit.X(15.5), r.fSlope * 15.5 + r.fX0);
  EXPECT_NEAR(fit.X(40), r.fX0 + 40 * r.fSlope + 25 * r.fAlpha[0] + 15 * r.fAlpha[1], kRounding);
}

TEST(LutzTest, Chi2IsTheSumOfItsTerms) {
  Lutz fit = Example();
  const Result r = Fit(fit);
  const double x[] = {1.0, 1.9, 3.2, 4.9, 7.1};
  double xi = 0;
  for (unsigned int i = 0; i < 5; i++) {
    xi += fit.Chi2XIi(i);
    const double residual = x[i] - fit.X(10.0 * i);
    EXPECT_EQ(fit.Chi2XIi(i), residual * residual * (1 / (0.1 * 0.1)));
  }
  double beta = 0;
  for (unsigned int j = 0; j < 2; j++) beta += fit.Chi2BetaJ(j);
  EXPECT_EQ(fit.Chi2BetaJ(0), r.fAlpha[0] * r.fAlpha[0] * (1 / (0.02 * 0.02)));
  EXPECT_EQ(fit.Chi2XI(), xi);
  EXPECT_EQ(fit.Chi2Beta(), beta);
  EXPECT_EQ(r.fChi2, xi + beta);
  EXPECT_GT(beta, 0);
}

TEST(LutzTest, AMeasurementOfInfiniteSigmaIsIgnored) {
  Lutz fit(4, 0);
  for (unsigned int i = 0; i < 3; i++) fit.SetMeasurement(i, i, 1.0 + i, 0.1);
  fit.SetMeasurement(3, 7, 1e6, kInfinity);
  const Result r = Fit(fit);
  EXPECT_NEAR(r.fX0, 1, kRounding);
  EXPECT_NEAR(r.fSlope, 1, kRounding);
  EXPECT_EQ(fit.Chi2XIi(3), 0);
}

TEST(LutzTest, AMeasurementNeverLoadedIsIgnored) {
  Lutz fit(4, 0);
  for (unsigned int i = 0; i < 3; i++) fit.SetMeasurement(i, i, 1.0 + i, 0.1);
  const Result r = Fit(fit);
  EXPECT_NEAR(r.fX0, 1, kRounding);
  EXPECT_NEAR(r.fChi2, 0, kRounding);
}

TEST(LutzTest, MirroredMeasurementsGiveTheMirroredTrajectory) {
  Lutz fit = Example(), mirrored = Example(0, -1);
  const Result a = Fit(fit), b = Fit(mirrored);
  EXPECT_EQ(b.fX0, -a.fX0);
  EXPECT_EQ(b.fSlope, -a.fSlope);
  EXPECT_EQ(b.fAlpha[0], -a.fAlpha[0]);
  EXPECT_EQ(b.fChi2, a.fChi2);
}

TEST(LutzTest, ShiftedDetectorGivesTheShiftedTrajectory) {
  Lutz fit = Example(), shifted = Example(100);
  const Result a = Fit(fit), b = Fit(shifted);
  EXPECT_NEAR(b.fSlope, a.fSlope, 1e-9);
  EXPECT_NEAR(b.fAlpha[1], a.fAlpha[1], 1e-9);
  EXPECT_NEAR(b.fChi2, a.fChi2, 1e-8);
  EXPECT_NEAR(shifted.X(133), fit.X(33), 1e-9);
  EXPECT_NEAR(shifted.VarX(133), fit.VarX(33), 1e-9);
}

TEST(LutzTest, TheOrderOfLoadingAndOfPlanesDoesNotMatter) {
  Lutz fit = Example();
  Lutz other(5, 2);
  other.SetScatteringPlane(0, 25, 0.03);
  other.SetScatteringPlane(1, 15, 0.02);
  const double x[] = {1.0, 1.9, 3.2, 4.9, 7.1};
  for (unsigned int i = 0; i < 5; i++) other.SetMeasurement(i, 40 - 10.0 * i, x[4 - i], 0.1);
  const Result a = Fit(fit), b = Fit(other);
  EXPECT_NEAR(b.fX0, a.fX0, kRounding);
  EXPECT_NEAR(b.fAlpha[0], a.fAlpha[1], kRounding);
  EXPECT_NEAR(b.fAlpha[1], a.fAlpha[0], kRounding);
  EXPECT_NEAR(b.fChi2, a.fChi2, 1e-10);
}

TEST(LutzTest, EveryOutputMayBeNull) {
  Lutz fit = Example();
  const Result r = Fit(fit);
  fit.Fit(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(fit.X(0), r.fX0);
  double alpha = 42;
  Lutz line(2, 0);
  line.SetMeasurement(0, 0, 0, 1);
  line.SetMeasurement(1, 1, 1, 1);
  line.Fit(nullptr, nullptr, &alpha, nullptr);
  EXPECT_EQ(alpha, 42);
}

TEST(LutzTest, AFitCanBeChangedAndRepeated) {
  Lutz fit = Example();
  const Result before = Fit(fit);
  fit.SetMeasurement(4, 40, 20, 0.1);
  const double chi2 = fit.Chi2XIi(0);
  EXPECT_EQ(fit.X(0), before.fX0); // results follow with the next fit
  const Result changed = Fit(fit);
  EXPECT_NE(changed.fAlpha[1], before.fAlpha[1]);
  EXPECT_NE(fit.Chi2XIi(0), chi2);
  fit.SetMeasurement(4, 40, 7.1, 0.1);
  const Result after = Fit(fit);
  EXPECT_EQ(after.fX0, before.fX0);
  EXPECT_EQ(after.fAlpha, before.fAlpha);
  EXPECT_EQ(after.fChi2, before.fChi2);
}

TEST(LutzTest, ASingularProblemSaysSoAndGivesZeros) {
  Lutz fit = Singular();
  const ErrorLines errors;
  const Result r = Fit(fit);
  EXPECT_TRUE(IsFailureLine(errors.Text())) << errors.Text();
  EXPECT_FALSE(fit.Succeeded());
  EXPECT_EQ(r.fX0, 0);
  EXPECT_EQ(r.fSlope, 0);
  EXPECT_EQ(r.fChi2, (1 + 4 + 9) * 4);
  for (unsigned int i = 0; i < 3; i++) EXPECT_EQ(fit.Chi2XIi(i), (1.0 + i) * (1.0 + i) * 4);
  EXPECT_EQ(fit.Chi2Beta(), 0);
  EXPECT_EQ(fit.X(3), 0);
  EXPECT_TRUE(std::isnan(fit.VarX(3)));
  EXPECT_TRUE(std::isnan(fit.Covariance()(1, 1)));
}

TEST(LutzTest, ASingularProblemOfAnySizeSaysSoAndGivesZeroKinks) {
  for (unsigned int m = 1; m < 12; m++) {
    Lutz fit(m + 3, m);
    for (unsigned int i = 0; i < m + 3; i++) fit.SetMeasurement(i, i, 1 + i % 3, 0.5);
    for (unsigned int j = 0; j + 1 < m; j++) fit.SetScatteringPlane(j, j + 0.5, 0.1);
    fit.SetScatteringPlane(m - 1, 100, kInfinity); // nothing at all constrains this kink
    const ErrorLines errors;
    const Result r = Fit(fit);
    EXPECT_TRUE(IsFailureLine(errors.Text())) << m << ": " << errors.Text();
    EXPECT_EQ(r.fX0, 0);
    EXPECT_EQ(r.fAlpha, std::vector<double>(m, 0.0));
  }
}

TEST(LutzTest, AnExceptionOutOfTheInversionSaysSoAndGivesZeros) {
  Lutz fit = Singular();
  std::string bySingular, byException;
  {
    const ErrorLines errors;
    Fit(fit);
    bySingular = errors.Text();
  }
  {
    const ErrorLines errors;
    // Callers may turn ROOT's messages into exceptions.
    SetErrorHandler(
        [](int, bool, const char*, const char* text) { throw std::runtime_error(text); });
    Result r;
    EXPECT_NO_THROW(r = Fit(fit));
    EXPECT_EQ(r.fX0, 0);
    EXPECT_EQ(r.fChi2, 56);
    byException = errors.Text();
  }
  EXPECT_FALSE(fit.Succeeded());
  EXPECT_TRUE(IsFailureLine(byException)) << byException;
  EXPECT_NE(byException, bySingular) << "each check has its own line";
}

TEST(LutzTest, AFitAfterAFailureStartsAfresh) {
  Lutz fit = Singular();
  {
    const ErrorLines errors;
    Fit(fit);
  }
  fit.SetMeasurement(1, 1, 2, 0.5);
  fit.SetMeasurement(2, 2, 3, 0.5);
  EXPECT_NEAR(Fit(fit).fSlope, 1, kRounding);
  EXPECT_TRUE(fit.Succeeded());
}

TEST(LutzTest, ADeterminantThatIsNoNumberCountsAsSuccess) {
  Lutz fit(2, 0);
  fit.SetMeasurement(0, kInfinity, 1, 1);
  fit.SetMeasurement(1, 1, 1, 1);
  const ErrorLines errors;
  const Result r = Fit(fit);
  EXPECT_EQ(errors.Text(), "");
  EXPECT_TRUE(fit.Succeeded());
  EXPECT_TRUE(std::isnan(r.fX0));
  EXPECT_TRUE(std::isnan(r.fChi2));
}

TEST(LutzTest, ADeterminantThatOverflowsCountsAsSuccess) {
  const unsigned int m = 40;
  Lutz fit(m + 1, m);
  for (unsigned int i = 0; i < m + 1; i++) fit.SetMeasurement(i, i, 2.0 * i, 1);
  for (unsigned int j = 0; j < m; j++) fit.SetScatteringPlane(j, j + 0.5, 1e-5);
  EXPECT_NEAR(Fit(fit).fSlope, 2, 1e-9);
  EXPECT_TRUE(fit.Succeeded());
}

TEST(LutzTest, ADeterminantThatUnderflowsCountsAsFailure) {
  const unsigned int m = 60;
  Lutz fit(m + 1, m);
  for (unsigned int i = 0; i < m + 1; i++) fit.SetMeasurement(i, i, 2.0 * i, 1);
  for (unsigned int j = 0; j < m; j++) fit.SetScatteringPlane(j, 1000, 1e6); // weights of 1e-12
  const ErrorLines errors;
  Fit(fit);
  EXPECT_TRUE(IsFailureLine(errors.Text())) << errors.Text();
  EXPECT_FALSE(fit.Succeeded());
}

TEST(LutzTest, WeightsBelowThePivotLimitCountAsFailureFromFivePlanesOn) {
  for (const unsigned int m : {4u, 5u}) {
    Lutz fit(m + 1, m);
    for (unsigned int i = 0; i < m + 1; i++) fit.SetMeasurement(i, i, 2.0 * i, 1);
    for (unsigned int j = 0; j < m; j++) fit.SetScatteringPlane(j, 1000, 1e9); // weights of 1e-18
    const ErrorLines errors;
    Fit(fit);
    EXPECT_EQ(fit.Succeeded(), m == 4) << m;
    EXPECT_EQ(IsFailureLine(errors.Text()), m == 5) << errors.Text();
  }
}

TEST(LutzTest, NullResultClearsWhatWasFittedAndKeepsTheInputs) {
  Lutz fit = Example();
  const Result before = Fit(fit);
  fit.NullResult();
  EXPECT_EQ(fit.X(12), 0);
  EXPECT_EQ(fit.Chi2XIi(0), 1 / (0.1 * 0.1));
  EXPECT_EQ(fit.Chi2Beta(), 0);
  EXPECT_FALSE(fit.Succeeded());
  EXPECT_TRUE(std::isnan(fit.VarX(12)));
  EXPECT_EQ(Fit(fit).fX0, before.fX0);
}

TEST(LutzTest, ACopyIsAnIndependentFit) {
  static_assert(!std::is_copy_assignable_v<Lutz>);
  Lutz fit = Example();
  const Result r = Fit(fit);
  Lutz copy(fit);
  EXPECT_EQ(copy.X(33), fit.X(33));
  EXPECT_EQ(copy.VarX(33), fit.VarX(33));
  EXPECT_TRUE(copy.Succeeded());
  copy.SetMeasurement(0, 0, 50, 0.1);
  EXPECT_NE(Fit(copy).fX0, r.fX0);
  EXPECT_EQ(Fit(fit).fX0, r.fX0);
  std::vector<Lutz> several(3, Example()); // as in one fit per thread
  for (Lutz& each : several) EXPECT_EQ(Fit(each).fX0, r.fX0);
}

TEST(LutzTest, SizesAndDegreesOfFreedomCountWhatIsConstrained) {
  Lutz fit = Example();
  EXPECT_EQ(fit.NMeas(), 5u);
  EXPECT_EQ(fit.NScat(), 2u);
  EXPECT_EQ(fit.NDOF(), 3);
  fit.SetMeasurement(1, 10, 1.9, kInfinity);
  EXPECT_EQ(fit.NDOF(), 2);
  fit.SetScatteringPlane(0, 15, kInfinity);
  EXPECT_EQ(fit.NDOF(), 1);
  EXPECT_EQ(Lutz(1, 0).NDOF(), -2);
}

TEST(LutzTest, CovarianceIsSymmetricAndGivesTheVarianceOfTheTrajectory) {
  const unsigned int m = 10;
  Lutz fit(m + 4, m);
  for (unsigned int i = 0; i < m + 4; i++) fit.SetMeasurement(i, 5.0 * i, 1 + i % 3, 0.3);
  for (unsigned int j = 0; j < m; j++) fit.SetScatteringPlane(j, 5.0 * j + 2, 0.01);
  Fit(fit);
  const TMatrixDSym c = fit.Covariance();
  EXPECT_TRUE(c.IsSymmetric());
  EXPECT_NEAR(fit.VarX(0), c(0, 0), kRounding);
  EXPECT_NEAR(fit.VarX(1), c(0, 0) + 2 * c(0, 1) + c(1, 1), kRounding);
  const double atPlane = c(0, 0) + 2 * 2 * c(0, 1) + 2 * 2 * c(1, 1);
  EXPECT_NEAR(fit.VarX(2), atPlane, kRounding);
  const double beyond = c(0, 0) + 6 * c(0, 1) + 9 * c(1, 1) + c(2, 2) + 2 * c(0, 2) + 6 * c(1, 2);
  EXPECT_NEAR(fit.VarX(3), beyond, kRounding);
}

// 4000 simulated tracks with scattering: chi2 has NDOF degrees of freedom, and the trajectory
// misses the truth by as much as its variance says.
TEST(LutzTest, SimulatedTracksHaveTheExpectedChi2AndPulls) {
  constexpr int kTracks = 4000;
  constexpr double kSigmas = 5; // fluctuation that is still accepted
  std::mt19937_64 random(4);
  std::normal_distribution<double> gauss;
  double sumChi2 = 0, sumPull2 = 0;
  int ndof = 0;
  for (int track = 0; track < kTracks; track++) {
    Lutz fit(12, 5);
    const double x0 = 10 * gauss(random), slope = gauss(random);
    double kink[5];
    for (unsigned int j = 0; j < 5; j++) {
      fit.SetScatteringPlane(j, 8 + 20.0 * j, 0.01);
      kink[j] = 0.01 * gauss(random);
    }
    const auto truth = [&](double z) {
      double x = x0 + slope * z;
      for (unsigned int j = 0; j < 5; j++)
        if (z > 8 + 20.0 * j) x += kink[j] * (z - 8 - 20.0 * j);
      return x;
    };
    for (unsigned int i = 0; i < 12; i++) {
      const double z = 10.0 * i;
      fit.SetMeasurement(i, z, truth(z) + 0.2 * gauss(random), 0.2);
    }
    const Result r = Fit(fit);
    ndof = fit.NDOF();
    sumChi2 += r.fChi2;
    const double miss = fit.X(65) - truth(65);
    sumPull2 += miss * miss / fit.VarX(65);
  }
  EXPECT_EQ(ndof, 10);
  EXPECT_NEAR(sumChi2 / kTracks, ndof, kSigmas * std::sqrt(2.0 * ndof / kTracks));
  EXPECT_NEAR(sumPull2 / kTracks, 1, kSigmas * std::sqrt(2.0 / kTracks));
}

} // namespace
} // namespace kelvo
