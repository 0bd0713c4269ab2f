#pragma once

#include <functional>
#include <stdexcept>

namespace kelvo {

/// How far a run is.
struct Progress {
  unsigned long long fTracks = 0;
  double fFraction = 0; ///< of the input, 0 to 1
  double fSeconds = 0;
};

/// Called after every few tracks of a run; false stops it.
using GoOn = std::function<bool(const Progress&)>;

/// Thrown where the caller stopped the run.
class RunStopped : public std::runtime_error {
public:
  RunStopped() : std::runtime_error("the run was stopped") {}
};

} // namespace kelvo
