#include "track/TrackChain.h"

#include "func/TrackBasis.h"
#include "track/Guarded.h"
#include "track/SmearedGeometry.h"

#include <TMath.h>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace kelvo {
namespace {

constexpr double kSmallestCosine = 0.02; // between axis and z: 88.9 degrees
constexpr double kForward = 0.1;         // of a tangent along z; below, a plane is hardly crossed

KinkPoint Moved(const KinkPoint& p, double ds) {
  return {p.fX + ds * p.fSlope, p.fSlope, p.fVarX + ds * (2 * p.fCovXSlope + ds * p.fVarSlope),
          p.fCovXSlope + ds * p.fVarSlope, p.fVarSlope};
}

double Component(const TVector3& v, int view) {
  return view == 0 ? v.X() : v.Y();
}

double Mass(int pdg) { // GeV, as the range-out has them
  switch (std::abs(pdg)) {
    case 13:
      return 0.105658;
    case 211:
      return 0.13957;
    default:
      return 0.938272;
  }
}

/// Adds points from a to b [cm], the end of a track, and b itself: the way to the end is halved
/// again and again. The range-out takes one step per leg and material, and from a nearly stopped
/// particle a long step would start with a stopping power far too high to be true.
void AddEnd(TVector3 a, const TVector3& b, std::vector<TVector3>& points) {
  constexpr double kShortest = 0.01; // cm; the range of a muon of 1 MeV in plastic
  const double length = (b - a).Mag();
  for (double left = length / 2; left > kShortest; left /= 2)
    points.push_back(b + (a - b) * (left / length));
  points.push_back(b);
}

/// Finds the hits of a fit along its track, for ascending z.
class HitFinder {
public:
  explicit HitFinder(const HypothesisFit& fit) : fFit(fit) {}

  /// Returns a view's hit at or next behind z [cm], the last one behind all of them.
  const HitFit& At(unsigned int view, double z) {
    std::size_t& i = fNext[view];
    for (; i < fFit.fHit.size(); i++) {
      if (fFit.fHit[i].fView != static_cast<int>(view)) continue;
      fFound[view] = i;
      if (fFit.fHit[i].fZ >= z) break;
    }
    return fFit.fHit[fFound[view]];
  }

private:
  const HypothesisFit& fFit;
  std::size_t fNext[2] = {0, 0};
  std::size_t fFound[2] = {0, 0};
};

/// The stretch of a leg whose slopes against z are uncertain: to second order, a line at an angle
/// theta to z is longer by (sig_x^2 + sig_y^2) / 2 cos^2 theta on average.
double Stretch(const TVector3& leg, const HitFit& x, const HitFit& y) {
  constexpr double kMost = 0.25; // where the slope is not known, nor is the length
  const double variance = x.fFitSigSlope * x.fFitSigSlope + y.fFitSigSlope * y.fFitSigSlope;
  const double cos2 = leg.Mag2() > 0 ? leg.Z() * leg.Z() / leg.Mag2() : 0;
  return 1 + std::min(variance / 2 * cos2, kMost);
}

/// The legs of a track for SmearedGeometry. Shifts are evenly spread over an interval with the
/// standard deviation of the track's position, by a sequence that fills the plane evenly
/// (M. Roberts, "The unreasonable effectiveness of quasirandom sequences", 2018: multiples of the
/// inverse powers of the plastic number, modulo 1).
std::vector<SmearedLeg> SmearedLegs(const std::vector<TVector3>& points, const HypothesisFit& fit) {
  constexpr double kStepX = 0.7548776662466927, kStepY = 0.5698402909980532;
  const double width = std::sqrt(12.); // of a uniform distribution, in standard deviations
  HitFinder hits(fit);
  std::vector<SmearedLeg> legs;
  double fx = 0, fy = 0;
  for (std::size_t i = 1; i < points.size(); i++) {
    fx += kStepX - (fx + kStepX >= 1 ? 1 : 0);
    fy += kStepY - (fy + kStepY >= 1 ? 1 : 0);
    const double z = (points[i - 1].Z() + points[i].Z()) / 2;
    const HitFit& x = hits.At(0, z);
    const HitFit& y = hits.At(1, z);
    legs.push_back({(fx - 0.5) * width * x.fFitSigU, (fy - 0.5) * width * y.fFitSigU,
                    Stretch(points[i] - points[i - 1], x, y)});
  }
  return legs;
}

void RangeOutParams(const Path& path, HypothesisFit& fit) {
  const int pdg = std::abs(fit.fPDG);
  const auto query = pdg == 13    ? &Path::MuonParams
                     : pdg == 211 ? &Path::PionParams
                                  : &Path::ProtonParams;
  (path.*query)(0, &fit.fT, &fit.fP, &fit.fBeta, &fit.fGamma);
}

} // namespace

