#include "run/SimulationFile.h"

#include "io/SimulationWriter.h"
#include "util/Text.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <thread>

namespace kelvo {

namespace {

constexpr unsigned long long kTracksPerThread = 64; // between two writes; some 100 ms of work

double Now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(time).count();
}

/// Makes tracks [first, first + count) on as many threads as there are simulators.
void MakeTracks(std::vector<Simulator>& simulators, unsigned long long first,
                std::vector<SimulatedTrack>& tracks) {
  std::atomic<std::size_t> next{0};
  std::exception_ptr error;
  std::mutex guard; // of error
  const auto work = [&](Simulator& simulator) {
    try {
      for (std::size_t i = next++; i < tracks.size(); i = next++)
        tracks[i] = simulator.Make(static_cast<long long>(first + i));
    } catch (...) {
      const std::lock_guard lock(guard);
      error = std::current_exception();
      next = tracks.size();
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i < simulators.size(); ++i)
    threads.emplace_back(work, std::ref(simulators[i]));
  work(simulators[0]);
  for (std::thread& thread : threads) thread.join();
  if (error) std::rethrow_exception(error);
}

std::string RangeText(const SimulationRange& range) {
  return "[" + ExactNumber(range.fLow) + ", " + ExactNumber(range.fHigh) + "]";
}

std::string Boolean(bool value) {
  return value ? "true" : "false";
}

} // namespace

std::string DescribeOptions(const SimulationFileOptions& options, const SimulationOptions& used) {
  std::string text;
  const auto add = [&text](const std::string& name, const std::string& value) {
    text += name + " = " + value + "\n";
  };
  const bool fit = used.fScattering == ScatteringModel::kFit;
  add("tracks", std::to_string(options.fTracks));
  add("particle", std::to_string(used.fPDG));
  add("kinetic_energy", RangeText(used.fKineticEnergy));
  add("seed", std::to_string(used.fSeed));
  add("model", fit ? "\"fit\"" : "\"full\"");
  add("hits", used.fHits == HitModel::kCells ? "\"cells\"" : "\"gauss\"");
  add("sigma", ExactNumber(used.fSigma));
  add("efficiency", ExactNumber(used.fEfficiency));
  add("step", ExactNumber(used.fStep));
  add("fluctuate_loss", Boolean(used.fFluctuateLoss));
  add("leaving", Boolean(used.fLeaving));
  add("slope", ExactNumber(used.fSlope));
  add("start_x", RangeText(*used.fStart[0]));
  add("start_y", RangeText(*used.fStart[1]));
  add("start_z", RangeText(*used.fStart[2]));
  add("max_ds", ExactNumber(used.fFit.fMaxDs));
  add("max_dx0", ExactNumber(used.fFit.fMaxDX0));
  add("max_dt", ExactNumber(used.fFit.fMaxDT));
  add("scattering_factor", ExactNumber(used.fFit.fScatteringFactor));
  add("beyond_last_hit", ExactNumber(used.fFit.fBeyondLastHit));
  return text;
}

SimulationSummary SimulateFile(const geo::PlaneDetector& detector,
                               const SimulationFileOptions& options,
                               const std::function<bool(const FitProgress&)>& progress) {
  const double start = Now();
  SimulationSummary summary;
  summary.fFiles = SimulationFiles(options.fOutput, options.fHitTruth);
  std::vector<Simulator> simulators;
  for (unsigned i = 0; i < std::max(1u, options.fThreads); ++i)
    simulators.emplace_back(detector, options.fSimulation);
  const auto writer =
      MakeSimulationWriter(options.fOutput, options.fHitTruth,
                           {{"options", DescribeOptions(options, simulators[0].Options())},
                            {"detector", detector.Text()},
                            {"version", KELVO_VERSION}});

  std::vector<SimulatedTrack> tracks;
  double sumT = 0;
  while (summary.fTracks < options.fTracks) {
    tracks.resize(
        std::min(kTracksPerThread * simulators.size(), options.fTracks - summary.fTracks));
    MakeTracks(simulators, summary.fTracks, tracks);
    for (const SimulatedTrack& track : tracks) {
      writer->Write(track);
      summary.fHits += track.fHits.size();
      sumT += track.fT;
    }
    summary.fTracks += tracks.size();
    const double share =
        static_cast<double>(summary.fTracks) / static_cast<double>(options.fTracks);
    if (progress && !progress({summary.fTracks, share, Now() - start}))
      throw RunStopped("the run was stopped");
  }
  writer->Commit();
  summary.fMeanT = sumT / static_cast<double>(summary.fTracks);
  summary.fSeconds = Now() - start;
  return summary;
}

} // namespace kelvo
