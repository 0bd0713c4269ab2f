#pragma once

#include <array>
#include <cstddef>

class TGeoMaterial;

namespace geo {

/// A place on the way of a track: where it goes through, and how far it may be off.
struct WayPoint {
  std::array<double, 3> fX;   ///< [cm]
  std::array<double, 2> fSig; ///< uncertainties of x and y, of an even distribution [cm]
};

/// What lies on a way between two planes along z, on average over where the way may be.
struct MeanSlab {
  double fBegin, fEnd; ///< z [cm]
  std::size_t fN = 0;  ///< number of materials
  std::array<const TGeoMaterial*, 3> fMaterial{};
  std::array<double, 3> fFraction{}; ///< of the way between fBegin and fEnd
  /// Relative variance, from way to way, of what is not of the first material: all of it changes
  /// in proportion.
  double fVariance = 0;

  MeanSlab(double begin, double end) : fBegin(begin), fEnd(end) {}
  void Add(const TGeoMaterial* material, double fraction) {
    fMaterial[fN] = material;
    fFraction[fN++] = fraction;
  }
};

} // namespace geo
