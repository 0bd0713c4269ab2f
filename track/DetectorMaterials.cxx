#include "track/DetectorMaterials.h"

#include "geo/Matter.h"
#include "track/MaterialLoss.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <TGeoMaterial.h>

#include <cmath>
#include <optional>

namespace kelvo {
namespace {

/// 2 pi m_e r_e^2 N_A, the factor of the Bethe formula and of Landau's xi (Particle Data Group,
/// Review of Particle Physics, passage of particles through matter, table 34.1) [GeV cm2/mol].
constexpr double kBetheScale = 0.1535375e-3;

} // namespace

void DetectorMaterials::AddSlabs(const double* from, const double* to,
                                 std::vector<geo::MeanSlab>& slabs) {
  fLengths.clear();
  fStepMaterials.clear();
  fDetector->MaterialsBetweenPoints(from, to, fLengths, fStepMaterials);
  CheckSteps();
  const double x = to[0] - from[0], y = to[1] - from[1], dz = to[2] - from[2];
  const double perLength = dz / std::sqrt(x * x + y * y + dz * dz);
  double z = from[2];
  for (std::size_t i = 0; i < fLengths.size(); i++) {
    const double end = z + fLengths[i] * perLength;
    slabs.emplace_back(z, end).Add(fStepMaterials[i], 1);
    z = end;
  }
}

void DetectorMaterials::CheckSteps() const {
  if (fLengths.size() != fStepMaterials.size())
    throw GeometryRefusal{"the detector reports " + std::to_string(fLengths.size()) +
                          " lengths for " + std::to_string(fStepMaterials.size()) +
                          " materials on the track"};
  for (double length : fLengths)
    if (!(std::isfinite(length) && length >= 0))
      throw GeometryRefusal{"the detector reports a step of " + NumberText(length) +
                            " cm on the track; it must be finite and not negative"};
}

std::size_t DetectorMaterials::IndexOfNew(const TGeoMaterial* material) {
  if (!material) throw GeometryRefusal{"the detector reports a step without material on the track"};
  fMaterials.push_back(Data(*material));
  return fMaterials.size() - 1;
}

MaterialData DetectorMaterials::Data(const TGeoMaterial& material) const {
  constexpr double kMipT = 0.2284; // GeV, of a muon of beta gamma 3
  const std::string name = material.GetName();
  if (name == geo::kVacuum) return {&material, 0, 0, 0, {}};
  const std::optional<matter::Material> matter = geo::MatterOf(material);
  if (fNeedsLoss && !matter)
    throw GeometryRefusal{"the track crosses the material \"" + name +
                          "\", of which neither the name nor the elements are known; give it a "
                          "composition or fit the track as a beam of known momentum"};
  const double radlen = material.GetRadLen();
  if (!(radlen > 0))
    throw GeometryRefusal{"the track crosses the material \"" + name +
                          "\", whose radiation length is " + NumberText(radlen) +
                          " cm; it must be above 0"};
  MaterialData data{&material, 1 / radlen, 0, 0, {}};
  if (!matter) return data;
  data.fMipLoss = MaterialLoss(*matter, kMuonPDG)(kMipT);
  data.fXi = kBetheScale * matter->Density() * matter->MolesOfElectrons();
  for (int pdg : fHypotheses) data.fTables.push_back(MakeRangeTable(*matter, pdg));
  return data;
}

} // namespace kelvo
