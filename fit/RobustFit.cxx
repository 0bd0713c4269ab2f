#include "fit/RobustFit.h"

#include <algorithm>
#include <cmath>

#include "func/KelvoException.h"

namespace kelvo {

namespace {

void Restore(KinkSmoother& fit) {
  for (unsigned int i = 0; i < fit.NMeas(); i++) fit.SetWeightFactor(i, 1);
}

/// Fits and sets the weights for the next fit. Returns the largest change of a weight factor.
double Reweight(KinkSmoother& fit, RobustWeight weight, double threshold) {
  fit.Fit(nullptr, nullptr, nullptr, nullptr);
  if (!fit.Succeeded()) return std::numeric_limits<double>::infinity();
  double change = 0;
  for (unsigned int i = 0; i < fit.NMeas(); i++) {
    const double factor = RobustWeightFactor(weight, fit.Residual(i).fPull, threshold);
    change = std::max(change, std::abs(factor - fit.WeightFactor(i)));
    fit.SetWeightFactor(i, factor);
  }
  return change;
}

} // namespace

double StandardThreshold(RobustWeight weight) {
  switch (weight) {
    case RobustWeight::kHuber:
      return 1.345;
    case RobustWeight::kTukey:
      return 4.685;
    default:
      return 2.385;
  }
}

double RobustWeightFactor(RobustWeight weight, double pull, double threshold) {
  const double u = std::abs(pull) / threshold;
  switch (weight) {
    case RobustWeight::kHuber:
      return u > 1 ? 1 / u : 1;
    case RobustWeight::kTukey:
      return u < 1 ? (1 - u * u) * (1 - u * u) : 0;
    default:
      return 1 / (1 + u * u);
  }
}

RobustResult FitRobustly(KinkSmoother& fit, const RobustOptions& options) {
  if (!(options.fThreshold >= 0))
    throw KelvoException("fit/RobustFit", __LINE__, kIndexProblem, options.fThreshold);
  const double threshold =
      options.fThreshold > 0 ? options.fThreshold : StandardThreshold(options.fWeight);
  Restore(fit);
  RobustResult result{0, false};
  double scale = options.fWeight == RobustWeight::kHuber ? 1 : 8; // Huber's solution is unique
  while (result.fIterations < options.fMaxIterations && !result.fConverged) {
    const double change = Reweight(fit, options.fWeight, scale * threshold);
    result.fIterations++;
    if (!fit.Succeeded()) return result;
    result.fConverged = scale == 1 && change <= options.fTolerance;
    scale = std::max(1.0, scale / 2);
  }
  fit.Fit(nullptr, nullptr, nullptr, nullptr);
  result.fIterations++;
  return result;
}

unsigned int RejectOutliers(KinkSmoother& fit, double maxPull, unsigned int maxRejected) {
  Restore(fit);
  unsigned int rejected = 0;
  for (;; rejected++) {
    fit.Fit(nullptr, nullptr, nullptr, nullptr);
    if (!fit.Succeeded() || rejected >= maxRejected) return rejected;
    unsigned int worst = 0;
    double worstPull = 0;
    for (unsigned int i = 0; i < fit.NMeas(); i++) {
      const KinkResidual residual = fit.Residual(i);
      const double pull = std::abs(residual.fPull);
      if (residual.fLeverage == 0 || pull <= worstPull) continue;
      worst = i;
      worstPull = pull;
    }
    if (!(worstPull > maxPull)) return rejected;
    fit.SetWeightFactor(worst, 0);
  }
}

} // namespace kelvo
