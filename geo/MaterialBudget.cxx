#include "geo/MaterialBudget.h"

#include <TGeoMaterial.h>

#include <algorithm>
#include <cmath>

namespace geo {

namespace {

/// The part of the face that all planes measure, over the whole length.
Box ActiveFace(const PlaneDetector& detector) {
  Box face = detector.Extent();
  for (const ActivePlane& plane : detector.Planes())
    for (unsigned view = 0; view < 2; view++) {
      const CellRow& cells = plane.fCells[view];
      if (cells.fCount == 0) continue;
      const double first = cells.Centre(0) - cells.fWidth / 2;
      const double last = cells.Centre(cells.fCount - 1) + cells.fWidth / 2;
      face.fLow[view] = std::max(face.fLow[view], first);
      face.fHigh[view] = std::min(face.fHigh[view], last);
    }
  return face;
}

/// Adds what lies from z to z + length to the steps that it is in.
void Spread(double z, double length, double radLengths, const MaterialBudget& budget,
            std::vector<double>& steps) {
  const double width = (budget.fHigh - budget.fLow) / budget.fBins;
  const double last = budget.fBins - 1;
  const auto bin = [&](double at) {
    return static_cast<std::size_t>(std::clamp(std::floor((at - budget.fLow) / width), 0., last));
  };
  for (std::size_t i = bin(z); i <= bin(z + length); i++) {
    const double low = std::max(z, budget.fLow + static_cast<double>(i) * width);
    const double high = std::min(z + length, budget.fLow + static_cast<double>(i + 1) * width);
    if (high > low) steps[i] += radLengths * (high - low) / length;
  }
}

} // namespace

double MaterialBudget::RadLengths(const TGeoMaterial* material) const {
  double sum = 0;
  for (const double step : fRadLengths.at(material)) sum += step;
  return sum;
}

MaterialBudget FindMaterialBudget(const PlaneDetector& detector, unsigned bins) {
  constexpr int kLines = 1024;
  // Multiples of these numbers modulo 1 cover the unit square evenly (plastic number; M. Roberts,
  // "The unreasonable effectiveness of quasirandom sequences", 2018).
  constexpr double kStepX = 0.7548776662466927;
  constexpr double kStepY = 0.5698402909980532;
  const Box box = ActiveFace(detector);
  MaterialBudget budget;
  budget.fLow = box.fLow[2];
  budget.fHigh = box.fHigh[2];
  budget.fBins = bins;
  for (const TGeoMaterial* material : detector.Materials()) {
    budget.fRadLengths[material].resize(bins);
    budget.fLength[material] = 0;
  }
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> materials;
  for (int i = 0; i < kLines; i++) {
    const double fractionX = std::fmod((i + 0.5) * kStepX, 1);
    const double fractionY = std::fmod((i + 0.5) * kStepY, 1);
    const double x = box.fLow[0] + fractionX * (box.fHigh[0] - box.fLow[0]);
    const double y = box.fLow[1] + fractionY * (box.fHigh[1] - box.fLow[1]);
    const double p0[] = {x, y, box.fLow[2]};
    const double p1[] = {x, y, box.fHigh[2]};
    detector.MaterialsBetweenPoints(p0, p1, ds, materials);
    double z = box.fLow[2];
    for (std::size_t k = 0; k < ds.size(); k++) {
      budget.fLength[materials[k]] += ds[k] / kLines;
      const double x0 = materials[k]->GetRadLen();
      if (x0 > 0) Spread(z, ds[k], ds[k] / x0 / kLines, budget, budget.fRadLengths[materials[k]]);
      z += ds[k];
    }
  }
  return budget;
}

} // namespace geo
