#include "app/Command.h"
#include "app/CommandParts.h"
#include "io/FileNames.h"
#include "io/SimulationWriter.h"
#include "run/SimulationFile.h"
#include "util/AllowedThreads.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo simulate --detector detectors/fine.toml --particle mu --kinetic-energy 0.3..1.6 --tracks 1000
      --seed 1 -o hits.csv.gz
      muons that stop in the detector; their truth is in hits.truth.csv.gz
  kelvo simulate --detector detectors/range.toml --particle p --kinetic-energy 1 --tracks 500 --seed 2
      -o hits.root --hit-truth
      protons of 1 GeV, with the truth of every hit; all tables in one file
  kelvo simulate --detector detectors/telescope.toml --particle pi --beam-momentum 120 --tracks 1000
      --seed 4 -o beam.csv --hits gauss --sigma 0.0015 --spot 0.2
      a beam of 120 GeV/c pions, 2 mm wide, that crosses all planes
  kelvo simulate --detector detectors/fine.toml --particle mu --kinetic-energy 0.3..1.6 --tracks 20000
      --seed 3 -o test.csv --model fit --hits gauss
      tracks that are exactly what the fit assumes: its pulls are 1 wide, its chi-square
      probabilities flat

A track is determined by seed, its number and the other options; --threads does not change it.
Truth (cm, GeV): position x0,y0,z0, momentum and kinetic energy T at the middle of the plane of the
first hit, end xe,ye,ze, and the path length between them. With --hit-truth also, per hit, the
particle's position, slopes and kinetic energy at the middle of the plane.
Models: "full" scatters in small steps, with the full width of multiple scattering; "fit" bends the
track at the scattering planes of the fit, by the fit's widths, and makes it stop after its mean
range; its energies can be some percent above the interval, since bent ways are longer.
A beam's tracks leave at the downstream face and hit 3 planes of each view at least; its momentum is
that at the start. Particles that stop do so inside and hit 4 planes of each view.
Exit status: 0 all is well, 2 wrong usage or files.)";

struct SimulateArguments {
  SimulationFileOptions fFile;
  std::string fDetector;
  std::string fParticle;
  std::string fEnergy;
  std::string fModel = "full";
  std::string fHits = "cells";
  std::string fStart[3];
};

/// "0.3..1.6" or "1".
std::optional<SimulationRange> RangeFrom(const std::string& text) {
  const std::size_t dots = text.find("..");
  const auto low = NumberFrom<double>(text.substr(0, dots));
  const auto high = dots == std::string::npos ? low : NumberFrom<double>(text.substr(dots + 2));
  if (!low || !high) return std::nullopt;
  return SimulationRange{*low, *high};
}

CLI::Validator RangeWithin(double low, double high, const std::string& rule) {
  const auto check = [=](std::string& text) -> std::string {
    const auto range = RangeFrom(text);
    if (range && range->fLow >= low && range->fLow <= range->fHigh && range->fHigh <= high)
      return "";
    return Quoted(text) + " is not a number or an interval MIN..MAX " + rule;
  };
  return {check, ""};
}

void RegisterModel(CLI::App& simulate, SimulateArguments& a) {
  SimulationOptions& s = a.fFile.fSimulation;
  const char* group = "Model";
  simulate.add_option("--model", a.fModel, "How the particles scatter: full or fit")
      ->check(OneOf({"full", "fit"}))
      ->type_name("NAME")
      ->capture_default_str()
      ->group(group);
  simulate.add_option("--step", s.fStep, "Largest step of the full scattering [cm]")
      ->check(NumberWithin(0.001, 100, "from 0.001 to 100"))
      ->capture_default_str()
      ->group(group);
  simulate.add_flag("--fluctuate-loss", s.fFluctuateLoss, "Let the energy loss fluctuate")
      ->group(group);
  simulate
      .add_option("--scattering-factor", s.fFit.fScatteringFactor,
                  "Factor on the fit's widths; model fit")
      ->check(NumberWithin(1e-6, 100, "from 0.000001 to 100"))
      ->capture_default_str()
      ->group(group);
}

