#include "track/TrackChain.h"

#include "track/BetaP.h"
#include "track/HitCheck.h"
#include "track/Places.h"
#include "track/TrackEnd.h"
#include "util/Particles.h"

#include <TMath.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace kelvo {
namespace {

constexpr double kNoCharge = std::numeric_limits<double>::infinity();
constexpr double kSmallestCosine = 0.02; // between a track and z: 88.9 degrees

double Stretch(double slopeX, double slopeY) {
  return std::sqrt(1 + slopeX * slopeX + slopeY * slopeY);
}

/// The way through a gap is longer than its extent in z by the mean stretch at both ends. To be
/// called with ascending i.
template <class Real>
void SetStretch(std::size_t i, const Real& value, std::vector<Real>& stretch) {
  if (i > 0) stretch[i - 1] = (stretch[i - 1] + value) / 2;
  stretch[i] = value;
}

std::vector<double> Masses(const std::vector<int>& hypotheses) {
  std::vector<double> masses;
  for (int pdg : hypotheses) masses.push_back(FindParticle(pdg)->fMass);
  return masses;
}

/// Returns the momentum of a particle whose velocity times momentum is that of another one, of
/// momentum p and mass m [GeV].
double SameBetaP(double p, double m, double mass) {
  if (std::isinf(p)) return p;
  const double betaP = p * p / std::hypot(p, m);
  return std::sqrt(betaP * (betaP + std::hypot(betaP, 2 * mass)) / 2);
}

ScatteringMomentumFit SameBetaP(ScatteringMomentumFit fit, double m, double mass) {
  for (double* p : {&fit.fP, &fit.fLow, &fit.fHigh, &fit.fLikely}) *p = SameBetaP(*p, m, mass);
  return fit;
}

double Momentum(double T, double mass) {
  return std::sqrt(T * (T + 2 * mass));
}

double MipLoss(const std::vector<Gap>& gaps) {
  double sum = 0;
  for (const Gap& gap : gaps) sum += gap.fMipLoss;
  return sum;
}

/// Returns the radiation lengths along z of a gap, or of a window [cm] around it that is wider. At
/// the ends of the track the window moves inwards.
double RadLenAround(const std::vector<Gap>& gaps, std::size_t i, double window) {
  constexpr double kRounding = 1e-9;
  if (gaps[i].fEnd - gaps[i].fBegin >= window * (1 - kRounding)) return gaps[i].fRadLen;
  const double middle = (gaps[i].fBegin + gaps[i].fEnd) / 2;
  const double first = gaps.front().fBegin, last = gaps.back().fEnd - window;
  const double begin = std::max(std::min(middle - window / 2, last), first), end = begin + window;
  while (i > 0 && gaps[i].fBegin > begin) i--;
  double sum = 0;
  for (; i < gaps.size() && gaps[i].fBegin < end; i++) {
    const double length = gaps[i].fEnd - gaps[i].fBegin;
    const double inside = std::min(gaps[i].fEnd, end) - std::max(gaps[i].fBegin, begin);
    if (inside > 0) sum += gaps[i].fRadLen * inside / length;
  }
  return sum;
}

/// A straight line through the hits of a view, by least squares: sums about the first hit.
struct StraightLine {
  double fZ0 = 0, fU0 = 0;
  double f0 = 0, fZ = 0, fU = 0, fZZ = 0, fZU = 0;

  void Add(double z, double u, double sig, double weight) {
    if (f0 == 0) {
      fZ0 = z;
      fU0 = u;
    }
    const double w = weight / (sig * sig), dz = z - fZ0, du = u - fU0;
    f0 += w;
    fZ += w * dz;
    fU += w * du;
    fZZ += w * dz * dz;
    fZU += w * dz * du;
  }
  double Slope() const { return (f0 * fZU - fZ * fU) / (f0 * fZZ - fZ * fZ); }
};

/// The straight line through the hits of a view around one of them.
struct LocalLine {
  double fZ = 0, fU = 0; // a point
  double fSlope;

  /// @param slope of the line if the hits have no two different z
  LocalLine(const ViewHits& hits, std::size_t k, double slope) : fSlope(slope) {
    constexpr std::size_t kNear = 2; // on each side
    const std::size_t begin = k < kNear ? 0 : k - kNear;
    const std::size_t end = std::min(k + kNear + 1, hits.fZ.size());
    double w = 0;
    for (std::size_t i = begin; i < end; i++) {
      fZ += hits.fW[i] * hits.fZ[i];
      fU += hits.fW[i] * hits.fU[i];
      w += hits.fW[i];
    }
    fZ /= w;
    fU /= w;
    double zz = 0, zu = 0;
    for (std::size_t i = begin; i < end; i++) {
      zz += hits.fW[i] * (hits.fZ[i] - fZ) * (hits.fZ[i] - fZ);
      zu += hits.fW[i] * (hits.fZ[i] - fZ) * (hits.fU[i] - fU);
    }
    if (zz > 0) fSlope = zu / zz;
  }
  double At(double z) const { return fU + fSlope * (z - fZ); }
};

/// Returns the log-likelihood of all that was measured.
double LogLikelihood(const HypothesisFit& fit) {
  const bool hasCharge = !std::isnan(fit.fLogLikelihoodCharge);
  return hasCharge ? fit.fLogLikelihood + fit.fLogLikelihoodCharge : fit.fLogLikelihood;
}

} // namespace