TrackChain::TrackChain(const geo::GeometryBase& detector, const TrackFitOptions& options)
    : fOptions(options),
      fGeometry(detector, options.fBeamMomentum == 0),
      fSolver(options.fSolver) {}

Refusal TrackChain::Fit(const HitList3D& hits, TrackFit& out) {
  SortAndComplete(hits);
  if (Refusal refusal = MakeFrame()) return refusal;
  MakeHits();
  LoadViews();
  LayPath();
  Refine();
  if (!IsBeam() && (fS.front() < fPathBegin || fS.back() > fPathEnd)) LayPath();
  for (HypothesisFit& fit : out.fHypothesis) {
    const Refusal refusal = Guarded([&] { return FitHypothesis(fit); });
    fit.fStatus = refusal.fStatus;
    fit.fMessage = refusal.fMessage;
  }
  FindBest(out);
  FillKinematics(out);
  return {};
}

void TrackChain::SortAndComplete(const HitList3D& hits) {
  fHits = hits;
  // A complete order, so that the result does not depend on the order of hits of one plane.
  std::sort(fHits.begin(), fHits.end(), [](const Hit3D& a, const Hit3D& b) {
    const auto key = [](const Hit3D& h) {
      return std::make_tuple(h.fZ, static_cast<int>(h.fView), h.fView == 0 ? h.fX : h.fY,
                             h.fView == 0 ? h.fSigX : h.fSigY);
    };
    return key(a) < key(b);
  });
  fHits.CompleteOrtho(&gsDefaultInterp); // given by name, it does not sort again
}

Refusal TrackChain::MakeFrame() {
  for (auto* v : {&fHitX, &fHitY, &fHitZ, &fHitDX, &fHitDY, &fHitDZ}) v->clear();
  for (const Hit3D& hit : fHits) {
    fHitX.push_back(hit.fX);
    fHitY.push_back(hit.fY);
    fHitZ.push_back(hit.fZ);
    fHitDX.push_back(hit.fSigX);
    fHitDY.push_back(hit.fSigY);
    fHitDZ.push_back(hit.fSigZ);
  }
  const Hit3D& first = fHits.front();
  TrackBasis basis;
  basis.MakeBasis(fHitX, fHitY, fHitZ, fHitDX, fHitDY, fHitDZ, first.fX, first.fY, first.fZ);
  const TVector3 axis = basis.ZAxis();
  if (!(std::abs(axis.Z()) >= kSmallestCosine))
    return {FitStatus::kBadGeometry,
            "the hits lie along a line at more than 88.8 degrees to the z "
            "axis; a fit needs a track that crosses the planes"};
  fFrame = TrackFrame(basis.Origin(), axis);
  return {};
}

void TrackChain::MakeHits() {
  fTrackHits.clear();
  for (const Hit3D& hit : fHits) {
    const int view = hit.fView;
    TrackHit h{};
    h.fView = view;
    h.fZ = hit.fZ;
    h.fU = view == 0 ? hit.fX : hit.fY;
    h.fSigU = view == 0 ? hit.fSigX : hit.fSigY;
    h.fSigZ = hit.fSigZ;
    h.fS = fFrame.AxisCoordinate(TVector3(hit.fX, hit.fY, hit.fZ));
    h.fA = fFrame.Transverse(view, h.fU, h.fZ);
    h.fSigA = fFrame.SigTransverse(view, h.fSigU, h.fSigZ);
    fTrackHits.push_back(h);
  }
  FindGap();
}

void TrackChain::FindGap() {
  std::vector<double>& gaps = fS; // filled later
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
  fAt.clear();
  for (ViewProblem& view : fView) {
    view.fS.clear();
    view.fA.clear();
    view.fSig.clear();
  }
  for (const TrackHit& hit : fTrackHits) {
    ViewProblem& view = fView[static_cast<std::size_t>(hit.fView)];
    view.fS.push_back(hit.fS);
    view.fA.push_back(hit.fA);
    view.fSig.push_back(hit.fSigA);
    fAt.push_back(hit.fS);
  }
  fS = fAt;
  std::sort(fS.begin(), fS.end());
}

