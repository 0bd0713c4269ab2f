#include <TError.h>
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "fit/KinkSmootherBatch.h"
#include "func/Lutz.h"
#include "test/support/Allocations.h"
#include "test/support/LutzPlain.h"

// The linear fit beside the dense one. Names end in n/m, the numbers of measurements and planes.
// Every figure includes loading a new track and reading the results: parameters, kinks, chi2 and
// the contribution of each measurement and plane to it. Before anything is timed both fits must
// agree.

namespace {

using kelvo::KinkSmoother;
using kelvo::Lutz;
using kelvo::test::LutzProblem;
using kelvo::test::TrackProblem;

constexpr unsigned int kSizes[][2] = {{10, 3},    {20, 8},    {50, 20},  {100, 40},
                                      {200, 100}, {400, 200}, {800, 400}};
constexpr unsigned int kGrowth[][2] = {{100, 50}, {1000, 500}, {10000, 5000}};
constexpr unsigned int kTracks = 16;

void Load(const LutzProblem& p, KinkSmoother& fit) {
  fit.Load(p.NMeas(), p.fZ.data(), p.fX.data(), p.fSigX.data(), p.NScat(), p.fS.data(),
           p.fSigAlpha.data());
}

struct Readout {
  explicit Readout(const LutzProblem& p)
      : fAlpha(p.NScat()), fChi2Beta(p.NScat()), fChi2XI(p.NMeas()) {}
  double fX0 = 0, fSlope = 0, fChi2 = 0;
  std::vector<double> fAlpha, fChi2Beta, fChi2XI;
};

template <class Fitter>
void FitAndRead(Fitter& fit, Readout& r) {
  fit.Fit(&r.fX0, &r.fSlope, r.fAlpha.data(), &r.fChi2);
  for (unsigned int i = 0; i < r.fChi2XI.size(); i++) r.fChi2XI[i] = fit.Chi2XIi(i);
  for (unsigned int j = 0; j < r.fChi2Beta.size(); j++) r.fChi2Beta[j] = fit.Chi2BetaJ(j);
  benchmark::ClobberMemory();
}

std::vector<LutzProblem> Problems(unsigned int n, unsigned int m) {
  std::vector<LutzProblem> problems;
  for (unsigned int seed = 0; seed < kTracks; seed++) problems.push_back(TrackProblem(n, m, seed));
  return problems;
}

/// Whether both fits give the same up to the dense one's rounding.
bool Agree() {
  for (const auto& size : kSizes) {
    if (size[0] > 200) break;
    const LutzProblem p = TrackProblem(size[0], size[1], 1);
    Readout expected(p), found(p);
    Lutz dense(size[0], size[1]);
    KinkSmoother fit(size[0], size[1]);
    Load(p, dense);
    Load(p, fit);
    FitAndRead(dense, expected);
    FitAndRead(fit, found);
    bool same = std::abs(found.fX0 - expected.fX0) < 1e-7 &&
                std::abs(found.fSlope - expected.fSlope) < 1e-9 &&
                std::abs(found.fChi2 / expected.fChi2 - 1) < 1e-8;
    for (unsigned int j = 0; j < size[1]; j++)
      same = same && std::abs(found.fAlpha[j] - expected.fAlpha[j]) < 1e-9;
    if (!same) return false;
  }
  return true;
}

/// Times function(track index), counts what one call takes from the heap, and prints the time per
/// element.
template <class Function>
void Measure(benchmark::State& state, const Function& function) {
  for (unsigned int t = 0; t < kTracks; t++) function(t);
  const std::size_t before = bench::AllocationCount();
  function(0);
  const std::size_t count = bench::AllocationCount() - before;
  unsigned int t = 0;
  for (auto _ : state) function(t++ % kTracks);
  state.counters["allocations"] = static_cast<double>(count);
  state.counters["s/element"] = benchmark::Counter(
      static_cast<double>(state.range(0) + state.range(1)),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// An object per track, as the dense fit must be used.
template <class Fitter>
void Anew(benchmark::State& state, unsigned int n, unsigned int m) {
  const std::vector<LutzProblem> problems = Problems(n, m);
  Readout r(problems[0]);
  Measure(state, [&](unsigned int t) {
    Fitter fit(n, m);
    Load(problems[t], fit);
    FitAndRead(fit, r);
  });
}

void Linear(benchmark::State& state, unsigned int n, unsigned int m) {
  const std::vector<LutzProblem> problems = Problems(n, m);
  Readout r(problems[0]);
  KinkSmoother fit(n, m);
  Measure(state, [&](unsigned int t) {
    Load(problems[t], fit);
    FitAndRead(fit, r);
  });
}

/// With everything a KinkSmoother tells, at every measurement and plane.
void LinearEverything(benchmark::State& state, unsigned int n, unsigned int m) {
  const std::vector<LutzProblem> problems = Problems(n, m);
  Readout r(problems[0]);
  KinkSmoother fit(n, m);
  Measure(state, [&](unsigned int t) {
    Load(problems[t], fit);
    FitAndRead(fit, r);
    benchmark::DoNotOptimize(fit.LogLikelihood());
    for (unsigned int i = 0; i < n; i++) {
      benchmark::DoNotOptimize(fit.Residual(i));
      benchmark::DoNotOptimize(fit.At(problems[t].fZ[i]));
    }
    for (unsigned int j = 0; j < m; j++) benchmark::DoNotOptimize(fit.VarKink(j));
  });
}

/// All tracks in one call; the time is that of all.
void Batch(benchmark::State& state, unsigned int n, unsigned int m) {
  LutzProblem all;
  std::vector<std::int64_t> meas = {0}, scat = {0};
  for (const LutzProblem& p : Problems(n, m)) {
    all.fZ.insert(all.fZ.end(), p.fZ.begin(), p.fZ.end());
    all.fX.insert(all.fX.end(), p.fX.begin(), p.fX.end());
    all.fSigX.insert(all.fSigX.end(), p.fSigX.begin(), p.fSigX.end());
    all.fS.insert(all.fS.end(), p.fS.begin(), p.fS.end());
    all.fSigAlpha.insert(all.fSigAlpha.end(), p.fSigAlpha.begin(), p.fSigAlpha.end());
    meas.push_back(static_cast<std::int64_t>(all.fZ.size()));
    scat.push_back(static_cast<std::int64_t>(all.fS.size()));
  }
  const kelvo::KinkBatchInput input = {kTracks,       meas.data(),         all.fZ.data(),
                                       all.fX.data(), all.fSigX.data(),    scat.data(),
                                       all.fS.data(), all.fSigAlpha.data()};
  std::vector<double> perTrack(std::size_t{4} * kTracks), alpha(all.fS.size()), xfit(all.fZ.size());
  kelvo::KinkBatchOutput output;
  output.fX0 = perTrack.data();
  output.fSlope = output.fX0 + kTracks;
  output.fChi2XI = output.fSlope + kTracks;
  output.fChi2Beta = output.fChi2XI + kTracks;
  output.fAlpha = alpha.data();
  output.fXfit = xfit.data();
  kelvo::KinkSmootherBatch batch;
  batch.Fit(input, output);
  const std::size_t before = bench::AllocationCount();
  batch.Fit(input, output);
  const std::size_t count = bench::AllocationCount() - before;
  for (auto _ : state) {
    batch.Fit(input, output);
    benchmark::ClobberMemory();
  }
  state.counters["allocations"] = static_cast<double>(count);
  state.counters["s/element"] = benchmark::Counter(
      static_cast<double>(kTracks * (n + m)),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

using Function = void (*)(benchmark::State&, unsigned int, unsigned int);

void Register(const char* name, Function function, unsigned int n, unsigned int m) {
  benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { function(state, n, m); })
      ->Args({n, m})
      ->Unit(benchmark::kMicrosecond);
}

} // namespace

int main(int argc, char** argv) {
  if (!Agree()) {
    std::fprintf(stderr, "KinkSmootherBench: linear and dense fit differ; nothing measured\n");
    return 1;
  }
  const std::pair<const char*, Function> linear[] = {{"Linear", Linear},
                                                     {"LinearAnew", Anew<KinkSmoother>},
                                                     {"LinearEverything", LinearEverything},
                                                     {"BatchOf16", Batch}};
  for (const auto& size : kSizes) {
    Register("Dense", Anew<Lutz>, size[0], size[1]);
    for (const auto& [name, function] : linear) Register(name, function, size[0], size[1]);
  }
  for (const auto& size : kGrowth) Register("LinearGrowth", Linear, size[0], size[1]);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  std::printf("peak memory of the process: %.1f MiB\n", bench::PeakMemoryMiB());
}
