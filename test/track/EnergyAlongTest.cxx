// Energies along a stack of materials against integrations in small steps, and their fluctuation
// against a simulation of single collisions.

#include "track/EnergyAlong.h"

#include "func/dEdxTable.h"
#include "test/support/TestGeometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using kelvo::DetectorMaterials;
using kelvo::EnergyAlong;
using kelvo::MaterialAlong;
using kelvo::WayPoint;

constexpr double kMass[] = {0.105658, 0.13957, 0.938272}; // GeV: muon, pion, proton

/// Planes of 2.5 cm of steel and 1.5 cm of scintillator, points every 4 cm in the scintillator.
struct Stack {
  static constexpr int kPlanes = 30;
  LayeredGeometry fGeometry{Layers()};
  MaterialAlong fMaterial{DetectorMaterials(fGeometry, {13, 211, 2212}, true)};
  EnergyAlong fEnergy{{kMass[0], kMass[1], kMass[2]}};
  std::vector<double> fStretch = std::vector<double>(kPlanes, 1.25);

  Stack() {
    std::vector<WayPoint> points;
    for (int i = 0; i < kPlanes; i++) points.push_back({{0, 0, 3.25 + 4 * i}, {0, 0}});
    fMaterial.Trace(points);
    fMaterial.TraceEnd(points.back(), {0, 0}, 4, 0.5);
  }
  static std::vector<LayeredGeometry::Layer> Layers() {
    std::vector<LayeredGeometry::Layer> layers;
    for (int i = 0; i <= kPlanes; i++) {
      layers.push_back({2.5, "Steel"});
      layers.push_back({1.5, "Scintillator"});
    }
    return layers;
  }
};

/// Kinetic energy at the first point of a particle that stops at z, in steps of 0.01 cm upstream.
double Stepped(double zEnd, double stretch, double mass) {
  const kelvo::dEdxTable steel("Steel"), scintillator("Scintillator");
  const int steps = static_cast<int>(std::lround((zEnd - 3.25) / 0.001));
  const double dz = (zEnd - 3.25) / steps;
  double T = 1e-6 * mass;
  for (int i = 0; i < steps; i++) {
    const double z = zEnd - (i + 0.5) * dz;
    const kelvo::dEdxTable& table = std::fmod(z, 4) < 2.5 ? steel : scintillator;
    const double ds = dz * stretch;
    T += ds * table(T + ds / 2 * table(T, mass), mass);
  }
  return T;
}

TEST(EnergyAlong, AStoppingParticleHasTheEnergyOfAnIntegrationInSmallSteps) {
  constexpr double kAccuracy = 1e-4; // asked for
  Stack stack;
  stack.fEnergy.Stop(stack.fMaterial, stack.fStretch);
  for (std::size_t p = 0; p < 3; p++)
    EXPECT_NEAR(stack.fEnergy.T(p)[0] / Stepped(stack.fMaterial.End().fEnd, 1.25, kMass[p]), 1,
                kAccuracy);
}

TEST(EnergyAlong, ABeamLosesWhatAStoppingParticleHas) {
  Stack stack;
  stack.fEnergy.Stop(stack.fMaterial, stack.fStretch);
  for (std::size_t p = 0; p < 3; p++) {
    const double T = stack.fEnergy.T(p)[0];
    const double last = stack.fEnergy.T(p)[Stack::kPlanes - 1];
    EnergyAlong beam({kMass[0], kMass[1], kMass[2]});
    beam.Pass(stack.fMaterial, stack.fStretch,
              std::vector<double>(3, std::sqrt(T * (T + 2 * kMass[p]))));
    EXPECT_NEAR(beam.T(p)[0], T, 1e-12);
    EXPECT_NEAR(beam.T(p)[Stack::kPlanes - 1], last, 2e-4 * T); // layers in the other order
  }
}

