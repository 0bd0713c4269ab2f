#pragma once

#include "geo/PlaneDetector.h"

#include <array>

namespace kelvo {

/// Where a track that goes on straight behind its last hit meets the boundary of what can measure
/// it: a side of the planes, the last plane, or a gap between planes that is too long for a hit.
struct TrackEnd {
  /// A track leaves where the boundary is nearer than so many gaps between planes. The last plane
  /// ends half a gap or so behind its middle, so that it may have been missed. A side is met
  /// anywhere between planes; there a track that crosses another plane first has stopped.
  static constexpr double kLeaves = 1.6;

  double fDistance = 0; ///< along z from the last hit [cm]
  double fPlanes = 0;   ///< the same in gaps between planes
  bool fLeaves = false;
};

/// Finds the end of a track.
/// @param at     the last hit: x, y, z [cm]
/// @param slopes dx/dz, dy/dz there
/// @param gap    along z from one plane to the next [cm], above 0
TrackEnd FindTrackEnd(const geo::PlaneDetector& detector, const std::array<double, 3>& at,
                      const std::array<double, 2>& slopes, double gap);

} // namespace kelvo
