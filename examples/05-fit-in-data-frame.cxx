// Fits simulated tracks in a data frame on all cores, compares momenta with the truth and stores
// what is worth keeping:
//
//   kelvo simulate --detector detectors/fine.toml --particle mu --kinetic-energy 0.3..1.6
//       --hits gauss --tracks 5000 --seed 1 -o hits.root
//   05-fit-in-data-frame hits.root detectors/fine.toml fits
//
// writes fits.root and fits.png.

#include "geo/PlaneDetector.h"
#include "run/FitFrame.h"

#include <TCanvas.h>
#include <TChain.h>
#include <TROOT.h>
#include <TStyle.h>
#include <ROOT/RDataFrame.hxx>

#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

namespace {

//! [fit]
double Ratio(double p, double px, double py, double pz) {
  return p / std::sqrt(px * px + py * py + pz * pz);
}

void FitAndDraw(const std::string& hits, const std::string& detector, const std::string& output) {
  ROOT::EnableImplicitMT(); // before the data frame is made
  TChain tracks("hits");
  tracks.Add(hits.c_str());
  TChain truth("truth");
  truth.Add(hits.c_str());
  tracks.AddFriend(&truth);

  auto planes = std::make_shared<geo::PlaneDetector>(geo::PlaneDetector::FromFile(detector));
  kelvo::TrackFitOptions options;
  options.fHypotheses = {13};                 // muons were simulated,
  options.fEnd = kelvo::TrackEndMode::kStops; // which stop
  auto all = kelvo::DefineFit(ROOT::RDataFrame(tracks), planes, options);
  auto fits = all.Filter([](int status) { return status == 0; }, {"fit_status"})
                  .Define("ratio", Ratio, {"fit_p", "px", "py", "pz"});

  // Booked first, all of this is done in one loop over the tracks.
  auto number = all.Count();
  auto fitted = fits.Count();
  auto ratio = fits.Histo1D<double>(
      {"ratio", "Momentum of muons;fitted over true momentum;tracks", 80, 0.9, 1.1}, "ratio");
  auto pull = fits.Histo1D<ROOT::RVec<float>>({"pull", "Pulls of their hits;pull;hits", 100, -5, 5},
                                              "fit_pull");
  ROOT::RDF::RSnapshotOptions lazy;
  lazy.fLazy = true;
  auto stored = fits.Snapshot("fits", output + ".root",
                              {"track", "fit_p", "fit_prob", "fit_cov", "ratio"}, lazy);

  std::printf("%llu of %llu tracks are fitted; mean of fitted over true momentum %.4f\n", *fitted,
              *number, ratio->GetMean());
  //! [fit]
  gStyle->SetOptStat(0);
  gStyle->SetPadLeftMargin(0.14f);
  TCanvas canvas("canvas", "", 1000, 450);
  canvas.Divide(2, 1);
  canvas.cd(1);
  ratio->DrawClone();
  canvas.cd(2);
  pull->DrawClone();
  canvas.SaveAs((output + ".png").c_str());
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s HITS.root DETECTOR.toml OUTPUT\n", argv[0]);
    return 2;
  }
  gROOT->SetBatch(true);
  try {
    FitAndDraw(argv[1], argv[2], argv[3]);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
