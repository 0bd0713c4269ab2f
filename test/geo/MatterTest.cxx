#include "geo/Matter.h"

#include "geo/PlaneDetector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

// Messages are compared word for word; lines count from the first of the file below.

namespace {

using geo::DetectorError;
using geo::MatterOf;
using geo::PlaneDetector;

/// A detector whose cells are filled with the material that is tested; its keys are on line 6 on.
std::string WithKeys(const std::string& name, const std::string& keys) {
  return "name = \"test\"\nworld = \"Vacuum\"\n\n[[material]]\nname = \"" + name + "\"\n" + keys +
         R"(
[[material]]
name = "Vacuum"
density = 1e-25

[[plane]]
name = "x"
view = "X"
count = 3
cell = { width = 4, length = 20, depth = 6 }
filling = ")" +
         name + "\"\n\n[[stack]]\nparts = [\"x\"]\n";
}

std::string MessageOf(const std::string& name, const std::string& keys) {
  try {
    PlaneDetector::FromText(WithKeys(name, keys), "test.toml");
  } catch (const DetectorError& error) {
    return error.what();
  }
  return "no error";
}

/// The material that the cells are filled with.
struct Filling {
  Filling(const std::string& name, const std::string& keys)
      : fDetector(PlaneDetector::FromText(WithKeys(name, keys), "test.toml")),
        fMaterial(*fDetector.Materials().at(1)) {}

