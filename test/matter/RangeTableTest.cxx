#include "matter/RangeTable.h"

#include "func/dEdxTable.h"
#include "matter/SmoothTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

using matter::RangeTable;
using matter::SmoothTable;

constexpr double kMuon = 0.105658;
constexpr double kPion = 0.13957;
constexpr double kProton = 0.938272;

/// A loss of T^-0.75 has closed forms: range T^1.75 / 1.75, and with a constant variance the
/// range's variance is T^3.25 / 3.25.
RangeTable PowerLaw() {
  return RangeTable([](double T) { return std::pow(T, -0.75); }, [](double) { return 1.0; }, kMuon);
}

RangeTable OfMaterial(const char* name, double mass) {
  const kelvo::dEdxTable loss(name);
  return RangeTable([&loss, mass](double T) { return loss(T, mass); }, [](double) { return 1e-6; },
                    mass);
}

TEST(SmoothTableTest, GivesItsNodesBackAndCubicsEverywhere) {
  const auto cubic = [](double x) { return 2 + x * (3 - x * (1 - 0.5 * x)); };
  const auto slope = [](double x) { return 3 - 2 * x + 1.5 * x * x; };
  const SmoothTable table(0.3, 5, [&](double x) { return SmoothTable::Node{cubic(x), slope(x)}; });
  EXPECT_LE(table.First(), 0.3);
  EXPECT_GE(table.Last(), 5);
  for (double x = table.First(); x < table.Last(); x += 0.00137)
    EXPECT_NEAR(table(x), cubic(x), 1e-13 * (1 + std::abs(cubic(x)))) << x;
}

TEST(SmoothTableTest, IsProportionalBelowAndStraightAboveItsNodes) {
  const SmoothTable table(1, 2, [](double x) { return SmoothTable::Node{x * x, 2 * x}; });
  EXPECT_DOUBLE_EQ(table(0.25), 0.25);
  EXPECT_DOUBLE_EQ(table(1e-300), 1e-300);
  EXPECT_DOUBLE_EQ(table(5), 4 + 3 * 4);
}

TEST(RangeTableTest, AgreesWithClosedFormsOfAPowerLaw) {
  const RangeTable table = PowerLaw();
  for (double T = 2e-3; T < 1e3; T *= 1.0137) {
    // What the straight line below 10 keV leaves out falls with the energy.
    EXPECT_NEAR(table.Range(T), std::pow(T, 1.75) / 1.75, 2e-9 + 1e-8 * table.Range(T)) << T;
    EXPECT_NEAR(table.RangeVariance(T) / (std::pow(T, 3.25) / 3.25), 1, 1e-7) << T;
    EXPECT_NEAR(table.Loss(T) * std::pow(T, 0.75), 1, 1e-6) << T;
  }
}

TEST(RangeTableTest, ReturnsTheEnergyOfEveryRange) {
  for (const char* name : {"Scintillator", "PVC", "Glue", "Steel", "Vacuum"}) {
    for (const double mass : {kMuon, kPion, kProton}) {
      const RangeTable table = OfMaterial(name, mass);
      for (double T = 1e-7; T < 9e3; T *= 1.0173)
        ASSERT_NEAR(table.Energy(table.Range(T)) / T, 1, 1e-5) << name << ' ' << mass << ' ' << T;
    }
  }
}

TEST(RangeTableTest, RangeAndEnergyRiseStrictly) {
  const RangeTable table = OfMaterial("Steel", kMuon);
  for (double T = 1e-6; T < 1e4; T *= 1.0011) {
    EXPECT_LT(table.Range(T), table.Range(T * 1.0011)) << T;
    const double range = table.Range(T);
    EXPECT_LT(table.Energy(range), table.Energy(range * 1.0005)) << T;
  }
}

/// Carries a particle a length upstream, by Runge and Kutta's rule in steps of at most 0.01 cm, in
/// which it loses no more than a hundredth of its energy.
double Upstream(const kelvo::dEdxTable& loss, double mass, double T, double length) {
  for (double done = 0; done < length;) {
    const double k1 = loss(T, mass);
    const double h = std::min({0.01, 0.01 * T / k1, length - done});
    const double k2 = loss(T + h / 2 * k1, mass);
    const double k3 = loss(T + h / 2 * k2, mass), k4 = loss(T + h * k3, mass);
    T += h / 6 * (k1 + 2 * k2 + 2 * k3 + k4);
    done += h;
  }
  return T;
}

TEST(RangeTableTest, CarriesParticlesThroughAnyStackAsFineStepsDo) {
  const std::vector<const char*> names{"Scintillator", "PVC", "Glue", "Steel"};
  std::mt19937_64 random(20);
  for (const double mass : {kMuon, kPion, kProton}) {
    std::vector<RangeTable> tables;
    for (const char* name : names) tables.push_back(OfMaterial(name, mass));
    for (int stack = 0; stack < 20; stack++) {
      double T = 1e-3 * std::exp(4.0 * static_cast<double>(random() % 1000) / 1000);
      double fine = T;
      for (int step = 0; step < 12; step++) {
        const std::size_t k = random() % names.size();
        const double length = std::exp(8.0 * static_cast<double>(random() % 1000) / 1000 - 4);
        T = tables[k].Energy(tables[k].Range(T) + length);
        fine = Upstream(kelvo::dEdxTable(names[k]), mass, fine, length);
        ASSERT_NEAR(T / fine, 1, 1e-4) << names[k] << ' ' << mass << ' ' << fine;
      }
    }
  }
}

} // namespace
