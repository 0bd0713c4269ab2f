#pragma once

#include <memory>
#include <streambuf>

namespace kelvo::app {

/// Keeps what libraries print on the standard error stream off the screen while it exists, and the
/// program's own words, those of std::cerr, on it. When it goes, the first line of the others is
/// told. A fault in a library, as ROOT has them with damaged files, becomes one sentence and the
/// end with kUsageOrFiles, in place of ROOT's pages.
///
/// A stream that the program was given closed stays so: no file that is opened later takes its
/// place, to which the program would then print.
///
/// There is one at a time, from the beginning of the program. Under the sanitizers, which report
/// through the same stream, it leaves all as it is.
class StandardStreams {
public:
  StandardStreams();
  ~StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;

  /// Whether the program's own words go to a terminal.
  static bool IsTerminal();

private:
  void TellOthers() const;

  std::unique_ptr<std::streambuf> fOwn;
  std::streambuf* fBefore = nullptr; // of std::cerr
};

} // namespace kelvo::app
