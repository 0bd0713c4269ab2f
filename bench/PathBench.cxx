// Energy loss and range-out beside the plain program of PlainPath.h, which scans every table and
// takes logarithms at every lookup. Before anything is timed both must agree to the last bit.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "func/Path.h"
#include "func/dEdxTable.h"
#include "test/support/Allocations.h"
#include "test/support/PlainPath.h"
#include "test/support/TestGeometry.h"

namespace {

constexpr double kMuon = 0.105658;
constexpr int kSteps = 1000;
constexpr double kLength = 1500; // cm

const std::map<std::string, plain::Table>& Tables() {
  static const auto tables = plain::ReadTables(KELVO_SOURCE_DIR "/func/dEdxTable.cxx");
  return tables;
}

/// 15 m of cells: 1,000 material steps.
const LayeredGeometry& Geometry() {
  static const LayeredGeometry geo([] {
    std::vector<LayeredGeometry::Layer> layers;
    for (int i = 0; i < kSteps / 4; i++) {
      layers.push_back({0.2, "PVC"});
      layers.push_back({5.55, "Scintillator"});
      layers.push_back({0.2, "PVC"});
      layers.push_back({0.05, "Glue"});
    }
    return layers;
  }());
  return geo;
}

/// The steps of one path, taken down once: what is timed is the integration, not the geometry.
class Recorded : public geo::GeometryBase {
public:
  Recorded() {
    const double p0[3] = {0, 0, kLength};
    const double p1[3] = {0, 0, 0};
    Geometry().MaterialsBetweenPoints(p0, p1, fSteps, fMaterials);
  }
  void MaterialsBetweenPoints(const double*, const double*, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    ds = fSteps;
    mats = fMaterials;
  }
  std::vector<double> fSteps;
  std::vector<const TGeoMaterial*> fMaterials;
};

const Recorded& Steps() {
  static const Recorded recorded;
  return recorded;
}

std::vector<double> Energies() {
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> lnT(std::log(0.002), std::log(3.));
  std::vector<double> T(1000);
  for (double& t : T) t = std::exp(lnT(rng));
  return T;
}

kelvo::Path LongPath() {
  const double p0[3] = {0, 0, 0};
  const double p1[3] = {0, 0, kLength};
  return kelvo::Path(Steps(), p0, p1, 0);
}

const std::vector<TVector3> kPoints{TVector3(0, 0, 0), TVector3(0, 0, kLength)};

void Require(double value, double reference, const char* what) {
  if (std::memcmp(&value, &reference, sizeof value) == 0) return;
  std::fprintf(stderr, "%s: %.17g is not the plain program's %.17g\n", what, value, reference);
  std::exit(1);
}

void RequireAgreement() {
  const kelvo::dEdxTable steel("Steel");
  for (double T : Energies())
    Require(steel(T, kMuon), plain::dEdx(Tables().at("Steel"), T, kMuon), "lookup");
  const kelvo::Path path = LongPath();
  const plain::Path reference(Steps(), Tables(), kPoints);
  for (double s = 0; s < kLength; s += 1.7) {
    double T[3];
    path.MuonParams(s, &T[0], nullptr, nullptr, nullptr);
    path.PionParams(s, &T[1], nullptr, nullptr, nullptr);
    path.ProtonParams(s, &T[2], nullptr, nullptr, nullptr);
    for (int h = 0; h < 3; h++)
      Require(T[h], plain::Lookup(s, reference.fS, reference.fT[h]), "path");
    Require(path.X0(s), plain::Lookup(s, reference.fS, reference.fX0), "radiation lengths");
  }
}

void LookupOurs(benchmark::State& state) {
  const std::vector<double> T = Energies();
  const kelvo::dEdxTable steel("Steel");
  for (auto _ : state)
    for (double t : T) benchmark::DoNotOptimize(steel(t, kMuon));
  state.SetItemsProcessed(state.iterations() * static_cast<long>(T.size()));
}

void LookupPlain(benchmark::State& state) {
  const std::vector<double> T = Energies();
  const plain::Table& steel = Tables().at("Steel");
  for (auto _ : state)
    for (double t : T) benchmark::DoNotOptimize(plain::dEdx(steel, t, kMuon));
  state.SetItemsProcessed(state.iterations() * static_cast<long>(T.size()));
}

void TableOurs(benchmark::State& state) {
  const std::size_t before = bench::AllocationCount();
  for (auto _ : state) benchmark::DoNotOptimize(kelvo::dEdxTable("Glue"));
  state.counters["allocations"] = static_cast<double>(bench::AllocationCount() - before) /
                                  static_cast<double>(state.iterations());
}

void IntegrateOurs(benchmark::State& state) {
  const std::size_t count = bench::AllocationCount();
  const std::size_t bytes = bench::AllocatedBytes();
  for (auto _ : state) {
    const kelvo::Path path = LongPath();
    path.Integrate();
    benchmark::DoNotOptimize(&path);
  }
  const auto n = static_cast<double>(state.iterations());
  state.counters["allocations"] = static_cast<double>(bench::AllocationCount() - count) / n;
  state.counters["bytes"] = static_cast<double>(bench::AllocatedBytes() - bytes) / n;
}

void IntegrateAgainOurs(benchmark::State& state) {
  const kelvo::Path path = LongPath();
  path.Integrate();
  const std::size_t count = bench::AllocationCount();
  for (auto _ : state) {
    path.Integrate();
    benchmark::DoNotOptimize(&path);
  }
  state.counters["allocations"] = static_cast<double>(bench::AllocationCount() - count) /
                                  static_cast<double>(state.iterations());
}

void IntegratePlain(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(plain::Path(Steps(), Tables(), kPoints));
}

void QueriesOurs(benchmark::State& state) {
  const kelvo::Path path = LongPath();
  path.Integrate();
  for (auto _ : state)
    for (int i = 0; i < 1000; i++) benchmark::DoNotOptimize(path.X0(i * 1.5));
  state.SetItemsProcessed(state.iterations() * 1000);
}

void QueriesPlain(benchmark::State& state) {
  const plain::Path path(Steps(), Tables(), kPoints);
  for (auto _ : state)
    for (int i = 0; i < 1000; i++)
      benchmark::DoNotOptimize(plain::Lookup(i * 1.5, path.fS, path.fX0));
  state.SetItemsProcessed(state.iterations() * 1000);
}

BENCHMARK(LookupOurs)->Name("lookup/ours");
BENCHMARK(LookupPlain)->Name("lookup/plain");
BENCHMARK(TableOurs)->Name("table construction/ours");
BENCHMARK(IntegrateOurs)
    ->Name("15 m, 1000 steps, 3 hypotheses/ours")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(IntegrateAgainOurs)
    ->Name("15 m, 1000 steps, 3 hypotheses/ours, same object")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(IntegratePlain)
    ->Name("15 m, 1000 steps, 3 hypotheses/plain")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(QueriesOurs)->Name("X0 in a sorted sequence/ours");
BENCHMARK(QueriesPlain)->Name("X0 in a sorted sequence/plain");

} // namespace

int main(int argc, char** argv) {
  RequireAgreement();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  std::printf("peak memory %.0f MiB\n", bench::PeakMemoryMiB());
  return 0;
}
