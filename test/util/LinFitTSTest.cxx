// References: exact lines, solutions by hand, and the normal equations in long double.
#include "util/LinFitTS.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using Numbers = std::vector<double>;

struct Line {
  double fM = -99, fC = -99;
};

Line Fit(const Numbers& x, const Numbers& y, const Numbers& w, int mode) {
  Line line;
  util::LinFitTS(x, y, w, line.fM, line.fC, mode);
  return line;
}

/// The normal equations, uncentred, with the weights themselves.
Line NormalEquations(const Numbers& x, const Numbers& y, const Numbers& weights) {
  long double s = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (std::size_t i = 0; i < x.size(); i++) {
    const long double w = weights[i];
    s += w;
    sx += w * x[i];
    sy += w * y[i];
    sxx += w * x[i] * x[i];
    sxy += w * x[i] * y[i];
  }
  const long double d = s * sxx - sx * sx;
  return {static_cast<double>((s * sxy - sx * sy) / d),
          static_cast<double>((sxx * sy - sx * sxy) / d)};
}

std::string MessageOf(const Numbers& x, const Numbers& y, const Numbers& w, int mode) {
  double m = 7, c = 8;
  try {
    util::LinFitTS(x, y, w, m, c, mode);
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(m, 7);
    EXPECT_EQ(c, 8);
    return e.what();
  }
  return "nothing thrown";
}

TEST(LinFitTS, PointsOnALineGiveThatLineInEveryMode) {
  const Numbers x{-2, 0, 1, 5}, y{-4, 2, 5, 17}, w{1, 2, 0.5, 4};
  for (int mode = 0; mode < 3; mode++) {
    const Line line = Fit(x, y, w, mode);
    EXPECT_NEAR(line.fM, 3, 1e-14) << mode;
    EXPECT_NEAR(line.fC, 2, 1e-14) << mode;
  }
}

TEST(LinFitTS, ThreePointsGiveTheLineWorkedOutByHand) {
  // Unweighted: mean (1, 1), slope (1 * 1 + 1 * 1) / 2.
  const Line equal = Fit({0, 1, 2}, {0, 1, 2.0}, {9, 9, 9}, 0);
  EXPECT_DOUBLE_EQ(equal.fM, 1);
  // Weights 1, 1, 2 of (0, 0), (1, 0), (2, 2): means 5/4 and 1; sums of squares 11/4 and of
  // products 3; slope 12/11.
  const Line weighted = Fit({0, 1, 2}, {0, 0, 2}, {1, 1, 2}, 1);
  EXPECT_NEAR(weighted.fM, 12.0 / 11, 1e-15);
  EXPECT_NEAR(weighted.fC, 1 - 12.0 / 11 * 1.25, 1e-15);
  // The same with variances 1, 1, 1/2.
  const Line variances = Fit({0, 1, 2}, {0, 0, 2}, {1, 1, 0.5}, 2);
  EXPECT_NEAR(variances.fM, 12.0 / 11, 1e-15);
  EXPECT_NEAR(variances.fC, 1 - 12.0 / 11 * 1.25, 1e-15);
}

TEST(LinFitTS, AgreesWithTheNormalEquationsInLongDouble) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> place(-50, 50), variance(0.01, 4);
  for (int round = 0; round < 2000; round++) {
    const std::size_t n = 3 + random() % 30;
    Numbers x(n), y(n), var(n), weights(n), ones(n, 1.0);
    for (std::size_t i = 0; i < n; i++) {
      x[i] = place(random);
      y[i] = place(random);
      var[i] = variance(random);
      weights[i] = 1 / var[i];
    }
    const Line expected[] = {NormalEquations(x, y, ones), NormalEquations(x, y, var),
                             NormalEquations(x, y, weights)};
    for (int mode = 0; mode < 3; mode++) {
      const Line line = Fit(x, y, var, mode);
      EXPECT_NEAR(line.fM, expected[mode].fM, 1e-12 * (1 + std::fabs(expected[mode].fM)));
      EXPECT_NEAR(line.fC, expected[mode].fC, 1e-12 * (50 + std::fabs(expected[mode].fC)));
    }
  }
}

