#include "run/ChargeScale.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace kelvo {

namespace {

/// The median of what is measured at the hits, 0 without any.
double MedianCharge(const std::deque<TrackHits>& tracks) {
  std::vector<double> charges;
  for (const TrackHits& track : tracks)
    for (double charge : track.fCharges)
      if (std::isfinite(charge)) charges.push_back(charge);
  if (charges.empty()) return 0;
  const auto middle = charges.begin() + static_cast<std::ptrdiff_t>(charges.size() / 2);
  std::nth_element(charges.begin(), middle, charges.end());
  return *middle;
}

/// Logarithm of the likelihood of the first tracks with a scale.
class ScaleLikelihood {
public:
  ScaleLikelihood(RowFitter& fitter, const std::deque<TrackHits>& tracks)
      : fFitter(fitter), fTracks(tracks) {}

  double operator()(double scale, std::size_t tracks) {
    fFitter.SetChargeScale(scale);
    double sum = 0;
    for (std::size_t i = 0; i < std::min(tracks, fTracks.size()); i++) sum += OfTrack(fTracks[i]);
    return sum;
  }

private:
  /// The likelihood of the best hypothesis over its probability is the sum over all.
  double OfTrack(TrackHits track) {
    if (!track.Good()) return 0;
    const TrackFit& fit = fFitter.Fit(track);
    if (!fit.Fitted()) return 0;
    const HypothesisFit& best = fit.fHypothesis[static_cast<std::size_t>(fit.fBest)];
    if (std::isnan(best.fLogLikelihoodCharge)) return 0;
    const std::vector<double>& fractions = fFitter.Options().fFractions;
    const double fraction = fractions.empty() ? 1 : fractions[static_cast<std::size_t>(fit.fBest)];
    return best.fLogLikelihood + best.fLogLikelihoodCharge +
           std::log(fraction / best.fProbHypothesis);
  }

  RowFitter& fFitter;
  const std::deque<TrackHits>& fTracks;
};

} // namespace

double FitChargeScale(RowFitter fitter, const std::deque<TrackHits>& tracks) {
  // Half of the hits of stopping tracks have more than this times the deposit of a
  // minimum-ionising particle: a first guess, right within a factor of 2 either way.
  constexpr double kUsual = 1.3;
  constexpr double kFar = 0.7, kStep = 0.07; // of the logarithm
  constexpr std::size_t kFew = 50;           // tracks for the first search
  const double median = MedianCharge(tracks);
  if (!(median > 0))
    throw std::invalid_argument(
        "a charge resolution is given, but the first tracks have no deposits above 0; name their "
        "column if it is not q, give the scale, or leave out the resolution");
  ScaleLikelihood likelihood(fitter, tracks);
  const double guess = std::log(median / (kUsual * fitter.MipDeposit()));
  double best = guess, highest = -HUGE_VAL;
  for (double x = guess - kFar; x <= guess + kFar; x += kStep) {
    const double value = likelihood(std::exp(x), kFew);
    if (value > highest) best = x;
    highest = std::max(highest, value);
  }
  // The top of the parabola through three points, twice.
  for (const double step : {kStep / 2, kStep / 7}) {
    const double low = likelihood(std::exp(best - step), tracks.size());
    const double middle = likelihood(std::exp(best), tracks.size());
    const double high = likelihood(std::exp(best + step), tracks.size());
    const double bend = 2 * middle - low - high;
    const double shift = bend > 0 ? (high - low) / (2 * bend) : high > low ? 1 : -1;
    best += step * std::clamp(shift, -1., 1.);
  }
  return std::exp(best);
}

} // namespace kelvo
