#include "run/SimulationFile.h"

#include "io/SimulationWriter.h"
#include "run/OrderedWork.h"
#include "util/Text.h"

#include <algorithm>
#include <chrono>

namespace kelvo {

namespace {

constexpr unsigned long long kTracksPerBlock = 16; // some 25 ms of work

double Now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(time).count();
}

/// Consecutive tracks by their numbers.
struct TrackNumbers {
  unsigned long long fFirst = 0;
  unsigned long long fEnd = 0; // behind the last
};

using Work = OrderedWork<TrackNumbers, std::vector<SimulatedTrack>>;

/// Gives the numbers of n tracks in blocks.
Work::Source Numbers(unsigned long long n) {
  return [n, next = 0ull](TrackNumbers& block) mutable {
    block = {next, std::min(n, next + kTracksPerBlock)};
    next = block.fEnd;
    return block.fFirst < n;
  };
}

std::vector<Work::Worker> Workers(const Simulator& simulator, unsigned threads) {
  std::vector<Work::Worker> workers;
  for (unsigned i = 0; i < std::max(1u, threads); i++)
    workers.emplace_back([own = simulator](const TrackNumbers& block) mutable {
      std::vector<SimulatedTrack> tracks;
      for (auto number = block.fFirst; number < block.fEnd; number++)
        tracks.push_back(own.Make(static_cast<long long>(number)));
      return tracks;
    });
  return workers;
}

std::string RangeText(const SimulationRange& range) {
  return "[" + ExactNumber(range.fLow) + ", " + ExactNumber(range.fHigh) + "]";
}

std::string Boolean(bool value) {
  return value ? "true" : "false";
}

std::string DescribeOptions(const SimulationFileOptions& options, const SimulationOptions& used) {
  std::string text;
  const auto add = [&text](const std::string& name, const std::string& value) {
    text += name + " = " + value + "\n";
  };
  const bool fit = used.fScattering == ScatteringModel::kFit;
  add("tracks", std::to_string(options.fTracks));
  add("particle", std::to_string(used.fPDG));
  if (used.fBeamMomentum > 0) {
    add("beam_momentum", ExactNumber(used.fBeamMomentum));
    add("sig_beam_momentum", ExactNumber(used.fSigBeamMomentum));
  } else {
    add("kinetic_energy", RangeText(used.fKineticEnergy));
  }
  add("seed", std::to_string(used.fSeed));
  add("model", fit ? "\"fit\"" : "\"full\"");
  add("hits", used.fHits == HitModel::kCells ? "\"cells\"" : "\"gauss\"");
  add("sigma", ExactNumber(used.fSigma));
  add("efficiency", ExactNumber(used.fEfficiency));
  add("step", ExactNumber(used.fStep));
  add("fluctuate_loss", Boolean(used.fFluctuateLoss));
  add("leaving", Boolean(used.fLeaving));
  add("slope", ExactNumber(*used.fSlope));
  if (used.fSpot) add("spot", ExactNumber(*used.fSpot));
  add("start_x", RangeText(*used.fStart[0]));
  add("start_y", RangeText(*used.fStart[1]));
  add("start_z", RangeText(*used.fStart[2]));
  add("scattering_factor", ExactNumber(used.fFit.fScatteringFactor));
  add("beyond_last_hit", ExactNumber(used.fFit.fBeyondLastHit));
  return text;
}

} // namespace

SimulationSummary SimulateFile(const geo::PlaneDetector& detector,
                               const SimulationFileOptions& options, const GoOn& progress) {
  const double start = Now();
  SimulationSummary summary;
  summary.fFiles = SimulationFiles(options.fOutput, options.fHitTruth);
  const Simulator simulator(detector, options.fSimulation);
  const auto writer =
      MakeSimulationWriter(options.fOutput, options.fHitTruth,
                           {{"options", DescribeOptions(options, simulator.Options())},
                            {"detector", detector.Text()},
                            {"version", KELVO_VERSION}});

  Work work(Numbers(options.fTracks), Workers(simulator, options.fThreads));
  double sumT = 0;
  std::vector<SimulatedTrack> tracks;
  while (work.Next(tracks)) {
    for (const SimulatedTrack& track : tracks) {
      writer->Write(track);
      summary.fHits += track.fHits.size();
      sumT += track.fT;
    }
    summary.fTracks += tracks.size();
    const double fraction =
        static_cast<double>(summary.fTracks) / static_cast<double>(options.fTracks);
    if (progress && !progress({summary.fTracks, fraction, Now() - start})) throw RunStopped();
  }
  writer->Commit();
  summary.fMeanT = sumT / static_cast<double>(summary.fTracks);
  summary.fSeconds = Now() - start;
  return summary;
}

} // namespace kelvo
