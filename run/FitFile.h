#pragma once

#include "geo/Detector.h"
#include "io/FitWriter.h"
#include "io/HitReader.h"
#include "run/FitRunOptions.h"
#include "run/FitSummary.h"
#include "run/Progress.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo {

/// From files of hits to a file of fitted tracks.
struct FitFileOptions : FitRunOptions {
  std::vector<std::string> fInputs; ///< files of hits, at least one
  HitReaderOptions fReader;
  std::string fOutput;     ///< the ROOT file to be written
  std::string fCsv;        ///< a CSV summary to be written as well; empty: none
  std::string fEfficiency; ///< a CSV table of the planes' efficiencies to be written; empty: none
  std::string fCommand;    ///< what the user typed, to be kept with the fits; empty: nothing
  TableFormat fFormat = DefaultTableFormat();
  /// The first line or track that cannot be used ends the work, and hits that cannot be meant so.
  bool fStrict = false;
};

/// Thrown in a strict run by the first line or track that cannot be used, and by hits that cannot
/// be meant so; what() says which.
class StrictStop : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Fits all tracks of the input files and writes them, in the order of the input and with the same
/// content for any number of threads. Nothing is left of the output unless all went well, and
/// earlier files of its names stay as they were. A limit on the size of files is an error like a
/// full disk where the process ignores SIGXFSZ.
///
/// A plane's offset, given in the detector's file, is added to the hits nearest to that plane
/// before the fit, and the coordinates of hits in the output include it.
///
/// @param progress called after every few tracks; returning false stops the run; may be null
/// @throw FileError             for files that cannot be read or written, as on a full disk
/// @throw std::invalid_argument for options out of range, and for an unknown material
///                              where particles are to stop
/// @throw StrictStop, RunStopped
FitSummary FitFile(const geo::Detector& detector, const FitFileOptions& options,
                   const GoOn& progress = nullptr);

} // namespace kelvo
