#pragma once

#include "io/FitRow.h"
#include "io/HitReader.h"
#include "run/HitPlanes.h"
#include "run/OrderedWork.h"
#include "run/PlaneEfficiencies.h"
#include "run/RowFitter.h"

#include <functional>
#include <string>
#include <vector>

namespace kelvo {

/// What became of one track; where it is from, for tracks that are told to the user.
struct TrackOutcome {
  FitStatus fStatus = FitStatus::kFitted; ///< of the first hypothesis where none is fitted
  bool fFitted = false;                   ///< under one hypothesis at least
  bool fLeaves = false;                   ///< as one that leaves the detector
  unsigned long long fHits = 0;
  unsigned long long fOutliers = 0; ///< hits that count less than half
  unsigned long long fBadLines = 0;
  std::vector<std::string> fProblems; ///< sentences with file and line; empty for a fitted track
};

/// Consecutive tracks of the input with their fits.
struct FittedBlock {
  std::vector<TrackOutcome> fOutcomes; ///< one per track
  std::vector<FitRow> fRows;           ///< one per track and hypothesis
  PlaneEfficiencies fEfficiencies;     ///< where the fitter looks for crossings
  HitPlaneCounts fHitPlanes;           ///< of all hits, where the fitter knows the planes
};

/// Fits tracks on several threads and gives them back in the order of the input, in blocks.
class FittedBlocks {
public:
  /// @param next    gives the tracks one by one, false at the end; called by one thread at a time
  /// @param fitter  copied for each thread
  /// @param threads how many to use, the calling one included; at least 1
  /// @param withVectors whether the rows have their vectors
  FittedBlocks(std::function<bool(TrackHits&)> next, const RowFitter& fitter, unsigned threads,
               bool withVectors);

  /// Gives the next block.
  /// @return false at the end
  /// @throw whatever next threw, after the tracks before it have been given
  bool Next(FittedBlock& block) { return fWork.Next(block); }

private:
  OrderedWork<std::vector<TrackHits>, FittedBlock> fWork;
};

} // namespace kelvo
