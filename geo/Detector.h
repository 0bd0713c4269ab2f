#pragma once

#include "geo/DetectorError.h"
#include "geo/GeometryBase.h"
#include "geo/PlaneDetector.h"

#include <memory>
#include <string>
#include <vector>

namespace geo {

/// A detector of any kind: its geometry, and what is told of it and kept with the fits. Copies
/// share the geometry.
class Detector {
public:
  /// Opens a file, or an installed detector by its name, such as "fine". One that ends in .gdml or
  /// .root holds a geometry of ROOT's (TGeoDetector), any other one is TOML (PlaneDetector).
  /// @throw DetectorError for a file that cannot be used; so for .gdml and .root where this
  ///        ROOT lacks its geometry package
  static Detector FromFile(const std::string& file);

  /// Reads the text of a TOML file.
  /// @param file name of the file for the messages
  /// @throw DetectorError
  static Detector FromText(const std::string& text, const std::string& file);

  /// Refers to a detector made of planes, which must outlive this object and its copies.
  Detector(const PlaneDetector& planes);

  /// Refers to any other geometry, which must outlive this object and its copies.
  /// @param materials names of the materials that tracks may meet, where they are known: they are
  ///                  checked before tracks are fitted, not only when a track meets them
  Detector(const GeometryBase& geometry, std::string name, std::vector<std::string> materials = {});

  const GeometryBase& Geometry() const { return *fGeometry; }

  /// Returns the same with its lifetime, for who may outlive this object; the lifetime of what is
  /// only referred to stays the caller's concern.
  std::shared_ptr<const GeometryBase> SharedGeometry() const { return fGeometry; }

  /// Returns the same, where it is made of planes, whose offsets are added to hits; null otherwise.
  const PlaneDetector* Planes() const { return fPlanes; }

  const std::string& Name() const { return fName; }

  /// Returns what describes the detector beside its fits: the TOML file byte for byte; for other
  /// geometries where it is from.
  const std::string& Text() const { return fText; }

  /// Returns the detector of such a text, null where it says only where the geometry is from.
  /// @param file begins the messages
  /// @throw DetectorError for a text that is neither
  static std::unique_ptr<PlaneDetector> PlanesOfText(const std::string& text,
                                                     const std::string& file);

  /// Returns the names of the materials that tracks may meet, as far as they are known.
  const std::vector<std::string>& MaterialNames() const { return fMaterialNames; }

  /// Returns the names of those of which neither the name nor what they are made of is known, so
  /// that no energy loss can be found. Empty for ROOT's geometries: most materials of a large one
  /// are on no track's way, and a track that meets an unknown one says so.
  const std::vector<std::string>& UnknownMaterials() const { return fUnknownMaterials; }

private:
  Detector(const std::shared_ptr<const PlaneDetector>& planes);

  std::shared_ptr<const GeometryBase> fGeometry;
  const PlaneDetector* fPlanes = nullptr;
  std::string fName;
  std::string fText;
  std::vector<std::string> fMaterialNames;
  std::vector<std::string> fUnknownMaterials;
};

} // namespace geo