  PlaneDetector fDetector;
  const TGeoMaterial& fMaterial;
};

TEST(Matter, LikeTakesAllFromThePublishedMaterial) {
  const Filling filling("absorber", "like = \"Fe\"\n");
  EXPECT_STREQ(filling.fMaterial.GetName(), "absorber");
  EXPECT_EQ(filling.fMaterial.GetDensity(), 7.874);
  EXPECT_NEAR(filling.fMaterial.GetRadLen(), 1.7575, 0.0001);
  const auto matter = MatterOf(filling.fMaterial);
  ASSERT_TRUE(matter);
  EXPECT_EQ(matter->Excitation(), 286);
  EXPECT_EQ(matter->Name(), "Fe");
}

TEST(Matter, OwnNumbersOfTheFileCount) {
  const Filling filling("foam",
                        "like = \"POLYSTYRENE\"\ndensity = 0.05\nI = 70\nradiation_length = 900\n");
  EXPECT_EQ(filling.fMaterial.GetDensity(), 0.05);
  EXPECT_EQ(filling.fMaterial.GetRadLen(), 900);
  const auto matter = MatterOf(filling.fMaterial);
  ASSERT_TRUE(matter);
  EXPECT_EQ(matter->Density(), 0.05);
  EXPECT_EQ(matter->Excitation(), 70);
  EXPECT_DOUBLE_EQ(matter->RadLength(), 45);
}

TEST(Matter, FormulaAndCompositionAreCalculated) {
  const Filling quartz("crystal", "formula = \"SiO2\"\ndensity = 2.65\n");
  EXPECT_NEAR(quartz.fMaterial.GetRadLen() * 2.65, 27.05, 0.1); // Particle Data Group [g/cm2]
  const Filling plastic("plastic", "composition = { C = 0.915, H = 0.085 }\ndensity = 1.032\n");
  EXPECT_NEAR(plastic.fMaterial.GetRadLen() * 1.032, 43.9, 0.2);
  const auto matter = MatterOf(plastic.fMaterial);
  ASSERT_TRUE(matter);
  EXPECT_EQ(matter->Parts().size(), 2u);
}

TEST(Matter, KnownNameNeedsNoOtherKey) {
  const Filling silicon("Silicon", "density = 2.329\n");
  EXPECT_NEAR(silicon.fMaterial.GetRadLen(), 9.37, 0.01);
  const Filling steel("Steel", "density = 7.5\nradiation_length = 1.8\n");
  const auto matter = MatterOf(steel.fMaterial);
  ASSERT_TRUE(matter);
  EXPECT_EQ(matter->Density(), 7.5);
  EXPECT_EQ(matter->Name(), "Steel");
}

TEST(Matter, GivenRadiationLengthIsKeptToTheBit) {
  for (const char* text : {"1.7584", "51.447", "16.517", "31.864", "9.37"}) {
    const Filling filling("Steel",
                          "density = 7.87\nradiation_length = " + std::string(text) + "\n");
    EXPECT_EQ(filling.fMaterial.GetRadLen(), std::stod(text));
  }
}

TEST(Matter, RecordOfAnyGeometryIsKnownByNameOrElement) {
  const geo::Own<> lead("shield", 207.2, 82, 11.35, -0.5612);
  const auto byElement = MatterOf(lead);
  ASSERT_TRUE(byElement);
  EXPECT_NEAR(byElement->Excitation(), 823, 1e-9);
  EXPECT_DOUBLE_EQ(byElement->RadLength(), 0.5612 * 11.35);
  const geo::Own<> water("Water", 0, 0, 0.998, -36.1);
  const auto byName = MatterOf(water);
  ASSERT_TRUE(byName);
  EXPECT_EQ(byName->Density(), 0.998);
  EXPECT_EQ(byName->Excitation(), 78);
}

TEST(Matter, AMixtureIsOfItsElementsByMass) {
  geo::Own<TGeoMixture> glass("window", 4, 2.2);
  glass.AddElement(28.085, 14, 0.467);
  glass.AddElement(15.995, 8, 0.5);
  glass.AddElement(17.999, 8, 0.033); // another isotope of the same element
  glass.AddElement(1.008, 1, 0);
  const auto matter = MatterOf(glass);
  ASSERT_TRUE(matter);
  ASSERT_EQ(matter->Parts().size(), 2u);
  EXPECT_EQ(matter->Parts()[0].fElement->fZ, 8);
  EXPECT_NEAR(matter->Parts()[0].fMassFraction, 0.533, 1e-12);
  EXPECT_EQ(matter->Parts()[1].fElement->fZ, 14);
  EXPECT_EQ(matter->Density(), 2.2);
  EXPECT_EQ(matter->RadLength(), glass.GetRadLen() * 2.2);
  const auto same = matter::Material::OfFormula("quartz", "SiO2", 2.2);
  EXPECT_NEAR(matter->Excitation() / same.Excitation(), 1, 1e-3);
}

TEST(Matter, TheWeightsOfAMixtureNeedNotAddUpToOne) {
  geo::Own<TGeoMixture> water("coolant", 2, 0.998);
  water.AddElement(1.008, 1, 2 * 1.008);
  water.AddElement(15.999, 8, 15.999);
  const auto matter = MatterOf(water);
  ASSERT_TRUE(matter);
  EXPECT_NEAR(matter->Parts()[0].fMassFraction, 2 * 1.008 / 18.015, 1e-12);
}

TEST(Matter, AMixtureOfWhatIsNoElementIsNotKnown) {
  geo::Own<TGeoMixture> foam("foam", 1, 0.05);
  foam.AddElement(11.2, 5.6, 1);
  EXPECT_FALSE(MatterOf(foam));
}

TEST(Matter, UnknownNameWithoutElementIsUnknown) {
  EXPECT_FALSE(MatterOf(geo::Own<>("Oil", 0, 0, 0.9, -50)));
  EXPECT_FALSE(MatterOf(geo::Own<>("Mixture", 12.4, 6.6, 0.9, -50, -90)));
  const Filling oil("Oil", "density = 0.9\nradiation_length = 50\n");
  EXPECT_FALSE(MatterOf(oil.fMaterial));
}

TEST(Matter, MessagesTellLineKeyAndWhatWasExpected) {
  EXPECT_EQ(
      MessageOf("a", "like = \"Irn\"\n"),
      "test.toml:6:8: material.like: expected a published material, such as \"Iron\", \"In\" or "
      "\"Ir\", found \"Irn\"");
  EXPECT_EQ(MessageOf("a", "formula = \"SiO2\"\n"),
            "test.toml:4:1: material.density: expected a density in g/cm3 from 1e-30 to 1e3, but "
            "the key is missing");
  EXPECT_EQ(MessageOf("a", "density = 2\nformula = \"SiQ2\"\n"),
            "test.toml:7:11: material.formula: expected the symbols of elements, such as \"H\" or "
            "\"Fe\", found \"Q\"");
  EXPECT_EQ(MessageOf("a", "density = 2\ncomposition = { C = 0.9, H = 0.08 }\n"),
            "test.toml:7:15: material.composition: expected mass fractions that add up to 1 within "
            "1%, found a sum of 0.98");
  EXPECT_EQ(MessageOf("a", "density = 2\ncomposition = { C = 0.9, Hx = 0.1 }\n"),
            "test.toml:7:15: material.composition: expected the symbols of elements, such as \"H\" "
            "or \"Fe\", found \"Hx\"");
  EXPECT_EQ(MessageOf("a", "density = 2\ncomposition = { C = \"much\" }\n"),
            "test.toml:7:21: material.composition.C: expected a mass fraction above 0, at most 1, "
            "found \"much\"");
  EXPECT_EQ(MessageOf("a", "density = 2\ncomposition = \"CH2\"\n"),
            "test.toml:7:15: material.composition: expected a table of mass fractions such as { C "
            "= 0.92, H = 0.08 }, found \"CH2\"");
  EXPECT_EQ(MessageOf("a", "like = \"Fe\"\nformula = \"Fe\"\n"),
            "test.toml:7:11: material.formula: expected only one of \"like\", \"formula\", "
            "\"composition\"");
  EXPECT_EQ(
      MessageOf("a", "density = 2\nradiation_length = 9\nI = 80\n"),
      "test.toml:8:5: material.I: expected \"like\", \"formula\" or \"composition\" beside it");
  EXPECT_EQ(MessageOf("a", "like = \"Fe\"\nI = 5\n"),
            "test.toml:7:5: material.I: expected a mean excitation energy in eV from 10 to 2000, "
            "found 5");
  EXPECT_EQ(MessageOf("a", "like = \"Fe\"\ndensity = 0\n"),
            "test.toml:7:11: material.density: expected a density in g/cm3 from 1e-30 to 1e3, "
            "found 0");
}

} // namespace
