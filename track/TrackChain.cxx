#include "track/TrackChain.h"

#include "track/Guarded.h"
#include "track/HitCheck.h"
#include "util/Particles.h"

#include <TMath.h>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace kelvo {
namespace {

constexpr double kSmallestCosine = 0.02; // between a track and z: 88.9 degrees

double Stretch(double slopeX, double slopeY) {
  return std::sqrt(1 + slopeX * slopeX + slopeY * slopeY);
}

std::vector<double> Masses(const std::vector<int>& hypotheses) {
  std::vector<double> masses;
  for (int pdg : hypotheses) masses.push_back(FindParticle(pdg)->fMass);
  return masses;
}

/// Square of velocity times momentum [GeV^2]. Where a particle is all but stopped, the kinks are
/// as good as free.
double BetaP2(double T, double mass) {
  constexpr double kStopped = 1e-4; // kinetic energy, in masses
  T = std::max(T, kStopped * mass);
  const double betaP = T * (T + 2 * mass) / (T + mass);
  return betaP * betaP;
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

/// A straight line through the hits of a view, by least squares.
struct StraightLine {
  double f0 = 0, fZ = 0, fU = 0, fZZ = 0, fZU = 0; // weighted sums

  void Add(double z, double u, double sig) {
    const double w = 1 / (sig * sig);
    const double share = w / (f0 + w);
    const double dz = z - fZ, du = u - fU;
    fZZ += f0 * share * dz * dz;
    fZU += f0 * share * dz * du;
    f0 += w;
    fZ += share * dz;
    fU += share * du;
  }
  double Slope() const { return fZU / fZZ; }
};

/// A point of a line, and its slope against z.
struct LinePoint {
  double fU, fSlope;
};

/// Returns the line through the hits of a view around hit k, at z.
/// @param slope of the line if these have no two different z
LinePoint LocalLine(const ViewHits& hits, std::size_t k, double z, double slope) {
  constexpr std::size_t kNear = 2; // on each side
  const std::size_t n = hits.fZ.size();
  const std::size_t begin = k < kNear ? 0 : k - kNear, end = std::min(k + kNear + 1, n);
  double meanZ = 0, meanU = 0, zz = 0, zu = 0;
  for (std::size_t i = begin; i < end; i++) {
    meanZ += hits.fZ[i];
    meanU += hits.fU[i];
  }
  meanZ /= static_cast<double>(end - begin);
  meanU /= static_cast<double>(end - begin);
  for (std::size_t i = begin; i < end; i++) {
    zz += (hits.fZ[i] - meanZ) * (hits.fZ[i] - meanZ);
    zu += (hits.fZ[i] - meanZ) * (hits.fU[i] - meanU);
  }
  if (zz > 0) slope = zu / zz;
  return {meanU + slope * (z - meanZ), slope};
}

} // namespace

TrackChain::TrackChain(const geo::GeometryBase& detector, const TrackFitOptions& options)
    : fOptions(options),
      fMasses(Masses(options.fHypotheses)),
      fMaterial(DetectorMaterials(detector, options.fHypotheses, options.fBeamMomentum == 0)),
      fEnergy(fMasses),
      fOwnEnergy(fMasses) {}

Refusal TrackChain::Fit(const HitList3D& hits, TrackFit& out) {
  SortHits(hits);
  if (Refusal refusal = LayCourse()) return refusal;
  FindPoints();
  TraceMaterial();
  PlacePlanes();
  if (!IsBeam() && !(fMaterial.End().fMipLoss + MipLoss(fMaterial.Gaps()) > 0))
    return {FitStatus::kBadGeometry,
            "the detector reports no material along the track; check that the hits lie in it"};
  if (IsBeam())
    fEnergy.Pass(fMaterial, fCourse.fStretch, fOptions.fBeamMomentum);
  else
    fEnergy.Stop(fMaterial, fCourse.fStretch);
  for (std::size_t h = 0; h < out.fHypothesis.size(); h++) {
    const Refusal refusal = Guarded([&] { return FitHypothesis(h, out.fHypothesis[h]); });
    if (refusal) RefuseFit(refusal, out.fHypothesis[h]);
  }
  FindBest(out);
  return {};
}

void TrackChain::SortHits(const HitList3D& hits) {
  fHits.clear();
  for (const Hit3D& hit : hits) {
    const bool isX = hit.fView == geo::kX;
    fHits.push_back({isX ? std::size_t{0} : std::size_t{1}, hit.fZ, isX ? hit.fX : hit.fY,
                     isX ? hit.fSigX : hit.fSigY, hit.fSigZ, 0});
  }
  // A complete order, so that the result does not depend on the order of hits in one plane.
  const auto isUpstream = [](const TrackHit& a, const TrackHit& b) {
    return std::tie(a.fZ, a.fView, a.fU, a.fSigU, a.fSigZ) <
           std::tie(b.fZ, b.fView, b.fU, b.fSigU, b.fSigZ);
  };
  std::sort(fHits.begin(), fHits.end(), isUpstream);
  for (ViewHits& view : fViewHits) view.Clear();
}

/// Sets the course to the straight lines through the hits of each view.
Refusal TrackChain::LayCourse() {
  std::array<StraightLine, 2> line;
  for (const TrackHit& hit : fHits) line[hit.fView].Add(hit.fZ, hit.fU, hit.fSigU);
  const double stretch = Stretch(line[0].Slope(), line[1].Slope());
  if (!(stretch * kSmallestCosine <= 1))
    return {
        FitStatus::kBadGeometry,
        "the hits lie along a line at more than 88.8 degrees to the z axis; a fit needs a track "
        "that crosses the planes"};
  for (std::size_t v = 0; v < 2; v++) fCourse.fSlope[v].assign(fHits.size(), line[v].Slope());
  for (TrackHit& hit : fHits) {
    hit.fSig = std::hypot(hit.fSigU, line[hit.fView].Slope() * hit.fSigZ);
    fViewHits[hit.fView].Add(hit.fZ, hit.fU, hit.fSig);
  }
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
    for (std::size_t i = 0; i < fHits.size(); i++) {
      const double z = fHits[i].fZ;
      while (k + 1 < view.fZ.size() && view.fZ[k] < z) k++;
      const LinePoint line = LocalLine(view, k, z, fCourse.fSlope[v][i]);
      fCourse.fSlope[v][i] = line.fSlope;
      fPoints[i].fX[v] = line.fU;
      fPoints[i].fX[2] = z;
      fPoints[i].fSig[v] = view.fSig[k];
    }
  }
  for (std::size_t i = 0; i < fHits.size(); i++)
    SetStretch(i, Stretch(fCourse.fSlope[0][i], fCourse.fSlope[1][i]), fCourse);
}

