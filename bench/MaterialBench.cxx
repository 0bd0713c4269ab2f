// Materials: what it takes to calculate energy loss and range tables, and one step in a table.

#include "track/MaterialLoss.h"
#include "util/Particles.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

using matter::Material;

void MakeLoss(benchmark::State& state, const char* name) {
  const Material material = Material::Named(name);
  for (auto _ : state) benchmark::DoNotOptimize(kelvo::MaterialLoss(material, kelvo::kMuonPDG));
}
BENCHMARK_CAPTURE(MakeLoss, Iron, "Iron")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MakeLoss, Air, "Air")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MakeLoss, Concrete, "Concrete")->Unit(benchmark::kMillisecond);

void MakeTable(benchmark::State& state, const char* name) {
  const Material material = Material::Named(name);
  for (auto _ : state) benchmark::DoNotOptimize(kelvo::MakeRangeTable(material, kelvo::kMuonPDG));
}
BENCHMARK_CAPTURE(MakeTable, Iron, "Iron")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MakeTable, Steel, "Steel")->Unit(benchmark::kMillisecond);

void StepUpstream(benchmark::State& state) {
  const matter::RangeTable table = kelvo::MakeRangeTable(Material::Named("Iron"), kelvo::kMuonPDG);
  std::vector<double> energies; // from 10 MeV to 10 GeV in no order
  for (int i = 0; i < 1024; i++)
    energies.push_back(std::pow(10, -2 + 3 * ((i * 389) % 1024) / 1024.));
  std::size_t i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(table.Energy(table.Range(energies[i++ % 1024]) + 1));
}
BENCHMARK(StepUpstream);

} // namespace

BENCHMARK_MAIN();
