#pragma once

#include <vector>

class TGeoMaterial;

namespace geo {

/// The detector as tracking sees it: which materials lie between two points. A user derives from it
/// for a detector of their own; examples/02-own-detector.cxx is a complete one.
class GeometryBase {
public:
  virtual ~GeometryBase() = default;

  /// Lists the material steps on the straight line from one point to another.
  ///
  /// What an implementation owes its callers: the steps are in order from p0 to p1, their lengths
  /// are not negative and add up to the distance of the points; where there is no matter the
  /// material is one named "Vacuum"; a line of zero length may give no step. The materials belong
  /// to the geometry and live as long as it does. A geometry that several threads share must not
  /// change anything here.
  ///
  /// @param p0   start, three coordinates x, y, z [cm]; not null
  /// @param p1   end, three coordinates x, y, z [cm]; not null
  /// @param ds   receives the length of each step [cm]; comes in empty
  /// @param mats receives the material of each step, as many as ds; comes in empty. Its name picks
  ///             the stopping power, GetRadLen() gives the radiation length [cm].
  virtual void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                                      std::vector<const TGeoMaterial*>& mats) const = 0;
};

} // namespace geo
