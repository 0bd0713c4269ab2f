#pragma once

#include "func/HitList3D.h"

#include <TVector3.h>

#include <vector>

namespace kelvo {

/// A line that bends, as a fit sees it: in each view
///   u(z) = u0 + t0 z + sum_j kink_j max(z - z_j, 0).
class KinkedLine {
public:
  /// Makes the line that is the z axis.
  /// @param hits without errors of measurement, by increasing z; two of each view at least
  explicit KinkedLine(HitList3D hits) : fHits(std::move(hits)) {}

  /// Adds a kink.
  /// @param z     [cm], not before that of the kink before
  /// @param kinkX change of the slope dx/dz
  /// @param kinkY change of the slope dy/dz
  void AddKink(double z, double kinkX, double kinkY) { fKinks.push_back({z, {kinkX, kinkY}}); }

  /// Chooses u0 and t0 such that the straight line nearest to the line at the hits is the one
  /// through two points [cm].
  void Align(const TVector3& p, const TVector3& q);

  /// Gives the corners between two z [cm].
  void Corners(double zBegin, double zEnd, std::vector<TVector3>& corners) const;

private:
  struct Kink {
    double fZ;        // [cm]
    double fSlope[2]; // change of the slope, by view
  };

  void FindNearest(int view, double& slope, double& intercept) const;
  double Position(int view, double z) const;

  HitList3D fHits;
  std::vector<Kink> fKinks; // by increasing fZ
  double fU0[2] = {0, 0};   // [cm]
  double fT0[2] = {0, 0};
};

} // namespace kelvo
