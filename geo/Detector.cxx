#include "geo/Detector.h"

#include "geo/Matter.h"
#include "util/Text.h"

#ifdef KELVO_HAS_GEOMETRY
#include "geo/TGeoDetector.h"
#endif

namespace geo {

namespace {

std::vector<std::string> Unknown(const PlaneDetector& planes) {
  std::vector<std::string> names;
  for (const TGeoMaterial* material : planes.Materials())
    if (material->GetName() != std::string(kVacuum) && !MatterOf(*material))
      names.emplace_back(material->GetName());
  return names;
}

std::vector<std::string> Unknown(const std::vector<std::string>& materials) {
  std::vector<std::string> names;
  for (const std::string& name : materials)
    if (name != kVacuum && !matter::IsKnown(name)) names.push_back(name);
  return names;
}

// Begins the text of a detector that is not made of planes; no TOML can begin so.
const std::string kGeometry = "the geometry \"";

/// Shares nothing: the object belongs to the caller.
template <typename Geometry>
std::shared_ptr<const Geometry> Referred(const Geometry& geometry) {
  return {std::shared_ptr<void>(), &geometry};
}

} // namespace

Detector::Detector(const std::shared_ptr<const PlaneDetector>& planes)
    : fGeometry(planes),
      fPlanes(planes.get()),
      fName(planes->Name()),
      fText(planes->Text()),
      fMaterialNames(planes->MaterialNames()),
      fUnknownMaterials(Unknown(*planes)) {}

Detector::Detector(const PlaneDetector& planes) : Detector(Referred(planes)) {}

Detector::Detector(const GeometryBase& geometry, std::string name,
                   std::vector<std::string> materials)
    : fGeometry(Referred(geometry)),
      fName(std::move(name)),
      fText(kGeometry + fName + "\" in memory"),
      fMaterialNames(std::move(materials)),
      fUnknownMaterials(Unknown(fMaterialNames)) {}

std::unique_ptr<PlaneDetector> Detector::PlanesOfText(const std::string& text,
                                                      const std::string& file) {
  if (text.compare(0, kGeometry.size(), kGeometry) == 0) return nullptr;
  return std::make_unique<PlaneDetector>(PlaneDetector::FromText(text, file));
}

Detector Detector::FromText(const std::string& text, const std::string& file) {
  return Detector(std::make_shared<const PlaneDetector>(PlaneDetector::FromText(text, file)));
}

Detector Detector::FromFile(const std::string& file) {
  if (!kelvo::EndsWith(file, ".gdml") && !kelvo::EndsWith(file, ".root"))
    return Detector(std::make_shared<const PlaneDetector>(PlaneDetector::FromFile(file)));
#ifdef KELVO_HAS_GEOMETRY
  std::shared_ptr<const TGeoDetector> opened = TGeoDetector::FromFile(file);
  Detector detector(*opened, opened->Name(), opened->MaterialNames());
  detector.fGeometry = opened;
  detector.fUnknownMaterials.clear();
  detector.fText = kGeometry + opened->Name() + "\" of the file " + file;
  return detector;
#else
  throw DetectorError(
      file +
      ": this ROOT has no geometry package, which detectors in .gdml and .root files need; "
      "use kelvo with a ROOT that was built with geom=ON and gdml=ON, or describe the "
      "detector in a TOML file, as detectors/fine.toml does");
#endif
}

} // namespace geo
