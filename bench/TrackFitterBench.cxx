#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "func/Lutz.h"
#include "func/Path.h"
#include "func/ScatteringSurfaces.h"
#include "func/TrackBasis.h"
#include "geo/PlaneDetector.h"
#include "test/support/Allocations.h"
#include "test/support/Geant4Sample.h"
#include "track/TrackFitter.h"

// Tracks per second of the whole fit under three hypotheses. The tracks are muons simulated with
// Geant4 that stop in the fine detector, 66 hits each. Beside it, the fit written with the seven
// classes of func/, as examples/03-seven-classes has it: both must find about the same start and
// momentum before anything is timed.

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

/// A hit in the track frame: position along the track, and across it in the hit's own view [cm].
struct Measurement {
  geo::_plane_proj fView;
  double fZ, fU, fSigU;
};

/// What the seven classes give of a track.
struct SevenClasses {
  double fSlope[3][2]; // by hypothesis and view, in the track frame
  double fP[3];        // [GeV/c]
};

kelvo::TrackBasis MakeFrame(const kelvo::HitList3D& hits) {
  std::vector<double> x, y, z, dx, dy, dz;
  for (const kelvo::Hit3D& h : hits) {
    x.push_back(h.fX);
    y.push_back(h.fY);
    z.push_back(h.fZ);
    dx.push_back(h.fSigX);
    dy.push_back(h.fSigY);
    dz.push_back(h.fSigZ);
  }
  kelvo::TrackBasis frame;
  frame.MakeBasis(x, y, z, dx, dy, dz, x[0], y[0], z[0]);
  return frame;
}

std::vector<Measurement> InFrame(const kelvo::HitList3D& hits, const kelvo::TrackBasis& frame) {
  std::vector<Measurement> measurements;
  for (const kelvo::Hit3D& h : hits) {
    double x = 0, y = 0, z = 0, sigx = 0, sigy = 0;
    frame.DetToTrk(h.fX, h.fY, h.fZ, h.fSigX, h.fSigY, h.fSigZ, &x, &y, &z, &sigx, &sigy, nullptr);
    const bool isX = h.fView == geo::kX;
    measurements.push_back({h.fView, z, isX ? x : y, isX ? sigx : sigy});
  }
  std::sort(measurements.begin(), measurements.end(),
            [](const Measurement& a, const Measurement& b) { return a.fZ < b.fZ; });
  return measurements;
}

/// Lutz needs more hits in each view than planes; where there are more planes, wider steps are
/// taken.
kelvo::ScatteringSurfaces Surfaces(int pdg, const double* p0, const double* p1,
                                   const std::vector<double>& s) {
  for (double widening = 1;; widening *= 1.5) {
    kelvo::ScatteringSurfaces surfaces(pdg, 30 * widening, 3 * widening, 0.5 * widening);
    surfaces.MakeSurfaces(Detector(), p0, p1, s);
    if (surfaces.N() < s.size() / 3) return surfaces;
  }
}

double FitView(geo::_plane_proj view, const std::vector<Measurement>& all,
               const kelvo::ScatteringSurfaces& surfaces) {
  std::vector<Measurement> hits;
  for (const Measurement& m : all)
    if (m.fView == view) hits.push_back(m);
  const auto n = static_cast<unsigned int>(hits.size());
  kelvo::Lutz fit(n, surfaces.N());
  for (unsigned int i = 0; i < n; i++) fit.SetMeasurement(i, hits[i].fZ, hits[i].fU, hits[i].fSigU);
  for (unsigned int j = 0; j < surfaces.N(); j++)
    fit.SetScatteringPlane(j, surfaces.S(j), surfaces.SigAlpha(j));
  double x0 = 0, slope = 0, chi2 = 0;
  std::vector<double> kinks(surfaces.N());
  fit.Fit(&x0, &slope, kinks.data(), &chi2);
  benchmark::DoNotOptimize(fit.Covariance());
  return slope;
}