TrackChain::TrackChain(const geo::GeometryBase& detector, const TrackFitOptions& options,
                       const ChargeLikelihood* charge)
    : fOptions(options),
      fPlaneDetector(dynamic_cast<const geo::PlaneDetector*>(&detector)),
      fCharge(charge),
      fPlaces(FindPlaces(options.fAt, fPlaneDetector)),
      fExcluded(FindPlanes(options.fExclude, fPlaneDetector)),
      fMasses(Masses(options.fHypotheses)),
      fMaterial(DetectorMaterials(detector, options.fHypotheses, options.fBeamMomentum == 0)),
      fEnergy(fMasses),
      fOwnEnergy(fMasses),
      fScattering(fMaterial, 0, fMasses[0]) {}

Refusal TrackChain::Fit(const HitList3D& hits, const std::vector<double>& charges, TrackFit& out) {
  SortHits(hits, charges);
  if (Selects())
    if (Refusal refusal = SelectHits(out)) return refusal;
  if (Refusal refusal = FindEnergies(fOptions.fScatteringMomentum, out)) return refusal;
  for (std::size_t h = 0; h < out.fHypothesis.size(); h += kLanes) {
    const LaneFits lanes = {h, std::min(kLanes, out.fHypothesis.size() - h), &out.fHypothesis[h]};
    FindWidths(lanes);
    SolveViews();
    Fill(lanes);
  }
  AddCharges(out);
  FindBest(fOptions.fFractions, out);
  if (!Stops() && fMasses.size() > 1) ForgetBest(out);
  return {};
}

/// Goes from the hits to the energies of all hypotheses along them.
Refusal TrackChain::FindEnergies(bool withScattering, TrackFit& out) {
  if (Refusal refusal = LayCourse()) return refusal;
  FindPoints();
  TraceMaterial();
  fLeaves = false;
  if (!IsBeam()) FindEnd(out);
  PlacePlanes();
  if (!IsBeam() && !(fMaterial.End().fMipLoss + MipLoss(fMaterial.Gaps()) > 0))
    return {FitStatus::kBadGeometry,
            "the detector reports no material along the track; check that the hits lie in it"};
  if (IsBeam()) {
    fMomenta.assign(fMasses.size(), fOptions.fBeamMomentum);
    fEnergy.Pass(fMaterial, fCourse.fStretch, fMomenta);
  } else {
    fEnergy.Stop(fMaterial, fCourse.fStretch);
  }
  if (withScattering || fLeaves) MeasureScattering(out);
  if (fLeaves) Leave(out);
  return {};
}

/// A complete order, so that the result does not depend on the order of hits in one plane.
bool TrackChain::IsUpstream(const TrackHit& a, const TrackHit& b) {
  return std::tie(a.fZ, a.fView, a.fU, a.fSigU, a.fSigZ, a.fQ) <
         std::tie(b.fZ, b.fView, b.fU, b.fSigU, b.fSigZ, b.fQ);
}

void TrackChain::SortHits(const HitList3D& hits, const std::vector<double>& charges) {
  const double perGeV = ChargePerGeV();
  fHits.clear();
  for (std::size_t i = 0; i < hits.size(); i++) {
    const Hit3D& hit = hits[i];
    const bool isX = hit.fView == geo::kX;
    fHits.push_back({isX ? std::size_t{0} : std::size_t{1}, hit.fZ, isX ? hit.fX : hit.fY,
                     isX ? hit.fSigX : hit.fSigY, hit.fSigZ, 0,
                     charges.empty() ? kNoCharge : charges[i] / perGeV});
  }
  if (!std::is_sorted(fHits.begin(), fHits.end(), IsUpstream))
    std::sort(fHits.begin(), fHits.end(), IsUpstream);
  fLeftOut.clear();
}

