// Fits a file of hits in ROOT's interpreter and draws momenta and pulls: in the top folder, with
// kelvo's libraries on LD_LIBRARY_PATH,
//
//   root -l -b -q examples/04-fit-in-root.C
{
  //! [fit]
  auto detector = geo::PlaneDetector::FromFile("detectors/fine.toml");
  kelvo::TrackFitOptions options;
  options.fEnd = kelvo::TrackEndMode::kStops; // all of these muons do
  kelvo::TrackFitter fitter(detector, options);
  kelvo::HitReader reader({"examples/data/fine_mu_hits_smeared.csv.gz"});

  TH1D momentum("momentum",
                "Momentum of the best hypothesis;momentum at the first hit [GeV/c];tracks", 60, 0,
                1.8);
  TH1D pull("pull", "Pulls of its hits;pull;hits", 100, -5, 5);
  int fitted = 0;
  kelvo::TrackHits track;
  while (reader.Next(track)) {
    const kelvo::TrackFit fit = fitter.Fit(track.fHits);
    if (!fit.Fitted()) continue;
    const kelvo::HypothesisFit& best = fit.fHypothesis[fit.fBest];
    ++fitted;
    momentum.Fill(best.fP);
    for (const kelvo::HitFit& hit : best.fHit) pull.Fill(hit.fPull);
  }
  //! [fit]

  std::cout << fitted << " tracks are fitted; mean momentum " << momentum.GetMean()
            << " GeV/c, width of the pulls " << pull.GetStdDev() << std::endl;
  gStyle->SetOptStat(0);
  gStyle->SetPadLeftMargin(0.14f);
  TCanvas canvas("canvas", "", 1000, 450);
  canvas.Divide(2, 1);
  canvas.cd(1);
  momentum.Draw();
  canvas.cd(2);
  pull.Draw();
  canvas.SaveAs("fit-in-root.png");
}
