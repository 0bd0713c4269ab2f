#pragma once

#include "track/MaterialAlong.h"
#include "util/Lanes.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace kelvo {

/// The kinetic energies of particles along a track whose material is known, and how uncertain
/// fluctuations of the loss make them. All particles are followed side by side.
///
/// A stretch is given for each gap and for the end behind the last one; see Layer.
class EnergyAlong {
public:
  /// @param masses of the particles, in the order of their tables [GeV]
  explicit EnergyAlong(std::vector<double> masses) : fMasses(std::move(masses)) {}

  /// Ranges all particles out: they stop at the end of the track.
  void Stop(const MaterialAlong& material, const std::vector<double>& stretch);

  /// Follows all particles downstream from the first point, where each has its momentum [GeV/c].
  /// One that would stop on the way goes on with a hundredth of its energy.
  void Pass(const MaterialAlong& material, const std::vector<double>& stretch,
            const std::vector<double>& momenta);

  /// Returns the kinetic energy of a particle at each point [GeV].
  const double* T(std::size_t particle) const { return fT.data() + particle * fPoints; }

  /// Returns by how much the energy of a stopping particle at the first point changes [GeV] where
  /// the way is stretched otherwise by a little.
  double Change(const MaterialAlong& material, std::size_t particle,
                const std::vector<double>& from, const std::vector<double>& to) const;

  /// Returns the variance of the energy at the first point [GeV^2] of particles that lose what they
  /// have there along the track: from fluctuations of the loss and from the material of which is
  /// not known whether it is crossed.
  /// @param first of the particles; where there are no more the last one is repeated
  Lanes Straggling(const MaterialAlong& material, std::size_t first,
                   const std::vector<double>& stretch) const;

  /// Returns the variance of the energy at the first point [GeV^2] of a stopping particle from
  /// where its track ends.
  double EndVariance(const MaterialAlong& material, std::size_t particle,
                     const std::vector<double>& stretch) const;

private:
  void Upstream(const MaterialAlong& material, const Gap& gap, double stretch);
  double LossRatio(const MaterialAlong& material, std::size_t particle,
                   const std::vector<double>& stretch) const;

  std::vector<double> fMasses;
  std::size_t fPoints = 0;
  std::vector<double> fT;                 // by particle, then by point [GeV]
  std::vector<double> fNow;               // at the point at hand, by particle [GeV]
  std::vector<double> fLoss;              // per length there, about [GeV/cm]
  std::vector<double> fRange;             // of these in one material [cm]
  const MaterialData* fRangeIn = nullptr; // null: none yet
};

} // namespace kelvo
