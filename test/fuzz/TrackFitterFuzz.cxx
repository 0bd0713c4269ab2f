// Hits of any numbers are fitted with finite results or get a status and a sentence; the same hits
// give the same bits.
#include "geo/PlaneDetector.h"
#include "test/fuzz/FuzzInput.h"
#include "track/TrackFitter.h"

#include <iostream>

namespace {

kelvo::TrackFitter MakeFitter() {
  std::cerr.setstate(std::ios::failbit);
  static const auto fine = geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return kelvo::TrackFitter(fine);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static kelvo::TrackFitter fitter = MakeFitter();
  fuzz::Values values(data, size);
  kelvo::HitList3D hits;
  const unsigned n = values.Count(20);
  for (unsigned i = 0; i < n; i++) {
    const auto view = static_cast<geo::_plane_proj>(values.Count(2));
    double v[9];
    for (double& number : v) number = values.Number();
    // Often a hit of a track: in the plane of its number, with an uncertainty that can be used.
    if (values.Byte() % 2) {
      v[2] = 3 + 6.05 * i;
      v[4] = v[5] = 0.5;
      v[6] = 0;
      v[8] = 1;
    }
    hits.AddHit(view, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
  }
  const kelvo::TrackFit fit = fitter.Fit(hits);
  const kelvo::TrackFit again = kelvo::TrackFitter(fitter).Fit(hits);
  for (std::size_t h = 0; h < fit.fHypothesis.size(); h++) {
    const kelvo::HypothesisFit& one = fit.fHypothesis[h];
    const bool isFitted = one.fStatus == kelvo::FitStatus::kFitted;
    fuzz::Expect(isFitted == one.fMessage.empty(), "a sentence for each failure");
    fuzz::Expect(one.fStatus == again.fHypothesis[h].fStatus, "the same status");
    fuzz::Expect(fuzz::IsSame(one.fP, again.fHypothesis[h].fP), "the same momentum");
    if (!isFitted) continue;
    for (const kelvo::ViewFit& view : one.fView) {
      fuzz::Expect(std::isfinite(view.fIntercept) && std::isfinite(view.fSlope), "the line");
      fuzz::Expect(view.fChi2 >= 0 && view.fChi2Kink >= 0, "chi-square");
    }
    fuzz::Expect(std::abs(one.fDirection.Mag() - 1) < 1e-9, "the direction");
  }
  return 0;
}
