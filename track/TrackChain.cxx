#include "track/TrackChain.h"

#include "track/Guarded.h"
#include "track/RangeOut.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <TMath.h>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace kelvo {
namespace {

constexpr double kSmallestCosine = 0.02; // between axis and z: 88.9 degrees

// Planes often stand at a hit, where the slope changes: the line at a hit is the one before.
constexpr double kUpstream = 1e-6; // cm

// A complete order, so that the result does not depend on the order of hits in one plane.
bool IsUpstream(const Hit3D& a, const Hit3D& b) {
  const auto key = [](const Hit3D& h) {
    const bool isX = h.fView == geo::kX;
    return std::make_tuple(h.fZ, isX ? 0 : 1, isX ? h.fX : h.fY, isX ? h.fSigX : h.fSigY);
  };
  return key(a) < key(b);
}

/// A range-out takes steps of 10 cm at most, so that a track of any length would take any time.
void CheckLength(double length) {
  constexpr double kLongest = 4e5; // cm; the diagonal of the coordinates that are accepted
  if (!(length <= kLongest))
    throw GeometryRefusal{"the track would be " + NumberText(length) +
                          " cm long; check the coordinates and uncertainties of the hits"};
}

/// Length of a fitted track from the first hit to its end [cm].
double Length(const HypothesisFit& fit) {
  double length = 0;
  const TVector3* from = &fit.fPosition;
  for (const TVector3& point : fit.fPlanePoint) {
    length += (point - *from).Mag();
    from = &point;
  }
  return length + (fit.fEnd - *from).Mag();
}

TVector3 ToTVector3(const Vector& v) {
  return TVector3(v[0], v[1], v[2]);
}

} // namespace

TrackChain::TrackChain(const geo::GeometryBase& detector, const TrackFitOptions& options)
    : fOptions(options),
      fGeometry(detector, options.fBeamMomentum == 0),
      fLumped(fGeometry),
      fSolver(options.fSolver) {}

Refusal TrackChain::Fit(const HitList3D& hits, TrackFit& out) {
  SortAndComplete(hits);
  if (Refusal refusal = MakeFrame()) return refusal;
  MakeHits();
  LoadViews();
  LayPath();
  Refine();
  for (HypothesisFit& fit : out.fHypothesis) {
    const Refusal refusal = Guarded([&] { return FitHypothesis(fit); });
    if (refusal) RefuseFit(refusal, fit);
  }
  FindBest(out);
  if (out.Fitted()) FillKinematics(out);
  return {};
}

void TrackChain::SortAndComplete(const HitList3D& hits) {
  fHits = hits;
  std::sort(fHits.begin(), fHits.end(), IsUpstream);
  fHits.CompleteOrtho(&gsDefaultInterp); // given by name, it does not sort again
}

Refusal TrackChain::MakeFrame() {
  fFrame = FrameAlong(fHits);
  if (!(fFrame.Axis()[2] >= kSmallestCosine))
    return {
        FitStatus::kBadGeometry,
        "the hits lie along a line at more than 88.8 degrees to the z axis; a fit needs a track "
        "that crosses the planes"};
  return {};
}

void TrackChain::MakeHits() {
  fTrackHits.clear();
  for (const Hit3D& hit : fHits) {
    const bool isX = hit.fView == geo::kX;
    TrackHit h{};
    h.fView = isX ? 0 : 1;
    h.fZ = hit.fZ;
    h.fU = isX ? hit.fX : hit.fY;
    h.fSigU = isX ? hit.fSigX : hit.fSigY;
    h.fSigZ = hit.fSigZ;
    h.fS = fFrame.AxisCoordinate({hit.fX, hit.fY, hit.fZ});
    h.fA = fFrame.Transverse(h.fView, h.fU, h.fZ);
    h.fSigA = fFrame.SigTransverse(h.fView, h.fSigU, h.fSigZ);
    fTrackHits.push_back(h);
  }
  FindGap();
}

void TrackChain::FindGap() {
  std::vector<double>& gaps = fS; // which LoadViews fills afterwards
  gaps.clear();
  for (std::size_t i = 1; i < fTrackHits.size(); i++) {
    const double gap = fTrackHits[i].fZ - fTrackHits[i - 1].fZ;
    if (gap > 0) gaps.push_back(gap);
  }
  const auto middle = gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2);
  std::nth_element(gaps.begin(), middle, gaps.end());
  fGap = *middle;
}

