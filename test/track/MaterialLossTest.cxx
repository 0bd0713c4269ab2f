#include "track/MaterialLoss.h"

#include "func/dEdxTable.h"
#include "geo/Matter.h"
#include "track/DetectorMaterials.h"
#include "util/Particles.h"

#include <gtest/gtest.h>

#include <cmath>

// References: the library's own tables, the calculation for the composition that they were made
// for, and published ranges: protons in water (M. J. Berger et al., PSTAR, NIST database 124) with
// their straggling (T. Bortfeld, Med. Phys. 24 (1997) 2024), muons in iron down to 10 MeV (PUMAS,
// V. Niess, Comput. Phys. Commun. 279 (2022) 108438).

namespace {

using kelvo::kMuonPDG;
using kelvo::kProtonPDG;
using kelvo::MaterialLoss;
using matter::Material;

constexpr double kLastPart = 4e-4; // cm: so well is the way of the last 3 MeV of a proton known

/// A detector of one material.
struct Filled : geo::GeometryBase {
  Filled(const char* name, const Material& matter) : fMaterial(name, 0, 0, 1, matter) {}
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    ds.push_back(p1[2] - p0[2]);
    mats.push_back(&fMaterial);
  }
  geo::MaterialOfMatter fMaterial;
};

TEST(MaterialLoss, TakesTheOwnTableForItsName) {
  for (const char* name : {"Scintillator", "PVC", "Glue", "Steel"})
    for (const kelvo::Particle& particle : kelvo::Particles()) {
      const MaterialLoss loss(Material::Named(name), particle.fPDG);
      const kelvo::dEdxTable table(name);
      for (double T = 1e-4; T < 1e3; T *= 1.7) EXPECT_EQ(loss(T), table(T, particle.fMass)) << name;
    }
}

TEST(MaterialLoss, CountsTheDensityOfAnOwnTable) {
  Material steel = Material::Named("Steel");
  steel.SetDensity(2 * steel.Density());
  const MaterialLoss dense(steel, kMuonPDG);
  EXPECT_DOUBLE_EQ(dense(1), 2 * kelvo::dEdxTable("Steel")(1, 0.105658));
}

TEST(MaterialLoss, CalculatesWhereTheExcitationEnergyIsAnother) {
  Material steel = Material::Named("Steel");
  steel.SetExcitation(400);
  const MaterialLoss loss(steel, kMuonPDG);
  EXPECT_LT(loss(0.1), 0.98 * kelvo::dEdxTable("Steel")(0.1, 0.105658));
}

TEST(MaterialLoss, AnAntiparticleLosesLessIfThePositiveOneIsTheParticle) {
  const Material iron = Material::Named("Iron");
  for (const int positive : {-kelvo::kMuonPDG, kelvo::kPionPDG, kelvo::kProtonPDG}) {
    const double T = 0.01 * kelvo::FindParticle(positive)->fMass;
    EXPECT_GT(MaterialLoss(iron, positive)(T), 1.005 * MaterialLoss(iron, -positive)(T));
  }
}

TEST(MaterialLoss, IsWhatAFitTakesForAMaterialOfAnyName) {
  Material shielding = Material::Named("Steel");
  shielding.SetDensity(7);
  const Filled detector("Shielding", shielding);
  kelvo::DetectorMaterials materials(detector, {kelvo::kProtonPDG}, true);
  const double p0[] = {0, 0, 0}, p1[] = {0, 0, 1};
  std::vector<double> lengths;
  std::vector<const TGeoMaterial*> found;
  detector.MaterialsBetweenPoints(p0, p1, lengths, found);
  const std::size_t index = materials.Index(found.front());
  const MaterialLoss loss(shielding, kelvo::kProtonPDG);
  for (double T = 1e-3; T < 10; T *= 2)
    EXPECT_NEAR(materials[index].fTables.front().Loss(T) / loss(T), 1, 1e-4) << T;
}

TEST(MaterialLoss, CalculationForTheSameCompositionIsNearTheOwnTable) {
  for (const char* name : {"Scintillator", "PVC", "Glue", "Steel"}) {
    const Material same = Material::Named(name);
    const MaterialLoss own(same, kMuonPDG);
    const matter::EnergyLoss calculated(same, matter::kMuon);
    for (double T = 1e-2; T < 1e3; T *= 1.3)
      EXPECT_NEAR(calculated(T) / own(T), 1, 0.02) << name << ' ' << T;
  }
}

TEST(MaterialLoss, RangesOfProtonsInWaterAreThePublishedOnes) {
  Material water = Material::Named("Water");
  water.SetExcitation(75); // eV, that of the publication
  const matter::RangeTable table = kelvo::MakeRangeTable(water, kProtonPDG);
  const double published[][2] = {{0.002, 7.555e-3}, {0.005, 3.623e-2}, {0.01, 0.1230},
                                 {0.05, 2.227},     {0.1, 7.718},      {0.2, 25.96},
                                 {1, 325.4}};
  for (const auto& [T, range] : published)
    EXPECT_NEAR(table.Range(T), range, 0.003 * range + kLastPart) << T;
}

TEST(MaterialLoss, RangesOfMuonsInIronAreThePublishedOnes) {
  const matter::RangeTable table = kelvo::MakeRangeTable(Material::Named("Iron"), kMuonPDG);
  const double published[][2] = {{0.1, 42.95}, {1, 641.2}, {10, 5536}}; // g/cm2
  for (const auto& [T, range] : published)
    EXPECT_NEAR((table.Range(T) - table.Range(0.01)) * 7.874 / range, 1, 0.004) << T;
}

TEST(MaterialLoss, StragglingOfProtonsInWaterIsThePublishedOne) {
  const matter::RangeTable table = kelvo::MakeRangeTable(Material::Named("Water"), kProtonPDG);
  for (const double T : {0.07, 0.1, 0.15, 0.2}) {
    const double published = 0.012 * std::pow(table.Range(T), 0.935); // cm
    EXPECT_NEAR(std::sqrt(table.RangeVariance(T)) / published, 1, 0.1) << T;
  }
}

} // namespace