/// The path begins ahead of the first hit, so that Refine has room to move the hits.
void TrackChain::LayPath() {
  const double gap = fGap / std::abs(fFrame.Axis().Z());
  if (IsBeam())
    return FindSlabs(fGeometry, fFrame.AxisPoint(fS.front()), fFrame.AxisPoint(fS.back()),
                     fS.front(), fSlabs);
  fPathBegin = fS.front() - gap;
  fPathEnd = fS.back() + fOptions.fBeyondLastHit * gap;
  std::vector<TVector3> points{fFrame.AxisPoint(fPathBegin)};
  AddEnd(points.front(), fFrame.AxisPoint(fPathEnd), points);
  fPath.emplace(fGeometry, points, fPathBegin);
}

/// The path coordinate of a hit is where the track crosses its plane, which is known after a first
/// fit. There, the measurement is put on the line at a distance that makes the fit linear in it.
void TrackChain::Refine() {
  ClearFit(fOptions.fHypotheses.front(), fFirstPass);
  const Refusal refusal = Guarded([&] {
    PlacePlanes(fFirstPass.fPDG);
    return SolveViews(fFirstPass) ? Refusal{} : Refusal{FitStatus::kSingular, ""};
  });
  if (refusal) return; // the hypotheses will tell
  for (std::size_t i = 0; i < fTrackHits.size(); i++) RefineHit(HitPoint(i), fTrackHits[i]);
  LoadViews();
}

void TrackChain::RefineHit(const TrackPoint& before, TrackHit& hit) const {
  if (before.fTangent.Z() < kForward) return;
  const TrackPoint p = CrossingWith(before, hit.fZ);
  const double scale = AtFixedZ(p.fTangent, hit.fView, hit.fView);
  if (scale < kForward) return;
  const double slope = Component(p.fTangent, hit.fView) / p.fTangent.Z();
  hit.fS = p.fS;
  hit.fA = p.fState[static_cast<std::size_t>(hit.fView)].fX +
           (hit.fU - Component(p.fPoint, hit.fView)) / scale;
  hit.fSigA = std::hypot(hit.fSigU, slope * hit.fSigZ) / scale;
}

Refusal TrackChain::FitHypothesis(HypothesisFit& fit) {
  PlacePlanes(fit.fPDG);
  if (!SolveViews(fit))
    return {FitStatus::kSingular,
            "the normal equations of a view have no solution; check the "
            "uncertainties of the hits and their spread in z"};
  FillHypothesis(fit);
  return {};
}

void TrackChain::PlacePlanes(int pdg) {
  const std::size_t most = std::min(fView[0].fS.size(), fView[1].fS.size()) - 1;
  if (!IsBeam()) return PlaceByLimits(*fPath, pdg, fS, fOptions, most, fPlanes);
  const double p = fOptions.fBeamMomentum;
  const double betaP = p * p / std::hypot(p, Mass(pdg));
  double sigma = fTrackHits.front().fSigA;
  for (const TrackHit& hit : fTrackHits) sigma = std::min(sigma, hit.fSigA);
  PlaceInSlabs(fSlabs, {fS.front(), fS.back(), betaP, fOptions.fScatteringFactor, sigma}, most,
               fPlanes);
}

bool TrackChain::SolveViews(HypothesisFit& fit) {
  double logLikelihood[2];
  for (std::size_t v = 0; v < 2; v++)
    if (!fSolver.Solve(fView[v], fPlanes, fAt, fit.fView[v], fState[v], logLikelihood[v]))
      return false;
  fit.fLogLikelihood = logLikelihood[0] + logLikelihood[1];
  return true;
}

void TrackChain::FillHypothesis(HypothesisFit& fit) const {
  const auto& [x, y] = fit.fView;
  fit.fNDF = x.fNDF + y.fNDF;
  const double chi2 = x.fChi2 + x.fChi2Kink + y.fChi2 + y.fChi2Kink;
  fit.fProb = fit.fNDF > 0 ? TMath::Prob(chi2, fit.fNDF) : 1;
  FillPlanes(fit);
  fit.fHit.resize(fTrackHits.size());
  for (std::size_t i = 0; i < fTrackHits.size(); i++) FillHit(i, fit.fHit[i]);
  FillStart(fit);
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
    fit.fPlanePoint.push_back(fFrame.Point(s, a[0], a[1]));
  }
}

