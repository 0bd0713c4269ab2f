#pragma once

#include "geo/PlaneDetector.h"

#include <map>
#include <vector>

namespace geo {

/// The material along z, as a mean over lines that are spread evenly over the part of the face that
/// all planes measure: a single line may happen to run along a wall or a gap between cells.
struct MaterialBudget {
  double fLow = 0;    ///< where it begins [cm]
  double fHigh = 0;   ///< where it ends [cm]
  unsigned fBins = 1; ///< equal steps in z
  /// Per material and step, the radiation lengths in it.
  std::map<const TGeoMaterial*, std::vector<double>> fRadLengths;
  std::map<const TGeoMaterial*, double> fLength; ///< per material [cm]

  /// Returns the radiation lengths of one material on the whole way.
  double RadLengths(const TGeoMaterial* material) const;
};

/// @param bins number of equal steps in z, at least 1
MaterialBudget FindMaterialBudget(const PlaneDetector& detector, unsigned bins);

} // namespace geo
