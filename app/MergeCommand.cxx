#include "app/Command.h"
#include "app/CommandParts.h"
#include "run/FitMerge.h"
#include "util/Text.h"

#include <cstdio>
#include <memory>
#include <string>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Example: two jobs and what they made in one file
  kelvo fit hits.root -d fine -o a.root --limit 1000
  kelvo fit hits.root -d fine -o b.root --first 1000
  kelvo merge a.root b.root -o fits.root
The parts may be given in any order. They must be made alike, and no track may be missing or in two
of them.)";

int Run(const FitMergeOptions& options) {
  return RunWithProgress([&](ProgressLine& line) {
    const FitMergeSummary summary = MergeFits(options, [&](const Progress& progress) {
      line.Show(progress);
      return CaughtSignal() == 0;
    });
    line.Clear();
    std::printf("  %-36s %10zu\n", "files joined", options.fParts.size());
    std::printf("  %-36s %10llu\n", "tracks", summary.fTracks);
    if (summary.fMayLackTracks)
      std::printf("  the last part ends at its --limit: there may be more tracks behind it\n");
    std::printf("  written: %s\n", Printable(options.fOutput).c_str());
    return 0;
  });
}

} // namespace

Command MakeMergeCommand(CLI::App& program, const std::string& commandLine) {
  CLI::App* merge =
      program.add_subcommand("merge", "Joins files of fits of parts of the tracks to one.");
  merge->footer(kExamples);
  auto options = std::make_shared<FitMergeOptions>();
  options->fCommand = commandLine;
  merge->add_option("fits", options->fParts, "Files of fits, from kelvo fit")
      ->required()
      ->type_name("FILE");
  merge->add_option("-o,--output", options->fOutput, "ROOT file to be written")
      ->required()
      ->check(EndsIn({".root"}))
      ->type_name("FILE");
  AddTableFormat(*merge, options->fFormat);
  return {merge, [options] { return Run(*options); }};
}

} // namespace kelvo::app
