#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "geo/GeometryBase.h"
#include "geo/OwnMaterial.h"

/// Layers along z, without end in x and y, for tests: the first begins at z = 0, and vacuum lies on
/// both sides of the stack. It counts how often it was asked.
class LayeredGeometry : public geo::GeometryBase {
public:
  struct Layer {
    double fThickness; // cm
    std::string fMaterial;
  };

  explicit LayeredGeometry(const std::vector<Layer>& layers) {
    double z = 0;
    fBoundaries.push_back(z);
    for (const Layer& layer : layers) {
      fBoundaries.push_back(z += layer.fThickness);
      fLayers.push_back(Material(layer.fMaterial));
    }
  }

  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    fCalls++;
    const double dx = p1[0] - p0[0];
    const double dy = p1[1] - p0[1];
    const double dz = p1[2] - p0[2];
    const double length = std::sqrt(dx * dx + dy * dy + dz * dz);
    if (length == 0) return;
    std::vector<double> cuts{0, 1}; // fractions of the way
    for (double z : fBoundaries)
      if (dz != 0 && (z - p0[2]) / dz > 0 && (z - p0[2]) / dz < 1) cuts.push_back((z - p0[2]) / dz);
    std::sort(cuts.begin(), cuts.end());
    for (std::size_t i = 0; i + 1 < cuts.size(); i++) {
      if (!(cuts[i + 1] > cuts[i])) continue;
      ds.push_back((cuts[i + 1] - cuts[i]) * length);
      mats.push_back(&At(p0[2] + 0.5 * (cuts[i] + cuts[i + 1]) * dz));
    }
  }

  mutable int fCalls = 0;

private:
  /// Radiation lengths as the project's detectors have them [cm].
  static std::unique_ptr<TGeoMaterial> Material(const std::string& name) {
    const auto make = [&name](double a, double z, double density, double radLength) {
      return std::make_unique<geo::Own<>>(name.c_str(), a, z, density, -radLength,
                                          geo::GivenIntLen(a, z, density));
    };
    if (name == "Scintillator") return make(11.2, 5.6, 0.859, 51.447);
    if (name == "PVC") return make(20, 10, 1.49, 16.517);
    if (name == "Glue") return make(12, 6, 1.34, 31.864);
    if (name == "Steel") return make(55.845, 26, 7.87, 1.7584);
    return make(0, 0, 0, 1e25);
  }

  const TGeoMaterial& At(double z) const {
    for (std::size_t i = 0; i < fLayers.size(); i++)
      if (fBoundaries[i] <= z && z < fBoundaries[i + 1]) return *fLayers[i];
    return *fVacuum;
  }

  std::vector<double> fBoundaries;
  std::vector<std::unique_ptr<TGeoMaterial>> fLayers;
  std::unique_ptr<TGeoMaterial> fVacuum = Material("Vacuum");
};
