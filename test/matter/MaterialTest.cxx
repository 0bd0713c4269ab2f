#include "matter/Material.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// References: the published table itself, to which the calculation is compared; the radiation
// lengths and plasma energies of the Particle Data Group's "Atomic and nuclear properties of
// materials".

namespace {

using matter::Material;

// By so much the published fits of heavy compounds fall at their lower end.
constexpr double kDip = 0.05;

std::string MessageOf(const std::function<void()>& make) {
  try {
    make();
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "no error";
}

std::string NameMessage(const std::string& name) {
  return MessageOf([&] { Material::Named(name); });
}

std::string FormulaMessage(const std::string& formula) {
  return MessageOf([&] { Material::OfFormula("test", formula, 1); });
}

std::string FractionsMessage(const std::vector<std::pair<std::string, double>>& fractions) {
  return MessageOf([&] { Material::OfMassFractions("test", fractions, 1); });
}

double FractionOf(const Material& material, const std::string& symbol) {
  for (const auto& [element, fraction] : material.Parts())
    if (element->fSymbol == symbol) return fraction;
  return 0;
}

TEST(Material, CalculatedRadiationLengthsAreWithinOnePercentOfAllPublishedOnes) {
  const std::vector<std::string> names = matter::MaterialNames();
  EXPECT_EQ(names.size(), 309u);
  for (const std::string& name : names) {
    const Material material = Material::Named(name);
    EXPECT_NEAR(matter::TsaiRadLength(material.Parts()) / material.RadLength(), 1, 0.01) << name;
  }
}

TEST(Material, PublishedNumbersAreThoseOfTheParticleDataGroup) {
  const Material lead = Material::Named("Pb");
  EXPECT_NEAR(lead.RadLength(), 6.37, 0.005);
  EXPECT_NEAR(lead.PlasmaEnergy(), 61.07, 0.05);
  EXPECT_EQ(lead.Excitation(), 823);
  EXPECT_EQ(lead.Density(), 11.35);
  const Material water = Material::Named("WATER");
  EXPECT_NEAR(water.RadLength(), 36.08, 0.01);
  EXPECT_NEAR(water.PlasmaEnergy(), 21.47, 0.02);
  EXPECT_NEAR(water.MolesOfElectrons(), 0.55509, 0.00005);
}

TEST(Material, CompositionsOfTheTableAddUpToOne) {
  for (const std::string& name : matter::MaterialNames()) {
    double sum = 0;
    const Material material = Material::Named(name);
    for (const auto& [element, fraction] : material.Parts()) {
      EXPECT_GT(fraction, 0) << name;
      sum += fraction;
    }
    EXPECT_NEAR(sum, 1, 1e-12) << name;
  }
}

TEST(Material, EverydayNamesMeanThePublishedMaterial) {
  const std::vector<std::pair<std::string, std::string>> pairs{
      {"Iron", "Fe"},     {"Aluminium", "Al"}, {"Silicon", "Si"}, {"LiquidArgon", "lAr"},
      {"Water", "WATER"}, {"Air", "AIR"},      {"Lead", "Pb"},    {"Kapton", "KAPTON"}};
  for (const auto& [everyday, published] : pairs) {
    EXPECT_EQ(Material::Named(everyday).Density(), Material::Named(published).Density());
    EXPECT_EQ(Material::Named(everyday).RadLength(), Material::Named(published).RadLength());
    EXPECT_EQ(Material::Named(everyday).Name(), everyday);
    const std::vector<std::string> names = matter::EverydayNames(published);
    EXPECT_NE(std::find(names.begin(), names.end(), everyday), names.end()) << everyday;
  }
}

TEST(Material, EveryEverydayNameHasItsMaterial) {
  for (const std::string& published : matter::MaterialNames())
    for (const std::string& everyday : matter::EverydayNames(published))
      EXPECT_EQ(Material::Named(everyday).RadLength(), Material::Named(published).RadLength())
          << everyday;
}

TEST(Material, OwnTablesHaveTheirMaterials) {
  EXPECT_NEAR(Material::Named("Scintillator").Excitation(), 59.637, 0.01);
  EXPECT_NEAR(Material::Named("PVC").Excitation(), 112.529, 0.01);
  EXPECT_EQ(Material::Named("Glue").Density(), 1.34);
  EXPECT_EQ(FractionOf(Material::Named("Steel"), "Fe"), 1);
  EXPECT_EQ(Material::Named("Vacuum").Density(), 1e-25);
}

TEST(Material, ANameOfAMillionLettersIsRefusedAtOnce) {
  const std::string name(1000000, 'a');
  try {
    Material::Named(name);
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(std::string(e.what()).find("expected a published material, such as "), 0u);
  }
}

TEST(Material, UnknownNameSuggestsTheNearest) {
  EXPECT_EQ(NameMessage("polystyren"),
            "expected a published material, such as \"Polystyrene\", \"POLYSTYRENE\" or "
            "\"Polyethylene\", found \"polystyren\"");
  EXPECT_EQ(NameMessage("Alumnium"),
            "expected a published material, such as \"Aluminium\", \"Aluminum\" or \"Actinium\", "
            "found \"Alumnium\"");
}

TEST(Material, FormulaGivesTheMassFractionsOfItsAtoms) {
  const Material quartz = Material::OfFormula("quartz", "SiO2", 2.32);
  EXPECT_NEAR(FractionOf(quartz, "Si"), 28.0854 / (28.0854 + 2 * 15.9994), 1e-6);
  const Material lime = Material::OfFormula("lime", "Ca(OH)2", 2.2);
  const double grams = 40.078 + 2 * (15.9994 + 1.00794);
  EXPECT_NEAR(FractionOf(lime, "Ca"), 40.078 / grams, 1e-6);
  EXPECT_NEAR(FractionOf(lime, "H"), 2 * 1.00794 / grams, 1e-6);
  EXPECT_EQ(lime.Parts().size(), 3u);
  const Material once = Material::OfFormula("acid", "CH3COOH", 1.05);
  const Material sum = Material::OfFormula("acid", "C2H4O2", 1.05);
  for (const char* symbol : {"H", "C", "O"})
    EXPECT_NEAR(FractionOf(once, symbol), FractionOf(sum, symbol), 1e-15);
}

TEST(Material, FormulaOfAPublishedCompoundGivesItsRadiationLength) {
  const Material quartz = Material::OfFormula("quartz", "SiO2", 2.32);
  const Material published = Material::Named("SILICON_DIOXIDE");
  EXPECT_NEAR(quartz.RadLength() / published.RadLength(), 1, 0.001);
  EXPECT_EQ(quartz.Density(), published.Density());
  // the excitation energies of elements in a compound are those of solids, Bragg's rule has gases
  EXPECT_NEAR(quartz.Excitation() / published.Excitation(), 1, 0.15);
}

TEST(Material, MassFractionsOfOneElementAreThatElement) {
  const Material iron = Material::OfMassFractions("iron", {{"Fe", 0.995}}, 7.874);
  EXPECT_EQ(FractionOf(iron, "Fe"), 1);
  EXPECT_NEAR(iron.Excitation(), 286, 1e-10);
}

TEST(Material, ElementHasItsPublishedDensityEffectAtAnyDensity) {
  const Material published = Material::Named("Fe");
  const Material iron = Material::OfFormula("iron", "Fe", published.Density());
  const Material porous = Material::OfFormula("porous iron", "Fe", published.Density() / 2);
  EXPECT_EQ(iron.GetDensityEffect().fA, published.GetDensityEffect().fA);
  EXPECT_DOUBLE_EQ(iron.GetDensityEffect().Delta(1), published.GetDensityEffect().Delta(1));
  EXPECT_NEAR(porous.GetDensityEffect().Delta(3), iron.GetDensityEffect().Delta(3) - std::log(2.),
              0.01);
}

TEST(Material, BraggsRuleIsTheMeanOfLogarithmsByElectrons) {
  const Material water = Material::OfFormula("water", "H2O", 1);
  EXPECT_NEAR(water.Excitation(), std::exp((2 * std::log(19.2) + 8 * std::log(95.)) / 10), 1e-10);
}

TEST(Material, AnotherDensityShiftsTheDensityEffect) {
  const Material water = Material::Named("WATER");
  Material thin = water;
  thin.SetDensity(0.01);
  for (const double x : {1.5, 2.5, 4.}) // delta(X) of a hundredth is delta(X - 1)
    EXPECT_NEAR(thin.GetDensityEffect().Delta(x), water.GetDensityEffect().Delta(x - 1), 1e-12);
  thin.SetDensity(1);
  EXPECT_NEAR(thin.GetDensityEffect().Delta(2), water.GetDensityEffect().Delta(2), 1e-12);
}

TEST(Material, DensityEffectIsContinuousAndDoesNotFallForAllMaterials) {
  for (const std::string& name : matter::MaterialNames()) {
    const matter::DensityEffect effect = Material::Named(name).GetDensityEffect();
    EXPECT_NEAR(effect.Delta(effect.fX0 - 1e-9), effect.Delta(effect.fX0), 0.02) << name;
    EXPECT_NEAR(effect.Delta(effect.fX1 - 1e-9), effect.Delta(effect.fX1), 1e-6) << name;
    const double most = std::min(effect.fX1, 6.); // beta gamma below 1e6
    for (double x = effect.fX0; x < most; x += 0.05)
      EXPECT_GT(effect.Delta(x + 0.05), effect.Delta(x) - kDip) << name << ' ' << x;
  }
}

TEST(Material, GeneralDensityEffectIsContinuousAtItsLimits) {
  for (const double excitation : {20., 80., 95., 150., 800.})
    for (const double plasma : {0.5, 1., 20., 40.})
      for (const bool gas : {false, true}) {
        const matter::DensityEffect effect = matter::GeneralDensityEffect(excitation, plasma, gas);
        EXPECT_NEAR(effect.Delta(effect.fX0), 0, 1e-12);
        EXPECT_NEAR(effect.Delta(effect.fX1), 2 * std::log(10.) * effect.fX1 - effect.fC, 1e-12);
      }
}

TEST(Material, FarAboveTheLimitTheDensityEffectFollowsThePlasmaEnergy) {
  for (const char* name : {"Si", "Pb", "WATER", "AIR", "KAPTON"}) {
    const Material m = Material::Named(name);
    const double c = 1 + 2 * std::log(m.Excitation() / m.PlasmaEnergy());
    EXPECT_NEAR(m.GetDensityEffect().fC, c, 0.02) << name;
  }
}

TEST(Material, MessagesSayWhatWasExpected) {
  EXPECT_EQ(FractionsMessage({{"C", 0.9}, {"H", 0.08}}),
            "expected mass fractions that add up to 1 within 1%, found a sum of 0.98");
  EXPECT_EQ(FractionsMessage({{"C", 0.9}, {"Xx", 0.1}}),
            "expected the symbols of elements, such as \"H\" or \"Fe\", found \"Xx\"");
  EXPECT_EQ(FractionsMessage({{"C", 0.5}, {"C", 0.5}}),
            "expected each element once, found \"C\" twice");
  EXPECT_EQ(FractionsMessage({{"C", 1.1}, {"H", -0.1}}), "expected mass fractions above 0");
  EXPECT_EQ(FormulaMessage("SiQ2"),
            "expected the symbols of elements, such as \"H\" or \"Fe\", found \"Q\"");
  for (const char* formula :
       {"", "2H", "Si O2", "Ca(OH", "Ca()2", "CaOH)2", "H0", "h2o", "H-", "C1234567"})
    EXPECT_EQ(FormulaMessage(formula),
              std::string("expected a chemical formula such as \"SiO2\" or \"Ca(OH)2\", found \"") +
                  formula + '"');
  EXPECT_EQ(MessageOf([] { Material::OfFormula("test", "H2O", 0); }),
            "expected a density above 0 g/cm3, found 0");
}

} // namespace
