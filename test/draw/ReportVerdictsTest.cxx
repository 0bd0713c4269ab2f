// The verdicts of a report: what is told of distributions that are as they should be, and of those
// that are not; its numbers against straight sums and against the truth that made them.

#include "draw/ReportVerdicts.h"

#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

constexpr int kEntries = 4000;

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

kelvo::Histogram Normal(double mean, double width, double half = 20) {
  std::mt19937 random(1);
  std::normal_distribution<double> normal(mean, width);
  kelvo::Histogram histogram(-half, half, 400);
  for (int i = 0; i < kEntries; i++) histogram.Add(normal(random), i);
  return histogram;
}

kelvo::Histogram Flat() {
  kelvo::Histogram histogram(0, 1, 50);
  for (int i = 0; i < kEntries; i++) histogram.Add((i + 0.5) / kEntries, i);
  return histogram;
}

TEST(Verdicts, TellsPullsThatAreTooWideTooNarrowOrShifted) {
  EXPECT_FALSE(kelvo::JudgePull(Normal(0, 1), "").fIsSuspicious);
  const kelvo::Verdict wide = kelvo::JudgePull(Normal(0, 2), "y view: ");
  EXPECT_TRUE(wide.fIsSuspicious);
  EXPECT_TRUE(Contains(wide.fText, "y view: 68 % lie within ±2.0")) << wide.fText;
  EXPECT_TRUE(Contains(wide.fText, "2 times too small")) << wide.fText;
  const kelvo::Verdict narrow = kelvo::JudgePull(Normal(0, 0.5), "");
  EXPECT_TRUE(narrow.fIsSuspicious);
  EXPECT_TRUE(Contains(narrow.fText, "2 times too large")) << narrow.fText;
  EXPECT_TRUE(kelvo::JudgePull(Normal(0.3, 1), "").fIsSuspicious);
  EXPECT_FALSE(kelvo::JudgePull(kelvo::Histogram(-5, 5, 10), "").fIsSuspicious);
}

// Errors of hits at the centres of cells are even over plus and minus the root of 3.
TEST(Verdicts, TakesThePullsOfCellsAsGood) {
  kelvo::Histogram pulls(-5, 5, 100);
  for (int i = 0; i < kEntries; i++) pulls.Add(std::sqrt(3.) * (2 * (i + 0.5) / kEntries - 1), i);
  EXPECT_FALSE(kelvo::JudgePull(pulls, "").fIsSuspicious);
}

TEST(Verdicts, TellsKinksThatAreTooWideButNotNarrowOnes) {
  EXPECT_FALSE(kelvo::JudgeKinks({Normal(0, 0.4), Normal(0, 0.9)}).fIsSuspicious);
  EXPECT_TRUE(kelvo::JudgeKinks({Normal(0, 0.4), Normal(0, 1.4)}).fIsSuspicious);
}

TEST(Verdicts, TellsProbabilitiesThatAreNotFlat) {
  EXPECT_FALSE(kelvo::JudgeProbability(Flat()).fIsSuspicious);
  kelvo::Histogram small = Flat();
  for (int i = 0; i < kEntries / 4; i++) small.Add(0.001, i);
  const kelvo::Verdict verdict = kelvo::JudgeProbability(small);
  EXPECT_TRUE(verdict.fIsSuspicious);
  EXPECT_TRUE(Contains(verdict.fText, "21.6 % of the tracks are below 0.02")) << verdict.fText;
  kelvo::Histogram large = Flat();
  for (int i = 0; i < 2 * kEntries; i++) large.Add(0.9, i);
  EXPECT_TRUE(kelvo::JudgeProbability(large).fIsSuspicious);
}

TEST(Verdicts, TellsAChiSquareThatIsNotNearOne) {
  kelvo::LogHistogram good;
  kelvo::LogHistogram large;
  for (int i = 0; i < 99; i++) good.Add(0.5 + 0.01 * i);
  for (int i = 0; i < 99; i++) large.Add(9);
  EXPECT_FALSE(kelvo::JudgeChi2(good).fIsSuspicious);
  const kelvo::Verdict verdict = kelvo::JudgeChi2(large);
  EXPECT_TRUE(verdict.fIsSuspicious);
  EXPECT_TRUE(Contains(verdict.fText, "Median 9,")) << verdict.fText;
  EXPECT_TRUE(Contains(verdict.fText, "3 times too small")) << verdict.fText;
}

