#pragma once

#include "util/Lanes.h"

#include <algorithm>

namespace kelvo {

inline double Max(double a, double b) {
  return std::max(a, b);
}

/// Square of velocity times momentum [GeV^2], for one particle or for those in lanes. Where a
/// particle is all but stopped, the kinks are as good as free.
/// @param energy kinetic energy [GeV], at least 0
/// @param mass   [GeV], above 0
template <class Real>
Real BetaP2(const Real& energy, const Real& mass) {
  constexpr double kStopped = 1e-4; // kinetic energy, in masses
  const Real T = Max(energy, kStopped * mass);
  const Real betaP = T * (T + 2 * mass) / (T + mass);
  return betaP * betaP;
}

} // namespace kelvo
