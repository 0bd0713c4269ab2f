#pragma once

#include "func/Path.h"

namespace kelvo {

/// Energy and momentum of a particle.
struct Kinematics {
  double fT = 0;     ///< kinetic energy [GeV]
  double fP = 0;     ///< momentum [GeV/c]
  double fBeta = 0;  ///< velocity [c]
  double fGamma = 0; ///< Lorentz factor
};

/// Returns the kinematics of a particle that stops at the end of a path.
/// @param pdg code of a particle of Particles(), of either sign
/// @param s   path coordinate [cm]
/// @throws what Path does
Kinematics KinematicsAt(const Path& path, int pdg, double s);

} // namespace kelvo
