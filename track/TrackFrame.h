#pragma once

#include "func/HitList3D.h"

#include <array>
#include <cstddef>

namespace kelvo {

/// Three components x, y, z in the detector frame.
using Vector = std::array<double, 3>;

/// The frame in which both views of a track are fitted: the path coordinate s runs along the axis w
/// of a TrackBasis, and each view has a transverse direction of its own,
///   e_X = y x w / |y x w|,   e_Y = w x x / |w x x|   (x, y: the detector's axes).
/// e_X is across the track and across the coordinate that an X plane does not measure, so that a
/// hit's transverse position a = (P - O) e depends on measured coordinates only. The two directions
/// are not orthogonal for a track oblique in both views; with g = e_X e_Y the point of the track is
///   P(s) = O + s w + a_X d_X + a_Y d_Y,
///   d_X = (e_X - g e_Y) / (1 - g^2),   d_Y = (e_Y - g e_X) / (1 - g^2).
/// Lengths in cm. Views: 0 measures x, 1 measures y.
class TrackFrame {
public:
  /// A frame without axes, to be assigned to.
  TrackFrame() = default;
  /// @param origin point of the axis with s = 0
  /// @param axis   unit vector; its z component must not be 0
  TrackFrame(const Vector& origin, const Vector& axis);

  /// Returns w.
  const Vector& Axis() const { return fAxis; }

  /// Returns the transverse position of a point with measured coordinate u at z.
  double Transverse(std::size_t view, double u, double z) const {
    return (u - fOrigin[view]) * fE[view][view] + (z - fOrigin[2]) * fE[view][2];
  }

  /// Returns the uncertainty of Transverse for those of u and z.
  double SigTransverse(std::size_t view, double sigu, double sigz) const;

  /// Returns the path coordinate of the point of the axis that is nearest to a point.
  double AxisCoordinate(const Vector& p) const;

  /// Returns the point of the track at s with transverse positions ax, ay.
  Vector Point(double s, double ax, double ay) const {
    Vector p;
    for (std::size_t i = 0; i < 3; i++)
      p[i] = fOrigin[i] + s * fAxis[i] + ax * fD[0][i] + ay * fD[1][i];
    return p;
  }

  /// Returns the derivative of Point by s for slopes bx, by of the two views. Not a unit vector.
  Vector Tangent(double bx, double by) const {
    Vector t;
    for (std::size_t i = 0; i < 3; i++) t[i] = fAxis[i] + bx * fD[0][i] + by * fD[1][i];
    return t;
  }

  /// Returns the derivative of Point by the transverse position of a view.
  const Vector& Dual(std::size_t view) const { return fD[view]; }

private:
  Vector fOrigin{};
  Vector fAxis{};             // unit vector
  std::array<Vector, 2> fE{}; // unit vectors, by view
  std::array<Vector, 2> fD{}; // by view
};

/// Returns the frame of a track: its axis is that of the TrackBasis of the hits, with s = 0 at the
/// first one. It points along +z, even where the scatter of the hits has turned the basis round.
/// @param hits with both coordinates each, the most upstream one first; at least one
TrackFrame FrameAlong(const HitList3D& hits);

} // namespace kelvo