TEST(LinFitTS, KeepsItsDigitsFarFromZero) {
  // Abscissae one apart at 1e9: the uncentred sums would have lost every digit of the slope.
  Numbers x, y, w;
  for (int i = 0; i < 10; i++) {
    x.push_back(1e9 + i);
    y.push_back(0.25 * i + (i % 2 ? 1 : -1));
    w.push_back(1);
  }
  Numbers near(x);
  for (double& one : near) one -= 1e9;
  const Line far = Fit(x, y, w, 2), reference = NormalEquations(near, y, w);
  EXPECT_NEAR(far.fM, reference.fM, 1e-14);
}

TEST(LinFitTS, EqualOrdinatesGiveASlopeOfExactlyZero) {
  const Line line = Fit({0.1, 7.7, 1e5, 3.3}, {3.7, 3.7, 3.7, 3.7}, {0.3, 1.7, 0.9, 11}, 2);
  EXPECT_EQ(line.fM, 0);
  EXPECT_EQ(line.fC, 3.7);
}

TEST(LinFitTS, EqualAbscissaeGiveTheWeightedMean) {
  const Numbers x{0.1, 0.1, 0.1}, y{1, 2, 6}, w{1, 2, 4};
  EXPECT_EQ(Fit(x, y, w, 0).fM, 0);
  EXPECT_DOUBLE_EQ(Fit(x, y, w, 0).fC, 3);
  EXPECT_EQ(Fit(x, y, w, 1).fM, 0);
  EXPECT_DOUBLE_EQ(Fit(x, y, w, 1).fC, 29.0 / 7);
  EXPECT_EQ(Fit(x, y, w, 2).fM, 0);
  EXPECT_DOUBLE_EQ(Fit(x, y, w, 2).fC, (1 + 1 + 1.5) / 1.75);
}

TEST(LinFitTS, EqualAbscissaeGiveASlopeOfExactlyZeroWhateverTheRounding) {
  std::mt19937 random(13);
  std::uniform_real_distribution<double> number(0.01, 10);
  for (int round = 0; round < 1000; round++) {
    const Numbers x(7, number(random));
    Numbers y(7), w(7);
    for (std::size_t i = 0; i < 7; i++) {
      y[i] = number(random);
      w[i] = number(random);
    }
    for (int mode = 0; mode < 3; mode++) ASSERT_EQ(Fit(x, y, w, mode).fM, 0);
  }
}

TEST(LinFitTS, OnePointGivesItsOrdinateAndNoneGivesZero) {
  for (int mode = 0; mode < 3; mode++) {
    EXPECT_EQ(Fit({5}, {3.5}, {2}, mode).fM, 0);
    EXPECT_EQ(Fit({5}, {3.5}, {2}, mode).fC, 3.5);
    EXPECT_EQ(Fit({}, {}, {}, mode).fM, 0);
    EXPECT_EQ(Fit({}, {}, {}, mode).fC, 0);
  }
}

TEST(LinFitTS, AllVariancesZeroGiveTheUnweightedLine) {
  const Numbers x{0, 1, 2, 4}, y{0, 3, 1, 5}, w{1, 1, 1, 1};
  const Line zero = Fit(x, y, {0, 0, 0, 0}, 2), unweighted = NormalEquations(x, y, w);
  EXPECT_NEAR(zero.fM, unweighted.fM, 1e-15);
  EXPECT_NEAR(zero.fC, unweighted.fC, 1e-15);
}

TEST(LinFitTS, ExactPointsAloneFixTheLine) {
  const Line two = Fit({-7, 0, 1, 2}, {50, 1, 90, 5}, {1, 0, 1e-300, 0}, 2);
  EXPECT_NEAR(two.fM, 2, 1e-15);
  EXPECT_NEAR(two.fC, 1, 1e-15);
  // Three exact points weigh equally: those of the first case above.
  const Line three = Fit({0, 9, 1, 2}, {0, 9, 0, 3}, {0, 1, 0, 0}, 2);
  EXPECT_NEAR(three.fM, 1.5, 1e-15);
  EXPECT_NEAR(three.fC, -0.5, 1e-15);
  // One exact point: no slope can be told.
  const Line one = Fit({0, 9, 1}, {0, 9, 4}, {1, 1, 0}, 2);
  EXPECT_EQ(one.fM, 0);
  EXPECT_EQ(one.fC, 4);
}

