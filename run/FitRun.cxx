#include "run/FitRun.h"

#include "util/Text.h"

#include <TROOT.h>

#include <algorithm>
#include <stdexcept>

namespace kelvo {

namespace {

RowFitter MakeFitter(const geo::Detector& detector, const TrackFitOptions& options) {
  CheckMaterials(detector, options);
  // One thread may read a ROOT file while others use ROOT, too.
  ROOT::EnableThreadSafety();
  return {TrackFitter(detector.Geometry(), options), detector.Planes()};
}

} // namespace

void CheckMaterials(const geo::Detector& detector, const TrackFitOptions& options) {
  if (options.fBeamMomentum > 0) return;
  const std::vector<std::string>& unknown = detector.UnknownMaterials();
  if (unknown.empty()) return;
  throw std::invalid_argument("the detector \"" + detector.Name() + "\" has " + Joined(unknown) +
                              ", of which neither the name nor the composition is known, so that "
                              "particles cannot be followed "
                              "to where they stop; name a material of 'kelvo materials', give a "
                              "composition, or fit a beam of "
                              "known momentum");
}

FitRun::FitRun(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options)
    : fHits(hits),
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

bool FitRun::Next(TrackHits& track) {
  if (fLimit != 0 && fRead == fLimit) return false;
  if (!fHits.Next(track)) return false;
  fRead++;
  const double ofLimit = fLimit == 0 ? 0 : static_cast<double>(fRead) / static_cast<double>(fLimit);
  fFraction = std::max(fHits.Fraction(), ofLimit);
  return true;
}

} // namespace kelvo