TEST(EnergyAlong, AChangeOfTheWayIsThatOfAnotherRangeOut) {
  Stack stack;
  stack.fEnergy.Stop(stack.fMaterial, stack.fStretch);
  std::vector<double> other = stack.fStretch;
  for (std::size_t i = 0; i < other.size(); i++)
    other[i] *= 1 + 2e-3 * std::sin(static_cast<double>(i));
  EnergyAlong energy({kMass[0], kMass[1], kMass[2]});
  energy.Stop(stack.fMaterial, other);
  for (std::size_t p = 0; p < 3; p++) {
    const double change = energy.T(p)[0] - stack.fEnergy.T(p)[0];
    EXPECT_NEAR(stack.fEnergy.Change(stack.fMaterial, p, stack.fStretch, other), change,
                1e-5 * stack.fEnergy.T(p)[0]);
  }
}

/// Loss in a material by single collisions, each above a cut that hardly matters; those below are
/// their mean and variance. Rutherford's spectrum for a heavy particle: xi / E^2 (1 - beta^2 E /
/// E_max).
double Fluctuation(double xi, double beta2, double most, std::mt19937_64& random) {
  const double cut = std::min(0.02 * xi, 0.005 * most);
  std::poisson_distribution<int> number(xi * (1 / cut - 1 / most));
  std::uniform_real_distribution<double> uniform;
  std::normal_distribution<double> gauss;
  double loss = std::sqrt(xi * cut) * gauss(random);
  for (int n = number(random); n > 0; n--) {
    const double e = 1 / (1 / most + (1 / cut - 1 / most) * uniform(random));
    if (uniform(random) < 1 - beta2 * e / most) loss += e;
  }
  return loss - xi * (std::log(most / cut) - beta2);
}

/// Compares the straggling of a particle with simulated collisions: of each gap a random loss,
/// carried to the first point; the half width of 68 % of their sum.
void ExpectCoreOfCollisions(const Stack& stack, std::size_t p) {
  constexpr int kTracks = 6000;
  constexpr double kElectron = 0.51099895e-3;
  const auto& gaps = stack.fMaterial.Gaps();
  const double* T = stack.fEnergy.T(p);
  const double ratio0 = (T[0] - T[1]) / gaps[0].fMipLoss;
  std::mt19937_64 random(5);
  std::vector<double> sums(kTracks);
  for (std::size_t i = 0; i < gaps.size(); i++) {
    const double gamma = 1 + (T[i] + T[i + 1]) / 2 / kMass[p], beta2 = 1 - 1 / (gamma * gamma);
    const double m = kElectron / kMass[p];
    const double most = 2 * kElectron * (gamma * gamma - 1) / (1 + 2 * gamma * m + m * m);
    const double scale = ratio0 * gaps[i].fMipLoss / (T[i] - T[i + 1]);
    const double xi = gaps[i].fXi * stack.fStretch[i] / beta2;
    for (double& sum : sums) sum += scale * Fluctuation(xi, beta2, most, random);
  }
  std::sort(sums.begin(), sums.end());
  const double half = (sums[kTracks * 8413 / 10000] - sums[kTracks * 1587 / 10000]) / 2;
  const double expected =
      std::sqrt(stack.fEnergy.Straggling(stack.fMaterial, 0, stack.fStretch)[p]);
  EXPECT_NEAR(expected / half, 1, 0.08) << "mass " << kMass[p];
}

TEST(EnergyAlong, StragglingHasTheCoreOfSingleCollisions) {
  Stack stack;
  stack.fEnergy.Stop(stack.fMaterial, stack.fStretch);
  for (std::size_t p : {std::size_t{0}, std::size_t{2}}) ExpectCoreOfCollisions(stack, p);
}

TEST(EnergyAlong, HardCollisionsOfAFastMuonAreATailAndNotInTheCore) {
  Stack stack;
  stack.fEnergy.Pass(stack.fMaterial, stack.fStretch, {5, 5, 5});
  ExpectCoreOfCollisions(stack, 0);
}

} // namespace