void TrackChain::TraceMaterial() {
  fMaterial.Trace(fPoints);
  std::vector<double>& gaps = fSigAlpha; // which is free
  gaps.clear();
  for (const Gap& gap : fMaterial.Gaps())
    if (gap.fEnd > gap.fBegin) gaps.push_back(gap.fEnd - gap.fBegin);
  const auto middle = gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2);
  std::nth_element(gaps.begin(), middle, gaps.end());
  fUsualGap = *middle;
  if (IsBeam()) return;
  fMaterial.TraceEnd(fPoints.back(), {fCourse.fSlope[0].back(), fCourse.fSlope[1].back()},
                     fUsualGap, fOptions.fBeyondLastHit);
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
  fPlaneZ.clear();
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
      fPlanes.push_back({i,
                         (z - gap.fBegin) / (gap.fEnd - gap.fBegin),
                         scale * std::sqrt(gap.fPlane[k].fRadLen * stretch),
                         {along * std::sqrt(1 + x * x), along * std::sqrt(1 + y * y)}});
      fPlaneZ.push_back(z);
    }
    fPlanesBefore.push_back(fPlanes.size());
  }
}

Refusal TrackChain::FitHypothesis(std::size_t h, HypothesisFit& fit) {
  FindWidths(h);
  if (!SolveViews())
    return {FitStatus::kSingular,
            "the normal equations of a view have no solution; check the uncertainties of the hits "
            "and their spread in z"};
  FillHypothesis(h, fit);
  return {};
}

