#pragma once

#include <string>
#include <vector>

namespace kelvo {

// Codes of the Particle Data Group's numbering scheme.
constexpr int kMuonPDG = 13;
constexpr int kPionPDG = 211; ///< charged
constexpr int kProtonPDG = 2212;

/// A kind of particle that tracks are fitted as and simulated of.
struct Particle {
  int fPDG;             ///< of the one whose code is positive
  const char* fName;    ///< in commands
  const char* fWord;    ///< in sentences
  double fMass;         ///< rounded as Path has it [GeV]; for all that belongs to a fit
  double fMeasuredMass; ///< Particle Data Group, Review of Particle Physics 2022 [GeV]
};

/// Returns all of them, the lightest first.
const std::vector<Particle>& Particles();

/// Returns the particle of a code of either sign, null for an unknown one.
const Particle* FindParticle(int pdg);

/// Returns the particle of that name in commands, null for an unknown one.
const Particle* FindParticle(const std::string& name);

/// Returns the word for a code, the code itself where it is unknown.
std::string ParticleWord(int pdg);

/// Returns the names of all in commands.
std::vector<std::string> ParticleNames();

/// Returns the codes of all for a sentence: "13 (muon), ... or 2212 (proton)".
std::string ParticleCodes();

} // namespace kelvo
