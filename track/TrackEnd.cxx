#include "track/TrackEnd.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelvo {
namespace {

/// Returns where a line leaves the cells of a plane before it meets the plane, infinity where it
/// meets them [cm].
/// @param at,slopes of the line, upstream of the plane
double Exit(const geo::ActivePlane& plane, const std::array<double, 3>& at,
            const std::array<double, 2>& slopes) {
  double exit = std::numeric_limits<double>::infinity();
  for (unsigned view = 0; view < 2; view++) {
    const bool across = plane.Measures(view);
    const geo::CellRow& cells = plane.fCells[across ? view : 1 - view];
    const double low = across ? cells.fFirst - cells.fPitch / 2 : cells.fMiddle - cells.fLength / 2;
    const double high = across ? cells.Centre(cells.fCount - 1) + cells.fPitch / 2
                               : cells.fMiddle + cells.fLength / 2;
    const double there = at[view] + slopes[view] * (plane.ZMid() - at[2]);
    if (there >= low && there <= high) continue;
    // What is outside already may run parallel to the side, or come nearer to it.
    const double way = ((there > high ? high : low) - at[view]) / slopes[view];
    exit = std::min(exit, way > 0 ? at[2] + way : at[2]);
  }
  return exit;
}

} // namespace

TrackEnd FindTrackEnd(const geo::PlaneDetector& detector, const std::array<double, 3>& at,
                      const std::array<double, 2>& slopes, double gap) {
  const std::vector<geo::ActivePlane>& planes = detector.Planes();
  const std::size_t last = detector.NearestPlane(at[2]);
  double z = at[2]; // of the last plane that is crossed
  double boundary = std::max(z, planes[last].fZHigh);
  bool outside = false, crossed = false;
  for (std::size_t i = last + 1; i < planes.size(); i++) {
    if (planes[i].ZMid() <= z) continue;
    if (planes[i].ZMid() > z + TrackEnd::kLeaves * gap) break;
    const double exit = Exit(planes[i], at, slopes);
    if (std::isinf(exit)) {
      z = planes[i].ZMid();
      boundary = planes[i].fZHigh;
      outside = false;
      crossed = true;
    } else if (!outside) {
      boundary = std::max(exit, z);
      outside = true;
    }
  }
  const double distance = boundary - at[2];
  const bool near = distance < TrackEnd::kLeaves * gap;
  return {distance, distance / gap, near && !(outside && crossed)};
}

} // namespace kelvo
