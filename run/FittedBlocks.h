#pragma once

#include "io/FitRow.h"
#include "io/HitReader.h"
#include "track/TrackFitter.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kelvo {

/// What became of one track; where it is from, for tracks that are told to the user.
struct TrackOutcome {
  FitStatus fStatus = FitStatus::kFitted; ///< of the best hypothesis, else of the first
  int fBestPDG = 0;                       ///< 0: no hypothesis fitted
  unsigned long long fHits = 0;
  unsigned long long fBadLines = 0;
  std::vector<std::string> fProblems; ///< sentences with file and line; empty for a fitted track
};

/// Consecutive tracks of the input with their fits.
struct FittedBlock {
  std::vector<TrackOutcome> fOutcomes; ///< one per track
  std::vector<FitRow> fRows;           ///< one per track and hypothesis
};

/// Fits tracks on several threads and gives them back in the order of the input.
///
/// Blocks of tracks are read, fitted and made into rows by whichever thread is free; the thread
/// that calls Next() does its share while it waits. At most a few blocks per thread are ready
/// ahead, so the memory does not depend on the number of tracks.
class FittedBlocks {
public:
  /// @param next    gives the tracks one by one, false at the end; called by one thread at a time
  /// @param fitter  copied for each thread
  /// @param threads how many to use, the calling one included; at least 1
  /// @param withVectors whether the rows have their vectors
  FittedBlocks(std::function<bool(TrackHits&)> next, const TrackFitter& fitter, unsigned threads,
               bool withVectors);
  /// Waits for the blocks that are being fitted.
  ~FittedBlocks();
  FittedBlocks(const FittedBlocks&) = delete;
  FittedBlocks& operator=(const FittedBlocks&) = delete;

  /// Gives the next block.
  /// @return false at the end
  /// @throw whatever next threw, after the tracks before it have been given
  bool Next(FittedBlock& block);

private:
  bool FitOne(TrackFitter& fitter);
  void Work(TrackFitter& fitter);
  FittedBlock Fit(const std::vector<TrackHits>& tracks, TrackFitter& fitter) const;
  std::vector<TrackHits> Read(unsigned long long& index);

  std::function<bool(TrackHits&)> fNext;
  TrackFitter fFitter;
  bool fWithVectors;
  unsigned long long fMostAhead; // blocks that may be ready or in work

  std::mutex fReading; // held while tracks are read; taken before fMutex
  std::mutex fMutex;   // guards what follows
  std::condition_variable fChanged;
  unsigned long long fRead = 0;  // blocks begun
  unsigned long long fGiven = 0; // blocks given to the caller
  bool fAtEnd = false;           // nothing more to read
  bool fStop = false;
  std::exception_ptr fError; // of reading
  std::map<unsigned long long, FittedBlock> fReady;

  std::vector<std::thread> fThreads;
};

} // namespace kelvo
