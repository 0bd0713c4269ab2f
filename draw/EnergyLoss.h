#pragma once

#include "draw/Picture.h"
#include "util/Particles.h"

#include <string>
#include <vector>

namespace kelvo {

/// Energy loss and range of a particle of one kinetic energy.
struct EnergyLossPoint {
  double fT;         ///< kinetic energy [GeV]
  double fP;         ///< momentum [GeV/c]
  double fBetaGamma; ///< p / M
  double fLoss;      ///< mean energy loss per length [MeV/cm]
  double fRange;     ///< mean length to the stop, without scattering and fluctuations [cm]
};

/// The points of one particle in one material, by increasing energy.
struct EnergyLossCurve {
  std::string fMaterial;
  Particle fParticle;
  std::vector<EnergyLossPoint> fPoints;
  std::size_t fMinimum = 0; ///< index of the point of minimum loss: minimum ionisation
};

/// Calculates a curve with the losses and ranges that stopping particles are ranged out with.
/// @param material a name that matter::Material::Named knows, not "Vacuum"
/// @param energies kinetic energies [GeV], increasing; the one of minimum loss is added
/// @throws std::invalid_argument for an unknown material
EnergyLossCurve FindEnergyLoss(const std::string& material, const Particle& particle,
                               const std::vector<double>& energies);

/// Draws energy loss and range of several curves against kinetic energy, on logarithmic scales,
/// with the points of minimum loss marked.
Picture DrawEnergyLoss(const std::vector<EnergyLossCurve>& curves);

} // namespace kelvo
