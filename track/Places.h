#pragma once

#include "geo/PlaneDetector.h"

#include <string>
#include <vector>

namespace kelvo {

/// Returns the numbers of planes that are named, or whose numbers are given, as
/// PlaneDetector::FindPlane understands them.
/// @param detector null: its planes are not known
/// @throw std::invalid_argument for a text that is no plane
std::vector<unsigned int> FindPlanes(const std::vector<std::string>& texts,
                                     const geo::PlaneDetector* detector);

/// Returns where places are along z [cm]: the middle of a plane, or what stands behind "z=".
/// @param detector null: its planes are not known
/// @throw std::invalid_argument for a text that is neither
std::vector<double> FindPlaces(const std::vector<std::string>& texts,
                               const geo::PlaneDetector* detector);

} // namespace kelvo
