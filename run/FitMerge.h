#pragma once

#include "io/FitWriter.h"
#include "run/Progress.h"

#include <string>
#include <vector>

namespace kelvo {

/// Files of fits, each of a part of the tracks of the same files of hits, that are to become one.
struct FitMergeOptions {
  std::vector<std::string> fParts; ///< in any order, at least one
  std::string fOutput;             ///< the ROOT file to be written
  std::string fCommand;            ///< what the user typed, to be kept with the fits
  TableFormat fFormat = DefaultTableFormat();
};

/// What came out.
struct FitMergeSummary {
  unsigned long long fTracks = 0;
  bool fMayLackTracks = false; ///< the last part ends at its limit: there may be more behind it
};

/// Joins parts of the tracks, as FitRunOptions::fFirst and fLimit make them, to the file that a
/// single run would have made. Nothing is left of the output unless all went well.
/// @throw FileError where a part cannot be read, was made with other options, another detector or
///        another version, or has other columns; where tracks are missing before or between the
///        parts, or are in two of them; where the output cannot be written
/// @throw RunStopped
FitMergeSummary MergeFits(const FitMergeOptions& options, const GoOn& progress = nullptr);

} // namespace kelvo
