#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>

#include "geo/PlaneDetector.h"
#include "test/support/Allocations.h"
#include "test/support/Geant4Sample.h"
#include "track/TrackFitter.h"

// Tracks per second of the whole fit, three hypotheses. The tracks are
// muons simulated with Geant4 that stop in the fine detector, 66 hits each. The dense solver is the
// reference of the linear one: before anything is timed both must agree.

namespace {

using kelvo::TrackFit;
using kelvo::TrackFitOptions;
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

bool Agree() {
  TrackFitOptions dense;
  dense.fSolver = kelvo::Solver::kDense;
  TrackFitter slow(Detector(), dense), fast(Detector());
  for (std::size_t i = 0; i < 100; i++) {
    const TrackFit a = slow.Fit(Tracks()[i].fHits), b = fast.Fit(Tracks()[i].fHits);
    if (a.fBest != b.fBest || !a.Fitted()) return false;
    const auto h = static_cast<std::size_t>(a.fBest);
    if (std::abs(a.fHypothesis[h].fP / b.fHypothesis[h].fP - 1) > 1e-7) return false;
  }
  return true;
}

void Whole(benchmark::State& state, kelvo::Solver solver) {
  TrackFitOptions options;
  options.fSolver = solver;
  TrackFitter fitter(Detector(), options);
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

BENCHMARK_CAPTURE(Whole, linear, kelvo::Solver::kLinear)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Whole, dense, kelvo::Solver::kDense)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  if (!std::filesystem::exists(kelvo::test::Geant4Folder())) {
    std::printf("no simulated tracks in %s; set KELVO_SHARED_DATA to the shared folder\n",
                kelvo::test::Geant4Folder().c_str());
    return 0;
  }
  if (!Agree()) {
    std::printf("the dense and the linear solver disagree\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
