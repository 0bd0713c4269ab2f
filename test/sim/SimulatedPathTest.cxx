// Simulated paths against closed forms (straight lines, Highland's width, Bohr's variance) and, for
// the energy, against the range-out of the fit, which is another program.

#include "func/Path.h"
#include "geo/Matter.h"
#include "sim/SimulatedPath.h"
#include "test/support/BundledDetector.h"
#include "track/MaterialLoss.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using kelvo::ParticleTransport;
using kelvo::SimulatedPath;
using util::RandomStream;

constexpr double kMuon = 0.1056583755; // GeV

/// Mean and standard deviation of numbers.
struct Moments {
  double fN = 0, fSum = 0, fSum2 = 0;
  void Add(double x) {
    fN++;
    fSum += x;
    fSum2 += x * x;
  }
  double Mean() const { return fSum / fN; }
  double Width() const { return std::sqrt(fSum2 / fN - Mean() * Mean()); }
  double RelativeErrorOfWidth() const { return 1 / std::sqrt(2 * fN); }
};

TEST(SimulatedPath, EnergyAgreesWithTheRangeOutOfTheFit) {
  for (const auto* detector : {&BundledDetector("fine"), &BundledDetector("range")})
    for (const int pdg : {13, 211, 2212}) {
      const TVector3 a(3, -20, 5), b(40, 10, 180);
      SimulatedPath back;
      ParticleTransport(*detector, pdg, false).FollowBack({a, b}, back);
      // The range-out of the fit takes one step per leg and material: short legs make it exact.
      std::vector<TVector3> points;
      for (int i = 0; i <= 2000; i++) points.push_back(a + i / 2000. * (b - a));
      const kelvo::Path path(*detector, points, 0);
      for (const double s : {0., 50., 100., 150.}) {
        double T = 0;
        if (pdg == 13) path.MuonParams(s, &T, nullptr, nullptr, nullptr);
        if (pdg == 211) path.PionParams(s, &T, nullptr, nullptr, nullptr);
        if (pdg == 2212) path.ProtonParams(s, &T, nullptr, nullptr, nullptr);
        for (std::size_t i = 1; i < back.fPoints.size(); i++) {
          const auto& p = back.fPoints[i - 1];
          const auto& q = back.fPoints[i];
          if (p.fLength > s || q.fLength <= s) continue;
          const double share = (s - p.fLength) / (q.fLength - p.fLength);
          // The fit leaves 1 % of the mass at the end of the path, which decays upstream.
          EXPECT_NEAR(p.fT + share * (q.fT - p.fT), T, 0.004 * T) << pdg << " at " << s;
        }
      }
    }
}

TEST(SimulatedPath, ForwardAndBackwardAgree) {
  for (const int pdg : {13, 211, 2212}) {
    RandomStream random(1, 1);
    ParticleTransport transport(BundledDetector("fine"), pdg, false);
    SimulatedPath forward, back;
    transport.FollowStraight({1, 2, -3}, TVector3(0.1, 0.2, 1).Unit(), 0.5, random, forward);
    ASSERT_TRUE(forward.fStopped);
    transport.FollowBack({forward.fPoints.front().fX, forward.fPoints.back().fX}, back);
    EXPECT_NEAR(back.fPoints.front().fT, 0.5, 1e-4);
    EXPECT_NEAR(back.fPoints.back().fLength, forward.fPoints.back().fLength, 1e-6);
    EXPECT_LT((back.fPoints.front().fX - forward.fPoints.front().fX).Mag(), 1e-6);
  }
}

