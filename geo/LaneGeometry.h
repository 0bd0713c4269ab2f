#pragma once

namespace geo {

struct LaneLines;
struct LaneSlabs;

/// A geometry that can be crossed on several lines at once, in a fraction of the time of one after
/// the other. Fits use it where a GeometryBase is a LaneGeometry, too.
class LaneGeometry {
public:
  virtual ~LaneGeometry() = default;

  /// Lists what lies on straight lines, in order of z. Like MaterialsBetweenPoints for each line,
  /// but where a row of cells is crossed, what lies between their front and back walls is taken to
  /// be mixed along z, and as much of these walls to be between cells as of what lies there.
  /// @param lines all from one z to a larger one
  /// @param slabs receives what lies on them, without gaps in z
  /// @throw what MaterialsBetweenPoints throws
  virtual void MaterialsOnLines(const LaneLines& lines, LaneSlabs& slabs) const = 0;
};

} // namespace geo
