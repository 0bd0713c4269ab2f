#include "run/FitFile.h"

#include "io/PendingFile.h"
#include "run/FitTally.h"
#include "run/FittedBlocks.h"
#include "run/TracksToFit.h"
#include "util/Text.h"

#include <TROOT.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

namespace kelvo {

namespace {

class Clock {
public:
  double Seconds() const {
    const auto time = std::chrono::steady_clock::now() - fStart;
    return std::chrono::duration<double>(time).count();
  }

private:
  std::chrono::steady_clock::time_point fStart = std::chrono::steady_clock::now();
};

bool SameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  const auto path = [&error](const std::string& name) {
    return std::filesystem::weakly_canonical(name, error);
  };
  return path(a) == path(b);
}

void CheckNames(const FitFileOptions& options) {
  if (options.fInputs.empty()) throw std::invalid_argument("there is no file of hits");
  for (const std::string& output : {options.fOutput, options.fCsv})
    for (const std::string& input : options.fInputs)
      if (!output.empty() && SameFile(input, output))
        throw std::invalid_argument(output + " is both input and output");
  if (!options.fCsv.empty() && SameFile(options.fOutput, options.fCsv))
    throw std::invalid_argument(options.fCsv + " is named twice as output");
}

void StopIfStrict(const FittedBlock& block) {
  for (const TrackOutcome& outcome : block.fOutcomes)
    if (!outcome.fProblems.empty()) throw StrictStop(outcome.fProblems.front());
}

std::string List(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + TomlText(text);
  return "[" + list + "]";
}

} // namespace

std::string DescribeOptions(const FitFileOptions& options, const TrackFitOptions& used) {
  std::string hypotheses;
  for (const int pdg : used.fHypotheses)
    hypotheses += (hypotheses.empty() ? "" : ", ") + std::to_string(pdg);
  std::string text;
  const auto add = [&text](const std::string& name, const std::string& value) {
    text += name + " = " + value + "\n";
  };
  add("hits", List(options.fInputs));
  for (const auto& [name, other] : options.fReader.fColumns) add("column." + name, TomlText(other));
  if (!options.fReader.fTree.empty()) add("tree", TomlText(options.fReader.fTree));
  add("hypotheses", "[" + hypotheses + "]");
  add("max_ds", ExactNumber(used.fMaxDs));
  add("max_dx0", ExactNumber(used.fMaxDX0));
  add("max_dt", ExactNumber(used.fMaxDT));
  add("scattering_factor", ExactNumber(used.fScatteringFactor));
  add("beyond_last_hit", ExactNumber(used.fBeyondLastHit));
  add("beam_momentum", ExactNumber(used.fBeamMomentum));
  add("solver", used.fSolver == Solver::kDense ? "\"dense\"" : "\"linear\"");
  add("limit", std::to_string(options.fLimit));
  return text;
}

FitSummary FitFile(const geo::Detector& detector, const FitFileOptions& options,
                   const std::function<bool(const FitProgress&)>& progress) {
  const Clock clock;
  CheckNames(options);
  CheckMaterials(detector, options.fFit);
  const TrackFitter fitter(detector.Geometry(), options.fFit);
  HitReader reader(options.fInputs, options.fReader);
  PendingFile output(options.fOutput);
  std::optional<PendingFile> csvOutput;
  std::unique_ptr<FitCsvWriter> csv;
  if (!options.fCsv.empty()) {
    csvOutput.emplace(options.fCsv);
    csv = std::make_unique<FitCsvWriter>(*csvOutput);
  }

  // One thread may read a ROOT file while another writes one.
  ROOT::EnableThreadSafety();
  TracksToFit tracks(detector, reader, options.fLimit);
  FittedBlocks blocks([&](TrackHits& track) { return tracks.Next(track); }, fitter,
                      std::max(1u, options.fThreads), !options.fScalarsOnly);

  FitTally tally(options.fFit.fHypotheses);
  const auto nextRows = [&](std::vector<FitRow>& rows) {
    FittedBlock block;
    if (!blocks.Next(block)) return false;
    if (options.fStrict) StopIfStrict(block);
    tally.Add(block);
    if (csv) csv->Write(block.fRows);
    if (progress && !progress({tally.Tracks(), tracks.Share(), clock.Seconds()}))
      throw RunStopped("the run was stopped");
    rows = std::move(block.fRows);
    return true;
  };

  FitWriterOptions writing;
  writing.fFormat = options.fFormat;
  writing.fWithVectors = !options.fScalarsOnly;
  writing.fTexts = {{"options", DescribeOptions(options, fitter.Options())},
                    {"detector", detector.Text()},
                    {"version", KELVO_VERSION}};
  if (!options.fCommand.empty()) writing.fTexts["command"] = options.fCommand;
  WriteFits(output, nextRows, writing);
  if (csv) csv->Close();
  output.Commit();
  if (csvOutput) csvOutput->Commit();
  return tally.Summary(clock.Seconds());
}

} // namespace kelvo
