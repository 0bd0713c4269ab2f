#pragma once

#include "fit/KinkSmoother.h"
#include "track/TrackFit.h"
#include "track/TrackFrame.h"

#include <array>

namespace kelvo {

/// One hit on its way through the fit.
struct TrackHit {
  std::size_t fView;   ///< 0: x, 1: y
  double fZ, fU;       ///< as measured, detector frame [cm]
  double fSigU, fSigZ; ///< their uncertainties [cm]
  double fS;           ///< path coordinate [cm]
  double fA, fSigA;    ///< transverse position in its view, and its uncertainty [cm]
};

/// The fitted lines of both views at one path coordinate.
struct LinePair {
  double fS;                       ///< [cm]
  std::array<KinkPoint, 2> fState; ///< by view
};

/// A point of the fitted track in the plane of a hit, and the line through it.
struct TrackPoint {
  LinePair fLine;
  Vector fPoint;        ///< detector frame [cm]
  Vector fTangent;      ///< derivative of fPoint by s; its z is at least kForward
  double fByView[2][2]; ///< derivative of x, y (first index) at fixed z by the transverse position
                        ///< of a view (second index); divided by fTangent[2], that of the slopes
                        ///< dx/dz, dy/dz by the slope of a view
  bool fCrosses;        ///< whether the track crosses the plane at a usable angle
};

/// Returns the point where the track crosses the plane of a z.
/// @param line near there
TrackPoint PointAtPlane(const TrackFrame& frame, const LinePair& line, double z);

/// Puts a hit where a fitted track crosses its plane: its path coordinate, and its transverse
/// position on the line at the distance that makes the next fit linear in the measured coordinate.
/// A hit whose plane the track hardly crosses stays as it is.
void MoveToTrack(const TrackPoint& point, TrackHit& hit);

/// Compares a hit with the track in its plane.
void FillHit(const TrackPoint& point, const TrackHit& hit, HitFit& fit);

/// Sets position, direction and their covariance of a fit to those of a point.
void FillStart(const TrackFrame& frame, const TrackPoint& point, HypothesisFit& fit);

} // namespace kelvo