void TrackChain::LoadViews() {
  fS.clear();
  fAt.clear();
  for (ViewProblem& view : fView) view.Clear();
  for (const TrackHit& hit : fTrackHits) {
    fView[hit.fView].Add(hit.fS, hit.fA, hit.fSigA);
    fS.push_back(hit.fS);
    fAt.push_back(hit.fS - kUpstream);
  }
  if (!std::is_sorted(fS.begin(), fS.end())) std::sort(fS.begin(), fS.end());
}

/// The path has a point at every hit, for LumpedGeometry, and begins ahead of the first one, so
/// that Refine has room to move it.
void TrackChain::LayPath() {
  CheckLength(fS.back() - fS.front());
  if (IsBeam())
    return FindSlabs(fGeometry, fFrame.Point(fS.front(), 0, 0), fFrame.Point(fS.back(), 0, 0),
                     fS.front(), fSlabs);
  const double gap = fGap / fFrame.Axis()[2];
  fPathBegin = fS.front() - gap;
  fPathEnd = fS.back() + fOptions.fBeyondLastHit * gap;
  fPathPoints.clear();
  fPathPoints.push_back(ToTVector3(fFrame.Point(fPathBegin, 0, 0)));
  for (double s : fS) fPathPoints.push_back(ToTVector3(fFrame.Point(s, 0, 0)));
  AddEnd(ToTVector3(fFrame.Point(fPathEnd, 0, 0)), fPathPoints);
  fPath.emplace(fLumped, fPathPoints, fPathBegin);
}

/// The path coordinate of a hit is where the track crosses its plane, which is known after a first
/// fit.
void TrackChain::Refine() {
  ClearFit(fOptions.fHypotheses.front(), fFirstPass);
  const Refusal refusal = Guarded([&] {
    PlacePlanes(fFirstPass.fPDG);
    return SolveViews(fFirstPass) ? Refusal{} : Refusal{FitStatus::kSingular, ""};
  });
  if (refusal) return; // the hypotheses will tell
  for (std::size_t i = 0; i < fTrackHits.size(); i++) MoveToTrack(HitPoint(i), fTrackHits[i]);
  LoadViews();
  if (!IsBeam() && (fS.front() < fPathBegin || fS.back() > fPathEnd)) LayPath();
}

Refusal TrackChain::FitHypothesis(HypothesisFit& fit) {
  PlacePlanes(fit.fPDG);
  if (!SolveViews(fit))
    return {FitStatus::kSingular,
            "the normal equations of a view have no solution; check the uncertainties of the hits "
            "and their spread in z"};
  FillHypothesis(fit);
  CheckLength(Length(fit));
  return {};
}

void TrackChain::PlacePlanes(int pdg) {
  const std::size_t most = std::min(fView[0].fS.size(), fView[1].fS.size()) - 1;
  if (!IsBeam()) return PlaceByLimits(*fPath, pdg, fS, fOptions, most, fPlanes);
  const double p = fOptions.fBeamMomentum;
  BeamTrack track{fS.front(),
                  fS.back(),
                  p / std::hypot(p, FindParticle(pdg)->fMass),
                  p,
                  fOptions.fScatteringFactor,
                  fTrackHits.front().fSigA};
  for (const TrackHit& hit : fTrackHits)
    track.fSmallestSigma = std::min(track.fSmallestSigma, hit.fSigA);
  PlaceInSlabs(fSlabs, track, most, fPlanes);
}

bool TrackChain::SolveViews(HypothesisFit& fit) {
  double logLikelihood[2];
  for (std::size_t v = 0; v < 2; v++)
    if (!fSolver.Solve(fView[v], fPlanes, fAt, fit.fView[v], fState[v], logLikelihood[v]))
      return false;
  fit.fLogLikelihood = logLikelihood[0] + logLikelihood[1];
  return true;
}

TrackPoint TrackChain::HitPoint(std::size_t i) const {
  return PointAtPlane(fFrame, {fAt[i], {fState[0][i], fState[1][i]}}, fTrackHits[i].fZ);
}

void TrackChain::FillHypothesis(HypothesisFit& fit) const {
  const auto& [x, y] = fit.fView;
  fit.fNDF = x.fNDF + y.fNDF;
  const double chi2 = x.fChi2 + x.fChi2Kink + y.fChi2 + y.fChi2Kink;
  fit.fProb = fit.fNDF > 0 ? TMath::Prob(chi2, fit.fNDF) : 1;
  FillPlanes(fit);
  fit.fHit.resize(fTrackHits.size());
  for (std::size_t i = 0; i < fTrackHits.size(); i++)
    FillHit(HitPoint(i), fTrackHits[i], fit.fHit[i]);
  FillStart(fFrame, HitPoint(0), fit);
  FillEnd(fit);
}

