// Particles against the masses that the Particle Data Group publishes (Review of Particle Physics
// 2022, summary tables): m(mu) = 105.6583755(23) MeV, m(pi+-) = 139.57039(18) MeV,
// m(p) = 938.27208816(29) MeV.

#include "util/Particles.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using kelvo::FindParticle;
using kelvo::Particle;
using kelvo::Particles;

struct Published {
  int fPDG;
  double fMass; // MeV
  double fHalfDigit;
};

constexpr Published kPublished[] = {
    {13, 105.6583755, 5e-8}, {211, 139.57039, 5e-6}, {2212, 938.27208816, 5e-9}};

TEST(Particles, HaveThePublishedMasses) {
  ASSERT_EQ(Particles().size(), std::size(kPublished));
  for (const Published& published : kPublished) {
    const Particle* particle = FindParticle(published.fPDG);
    ASSERT_TRUE(particle) << published.fPDG;
    EXPECT_NEAR(particle->fMeasuredMass * 1e3, published.fMass, published.fHalfDigit);
    EXPECT_NEAR(particle->fMass / particle->fMeasuredMass, 1, 4e-6) << "rounded to six digits";
  }
}

TEST(Particles, AreTheLightestFirst) {
  for (std::size_t i = 1; i < Particles().size(); i++)
    EXPECT_LT(Particles()[i - 1].fMass, Particles()[i].fMass);
}

TEST(Particles, AreFoundByCodeOfEitherSignAndByName) {
  for (const Particle& particle : Particles()) {
    EXPECT_EQ(FindParticle(particle.fPDG), &particle);
    EXPECT_EQ(FindParticle(-particle.fPDG), &particle);
    EXPECT_EQ(FindParticle(particle.fName), &particle);
  }
  EXPECT_EQ(FindParticle("pi")->fPDG, 211);
}

TEST(Particles, OtherCodesAndNamesAreUnknown) {
  for (const int pdg : {0, 11, 12, 22, 321, 2112}) EXPECT_EQ(FindParticle(pdg), nullptr) << pdg;
  for (const char* name : {"", "e", "Mu", "muon", "mu "})
    EXPECT_EQ(FindParticle(name), nullptr) << name;
}

TEST(Particles, AreNamedInSentences) {
  EXPECT_EQ(kelvo::ParticleWord(-211), "pion");
  EXPECT_EQ(kelvo::ParticleWord(11), "11");
  EXPECT_EQ(kelvo::ParticleNames(), (std::vector<std::string>{"mu", "pi", "p"}));
  EXPECT_EQ(kelvo::ParticleCodes(), "13 (muon), 211 (pion) or 2212 (proton)");
}

} // namespace
