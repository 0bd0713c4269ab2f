#pragma once

#include "func/HitList3D.h"
#include "func/TrackBasis.h"

#include <TVector3.h>

#include <array>
#include <vector>

namespace kelvo {

/// The frame in which both views of a track are fitted: the path coordinate s runs along the axis w
/// of a TrackBasis, and each view has a transverse direction of its own,
///   e_X = y x w / |y x w|,   e_Y = w x x / |w x x|   (x, y: the detector's axes).
/// e_X is across the track and across the coordinate that an X plane does not measure, so that a
/// hit's transverse position a = (P - O) e depends on measured coordinates only. The two directions
/// are not orthogonal for a track oblique in both views; with g = e_X e_Y the point of the track is
///   P(s) = O + s w + a_X d_X + a_Y d_Y,
///   d_X = (e_X - g e_Y) / (1 - g^2),   d_Y = (e_Y - g e_X) / (1 - g^2).
class TrackFrame {
public:
  /// A frame without axes, to be assigned to.
  TrackFrame() = default;
  /// @param origin point of the axis with s = 0 [cm]
  /// @param axis   unit vector; its z component must not be 0
  TrackFrame(const TVector3& origin, const TVector3& axis);

  const TVector3& Axis() const { return fAxis; }

  /// Returns the transverse position [cm] of a point of the detector in a view (0: x, 1: y) with
  /// measured coordinate u at z [cm].
  double Transverse(int view, double u, double z) const;

  /// Returns the uncertainty [cm] of Transverse for those of u and z [cm].
  double SigTransverse(int view, double sigu, double sigz) const;

  /// Returns the path coordinate [cm] of the point of the axis that is nearest to a point [cm].
  double AxisCoordinate(const TVector3& p) const { return (p - fOrigin).Dot(fAxis); }

  /// Returns the point of the axis at s in detector coordinates [cm].
  TVector3 AxisPoint(double s) const { return fOrigin + s * fAxis; }

  /// Returns the point of the track at s with transverse positions ax, ay, all [cm].
  TVector3 Point(double s, double ax, double ay) const {
    return fOrigin + s * fAxis + ax * fD[0] + ay * fD[1];
  }

  /// Returns the derivative of Point by s for slopes bx, by of the two views. Not a unit vector.
  TVector3 Tangent(double bx, double by) const { return fAxis + bx * fD[0] + by * fD[1]; }

  /// Returns the derivative of Point by the transverse position of a view.
  const TVector3& Dual(int view) const { return fD[static_cast<unsigned>(view)]; }

private:
  TVector3 fOrigin;           // [cm]
  TVector3 fAxis;             // unit vector
  std::array<TVector3, 2> fE; // unit vectors, transverse, by view
  std::array<TVector3, 2> fD; // by view
};

} // namespace kelvo
