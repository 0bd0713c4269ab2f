// Surfaces for a track with 200 positions through 1,000 material steps, beside a plain program that
// integrates the track and looks every value up by a scan; with the allocations per call.
#include "func/ScatteringSurfaces.h"
#include "geo/OwnMaterial.h"
#include "test/support/Allocations.h"
#include "test/support/SurfacesReference.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

namespace {

constexpr std::size_t kPositions = 200;
constexpr std::size_t kSteps = 1000;
constexpr double kStep = 1.5; // [cm]

const geo::Own<> gPlastic("Scintillator", 11.2, 5.6, 1.0, -42, -70);
const geo::Own<> gWall("PVC", 28, 14, 1.4, -20, -50);
const double kStart[] = {0, 0, 0};
const double kEnd[] = {0, 0, kSteps* kStep};

/// Steps of equal length, made by a loop over two vectors: the time of the geometry hardly counts.
class Layers : public geo::GeometryBase {
public:
  void MaterialsBetweenPoints(const double*, const double*, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    ds.assign(kSteps, kStep);
    mats.resize(kSteps);
    for (std::size_t i = 0; i < kSteps; i++) mats[i] = i % 2 ? &gPlastic : &gWall;
  }
};

const Layers gLayers;

std::vector<double> Positions() {
  std::vector<double> s(kPositions);
  for (std::size_t i = 0; i < kPositions; i++)
    s[i] = 0.999 * kEnd[2] * static_cast<double>(i) / (kPositions - 1);
  return s;
}

/// Limits [cm], [radiation lengths], [rad cm] under which a step holds about seven positions.
struct Limits {
  double fDs = 60, fDX0 = 3, fDT = 10;
};

bool Agrees() {
  const std::vector<double> s = Positions();
  const Limits limits;
  kelvo::ScatteringSurfaces ours(13, limits.fDs, limits.fDX0, limits.fDT);
  ours.MakeSurfaces(gLayers, kStart, kEnd, s);
  std::vector<double> where, width;
  reference::Surfaces(gLayers, kStart, kEnd, 13, limits.fDs, limits.fDX0, limits.fDT, s, where,
                      width);
  if (ours.N() != where.size()) return false;
  for (unsigned int j = 0; j < ours.N(); j++)
    if (ours.S(j) != where[j] || ours.SigAlpha(j) != width[j]) return false;
  return true;
}

template <class Work>
void Measure(benchmark::State& state, Work work) {
  std::size_t calls = 0, surfaces = 0;
  const std::size_t before = bench::AllocationCount();
  for (auto _ : state) {
    surfaces += work();
    calls++;
  }
  const auto n = static_cast<double>(calls);
  state.counters["alloc/call"] = static_cast<double>(bench::AllocationCount() - before) / n;
  state.counters["surfaces"] = static_cast<double>(surfaces) / n;
}

void MakeSurfaces(benchmark::State& state) {
  const std::vector<double> s = Positions();
  const Limits limits;
  kelvo::ScatteringSurfaces surfaces(13, limits.fDs, limits.fDX0, limits.fDT);
  Measure(state, [&] {
    surfaces.MakeSurfaces(gLayers, kStart, kEnd, s);
    return surfaces.N();
  });
}
BENCHMARK(MakeSurfaces)->Unit(benchmark::kMicrosecond);

void MakeSurfacesPlain(benchmark::State& state) {
  const std::vector<double> s = Positions();
  const Limits limits;
  std::vector<double> where, width;
  Measure(state, [&] {
    where.clear();
    width.clear();
    reference::Surfaces(gLayers, kStart, kEnd, 13, limits.fDs, limits.fDX0, limits.fDT, s, where,
                        width);
    return where.size();
  });
}
BENCHMARK(MakeSurfacesPlain)->Unit(benchmark::kMicrosecond);

/// The fraction of the integration, which both need.
void IntegrationPlain(benchmark::State& state) {
  Measure(state, [&] { return reference::Integrate(gLayers, kStart, kEnd).s.size(); });
}
BENCHMARK(IntegrationPlain)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  if (!Agrees()) {
    std::fprintf(stderr, "SurfacesBench: ours and the plain program differ\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
