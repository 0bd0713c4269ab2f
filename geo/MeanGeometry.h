#pragma once

#include <cstddef>
#include <vector>

namespace geo {

struct MeanSlab;
struct WayPoint;

/// A geometry that knows what lies on average on a way of which is not known exactly where it is,
/// in a fraction of the time of following several lines. Fits use it where a GeometryBase is a
/// MeanGeometry, too.
class MeanGeometry {
public:
  virtual ~MeanGeometry() = default;

  /// Lists what lies on a way, averaged over where it may be, in order of z. Like the mean of
  /// MaterialsBetweenPoints over many ways, but where a row of cells is crossed, what lies between
  /// their front and back walls is taken to be mixed along z, and as much of these walls to be
  /// between cells as of what lies there.
  /// @param points n of them by ascending z, joined by straight lines
  /// @param slabs  receives what lies there, without gaps in z; what was in it is dropped
  /// @return whether it is known; not where the way may meet a side or the end of cells
  virtual bool MeanMaterials(const WayPoint* points, std::size_t n,
                             std::vector<MeanSlab>& slabs) const = 0;
};

} // namespace geo
