#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>

#include "geo/PlaneDetector.h"
#include "test/support/Allocations.h"
#include "test/support/Geant4Sample.h"
#include "track/TrackFitter.h"

// Tracks per second of the whole fit, three hypotheses.

namespace {

using kelvo::TrackFit;
using kelvo::TrackFitter;
using kelvo::test::Geant4Track;

const geo::PlaneDetector& Detector() {
  static const geo::PlaneDetector detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

const std::vector<Geant4Track>& Tracks() {
  static const std::vector<Geant4Track> tracks = kelvo::test::ReadGeant4("fine_mu", "cell");
  return tracks;
}

void Whole(benchmark::State& state) {
  TrackFitter fitter(Detector());
  TrackFit fit;
  for (const Geant4Track& track : Tracks()) fitter.Fit(track.fHits, fit); // memory as in a long run
  const std::size_t before = bench::AllocationCount();
  std::size_t i = 0;
  for (auto _ : state) {
    fitter.Fit(Tracks()[i % Tracks().size()].fHits, fit);
    benchmark::DoNotOptimize(fit);
    i++;
  }
  const auto n = static_cast<double>(state.iterations());
  state.counters["tracks/s"] = benchmark::Counter(n, benchmark::Counter::kIsRate);
  state.counters["allocations"] = static_cast<double>(bench::AllocationCount() - before) / n;
}

BENCHMARK(Whole)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  if (!std::filesystem::exists(kelvo::test::Geant4Folder())) {
    std::printf("no simulated tracks in %s; set KELVO_SHARED_DATA to the shared folder\n",
                kelvo::test::Geant4Folder().c_str());
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