/// Sets the course to the straight lines through the hits of each view.
Refusal TrackChain::LayCourse() {
  std::array<StraightLine, 2> line;
  for (const TrackHit& hit : fHits) line[hit.fView].Add(hit.fZ, hit.fU, hit.fSigU, hit.fWeight);
  const double slopes[] = {line[0].Slope(), line[1].Slope()};
  const double stretch = Stretch(slopes[0], slopes[1]);
  if (!(stretch * kSmallestCosine <= 1))
    return {
        FitStatus::kBadGeometry,
        "the hits lie along a line at more than 88.8 degrees to the z axis; a fit needs a track "
        "that crosses the planes"};
  for (std::size_t v = 0; v < 2; v++) fCourse.fSlope[v].assign(fHits.size(), slopes[v]);
  const auto setSig = [&slopes](TrackHit& hit, double weight) {
    const double slope = slopes[hit.fView];
    hit.fSig = std::sqrt((hit.fSigU * hit.fSigU + slope * slope * hit.fSigZ * hit.fSigZ) / weight);
  };
  for (ViewHits& view : fViewHits) view.Clear();
  for (TrackHit& hit : fHits) {
    setSig(hit, hit.fWeight);
    fViewHits[hit.fView].Add(hit.fZ, hit.fU, hit.fSig, hit.fWeight);
  }
  for (TrackHit& hit : fLeftOut) setSig(hit, 1);
  fCourse.fStretch.assign(fHits.size(), stretch);
  return {};
}

/// Material and slopes are looked up along lines through a few neighbouring hits of each view.
/// (Not through each hit: cells that were hit lie side by side without the gaps between them, but
/// tracks cross these, too.)
void TrackChain::FindPoints() {
  fPoints.resize(fHits.size());
  for (std::size_t v = 0; v < 2; v++) {
    const ViewHits& view = fViewHits[v];
    std::size_t k = 0; // the hit of the view that is next in z or there
    LocalLine line(view, k, fCourse.fSlope[v][0]);
    for (std::size_t i = 0; i < fHits.size(); i++) {
      const double z = fHits[i].fZ;
      const std::size_t last = k;
      while (k + 1 < view.fZ.size() && view.fZ[k] < z) k++;
      if (k > last) line = LocalLine(view, k, fCourse.fSlope[v][i]);
      fCourse.fSlope[v][i] = line.fSlope;
      fPoints[i].fX[v] = line.At(z);
      fPoints[i].fX[2] = z;
      fPoints[i].fSig[v] = view.fSig[k];
    }
  }
  for (std::size_t i = 0; i < fHits.size(); i++)
    SetStretch(i, Stretch(fCourse.fSlope[0][i], fCourse.fSlope[1][i]), fCourse.fStretch);
}

void TrackChain::TraceMaterial() {
  fMaterial.Trace(fPoints);
  std::vector<double>& gaps = fScratch;
  gaps.clear();
  for (const Gap& gap : fMaterial.Gaps())
    if (gap.fEnd > gap.fBegin) gaps.push_back(gap.fEnd - gap.fBegin);
  const auto middle = gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2);
  std::nth_element(gaps.begin(), middle, gaps.end());
  fUsualGap = *middle;
}

/// Finds out whether the track leaves, and the material where it ends.
void TrackChain::FindEnd(TrackFit& out) {
  const std::array<double, 2> slopes = {fCourse.fSlope[0].back(), fCourse.fSlope[1].back()};
  fLeaves = fOptions.fEnd == TrackEndMode::kLeaves;
  if (fPlaneDetector) {
    const TrackEnd end = FindTrackEnd(*fPlaneDetector, fPoints.back().fX, slopes, fUsualGap);
    out.fEndDistance = end.fDistance;
    out.fEndPlanes = end.fPlanes;
    if (fOptions.fEnd == TrackEndMode::kAuto) fLeaves = end.fLeaves;
  }
  out.fLeaves = fLeaves;
  fMaterial.TraceEnd(fPoints.back(), slopes, fUsualGap, fLeaves ? 0 : fOptions.fBeyondLastHit);
}

/// Highland's logarithm belongs to a thickness as a whole: that of the gap, but not of one that is
/// shorter than usual, so that an extra hit in a gap does not change what scatters there. A kink's
/// angle in the plane of a view changes the slope of the view, say dx/dz, by
///   angle sqrt(1 + (dx/dz)^2) sqrt(1 + (dx/dz)^2 + (dy/dz)^2).
void TrackChain::PlacePlanes() {
  constexpr double kHighland = 13.6e-3; // GeV; V. L. Highland's formula as in the Review of
  constexpr double kLog = 0.038;        // Particle Physics, passage of particles through matter
  const double factor = kHighland * fOptions.fScatteringFactor / std::sqrt(3.);
  fPlanes.clear();
  fPlanesBefore.assign(1, 0);
  const std::vector<Gap>& gaps = fMaterial.Gaps();
  for (std::size_t i = 0; i < gaps.size(); i++) {
    const Gap& gap = gaps[i];
    const double stretch = fCourse.fStretch[i];
    const double scale =
        gap.fNPlanes > 0
            ? factor * (1 + kLog * std::log(RadLenAround(gaps, i, fUsualGap) * stretch))
            : 0;
    const double x = (fCourse.fSlope[0][i] + fCourse.fSlope[0][i + 1]) / 2;
    const double y = (fCourse.fSlope[1][i] + fCourse.fSlope[1][i + 1]) / 2;
    const double along = Stretch(x, y);
    for (std::size_t k = 0; k < gap.fNPlanes; k++) {
      const double z = gap.fPlane[k].fZ;
      fPlanes.push_back({z,
                         i,
                         (z - gap.fBegin) / (gap.fEnd - gap.fBegin),
                         scale * std::sqrt(gap.fPlane[k].fRadLen * stretch),
                         {along * std::sqrt(1 + x * x), along * std::sqrt(1 + y * y)}});
    }
    fPlanesBefore.push_back(fPlanes.size());
  }
}

