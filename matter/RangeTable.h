#pragma once

#include "matter/SmoothTable.h"

#include <functional>

namespace matter {

/// Range, energy from range, and the straggling of the range, of one kind of particle in one
/// material. With ranges, a step of any length through a material is one addition:
///
///     T upstream = Energy(Range(T downstream) + length)
///
/// exactly for a particle that loses the mean energy, and a stack of materials is crossed by
/// changing tables at each boundary, where the kinetic energy is the same on both sides.
///
/// The table has nodes from 10 keV to 10 TeV per muon mass (SmoothTable); below, the range is
/// proportional to the energy, which is wrong by less than a micrometre in condensed matter.
class RangeTable {
public:
  using Function = std::function<double(double)>;

  /// @param loss     mean energy loss per length [GeV/cm] at a kinetic energy [GeV]; above 0
  /// @param variance variance of the energy loss per length [GeV2/cm] at a kinetic energy [GeV]
  /// @param mass     of the particle [GeV]
  RangeTable(const Function& loss, const Function& variance, double mass);

  /// Returns the length in which a particle of kinetic energy T [GeV] comes to rest [cm]:
  /// the integral of dT / loss from 0.
  double Range(double T) const { return fRange(T); }

  /// Returns the kinetic energy [GeV] of a particle with a range [cm], the inverse of Range.
  double Energy(double range) const { return fEnergy(range); }

  /// Returns the mean energy loss per length [GeV/cm] at a kinetic energy [GeV].
  double Loss(double T) const { return fLoss(T); }

  /// Returns the variance of the range [cm2] of a particle of kinetic energy T [GeV]: the integral
  /// of variance / loss^3 over the energy from 0 (U. Fano, Ann. Rev. Nucl. Sci. 13 (1963) 1,
  /// eq. 61). In a stack, the variance of the energy at a point whose distance to the end is known
  /// follows step by step, from the downstream end (1) to the upstream end (2) of a step:
  ///
  ///     var T2 / loss(T2)^2 = var T1 / loss(T1)^2 + RangeVariance(T2) - RangeVariance(T1)
  double RangeVariance(double T) const { return fVariance(T); }

private:
  SmoothTable fLoss;
  SmoothTable fRange;
  SmoothTable fVariance;
  SmoothTable fEnergy;
};

} // namespace matter
