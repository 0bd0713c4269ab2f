#pragma once

#include "io/HitReader.h"
#include "run/RowFitter.h"

#include <deque>

namespace kelvo {

/// Number of tracks that the scale of deposits is found from.
constexpr unsigned kTracksForScale = 500;

/// Returns the measured deposit per GeV with which tracks are most likely, where each may be any
/// hypothesis: sum over the tracks of ln sum over hypotheses of fraction times likelihood.
/// @param fitter uses deposits
/// @param tracks are not changed; those that cannot be fitted do not count
/// @throw std::invalid_argument where no track has deposits above 0
double FitChargeScale(RowFitter fitter, const std::deque<TrackHits>& tracks);

} // namespace kelvo