void TrackChain::FillHypothesis(std::size_t h, HypothesisFit& fit) {
  FindCourse(fOwnCourse);
  FillViews(fit);
  FillHits(fit);
  FillStart(fit);
  FillPlanes(fit);
  FillPath(fit);
  FillKinematics(h, fit);
}

/// The width of a kink is Highland's with the momentum at its plane. The square of beta p grows
/// nearly in proportion to the range that is left, and so is linear along a gap.
void TrackChain::FindWidths(std::size_t particle) {
  const double* T = fEnergy.T(particle);
  const double mass = fMasses[particle];
  const std::size_t n = fPlanes.size();
  fSigAlpha.resize(n);
  for (std::vector<double>& widths : fSigKink) widths.resize(n);
  fBetaP2.resize(fHits.size());
  for (std::size_t i = 0; i < fHits.size(); i++) fBetaP2[i] = BetaP2(T[i], mass);
  for (std::size_t j = 0; j < n; j++) {
    const Plane& plane = fPlanes[j];
    const double up = fBetaP2[plane.fGap], down = fBetaP2[plane.fGap + 1];
    fSigAlpha[j] = plane.fScale / std::sqrt(up + plane.fPart * (down - up));
    for (std::size_t v = 0; v < 2; v++) fSigKink[v][j] = fSigAlpha[j] * plane.fSlopePerAngle[v];
  }
}

bool TrackChain::SolveViews() {
  for (std::size_t v = 0; v < 2; v++) {
    const ViewHits& hits = fViewHits[v];
    fSmoother[v].Load(static_cast<unsigned int>(hits.fZ.size()), hits.fZ.data(), hits.fU.data(),
                      hits.fSig.data(), static_cast<unsigned int>(fPlaneZ.size()), fPlaneZ.data(),
                      fSigKink[v].data());
    fSmoother[v].Fit(nullptr, nullptr, nullptr, nullptr);
    fLogLikelihood[v] = fSmoother[v].LogLikelihood(); // NaN where there is no solution
  }
  return std::isfinite(fLogLikelihood[0] + fLogLikelihood[1]);
}

/// Returns the line of a view at hit i.
KinkPoint TrackChain::At(std::size_t view, std::size_t i) const {
  return fSmoother[view].Between(static_cast<unsigned int>(fPlanesBefore[i]), fHits[i].fZ);
}

/// The way through a gap is longer than its extent in z by the mean stretch at both ends. To be
/// called with ascending i.
void TrackChain::SetStretch(std::size_t i, double stretch, Course& course) {
  if (i > 0) course.fStretch[i - 1] = (course.fStretch[i - 1] + stretch) / 2;
  course.fStretch[i] = stretch;
}

/// A slope that is uncertain by sigma adds to that on average: half of sigma^2 times the second
/// derivative.
void TrackChain::FindCourse(Course& course) const {
  constexpr double kMost = 0.25; // where the slope is not known, nor is the stretch
  const std::size_t n = fHits.size();
  for (std::vector<double>& slopes : course.fSlope) slopes.resize(n);
  course.fStretch.resize(n);
  for (std::size_t i = 0; i < n; i++) {
    const KinkPoint x = At(0, i), y = At(1, i);
    const double a = 1 + x.fSlope * x.fSlope, b = 1 + y.fSlope * y.fSlope;
    const double straight = Stretch(x.fSlope, y.fSlope);
    const double bends = (b * x.fVarSlope + a * y.fVarSlope) / (2 * straight * straight * straight);
    const double stretch = straight + std::min(bends, kMost * straight);
    course.fSlope[0][i] = x.fSlope;
    course.fSlope[1][i] = y.fSlope;
    SetStretch(i, stretch, course);
  }
}

