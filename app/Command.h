#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace kelvo::app {

/// Exit status beside 0, which says that all is well.
constexpr int kSomeUnusable = 1; ///< some of the input could not be used
constexpr int kUsageOrFiles = 2; ///< wrong usage, or files that cannot be read or written

/// A subcommand of kelvo. Its options are registered when it is made; its work is done by fRun,
/// which returns the exit status. What stops the work is thrown; main() tells it and ends with
/// kUsageOrFiles.
struct Command {
  CLI::App* fOptions;
  std::function<int()> fRun;
};

/// One function per subcommand; each adds its options to the program's.
/// @param commandLine is kept with the fits
Command MakeFitCommand(CLI::App& program, const std::string& commandLine);
Command MakeMergeCommand(CLI::App& program, const std::string& commandLine);
Command MakeSimulateCommand(CLI::App& program);
Command MakeDetectorCommand(CLI::App& program);
Command MakeDisplayCommand(CLI::App& program);
Command MakeDedxCommand(CLI::App& program);
Command MakeMaterialsCommand(CLI::App& program);
Command MakeReportCommand(CLI::App& program);
/// These two tell about all commands, and are made behind them.
Command MakeHelpCommand(CLI::App& program);
Command MakeCompletionCommand(CLI::App& program);

} // namespace kelvo::app
