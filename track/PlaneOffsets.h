#pragma once

#include "func/HitList3D.h"
#include "geo/PlaneDetector.h"

namespace kelvo {

/// Adds to each hit's coordinates the offset of the plane that is nearest to it in z, so that hits
/// measured with the nominal positions of the planes get to where the planes are.
void AddPlaneOffsets(const geo::PlaneDetector& detector, HitList3D& hits);

} // namespace kelvo
