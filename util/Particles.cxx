#include "util/Particles.h"

#include <cstdlib>

namespace kelvo {

const std::vector<Particle>& Particles() {
  static const std::vector<Particle> particles{
      {kMuonPDG, "mu", "muon", 0.105658, 0.1056583755},
      {kPionPDG, "pi", "pion", 0.13957, 0.13957039},
      {kProtonPDG, "p", "proton", 0.938272, 0.93827208816}};
  return particles;
}

const Particle* FindParticle(int pdg) {
  for (const Particle& particle : Particles())
    if (particle.fPDG == std::abs(pdg)) return &particle;
  return nullptr;
}

const Particle* FindParticle(const std::string& name) {
  for (const Particle& particle : Particles())
    if (particle.fName == name) return &particle;
  return nullptr;
}

std::string ParticleWord(int pdg) {
  const Particle* particle = FindParticle(pdg);
  return particle ? particle->fWord : std::to_string(pdg);
}

std::vector<std::string> ParticleNames() {
  std::vector<std::string> names;
  for (const Particle& particle : Particles()) names.emplace_back(particle.fName);
  return names;
}

std::string ParticleCodes() {
  std::string text;
  for (const Particle& particle : Particles()) {
    const bool isFirst = &particle == &Particles().front();
    const bool isLast = &particle == &Particles().back();
    text += isFirst ? "" : isLast ? " or " : ", ";
    text += std::to_string(particle.fPDG) + " (" + particle.fWord + ")";
  }
  return text;
}

} // namespace kelvo
