#include "func/Lutz.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(LutzTest, TwoMeasurementsGiveTheLineThroughBoth) {
  Lutz fit(2, 0);
  fit.SetMeasurement(0, 1, 3, 0.5);
  fit.SetMeasurement(1, 3, 7, 0.25);
  double x0 = -1, slope = -1, chi2 = -1;
  fit.Fit(&x0, &slope, nullptr, &chi2);
  EXPECT_NEAR(x0, 1, 1e-12);
  EXPECT_NEAR(slope, 2, 1e-12);
  EXPECT_NEAR(chi2, 0, 1e-20);
  EXPECT_TRUE(fit.Succeeded());
}

} // namespace
} // namespace kelvo