void TrackChain::FillHit(std::size_t i, HitFit& fit) const {
  const TrackHit& hit = fTrackHits[i];
  const TrackPoint p = HitPoint(i);
  const auto own = static_cast<std::size_t>(hit.fView);
  const double slope = Component(p.fTangent, hit.fView) / p.fTangent.Z();
  const double c = AtFixedZ(p.fTangent, hit.fView, hit.fView);
  const double c2 = c * c;
  const double cross = AtFixedZ(p.fTangent, hit.fView, 1 - hit.fView);
  const double varOther = cross * cross * p.fState[1 - own].fVarX;
  const double varResidual = c2 * (hit.fSigA * hit.fSigA - p.fState[own].fVarX) + varOther;
  fit.fView = hit.fView;
  fit.fZ = hit.fZ;
  fit.fU = hit.fU;
  fit.fSigU = hit.fSigU;
  fit.fFitU = Component(p.fPoint, hit.fView);
  fit.fFitSigU = std::sqrt(c2 * p.fState[own].fVarX + varOther);
  fit.fResidual = fit.fU - fit.fFitU;
  // A hit that alone fixes the track has no residual, and none to compare with.
  const bool free = varResidual > 1e-9 * hit.fSigU * hit.fSigU;
  fit.fPull = free ? fit.fResidual / std::sqrt(varResidual) : 0;
  fit.fFitSlope = slope;
  fit.fFitSigSlope =
      std::sqrt(c2 * p.fState[own].fVarSlope + cross * cross * p.fState[1 - own].fVarSlope) /
      p.fTangent.Z();
}

void TrackChain::FindBest(TrackFit& out) const {
  double best = 0, second = 0;
  int fitted = 0;
  for (std::size_t h = 0; h < out.fHypothesis.size(); h++) {
    const HypothesisFit& fit = out.fHypothesis[h];
    if (fit.fStatus != FitStatus::kFitted) continue;
    if (fitted++ == 0 || fit.fLogLikelihood > best) {
      second = fitted > 1 ? best : 0;
      best = fit.fLogLikelihood;
      out.fBest = static_cast<int>(h);
    } else if (fitted == 2 || fit.fLogLikelihood > second) {
      second = fit.fLogLikelihood;
    }
  }
  out.fLead = fitted > 1 ? best - second : 0;
}

void TrackChain::FillStart(HypothesisFit& fit) const {
  const TrackPoint p = HitPoint(0);
  const double norm = p.fTangent.Mag();
  fit.fPosition = p.fPoint;
  fit.fDirection = p.fTangent * (1 / norm);
  // Rows x, y, ux, uy; for each view the derivatives by its position and by its slope.
  double byA[2][4], byB[2][4];
  for (int v = 0; v < 2; v++) {
    const TVector3& d = fFrame.Dual(v);
    const TVector3 du = (d - fit.fDirection * fit.fDirection.Dot(d)) * (1 / norm);
    for (int u = 0; u < 2; u++) {
      byA[v][u] = AtFixedZ(p.fTangent, u, v);
      byA[v][u + 2] = byB[v][u] = 0;
      byB[v][u + 2] = Component(du, u);
    }
  }
  std::size_t k = 0;
  for (std::size_t i = 0; i < 4; i++)
    for (std::size_t j = i; j < 4; j++, k++) {
      fit.fCov[k] = 0;
      for (std::size_t v = 0; v < 2; v++) {
        const KinkPoint& c = p.fState[v];
        fit.fCov[k] += byA[v][i] * c.fVarX * byA[v][j] + byB[v][i] * c.fVarSlope * byB[v][j] +
                       c.fCovXSlope * (byA[v][i] * byB[v][j] + byB[v][i] * byA[v][j]);
      }
    }
}

void TrackChain::FillEnd(HypothesisFit& fit) const {
  const TrackPoint last = HitPoint(fTrackHits.size() - 1);
  const double beyond = IsBeam() ? 0 : fOptions.fBeyondLastHit * fGap;
  fit.fEnd = last.fPoint + last.fTangent * (beyond / last.fTangent.Z());
}

