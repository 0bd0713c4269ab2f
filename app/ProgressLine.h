#pragma once

#include "run/FitFile.h"

namespace kelvo::app {

/// Tells on the standard error stream how far a run is: a bar that is drawn again and again on a
/// terminal, a line every ten seconds in a log.
class ProgressLine {
public:
  ProgressLine();
  /// Call it often: it decides when to write.
  void Show(const Progress& progress);
  /// Removes the bar from the terminal.
  void Clear();

private:
  bool fTerminal;
  double fNext; // when to write again [s]
  bool fDrawn = false;
};

/// Returns a time for people, such as "2 min 5 s".
std::string TimeText(double seconds);

} // namespace kelvo::app
