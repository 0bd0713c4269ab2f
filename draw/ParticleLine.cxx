#include "draw/ParticleLine.h"

#include "util/Particles.h"

#include <map>

namespace kelvo {

LineStyle ParticleLine(int pdg) {
  static const std::map<int, LineStyle> lines{
      {kMuonPDG, {colour::kSkyBlue, 2, Dash::kSolid}},
      {kPionPDG, {colour::kOrange, 2, Dash::kDashed}},
      {kProtonPDG, {colour::kGreen, 2, Dash::kLongDashed}},
  };
  const Particle* particle = FindParticle(pdg);
  const auto found = particle ? lines.find(particle->fPDG) : lines.end();
  return found == lines.end() ? LineStyle{colour::kBlack, 2, Dash::kSolid} : found->second;
}

} // namespace kelvo
