#include "track/RangeOut.h"

#include "track/PathKinematics.h"
#include "track/RangeOutGeometry.h"

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

/// How well a view knows the track at some place.
struct Uncertainty {
  double fU = 0;     // [cm]
  double fSlope = 0; // against z
};

/// The uncertainty of a fit's view along its track: linear in z between the hits of the view,
/// constant beyond them.
class UncertaintyAlong {
public:
  UncertaintyAlong(const HypothesisFit& fit, int view) : fFit(fit), fView(view) {
    Advance();
    fBehind = fAhead;
  }

  /// To be called with ascending z [cm].
  Uncertainty At(double z) {
    while (fNext < fFit.fHit.size() && fAhead->fZ < z) {
      fBehind = fAhead;
      Advance();
    }
    const double gap = fAhead->fZ - fBehind->fZ;
    const double f = gap > 0 ? std::clamp((z - fBehind->fZ) / gap, 0., 1.) : 1;
    return {fBehind->fFitSigU + f * (fAhead->fFitSigU - fBehind->fFitSigU),
            fBehind->fFitSigSlope + f * (fAhead->fFitSigSlope - fBehind->fFitSigSlope)};
  }

private:
  void Advance() {
    for (; fNext < fFit.fHit.size(); fNext++)
      if (fFit.fHit[fNext].fView == fView) {
        fAhead = &fFit.fHit[fNext++];
        return;
      }
  }

  const HypothesisFit& fFit;
  int fView;
  std::size_t fNext = 0;
  const HitFit* fAhead = nullptr; // each view has hits
  const HitFit* fBehind = nullptr;
};

/// The stretch of a leg whose slopes against z are uncertain: to second order, a line at an angle
/// theta to z is longer by (sig_x^2 + sig_y^2) / 2 cos^2 theta on average.
double Stretch(const TVector3& leg, const Uncertainty& x, const Uncertainty& y) {
  constexpr double kMax = 0.25; // where the slope is not known, nor is the length
  const double variance = x.fSlope * x.fSlope + y.fSlope * y.fSlope;
  const double cos2 = leg.Mag2() > 0 ? leg.Z() * leg.Z() / leg.Mag2() : 0;
  return 1 + std::min(variance / 2 * cos2, kMax);
}

/// The legs of a track for UnrolledTrack. Shifts are evenly spread over an interval with the
/// standard deviation of the track's position, by a sequence that fills the plane evenly
/// (M. Roberts, "The unreasonable effectiveness of quasirandom sequences", 2018: multiples of the
/// inverse powers of the plastic number, modulo 1).
std::vector<SmearedLeg> SmearedLegs(const std::vector<TVector3>& points, const HypothesisFit& fit) {
  constexpr double kStepX = 0.7548776662466927, kStepY = 0.5698402909980532;
  const double width = std::sqrt(12.); // of a uniform distribution, in standard deviations
  UncertaintyAlong alongX(fit, 0), alongY(fit, 1);
  std::vector<SmearedLeg> legs;
  double fx = 0, fy = 0;
  for (std::size_t i = 1; i < points.size(); i++) {
    fx += kStepX - (fx + kStepX >= 1 ? 1 : 0);
    fy += kStepY - (fy + kStepY >= 1 ? 1 : 0);
    const double z = (points[i - 1].Z() + points[i].Z()) / 2;
    const Uncertainty x = alongX.At(z), y = alongY.At(z);
    legs.push_back({(fx - 0.5) * width * x.fU, (fy - 0.5) * width * y.fU,
                    Stretch(points[i] - points[i - 1], x, y)});
  }
  return legs;
}

} // namespace

void AddEnd(const TVector3& end, std::vector<TVector3>& points) {
  constexpr double kShortest = 0.01;   // cm; the range of a muon of 1 MeV in plastic
  constexpr double kFraction = 2. / 3; // finer fractions change momenta by less than 0.05%
  const TVector3 way = points.back() - end;
  const double length = way.Mag();
  for (double left = length * kFraction; left > kShortest; left *= kFraction)
    points.push_back(end + way * (left / length));
  points.push_back(end);
}

UnrolledTrack::UnrolledTrack(const geo::GeometryBase& detector, const std::vector<TVector3>& points,
                             const std::vector<SmearedLeg>& legs) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  for (std::size_t i = legs.size(); i-- > 0;) {
    const SmearedLeg& leg = legs[i];
    const TVector3 shift(leg.fShiftX, leg.fShiftY, 0);
    double from[3], to[3];
    (points[i + 1] + shift).GetXYZ(from);
    (points[i] + shift).GetXYZ(to);
    ds.clear();
    mats.clear();
    detector.MaterialsBetweenPoints(from, to, ds, mats);
    for (std::size_t k = 0; k < ds.size(); k++) {
      const double begin = Length();
      const double length = ds[k] * leg.fStretch;
      fSteps.push_back({begin, begin + length, length, mats[k]});
    }
  }
}

void UnrolledTrack::MaterialsBetweenPoints(const double* p0, const double* p1,
                                           std::vector<double>& ds,
                                           std::vector<const TGeoMaterial*>& mats) const {
  const auto [low, high] = std::minmax(p0[2], p1[2]);
  for (const Step& step : fSteps) {
    if (step.fEnd < low || step.fBegin > high) continue;
    const bool whole = low <= step.fBegin && step.fEnd <= high;
    ds.push_back(whole ? step.fLength : std::min(step.fEnd, high) - std::max(step.fBegin, low));
    mats.push_back(step.fMaterial);
  }
  if (p0[2] > p1[2]) {
    std::reverse(ds.begin(), ds.end());
    std::reverse(mats.begin(), mats.end());
  }
}

void RangeOut(const geo::GeometryBase& geometry, const std::vector<TVector3>& points,
              const HypothesisFit& best, std::vector<HypothesisFit>& fits) {
  const UnrolledTrack track(geometry, points, SmearedLegs(points, best));
  const double begin[3] = {0, 0, track.Length()};
  const double end[3] = {0, 0, 0};
  const Path path(track, begin, end, 0);
  const double length = path.Length();
  const double radLen = path.X0(length);
  for (HypothesisFit& fit : fits) {
    if (fit.fStatus != FitStatus::kFitted) continue;
    fit.fLength = length;
    fit.fRadLen = radLen;
    const Kinematics first = KinematicsAt(path, fit.fPDG, 0);
    fit.fT = first.fT;
    fit.fP = first.fP;
    fit.fBeta = first.fBeta;
    fit.fGamma = first.fGamma;
  }
}

} // namespace kelvo
