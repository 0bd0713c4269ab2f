// References: the plain lookup of PlainPath.h, and what the power law and the kinematics say.

#include "func/dEdxTable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "test/support/PlainPath.h"
#include "test/support/SameBits.h"

using kelvo::dEdxTable;

namespace {

constexpr double kMuon = 0.1056583568; // GeV, the mass that the tables refer to
const char* const kMaterials[] = {"Scintillator", "PVC", "Glue", "Steel", "Vacuum"};

const std::map<std::string, plain::Table>& Tables() {
  static const auto tables = plain::ReadTables(KELVO_SOURCE_DIR "/func/dEdxTable.cxx");
  return tables;
}

/// What an unknown name makes depends on how many came before it in the process, so every test of
/// it runs in a process of its own.
void Exit(bool good) {
  std::exit(good ? 0 : 1);
}

std::string WarningOf(const char* name, double* lookup = nullptr) {
  std::ostringstream caught;
  std::streambuf* const original = std::cerr.rdbuf(caught.rdbuf());
  const dEdxTable table(name);
  std::cerr.rdbuf(original);
  if (lookup) *lookup = table(1, kMuon);
  return caught.str();
}

TEST(dEdxTable, HoldsNinetyPointsOnAnEvenLogarithmicGrid) {
  for (const char* name : {"Scintillator", "PVC", "Glue", "Steel"}) {
    const plain::Table& table = Tables().at(name);
    ASSERT_EQ(table.fT.size(), 90u) << name;
    ASSERT_EQ(table.fdEdx.size(), 90u) << name;
    for (int i = 0; i < 90; i++) {
      const double exact = std::pow(10, -5 + 9. * i / 89);
      EXPECT_NEAR(table.fT[static_cast<std::size_t>(i)] / exact, 1, 5e-6) << name << ' ' << i;
    }
  }
}

TEST(dEdxTable, ReturnsEachRowAtItsGridEnergy) {
  for (const char* name : {"Scintillator", "PVC", "Glue", "Steel"}) {
    const plain::Table& rows = Tables().at(name);
    const dEdxTable table(name);
    for (std::size_t i = 0; i < 90; i++) {
      const double expected = rows.fdEdx[i] * 0.001 * rows.fDensity;
      EXPECT_NEAR(table(rows.fT[i], kMuon) / expected, 1, 1e-12) << name << ' ' << i;
    }
  }
  EXPECT_NEAR(dEdxTable("Glue")(0.281474, kMuon) / (1.74115 * 0.001 * 1.34), 1, 1e-12);
}

TEST(dEdxTable, GivesVacuumTheSameTinyLossAtEveryEnergy) {
  const dEdxTable vacuum("Vacuum");
  for (double T : {1e-6, 0.01, 1., 800., 1e6}) EXPECT_NEAR(vacuum(T, kMuon) / 1e-15, 1, 1e-12) << T;
}

TEST(dEdxTable, DependsOnBetaGammaOnly) {
  const dEdxTable steel("Steel");
  const double proton = 0.938272;
  for (double bg : {0.05, 0.5, 3., 40.}) {
    const double mu = steel(steel.BetaGammaToT(bg, kMuon), kMuon);
    const double p = steel(steel.BetaGammaToT(bg, proton), proton);
    EXPECT_NEAR(mu / p, 1, 1e-12) << bg;
  }
}

TEST(dEdxTable, ConvertsKineticEnergyAndBetaGamma) {
  const dEdxTable any("PVC");
  EXPECT_TRUE(SameBits(any.TtoBetaGamma(3, 1), std::sqrt(15.)));
  EXPECT_TRUE(SameBits(any.BetaGammaToT(std::sqrt(15.), 2), (std::sqrt(16.) - 1) * 2));
  EXPECT_NEAR(any.BetaGammaToT(any.TtoBetaGamma(0.7, 0.14), 0.14), 0.7, 1e-14);
}

TEST(dEdxTable, ContinuesThePowerLawBeyondBothEnds) {
  const plain::Table& rows = Tables().at("Steel");
  const dEdxTable steel("Steel");
  const double first = std::log(rows.fdEdx[1] / rows.fdEdx[0]) / std::log(rows.fT[1] / rows.fT[0]);
  EXPECT_NEAR(steel(1e-7, kMuon) / (rows.fdEdx[0] * 7.87e-3 * std::pow(0.01, first)), 1, 1e-10);
  const double last =
      std::log(rows.fdEdx[89] / rows.fdEdx[88]) / std::log(rows.fT[89] / rows.fT[88]);
  EXPECT_NEAR(steel(1e6, kMuon) / (rows.fdEdx[89] * 7.87e-3 * std::pow(100, last)), 1, 1e-10);
}

TEST(dEdxTable, HasNoGuardAtZeroNegativeAndNaNEnergies) {
  for (const char* name : {"PVC", "Glue", "Steel"}) EXPECT_EQ(dEdxTable(name)(0, kMuon), 0) << name;
  EXPECT_EQ(dEdxTable("Scintillator")(0, kMuon), std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(dEdxTable("Vacuum")(0, kMuon)));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const char* name : kMaterials) {
    EXPECT_TRUE(std::isnan(dEdxTable(name)(-0.1, kMuon))) << name;
    EXPECT_TRUE(std::isnan(dEdxTable(name)(nan, kMuon))) << name;
    EXPECT_FALSE(std::isnan(dEdxTable(name)(-0.3, kMuon))) << name; // beyond -2 M: a root again
  }
}

