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
#include <deque>
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
  /// @throw std::invalid_argument for options out of range, as CheckMaterials does, and where the
  ///        scale of deposits is to be found and cannot be; then what the source throws, too
  FitRun(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options);

  /// Fits block after block, in the order of the source.
  /// @param write gets each block
  /// @param goOn  asked after each block
  /// @return true once all is fitted; false where goOn said so, and the next call continues
  /// @throw whatever source, write and goOn throw
  bool Fit(const std::function<void(const FittedBlock&)>& write, const GoOn& goOn);

  /// Returns what came out up to here.
  FitSummary Summary() const;

  /// Returns the measured deposit per GeV, given or found from the first tracks; 0 where deposits
  /// are not used.
  double ChargeScale() const { return fChargeScale; }

  /// Returns how often planes had a hit where tracks crossed them, up to here; empty unless the
  /// options ask for crossings.
  const PlaneEfficiencies& Efficiencies() const { return fTally.Efficiencies(); }

  /// Returns what cannot be meant by the hits up to here.
  std::vector<std::string> Doubts() const { return fTally.Doubts(); }

  /// Returns which fraction of the hits has been read, 0 to 1.
  double Fraction() const { return fFraction; }

private:
  RowFitter MakeFitter(const geo::Detector& detector, const TrackFitOptions& options);
  bool Next(TrackHits& track);
  bool Read(TrackHits& track);

  HitSource& fHits;
  unsigned long long fLimit;
  unsigned long long fRead = 0;     // tracks
  std::atomic<double> fFraction{0}; // set by whichever thread reads
  std::chrono::steady_clock::time_point fStart = std::chrono::steady_clock::now();
  Progress fProgress;
  FitTally fTally;
  double fChargeScale = 0;
  std::deque<TrackHits> fFirst; // read ahead to find the scale of their deposits
  FittedBlocks fBlocks;
};

} // namespace kelvo