TEST(Verdicts, TellsASpike) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> even(0, 100);
  kelvo::Histogram histogram(0, 100, 50);
  for (int i = 0; i < kEntries; i++) histogram.Add(even(random), i);
  EXPECT_FALSE(kelvo::JudgeSpikes({&histogram}, "cm").fIsSuspicious);
  for (int i = 0; i < 300; i++) histogram.Add(61, i);
  const kelvo::Verdict verdict = kelvo::JudgeSpikes({&histogram}, "cm");
  EXPECT_TRUE(verdict.fIsSuspicious);
  EXPECT_TRUE(Contains(verdict.fText, "between 60 and 62 cm stick out")) << verdict.fText;
}

TEST(SlopeSum, IsTheLeastSquaresLine) {
  kelvo::SlopeSum sum;
  // Residuals 2 + 0.5 v with +-0.1 in turn, v = 0 to 9.
  std::vector<double> v;
  std::vector<double> r;
  for (int i = 0; i < 10; i++) {
    v.push_back(i);
    r.push_back(2 + 0.5 * i + (i % 2 ? 0.1 : -0.1));
    sum.Add(v.back(), r.back());
  }
  double slope = 0; // with the coordinate from its middle
  for (std::size_t i = 0; i < 10; i++) slope += (v[i] - 4.5) * r[i] / 82.5;
  double left = 0;
  for (std::size_t i = 0; i < 10; i++) left += std::pow(r[i] - 4.25 - slope * (v[i] - 4.5), 2);
  EXPECT_NEAR(sum.Slope(), slope, 1e-12);
  EXPECT_NEAR(sum.Error(), std::sqrt(left / 8 / 82.5), 1e-9);
  kelvo::SlopeSum one;
  one.Add(1, 1);
  EXPECT_EQ(one.Slope(), 0);
  EXPECT_EQ(one.Error(), 0);
}

/// Two planes that measure x, of which the second one is displaced by 30 um and turned by 20 mrad.
kelvo::ReportData Planes() {
  std::mt19937 random(5);
  std::normal_distribution<double> noise(0, 0.005);
  std::uniform_real_distribution<double> even(-1, 1);
  kelvo::ReportData report;
  report.fResiduals[0].resize(2);
  for (std::size_t plane = 0; plane < 2; plane++)
    for (int i = 0; i < kEntries; i++) {
      kelvo::PlaneResiduals& residuals = report.fResiduals[0][plane];
      const double x = even(random);
      const double y = even(random);
      const double residual = noise(random) + (plane == 1 ? 0.003 + 0.02 * y : 0);
      residuals.fAll.Add(residual);
      residuals.fAlong.Add(x, residual);
      residuals.fAcross.Add(y, residual);
    }
  return report;
}

TEST(Verdicts, NamesPlanesThatAreDisplacedOrTurned) {
  const kelvo::ReportData report = Planes();
  const kelvo::Verdict means = kelvo::JudgeMeans(report, 0);
  EXPECT_TRUE(means.fIsSuspicious);
  EXPECT_TRUE(Contains(means.fText, "Displaced: plane 1 by +")) << means.fText;
  EXPECT_FALSE(Contains(means.fText, "plane 0")) << means.fText;
  const kelvo::Verdict slopes = kelvo::JudgeSlopes(report, 0);
  EXPECT_TRUE(slopes.fIsSuspicious);
  EXPECT_TRUE(Contains(slopes.fText, "Residuals of x change with y: plane 1 by +")) << slopes.fText;
  EXPECT_TRUE(Contains(slopes.fText, "mrad")) << slopes.fText;
  EXPECT_FALSE(Contains(slopes.fText, "plane 0")) << slopes.fText;
  EXPECT_FALSE(Contains(slopes.fText, "x change with x")) << slopes.fText;
  EXPECT_NEAR(report.fResiduals[0][1].fAcross.Slope(), 0.02,
              5 * report.fResiduals[0][1].fAcross.Error());
  EXPECT_FALSE(kelvo::JudgeMeans(report, 1).fIsSuspicious); // without planes
}