/// Looks at the track as one that stops, or as a beam, and as one of which only the hits are known.
void TrackChain::MeasureScattering(TrackFit& out) {
  fScattering.Clear();
  for (const TrackHit& hit : fHits) fScattering.AddHit(hit.fView, hit.fZ, hit.fU, hit.fSig);
  fScattering.Load(fPlanes, fCourse.fStretch, AreCells());
  const double least = IsBeam() ? 0 : Momentum(fEnergy.T(0)[0], fMasses[0]);
  const ScatteringMomentumFit found = fScattering.Fit(least);
  fMomenta.clear();
  for (std::size_t h = 0; h < fMasses.size(); h++) {
    const ScatteringMomentumFit same = SameBetaP(found, fMasses[0], fMasses[h]);
    out.fHypothesis[h].fScattering = {same.fP, same.fLow, same.fHigh, 1 / same.fP,
                                      same.SigInverse()};
    fMomenta.push_back(same.fLikely);
  }
  if (!IsBeam()) CompareWithStopping(found.fLogLikelihood, out);
}

/// @param freeEnd log-likelihood of a track whose end is free, up to a constant
void TrackChain::CompareWithStopping(double freeEnd, TrackFit& out) {
  for (std::size_t h = 0; h < fMasses.size(); h++) {
    const ScatteringMomentum::Point stopping = fScattering.AtScale(fEnergy.T(h), fMasses[h]);
    if (h == 0) out.fStopChi2 = std::max(2 * (freeEnd - stopping.fLogLikelihood), 0.);
    if (!fLeaves && stopping.fInformation > 0)
      out.fHypothesis[h].fProbScattering =
          std::erfc(std::abs(fScattering.Deviate(stopping)) / std::sqrt(2.));
  }
}

/// Returns whether all hits are centres of cells.
bool TrackChain::AreCells() const {
  constexpr double kSame = 0.01;
  if (!fPlaneDetector) return false;
  const std::vector<geo::ActivePlane>& planes = fPlaneDetector->Planes();
  std::size_t k = fPlaneDetector->NearestPlane(fHits[0].fZ);
  for (const TrackHit& hit : fHits) {
    while (k + 1 < planes.size() && planes[k + 1].ZMid() - hit.fZ < hit.fZ - planes[k].ZMid()) k++;
    const double sigma = planes[k].fCells[hit.fView].fWidth / std::sqrt(12.);
    if (!(std::abs(hit.fSigU - sigma) < kSame * sigma)) return false;
  }
  return true;
}

/// The range tells only from which momentum on a particle gets to its last hit. Its energies along
/// the track are those of the momentum from scattering.
void TrackChain::Leave(TrackFit& out) {
  for (std::size_t h = 0; h < fMasses.size(); h++) {
    const double least = Momentum(fEnergy.T(h)[0], fMasses[h]);
    out.fHypothesis[h].fPMin = least;
    fMomenta[h] = std::fmax(fMomenta[h], least); // NaN without kinks
  }
  fEnergy.Pass(fMaterial, fCourse.fStretch, fMomenta);
}

/// The energies are those along the line through neighbouring hits, and so are the paths in cells.
void TrackChain::AddCharges(TrackFit& out) {
  if (!fCharge || !Stops()) return;
  fChargedHits.clear();
  for (std::size_t i = 0; i < fHits.size(); i++) {
    const std::size_t v = fHits[i].fView;
    if (std::isfinite(fHits[i].fQ))
      fChargedHits.push_back({i,
                              v,
                              fHits[i].fZ,
                              fPoints[i].fX[v],
                              fPoints[i].fSig[v],
                              {fCourse.fSlope[0][i], fCourse.fSlope[1][i]},
                              fHits[i].fQ});
  }
  fCharge->FindPaths(fChargedHits, fHits.size(), fChargePaths);
  if (fChargePaths.empty()) return;
  const double units = static_cast<double>(fChargePaths.size()) * std::log(ChargePerGeV());
  for (std::size_t h = 0; h < out.fHypothesis.size(); h++)
    if (out.fHypothesis[h].fStatus == FitStatus::kFitted)
      out.fHypothesis[h].fLogLikelihoodCharge =
          fCharge->LogLikelihood(h, fChargePaths, fEnergy.T(h)) - units;
}

