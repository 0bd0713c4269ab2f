#pragma once

#include <array>
#include <string>
#include <vector>

namespace kelvo {

/// What came out for one hypothesis.
struct HypothesisSummary {
  int fPDG = 0;
  unsigned long long fFitted = 0;
  unsigned long long fBest = 0; ///< tracks that it fits best
  double fMedianChi2PerNDF = 0; ///< both views, hits and kinks, within 0.5 %; NaN without fits
};

/// What came out of a whole run.
struct FitSummary {
  unsigned long long fTracks = 0;
  unsigned long long fHits = 0;
  unsigned long long fOutliers = 0; ///< hits of fitted tracks that count less than half
  unsigned long long fFitted = 0;   ///< tracks with at least one fitted hypothesis
  unsigned long long fLeft = 0;     ///< of these, tracks that are taken to leave the detector
  std::array<unsigned long long, 6> fByStatus{}; ///< tracks by their FitStatus
  unsigned long long fBadLines = 0;              ///< lines and entries that could not be used
  unsigned long long fProblemCount = 0; ///< those lines, and the tracks that are not fitted besides
  std::vector<std::string> fProblems;   ///< the first ten of these problems
  std::vector<std::string> fDoubts;     ///< what cannot be meant by the hits, as HitPlanes counts
  std::vector<HypothesisSummary> fHypotheses;
  double fChargeScale = 0; ///< measured deposit per GeV; 0: deposits were not used
  double fSeconds = 0;

  bool AllUsed() const { return fBadLines == 0 && fFitted == fTracks; }
  /// Whether all was used and nothing of it is in doubt.
  bool Good() const { return AllUsed() && fDoubts.empty(); }
};

} // namespace kelvo