SevenClasses FitWithSevenClasses(kelvo::HitList3D hits) {
  hits.CompleteOrtho();
  const kelvo::TrackBasis frame = MakeFrame(hits);
  const std::vector<Measurement> measurements = InFrame(hits, frame);
  std::vector<double> s;
  for (const Measurement& m : measurements) s.push_back(m.fZ);
  const double end = s.back() + 0.5 * (s.back() - s[s.size() - 2]);
  double p0[3], p1[3];
  frame.TrkToDet(0, 0, s.front(), 0, 0, 0, &p0[0], &p0[1], &p0[2], nullptr, nullptr, nullptr);
  frame.TrkToDet(0, 0, end, 0, 0, 0, &p1[0], &p1[1], &p1[2], nullptr, nullptr, nullptr);
  SevenClasses out{};
  const int hypotheses[] = {13, 211, 2212};
  for (std::size_t h = 0; h < 3; h++) {
    const kelvo::ScatteringSurfaces surfaces = Surfaces(hypotheses[h], p0, p1, s);
    out.fSlope[h][0] = FitView(geo::kX, measurements, surfaces);
    out.fSlope[h][1] = FitView(geo::kY, measurements, surfaces);
  }
  const kelvo::Path path(Detector(), p0, p1, s.front());
  path.MuonParams(s.front(), nullptr, &out.fP[0], nullptr, nullptr);
  path.PionParams(s.front(), nullptr, &out.fP[1], nullptr, nullptr);
  path.ProtonParams(s.front(), nullptr, &out.fP[2], nullptr, nullptr);
  return out;
}

/// What the seven classes give, and no more.
kelvo::TrackFitOptions RangeOnly() {
  kelvo::TrackFitOptions options;
  options.fEnd = kelvo::TrackEndMode::kStops;
  options.fScatteringMomentum = false;
  return options;
}

bool Agree() {
  constexpr double kMomentum = 0.1; // relative; the axis is straight, the track is not
  TrackFitter fitter(Detector(), RangeOnly());
  for (std::size_t i = 0; i < 100; i++) {
    const SevenClasses a = FitWithSevenClasses(Tracks()[i].fHits);
    const TrackFit b = fitter.Fit(Tracks()[i].fHits);
    for (std::size_t h = 0; h < 3; h++)
      if (std::abs(a.fP[h] / b.fHypothesis[h].fP - 1) > kMomentum) return false;
  }
  return true;
}

template <class Work>
void Measure(benchmark::State& state, Work&& work) {
  const std::size_t before = bench::AllocationCount();
  std::size_t i = 0;
  for (auto _ : state) {
    work(Tracks()[i % Tracks().size()].fHits);
    i++;
  }
  const auto n = static_cast<double>(state.iterations());
  state.counters["tracks/s"] = benchmark::Counter(n, benchmark::Counter::kIsRate);
  state.counters["allocations"] = static_cast<double>(bench::AllocationCount() - before) / n;
}

void Chain(benchmark::State& state, const kelvo::TrackFitOptions& options) {
  TrackFitter fitter(Detector(), options);
  TrackFit fit;
  for (const Geant4Track& track : Tracks()) fitter.Fit(track.fHits, fit); // memory as in a long run
  Measure(state, [&](const kelvo::HitList3D& hits) {
    fitter.Fit(hits, fit);
    benchmark::DoNotOptimize(fit);
  });
}

void SevenClassesLoop(benchmark::State& state) {
  Measure(state, [](const kelvo::HitList3D& hits) {
    benchmark::DoNotOptimize(FitWithSevenClasses(hits));
  });
}

BENCHMARK_CAPTURE(Chain, range, RangeOnly())->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Chain, default, kelvo::TrackFitOptions{})->Unit(benchmark::kMicrosecond);
BENCHMARK(SevenClassesLoop)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  if (!std::filesystem::exists(kelvo::test::Geant4Folder())) {
    std::printf("no simulated tracks in %s; set KELVO_SHARED_DATA to the shared folder\n",
                kelvo::test::Geant4Folder().c_str());
    return 0;
  }
  if (!Agree()) {
    std::printf("the chain and the seven classes disagree\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
