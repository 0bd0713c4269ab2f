#pragma once

#include "func/dEdxTable.h"
#include "matter/EnergyLoss.h"
#include "matter/Material.h"
#include "matter/RangeTable.h"

#include <optional>

namespace kelvo {

/// Mean energy loss and its fluctuation for one kind of particle in one material: by the library's
/// table for those of MaterialsWithTable(), in proportion to the density, else calculated. A mean
/// excitation energy of one's own is calculated with, too.
class MaterialLoss {
public:
  /// @param pdg code of a particle of Particles(), of either sign
  MaterialLoss(const matter::Material& material, int pdg);

  /// Returns the mean loss per length [GeV/cm] at the kinetic energy T [GeV], above 0.
  double operator()(double T) const;

  /// Returns the variance of the loss by collisions per length [GeV2/cm].
  /// @param T kinetic energy [GeV], above 0
  double Straggling(double T) const;

private:
  matter::Material fMaterial;
  matter::Projectile fParticle;
  std::optional<dEdxTable> fTable; ///< none: calculated
  double fDensityRatio = 1;        ///< to that of the table
  std::optional<matter::EnergyLoss> fCalculated;
};

/// Returns range and energy of a particle in a material. Takes some milliseconds.
/// @param pdg code of a particle of Particles(), of either sign
matter::RangeTable MakeRangeTable(const matter::Material& material, int pdg);

} // namespace kelvo
