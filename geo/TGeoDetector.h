#pragma once

#include "geo/DetectorError.h"
#include "geo/GeometryBase.h"

#include <TGeoMaterial.h>

#include <memory>
#include <string>
#include <vector>

class TGeoManager;
class TGeoNavigator;

namespace geo {

/// A detector whose geometry is one of ROOT's: a TGeoManager in memory, or in a .root or .gdml
/// file. Lengths in cm, as ROOT's geometry has them by default.
///
///     const auto detector = geo::TGeoDetector::FromFile("calorimeter.gdml");
///     detector->MaterialsBetweenPoints(p0, p1, ds, mats);
///
/// Any number of threads may share one, and several may stand on one geometry. Each thread asks by
/// its own current navigator of the manager, and moves it; one that has none gets one with its
/// first question, which stays with the manager. With the second thread the manager is switched to
/// several threads, for up to 256 of them, unless SetMaxThreads was called before.
///
/// ROOT holds one geometry at a time: while this object is in use, no other one may be read or
/// made. In one process one geometry may be asked by several threads, and no other one after it:
/// ROOT's threads keep its navigators in mind. Exists only where ROOT has its geometry package.
class TGeoDetector : public GeometryBase {
public:
  /// Refers to a geometry in memory, which must outlive this object.
  /// @throw DetectorError for one that is not closed (CloseGeometry), is not ROOT's current one
  ///        (gGeoManager), or does not count in cm
  explicit TGeoDetector(TGeoManager& manager);

  /// Reads a file whose name ends in .root (with one TGeoManager in it) or .gdml.
  /// @throw DetectorError for a file without a geometry; and where one is in memory already, since
  ///        ROOT would delete that
  static std::unique_ptr<TGeoDetector> FromFile(const std::string& file);

  ~TGeoDetector() override;
  TGeoDetector(const TGeoDetector&) = delete;
  TGeoDetector& operator=(const TGeoDetector&) = delete;

  /// Lists the material steps on the straight way from p0 to p1, in order: lengths above zero that
  /// add up to the distance, neighbouring steps of materials of different names, no step for a zero
  /// distance. Outside of the world, and in matter thinner than 1e-15 g/cm3, the material is one
  /// named "Vacuum". Cost: proportional to the volumes on the way.
  /// @param p0,p1 first and last point: x, y, z [cm]
  /// @param ds    lengths of the steps [cm]; what was in it is dropped
  /// @param mats  material of each step; what was in it is dropped. They live as long as the
  ///              geometry; vacuum as long as this object.
  /// @throw std::invalid_argument for a coordinate or distance that is not finite
  /// @throw DetectorError where the geometry was deleted or replaced, and for a thread too many
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override;

  /// Returns the name of the geometry.
  const std::string& Name() const { return fName; }

  /// Returns the names of the materials of all volumes that are placed in the world, "Vacuum"
  /// first.
  const std::vector<std::string>& MaterialNames() const { return fMaterialNames; }

private:
  void CheckManager() const;
  void CheckThread() const;
  TGeoNavigator* FindNavigator() const;
  void AddNavigator() const;
  const TGeoMaterial* MaterialAt(const TGeoNavigator& navigator) const;

  std::unique_ptr<TGeoManager> fOwned; // null for a geometry of the caller
  TGeoManager& fManager;
  std::unique_ptr<TGeoMaterial> fVacuum;
  std::string fName;
  std::vector<std::string> fMaterialNames;
};

} // namespace geo