TEST(LinFitTS, PointsWithoutPositiveWeightDoNotCount) {
  const Line line = Fit({-3, 0, 1, 8}, {70, 1, 3, -5}, {0, 1, 2, -4}, 1);
  EXPECT_NEAR(line.fM, 2, 1e-15);
  EXPECT_NEAR(line.fC, 1, 1e-15);
  const Line none = Fit({0, 1}, {5, 6}, {0, 0}, 1);
  EXPECT_EQ(none.fM, 0);
  EXPECT_EQ(none.fC, 0);
}

TEST(LinFitTS, ScalingAllWeightsChangesNothing) {
  const Numbers x{0, 1, 2, 4}, y{0, 3, 1, 5}, w{0.5, 2, 1, 8};
  for (int mode = 1; mode < 3; mode++) {
    const Line line = Fit(x, y, w, mode);
    for (const double factor : {1e-300, 1e-10, 1e300}) {
      Numbers scaled(w);
      for (double& one : scaled) one *= factor;
      EXPECT_NEAR(Fit(x, y, scaled, mode).fM, line.fM, 1e-14);
      EXPECT_NEAR(Fit(x, y, scaled, mode).fC, line.fC, 1e-14);
    }
  }
}

TEST(LinFitTS, FiniteInputNeverGivesNaN) {
  const double ends[] = {0,
                         -0.0,
                         1,
                         -1,
                         5e-324,
                         -5e-324,
                         1e-308,
                         1e-160,
                         -1e160,
                         1.7976931348623157e308,
                         -1.7976931348623157e308,
                         0.1};
  std::mt19937 random(12);
  const auto pick = [&] { return ends[random() % std::size(ends)]; };
  for (int round = 0; round < 200000; round++) {
    const std::size_t n = random() % 6;
    Numbers x(n), y(n), w(n);
    for (std::size_t i = 0; i < n; i++) {
      x[i] = pick();
      y[i] = pick();
      w[i] = pick();
    }
    const Line line = Fit(x, y, w, round % 3);
    ASSERT_FALSE(std::isnan(line.fM)) << testing::PrintToString(x) << testing::PrintToString(y)
                                      << testing::PrintToString(w) << " mode " << round % 3;
    ASSERT_FALSE(std::isnan(line.fC)) << testing::PrintToString(x) << testing::PrintToString(y)
                                      << testing::PrintToString(w) << " mode " << round % 3;
  }
}

TEST(LinFitTS, ALineAcrossTheWholeRangeIsFound) {
  const double huge = std::numeric_limits<double>::max();
  const Line line = Fit({-huge, 0, huge}, {-huge, 0, huge}, {1, 1, 1}, 2);
  EXPECT_NEAR(line.fM, 1, 1e-15);
  EXPECT_NEAR(line.fC / huge, 0, 1e-15);
}

TEST(LinFitTS, NaNInputGivesNaN) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(std::isnan(Fit({0, nan, 2}, {0, 1, 3}, {1, 1, 1}, 2).fM));
  EXPECT_TRUE(std::isnan(Fit({0, 1, 2}, {0, nan, 3}, {1, 1, 1}, 2).fM));
  EXPECT_TRUE(std::isnan(Fit({0, 1, 2}, {0, 1, 3}, {1, nan, 1}, 2).fM));
  EXPECT_TRUE(std::isnan(Fit({0, 1, 2}, {0, 1, 3}, {0, nan, 1}, 2).fM));
  EXPECT_TRUE(std::isnan(Fit({0, 1, 2}, {0, 1, 3}, {1, nan, 1}, 1).fM));
}

TEST(LinFitTS, SaysWhichVectorHasTheWrongLength) {
  EXPECT_EQ(MessageOf({1, 2}, {1}, {1, 1}, 2),
            "LinFitTS: y has 1 entries and x has 2; give one entry per point.");
  EXPECT_EQ(MessageOf({1, 2}, {1, 2}, {1, 1, 1}, 2),
            "LinFitTS: w has 3 entries and x has 2; give one entry per point.");
  EXPECT_EQ(MessageOf({1, 2}, {1, 2}, {}, 0),
            "LinFitTS: w has 0 entries and x has 2; give one entry per point.");
}

TEST(LinFitTS, SaysWhichModesThereAre) {
  EXPECT_EQ(MessageOf({1}, {1}, {1}, 3),
            "LinFitTS: mode is 3; give 0 (unweighted), 1 (weights) or 2 (variances).");
  EXPECT_EQ(MessageOf({1}, {1}, {1}, -1),
            "LinFitTS: mode is -1; give 0 (unweighted), 1 (weights) or 2 (variances).");
}

} // namespace
