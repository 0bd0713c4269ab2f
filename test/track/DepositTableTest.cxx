// The density of a deposit against deposits drawn collision by collision, and in closed form where
// there are many collisions.

#include "track/DepositTable.h"

#include "func/dEdxTable.h"
#include "test/support/CollisionDeposits.h"

#include <gtest/gtest.h>

namespace {

using kelvo::DepositTable;
using kelvo::test::InScintillator;
using kelvo::test::LossOnWay;

constexpr double kMuon = 0.105658, kProton = 0.938272; // GeV
constexpr double kThickness = 5.6;                     // cm
constexpr double kMip = 1.75e-3 * kThickness;          // GeV
constexpr double kXi = 0.1535375e-3 * 0.859 * 0.5563;  // GeV/cm

DepositTable Table(double mass, double resolution) {
  const auto loss = [table = kelvo::dEdxTable("Scintillator"), mass](double T) {
    return table(T, mass);
  };
  const matter::RangeTable range(
      loss, [](double) { return 0.; }, mass);
  return {range, mass, kXi, kThickness, resolution * resolution * kMip};
}

TEST(DepositTable, DensityIntegratesToOne) {
  const DepositTable table = Table(kMuon, 0.2);
  for (const double T : {0.02, 0.1, 0.7, 3.})
    for (const double path : {2., 5.6, 9.}) {
      constexpr double kStep = 2e-5; // GeV
      double sum = 0;
      for (double q = -0.01; q < 0.08; q += kStep)
        sum += kStep * std::exp(table.LogDensity(T, path, q));
      EXPECT_NEAR(sum, 1, 0.03) << T << " GeV, " << path << " cm"; // Landau's tail goes on
    }
}

TEST(DepositTable, IsThatOfDepositsDrawnCollisionByCollision) {
  constexpr int kDraws = 20000;
  constexpr double kTolerance = 0.02; // of a probability; 1 / sqrt(draws) is 0.007
  std::mt19937_64 random(16);
  std::normal_distribution<double> gauss;
  for (const double resolution : {0.05, 0.2})
    for (const auto& [mass, T] :
         {std::pair{kMuon, 0.15}, {kMuon, 1.}, {kProton, 0.15}, {kProton, 0.9}}) {
      const DepositTable table = Table(mass, resolution);
      const LossOnWay way = InScintillator(T, mass, kThickness);
      std::vector<double> q(kDraws);
      for (double& value : q) {
        const double loss = DrawLoss(way, random);
        value = loss + resolution * std::sqrt(kMip * loss) * gauss(random);
      }
      std::sort(q.begin(), q.end());
      constexpr double kStep = 1e-5; // GeV
      double below = 0, at = -0.01;
      for (const double fraction : {0.05, 0.2, 0.5, 0.8, 0.95}) {
        for (; at < q[static_cast<std::size_t>(fraction * kDraws)]; at += kStep)
          below += kStep * std::exp(table.LogDensity(T, kThickness, at));
        EXPECT_NEAR(below, fraction, kTolerance)
            << mass << " GeV, T = " << T << ", resolution " << resolution;
      }
    }
}

TEST(DepositTable, ManyCollisionsMakeAGaussian) {
  const double T = 0.08, path = 5.6, resolution = 0.1;
  constexpr double kSkewed = 0.12; // of the logarithm, by what is left of the skewness
  const LossOnWay way = InScintillator(T, kProton, path);
  ASSERT_GT(way.fXi / way.fMax, 5);
  const DepositTable table = Table(kProton, resolution);
  const double sigma = std::sqrt(way.fXi * way.fMax * (1 - way.fBeta2 / 2) +
                                 resolution * resolution * kMip * way.fMean);
  for (const double x : {-1., 0., 1.}) {
    const double gaussian = -x * x / 2 - std::log(sigma * std::sqrt(2 * M_PI));
    EXPECT_NEAR(table.LogDensity(T, path, way.fMean + x * sigma), gaussian, kSkewed) << x;
  }
}

TEST(DepositTable, FarOffTheDensityIsThatAtTheEdge) {
  const DepositTable table = Table(kMuon, 0.2);
  EXPECT_EQ(table.LogDensity(0.5, 5.6, 10), table.LogDensity(0.5, 5.6, 1e6));
  EXPECT_EQ(table.LogDensity(0.5, 5.6, -10), table.LogDensity(0.5, 5.6, -1e6));
  EXPECT_TRUE(std::isfinite(table.LogDensity(1e-9, 0, 0)));
  EXPECT_TRUE(std::isfinite(table.LogDensity(1e9, 1e9, 0)));
}

} // namespace
