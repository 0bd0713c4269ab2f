// Fits the samples with muons that leave the detector and prints one line per track, for
// leaving.py.
//
//   fit-leaving > leaving.csv
//
// KELVO_SHARED_DATA tells where the samples are.

#include <cstdio>

#include "test/support/BundledDetector.h"
#include "test/support/Geant4Sample.h"
#include "test/support/TrackChainStages.h"

namespace {

struct Sample {
  const char* fDetector;
  const char* fName;
};

constexpr Sample kSamples[] = {
    {"fine", "mu_leave_0.7"}, {"fine", "mu_leave_1.5"},  {"fine", "mu_leave_3"},
    {"fine", "mu_leave_6"},   {"range", "mu_leave_1.5"}, {"range", "mu_leave_2.5"},
    {"range", "mu_leave_4"},  {"range", "mu_leave_8"},   {"fine", "mu_stop"},
    {"fine", "pi_stop"},      {"fine", "p_stop"},        {"range", "mu_stop"},
    {"range", "pi_stop"},     {"range", "p_stop"}};

void PrintTracks(const Sample& sample, const char* hits) {
  const kelvo::TrackFitOptions options;
  kelvo::TrackChain chain(BundledDetector(sample.fDetector), options);
  kelvo::TrackFit fit;
  for (const kelvo::test::Geant4Track& track :
       kelvo::test::ReadGeant4(std::string(sample.fDetector) + "_" + sample.fName, hits,
                               kelvo::test::LeavingFolder())) {
    fit = kelvo::TrackFit();
    for (int pdg : options.fHypotheses) fit.fHypothesis.emplace_back().fPDG = pdg;
    if (chain.Fit(track.fHits, {}, fit)) continue;
    const kelvo::HypothesisFit& muon = fit.fHypothesis.front();
    std::printf("%s,%s,%s,%zu,%.6g,%d,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%d", sample.fDetector,
                sample.fName, hits, track.fTruth.size(), track.fP, fit.fLeaves, fit.fEndPlanes,
                fit.fStopChi2, muon.fScattering.fLow, muon.fScattering.fHigh,
                muon.fScattering.fInverse, muon.fScattering.fSigInverse, muon.fPMin,
                kelvo::TrackChainStages::Bound(chain, track.fP), fit.fBest);
    for (const kelvo::HypothesisFit& hypothesis : fit.fHypothesis)
      std::printf(",%.6g", hypothesis.fProbScattering);
    std::printf("\n");
  }
}

} // namespace

int main() {
  if (!std::filesystem::exists(kelvo::test::LeavingFolder())) {
    std::fprintf(stderr, "no simulated tracks in %s; set KELVO_SHARED_DATA to the shared folder\n",
                 kelvo::test::LeavingFolder().c_str());
    return 2;
  }
  std::printf(
      "detector,sample,hits,n,p,leaves,planes,stop_chi2,low,high,inverse,sig_inverse,p_min,bound,"
      "best,prob_mu,prob_pi,prob_p\n");
  for (const Sample& sample : kSamples)
    for (const char* hits : {"cell", "smeared"}) PrintTracks(sample, hits);
}
