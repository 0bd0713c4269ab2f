#include "run/FitFile.h"

#include "io/FileNames.h"
#include "io/PendingFile.h"
#include "run/FitRun.h"
#include "util/Text.h"

#include <fmt/format.h>
#include <unistd.h>

#include <ctime>
#include <optional>

namespace kelvo {

namespace {

void StopAtProblem(const FittedBlock& block, const std::vector<std::string>& doubts) {
  // The doubts come first, since such tracks often cannot be fitted either.
  if (!doubts.empty()) throw StrictStop(doubts.front());
  for (const TrackOutcome& outcome : block.fOutcomes)
    if (!outcome.fProblems.empty()) throw StrictStop(outcome.fProblems.front());
}

std::string List(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + TomlText(text);
  return "[" + list + "]";
}

/// Returns the options that make the result, in the form of a TOML table.
/// @param chargeScale 0: deposits are not used
std::string DescribeOptions(const FitFileOptions& options, double chargeScale) {
  const TrackFitOptions& used = options.fFit;
  std::string hypotheses;
  for (const int pdg : used.fHypotheses)
    hypotheses += (hypotheses.empty() ? "" : ", ") + std::to_string(pdg);
  std::string text;
  const auto add = [&text](const std::string& name, const std::string& value) {
    text += name + " = " + value + "\n";
  };
  add("hits", List(options.fInputs));
  for (const auto& [name, other] : options.fReader.fColumns) add("column." + name, TomlText(other));
  if (options.fReader.fUnit != kCentimetre.fName) add("unit", TomlText(options.fReader.fUnit));
  if (options.fReader.fSigma > 0) add("sigma", ExactNumber(options.fReader.fSigma));
  if (options.fReader.fSort) add("sort", "true");
  if (!options.fReader.fTree.empty()) add("tree", TomlText(options.fReader.fTree));
  add("hypotheses", "[" + hypotheses + "]");
  add("scattering_factor", ExactNumber(used.fScatteringFactor));
  add("beyond_last_hit", ExactNumber(used.fBeyondLastHit));
  add("beam_momentum", ExactNumber(used.fBeamMomentum));
  add("sig_beam_momentum", ExactNumber(used.fSigBeamMomentum));
  add("with_planes", used.fWithPlanes ? "true" : "false");
  add("end", TomlText(EndModeName(used.fEnd)));
  add("scattering_momentum", used.fScatteringMomentum ? "true" : "false");
  if (used.fRobust != OutlierMode::kKeep) add("robust", TomlText(OutlierModeName(used.fRobust)));
  if (used.fReject > 0) add("reject", ExactNumber(used.fReject));
  if (!used.fExclude.empty()) add("exclude", List(used.fExclude));
  if (!used.fAt.empty()) add("at", List(used.fAt));
  if (chargeScale > 0) {
    add("charge_resolution", ExactNumber(used.fChargeResolution));
    add("charge_scale", ExactNumber(chargeScale));
  }
  std::string fractions;
  for (const double fraction : used.fFractions)
    fractions += (fractions.empty() ? "" : ", ") + ExactNumber(fraction);
  if (!fractions.empty()) add("fractions", "[" + fractions + "]");
  add("first", std::to_string(options.fFirst));
  add("limit", std::to_string(options.fLimit));
  return text;
}

FitWriterOptions WriterOptions(const geo::Detector& detector, const FitFileOptions& options,
                               double chargeScale) {
  FitWriterOptions writing;
  writing.fFormat = options.fFormat;
  writing.fWithVectors = !options.fScalarsOnly;
  writing.fWithPlaces = HasPlaces(options);
  writing.fTexts = {{"options", DescribeOptions(options, chargeScale)},
                    {"detector", detector.Text()},
                    {"version", KELVO_VERSION}};
  if (!options.fCommand.empty()) writing.fTexts["command"] = options.fCommand;
  return writing;
}

/// Returns when and where a run ended, and how long it took, in the form of a TOML table.
std::string DescribeRun(double seconds) {
  char host[256] = "";
  if (::gethostname(host, sizeof host - 1) != 0) host[0] = 0;
  char date[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  if (::gmtime_r(&now, &utc)) std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return fmt::format(FMT_STRING("date = {}\nhost = {}\nseconds = {:.3f}\n"), date, TomlText(host),
                     seconds);
}

} // namespace

FitSummary FitFile(const geo::Detector& detector, const FitFileOptions& options,
                   const GoOn& progress) {
  if (options.fInputs.empty()) throw std::invalid_argument("there is no file of hits");
  CheckApart(options.fInputs, {options.fOutput, options.fCsv, options.fEfficiency});
  HitReaderOptions reading = options.fReader;
  reading.fPlanes = detector.Planes();
  HitReader reader(options.fInputs, reading);
  FitRunOptions running = options;
  running.fFit.fCrossings = !options.fEfficiency.empty();
  if (running.fFit.fCrossings && !detector.Planes())
    throw std::invalid_argument(
        "the detector does not tell its planes, so that they have no efficiencies");
  FitRun run(detector, reader, running);
  PendingFile output(options.fOutput);
  FitWriter fits(output, WriterOptions(detector, options, run.ChargeScale()));
  std::optional<PendingFile> csvOutput;
  std::optional<FitCsvWriter> csv;
  if (!options.fCsv.empty()) csv.emplace(csvOutput.emplace(options.fCsv));
  std::optional<PendingFile> efficiencies;
  if (running.fFit.fCrossings) efficiencies.emplace(options.fEfficiency);

  const auto write = [&](const FittedBlock& block) {
    if (options.fStrict) StopAtProblem(block, run.Doubts());
    fits.Write(block.fRows);
    if (csv) csv->Write(block.fRows);
  };
  if (!run.Fit(
          write, progress ? progress : [](const Progress&) { return true; }))
    throw RunStopped();

  FitSummary summary = run.Summary();
  fits.KeepText("run", DescribeRun(summary.fSeconds));
  fits.Close();
  if (csv) csv->Close();
  if (efficiencies) WriteEfficiencies(*detector.Planes(), run.Efficiencies(), *efficiencies);
  output.Commit();
  if (csvOutput) csvOutput->Commit();
  if (efficiencies) efficiencies->Commit();
  return summary;
}

} // namespace kelvo
