#pragma once

#include "geo/GeometryBase.h"

#include <TVector3.h>

#include <cstddef>
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

/// The materials along a track that is not known exactly, as a detector of its own in which the
/// track runs along z: the end of the track lies at (0, 0, 0), its first point at (0, 0, Length()).
/// Each leg of the track is moved in parallel by a shift of its own; with shifts as wide as the
/// uncertainty, the material along a whole track is the average over where it may have been.
/// Without, a track fitted to the centres of hit cells would keep clear of the walls between cells
/// and range out too low (by 0.6% in a detector of 4 cm cells with 0.2 cm walls). And the legs are
/// stretched by the bends of the track that are too small to be fitted.
class UnrolledTrack : public geo::GeometryBase {
public:
  /// @param detector in which the track lies
  /// @param points   of the track [cm]
  /// @param legs     between them, one less
  UnrolledTrack(const geo::GeometryBase& detector, const std::vector<TVector3>& points,
                const std::vector<SmearedLeg>& legs);

  /// Returns the length of the track [cm].
  double Length() const { return fSteps.empty() ? 0 : fSteps.back().fEnd; }

  /// As any detector's, for two points on the track.
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override;

private:
  struct Step {
    double fBegin, fEnd; // z [cm]
    double fLength;      // their distance as the detector told it, stretched [cm]
    const TGeoMaterial* fMaterial;
  };

  std::vector<Step> fSteps; // in the order of z
};

} // namespace kelvo
