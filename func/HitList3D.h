#pragma once

#include <vector>

#include "geo/PlaneProj.h"

namespace kelvo {

/// One hit of a plane, with room for all three coordinates. Lengths in cm.
///
/// The plane measures x or y, as the view tells, and knows z; the other transverse coordinate is
/// filled in by HitList3D::CompleteOrtho. The time is carried for the caller and never read.
struct Hit3D {
  geo::_plane_proj fView = static_cast<geo::_plane_proj>(2); ///< kX, kY, or 2: neither
  double fX = 0;                                             ///< [cm]
  double fY = 0;                                             ///< [cm]
  double fZ = 0;                                             ///< [cm]
  double fT = 0;                                             ///< time, in the caller's unit
  double fSigX = 0;                                          ///< uncertainty of fX [cm]
  double fSigY = 0;                                          ///< uncertainty of fY [cm]
  double fSigZ = 0;                                          ///< uncertainty of fZ [cm]
  double fSigT = 0;                                          ///< uncertainty of fT
  double fW = 1; ///< weight in the completion fit; taken as it is, not an inverse variance
};

/// The hits of one track: a vector of hits that can be sorted and completed to three dimensions.
///
/// Fill it with AddHit, or make it with a size and fill it with SetHit; call CompleteOrtho; read
/// the hits back as from any vector. Hits keep their order until a sort.
class HitList3D : public std::vector<Hit3D> {
public:
  /// An empty list.
  HitList3D() = default;
  /// A list of n default hits, to be filled with SetHit.
  explicit HitList3D(unsigned int n);

  /// Appends a hit. Lengths in cm; w is the weight in the completion fit.
  void AddHit(geo::_plane_proj view, double x, double y, double z, double t, double sigx,
              double sigy, double sigz, double sigt, double w);

  /// Overwrites hit i, which must exist: the index is not checked. The uncertainty of the time is
  /// the exception, fSigT keeps its value and sigt is not used; to set it, write fSigT itself.
  void SetHit(unsigned int i, geo::_plane_proj view, double x, double y, double z, double t,
              double sigx, double sigy, double sigz, double sigt, double w);

  /// Sorts by increasing z. Hits of equal z end in an unspecified order. No z may be NaN.
  void SortByZ();
  /// Sorts by decreasing y. Hits of equal y end in an unspecified order. No y may be NaN.
  void SortByY();

  /// Fills the unmeasured coordinate of every hit.
  ///
  /// With a null interp the list is sorted by z and each hit completed with gsDefaultInterp. A
  /// function of the caller is called for hit 0, 1, ... of the list as it stands, unsorted, while
  /// the index is below the list's size of that moment. Throws nothing itself.
  void CompleteOrtho(void (*interp)(Hit3D& hit, HitList3D& list) = nullptr);
};

} // namespace kelvo

/// Orders hits by increasing z: true when a lies before b.
bool gsSortHit3DByZ(const kelvo::Hit3D& a, const kelvo::Hit3D& b);

/// Orders hits by decreasing y: true when a lies above b.
bool gsSortHit3DByY(const kelvo::Hit3D& a, const kelvo::Hit3D& b);

/// Fills the unmeasured coordinate of one hit and its uncertainty from the hits of the other view.
///
/// A straight line c = a + b z is fitted to the measured coordinate c of the other view's hits
/// closer in z than 100 cm (strictly), each with its weight fW; with fewer than six of them, closer
/// than 200 cm, then closer than 400 cm. With S = sum w, Sz = sum w z, Szz = sum w z^2,
/// Sc = sum w c, Szc = sum w z c over these hits and D = S Szz - Sz^2,
///   b = (S Szc - Sz Sc) / D,   a = -(Sz Szc - Szz Sc) / D
/// (P. R. Bevington, D. K. Robinson, Data Reduction and Error Analysis for the Physical Sciences,
/// 3rd ed., equation 6.12). The coordinate is the line's value at the hit's z. Its uncertainty is
/// sqrt(b^2 sigz^2 + sig^2) with the hit's own z uncertainty and the uncertainty of its own
/// measured coordinate. When D is exactly 0, as without any hit or with one hit of weight 1, the
/// coordinate is 0 cm with an uncertainty of 1000 cm.
///
/// Sums run in the order of the list and products from left to right, (w z) z and ((b b) sigz)
/// sigz. Cost: the hits within the window, and no more.
///
/// @param hit  an element of list, by identity: its index is taken from its address
/// @param list sorted by increasing z
///
/// Throws nothing. Ends the process with abort for a hit whose view is neither kX nor kY, once it
/// takes part in a fit: as a hit within the window of another one, or as the hit to complete where
/// D is not 0. Where D is 0, such a hit is left as it is.
void gsDefaultInterp(kelvo::Hit3D& hit, kelvo::HitList3D& list);
