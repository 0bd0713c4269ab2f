#include "app/Command.h"
#include "app/CommandParts.h"
#include "draw/Report.h"
#include "io/FileError.h"
#include "io/FileNames.h"
#include "io/FitReader.h"
#include "io/PendingFile.h"
#include "run/FitFile.h"
#include "util/AllowedThreads.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>
#include <limits>
#include <memory>
#include <stdexcept>

namespace kelvo::app {

namespace {

constexpr double kTiny = std::numeric_limits<double>::min();

const char* const kExamples = R"(
Examples:
  kelvo fit hits.csv.gz --detector detectors/fine.toml -o fits.root
      fits all tracks as muon, pion and proton
  kelvo fit hits.csv.gz --detector detectors/fine.toml -o fits.root --report fits.html
      and makes a page with plots, to be opened in a browser
  kelvo fit run1.csv run2.csv --detector detectors/range.toml -o fits.root --hypothesis mu,p --csv fits.csv
      two files, two hypotheses, and a summary as CSV
  kelvo fit cosmics.csv --detector detectors/fine.toml -o fits.root --hypothesis mu --end leaves
      muons that all leave the detector: their momentum is that from scattering
  kelvo fit beam.csv --detector detectors/telescope.toml -o fits.root --hypothesis pi --beam-momentum 120
      --column track=event --column sigx=sigma_x --column sigy=sigma_y
      a beam of 120 GeV/c pions, in a file with column names of its own
  kelvo fit hits.csv.gz --detector detectors/fine.toml -o fits.root --robust tukey
      some hits are of noise or of other particles
  kelvo fit beam.csv -d telescope -o fits.root --beam-momentum 120 --exclude 1 --at 1 --efficiency planes.csv
      plane 1 is a device under test: its hits beside the track of the others, and its efficiency
  kelvo fit hits.csv.gz --detector detectors/fine.toml -o fits.root --charge-resolution 0.2
      --fractions mu=0.8,pi=0.1,p=0.1
      hits with a column q, the deposit in each cell in any unit, measured to 20 %

Hits come as CSV (plain or gzip), one hit a line, with columns track,view,u,z,sigu (lengths in cm or --unit,
view X or Y; optional: sigz,t,sigt,w,q), or x,y,sigx,sigy in place of view,u,sigu; or as a ROOT file
with a TTree or RNTuple of these names, one entry a track.
The output has one entry per track and hypothesis in the table "fits", in the order of the input.
Exit status: 0 all input was used, 1 some lines or tracks could not be used or the hits cannot be of
this detector, 2 wrong usage or files.)";

struct FitArguments {
  FitFileOptions fFile;
  std::string fDetector;
  std::string fReport;                  // a page to be written as well; empty: none
  std::vector<std::string> fHypotheses; // empty: what is usual
  std::string fEnd = "auto";
  std::string fRobust = "keep";
  bool fNoScatteringMomentum = false;
  std::vector<std::string> fColumns;
  std::vector<std::string> fFractions;
};

std::pair<std::string, std::string> Mapping(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
    throw std::invalid_argument("--column: \"" + text +
                                "\" is not of the form NAME=OTHER, such as track=event");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

void RegisterRun(CLI::App& fit, FitArguments& a) {
  fit.add_option("hits", a.fFile.fInputs, "Files of hits")->required()->type_name("FILE");
  fit.add_option(
         "-d,--detector", a.fDetector,
         "The detector: a TOML file, a geometry of ROOT's in a .gdml or .root file, or the name "
         "of an installed one (fine)")
      ->required()
      ->type_name("FILE");
  fit.add_option("-o,--output", a.fFile.fOutput, "ROOT file to be written")
      ->required()
      ->check(EndsIn({".root"}))
      ->type_name("FILE");
  fit.add_option("--csv", a.fFile.fCsv, "Write the columns of one number also as CSV")
      ->check(EndsIn({".csv"}))
      ->type_name("FILE");
  fit.add_option("--efficiency", a.fFile.fEfficiency,
                 "Write how often each plane has a hit where tracks cross it (CSV)")
      ->check(EndsIn({".csv"}))
      ->type_name("FILE");
  fit.add_option("--report", a.fReport, "Write a page with plots (HTML) as well")
      ->check(EndsIn({".html", ".htm"}))
      ->type_name("FILE");
  fit.add_option("--hypothesis", a.fHypotheses,
                 "Particles to fit the tracks as: mu, pi, p (default: all; of a beam mu)")
      ->delimiter(',')
      ->check(OneOf(ParticleNames()))
      ->type_name("LIST");
  fit.add_option("--threads", a.fFile.fThreads, "Threads to use; the result does not depend on it")
      ->check(WholeNumberWithin(1, 1024))
      ->capture_default_str();
  fit.add_option("--first", a.fFile.fFirst,
                 "Leave out so many tracks at the beginning; with --limit a part of the work, and "
                 "'kelvo merge' joins the parts")
      ->check(WholeNumberWithin(0, std::numeric_limits<std::uint64_t>::max()));
  fit.add_option("--limit", a.fFile.fLimit, "Stop after so many tracks (0: fit all)")
      ->check(WholeNumberWithin(0, std::numeric_limits<std::uint64_t>::max()));
  fit.add_flag("--strict", a.fFile.fStrict,
               "End the run at the first line or track that cannot be used, and for hits that "
               "cannot be of the detector");
}

void RegisterOutput(CLI::App& fit, FitArguments& a) {
  const char* group = "What is written";
  AddTableFormat(fit, a.fFile.fFormat)->group(group);
  CLI::Option* scalars =
      fit.add_flag("--scalars", a.fFile.fScalarsOnly,
                   "Only columns of one number: no hits, planes, kinks or covariance")
          ->group(group);
  fit.add_flag("--planes", a.fFile.fFit.fWithPlanes,
               "Also fill the columns of the scattering planes: points, widths, kinks")
      ->excludes(scalars)
      ->group(group);
  fit.add_option("--at", a.fFile.fFit.fAt,
                 "Also write the track, with and without the hits there, at this plane, by number "
                 "from 0 or name, or at this place: z=12.5 (cm); may be repeated")
      ->type_name("PLANE|z=Z")
      ->excludes(scalars)
      ->group(group);
}

void RegisterInput(CLI::App& fit, FitArguments& a) {
  const char* group = "What is read";
  fit.add_option("--column", a.fColumns, "A column has another name in the files: sigu=error")
      ->type_name("NAME=OTHER")
      ->group(group);
  fit.add_option("--unit", a.fFile.fReader.fUnit, "Unit of the lengths in the files")
      ->check(OneOf({"cm", "mm", "m", "um"}))
      ->type_name("UNIT")
      ->capture_default_str()
      ->group(group);
  fit.add_option("--sigma", a.fFile.fReader.fSigma,
                 "Uncertainty of u, x and y in files that have none (default: the detector's "
                 "resolution)")
      ->check(NumberWithin(kTiny, 1e6, "above 0 and at most 1000000"))
      ->group(group);
  fit.add_flag("--sort", a.fFile.fReader.fSort,
               "The lines of text files come in any order; a file's hits are held in memory")
      ->group(group);
  fit.add_option("--tree", a.fFile.fReader.fTree,
                 "Table of hits in ROOT files (default: hits, or the only one)")
      ->type_name("NAME")
      ->group(group);
}

void RegisterModel(CLI::App& fit, FitArguments& a) {
  TrackFitOptions& f = a.fFile.fFit;
  const char* group = "The fit";
  fit.add_option("--scattering-factor", f.fScatteringFactor,
                 "Factor on the widths of the scattering angles")
      ->check(NumberWithin(kTiny, 100, "above 0 and at most 100"))
      ->capture_default_str()
      ->group(group);
  fit.add_option(
         "--beyond-last-hit", f.fBeyondLastHit,
         "End of a stopping track behind its last hit: fraction of the energy loss up to its next")
      ->check(NumberWithin(0, 100, "from 0 to 100"))
      ->capture_default_str()
      ->group(group);
  fit.add_option("--charge-resolution", f.fChargeResolution,
                 "The hits have deposits (column q), whose relative standard deviation is this for "
                 "a minimum-ionising particle that crosses a plane at right angles")
      ->check(NumberWithin(0.02, 2, "from 0.02 to 2"))
      ->group(group);
  fit.add_option("--charge-scale", f.fChargeScale,
                 "Deposit in q per GeV; without, it is found from the first tracks")
      ->check(NumberWithin(1e-12, 1e12, "from 1e-12 to 1e12"))
      ->group(group);
  fit.add_option("--fractions", a.fFractions,
                 "Fractions of the particles among all tracks, for the probability of each "
                 "hypothesis (default: equal)")
      ->delimiter(',')
      ->type_name("mu=0.8,pi=0.1,p=0.1")
      ->group(group);
  fit.add_option("--exclude", f.fExclude,
                 "The hits of this plane, by number from 0 or name, are not fitted but compared "
                 "with the fit: a device under test; may be repeated")
      ->type_name("PLANE")
      ->group(group);
  CLI::Option* robust =
      fit.add_option("--robust", a.fRobust,
                     "Hits far from the track count the less the farther they are, by the weights "
                     "of huber, tukey or cauchy")
          ->check(OneOf({"huber", "tukey", "cauchy"}))
          ->type_name("NAME")
          ->group(group);
  fit.add_option("--reject", f.fReject,
                 "Hits farther from the track than so many standard deviations are taken out")
      ->check(NumberWithin(2, 1e6, "from 2 to 1000000"))
      ->excludes(robust)
      ->group(group);
  CLI::Option* end =
      fit.add_option(
             "--end", a.fEnd,
             "Tracks stop, or leave the detector: stops, leaves, or auto to tell by the end of "
             "each; one that leaves gets no momentum from range but a lower limit")
          ->check(OneOf({"auto", "stops", "leaves"}))
          ->type_name("NAME")
          ->capture_default_str()
          ->group(group);
  fit.add_flag("--no-scattering-momentum", a.fNoScatteringMomentum,
               "Leave out the momentum from scattering of tracks that do not leave")
      ->group(group);
  fit.add_option("--beam-momentum", f.fBeamMomentum,
                 "The particles are a beam of this momentum [GeV/c] and do not stop")
      ->check(NumberWithin(1e-3, 1e6, "from 0.001 to 1000000"))
      ->excludes(end)
      ->group(group);
  fit.add_option("--sig-beam-momentum", f.fSigBeamMomentum, "Uncertainty of that momentum [GeV/c]")
      ->check(NumberWithin(0, 1e6, "from 0 to 1000000"))
      ->capture_default_str()
      ->group(group);
}

void Register(CLI::App& fit, FitArguments& a) {
  RegisterRun(fit, a);
  RegisterOutput(fit, a);
  RegisterInput(fit, a);
  RegisterModel(fit, a);
}

/// Sets the fractions of the hypotheses from texts such as mu=0.8.
void SetFractions(const std::vector<std::string>& texts, TrackFitOptions& options) {
  std::vector<double>& fractions = options.fFractions;
  fractions.assign(texts.empty() ? 0 : options.fHypotheses.size(), 0);
  for (const std::string& text : texts) {
    const std::size_t equals = std::min(text.find('='), text.size());
    const Particle* particle = FindParticle(text.substr(0, equals));
    const auto value = NumberFrom<double>(text.substr(std::min(equals + 1, text.size())));
    const auto& codes = options.fHypotheses;
    const auto h = particle ? std::find(codes.begin(), codes.end(), particle->fPDG) : codes.end();
    if (!value || !(*value > 0 && *value <= 1e6) || h == codes.end())
      throw std::invalid_argument("--fractions: \"" + text +
                                  "\" is not of the form mu=0.8 with one of the hypotheses and a "
                                  "number above 0");
    fractions[static_cast<std::size_t>(h - codes.begin())] = *value;
  }
  if (std::count(fractions.begin(), fractions.end(), 0) > 0)
    throw std::invalid_argument("--fractions: each hypothesis needs one");
}

void Complete(FitArguments& a) {
  TrackFitOptions& fit = a.fFile.fFit;
  fit.fEnd = EndMode(a.fEnd);
  fit.fRobust = OutlierModeOf(a.fRobust);
  fit.fScatteringMomentum = !a.fNoScatteringMomentum;
  if (a.fHypotheses.empty())
    a.fHypotheses = fit.fBeamMomentum > 0 ? std::vector<std::string>{"mu"} : ParticleNames();
  fit.fHypotheses.clear();
  for (const std::string& name : a.fHypotheses) {
    if (std::count(a.fHypotheses.begin(), a.fHypotheses.end(), name) > 1)
      throw std::invalid_argument("--hypothesis: \"" + name + "\" is named more than once");
    fit.fHypotheses.push_back(FindParticle(name)->fPDG);
  }
  SetFractions(a.fFractions, a.fFile.fFit);
  for (const std::string& text : a.fColumns) {
    const auto [name, other] = Mapping(text);
    a.fFile.fReader.fColumns[name] = other;
  }
}

void PrintProblems(const FitSummary& summary) {
  if (summary.fProblems.empty()) return;
  std::cerr << "kelvo: some of the input could not be used";
  if (summary.fProblemCount > summary.fProblems.size())
    std::cerr << "; the first " << summary.fProblems.size() << " cases";
  std::cerr << ":\n";
  for (const std::string& problem : summary.fProblems)
    std::cerr << "  " << Printable(problem) << '\n';
}

void PrintDoubts(const FitSummary& summary) {
  for (const std::string& doubt : summary.fDoubts)
    std::cerr << "kelvo: this cannot be meant: " << Printable(doubt) << '\n';
}

void PrintLine(const char* what, unsigned long long count) {
  std::printf("  %-36s %10llu\n", what, count);
}

void PrintSummary(const FitSummary& summary, const FitArguments& arguments) {
  PrintLine("tracks read", summary.fTracks);
  PrintLine("hits read", summary.fHits);
  PrintLine("tracks fitted", summary.fFitted);
  if (summary.fOutliers > 0) PrintLine("hits taken as outliers", summary.fOutliers);
  if (summary.fLeft > 0) PrintLine("of these, leave the detector", summary.fLeft);
  for (std::size_t status = 1; status < summary.fByStatus.size(); status++)
    if (summary.fByStatus[status] > 0)
      PrintLine((std::string("not fitted: ") + StatusWords(static_cast<int>(status))).c_str(),
                summary.fByStatus[status]);
  if (summary.fChargeScale > 0)
    std::printf("  %-36s %10.4g\n", "deposit per GeV", summary.fChargeScale);
  if (summary.fBadLines > 0) PrintLine("lines that could not be used", summary.fBadLines);

  std::printf("\n  %-12s %10s %10s   %s\n", "hypothesis", "fitted", "best",
              "median chi-square per degree of freedom");
  for (const HypothesisSummary& h : summary.fHypotheses) {
    std::printf("  %-12s %10llu %10llu   ", FindParticle(h.fPDG)->fName, h.fFitted, h.fBest);
    const double median = h.fMedianChi2PerNDF;
    if (!std::isfinite(median))
      std::printf("-\n");
    else if (median >= 0.01 && median < 1e4)
      std::printf("%.3f\n", median);
    else
      std::printf("%.4g\n", median);
  }
  std::string written = arguments.fFile.fOutput;
  for (const std::string& file : {arguments.fFile.fCsv, arguments.fFile.fEfficiency})
    if (!file.empty()) written += ", " + file;
  std::printf("\n  %.1f s, %.0f tracks/s; written: %s\n", summary.fSeconds,
              static_cast<double>(summary.fTracks) / summary.fSeconds, Printable(written).c_str());
}

/// Tells of names that cannot be written, which should not be found out after hours.
void CheckOutputs(const FitArguments& a) {
  std::vector<std::string> inputs = a.fFile.fInputs;
  inputs.push_back(a.fDetector);
  CheckApart(inputs, {a.fFile.fOutput, a.fFile.fCsv, a.fFile.fEfficiency, a.fReport});
  if (!a.fReport.empty()) PendingFile(a.fReport);
}

/// What goes wrong here leaves the fits as they are.
void WriteReport(const FitArguments& a) try {
  FitReader fits(a.fFile.fOutput);
  kelvo::WriteReport(fits, a.fReport);
  std::printf("  written: %s\n", Printable(a.fReport).c_str());
} catch (const std::exception& e) {
  throw FileError(std::string(e.what()) + "\nkelvo: " + a.fFile.fOutput +
                  " is complete, and 'kelvo report' makes the page from it");
}

int Fit(const geo::Detector& detector, const FitArguments& arguments, ProgressLine& line) {
  const auto show = [&](const Progress& progress) {
    line.Show(progress);
    return CaughtSignal() == 0;
  };
  const FitSummary summary = FitFile(detector, arguments.fFile, show);
  line.Clear();
  PrintProblems(summary);
  PrintDoubts(summary);
  PrintSummary(summary, arguments);
  if (!arguments.fReport.empty()) WriteReport(arguments);
  return summary.Good() ? 0 : kSomeUnusable;
}

int Run(FitArguments& arguments) {
  Complete(arguments);
  CheckOutputs(arguments);
  const geo::Detector detector = geo::Detector::FromFile(arguments.fDetector);
  return RunWithProgress([&](ProgressLine& line) {
    try {
      return Fit(detector, arguments, line);
    } catch (const StrictStop& e) {
      line.Clear();
      std::cerr << "kelvo: stopped at the first problem (--strict), nothing is written: "
                << Printable(e.what()) << '\n';
      return kSomeUnusable;
    }
  });
}

} // namespace

Command MakeFitCommand(CLI::App& program, const std::string& commandLine) {
  CLI::App* fit =
      program.add_subcommand("fit", "Fits the tracks in files of hits and writes them to a file.");
  fit->footer(kExamples);
  auto arguments = std::make_shared<FitArguments>();
  arguments->fFile.fCommand = commandLine;
  arguments->fFile.fThreads = util::AllowedThreads();
  Register(*fit, *arguments);
  return {fit, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
