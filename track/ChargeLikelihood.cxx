#include "track/ChargeLikelihood.h"

#include "track/DetectorMaterials.h"
#include "util/Particles.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace kelvo {
namespace {

/// A piece of a straight line that lies in one material.
struct Step {
  double fBegin, fEnd; // [cm]
  const TGeoMaterial* fMaterial;
};

/// Returns the step of one material in the middle of the way between two points that differ along
/// an axis, from the middle on [cm].
Step MiddleStep(const geo::PlaneDetector& detector, const double* p0, const double* p1,
                std::size_t axis) {
  std::vector<double> lengths;
  std::vector<const TGeoMaterial*> materials;
  detector.MaterialsBetweenPoints(p0, p1, lengths, materials);
  const double middle = (p1[axis] - p0[axis]) / 2;
  std::size_t i = 0;
  double end = lengths.front();
  while (end <= middle && i + 1 < lengths.size()) end += lengths[++i];
  return {end - lengths[i] - middle, end - middle, materials[i]};
}

/// Centre of the cell that is in the middle of a row, x and y [cm].
std::array<double, 2> MiddleOf(const geo::CellRow& row, std::size_t view) {
  const double u = row.Centre(row.fCount / 2);
  return view == 0 ? std::array<double, 2>{u, row.fMiddle} : std::array<double, 2>{row.fMiddle, u};
}

} // namespace

ChargeLikelihood::ChargeLikelihood(const geo::PlaneDetector& detector,
                                   const std::vector<int>& hypotheses, double resolution)
    : fDetector(&detector) {
  constexpr double kSame = 1e-6; // of the thickness
  DetectorMaterials materials(detector, hypotheses, true);
  for (const geo::ActivePlane& plane : detector.Planes()) {
    std::array<Cells, 2>& cells = fCells.emplace_back();
    for (std::size_t v = 0; v < 2; v++) {
      if (!plane.Measures(static_cast<unsigned>(v))) continue;
      const geo::CellRow& row = plane.fCells[v];
      const auto [x, y] = MiddleOf(row, v);
      const double low[3] = {x, y, plane.fZLow}, high[3] = {x, y, plane.fZHigh};
      const Step depth = MiddleStep(detector, low, high, 2);
      double left[3] = {x, y, plane.ZMid()}, right[3] = {x, y, plane.ZMid()};
      left[v] -= row.fWidth / 2;
      right[v] += row.fWidth / 2;
      const Step width = MiddleStep(detector, left, right, v);
      const double thickness = depth.fEnd - depth.fBegin;
      const std::size_t material = materials.Index(depth.fMaterial);
      const auto isSame = [&](const Kind& kind) {
        return kind.fMaterial == material &&
               std::abs(kind.fThickness - thickness) <= kSame * thickness;
      };
      const auto kind = std::find_if(fKinds.begin(), fKinds.end(), isSame);
      cells[v] = {static_cast<std::size_t>(kind - fKinds.begin()), (width.fEnd - width.fBegin) / 2,
                  depth.fBegin, depth.fEnd};
      if (kind == fKinds.end())
        fKinds.push_back({material, thickness, materials[material].fMipLoss * thickness, {}});
    }
  }
  for (Kind& kind : fKinds) {
    const MaterialData& data = materials[kind.fMaterial];
    if (data.fTables.empty())
      throw std::invalid_argument(std::string("the cells of the detector are filled with \"") +
                                  data.fMaterial->GetName() +
                                  "\", in which no energy is deposited");
    const double noise = resolution * resolution * kind.fMip;
    for (std::size_t h = 0; h < hypotheses.size(); h++)
      kind.fTables.emplace_back(data.fTables[h], FindParticle(hypotheses[h])->fMass, data.fXi,
                                kind.fThickness, noise);
  }
}

/// Returns the path between the walls of the cell at u.
double ChargeLikelihood::Length(const ChargedHit& hit, const geo::CellRow& row, const Cells& cells,
                                double u) const {
  const int cell = row.Cell(u);
  const double d = cell < 0 ? 0 : u - row.Centre(static_cast<unsigned>(cell));
  const double slope = hit.fSlope[hit.fView], w = cells.fHalfWidth;
  const double stretch =
      std::sqrt(1 + hit.fSlope[0] * hit.fSlope[0] + hit.fSlope[1] * hit.fSlope[1]);
  double low = cells.fLow, high = cells.fHigh;
  if (std::abs(slope) * (high - low) > 1e-9) {
    const double a = (-w - d) / slope, b = (w - d) / slope;
    low = std::max(low, std::min(a, b));
    high = std::min(high, std::max(a, b));
  } else if (std::abs(d) > w) {
    return 0;
  }
  return std::max(high - low, 0.) * stretch;
}

void ChargeLikelihood::FindPaths(const std::vector<ChargedHit>& hits, std::size_t points,
                                 std::vector<Path>& out) const {
  // Of the place, in uncertainties of one hit: as uncertain as the mean of five hits.
  constexpr double kSigma = 0.447, kSpacing = 0.75;
  out.clear();
  for (const ChargedHit& hit : hits) {
    if (hit.fPoint == 0 || hit.fPoint + 1 == points) continue;
    const unsigned plane = fDetector->NearestPlane(hit.fZ);
    const geo::CellRow& row = fDetector->Planes()[plane].fCells[hit.fView];
    if (row.fCount == 0) continue;
    const Cells& cells = fCells[plane][hit.fView];
    Path path{hit.fPoint, cells.fKind, hit.fQ, Path::kPlaces, {}};
    for (std::size_t k = 0; k < Path::kPlaces; k++) {
      const double off = (static_cast<double>(k) - 2) * kSpacing * kSigma * hit.fSigU;
      path.fLength[k] = Length(hit, row, cells, hit.fU + off);
    }
    const auto [least, most] = std::minmax_element(path.fLength.begin(), path.fLength.end());
    if (*most - *least < 1e-3 * *most) path.fN = 1;
    out.push_back(path);
  }
}

double ChargeLikelihood::LogLikelihood(std::size_t h, const std::vector<Path>& paths,
                                       const double* T) const {
  // Of a Gaussian at steps of 0.75 standard deviations.
  constexpr double kWeight[Path::kPlaces] = {0.1032, 0.2401, 0.3134, 0.2401, 0.1032};
  double sum = 0;
  for (const Path& path : paths) {
    const DepositTable& table = fKinds[path.fCell].fTables[h];
    if (path.fN == 1) {
      sum += table.LogDensity(T[path.fPoint], path.fLength[0], path.fQ);
      continue;
    }
    double density = 0;
    for (std::size_t k = 0; k < Path::kPlaces; k++)
      density += kWeight[k] * std::exp(table.LogDensity(T[path.fPoint], path.fLength[k], path.fQ));
    sum += std::log(density);
  }
  return sum;
}

} // namespace kelvo
