#pragma once

#include "run/FitSummary.h"
#include "run/FittedBlocks.h"
#include "util/LogHistogram.h"

#include <vector>

namespace kelvo {

/// Collects what a run is summed up with; its size does not depend on the number of tracks.
class FitTally {
public:
  explicit FitTally(const std::vector<int>& hypotheses);

  void Add(const FittedBlock& block);

  /// Returns what cannot be meant by the hits up to here, as HitPlaneCounts says.
  std::vector<std::string> Doubts() const { return fHitPlanes.Doubts(); }

  /// Returns how often planes had a hit where tracks crossed them.
  const PlaneEfficiencies& Efficiencies() const { return fEfficiencies; }

  unsigned long long Tracks() const { return fSummary.fTracks; }

  /// @param seconds how long the run took
  FitSummary Summary(double seconds) const;

private:
  void AddOutcome(const TrackOutcome& outcome);
  void AddRow(const FitRow& row, std::size_t h);

  FitSummary fSummary;
  HitPlaneCounts fHitPlanes;
  PlaneEfficiencies fEfficiencies;
  std::vector<LogHistogram> fChi2; // per degree of freedom, by hypothesis
};

} // namespace kelvo
