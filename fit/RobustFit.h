#pragma once

#include <limits>

#include "fit/KinkSmoother.h"

namespace kelvo {

/// For programs that load a KinkSmoother themselves and whose measurements may be wrong, such as
/// hits of noise or of another track. TrackFitter has the same for whole tracks (OutlierMode).

/// How strongly a robust fit holds a measurement of a large pull u against threshold c.
enum class RobustWeight {
  kHuber, ///< 1 up to c, then c / |u|: an outlier keeps pulling with the force of one at c
  kTukey, ///< (1 - (u/c)^2)^2 up to c, then 0: an outlier is gone
  kCauchy ///< 1 / (1 + (u/c)^2): an outlier's force fades
};

/// Returns the threshold at which a fit of good Gaussian measurements keeps 95% of its efficiency:
/// 1.345, 4.685 and 2.385 (P. J. Huber, Robust Statistics (1981); P. W. Holland, R. E. Welsch,
/// Commun. Statist. A 6 (1977) 813).
double StandardThreshold(RobustWeight weight);

/// Returns the weight factor, 0 to 1, of a measurement with this pull.
double RobustWeightFactor(RobustWeight weight, double pull, double threshold);

/// What a robust fit is asked to do.
struct RobustOptions {
  RobustWeight fWeight = RobustWeight::kTukey; ///< the weight function
  double fThreshold = 0;    ///< its threshold, in standard deviations; 0 takes the standard one
  double fTolerance = 1e-3; ///< the largest change of a weight factor that counts as none
  int fMaxIterations = 100; ///< the largest number of fits
};

/// How a robust fit went.
struct RobustResult {
  int fIterations; ///< number of fits
  bool fConverged; ///< whether the last fit changed no weight factor by more than the tolerance
};

/// Fits a loaded problem again and again, each time with weights from the unbiased pulls of the
/// fit before (iteratively reweighted least squares), until they stay. Tukey and Cauchy begin with
/// 8, 4 and 2 times the threshold, so that one outlier does not hide another or drag good
/// measurements out. The pull is the measurement's own, without its influence on the fit, so the
/// thresholds hold on a track that bends easily too. Results are read from fit, factors with
/// WeightFactor; the covariance is that of the final weights.
/// Weights may leave too little for a track; fit.Status() then says so and nothing has converged.
/// Throws kIndexProblem (value: the threshold) for a threshold below 0 or NaN. Each iteration takes
/// time that grows as n + m.
RobustResult FitRobustly(KinkSmoother& fit, const RobustOptions& options = {});

/// Fits a loaded problem, then takes out the measurement with the largest unbiased pull and fits
/// again as long as that pull is above maxPull. Returns the number of measurements taken out; they
/// have WeightFactor 0. A measurement that the track cannot do without is never taken out. Each one
/// costs a fit, in time that grows as n + m.
/// @param maxPull     the largest pull that stays, in standard deviations
/// @param maxRejected the largest number of measurements to take out
unsigned int RejectOutliers(KinkSmoother& fit, double maxPull = 4,
                            unsigned int maxRejected = std::numeric_limits<unsigned int>::max());

} // namespace kelvo