TEST(SimulatedPath, StraightPathCrossesPlanesWhereALineDoes) {
  RandomStream random(1, 1);
  SimulatedPath path;
  const TVector3 x(1, 2, -3), u = TVector3(0.1, 0.2, 1).Unit();
  ParticleTransport(BundledDetector("fine"), 13, false).FollowStraight(x, u, 0.5, random, path);
  const auto crossings = Crossings(BundledDetector("fine"), path);
  const double end = path.fPoints.back().fX.Z();
  ASSERT_EQ(crossings.size(), static_cast<std::size_t>((end - 3) / 6.05) + 1);
  for (unsigned i = 0; i < crossings.size(); i++) {
    EXPECT_EQ(crossings[i].fPlane, i);
    const double length = (6.05 * i + 3 + 3) / u.Z();
    EXPECT_LT((crossings[i].fAt.fX - x - length * u).Mag(), 1e-9);
    EXPECT_NEAR(crossings[i].fAt.fLength, length, 1e-9);
    EXPECT_LT((crossings[i].fDirection - u).Mag(), 1e-9);
  }
}

TEST(SimulatedPath, ParticleThatIsNotStoppedLeaves) {
  RandomStream random(1, 1);
  SimulatedPath path;
  ParticleTransport transport(BundledDetector("range"), 13, false);
  transport.FollowStraight({0, 0, -1}, {0, 0, 1}, 50, random, path);
  EXPECT_FALSE(path.fStopped);
  transport.Scatter({0, 0, -1}, {0, 0, 1}, 50, 1, random, path);
  EXPECT_FALSE(path.fStopped);
  EXPECT_GT(path.fPoints.back().fX.Z(), 239.5);
}

// Between the first plane and one further on, at a momentum that hardly changes: each layer gives
// Highland's angle for its 1.441 radiation lengths, and the angles of layers add up in quadrature.
TEST(SimulatedPath, AnglesBetweenPlanesHaveHighlandsWidthWhateverTheStep) {
  constexpr int kTracks = 2000, kLayers = 12;
  constexpr double T = 100;
  const double x0 = 2.5 / 1.7584 + 1 / 51.447;
  const double betaP = T * (T + 2 * kMuon) / (T + kMuon);
  const double theta0 = 0.0136 / betaP * std::sqrt(x0) * (1 + 0.038 * std::log(x0));
  for (const double step : {0.5, 1., 7.}) {
    Moments angle, shift;
    double correlation = 0;
    ParticleTransport transport(BundledDetector("range"), 13, false);
    for (int i = 0; i < kTracks; i++) {
      RandomStream random(7, static_cast<std::uint64_t>(i));
      SimulatedPath path;
      transport.Scatter({0, 0, -1}, {0, 0, 1}, T, step, random, path);
      const auto crossings = Crossings(BundledDetector("range"), path);
      ASSERT_EQ(crossings.size(), 60u);
      const auto &a = crossings[0], &b = crossings[kLayers];
      const double length = 4. * kLayers;
      for (int k = 0; k < 2; k++) {
        const double kink = b.fDirection[k] - a.fDirection[k];
        const double off = b.fAt.fX[k] - a.fAt.fX[k] - length * a.fDirection[k];
        angle.Add(kink);
        shift.Add(off / length);
        correlation += kink * off / length;
      }
    }
    const double expected = theta0 * std::sqrt(kLayers);
    const double tolerance = 4 * angle.RelativeErrorOfWidth() * expected + 0.003 * expected;
    EXPECT_NEAR(angle.Width(), expected, tolerance) << step;
    EXPECT_NEAR(angle.Mean(), 0, 4 * expected / std::sqrt(angle.fN)) << step;
    // Particle Data Group, Passage of particles through matter, "y plane" and its correlation; that
    // the steel lies upstream in each layer moves both by less than 1 in 50.
    EXPECT_NEAR(shift.Width() * std::sqrt(3), expected, tolerance + 0.03 * expected) << step;
    EXPECT_NEAR(correlation / angle.fN / angle.Width() / shift.Width(), std::sqrt(3) / 2, 0.02)
        << step;
  }
}

