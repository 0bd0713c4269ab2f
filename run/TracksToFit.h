#pragma once

#include "geo/Detector.h"
#include "io/HitReader.h"
#include "track/TrackFit.h"

#include <atomic>

namespace kelvo {

/// Checks, before the first track, that each known material of a detector has a stopping-power
/// table where particles are to stop.
/// @throw std::invalid_argument, which names those without
void CheckMaterials(const geo::Detector& detector, const TrackFitOptions& options);

/// The tracks of a source that are to be fitted: as many as asked for, with the offsets of the
/// detector's planes added to their hits.
class TracksToFit {
public:
  /// @param detector, source must outlive the object
  /// @param limit    number of tracks after which to stop; 0: all
  TracksToFit(const geo::Detector& detector, HitSource& source, unsigned long long limit)
      : fDetector(detector), fSource(source), fLimit(limit) {}

  /// Gives the next track. @return false at the end. @throw whatever the source throws
  bool Next(TrackHits& track);

  /// Returns which share of them has been given, 0 to 1. Any thread may ask.
  double Share() const { return fShare; }

private:
  const geo::Detector& fDetector;
  HitSource& fSource;
  unsigned long long fLimit;
  unsigned long long fGiven = 0;
  std::atomic<double> fShare{0};
};

} // namespace kelvo
