#pragma once

#include "geo/Detector.h"
#include "io/HitReader.h"
#include "run/FitRunOptions.h"
#include "run/FitSummary.h"
#include "run/FitTally.h"
#include "run/FittedBlocks.h"
#include "run/Progress.h"

#include <atomic>
#include <chrono>
#include <functional>

namespace kelvo {

/// Checks, before the first track, that each material of a detector is known where particles are to
/// stop.
/// @throw std::invalid_argument, which names those without
void CheckMaterials(const geo::Detector& detector, const TrackFitOptions& options);

/// Fits the tracks of a source, and sums up what came out.
class FitRun {
public:
  /// @param detector, hits must outlive the object
  /// @throw std::invalid_argument for options out of range, and as CheckMaterials does
  FitRun(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options);

  /// Fits block after block, in the order of the source.
  /// @param write gets each block
  /// @param goOn  asked after each block
  /// @return true once all is fitted; false where goOn said so, and the next call continues
  /// @throw whatever source, write and goOn throw
  bool Fit(const std::function<void(const FittedBlock&)>& write, const GoOn& goOn);

  /// Returns what came out up to here.
  FitSummary Summary() const { return fTally.Summary(fProgress.fSeconds); }

  /// Returns what cannot be meant by the hits up to here.
  std::vector<std::string> Doubts() const { return fTally.Doubts(); }

  /// Returns which fraction of the hits has been read, 0 to 1.
  double Fraction() const { return fFraction; }

private:
  bool Next(TrackHits& track);

  HitSource& fHits;
  unsigned long long fLimit;
  unsigned long long fRead = 0;     // tracks
  std::atomic<double> fFraction{0}; // set by whichever thread reads
  std::chrono::steady_clock::time_point fStart = std::chrono::steady_clock::now();
  Progress fProgress;
  FitTally fTally;
  FittedBlocks fBlocks;
};

} // namespace kelvo
