#pragma once

#include "util/Lanes.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

class TGeoMaterial;

namespace geo {

using kelvo::Lanes;

/// Straight lines between two planes along z, side by side.
struct LaneLines {
  double fBegin, fEnd;         ///< z [cm]
  double fCut;                 ///< z at which a slab ends [cm]
  std::array<Lanes, 2> fFrom;  ///< x and y at fBegin [cm]
  std::array<Lanes, 2> fSlope; ///< dx/dz and dy/dz

  Lanes At(std::size_t axis, double z) const { return fFrom[axis] + fSlope[axis] * (z - fBegin); }
};

/// What lies on the lines between two planes along z.
struct LaneSlab {
  double fBegin, fEnd; ///< z [cm]
  std::size_t fN;      ///< number of materials
  std::array<const TGeoMaterial*, 3> fMaterial{};
  std::array<Lanes, 3> fFraction{}; ///< of each line's way between fBegin and fEnd

  LaneSlab(double begin, double end) : fBegin(begin), fEnd(end), fN(0) {}
  void Add(const TGeoMaterial* material, const Lanes& fraction) {
    fMaterial[fN] = material;
    fFraction[fN++] = fraction;
  }
  /// Returns which fraction of the slab each line has in it: 1 or 0.
  Lanes Crossed() const {
    Lanes sum{};
    for (std::size_t k = 0; k < fN; k++) sum += fFraction[k];
    return sum;
  }
};

/// The slabs of some lines. Where these must be followed one by one, there are slabs of one line
/// after those of another, with a fraction of 0 for all others.
struct LaneSlabs {
  std::vector<LaneSlab> fSlabs;
  std::vector<double> fLengths; ///< scratch [cm]
  std::vector<const TGeoMaterial*> fMaterials;
};

/// Adds what lies on one line after the other, between two z.
/// @param steps lists the steps between two points, as MaterialsBetweenPoints does
template <class Steps>
void AddLineByLine(const LaneLines& lines, double begin, double end, Steps&& steps,
                   LaneSlabs& slabs) {
  for (std::size_t l = 0; l < kelvo::kLanes; l++) {
    const double from[] = {lines.At(0, begin)[l], lines.At(1, begin)[l], begin};
    const double to[] = {lines.At(0, end)[l], lines.At(1, end)[l], end};
    slabs.fLengths.clear();
    slabs.fMaterials.clear();
    steps(from, to, slabs.fLengths, slabs.fMaterials);
    const double x = to[0] - from[0], y = to[1] - from[1], dz = to[2] - from[2];
    const double perLength = dz / std::sqrt(x * x + y * y + dz * dz);
    const Lanes fraction(l == 0, l == 1, l == 2, l == 3);
    double z = begin;
    for (std::size_t i = 0; i < slabs.fLengths.size(); i++) {
      slabs.fSlabs.emplace_back(z, z + slabs.fLengths[i] * perLength);
      slabs.fSlabs.back().Add(slabs.fMaterials[i], fraction);
      z = slabs.fSlabs.back().fEnd;
    }
  }
}

} // namespace geo
