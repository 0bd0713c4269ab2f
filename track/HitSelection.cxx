// Which hits a TrackChain uses, and how much each counts.
#include "fit/RobustFit.h"
#include "track/TrackChain.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace kelvo {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kFewer = 0.5; // an outlier counts less

RobustWeight WeightOf(OutlierMode mode) {
  switch (mode) {
    case OutlierMode::kHuber:
      return RobustWeight::kHuber;
    case OutlierMode::kTukey:
      return RobustWeight::kTukey;
    default:
      return RobustWeight::kCauchy;
  }
}

} // namespace

bool TrackChain::Selects() const {
  return fOptions.fRobust != OutlierMode::kKeep || fOptions.fReject > 0 || !fExcluded.empty();
}

/// Hits of excluded planes have no part in the fit, whatever their weights would be.
Refusal TrackChain::SelectHits(TrackFit& out) {
  fAllHits = fHits;
  for (TrackHit& hit : fAllHits) {
    hit.fIsExcluded = IsExcluded(hit);
    if (hit.fIsExcluded) hit.fWeight = 0;
  }
  if (fOptions.fRobust != OutlierMode::kKeep || fOptions.fReject > 0)
    if (Refusal refusal = FindOutliers()) return refusal;
  out.fOutliers = static_cast<unsigned>(
      std::count_if(fAllHits.begin(), fAllHits.end(),
                    [](const TrackHit& hit) { return hit.fWeight < kFewer && !hit.fIsExcluded; }));
  return UseHits();
}

bool TrackChain::IsExcluded(const TrackHit& hit) const {
  return std::any_of(fExcluded.begin(), fExcluded.end(), [this, &hit](unsigned int p) {
    const geo::ActivePlane& plane = fPlaneDetector->Planes()[p];
    const auto view = static_cast<unsigned>(hit.fView);
    return plane.Holds(hit.fZ) && fPlaneDetector->NearestPlane(hit.fZ, view) == &plane;
  });
}

/// As FitRobustly and RejectOutliers, but with one weight of a hit for both views and all
/// hypotheses, whose likelihoods could not be compared otherwise: that of the hypothesis which the
/// hit fits best. Material, energies and widths are found anew with each change of the weights,
/// since a wrong hit leads them astray, too.
Refusal TrackChain::FindOutliers() {
  constexpr int kMaxFits = 50;
  constexpr double kSame = 1e-3; // of weights
  double scale = fOptions.fRobust == OutlierMode::kHuber ? 1 : 8;
  for (int fits = 0; fits < kMaxFits; fits++) {
    if (Refusal refusal = UseHits()) return refusal;
    if (Refusal refusal = FindPulls()) return refusal;
    if (fOptions.fReject > 0) {
      if (!RejectWorst()) break;
    } else {
      if (Reweigh(scale) <= kSame && scale == 1) break;
      scale = std::max(1., scale / 2);
    }
  }
  return {};
}

/// Divides the hits into those that the fit uses and the others.
Refusal TrackChain::UseHits() {
  fHits.clear();
  fLeftOut.clear();
  std::size_t n[2] = {};
  double first[2] = {kInfinity, kInfinity}, last[2] = {-kInfinity, -kInfinity};
  for (const TrackHit& hit : fAllHits) {
    (hit.fWeight > 0 ? fHits : fLeftOut).push_back(hit);
    if (hit.fWeight == 0) continue;
    n[hit.fView]++;
    first[hit.fView] = std::min(first[hit.fView], hit.fZ);
    last[hit.fView] = std::max(last[hit.fView], hit.fZ);
  }
  Refusal refusal = CheckView("X", n[0], first[0], last[0]);
  if (!refusal) refusal = CheckView("Y", n[1], first[1], last[1]);
  if (refusal && !fLeftOut.empty())
    refusal.fMessage += " (" + std::to_string(fLeftOut.size()) + " are left out)";
  return refusal;
}

/// Fits all hypotheses to the hits in use, and sets the pulls of all hits beside the fit of the
/// others.
Refusal TrackChain::FindPulls() {
  fTrial.fHypothesis.resize(fMasses.size());
  if (Refusal refusal = FindEnergies(false, fTrial)) return refusal;
  fPulls.assign(fAllHits.size(), kInfinity);
  for (std::size_t h = 0; h < fMasses.size(); h += kLanes) {
    const LaneFits lanes = {h, std::min(kLanes, fMasses.size() - h), nullptr};
    FindWidths(lanes);
    SolveViews();
    std::size_t used = 0, left = 0;
    for (std::size_t i = 0; i < fAllHits.size(); i++) {
      const bool isUsed = fAllHits[i].fWeight > 0;
      const TrackHit& hit = isUsed ? fHits[used] : fLeftOut[left];
      const Lanes pull =
          Compare(hit, isUsed ? fSmoother.At(hit.fView, used) : LineAtHit(hit)).fPull;
      (isUsed ? used : left)++;
      for (std::size_t l = 0; l < lanes.fN; l++)
        if (IsSolved(l)) fPulls[i] = std::min(fPulls[i], std::abs(pull[l]));
    }
  }
  const bool isSolved = std::isfinite(*std::min_element(fPulls.begin(), fPulls.end()));
  return isSolved ? Refusal() : NoSolution();
}

/// Sets the weights by the pulls, and returns the largest change of one.
/// @param scale factor on the standard threshold
double TrackChain::Reweigh(double scale) {
  const RobustWeight weight = WeightOf(fOptions.fRobust);
  double change = 0;
  for (std::size_t i = 0; i < fAllHits.size(); i++) {
    if (fAllHits[i].fIsExcluded) continue;
    const double w = RobustWeightFactor(weight, fPulls[i], scale * StandardThreshold(weight));
    change = std::max(change, std::abs(w - fAllHits[i].fWeight));
    fAllHits[i].fWeight = w;
  }
  return change;
}

/// Takes out the hit in use that is farthest off, and returns whether there is one too far.
bool TrackChain::RejectWorst() {
  std::size_t worst = fAllHits.size();
  double pull = fOptions.fReject;
  for (std::size_t i = 0; i < fAllHits.size(); i++) {
    if (fAllHits[i].fWeight == 0 || !(fPulls[i] > pull)) continue;
    worst = i;
    pull = fPulls[i];
  }
  if (worst == fAllHits.size()) return false;
  fAllHits[worst].fWeight = 0;
  return true;
}

/// Adds the hits that are left out where they belong among the others.
void TrackChain::FillLeftOut(const LaneFits& lanes) {
  for (const TrackHit& hit : fLeftOut) AddHit(hit, LineAtHit(hit), lanes);
  const auto isUpstream = [](const HitFit& a, const HitFit& b) {
    return std::tie(a.fZ, a.fView, a.fU) < std::tie(b.fZ, b.fView, b.fU);
  };
  for (std::size_t l = 0; l < lanes.fN; l++) {
    std::vector<HitFit>& hits = lanes.fFit[l].fHit;
    const auto middle = hits.begin() + static_cast<std::ptrdiff_t>(fHits.size());
    std::inplace_merge(hits.begin(), middle, hits.end(), isUpstream);
  }
}

} // namespace kelvo
