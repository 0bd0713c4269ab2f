#pragma once

#include <cstdlib>
#include <string>
#include <vector>

namespace kelvo {

/// A kind of particle that tracks are fitted as.
struct Particle {
  int fPDG;          ///< of the one that the code is positive for
  const char* fName; ///< in commands
  const char* fWord; ///< in sentences
  double fMass;      ///< as the range-out has it [GeV]
};

/// Returns all of them, the lightest first.
inline const std::vector<Particle>& Particles() {
  static const std::vector<Particle> particles{
      {13, "mu", "muon", 0.105658}, {211, "pi", "pion", 0.13957}, {2212, "p", "proton", 0.938272}};
  return particles;
}

/// Returns the particle of a code of either sign, null for an unknown one.
inline const Particle* FindParticle(int pdg) {
  for (const Particle& particle : Particles())
    if (particle.fPDG == std::abs(pdg)) return &particle;
  return nullptr;
}

/// Returns the particle of that name in commands, null for an unknown one.
inline const Particle* FindParticle(const std::string& name) {
  for (const Particle& particle : Particles())
    if (particle.fName == name) return &particle;
  return nullptr;
}

/// Returns the word for a code, the code itself where it is unknown.
inline std::string ParticleWord(int pdg) {
  const Particle* particle = FindParticle(pdg);
  return particle ? particle->fWord : std::to_string(pdg);
}

} // namespace kelvo