/// The width of a kink is Highland's with the momentum at its plane. The square of beta p grows
/// nearly in proportion to the range that is left, and so is linear along a gap.
void TrackChain::FindWidths(const LaneFits& lanes) {
  fBetaP2.resize(fHits.size());
  const double* T[kLanes];
  double mass[kLanes];
  for (std::size_t l = 0; l < kLanes; l++) {
    const std::size_t h = lanes.fFirst + std::min(l, lanes.fN - 1);
    T[l] = fEnergy.T(h);
    mass[l] = fMasses[h];
  }
  for (std::size_t i = 0; i < fHits.size(); i++)
    fBetaP2[i] = BetaP2(Lanes{T[0][i], T[1][i], T[2][i], T[3][i]},
                        Lanes{mass[0], mass[1], mass[2], mass[3]});
  fVarAlpha.resize(fPlanes.size());
  for (std::size_t j = 0; j < fPlanes.size(); j++) {
    const ScatteringPlane& plane = fPlanes[j];
    const Lanes up = fBetaP2[plane.fGap], down = fBetaP2[plane.fGap + 1];
    fVarAlpha[j] = plane.fScale * plane.fScale / (up + plane.fPart * (down - up));
  }
}

void TrackChain::SolveViews() {
  fMeasurements.clear();
  for (const TrackHit& hit : fHits)
    fMeasurements.push_back({hit.fView, hit.fZ, hit.fU, hit.fSig * hit.fSig});
  FindNoise();
  fSmoother.Fit(fMeasurements, fNoise, NeedsLines());
}

void TrackChain::FindNoise() {
  fNoise.assign(fHits.size() - 1, {});
  for (std::size_t i = 0; i + 1 < fHits.size(); i++) {
    const std::size_t j = fPlanesBefore[i], n = fPlanesBefore[i + 1] - j;
    if (n == 0) continue;
    const LineNoise angle =
        n == 1 ? LineNoise{fPlanes[j].fZ, 0, fVarAlpha[j]}
               : TwoPlanes(fPlanes[j].fZ, fVarAlpha[j], fPlanes[j + 1].fZ, fVarAlpha[j + 1]);
    for (std::size_t v = 0; v < 2; v++) {
      const double factor = fPlanes[j].fSlopePerAngle[v] * fPlanes[j].fSlopePerAngle[v];
      fNoise[i][v] = {angle.fZ, angle.fVarX * factor, angle.fVarSlope * factor};
    }
  }
}

void TrackChain::Fill(const LaneFits& lanes) {
  FindCourse();
  fStraggling = fEnergy.Straggling(fMaterial, lanes.fFirst, fCourse.fStretch);
  FillHits(lanes);
  if (!fLeftOut.empty()) FillLeftOut(lanes);
  if (!fPlaces.empty()) FillPlaces(lanes);
  if (fOptions.fCrossings) FillCrossings(lanes);
  for (std::size_t l = 0; l < lanes.fN; l++) {
    FillViews(l, lanes.fFit[l]);
    FillStart(lanes.fFit[l]);
  }
  FillPath(lanes);
  if (fOptions.fWithPlanes) FillPlanes(lanes);
  for (std::size_t l = 0; l < lanes.fN; l++)
    if (IsSolved(l))
      FillKinematics(lanes.fFirst + l, l, lanes.fFit[l]);
    else
      RefuseFit(NoSolution(), lanes.fFit[l]);
}

bool TrackChain::IsSolved(std::size_t lane) const {
  return std::isfinite(fSmoother.LogLikelihood(0)[lane] + fSmoother.LogLikelihood(1)[lane]);
}

/// A slope that is uncertain by sigma adds to that on average: half of sigma^2 times the second
/// derivative.
void TrackChain::FindCourse() {
  constexpr double kMost = 0.25; // where the slope is not known, nor is the stretch
  fStretch.resize(fHits.size());
  for (std::size_t i = 0; i < fHits.size(); i++) {
    const LanePoint &x = fSmoother.At(0, i), &y = fSmoother.At(1, i);
    const Lanes a = 1 + x.fSlope * x.fSlope, b = 1 + y.fSlope * y.fSlope;
    const Lanes square = a + b - 1;
    const Lanes straight = Sqrt(square);
    const Lanes bends = (b * x.fVarSlope + a * y.fVarSlope) / (2 * square * straight);
    SetStretch(i, straight + Min(bends, kMost * straight), fStretch);
  }
}