void TrackChain::FillViews(HypothesisFit& fit) const {
  double chi2 = 0;
  for (std::size_t v = 0; v < 2; v++) {
    const KinkSmoother& smoother = fSmoother[v];
    ViewFit& view = fit.fView[v];
    const KinkPoint start = smoother.Between(0, fHits[0].fZ);
    view.fN = smoother.NMeas();
    view.fIntercept = start.fX;
    view.fSlope = start.fSlope;
    view.fCov[0] = start.fVarX;
    view.fCov[1] = start.fCovXSlope;
    view.fCov[2] = start.fVarSlope;
    view.fChi2 = smoother.Chi2XI();
    view.fChi2Kink = smoother.Chi2Beta();
    view.fNDF = static_cast<int>(view.fN) - 2; // each kink is a parameter and a measurement
    view.fProb = view.fNDF > 0 ? TMath::Prob(view.fChi2 + view.fChi2Kink, view.fNDF) : 1;
    chi2 += view.fChi2 + view.fChi2Kink;
    fit.fNDF += view.fNDF;
    fit.fLogLikelihood += fLogLikelihood[v];
  }
  fit.fProb = fit.fNDF > 0 ? TMath::Prob(chi2, fit.fNDF) : 1;
}

void TrackChain::FillHits(HypothesisFit& fit) const {
  fit.fHit.resize(fHits.size());
  for (std::size_t i = 0; i < fHits.size(); i++) {
    const TrackHit& hit = fHits[i];
    const KinkPoint line = At(hit.fView, i);
    // A fitted coordinate is correlated with the hit itself, by its own variance.
    const double variance = hit.fSig * hit.fSig - line.fVarX;
    // A hit that the track goes through by necessity has no residual to compare.
    const bool free = variance > 1e-9 * hit.fSig * hit.fSig;
    const double residual = hit.fU - line.fX;
    fit.fHit[i] = {static_cast<int>(hit.fView),
                   hit.fZ,
                   hit.fU,
                   hit.fSigU,
                   line.fX,
                   std::sqrt(line.fVarX),
                   residual,
                   free ? residual / std::sqrt(variance) : 0,
                   line.fSlope,
                   std::sqrt(line.fVarSlope)};
  }
}

/// The direction is (a, b, 1) / norm for the slopes a and b, with the derivatives
///   d u_x / d a = (1 + b^2) / norm^3,  d u_x / d b = d u_y / d a = -a b / norm^3.
void TrackChain::FillStart(HypothesisFit& fit) const {
  const KinkPoint line[2] = {At(0, 0), At(1, 0)};
  const double a = line[0].fSlope, b = line[1].fSlope;
  const double norm = Stretch(a, b), cube = norm * norm * norm;
  fit.fPosition.SetXYZ(line[0].fX, line[1].fX, fHits[0].fZ);
  fit.fDirection.SetXYZ(a / norm, b / norm, 1 / norm);
  // Of x, y, ux, uy by the position and by the slope of each view.
  const double byX[2][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}};
  const double bySlope[2][4] = {{0, 0, (1 + b * b) / cube, -a * b / cube},
                                {0, 0, -a * b / cube, (1 + a * a) / cube}};
  std::size_t k = 0;
  for (std::size_t i = 0; i < 4; i++)
    for (std::size_t j = i; j < 4; j++, k++) {
      fit.fCov[k] = 0;
      for (std::size_t v = 0; v < 2; v++)
        fit.fCov[k] += byX[v][i] * byX[v][j] * line[v].fVarX +
                       bySlope[v][i] * bySlope[v][j] * line[v].fVarSlope +
                       (byX[v][i] * bySlope[v][j] + bySlope[v][i] * byX[v][j]) * line[v].fCovXSlope;
    }
}

