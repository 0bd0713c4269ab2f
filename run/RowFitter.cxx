#include "run/RowFitter.h"

#include "track/PlaneOffsets.h"

namespace kelvo {

const TrackFit& RowFitter::Fit(TrackHits& track) {
  if (fPlanes) AddPlaneOffsets(*fPlanes, track.fHits);
  if (track.Good())
    fFitter.Fit(track.fHits, track.fCharges, fFit);
  else
    SetUnusable(track);
  return fFit;
}

void RowFitter::SetUnusable(const TrackHits& track) {
  fFit = TrackFit();
  for (const int pdg : Options().fHypotheses) {
    HypothesisFit& hypothesis = fFit.fHypothesis.emplace_back();
    hypothesis.fPDG = pdg;
    hypothesis.fStatus = FitStatus::kBadNumber;
    hypothesis.fMessage = track.fProblems.front();
  }
}

} // namespace kelvo