void TrackChain::FillViews(std::size_t lane, HypothesisFit& fit) const {
  double chi2 = 0;
  for (std::size_t v = 0; v < 2; v++) {
    const LanePoint& start = fSmoother.At(v, 0);
    ViewFit& view = fit.fView[v];
    view.fN = static_cast<unsigned int>(fViewHits[v].fZ.size());
    view.fIntercept = start.fX[lane];
    view.fSlope = start.fSlope[lane];
    view.fCov[0] = start.fVarX[lane];
    view.fCov[1] = start.fCovXSlope[lane];
    view.fCov[2] = start.fVarSlope[lane];
    view.fChi2 = fSmoother.Chi2(v)[lane];
    view.fChi2Kink = fSmoother.Chi2Kink(v)[lane];
    view.fNDF = static_cast<int>(view.fN) - 2; // each kink is a parameter and a measurement
    view.fProb = view.fNDF > 0 ? TMath::Prob(view.fChi2 + view.fChi2Kink, view.fNDF) : 1;
    chi2 += view.fChi2 + view.fChi2Kink;
    fit.fNDF += view.fNDF;
    fit.fLogLikelihood += fSmoother.LogLikelihood(v)[lane];
  }
  fit.fProb = fit.fNDF > 0 ? TMath::Prob(chi2, fit.fNDF) : 1;
}

void TrackChain::FillHits(const LaneFits& lanes) const {
  for (std::size_t i = 0; i < fHits.size(); i++)
    AddHit(fHits[i], fSmoother.At(fHits[i].fView, i), lanes);
}

void TrackChain::AddHit(const TrackHit& hit, const LanePoint& line, const LaneFits& lanes) {
  const Lanes sigU = Sqrt(line.fVarX), sigSlope = Sqrt(line.fVarSlope);
  const HitResidual beside = Compare(hit, line);
  for (std::size_t l = 0; l < lanes.fN; l++)
    lanes.fFit[l].fHit.push_back({static_cast<int>(hit.fView), hit.fZ, hit.fU, hit.fSigU,
                                  line.fX[l], sigU[l], beside.fResidual[l], beside.fPull[l],
                                  line.fSlope[l], sigSlope[l], beside.fUnbiased[l],
                                  beside.fSigUnbiased[l], hit.fWeight});
}

/// A fitted coordinate is correlated with the hit itself, by its own variance. A hit that the track
/// goes through by necessity has no residual to compare. With the variance s of the hit, s / w the
/// one that the fit took, and V that of the fitted coordinate, the others' alone is
///   V' = V (s / w) / (s / w - V), and unbiased = residual (s / w) / (s / w - V).
TrackChain::HitResidual TrackChain::Compare(const TrackHit& hit, const LanePoint& line) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const Lanes residual = hit.fU - line.fX;
  const double square = hit.fSig * hit.fSig;
  if (hit.fWeight == 0) {
    const Lanes sig = Sqrt(square + line.fVarX);
    return {residual, residual / sig, residual, sig};
  }
  const Lanes variance = square - line.fVarX, least = 1e-9 * square;
  if (hit.fWeight == 1) {
    const Lanes root = Sqrt(variance);
    const Lanes pull = WhereAbove(variance, least, residual / root, 0);
    const Lanes sig = WhereAbove(variance, least, square / root, kInfinity);
    return {residual, pull, WhereAbove(variance, least, pull * sig, 0), sig};
  }
  const Lanes without = square / variance;
  const Lanes unbiased = WhereAbove(variance, least, residual * without, 0);
  const Lanes sig =
      WhereAbove(variance, least, Sqrt(hit.fWeight * square + line.fVarX * without), kInfinity);
  return {residual, unbiased / sig, unbiased, sig};
}

/// The direction is (a, b, 1) / norm for the slopes a and b, with the derivatives
///   d u_x / d a = (1 + b^2) / norm^3,  d u_x / d b = d u_y / d a = -a b / norm^3.
void TrackChain::FillStart(HypothesisFit& fit) const {
  const double a = fit.fView[0].fSlope, b = fit.fView[1].fSlope;
  const double norm = Stretch(a, b), cube = norm * norm * norm;
  fit.fPosition.SetXYZ(fit.fView[0].fIntercept, fit.fView[1].fIntercept, fHits[0].fZ);
  fit.fDirection.SetXYZ(a / norm, b / norm, 1 / norm);
  // Of x, y, ux, uy by the position and by the slope of each view.
  const double byX[2][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}};
  const double bySlope[2][4] = {{0, 0, (1 + b * b) / cube, -a * b / cube},
                                {0, 0, -a * b / cube, (1 + a * a) / cube}};
  std::size_t k = 0;
  for (std::size_t i = 0; i < 4; i++)
    for (std::size_t j = i; j < 4; j++, k++) {
      fit.fCov[k] = 0;
      for (std::size_t v = 0; v < 2; v++) {
        const double* cov = fit.fView[v].fCov;
        fit.fCov[k] += byX[v][i] * byX[v][j] * cov[0] + bySlope[v][i] * bySlope[v][j] * cov[2] +
                       (byX[v][i] * bySlope[v][j] + bySlope[v][i] * byX[v][j]) * cov[1];
      }
    }
}

