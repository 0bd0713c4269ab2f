#include "app/Command.h"
#include "app/CommandParts.h"
#include "run/FitMerge.h"

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

struct MergeArguments {
  FitMergeOptions fMerge;
  std::string fFormat = DefaultTableFormat() == TableFormat::kRNTuple ? "rntuple" : "ttree";
};

int Run(MergeArguments& a) {
  a.fMerge.fFormat = a.fFormat == "ttree" ? TableFormat::kTTree : TableFormat::kRNTuple;
  return RunWithProgress([&](ProgressLine& line) {
    const FitMergeSummary summary = MergeFits(a.fMerge, [&](const Progress& progress) {
      line.Show(progress);
      return CaughtSignal() == 0;
    });
    line.Clear();
    std::printf("  %-36s %10zu\n", "files joined", a.fMerge.fParts.size());
    std::printf("  %-36s %10llu\n", "tracks", summary.fTracks);
    if (summary.fMayLackTracks)
      std::printf("  the last part ends at its --limit: there may be more tracks behind it\n");
    std::printf("  written: %s\n", a.fMerge.fOutput.c_str());
    return 0;
  });
}

} // namespace

Command MakeMergeCommand(CLI::App& program, const std::string& commandLine) {
  CLI::App* merge =
      program.add_subcommand("merge", "Joins files of fits of parts of the tracks to one.");
  merge->footer(kExamples);
  auto arguments = std::make_shared<MergeArguments>();
  arguments->fMerge.fCommand = commandLine;
  merge->add_option("fits", arguments->fMerge.fParts, "Files of fits, from kelvo fit")
      ->required()
      ->type_name("FILE");
  merge->add_option("-o,--output", arguments->fMerge.fOutput, "ROOT file to be written")
      ->required()
      ->check(EndsIn({".root"}))
      ->type_name("FILE");
  merge
      ->add_option("--format", arguments->fFormat,
                   "Table in the ROOT file: rntuple (ROOT 6.36 or newer) or ttree")
      ->check(OneOf({"rntuple", "ttree"}))
      ->type_name("NAME")
      ->capture_default_str();
  return {merge, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
