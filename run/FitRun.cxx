#include "run/FitRun.h"

#include "io/RootFile.h"
#include "run/ChargeScale.h"
#include "util/Text.h"

#include <TROOT.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace kelvo {

void CheckMaterials(const geo::Detector& detector, const TrackFitOptions& options) {
  if (options.fBeamMomentum > 0) return;
  const std::vector<std::string>& unknown = detector.UnknownMaterials();
  if (unknown.empty()) return;
  throw std::invalid_argument("the detector \"" + detector.Name() + "\" has " + Joined(unknown) +
                              ", of which neither the name nor the composition is known, so that "
                              "particles cannot be followed to where they stop; name a material "
                              "of 'kelvo materials', give a composition, or fit a beam of known "
                              "momentum");
}

namespace {

HitSource& Skipped(HitSource& hits, unsigned long long tracks) {
  hits.Skip(tracks);
  return hits;
}

} // namespace

FitRun::FitRun(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options)
    : fHits(Skipped(hits, options.fFirst)),
      fLimit(options.fLimit),
      fTally(options.fFit.fHypotheses),
      fBlocks([this](TrackHits& track) { return Next(track); }, MakeFitter(detector, options.fFit),
              std::max(1u, options.fThreads), !options.fScalarsOnly) {}

bool FitRun::Fit(const std::function<void(const FittedBlock&)>& write, const GoOn& goOn) {
  FittedBlock block;
  while (fBlocks.Next(block)) {
    fTally.Add(block);
    write(block);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - fStart;
    fProgress = {fTally.Tracks(), fFraction, time.count()};
    if (!goOn(fProgress)) return false;
  }
  return true;
}

/// The scale is found before the first thread starts, so that it does not depend on their number.
RowFitter FitRun::MakeFitter(const geo::Detector& detector, const TrackFitOptions& options) {
  CheckMaterials(detector, options);
  CheckRoomForRoot();
  // One thread may read a ROOT file while others use ROOT, too.
  ROOT::EnableThreadSafety();
  RowFitter fitter(TrackFitter(detector.Geometry(), options), detector.Planes());
  if (fitter.MipDeposit() == 0) return fitter;
  fChargeScale = options.fChargeScale;
  if (fChargeScale > 0) return fitter;
  for (TrackHits track; fFirst.size() < kTracksForScale && Read(track);) fFirst.push_back(track);
  if (fFirst.empty()) return fitter;
  fChargeScale = FitChargeScale(fitter, fFirst);
  fitter.SetChargeScale(fChargeScale);
  return fitter;
}

FitSummary FitRun::Summary() const {
  FitSummary summary = fTally.Summary(fProgress.fSeconds);
  summary.fChargeScale = fChargeScale;
  return summary;
}

bool FitRun::Next(TrackHits& track) {
  if (fFirst.empty()) return Read(track);
  track = std::move(fFirst.front());
  fFirst.pop_front();
  return true;
}

bool FitRun::Read(TrackHits& track) {
  if (fLimit != 0 && fRead == fLimit) return false;
  if (!fHits.Next(track)) return false;
  fRead++;
  const double ofLimit = fLimit == 0 ? 0 : static_cast<double>(fRead) / static_cast<double>(fLimit);
  fFraction = std::max(fHits.Fraction(), ofLimit);
  return true;
}

} // namespace kelvo