void RegisterHits(CLI::App& simulate, SimulateArguments& a) {
  SimulationOptions& s = a.fFile.fSimulation;
  const char* group = "Hits";
  simulate
      .add_option("--hits", a.fHits,
                  "What a plane measures: cells (the centre of its cell) or gauss (the true "
                  "coordinate with a Gaussian error)")
      ->check(OneOf({"cells", "gauss"}))
      ->type_name("NAME")
      ->capture_default_str()
      ->group(group);
  simulate.add_option("--sigma", s.fSigma, "Error of Gaussian hits [cm]")
      ->check(NumberWithin(1e-6, 1000, "from 0.000001 to 1000"))
      ->capture_default_str()
      ->group(group);
  simulate.add_option("--efficiency", s.fEfficiency, "Probability that a plane gives its hit")
      ->check(NumberWithin(0.01, 1, "from 0.01 to 1"))
      ->capture_default_str()
      ->group(group);
  simulate.add_flag("--hit-truth", a.fFile.fHitTruth, "Also write the truth of every hit")
      ->group(group);
}

void RegisterStart(CLI::App& simulate, SimulateArguments& a) {
  SimulationOptions& s = a.fFile.fSimulation;
  const char* group = "Start of the tracks";
  const char* const names[] = {"--start-x", "--start-y", "--start-z"};
  const char* const texts[] = {"x [cm] (default: the face of the detector)",
                               "y [cm] (default: the face of the detector)",
                               ("z [cm] (default: from 1 cm upstream of the detector to 50 cm, at "
                                "most half of its length, inside; for a beam 1 cm upstream)")};
  for (std::size_t k = 0; k < 3; k++)
    simulate.add_option(names[k], a.fStart[k], texts[k])
        ->check(RangeWithin(-1e5, 1e5, "from -100000 to 100000, the smaller number first"))
        ->type_name("MIN..MAX")
        ->group(group);
  simulate
      .add_option("--spot", s.fSpot,
                  "Standard deviation of x and y [cm], around the middle of their intervals "
                  "(default: even in these)")
      ->check(NumberWithin(0, 1e4, "from 0 to 10000"))
      ->group(group);
  simulate
      .add_option("--slope", s.fSlope,
                  "Standard deviation of dx/dz and dy/dz; at most 45 degrees are drawn (default: "
                  "0.3, for a beam 0.001)")
      ->check(NumberWithin(0, 1, "from 0 to 1"))
      ->group(group);
  simulate.add_flag("--leaving", s.fLeaving, "Also keep tracks that leave the detector")
      ->group(group);
}

void Register(CLI::App& simulate, SimulateArguments& a) {
  SimulationFileOptions& f = a.fFile;
  simulate.add_option("-d,--detector", a.fDetector, "Description of the detector (TOML)")
      ->required()
      ->type_name("FILE");
  simulate.add_option("--particle", a.fParticle, "mu, pi or p")
      ->required()
      ->check(OneOf(ParticleNames()))
      ->type_name("NAME");
  simulate
      .add_option("--kinetic-energy", a.fEnergy,
                  "Particles that stop: kinetic energy at the start, evenly spread [GeV], such as "
                  "0.3..1.6")
      ->check(RangeWithin(0.001, 1e4, "from 0.001 to 10000 GeV, the smaller number first"))
      ->type_name("MIN..MAX");
  simulate
      .add_option("--beam-momentum", f.fSimulation.fBeamMomentum,
                  "Or a beam of this momentum at the start [GeV/c], which crosses the detector")
      ->check(NumberWithin(0.001, 1e4, "from 0.001 to 10000 GeV/c"));
  simulate
      .add_option("--sig-beam-momentum", f.fSimulation.fSigBeamMomentum,
                  "Standard deviation of that momentum [GeV/c]")
      ->check(NumberWithin(0, 1e4, "from 0 to 10000 GeV/c"))
      ->capture_default_str();
  simulate.add_option("--tracks", f.fTracks, "Number of tracks")
      ->required()
      ->check(WholeNumberWithin(1, 1'000'000'000'000));
  simulate.add_option("--seed", f.fSimulation.fSeed, "Another seed gives other tracks")
      ->required()
      ->check(WholeNumberWithin(0, std::numeric_limits<std::uint64_t>::max()));
  simulate
      .add_option("-o,--output", f.fOutput,
                  "File of hits to be written; its name ends in .csv, .csv.gz or .root")
      ->required()
      ->type_name("FILE");
  simulate.add_option("--threads", f.fThreads, "Threads to use; the result does not depend on it")
      ->check(WholeNumberWithin(1, 1024))
      ->capture_default_str();
  RegisterModel(simulate, a);
  RegisterHits(simulate, a);
  RegisterStart(simulate, a);
}

