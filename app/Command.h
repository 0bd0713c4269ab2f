#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace kelvo::app {

/// A subcommand of kelvo. Its options are registered when it is made, its work is done by fRun,
/// which returns the exit status: 0 all is well, 1 some of the input could not be used. What stops
/// the work is thrown; main() tells it and ends with status 2.
struct Command {
  CLI::App* fOptions;
  std::function<int()> fRun;
};

/// One function per subcommand; each adds its options to the program's.
Command MakeFitCommand(CLI::App& program);
Command MakeDetectorCommand(CLI::App& program);

} // namespace kelvo::app
