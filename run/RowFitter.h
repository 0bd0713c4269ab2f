#pragma once

#include "geo/PlaneDetector.h"
#include "io/FitRow.h"
#include "track/TrackFitter.h"

#include <vector>

namespace kelvo {

/// What is done with each track, for files, arrays and data frames alike: from its hits to its
/// fits. One object serves one thread at a time.
class RowFitter {
public:
  /// @param fitter is copied
  /// @param planes whose offsets are added to the hits; null for none; must outlive the object
  RowFitter(const TrackFitter& fitter, const geo::PlaneDetector* planes)
      : fFitter(fitter), fPlanes(planes) {}

  /// Returns the fit, valid until the next call. Where the input of the track could not be used no
  /// hypothesis is fitted, and each says what is wrong.
  /// @param track gets the offsets
  const TrackFit& Fit(TrackHits& track);

  /// Returns the planes whose offsets are added, null for none.
  const geo::PlaneDetector* Planes() const { return fPlanes; }
  const TrackFitOptions& Options() const { return fFitter.Options(); }

  /// As in TrackFitter.
  void SetChargeScale(double scale) { fFitter.SetChargeScale(scale); }
  double MipDeposit() const { return fFitter.MipDeposit(); }

private:
  void SetUnusable(const TrackHits& track);

  TrackFitter fFitter;
  const geo::PlaneDetector* fPlanes;
  TrackFit fFit;
};

} // namespace kelvo