void TrackChain::FillPlanes(const LaneFits& lanes) const {
  const std::size_t n = fPlanes.size();
  for (std::size_t l = 0; l < lanes.fN; l++) {
    HypothesisFit& fit = lanes.fFit[l];
    fit.fPlaneS.resize(n);
    fit.fPlanePoint.resize(n);
    fit.fPlaneSigAlpha.resize(n);
    for (ViewFit& view : fit.fView) {
      view.fKink.resize(n);
      view.fSigKink.resize(n);
    }
  }
  for (std::size_t i = 0; i + 1 < fHits.size(); i++) {
    const std::size_t first = fPlanesBefore[i], in = fPlanesBefore[i + 1] - first;
    LaneKink kinks[2][2];
    for (std::size_t v = 0; v < 2; v++) {
      LanePlane planes[2];
      for (std::size_t k = 0; k < in; k++) {
        const double factor = fPlanes[first].fSlopePerAngle[v] * fPlanes[first].fSlopePerAngle[v];
        planes[k] = {fPlanes[first + k].fZ, fVarAlpha[first + k] * factor};
      }
      fSmoother.FitPlanes(v, i, planes, in, kinks[v]);
    }
    for (std::size_t k = 0; k < in; k++) FillPlane(kinks[0][k], kinks[1][k], first + k, lanes);
  }
}

/// To be called with ascending j.
void TrackChain::FillPlane(const LaneKink& x, const LaneKink& y, std::size_t j,
                           const LaneFits& lanes) const {
  const Lanes sigAlpha = Sqrt(fVarAlpha[j]);
  for (std::size_t l = 0; l < lanes.fN; l++) {
    HypothesisFit& fit = lanes.fFit[l];
    for (std::size_t v = 0; v < 2; v++) {
      const LaneKink& plane = v == 0 ? x : y;
      const double perSlope = 1 / fPlanes[j].fSlopePerAngle[v];
      fit.fView[v].fKink[j] = plane.fKink[l] * perSlope;
      fit.fView[v].fSigKink[j] = std::sqrt(plane.fVarKink[l]) * perSlope;
    }
    const TVector3 point(x.fX[l], y.fX[l], fPlanes[j].fZ);
    const TVector3& last = j > 0 ? fit.fPlanePoint[j - 1] : fit.fPosition;
    fit.fPlaneS[j] = (j > 0 ? fit.fPlaneS[j - 1] : 0) + (point - last).Mag();
    fit.fPlanePoint[j] = point;
    fit.fPlaneSigAlpha[j] = sigAlpha[l];
  }
}

void TrackChain::FillPath(const LaneFits& lanes) const {
  const std::vector<Gap>& gaps = fMaterial.Gaps();
  const std::size_t last = gaps.size();
  const Gap none{}, &end = Stops() ? fMaterial.End() : none;
  const double beyond = end.fEnd - end.fBegin;
  Lanes length = beyond * fStretch[last], radLen = end.fRadLen * fStretch[last];
  for (std::size_t i = 0; i < last; i++) {
    length += (gaps[i].fEnd - gaps[i].fBegin) * fStretch[i];
    radLen += gaps[i].fRadLen * fStretch[i];
  }
  const LanePoint &x = fSmoother.At(0, last), &y = fSmoother.At(1, last);
  for (std::size_t l = 0; l < lanes.fN; l++) {
    HypothesisFit& fit = lanes.fFit[l];
    fit.fLength = length[l];
    fit.fRadLen = radLen[l];
    fit.fSigLength = Stops() ? SigLength(l, fit) : 0;
    fit.fEnd.SetXYZ(x.fX[l] + beyond * x.fSlope[l], y.fX[l] + beyond * y.fSlope[l],
                    fHits[last].fZ + beyond);
  }
}

