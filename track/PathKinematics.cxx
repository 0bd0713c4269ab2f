#include "track/PathKinematics.h"

#include "util/Particles.h"

#include <cstdlib>

namespace kelvo {

Kinematics KinematicsAt(const Path& path, int pdg, double s) {
  const int code = std::abs(pdg);
  const auto query = code == kMuonPDG   ? &Path::MuonParams
                     : code == kPionPDG ? &Path::PionParams
                                        : &Path::ProtonParams;
  Kinematics k;
  (path.*query)(s, &k.fT, &k.fP, &k.fBeta, &k.fGamma);
  return k;
}

} // namespace kelvo
