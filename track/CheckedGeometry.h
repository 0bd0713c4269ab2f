#pragma once

#include "geo/GeometryBase.h"

#include <string>
#include <vector>

namespace kelvo {

/// Thrown by CheckedGeometry where the detector's answer cannot be used.
struct GeometryRefusal {
  std::string fMessage; ///< one sentence without full stop
};

/// A detector whose answers are checked before the fit library sees them: lists of equal length, no
/// null material, lengths that are finite and not negative, a usable radiation length, and (unless
/// switched off) a stopping-power table for every material, so that the library never has to warn.
class CheckedGeometry : public geo::GeometryBase {
public:
  /// @param detector    must outlive this object
  /// @param needsTables whether every material needs a stopping-power table
  CheckedGeometry(const geo::GeometryBase& detector, bool needsTables)
      : fDetector(detector), fNeedsTables(needsTables) {}

  /// As the detector's own. @throws GeometryRefusal for the first fault of its answer
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override;

private:
  const geo::GeometryBase& fDetector;
  bool fNeedsTables;
};

} // namespace kelvo