void TrackChain::FillKinematics(TrackFit& out) const {
  if (!out.Fitted()) return;
  const HypothesisFit& best = out.fHypothesis[static_cast<std::size_t>(out.fBest)];
  std::vector<TVector3> points{best.fPosition};
  points.insert(points.end(), best.fPlanePoint.begin(), best.fPlanePoint.end());
  if (IsBeam())
    points.push_back(best.fEnd);
  else
    AddEnd(points.back(), best.fEnd, points);
  for (HypothesisFit& fit : out.fHypothesis)
    if (IsBeam()) FillBeam(points, fit);
  if (!IsBeam()) FillRangeOut(points, best, out);
}

void TrackChain::FillRangeOut(const std::vector<TVector3>& points, const HypothesisFit& best,
                              TrackFit& out) const {
  const SmearedGeometry geometry(fGeometry, SmearedLegs(points, best));
  const Path path(geometry, points, 0);
  const double length = path.Length();
  const double radLen = path.X0(length);
  for (HypothesisFit& fit : out.fHypothesis) {
    if (fit.fStatus != FitStatus::kFitted) continue;
    fit.fLength = length;
    fit.fRadLen = radLen;
    RangeOutParams(path, fit);
  }
}

void TrackChain::FillBeam(const std::vector<TVector3>& points, HypothesisFit& fit) const {
  if (fit.fStatus != FitStatus::kFitted) return;
  const double m = Mass(fit.fPDG);
  fit.fP = fOptions.fBeamMomentum;
  const double e = std::hypot(fit.fP, m);
  fit.fT = fit.fP * fit.fP / (e + m);
  fit.fBeta = fit.fP / e;
  fit.fGamma = e / m;
  fit.fLength = 0;
  for (std::size_t i = 1; i < points.size(); i++) fit.fLength += (points[i] - points[i - 1]).Mag();
  fit.fRadLen = 0;
  for (const Slab& slab : fSlabs) fit.fRadLen += slab.fDX0;
}

TrackChain::TrackPoint TrackChain::PointOf(double s, const KinkPoint& x, const KinkPoint& y) const {
  return {s, {x, y}, fFrame.Point(s, x.fX, y.fX), fFrame.Tangent(x.fSlope, y.fSlope)};
}

TrackChain::TrackPoint TrackChain::HitPoint(std::size_t i) const {
  TrackPoint p = CrossingWith(PointOf(fAt[i], fState[0][i], fState[1][i]), fTrackHits[i].fZ);
  // A line along its plane has no position at fixed z; this keeps the numbers of such a hit finite.
  p.fTangent.SetZ(std::max(p.fTangent.Z(), kForward));
  return p;
}

/// The point where the line through p crosses a plane z [cm]; p itself where it hardly does.
TrackChain::TrackPoint TrackChain::CrossingWith(const TrackPoint& p, double z) const {
  if (p.fTangent.Z() < kForward) return p;
  const double ds = (z - p.fPoint.Z()) / p.fTangent.Z();
  return PointOf(p.fS + ds, Moved(p.fState[0], ds), Moved(p.fState[1], ds));
}

/// Derivative of the coordinate u (0: x, 1: y) at fixed z by the transverse position of a view, and
/// times the tangent's z the derivative of the slope du/dz by the view's slope.
double TrackChain::AtFixedZ(const TVector3& tangent, int u, int view) const {
  const TVector3& d = fFrame.Dual(view);
  return Component(d, u) - Component(tangent, u) / tangent.Z() * d.Z();
}

void ClearFit(int pdg, HypothesisFit& fit) {
  HypothesisFit fresh;
  fresh.fPDG = pdg;
  // Memory that the next fit will need again.
  fresh.fMessage.swap(fit.fMessage);
  fresh.fPlaneS.swap(fit.fPlaneS);
  fresh.fPlanePoint.swap(fit.fPlanePoint);
  fresh.fPlaneSigAlpha.swap(fit.fPlaneSigAlpha);
  fresh.fHit.swap(fit.fHit);
  fresh.fMessage.clear();
  fresh.fPlaneS.clear();
  fresh.fPlanePoint.clear();
  fresh.fPlaneSigAlpha.clear();
  fresh.fHit.clear();
  for (std::size_t v = 0; v < 2; v++) {
    fresh.fView[v].fKink.swap(fit.fView[v].fKink);
    fresh.fView[v].fSigKink.swap(fit.fView[v].fSigKink);
    fresh.fView[v].fKink.clear();
    fresh.fView[v].fSigKink.clear();
  }
  fit = std::move(fresh);
}

} // namespace kelvo
