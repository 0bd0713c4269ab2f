#pragma once

#include "draw/Picture.h"
#include "geo/PlaneDetector.h"
#include "io/FitRow.h"

namespace kelvo {

/// Draws a fitted track: both views with the detector's slabs and planes, the cells that the track
/// crosses, the hits with their uncertainties, the fitted track with its kinks and its band of one
/// standard deviation, and the scattering planes; below, residuals and pulls against z.
/// @param detector null: slabs, planes and cells are not drawn
/// @param row a fitted one, with its vectors
Picture DrawTrack(const geo::PlaneDetector* detector, const FitRow& row);

} // namespace kelvo
