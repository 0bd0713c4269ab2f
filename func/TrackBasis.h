#pragma once

#include <TVector3.h>

#include <vector>

namespace kelvo {

/// Right-handed Cartesian frame along a track: the third axis runs along the track, the origin is a
/// point of the caller's choice. A rotation and a shift; lengths in cm.
///
/// Call MakeBasis with the hits, then DetToTrk and TrkToDet as often as needed. A basis can be
/// copied. Before MakeBasis its origin and axes are zero vectors and its rotation is the identity,
/// so both transformations return what they are given. The transformations allocate nothing and may
/// run in several threads at once; building does not.
///
/// The six vectors of the building functions hold the hits' positions x, y, z and uncertainties dx,
/// dy, dz in detector coordinates [cm], one entry per hit.
class TrackBasis {
public:
  /// Builds the frame from the hits, with the origin (ox, oy, oz) in detector coordinates [cm].
  ///
  /// The third axis is FindAxis's. Of the products of the detector axes x, y, z with it, the
  /// longest one, made a unit vector, is a transverse axis, which is the detector axis best across
  /// the track: the first one for y and z, the second one for x; on a tie y goes before x before z.
  /// The frame is then turned by AdjustBasisDir. Hits along +z give the axes of the detector.
  ///
  /// Throws what FindAxis throws; the origin is then already the new one, and axes and rotation are
  /// as they were.
  void MakeBasis(const std::vector<double>& x, const std::vector<double>& y,
                 const std::vector<double>& z, const std::vector<double>& dx,
                 const std::vector<double>& dy, const std::vector<double>& dz, double ox, double oy,
                 double oz);

  /// Estimates the direction of the track: straight lines x(z) and y(z) through the hits with
  /// slopes m_x and m_y (see util::LinFitTS, mode 2), and axis = (m_x, m_y, 1) of unit length.
  ///
  /// The variance of a hit in the fit of x is dx^2 + 2 dz, likewise in y. The mixture of a squared
  /// and an unsquared length is deliberate, and makes dz the larger part for dz below 2 cm. Nothing
  /// else about the input is checked: a NaN gives a NaN axis. Allocates one vector.
  ///
  /// Throws kIndexProblem with value 0 unless all six vectors are of one length; axis is then
  /// untouched. Without any hit the axis is (0, 0, 1).
  static void FindAxis(const std::vector<double>& x, const std::vector<double>& y,
                       const std::vector<double>& z, const std::vector<double>& dx,
                       const std::vector<double>& dy, const std::vector<double>& dz,
                       TVector3& axis);

  /// Turns the frame by 180 degrees about its first axis when the hits lie behind the origin, that
  /// is when their mean position along the third axis, each weighted with the inverse square of its
  /// uncertainty there (taken as at least 0.1 cm), is below 0. Without hits nothing changes.
  ///
  /// Reads as many hits as x holds: the other vectors must be at least as long, which is not
  /// checked. Throws nothing.
  void AdjustBasisDir(const std::vector<double>& x, const std::vector<double>& y,
                      const std::vector<double>& z, const std::vector<double>& dx,
                      const std::vector<double>& dy, const std::vector<double>& dz);

  /// Moves the origin to (x, y, z) in detector coordinates [cm]. Axes and rotation stay, even where
  /// the hits now lie behind the origin.
  void SetOrigin(double x, double y, double z);

  /// Takes a point and its uncertainties from the detector frame to the track frame [cm].
  ///
  /// Uncertainties are rotated without correlations, dX^2 = sum_j (R_0j dx_j)^2 and so on, and are
  /// never shifted; so there and back does not return them in general. Any output may be null and
  /// is then skipped. Throws nothing.
  void DetToTrk(double x, double y, double z, double dx, double dy, double dz, double* X, double* Y,
                double* Z, double* dX, double* dY, double* dZ) const;

  /// The reverse of DetToTrk, from the track frame to the detector frame [cm].
  void TrkToDet(double X, double Y, double Z, double dX, double dY, double dZ, double* x, double* y,
                double* z, double* dx, double* dy, double* dz) const;

  /// Returns the origin of the track frame in detector coordinates [cm].
  const TVector3& Origin() const { return fOrigin; }
  /// Returns the first transverse axis, a unit vector in detector components.
  const TVector3& XAxis() const { return fXtrk; }
  /// Returns the second transverse axis, a unit vector in detector components.
  const TVector3& YAxis() const { return fYtrk; }
  /// Returns the axis along the track, a unit vector in detector components.
  const TVector3& ZAxis() const { return fZtrk; }

private:
  TVector3 fOrigin;          // in detector coordinates [cm]
  TVector3 fXtrk;            // unit vectors in detector components, zero before MakeBasis
  TVector3 fYtrk;            //
  TVector3 fZtrk;            //
  double fDetToTrk[3][3] = { // row i: components of track axis i along x, y, z
      {1, 0, 0},
      {0, 1, 0},
      {0, 0, 1}};
  double fTrkToDet[3][3] = { // always the transpose of fDetToTrk
      {1, 0, 0},
      {0, 1, 0},
      {0, 0, 1}};
};

} // namespace kelvo
