#include "track/CheckedGeometry.h"

#include "track/Materials.h"
#include "util/Text.h"

#include <TGeoMaterial.h>

#include <cmath>
#include <cstring>

namespace kelvo {
namespace {

constexpr const char* kVacuum = "Vacuum"; // the one material that needs no radiation length

void CheckMaterial(const TGeoMaterial& material, bool needsTable) {
  const char* name = material.GetName();
  if (needsTable && !HasTable(name))
    throw GeometryRefusal{
        "the track crosses the material \"" + std::string(name) +
        "\", for which there is no stopping-power table (known: " + Joined(MaterialsWithTable()) +
        "); fit it as a beam of known momentum or rename the material"};
  const double radlen = material.GetRadLen();
  if (!(radlen > 0) && std::strcmp(name, kVacuum) != 0)
    throw GeometryRefusal{"the track crosses the material \"" + std::string(name) +
                          "\", whose radiation length is " + NumberText(radlen) +
                          " cm; it must be above 0"};
}

} // namespace

void CheckedGeometry::MaterialsBetweenPoints(const double* p0, const double* p1,
                                             std::vector<double>& ds,
                                             std::vector<const TGeoMaterial*>& mats) const {
  fDetector.MaterialsBetweenPoints(p0, p1, ds, mats);
  if (ds.size() != mats.size())
    throw GeometryRefusal{"the detector reports " + std::to_string(ds.size()) + " lengths for " +
                          std::to_string(mats.size()) + " materials on the track"};
  for (std::size_t k = 0; k < ds.size(); k++) {
    if (!(std::isfinite(ds[k]) && ds[k] >= 0))
      throw GeometryRefusal{"the detector reports a step of " + NumberText(ds[k]) +
                            " cm on the track; it must be finite and not negative"};
    if (!mats[k])
      throw GeometryRefusal{"the detector reports a step without material on the track"};
    CheckMaterial(*mats[k], fNeedsTables);
  }
}

} // namespace kelvo