// Protons through slabs of all kinds of material that a detector's file can have, against the range
// tables: energy is the inverse of range, whatever the steps.
TEST(SimulatedPath, LosesInAnyMaterialWhatItsRangeTableSays) {
  const std::string text = R"(
name = "slabs"
world = "Vacuum"
[[material]]
name = "Vacuum"
density = 1e-25
[[material]]
name = "absorber"
like = "Pb"
[[material]]
name = "quartz"
formula = "SiO2"
density = 2.2
[[material]]
name = "plastic"
composition = { C = 0.915, H = 0.085 }
density = 1.03
I = 68.7
[[material]]
name = "Silicon"
like = "Silicon"
[[plane]]
name = "sensor"
view = "XY"
count = [10, 10]
cell = { width = [1, 1], depth = 0.1 }
filling = "Silicon"
[[slab]]
name = "a"
material = "absorber"
size = [10, 10]
thickness = 1
[[slab]]
name = "b"
material = "quartz"
size = [10, 10]
thickness = 3
[[slab]]
name = "c"
material = "plastic"
size = [10, 10]
thickness = 5
[[stack]]
z = 0
parts = ["a", 1, "b", 2, "c", "sensor"]
)";
  const auto detector = geo::PlaneDetector::FromText(text, "slabs.toml");
  const double p0[] = {0, 0, 0}, p1[] = {0, 0, 12.1};
  std::vector<double> lengths;
  std::vector<const TGeoMaterial*> materials;
  for (const double T : {0.25, 0.5, 120.}) {
    double left = T;
    detector.MaterialsBetweenPoints(p0, p1, lengths, materials);
    ASSERT_EQ(materials.size(), 6u);
    for (std::size_t k = 0; k < lengths.size(); k++) {
      if (materials[k]->GetName() == std::string("Vacuum")) continue;
      const auto table = kelvo::MakeRangeTable(geo::MatterOf(*materials[k]).value(), 2212);
      left = table.Energy(table.Range(left) - lengths[k]);
    }
    RandomStream random(1, 1);
    SimulatedPath path;
    ParticleTransport(detector, 2212, false).FollowStraight({0, 0, -1}, {0, 0, 1}, T, random, path);
    EXPECT_NEAR(path.fPoints.back().fT / left, 1, 2e-4) << T;
  }
}

// Bohr's variance (Particle Data Group, Passage of particles through matter, section Fluctuations
// in energy loss) for iron in the steel and polystyrene in the scintillator.
TEST(SimulatedPath, EnergyLossFluctuatesAroundItsMeanWithBohrsVariance) {
  constexpr int kTracks = 3000;
  constexpr double T = 3;
  RandomStream none(1, 1);
  SimulatedPath path;
  const auto lossOf = [&path](double length) {
    for (const auto& crossing : Crossings(BundledDetector("range"), path))
      if (crossing.fPlane == 10) return T - crossing.fAt.fT;
    return length;
  };
  ParticleTransport mean(BundledDetector("range"), 13, false),
      fluctuating(BundledDetector("range"), 13, true);
  mean.FollowStraight({0, 0, 0}, {0, 0, 1}, T, none, path);
  const double expected = lossOf(0);
  Moments loss;
  for (int i = 0; i < kTracks; i++) {
    RandomStream random(8, static_cast<std::uint64_t>(i));
    fluctuating.FollowStraight({0, 0, 0}, {0, 0, 1}, T, random, path);
    loss.Add(lossOf(0));
  }
  // Eleven layers of steel, ten and a half of scintillator [g/cm2]; the energy half way.
  const double electrons = 11 * 2.5 * 7.87 * 26 / 55.845 + 10.5 * 0.859 * 56. / 104; // moles/cm2
  const double gamma = 1 + (T - expected / 2) / kMuon, beta2 = 1 - 1 / (gamma * gamma);
  const double me = 0.51099895e-3;
  const double tMax =
      2 * me * beta2 * gamma * gamma / (1 + 2 * gamma * me / kMuon + me * me / kMuon / kMuon);
  const double sigma = std::sqrt(0.5 * 0.307075e-3 * electrons * tMax * (1 - beta2 / 2) / beta2);
  EXPECT_NEAR(loss.Mean(), expected, 4 * sigma / std::sqrt(kTracks));
  EXPECT_NEAR(loss.Width(), sigma, 0.1 * sigma); // a skewed distribution's width varies more
}

} // namespace
