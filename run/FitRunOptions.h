#pragma once

#include "track/TrackFit.h"

namespace kelvo {

/// What files and tables of fits have in common.
struct FitRunOptions {
  TrackFitOptions fFit;
  bool fScalarsOnly = false;     ///< leave out the columns of vectors
  unsigned fThreads = 1;         ///< does not change the result
  unsigned long long fFirst = 0; ///< number of tracks at the beginning that are left out
  unsigned long long fLimit = 0; ///< number of tracks after which to stop; 0: all
};

/// Whether a table has columns of places.
inline bool HasPlaces(const FitRunOptions& options) {
  return !options.fScalarsOnly && !options.fFit.fAt.empty();
}

} // namespace kelvo
