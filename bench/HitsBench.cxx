// Completion of hits and building of the track's frame for 50, 200 and 1,000 hits over 60 m, beside
// plain programs over arrays, and the transformations; each with its allocations per call.
#include "func/HitList3D.h"
#include "func/TrackBasis.h"
#include "test/support/Allocations.h"
#include "test/support/HitsReference.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>

namespace {

using Numbers = std::vector<double>;

struct Track {
  kelvo::HitList3D fList; // ascending in z, views in turn
  Numbers x, y, z, dx, dy, dz;

  explicit Track(std::size_t n) {
    std::mt19937 random(1);
    std::normal_distribution<double> noise;
    for (std::size_t i = 0; i < n; i++) {
      const double at = 6000.0 * static_cast<double>(i) / static_cast<double>(n);
      const double xi = 10 + 0.1 * at + noise(random), yi = -5 - 0.2 * at + noise(random);
      fList.AddHit(i % 2 ? geo::kX : geo::kY, xi, yi, at, 0, 1, 1, 1, 0, 1);
      x.push_back(xi);
      y.push_back(yi);
      z.push_back(at);
      dx.push_back(1 + 0.1 * noise(random) * noise(random));
      dy.push_back(1 + 0.1 * noise(random) * noise(random));
      dz.push_back(0.5);
    }
  }
};

const double kOrigin[] = {1, 2, -10};

void MakeOurs(const Track& t, kelvo::TrackBasis& basis) {
  basis.MakeBasis(t.x, t.y, t.z, t.dx, t.dy, t.dz, kOrigin[0], kOrigin[1], kOrigin[2]);
}

void CompletePlain(const reference::HitArrays& hits, Numbers& coordinate, Numbers& sigma) {
  for (std::size_t k = 0; k < hits.z.size(); k++)
    reference::Complete(hits, k, &coordinate[k], &sigma[k]);
}

/// The completion to the last bit; the frame to rounding, since the fits sum differently.
bool Agrees(const Track& t) {
  const reference::HitArrays hits(t.fList);
  const std::size_t n = t.z.size();
  Numbers coordinate(n), sigma(n);
  CompletePlain(hits, coordinate, sigma);
  kelvo::HitList3D list = t.fList;
  list.CompleteOrtho();
  for (std::size_t k = 0; k < n; k++) {
    const kelvo::Hit3D& h = list[k];
    if ((h.fView == geo::kX ? h.fY : h.fX) != coordinate[k]) return false;
    if ((h.fView == geo::kX ? h.fSigY : h.fSigX) != sigma[k]) return false;
  }
  double f[3][3];
  reference::Frame(kOrigin, t.x, t.y, t.z, t.dx, t.dy, t.dz, f);
  kelvo::TrackBasis basis;
  MakeOurs(t, basis);
  const TVector3 axes[] = {basis.XAxis(), basis.YAxis(), basis.ZAxis()};
  for (int i = 0; i < 3; i++)
    for (int j = 0; j < 3; j++)
      if (std::fabs(axes[i](j) - f[i][j]) > 1e-14) return false;
  return true;
}

/// Runs work once per iteration and reports the allocations of one call.
template <class Work>
void Measure(benchmark::State& state, Work work) {
  std::size_t calls = 0;
  const std::size_t before = bench::AllocationCount();
  for (auto _ : state) {
    work();
    calls++;
  }
  state.counters["alloc/call"] =
      static_cast<double>(bench::AllocationCount() - before) / static_cast<double>(calls);
}

void CompleteOrtho(benchmark::State& state) {
  kelvo::HitList3D list = Track(static_cast<std::size_t>(state.range(0))).fList;
  Measure(state, [&] {
    list.CompleteOrtho();
    benchmark::DoNotOptimize(list.data());
    benchmark::ClobberMemory();
  });
}
BENCHMARK(CompleteOrtho)->Arg(50)->Arg(200)->Arg(1000);

void CompleteOrthoPlain(benchmark::State& state) {
  const reference::HitArrays hits(Track(static_cast<std::size_t>(state.range(0))).fList);
  Numbers coordinate(hits.z.size()), sigma(hits.z.size());
  Measure(state, [&] {
    CompletePlain(hits, coordinate, sigma);
    benchmark::DoNotOptimize(coordinate.data());
    benchmark::ClobberMemory();
  });
}
BENCHMARK(CompleteOrthoPlain)->Arg(50)->Arg(200)->Arg(1000);

void MakeBasis(benchmark::State& state) {
  const Track track(static_cast<std::size_t>(state.range(0)));
  kelvo::TrackBasis basis;
  Measure(state, [&] {
    MakeOurs(track, basis);
    benchmark::DoNotOptimize(basis);
  });
}
BENCHMARK(MakeBasis)->Arg(50)->Arg(200)->Arg(1000);

void MakeBasisPlain(benchmark::State& state) {
  const Track t(static_cast<std::size_t>(state.range(0)));
  double f[3][3];
  Measure(state, [&] {
    reference::Frame(kOrigin, t.x, t.y, t.z, t.dx, t.dy, t.dz, f);
    benchmark::DoNotOptimize(f);
  });
}
BENCHMARK(MakeBasisPlain)->Arg(50)->Arg(200)->Arg(1000);

/// Every hit of a track into its frame and back.
void ThereAndBack(benchmark::State& state) {
  const Track t(static_cast<std::size_t>(state.range(0)));
  kelvo::TrackBasis basis;
  MakeOurs(t, basis);
  Measure(state, [&] {
    for (std::size_t i = 0; i < t.z.size(); i++) {
      double p[6], q[6];
      basis.DetToTrk(t.x[i], t.y[i], t.z[i], t.dx[i], t.dy[i], t.dz[i], p, p + 1, p + 2, p + 3,
                     p + 4, p + 5);
      basis.TrkToDet(p[0], p[1], p[2], p[3], p[4], p[5], q, q + 1, q + 2, q + 3, q + 4, q + 5);
      benchmark::DoNotOptimize(q);
    }
  });
}
BENCHMARK(ThereAndBack)->Arg(200);

} // namespace

int main(int argc, char** argv) {
  for (const std::size_t n : {50UL, 200UL, 1000UL})
    if (!Agrees(Track(n))) {
      std::fprintf(stderr, "HitsBench: ours and the plain program differ for %zu hits\n", n);
      return 1;
    }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
