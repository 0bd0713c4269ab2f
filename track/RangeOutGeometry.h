#pragma once

#include "geo/GeometryBase.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace kelvo {

/// A detector whose steps of one material in one leg are put together: what a range-out needs to
/// know, in a third of the steps. Within a leg the order of the materials is lost, so legs must be
/// short against the range that is left.
class LumpedGeometry : public geo::GeometryBase {
public:
  /// @param detector must outlive this object
  explicit LumpedGeometry(const geo::GeometryBase& detector) : fDetector(detector) {}

  /// As the detector's own, each material once, in the order of their first steps.
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    fDetector.MaterialsBetweenPoints(p0, p1, ds, mats);
    std::size_t n = 0;
    for (std::size_t k = 0; k < ds.size(); k++) {
      std::size_t i = 0;
      while (i < n && mats[i] != mats[k]) i++;
      if (i < n) {
        ds[i] += ds[k];
      } else {
        ds[n] = ds[k];
        mats[n++] = mats[k];
      }
    }
    ds.resize(n);
    mats.resize(n);
  }

private:
  const geo::GeometryBase& fDetector;
};

/// How a leg of a track differs from the truth for all that is known.
struct SmearedLeg {
  double fShiftX;  ///< parallel shift [cm]
  double fShiftY;  ///< [cm]
  double fStretch; ///< factor on its length
};

/// A detector seen along a track that is not known exactly. Each leg of the track is moved in
/// parallel by a shift of its own; with shifts as wide as the uncertainty, the material along a
/// whole track is the average over where it may have been. Without, a track fitted to the centres
/// of hit cells would keep clear of the walls between cells and range out too low (by 0.6% in a
/// detector of 4 cm cells with 0.2 cm walls). And the steps are stretched by the bends of the track
/// that are too small to be fitted.
class SmearedGeometry : public geo::GeometryBase {
public:
  /// @param detector must outlive this object
  /// @param legs     of the track, in the order of the path
  SmearedGeometry(const geo::GeometryBase& detector, std::vector<SmearedLeg> legs)
      : fDetector(detector), fLegs(std::move(legs)), fNext(fLegs.size()) {}

  /// As the detector's own, for the smeared leg. The legs must be asked for from the last to the
  /// first, as Path does; after the first it starts again.
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    if (fNext == 0) fNext = fLegs.size();
    const SmearedLeg& leg = fLegs[--fNext];
    const double from[3] = {p0[0] + leg.fShiftX, p0[1] + leg.fShiftY, p0[2]};
    const double to[3] = {p1[0] + leg.fShiftX, p1[1] + leg.fShiftY, p1[2]};
    fDetector.MaterialsBetweenPoints(from, to, ds, mats);
    for (double& d : ds) d *= leg.fStretch;
  }

private:
  const geo::GeometryBase& fDetector;
  std::vector<SmearedLeg> fLegs;
  mutable std::size_t fNext; // leg that was asked for last, counted from 0; the number at the start
};

} // namespace kelvo