void TrackChain::FillPlanes(HypothesisFit& fit) const {
  fit.fMaxDs = fPlanes.fMaxDs;
  fit.fMaxDX0 = fPlanes.fMaxDX0;
  fit.fMaxDT = fPlanes.fMaxDT;
  fit.fPlaneS = fPlanes.fS;
  fit.fPlaneSigAlpha = fPlanes.fSigAlpha;
  fit.fPlanePoint.clear();
  double s = 0;
  double a[2] = {fit.fView[0].fIntercept, fit.fView[1].fIntercept};
  double b[2] = {fit.fView[0].fSlope, fit.fView[1].fSlope};
  for (std::size_t j = 0; j < fPlanes.fS.size(); j++) {
    for (std::size_t v = 0; v < 2; v++) {
      a[v] += b[v] * (fPlanes.fS[j] - s);
      b[v] += fit.fView[v].fKink[j];
    }
    s = fPlanes.fS[j];
    fit.fPlanePoint.push_back(ToTVector3(fFrame.Point(s, a[0], a[1])));
  }
}

void TrackChain::FillEnd(HypothesisFit& fit) const {
  const TrackPoint last = HitPoint(fTrackHits.size() - 1);
  const double beyond = IsBeam() ? 0 : fOptions.fBeyondLastHit * fGap / last.fTangent[2];
  Vector end = last.fPoint;
  for (std::size_t i = 0; i < 3; i++) end[i] += beyond * last.fTangent[i];
  fit.fEnd = ToTVector3(end);
}

void TrackChain::FillKinematics(TrackFit& out) const {
  const HypothesisFit& best = out.fHypothesis[static_cast<std::size_t>(out.fBest)];
  if (!IsBeam()) {
    std::vector<TVector3> points{best.fPosition};
    points.insert(points.end(), best.fPlanePoint.begin(), best.fPlanePoint.end());
    AddEnd(best.fEnd, points);
    return RangeOut(fLumped, points, best, out.fHypothesis);
  }
  for (HypothesisFit& fit : out.fHypothesis)
    if (fit.fStatus == FitStatus::kFitted) FillBeam(Length(best), fit);
}

void TrackChain::FillBeam(double length, HypothesisFit& fit) const {
  const double m = FindParticle(fit.fPDG)->fMass;
  fit.fP = fOptions.fBeamMomentum;
  const double e = std::hypot(fit.fP, m);
  fit.fT = fit.fP * fit.fP / (e + m);
  fit.fBeta = fit.fP / e;
  fit.fGamma = e / m;
  fit.fLength = length;
  fit.fRadLen = 0;
  for (const Slab& slab : fSlabs) fit.fRadLen += slab.fDX0;
}

void ClearFit(int pdg, HypothesisFit& fit) {
  HypothesisFit fresh;
  fresh.fPDG = pdg;
  const auto keep = [](auto& from, auto& to) {
    from.clear();
    to.swap(from);
  };
  keep(fit.fMessage, fresh.fMessage);
  keep(fit.fPlaneS, fresh.fPlaneS);
  keep(fit.fPlanePoint, fresh.fPlanePoint);
  keep(fit.fPlaneSigAlpha, fresh.fPlaneSigAlpha);
  keep(fit.fHit, fresh.fHit);
  for (std::size_t v = 0; v < 2; v++) {
    keep(fit.fView[v].fKink, fresh.fView[v].fKink);
    keep(fit.fView[v].fSigKink, fresh.fView[v].fSigKink);
  }
  fit = std::move(fresh);
}

void RefuseFit(const Refusal& refusal, HypothesisFit& fit) {
  ClearFit(fit.fPDG, fit);
  fit.fStatus = refusal.fStatus;
  fit.fMessage = refusal.fMessage;
}

void FindBest(TrackFit& out) {
  constexpr double kTie = 1e-9; // nats; two hits in each view fit every hypothesis equally well
  double best = 0, second = 0;
  int fitted = 0;
  for (std::size_t h = 0; h < out.fHypothesis.size(); h++) {
    const HypothesisFit& fit = out.fHypothesis[h];
    if (fit.fStatus != FitStatus::kFitted) continue;
    fitted++;
    if (fitted == 1 || fit.fLogLikelihood > best + kTie) {
      second = best;
      best = fit.fLogLikelihood;
      out.fBest = static_cast<int>(h);
    } else if (fitted == 2 || fit.fLogLikelihood > second) {
      second = fit.fLogLikelihood;
    }
  }
  out.fLead = fitted > 1 ? best - second : 0;
}

} // namespace kelvo
