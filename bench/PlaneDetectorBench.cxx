// Material steps per second along tracks through the two bundled detectors: ours beside a plain
// sort of all faces of the detector, with the allocations of ours.
#include "geo/PlaneDetector.h"

#include "test/support/Allocations.h"
#include "test/support/PlaneDetectorReference.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Setup {
  reference::Detector fTruth;
  geo::PlaneDetector fDetector;
  std::vector<reference::Line> fLines;

  explicit Setup(reference::Detector truth)
      : fTruth(std::move(truth)),
        fDetector(
            geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/" + fTruth.fName + ".toml")) {
    reference::Random random(1);
    for (int i = 0; i < 200; i++) fLines.push_back(reference::TrackThrough(fTruth, random));
  }

  /// Whether both list the same steps.
  bool Agrees() const {
    std::vector<double> ds;
    std::vector<const TGeoMaterial*> mats;
    for (const reference::Line& line : fLines) {
      fDetector.MaterialsBetweenPoints(line.fFrom, line.fTo, ds, mats);
      const auto truth = reference::Steps(fTruth, line.fFrom, line.fTo);
      if (truth.size() != ds.size()) return false;
      for (std::size_t i = 0; i < ds.size(); i++)
        if (std::abs(truth[i].fLength - ds[i]) > 1e-9 ||
            mats[i]->GetName() != std::string(reference::kNames[truth[i].fMaterial]))
          return false;
    }
    return true;
  }
};

void Steps(benchmark::State& state, const Setup& setup) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  std::size_t steps = 0, rays = 0, allocations = 0;
  for (auto _ : state) {
    const std::size_t before = bench::AllocationCount();
    for (const reference::Line& line : setup.fLines) {
      setup.fDetector.MaterialsBetweenPoints(line.fFrom, line.fTo, ds, mats);
      benchmark::DoNotOptimize(ds.data());
      steps += ds.size();
      rays++;
    }
    allocations += bench::AllocationCount() - before;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(steps));
  state.counters["steps/ray"] = static_cast<double>(steps) / static_cast<double>(rays);
  state.counters["alloc/ray"] = static_cast<double>(allocations) / static_cast<double>(rays);
}

/// The track path asks with empty vectors for each leg.
void StepsIntoEmptyVectors(benchmark::State& state, const Setup& setup) {
  std::size_t steps = 0, rays = 0;
  const std::size_t before = bench::AllocationCount();
  for (auto _ : state)
    for (const reference::Line& line : setup.fLines) {
      std::vector<double> ds;
      std::vector<const TGeoMaterial*> mats;
      setup.fDetector.MaterialsBetweenPoints(line.fFrom, line.fTo, ds, mats);
      benchmark::DoNotOptimize(ds.data());
      steps += ds.size();
      rays++;
    }
  const auto allocations = static_cast<double>(bench::AllocationCount() - before);
  state.SetItemsProcessed(static_cast<std::int64_t>(steps));
  state.counters["steps/ray"] = static_cast<double>(steps) / static_cast<double>(rays);
  state.counters["alloc/ray"] = allocations / static_cast<double>(rays);
}

void Reference(benchmark::State& state, const Setup& setup) {
  std::size_t steps = 0;
  for (auto _ : state)
    for (const reference::Line& line : setup.fLines) {
      const auto list = reference::Steps(setup.fTruth, line.fFrom, line.fTo);
      benchmark::DoNotOptimize(list.data());
      steps += list.size();
    }
  state.SetItemsProcessed(static_cast<std::int64_t>(steps));
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const Setup setups[] = {Setup(reference::Fine()), Setup(reference::Range())};
  for (const Setup& setup : setups) {
    if (!setup.Agrees()) {
      std::fprintf(stderr, "%s: the steps differ from the reference\n", setup.fTruth.fName.c_str());
      return 1;
    }
    const std::string name = setup.fTruth.fName;
    benchmark::RegisterBenchmark((name + "/steps").c_str(), Steps, std::cref(setup));
    benchmark::RegisterBenchmark((name + "/steps_into_empty_vectors").c_str(),
                                 StepsIntoEmptyVectors, std::cref(setup));
    benchmark::RegisterBenchmark((name + "/reference").c_str(), Reference, std::cref(setup));
  }
  benchmark::RunSpecifiedBenchmarks();
}
