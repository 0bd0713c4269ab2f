#pragma once

#include "func/HitList3D.h"
#include "track/TrackFrame.h"

#include <TVector3.h>

#include <array>
#include <vector>

namespace kelvo {

/// A line that bends, as a fit sees it: in the frame that the fit has for the hits of a track, its
/// transverse position in each view is
///   a(s) = a0 + b0 s + sum_j kink_j max(s - s_j, 0).
class KinkedLine {
public:
  /// Makes the line that is the axis of the frame.
  /// @param hits without errors of measurement, by increasing z; two of each view at least
  explicit KinkedLine(HitList3D hits);

  /// Adds a kink.
  /// @param s      path coordinate [cm], larger than that of the kink before
  /// @param width  of the kink's angle [rad]
  /// @param normal the kink in units of its width, by view
  void AddKink(double s, double width, const std::array<double, 2>& normal);

  /// Chooses a0 and b0 such that the straight line nearest to the line at the hits is the one
  /// through two points [cm].
  void Align(const TVector3& p, const TVector3& q);

  /// Gives the corners between two z [cm]; returns false where the line does not go ahead.
  bool Corners(double zBegin, double zEnd, std::vector<TVector3>& corners) const;

private:
  struct Kink {
    double fS;                    // [cm]
    std::array<double, 2> fAngle; // by view [rad]
  };

  void FindNearest(std::size_t view, double& slope, double& intercept) const;
  double Position(std::size_t view, double s) const;
  TVector3 Point(double s) const;
  double WayTo(double z, double s0, double s1) const;

  HitList3D fHits;
  TrackFrame fFrame;
  std::vector<Kink> fKinks; // by increasing fS
  double fA0[2] = {0, 0};   // [cm]
  double fB0[2] = {0, 0};
};

} // namespace kelvo
