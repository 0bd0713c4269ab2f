// Kinematics along a path against the relations of special relativity and the range's own order.

#include "track/PathKinematics.h"

#include "test/support/TestGeometry.h"
#include "util/Particles.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using kelvo::Kinematics;
using kelvo::KinematicsAt;
using kelvo::Particle;

constexpr double kRounding = 1e-12; // relative; some twenty roundings
constexpr double kLength = 40;      // cm

TEST(PathKinematics, EachParticleHasTheMassThatItIsListedWith) {
  const LayeredGeometry detector({{kLength, "Scintillator"}});
  const kelvo::Path path(detector, {TVector3(0, 0, 0), TVector3(0, 0, kLength)}, 0);
  for (const Particle& particle : kelvo::Particles()) {
    const double m = particle.fMass;
    for (const double s : {0., 10., kLength}) {
      const Kinematics k = KinematicsAt(path, particle.fPDG, s);
      EXPECT_NEAR(k.fP / std::sqrt(k.fT * (k.fT + 2 * m)), 1, kRounding) << particle.fName;
      EXPECT_NEAR(k.fGamma / (1 + k.fT / m), 1, kRounding) << particle.fName;
      EXPECT_NEAR(k.fBeta / (k.fP / (k.fT + m)), 1, kRounding) << particle.fName;
    }
  }
}

TEST(PathKinematics, HeavierParticlesNeedMoreEnergyForTheSameRange) {
  const LayeredGeometry detector({{kLength, "Scintillator"}});
  const kelvo::Path path(detector, {TVector3(0, 0, 0), TVector3(0, 0, kLength)}, 0);
  double last = 0;
  for (const Particle& particle : kelvo::Particles()) {
    const double T = KinematicsAt(path, particle.fPDG, 0).fT;
    EXPECT_GT(T, last) << particle.fName;
    last = T;
  }
}

TEST(PathKinematics, TheSignOfACodeDoesNotMatter) {
  const LayeredGeometry detector({{kLength, "Steel"}});
  const kelvo::Path path(detector, {TVector3(0, 0, 0), TVector3(0, 0, kLength)}, 0);
  for (const Particle& particle : kelvo::Particles())
    EXPECT_EQ(KinematicsAt(path, -particle.fPDG, 0).fT, KinematicsAt(path, particle.fPDG, 0).fT);
}

} // namespace