/// Beside where the track ends, what both ends of the line are off along its direction.
double TrackChain::SigLength(std::size_t lane, const HypothesisFit& fit) const {
  const std::size_t last = fHits.size() - 1;
  double variance = std::pow(fMaterial.EndSigma() * fStretch[last][lane], 2);
  for (std::size_t v = 0; v < 2; v++) {
    const ViewFit& first = fit.fView[v];
    const LanePoint& at = fSmoother.At(v, last);
    const double dx = at.fX[lane] - first.fIntercept, dz = fHits[last].fZ - fHits[0].fZ;
    variance += dx * dx / (dx * dx + dz * dz) * (first.fCov[0] + at.fVarX[lane]);
  }
  return std::sqrt(variance);
}

/// Returns the energy at the first hit of a particle that goes along its own fitted track.
double TrackChain::OwnEnergy(std::size_t h, std::size_t lane) {
  constexpr double kLittle = 0.01; // of the energy, a change that is right to first order
  const double T = fEnergy.T(h)[0];
  fScratch.clear();
  for (const Lanes& stretch : fStretch) fScratch.push_back(stretch[lane]);
  const double change = fEnergy.Change(fMaterial, h, fCourse.fStretch, fScratch);
  if (std::abs(change) < kLittle * T) return T + change;
  fOwnEnergy.Stop(fMaterial, fScratch);
  return fOwnEnergy.T(h)[0];
}

void TrackChain::FillKinematics(std::size_t h, std::size_t lane, HypothesisFit& fit) {
  if (fLeaves) {
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    fit.fT = fit.fP = fit.fSigT = fit.fSigP = fit.fBeta = fit.fGamma = fit.fSigLength = kUnknown;
    return;
  }
  const double m = fMasses[h];
  fit.fT = fEnergy.T(h)[0];
  double variance = fStraggling[lane];
  if (!IsBeam()) {
    fit.fT = OwnEnergy(h, lane);
    variance += fEnergy.EndVariance(fMaterial, h, fCourse.fStretch);
  }
  fit.fP = Momentum(fit.fT, m);
  fit.fGamma = 1 + fit.fT / m;
  fit.fBeta = fit.fP / (fit.fT + m);
  fit.fSigT = std::hypot(std::sqrt(variance), fOptions.fSigBeamMomentum * fit.fBeta);
  fit.fSigP = fit.fSigT / fit.fBeta;
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
  keep(fit.fPlace, fresh.fPlace);
  keep(fit.fCrossing, fresh.fCrossing);
  for (std::size_t v = 0; v < 2; v++) {
    keep(fit.fView[v].fKink, fresh.fView[v].fKink);
    keep(fit.fView[v].fSigKink, fresh.fView[v].fSigKink);
  }
  fit = std::move(fresh);
}

Refusal NoSolution() {
  return {FitStatus::kSingular,
          "the normal equations of a view have no solution; check the uncertainties of the hits "
          "and their spread in z"};
}

void RefuseFit(const Refusal& refusal, HypothesisFit& fit) {
  ClearFit(fit.fPDG, fit);
  fit.fStatus = refusal.fStatus;
  fit.fMessage = refusal.fMessage;
}

void FindBest(const std::vector<double>& fractions, TrackFit& out) {
  constexpr double kTie = 1e-9; // nats; two hits in each view fit every hypothesis equally well
  double best = 0, second = 0;
  int fitted = 0;
  for (std::size_t h = 0; h < out.fHypothesis.size(); h++) {
    const HypothesisFit& fit = out.fHypothesis[h];
    if (fit.fStatus != FitStatus::kFitted) continue;
    const double likelihood = LogLikelihood(fit);
    fitted++;
    if (fitted == 1 || likelihood > best + kTie) {
      second = best;
      best = likelihood;
      out.fBest = static_cast<int>(h);
    } else if (fitted == 2 || likelihood > second) {
      second = likelihood;
    }
  }
  out.fLead = fitted > 1 ? best - second : 0;
  double sum = 0;
  for (std::size_t h = 0; h < out.fHypothesis.size(); h++) {
    HypothesisFit& fit = out.fHypothesis[h];
    if (fit.fStatus != FitStatus::kFitted) continue;
    fit.fProbHypothesis =
        (fractions.empty() ? 1 : fractions[h]) * std::exp(LogLikelihood(fit) - best);
    sum += fit.fProbHypothesis;
  }
  if (sum > 0)
    for (HypothesisFit& fit : out.fHypothesis) fit.fProbHypothesis /= sum;
}

void ForgetBest(TrackFit& out) {
  const auto fitted = [](const HypothesisFit& fit) { return fit.fStatus == FitStatus::kFitted; };
  const auto first = std::find_if(out.fHypothesis.begin(), out.fHypothesis.end(), fitted);
  out.fHasBest = false;
  out.fLead = 0;
  constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
  for (HypothesisFit& fit : out.fHypothesis) fit.fProbHypothesis = kUnknown;
  if (first != out.fHypothesis.end()) out.fBest = static_cast<int>(first - out.fHypothesis.begin());
}

} // namespace kelvo
