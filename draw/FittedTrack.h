#pragma once

#include "io/FitRow.h"
#include "track/TrackFrame.h"

#include <vector>

namespace kelvo {

/// The course of a fitted track in the detector frame, made from what its file keeps: straight
/// pieces between the scattering planes, with the kinks where they meet.
class FittedTrack {
public:
  /// @param row a fitted one, with its vectors
  explicit FittedTrack(const FitRow& row);

  /// Returns the first hit's point, the points with kinks in between, and the last hit's point
  /// [cm].
  const std::vector<Vector>& Points() const { return fPoints; }

  /// Returns the points of the scattering planes, as many as the row has planes [cm].
  const std::vector<Vector>& Planes() const { return fPlanes; }

  /// Returns x (view 0) or y (1) of the track at z [cm]; its ends are continued straight on.
  double At(std::size_t view, double z) const;

private:
  std::vector<Vector> fPoints;
  std::vector<Vector> fPlanes;
};

/// Returns the uncertainty with which hit i was measured [cm]. It follows from the fitted one, with
/// which it makes the uncertainty of the residual: sig^2 = (residual / pull)^2 + fit_sigu^2, exact
/// for tracks along z and to 5 % up to 45 degrees. A hit that alone fixes its part of the
/// track has no pull, and the fitted uncertainty is its own.
double HitUncertainty(const FitRow& row, std::size_t i);

} // namespace kelvo
