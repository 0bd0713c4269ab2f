#pragma once

#include "run/Progress.h"
#include "sim/Simulator.h"

#include <string>
#include <vector>

namespace kelvo {

/// A file of simulated tracks that is to be made.
struct SimulationFileOptions {
  SimulationOptions fSimulation;
  unsigned long long fTracks = 1000;
  std::string fOutput;    ///< its end tells the format, see SimulationWriter
  bool fHitTruth = false; ///< whether the truth of every hit is kept
  unsigned fThreads = 1;  ///< does not change the result
};

/// What came out.
struct SimulationSummary {
  unsigned long long fTracks = 0;
  unsigned long long fHits = 0;
  double fMeanT = 0;               ///< mean kinetic energy at the first hit [GeV]
  std::vector<std::string> fFiles; ///< that were written
  double fSeconds = 0;
};

/// Simulates tracks 0 to fTracks - 1 and writes them in this order, with the same content for any
/// number of threads; a CSV file has the same bytes. Nothing is left of the output unless all went
/// well.
/// @param progress called after every few tracks; returning false stops the run; may be null
/// @throw FileError for files that cannot be written
/// @throw std::invalid_argument, std::runtime_error as Simulator does
/// @throw RunStopped
SimulationSummary SimulateFile(const geo::PlaneDetector& detector,
                               const SimulationFileOptions& options,
                               const GoOn& progress = nullptr);

} // namespace kelvo
