#pragma once

#include "geo/Detector.h"
#include "io/FitWriter.h"
#include "io/HitReader.h"
#include "run/FitSummary.h"
#include "track/TrackFit.h"

#include <functional>
#include <string>
#include <vector>

namespace kelvo {

/// From files of hits to a file of fitted tracks.
struct FitFileOptions {
  std::vector<std::string> fInputs; ///< files of hits, at least one
  HitReaderOptions fReader;
  std::string fOutput;  ///< the ROOT file to be written
  std::string fCsv;     ///< a CSV summary to be written as well; empty: none
  std::string fCommand; ///< what the user typed, to be kept with the fits; empty: nothing
  TableFormat fFormat = TableFormat::kTTree;
  bool fScalarsOnly = false; ///< leave out the columns of vectors
  TrackFitOptions fFit;
  unsigned fThreads = 1;         ///< does not change the result
  unsigned long long fLimit = 0; ///< number of tracks after which to stop; 0: all
  bool fStrict = false;          ///< the first line or track that cannot be used ends the work
};

/// How far a run is.
struct FitProgress {
  unsigned long long fTracks = 0;
  double fShare = 0; ///< of the input, 0 to 1
  double fSeconds = 0;
};

/// Thrown in a strict run by the first line or track that cannot be used; what() says which.
class StrictStop : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Thrown where the caller stopped the run.
class RunStopped : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Fits all tracks of the input files and writes them, in the order of the input and with the same
/// content for any number of threads. Nothing is left of the output unless all went well.
///
/// The disk must have 64 MiB to spare, or FileError is thrown. Where the file cannot grow although
/// the disk has room, as with a quota or a limit on the size of files, ROOT throws again while its
/// first exception is on its way, and std::terminate ends the process: a program that has to go on
/// then fits in a process of its own or keeps the fits in memory (FitTable).
///
/// A plane's offset, given in the detector's file, is added to the hits nearest to that plane
/// before the fit, and the coordinates of hits in the output include it.
///
/// @param progress called after every few tracks; returning false stops the run; may be null
/// @throw FileError             for files that cannot be read or written
/// @throw std::invalid_argument for options out of range, and for a material without a
///                              stopping-power table where particles are to stop
/// @throw StrictStop, RunStopped
FitSummary FitFile(const geo::Detector& detector, const FitFileOptions& options,
                   const std::function<bool(const FitProgress&)>& progress = nullptr);

/// Returns the options that make the result, in the form of a TOML table: what is kept in the file.
std::string DescribeOptions(const FitFileOptions& options, const TrackFitOptions& used);

} // namespace kelvo
