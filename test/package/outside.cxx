// A user's program: a straight track of eight hits that stops in a detector.
#include "func/HitList3D.h"
#include "geo/OwnMaterial.h"
#include "geo/PlaneDetector.h"
#include "track/TrackFitter.h"

#include <iostream>

int main() {
  kelvo::HitList3D hits;
  for (int i = 0; i < 8; i += 2) {
    hits.AddHit(geo::kX, 2.1, 0, 3 + 6.05 * i, 0, 0.3, 0, 0, 0, 1);
    hits.AddHit(geo::kY, 0, 2.1, 9.05 + 6.05 * i, 0, 0, 0.3, 0, 0, 1);
  }
  //! [five lines]
  const auto detector = geo::PlaneDetector::FromFile("detectors/fine.toml");
  kelvo::TrackFitter fitter(detector);
  const kelvo::TrackFit fit = fitter.Fit(hits);
  if (fit.Fitted()) std::cout << fit.fHypothesis[fit.fBest].fP << " GeV/c\n";
  if (!fit.Fitted()) std::cout << fit.fHypothesis[0].fMessage << '\n';
  //! [five lines]
  const geo::Own<> steel("Steel", 55.845, 26, 7.87, -1.7584, -17);
  return fit.Fitted() && fit.fHypothesis[0].fP > 0.1 && steel.GetRadLen() == 1.7584 ? 0 : 1;
}
