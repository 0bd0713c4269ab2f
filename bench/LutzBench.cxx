#include <TError.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "func/Lutz.h"
#include "test/support/Allocations.h"
#include "test/support/LutzPlain.h"
#include "test/support/LutzStages.h"

// The fit beside the plain scalar program, whole and in its steps. Names end in n/m, the numbers of
// measurements and planes. Before anything is timed both must agree bit for bit.

namespace {

using kelvo::Lutz;
using kelvo::LutzStages;
using kelvo::test::LutzProblem;
using kelvo::test::PlainLutz;

constexpr unsigned int kSizes[][2] = {{10, 3},   {20, 8},    {50, 20},
                                      {100, 40}, {200, 100}, {400, 200}};

LutzProblem Problem(const benchmark::State& state) {
  return kelvo::test::TrackProblem(static_cast<unsigned int>(state.range(0)),
                                   static_cast<unsigned int>(state.range(1)), 1);
}

bool SameBits(const TMatrixDSym& a, const TMatrixDSym& b) {
  return a.GetNrows() == b.GetNrows() &&
         std::memcmp(a.GetMatrixArray(), b.GetMatrixArray(),
                     sizeof(double) * static_cast<std::size_t>(a.GetNoElements())) == 0;
}

bool SameBits(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

/// Whether the fit and the plain program give the same bits at every size, step by step.
bool Agree() {
  for (const auto& size : kSizes) {
    const LutzProblem p = kelvo::test::TrackProblem(size[0], size[1], 1);
    Lutz fit(size[0], size[1]);
    PlainLutz plain(size[0], size[1]);
    Load(p, fit);
    plain.Load(p);
    LutzStages::Prepare(fit);
    LutzStages::FillA(fit);
    plain.Prepare();
    plain.FillA();
    if (!SameBits(LutzStages::A(fit), plain.A())) return false;
    double x0 = 0, slope = 0, chi2 = 0;
    std::vector<double> alpha(size[1]);
    fit.Fit(&x0, &slope, alpha.data(), &chi2);
    plain.Fit();
    const kelvo::test::LutzSolution expected = plain.Solution();
    bool same = SameBits(LutzStages::A(fit), plain.A()) && SameBits(x0, expected.fX0) &&
                SameBits(slope, expected.fSlope) && SameBits(chi2, expected.fChi2);
    for (std::size_t j = 0; j < alpha.size(); j++)
      same = same && SameBits(alpha[j], expected.fAlpha[j]);
    if (!same || !fit.Succeeded()) return false;
  }
  return true;
}

/// Counts what one call of the measured function takes from the heap.
template <class Function>
void Measure(benchmark::State& state, const Function& function) {
  function();
  const std::size_t countBefore = bench::AllocationCount();
  const std::size_t bytesBefore = bench::AllocatedBytes();
  function();
  const std::size_t count = bench::AllocationCount() - countBefore;
  const std::size_t bytes = bench::AllocatedBytes() - bytesBefore;
  for (auto _ : state) function();
  state.counters["allocations"] = static_cast<double>(count);
  state.counters["bytes"] = static_cast<double>(bytes);
}

void LoadAndFit(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  Lutz fit(p.NMeas(), p.NScat());
  double chi2 = 0;
  Measure(state, [&] {
    Load(p, fit);
    fit.Fit(nullptr, nullptr, nullptr, &chi2);
    benchmark::DoNotOptimize(chi2);
  });
}

void LoadAndFitPlain(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  PlainLutz fit(p.NMeas(), p.NScat());
  Measure(state, [&] {
    fit.Load(p);
    fit.Fit();
    benchmark::DoNotOptimize(fit.Chi2());
  });
}

void NormalMatrix(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  Lutz fit(p.NMeas(), p.NScat());
  Load(p, fit);
  LutzStages::Prepare(fit);
  Measure(state, [&] {
    LutzStages::FillA(fit);
    benchmark::ClobberMemory();
  });
}

void NormalMatrixPlain(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  PlainLutz fit(p.NMeas(), p.NScat());
  fit.Load(p);
  fit.Prepare();
  Measure(state, [&] {
    fit.FillA();
    benchmark::ClobberMemory();
  });
}

/// With the copy of the normal matrix that is inverted.
void Inversion(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  Lutz fit(p.NMeas(), p.NScat());
  Load(p, fit);
  LutzStages::Prepare(fit);
  LutzStages::FillA(fit);
  const TMatrixDSym a = LutzStages::A(fit);
  Measure(state, [&] { benchmark::DoNotOptimize(LutzStages::Invert(fit, a)); });
}

/// Loading, lever arms, design matrix, parameters, fitted values and chi2.
void Rest(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  Lutz fit(p.NMeas(), p.NScat());
  Load(p, fit);
  fit.Fit(nullptr, nullptr, nullptr, nullptr);
  Measure(state, [&] {
    Load(p, fit);
    LutzStages::Prepare(fit);
    LutzStages::Solve(fit);
    benchmark::DoNotOptimize(fit.Chi2XI() + fit.Chi2Beta());
  });
}

void RestPlain(benchmark::State& state) {
  const LutzProblem p = Problem(state);
  PlainLutz fit(p.NMeas(), p.NScat());
  fit.Load(p);
  fit.Fit();
  Measure(state, [&] {
    fit.Load(p);
    fit.Prepare();
    fit.Solve();
    benchmark::DoNotOptimize(fit.Chi2());
  });
}

} // namespace

int main(int argc, char** argv) {
  if (!Agree()) {
    std::fprintf(stderr, "LutzBench: the fit and the plain program differ; nothing measured\n");
    return 1;
  }
  const std::pair<const char*, void (*)(benchmark::State&)> functions[] = {
      {"LoadAndFit", LoadAndFit},     {"LoadAndFitPlain", LoadAndFitPlain},
      {"NormalMatrix", NormalMatrix}, {"NormalMatrixPlain", NormalMatrixPlain},
      {"Inversion", Inversion},       {"Rest", Rest},
      {"RestPlain", RestPlain}};
  for (const auto& size : kSizes)
    for (const auto& [name, function] : functions)
      benchmark::RegisterBenchmark(name, function)
          ->Args({size[0], size[1]})
          ->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  std::printf("peak memory of the process: %.1f MiB\n", bench::PeakMemoryMiB());
}