void TrackChain::FillPlanes(HypothesisFit& fit) const {
  const std::size_t n = fPlanes.size();
  fit.fPlaneS.resize(n);
  fit.fPlanePoint.resize(n);
  fit.fPlaneSigAlpha = fSigAlpha;
  for (std::size_t v = 0; v < 2; v++) {
    ViewFit& view = fit.fView[v];
    view.fKink.resize(n);
    view.fSigKink.resize(n);
    for (std::size_t j = 0; j < n; j++) {
      const double perSlope = 1 / fPlanes[j].fSlopePerAngle[v];
      const unsigned int k = static_cast<unsigned int>(j);
      view.fKink[j] = fSmoother[v].Kink(k) * perSlope;
      view.fSigKink[j] = std::sqrt(fSmoother[v].VarKink(k)) * perSlope;
    }
  }
  double last[3] = {fit.fPosition.X(), fit.fPosition.Y(), fit.fPosition.Z()}, s = 0;
  for (std::size_t j = 0; j < n; j++) {
    const unsigned int k = static_cast<unsigned int>(j);
    const double z = fPlaneZ[j];
    const double x = fSmoother[0].Between(k, z).fX, y = fSmoother[1].Between(k, z).fX;
    const double dx = x - last[0], dy = y - last[1], dz = z - last[2];
    s += std::sqrt(dx * dx + dy * dy + dz * dz);
    fit.fPlaneS[j] = s;
    fit.fPlanePoint[j].SetXYZ(last[0] = x, last[1] = y, last[2] = z);
  }
}

void TrackChain::FillPath(HypothesisFit& fit) const {
  const std::vector<double>& stretch = fOwnCourse.fStretch;
  const std::vector<Gap>& gaps = fMaterial.Gaps();
  const std::size_t last = gaps.size();
  for (std::size_t i = 0; i < last; i++) {
    fit.fLength += (gaps[i].fEnd - gaps[i].fBegin) * stretch[i];
    fit.fRadLen += gaps[i].fRadLen * stretch[i];
  }
  const KinkPoint x = At(0, last), y = At(1, last);
  fit.fEnd.SetXYZ(x.fX, y.fX, fHits[last].fZ);
  if (IsBeam()) return;
  const Gap& end = fMaterial.End();
  const double beyond = end.fEnd - end.fBegin;
  fit.fEnd += beyond * TVector3(x.fSlope, y.fSlope, 1);
  fit.fLength += beyond * stretch[last];
  fit.fRadLen += end.fRadLen * stretch[last];
  // Beside where the track ends, what both ends of the line are off along its direction.
  double variance = std::pow(fMaterial.EndSigma() * stretch[last], 2);
  for (std::size_t v = 0; v < 2; v++) {
    const ViewFit& first = fit.fView[v];
    const KinkPoint& at = v == 0 ? x : y;
    const double dx = at.fX - first.fIntercept, dz = fHits[last].fZ - fHits[0].fZ;
    variance += dx * dx / (dx * dx + dz * dz) * (first.fCov[0] + at.fVarX);
  }
  fit.fSigLength = std::sqrt(variance);
}

/// Returns the energy at the first hit of a particle that goes along its own fitted track.
double TrackChain::OwnEnergy(std::size_t h) {
  constexpr double kLittle = 0.01; // of the energy, a change that is right to first order
  const double T = fEnergy.T(h)[0];
  const double change = fEnergy.Change(fMaterial, h, fCourse.fStretch, fOwnCourse.fStretch);
  if (std::abs(change) < kLittle * T) return T + change;
  fOwnEnergy.Stop(fMaterial, fOwnCourse.fStretch);
  return fOwnEnergy.T(h)[0];
}

void TrackChain::FillKinematics(std::size_t h, HypothesisFit& fit) {
  const double m = fMasses[h];
  fit.fT = fEnergy.T(h)[0];
  double variance = fEnergy.Straggling(fMaterial, h, fCourse.fStretch);
  if (!IsBeam()) {
    fit.fT = OwnEnergy(h);
    variance += fEnergy.EndVariance(fMaterial, h, fCourse.fStretch);
  }
  fit.fP = std::sqrt(fit.fT * (fit.fT + 2 * m));
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
