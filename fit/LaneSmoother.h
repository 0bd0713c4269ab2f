#pragma once

#include "fit/LineState.h"

#include <array>
#include <cstddef>
#include <vector>

namespace kelvo {

/// A measurement of one of two views, the same in all lanes.
struct LaneMeasurement {
  std::size_t fView; ///< 0 or 1
  double fZ, fU;     ///< where, and what [cm]
  double fVariance;  ///< [cm^2]
};

/// A fitted line at one z.
struct LanePoint {
  Lanes fX{};         ///< [cm]
  Lanes fSlope{};     ///< dx/dz
  Lanes fVarX{};      ///< [cm^2]
  Lanes fCovXSlope{}; ///< [cm]
  Lanes fVarSlope{};
};

/// A thin plane that scatters.
struct LanePlane {
  double fZ;       ///< [cm]
  Lanes fVariance; ///< of the change of slope
};

/// The fit of a thin plane.
struct LaneKink {
  Lanes fKink; ///< change of slope
  Lanes fVarKink;
  Lanes fX; ///< position [cm]
};

/// The fit of KinkSmoother for both views of a track under several hypotheses at once, which differ
/// in how much the track scatters: one lane each, all calculated side by side. Between any two
/// neighbouring measurements, of whichever views, what scatters is crossed at once. Each view is
/// filtered downstream and upstream, and both together give the smoothed line at each measurement.
/// Nothing is allocated once the object has seen as many.
class LaneSmoother {
public:
  /// The noise of each view between a measurement and the next one.
  using Noise = std::array<LineNoise, 2>;

  /// Fits; a view without solution has a log-likelihood that is not finite.
  /// @param measurements by ascending z, at least one of each view
  /// @param noise        between them, one less
  /// @param withPlanes   whether FitPlanes or Without will be called
  void Fit(const std::vector<LaneMeasurement>& measurements, const std::vector<Noise>& noise,
           bool withPlanes);

  /// Returns the line of a view at the place of measurement i, of whichever view.
  const LanePoint& At(std::size_t view, std::size_t i) const { return fPoints[i][view]; }

  /// Returns chi-square of a view, of its measurements and of its kinks.
  const Lanes& Chi2(std::size_t view) const { return fChi2[view]; }
  const Lanes& Chi2Kink(std::size_t view) const { return fChi2Kink[view]; }

  /// As KinkSmoother::LogLikelihood.
  const Lanes& LogLikelihood(std::size_t view) const { return fLogLikelihood[view]; }

  /// Fits the planes of a view between measurements i and i + 1.
  /// @param planes n by ascending z; together they are the noise there
  /// @param kinks  receives n
  void FitPlanes(std::size_t view, std::size_t i, const LanePlane* planes, std::size_t n,
                 LaneKink* kinks) const;

  /// Returns the line of a view at any z as all measurements give it but some that follow each
  /// other, of whichever views; NaN where they fix no line. Time grows as n.
  /// @param first,end those that are left out: from first up to the one before end; none if equal.
  ///                  All before first are at or before z, all from end on at or behind it.
  /// @param planes    n by ascending z, between the last measurement before and the first behind
  LanePoint Without(std::size_t view, double z, std::size_t first, std::size_t end,
                    const LanePlane* planes, std::size_t n) const;

private:
  void Filter(const std::vector<LaneMeasurement>& measurements, const std::vector<Noise>& noise);
  void Smooth(const std::vector<LaneMeasurement>& measurements, const std::vector<Noise>& noise,
              bool withPlanes);

  std::vector<std::array<LineState, 2>> fUpstream;   // known at a measurement from all up to it
  std::vector<std::array<LineState, 2>> fDownstream; // from all from it on; only for planes
  std::vector<std::array<LanePoint, 2>> fPoints;
  std::size_t fN = 0; // measurements
  std::array<Lanes, 2> fChi2{}, fChi2Kink{}, fLogLikelihood{};
};

} // namespace kelvo
