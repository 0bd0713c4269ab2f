#pragma once

#include <algorithm>
#include <vector>

#include "fit/KinkSmoother.h"
#include "fit/KinkState.h"

namespace kelvo {

/// The filters and the smoother of KinkSmoother, and what they leave behind for its results.
/// docs/linear-time-fit.md derives them. Measurements and planes are those of the KinkSmoother, and
/// the same in all calls that belong to one fit.
class KinkSmoother::Filter {
public:
  /// The straight line between two neighbouring planes, in order of z.
  struct Segment {
    double fEnd = 0; ///< position of the plane at its end; infinity for the last [cm]
    double fV = 0;   ///< weight of the kink there
    double fZ = 0;   ///< where position and slope are independent, given everything [cm]
    double fX = 0;   ///< smoothed line: X(z) = fX + fSlope (z - fZ) [cm]
    double fSlope = 0;
    double fVarX = 0;     ///< variance of fX [cm^2]
    double fVarSlope = 0; ///< variance of fSlope

    KinkPoint At(double z) const {
      const double d = z - fZ;
      return {fX + fSlope * d, fSlope, fVarX + d * d * fVarSlope, d * fVarSlope, fVarSlope};
    }
  };

  /// The fit of all measurements but one, at that one.
  struct Others {
    KinkState fUpstream; ///< work space
    double fX = 0;       ///< fitted coordinate [cm]
    double fVar = 0;     ///< its variance [cm^2]; infinity if they fix no track
  };

  /// Makes room for m planes and forgets the order of z.
  void Resize(unsigned int nscat);

  /// Finds the order of z, places the segments and sets segments, the measurements' segments and
  /// the planes' kinks. Returns whether the problem is regular.
  bool Solve(std::vector<Measurement>& meas, std::vector<Plane>& planes);

  /// Returns the kinks' part of chi-square of the last Solve.
  double Chi2Beta() const { return fChi2Beta; }

  /// Returns segment k of the m + 1, in order of z.
  const Segment& At(unsigned int k) const { return fSegments[k]; }

  /// Returns the first segment whose end is not before z.
  const Segment& SegmentAt(double z) const {
    const auto endsBefore = [](const Segment& segment, double at) { return segment.fEnd < at; };
    return *std::lower_bound(fSegments.begin(), fSegments.end() - 1, z, endsBefore);
  }

  /// Returns the index of the plane that is the k-th in order of z.
  unsigned int PlaneAt(unsigned int k) const { return fPlaneOrder.empty() ? k : fPlaneOrder[k]; }

  /// Returns what segment k and all upstream of it know.
  KinkState Upstream(unsigned int k) const { return One(fBoth[k], 0); }

  /// Returns what the measurements of segment k know.
  const KinkState& Local(unsigned int k) const { return fLocal[k]; }

  /// Returns the fit of all measurements but i, at i. The first call after a Solve takes time that
  /// grows as n + m and fills a cache for the others.
  const Others& WithoutOne(unsigned int i, const std::vector<Measurement>& meas) {
    if (!fOthersKnown) LeaveEachOut(meas);
    return fOthers[i];
  }

private:
  unsigned int MeasAt(unsigned int place) const {
    return fMeasOrder.empty() ? place : fMeasOrder[place];
  }
  static bool InOrder(const std::vector<Measurement>& meas, const std::vector<Plane>& planes);
  void PlaceSegments(const std::vector<Plane>& planes);
  void GatherDownstream(unsigned int k, std::vector<Measurement>& all, const unsigned int* order,
                        unsigned int& place);
  void GatherUpstream(unsigned int k, std::vector<Measurement>& all, const unsigned int* order,
                      unsigned int& place);
  KinkStates<KinkPair> CrossTwoPlanes(unsigned int k, KinkStates<KinkPair> known);
  bool Smooth(unsigned int k, std::vector<Plane>& planes);
  bool SmoothLines(unsigned int k);
  void SmoothKinks(unsigned int k, std::vector<Plane>& planes);
  void LeaveEachOut(const std::vector<Measurement>& all);

  unsigned int fNscat = 0; ///< m

  /// n and m: indices in order of z; empty if that is the order they have.
  std::vector<unsigned int> fMeasOrder, fPlaneOrder;
  std::vector<Segment> fSegments; ///< m + 1
  std::vector<KinkState> fLocal;  ///< m + 1: what the measurements of each segment know

  /// m + 1 and m / 2 + 1: what two fronts know that set out together. The first of each pair runs
  /// downstream from segment 0 and is in segment k after k planes, the second runs upstream from
  /// segment m and is in segment m - k.
  std::vector<KinkStates<KinkPair>> fBoth;   ///< what the segment and all behind it know
  std::vector<KinkStates<KinkPair>> fBehind; ///< what all behind it knows; to the middle

  double fChi2Beta = 0;        ///< kinks' part of chi-square
  std::vector<Others> fOthers; ///< n once asked for
  bool fOthersKnown = false;   ///< whether fOthers belongs to the last Solve
};

} // namespace kelvo