/// Options that would be without effect are more likely a mistake than a wish.
void CheckCombination(const CLI::App& simulate, const SimulateArguments& a) {
  const bool beam = simulate.count("--beam-momentum") > 0;
  if ((simulate.count("--kinetic-energy") > 0) == beam)
    throw std::invalid_argument(
        "give either --kinetic-energy, of particles that stop, or --beam-momentum");
  const auto refuse = [&simulate](const char* option, const char* condition) {
    if (simulate.count(option) > 0)
      throw std::invalid_argument(std::string(option) + " has no effect without " + condition);
  };
  refuse(beam ? "--leaving" : "--sig-beam-momentum", beam ? "--kinetic-energy" : "--beam-momentum");
  if (a.fHits != "gauss") refuse("--sigma", "--hits gauss");
  if (a.fModel != "fit") refuse("--scattering-factor", "--model fit");
  if (a.fModel != "full") refuse("--step", "--model full");
}

void Complete(SimulateArguments& a) {
  SimulationOptions& s = a.fFile.fSimulation;
  s.fPDG = FindParticle(a.fParticle)->fPDG;
  if (!a.fEnergy.empty()) s.fKineticEnergy = *RangeFrom(a.fEnergy);
  s.fScattering = a.fModel == "fit" ? ScatteringModel::kFit : ScatteringModel::kFull;
  s.fHits = a.fHits == "gauss" ? HitModel::kGaussian : HitModel::kCells;
  for (std::size_t k = 0; k < 3; k++)
    if (!a.fStart[k].empty()) s.fStart[k] = RangeFrom(a.fStart[k]);
}

void PrintSummary(const SimulationSummary& summary) {
  std::printf("  %llu tracks, %llu hits, mean kinetic energy at the first hit %.4g GeV\n",
              summary.fTracks, summary.fHits, summary.fMeanT);
  std::printf("  %.1f s, %.0f tracks/s; written:", summary.fSeconds,
              static_cast<double>(summary.fTracks) / summary.fSeconds);
  for (const std::string& file : summary.fFiles) std::printf(" %s", Printable(file).c_str());
  std::printf("\n");
}

int Run(const CLI::App& simulate, SimulateArguments& arguments) {
  CheckCombination(simulate, arguments);
  Complete(arguments);
  CheckApart({arguments.fDetector},
             SimulationFiles(arguments.fFile.fOutput, arguments.fFile.fHitTruth));
  const auto detector = geo::PlaneDetector::FromFile(arguments.fDetector);
  return RunWithProgress([&](ProgressLine& line) {
    const auto show = [&line](const Progress& progress) {
      line.Show(progress);
      return CaughtSignal() == 0;
    };
    const SimulationSummary summary = SimulateFile(detector, arguments.fFile, show);
    line.Clear();
    PrintSummary(summary);
    return 0;
  });
}

} // namespace

Command MakeSimulateCommand(CLI::App& program) {
  CLI::App* simulate = program.add_subcommand(
      "simulate", "Simulates tracks in a detector and writes their hits and their truth.");
  simulate->footer(kExamples);
  auto arguments = std::make_shared<SimulateArguments>();
  arguments->fFile.fThreads = util::AllowedThreads();
  Register(*simulate, *arguments);
  return {simulate, [simulate, arguments] { return Run(*simulate, *arguments); }};
}

} // namespace kelvo::app