TEST(dEdxTable, InterpolatesInATableOfTheCaller) {
  const double t[] = {1, 10, 100};
  const double s[] = {2, 20, 2};
  const dEdxTable any("Vacuum");
  const auto at = [&](double T) { return any.Interp(T, kMuon, t, s, 3); };
  EXPECT_NEAR(at(3), 6e-3, 1e-15);   // the first law is 2 T
  EXPECT_NEAR(at(50), 4e-3, 1e-15);  // the second is 200 / T
  EXPECT_NEAR(at(0.5), 1e-3, 1e-15); // continued
  EXPECT_NEAR(at(1e3), 2e-4, 1e-15);
}

// At the double point itself the interval is the first, of no width; beyond it the second.
TEST(dEdxTable, TakesTheFirstIntervalUpToTheFirstPointOfAGridThatBeginsTwice) {
  const dEdxTable any("Vacuum");
  const double T = 0.3;
  const double x = any.BetaGammaToT(any.TtoBetaGamma(T, kMuon), kMuon);
  const double s[] = {2, 3, 5};
  const double at[] = {x, x, 4 * x};
  EXPECT_TRUE(std::isnan(any.Interp(T, kMuon, at, s, 3)));
  const double before = std::nextafter(x, 0);
  const double beyond[] = {before, before, 4 * x};
  EXPECT_NEAR(any.Interp(T, kMuon, beyond, s, 3), 3e-3, 1e-15);
}

TEST(dEdxTable, EqualsThePlainLookupToTheLastBit) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> lnT(std::log(1e-8), std::log(1e7));
  std::uniform_real_distribution<double> lnM(std::log(5e-4), std::log(4.));
  std::uniform_int_distribution<int> material(0, 4);
  for (int i = 0; i < 100000; i++) {
    const char* name = kMaterials[material(rng)];
    const double T = std::exp(lnT(rng));
    const double M = i % 3 == 0 ? kMuon : std::exp(lnM(rng));
    const plain::Table& table = Tables().at(name);
    const double expected = plain::dEdx(table, T, M);
    ASSERT_TRUE(SameBits(dEdxTable(name)(T, M), expected)) << name << ' ' << T << ' ' << M;
    const auto n = static_cast<unsigned int>(table.fT.size());
    ASSERT_TRUE(SameBits(
        dEdxTable(name).Interp(T, M, table.fT.data(), table.fdEdx.data(), n) * table.fDensity,
        expected));
  }
}

TEST(dEdxTable, EqualsThePlainLookupAtTheLimitsOfNumbers) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double min = std::numeric_limits<double>::denorm_min();
  const double max = std::numeric_limits<double>::max();
  for (const char* name : kMaterials)
    for (double T : {0.0, min, 0x1p-17, 0x1p14, max, infinity, -1.0, -infinity})
      for (double M : {0.0, min, kMuon, 1.0, max, infinity, -kMuon}) {
        const double value = dEdxTable(name)(T, M);
        const double expected = plain::dEdx(Tables().at(name), T, M);
        if (std::isnan(expected))
          EXPECT_TRUE(std::isnan(value)) << name << ' ' << T << ' ' << M;
        else
          EXPECT_TRUE(SameBits(value, expected)) << name << ' ' << T << ' ' << M;
      }
}

TEST(dEdxTable, EqualsThePlainLookupBesideEveryGridPoint) {
  for (const char* name : kMaterials) {
    const dEdxTable table(name);
    const plain::Table& rows = Tables().at(name);
    for (double t : rows.fT) {
      // Rounding may move the muon energy off the grid point; one of these hits it exactly.
      double T = t * (1 - 4e-15);
      for (int i = 0; i < 100; i++, T = std::nextafter(T, 2 * t))
        ASSERT_TRUE(SameBits(table(T, kMuon), plain::dEdx(rows, T, kMuon))) << name << ' ' << T;
    }
  }
}

TEST(dEdxTable, CanBePointedAtAnotherMaterial) {
  dEdxTable table("Steel");
  table.InitGlue();
  EXPECT_TRUE(SameBits(table(1, kMuon), dEdxTable("Glue")(1, kMuon)));
  table.InitVac();
  EXPECT_TRUE(SameBits(table(1, kMuon), dEdxTable("Vacuum")(1, kMuon)));
}

TEST(dEdxTable, WarnsOfAnUnknownNameAndTakesVacuum) {
  EXPECT_EXIT(
      {
        double lookup = 0;
        const std::string warning = WarningOf("scintillator", &lookup);
        Exit(warning ==
                 "func/dEdxTable:50 Have no table for material scintillator Defaulting to "
                 "Vacuum.\n" &&
             std::abs(lookup / 1e-15 - 1) < 1e-12);
      },
      testing::ExitedWithCode(0), "");
}

TEST(dEdxTable, WarnsTenTimesAndIsEmptyFromTheEleventhNameOn) {
  EXPECT_EXIT(
      {
        bool good = true;
        const std::string line =
            "func/dEdxTable:50 Have no table for material X Defaulting to Vacuum.";
        for (int i = 0; i < 9; i++) good = good && WarningOf("X") == line + "\n";
        good = good && WarningOf("X") == line + " Last warning.\n";
        for (int i = 0; i < 5; i++) {
          double lookup = 1;
          good = good && WarningOf("X", &lookup).empty() && lookup == 0;
        }
        Exit(good);
      },
      testing::ExitedWithCode(0), "");
}

} // namespace
