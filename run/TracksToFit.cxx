#include "run/TracksToFit.h"

#include "track/Materials.h"
#include "track/PlaneOffsets.h"
#include "util/Text.h"

#include <algorithm>
#include <stdexcept>

namespace kelvo {

void CheckMaterials(const geo::Detector& detector, const TrackFitOptions& options) {
  if (options.fBeamMomentum > 0) return;
  const std::vector<std::string> unknown = MaterialsWithoutTable(detector.MaterialNames());
  if (unknown.empty()) return;
  throw std::invalid_argument(
      "the detector \"" + detector.Name() + "\" has " + Joined(unknown) +
      ", for which there is no stopping-power table, so that particles cannot be followed to where "
      "they stop; the known materials are " +
      Joined(MaterialsWithTable()) + "; a beam of known momentum needs no table");
}

bool TracksToFit::Next(TrackHits& track) {
  if (fLimit != 0 && fGiven == fLimit) return false;
  if (!fSource.Next(track)) return false;
  ++fGiven;
  const double ofLimit =
      fLimit == 0 ? 0 : static_cast<double>(fGiven) / static_cast<double>(fLimit);
  fShare = std::max(fSource.Share(), ofLimit);
  if (fDetector.Planes()) AddPlaneOffsets(*fDetector.Planes(), track.fHits);
  return true;
}

} // namespace kelvo