TEST(Spread, IsTheMiddleAndHalfOfTheCentralTwoThirds) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal(0.4, 2);
  std::vector<double> values;
  for (int i = 0; i < 20000; i++) values.push_back(normal(random));
  for (int i = 0; i < 20; i++) values.push_back(1e6); // a thousandth of them is wild
  const kelvo::Spread spread = kelvo::SpreadOf(values);
  EXPECT_EQ(spread.fN, 20020u);
  EXPECT_NEAR(spread.fMedian, 0.4, 5 * spread.fMedianError);
  EXPECT_NEAR(spread.fWidth, 2, 5 * spread.fWidthError);
  EXPECT_EQ(kelvo::SpreadOf({}).fN, 0u);
  EXPECT_EQ(kelvo::SpreadOf({3.}).fMedian, 3);
}

// The scatter of the medians and of the widths of a thousand samples.
TEST(Spread, KnowsItsErrors) {
  constexpr int kSamples = 1000;
  std::mt19937 random(9);
  std::normal_distribution<double> normal(0, 1);
  double medians = 0;
  double widths = 0;
  double widthSum = 0;
  kelvo::Spread spread;
  for (int sample = 0; sample < kSamples; sample++) {
    std::vector<double> values;
    for (int i = 0; i < 400; i++) values.push_back(normal(random));
    spread = kelvo::SpreadOf(values);
    medians += spread.fMedian * spread.fMedian;
    widths += spread.fWidth * spread.fWidth;
    widthSum += spread.fWidth;
  }
  const double meanWidth = widthSum / kSamples;
  EXPECT_NEAR(std::sqrt(medians / kSamples), 1.2533 / 20, 0.1 * 1.2533 / 20);
  EXPECT_NEAR(std::sqrt(widths / kSamples - meanWidth * meanWidth), 0.9626 / 20, 0.1 * 0.9626 / 20);
}

TEST(TruthComparison, ComparesFitsWithTheTruthInTheirOwnPlane) {
  test::TempFolder folder;
  folder.Write("truth.csv",
               "track,pdg,x0,y0,z0,px,py,pz\n1,-13,1,2,10,0.3,0,0.4\n2,211,0,0,10,0,0,1\n");
  kelvo::TruthComparison truth(folder.Path("truth.csv"));
  EXPECT_EQ(truth.TruePDG(1), 13);
  EXPECT_EQ(truth.TruePDG(2), 211);
  EXPECT_EQ(truth.TruePDG(3), 0);
  kelvo::FitRow row;
  row.fTrack = 1;
  row.fZ = 12; // where the true track is at x = 1 + 2 * 0.75
  row.fX = 2.75;
  row.fY = 1.5;
  row.fUX = 0.62;
  row.fUY = 0.01;
  row.fP = 0.55; // of 0.5
  row.fSigP = 0.025;
  row.fCov = {0.01, 0, 0, 0, 0.25, 0, 0, 0.0001, 0, 0.0004};
  truth.AddFit(row);
  using Truth = kelvo::TruthComparison;
  const auto expect = [&truth](Truth::Quantity quantity, double value, double pull) {
    ASSERT_EQ(truth.Of(quantity).fValues.size(), 1u);
    EXPECT_NEAR(truth.Of(quantity).fValues[0], value, 1e-12);
    EXPECT_NEAR(truth.Of(quantity).fPulls[0], pull, 1e-9);
  };
  expect(Truth::kMomentum, 0.1, 2);
  expect(Truth::kX, 0.25, 2.5);
  expect(Truth::kY, -0.5, -1);
  expect(Truth::kUX, 0.02, 2);
  expect(Truth::kUY, 0.01, 0.5);
  row.fTrack = 2;
  row.fP = row.fSigP = std::nan(""); // it leaves the detector
  truth.AddFit(row);
  EXPECT_EQ(truth.Compared(), 2u);
  EXPECT_EQ(truth.WithoutMomentum(), 1u);
  truth.AddBest(1, 211);
  truth.AddBest(2, 0);
  truth.AddBest(8, 13);
  EXPECT_EQ(truth.WithoutTruth(), 1u);
  const std::map<std::pair<int, int>, unsigned long long> expected{{{13, 211}, 1}, {{211, 0}, 1}};
  EXPECT_EQ(truth.Confusion(), expected);
}

} // namespace
