// Fits the samples of tracks that Geant4 made and writes, for each track, how the fit compares with
// the truth: one CSV line on the standard output. document.py makes docs/validation.md from it.
//
//   fit-samples > validation.csv        (KELVO_SHARED_DATA tells where the samples are)

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "geo/PlaneDetector.h"
#include "test/support/Geant4Sample.h"
#include "track/TrackFitter.h"

namespace {

using kelvo::HitFit;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::test::Geant4Track;

struct Sample {
  const char* fDetector;
  const char* fParticle;
  std::size_t fHypothesis; // the right one, in the order of the options
};

constexpr Sample kSamples[] = {{"fine", "mu", 0},  {"fine", "pi", 1},  {"fine", "p", 2},
                               {"range", "mu", 0}, {"range", "pi", 1}, {"range", "p", 2}};

constexpr const char* kHeader =
    "detector,particle,hits,factor,status,p_true,p_fit,prob,best,lead,"
    "pull_u_first,pull_slope_first,pull_u_middle,pull_slope_middle,pull_u_last,pull_slope_last";

void PrintPulls(const HitFit& hit, const Geant4Track::Point& truth) {
  const bool isX = hit.fView == 0;
  std::printf(",%.4f,%.4f", (hit.fFitU - (isX ? truth.fX : truth.fY)) / hit.fFitSigU,
              (hit.fFitSlope - (isX ? truth.fDxDz : truth.fDyDz)) / hit.fFitSigSlope);
}

void Print(const HypothesisFit& fit, const TrackFit& all, const Geant4Track& track) {
  std::printf(",%d,%.6g", static_cast<int>(fit.fStatus), track.fP);
  if (fit.fStatus != kelvo::FitStatus::kFitted) {
    std::printf(",,,,,,,,,,\n");
    return;
  }
  std::printf(",%.6g,%.5f,%d,%.4f", fit.fP, fit.fProb, all.fBest, all.fLead);
  const std::size_t n = fit.fHit.size();
  for (std::size_t i : {std::size_t{0}, n / 2, n - 1}) PrintPulls(fit.fHit[i], track.fTruth[i]);
  std::printf("\n");
}

void FitSample(const Sample& sample, const char* hits, double factor) {
  const geo::PlaneDetector detector = geo::PlaneDetector::FromFile(
      std::string(KELVO_SOURCE_DIR "/detectors/") + sample.fDetector + ".toml");
  kelvo::TrackFitOptions options;
  options.fScatteringFactor = factor;
  kelvo::TrackFitter fitter(detector, options);
  const std::string name = std::string(sample.fDetector) + "_" + sample.fParticle;
  for (const Geant4Track& track : kelvo::test::ReadGeant4(name, hits)) {
    const TrackFit fit = fitter.Fit(track.fHits);
    std::printf("%s,%s,%s,%.3f", sample.fDetector, sample.fParticle, hits, factor);
    Print(fit.fHypothesis[sample.fHypothesis], fit, track);
  }
}

} // namespace

int main() {
  if (!std::filesystem::exists(kelvo::test::Geant4Folder())) {
    std::fprintf(stderr, "no simulated tracks in %s; set KELVO_SHARED_DATA to the shared folder\n",
                 kelvo::test::Geant4Folder().c_str());
    return 2;
  }
  std::puts(kHeader);
  const double factors[] = {1, kelvo::TrackFitOptions().fScatteringFactor};
  for (const Sample& sample : kSamples)
    for (const char* hits : {"cell", "smeared"})
      for (double factor : factors) FitSample(sample, hits, factor);
}
