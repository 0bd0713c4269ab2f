#pragma once

#include "draw/Picture.h"
#include "geo/PlaneDetector.h"

namespace kelvo {

/// Draws a detector: both side views, one cell enlarged with its materials, and the radiation
/// lengths along z by material.
Picture DrawDetector(const geo::PlaneDetector& detector);

} // namespace kelvo
