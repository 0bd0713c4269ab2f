#pragma once

#include "matter/Material.h"
#include "matter/Projectile.h"

#include <vector>

namespace matter {

/// Mean energy loss of one kind of particle in one material, calculated once
/// and interpolated from then on: cubic in the logarithms of loss and energy.
///
///     const matter::EnergyLoss loss(matter::Material::Named("Iron"), matter::kMuon);
///     const double perCentimetre = loss(1); // GeV/cm at 1 GeV
///
/// From 1e-3 of the mass on (a muon of 0.1 MeV, a proton of 0.9 MeV) the loss is CollisionLoss()
/// plus RadiationLoss(), and what the measured loss of protons there (SlowProtonLoss) is above the
/// former in elements beyond neon: what shell corrections leave out, so that it falls like them,
/// with the inverse square of the velocity beside the logarithm. A maximum further up is where it
/// begins. Below it bends over into one proportional to the velocity (J. Lindhard, M. Scharff,
/// Phys. Rev. 124 (1961) 128), with the right height and slope where it begins: good enough for the
/// last micrometres of a track. Construction takes milliseconds; an object is constant once built.
class EnergyLoss {
public:
  EnergyLoss(const Material& material, const Projectile& particle);

  /// Returns the mean loss per length [GeV/cm] at the kinetic energy T [GeV], above 0.
  double operator()(double T) const;

private:
  double fLowest = 0;       // kinetic energy from which on the loss is tabulated [GeV]
  double fLowLoss = 0;      // there [GeV/cm]
  double fBend = 0;         // of the loss below
  std::vector<double> fLog; // logarithm of the loss per length [GeV/cm] in equal steps of ln T
  std::vector<double> fSlope;
};

} // namespace matter
