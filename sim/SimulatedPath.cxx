#include "sim/SimulatedPath.h"

#include "geo/Matter.h"
#include "util/Particles.h"

#include <TGeoMaterial.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace kelvo {
namespace {

// Below this energy [GeV] a particle counts as stopped: it would not get 10 um further.
constexpr double kStopped = 1e-4;
// Largest part of the energy that is lost in one step of the integration, whose relative error is
// a tenth of the third power of it. A choice.
constexpr double kLargestLoss = 0.05;
// Steps of the scattering end when the particle has this part of its energy left. A choice.
constexpr double kMinEnergyLeft = 0.9;
constexpr double kMargin = 2;    // cm; around the detector
constexpr double kBehind = 1e-9; // cm; how far behind the middle of a plane a step up to it ends

/// Highland's width times beta c p [GeV] of a part dX of X radiation lengths.
double Highland(double dX, double X) {
  return dX > 0 ? 0.0136 * std::sqrt(dX) * std::max(1 + 0.038 * std::log(std::max(X, dX)), 0.) : 0;
}

/// Turns a unit vector by two angles [rad], in planes at right angles to each other.
TVector3 Turned(const TVector3& u, double angle1, double angle2) {
  const double angle = std::hypot(angle1, angle2);
  if (angle == 0) return u;
  const TVector3 e1 = u.Orthogonal().Unit();
  const TVector3 e2 = u.Cross(e1);
  const TVector3 side = e1 * (angle1 / angle) + e2 * (angle2 / angle);
  return (u * std::cos(angle) + side * std::sin(angle)).Unit();
}

PathPoint Between(const PathPoint& a, const PathPoint& b, double fraction) {
  return {a.fX + fraction * (b.fX - a.fX), a.fT + fraction * (b.fT - a.fT),
          a.fLength + fraction * (b.fLength - a.fLength)};
}

/// Finds the next active plane downstream of a point that moves.
class NextPlane {
public:
  NextPlane(const geo::PlaneDetector& detector, double z) : fPlanes(detector.Planes()) {
    while (fNext < fPlanes.size() && fPlanes[fNext].ZMid() < z) fNext++;
  }
  unsigned Index() const { return fNext; }

  /// Returns the distance to the next plane along a straight line from x in direction u [cm].
  double Distance(const TVector3& x, const TVector3& u) const {
    const double none = std::numeric_limits<double>::infinity();
    return fNext < fPlanes.size() && u.Z() > 0 ? (fPlanes[fNext].ZMid() - x.Z()) / u.Z() : none;
  }

  /// Returns whether a point at z is at or behind the next plane, and goes on to the one after it.
  bool Pass(double z) {
    if (fNext == fPlanes.size() || z < fPlanes[fNext].ZMid()) return false;
    fNext++;
    return true;
  }

private:
  const std::vector<geo::ActivePlane>& fPlanes;
  unsigned fNext = 0;
};

} // namespace

std::vector<PlaneCrossing> Crossings(const geo::PlaneDetector& detector,
                                     const SimulatedPath& path) {
  std::vector<PlaneCrossing> crossings;
  NextPlane next(detector, path.fPoints.front().fX.Z());
  for (std::size_t i = 1; i < path.fPoints.size(); i++) {
    const PathPoint& a = path.fPoints[i - 1];
    const PathPoint& b = path.fPoints[i];
    for (unsigned plane = next.Index(); next.Pass(b.fX.Z()); plane = next.Index()) {
      const double z = detector.Planes()[plane].ZMid();
      const double dz = b.fX.Z() - a.fX.Z();
      crossings.push_back(
          {plane, Between(a, b, dz > 0 ? (z - a.fX.Z()) / dz : 1), (b.fX - a.fX).Unit()});
    }
  }
  return crossings;
}

ParticleTransport::ParticleTransport(const geo::PlaneDetector& detector, int pdg, bool fluctuate)
    : fDetector(detector), fMass(FindParticle(pdg)->fMeasuredMass), fFluctuate(fluctuate) {
  for (const TGeoMaterial* material : detector.Materials()) {
    Medium& medium = fMedia.emplace_back(Medium{material, 0, std::nullopt});
    if (std::strcmp(material->GetName(), geo::kVacuum) == 0) continue;
    medium.fRadLen = 1 / material->GetRadLen();
    medium.fLoss.emplace(geo::MatterOf(*material).value(), pdg);
  }
}

const ParticleTransport::Medium& ParticleTransport::MediumOf(const TGeoMaterial& material) const {
  const auto isIt = [&material](const Medium& medium) { return medium.fMaterial == &material; };
  return *std::find_if(fMedia.begin(), fMedia.end(), isIt);
}

double ParticleTransport::BetaP(double T) const {
  return T * (T + 2 * fMass) / (T + fMass);
}

/// Takes the energy of one step in one material from T, at most kLargestLoss of it on average, and
/// returns the length of the step, `maxLength` cm at the longest. Midpoint rule.
double ParticleTransport::Lose(const Medium& medium, double maxLength, double& T,
                               util::RandomStream& random) const {
  if (!medium.fLoss) return maxLength;
  const MaterialLoss& mean = *medium.fLoss;
  const double rate = mean(T);
  const double length = std::min(maxLength, kLargestLoss * T / rate);
  double loss = length * mean(T - 0.5 * length * rate);
  if (fFluctuate && loss > 0) {
    // Gamma distribution of shape k and scale s: mean k s, variance k s^2.
    const double scale = mean.Straggling(T) * length / loss;
    loss = scale * random.Gamma(loss / scale);
  }
  T = std::max(T - loss, 0.);
  return length;
}

bool ParticleTransport::HasLeft(const TVector3& x, double zStart) const {
  const geo::Box& box = fDetector.Extent();
  const double zLow = std::min(box.fLow[2], zStart);
  return x.X() < box.fLow[0] - kMargin || x.X() > box.fHigh[0] + kMargin ||
         x.Y() < box.fLow[1] - kMargin || x.Y() > box.fHigh[1] + kMargin ||
         x.Z() < zLow - kMargin || x.Z() > box.fHigh[2] + kMargin;
}

/// As Lose, upstream and without fluctuations: adds the energy to T.
double ParticleTransport::Gain(const Medium& medium, double maxLength, double& T) const {
  if (!medium.fLoss) return maxLength;
  const MaterialLoss& loss = *medium.fLoss;
  const double rate = loss(T);
  const double length = std::min(maxLength, kLargestLoss * T / rate);
  T += length * loss(T + 0.5 * length * rate);
  return length;
}

void ParticleTransport::FindSteps(const TVector3& from, const TVector3& to) {
  double p0[3], p1[3];
  from.GetXYZ(p0);
  to.GetXYZ(p1);
  fDetector.MaterialsBetweenPoints(p0, p1, fSteps, fMaterials);
}

void ParticleTransport::FollowStraight(const TVector3& x, const TVector3& u, double T,
                                       util::RandomStream& random, SimulatedPath& path) {
  path.fPoints.assign(1, {x, T, 0});
  path.fStopped = false;
  const geo::Box& box = fDetector.Extent();
  const TVector3 low(box.fLow), high(box.fHigh);
  FindSteps(x, x + ((x - low).Mag() + (high - low).Mag()) * u);
  double length = 0;
  for (std::size_t k = 0; k < fSteps.size(); k++)
    for (double left = fSteps[k]; left > 0;) {
      const double part = Lose(MediumOf(*fMaterials[k]), left, T, random);
      left -= part;
      length += part;
      path.fPoints.push_back({x + length * u, T, length});
      path.fStopped = T < kStopped;
      if (path.fStopped) return;
    }
}

void ParticleTransport::FollowBack(const std::vector<TVector3>& line, SimulatedPath& path) {
  path.fPoints.assign(1, {line.back(), 0, 0});
  path.fStopped = true;
  double T = kStopped;
  double length = 0; // from the end
  for (std::size_t i = line.size() - 1; i > 0; i--) {
    FindSteps(line[i], line[i - 1]);
    const TVector3 u = (line[i - 1] - line[i]).Unit();
    double done = 0;
    for (std::size_t k = 0; k < fSteps.size(); k++)
      for (double left = fSteps[k]; left > 0;) {
        const double part = Gain(MediumOf(*fMaterials[k]), left, T);
        left -= part;
        done += part;
        path.fPoints.push_back({line[i] + done * u, T, length + done});
      }
    length += done;
  }
  std::reverse(path.fPoints.begin(), path.fPoints.end());
  for (PathPoint& point : path.fPoints) point.fLength = length - point.fLength;
}

/// Takes the energy of one step from T and counts its radiation lengths; returns its length.
double ParticleTransport::LoseInStep(const TVector3& x, const TVector3& u, double step, double& T,
                                     double& dX0, util::RandomStream& random) {
  FindSteps(x, x + step * u);
  const double minEnergy = std::max(kMinEnergyLeft * T, kStopped);
  double length = 0;
  dX0 = 0;
  for (std::size_t k = 0; k < fSteps.size() && T >= minEnergy; k++)
    for (double left = fSteps[k]; left > 0 && T >= minEnergy;) {
      const Medium& medium = MediumOf(*fMaterials[k]);
      const double part = Lose(medium, left, T, random);
      left -= part;
      length += part;
      dX0 += medium.fRadLen * part;
    }
  return length;
}

/// Returns the radiation lengths on a straight way, at most up to the downstream face.
double ParticleTransport::RadLengthsAhead(const TVector3& x, const TVector3& u, double length) {
  const double toFace = (fDetector.Extent().fHigh[2] - x.Z()) / u.Z();
  if (!(toFace > 0)) return 0;
  FindSteps(x, x + std::min(length, toFace) * u);
  double radLengths = 0;
  for (std::size_t k = 0; k < fSteps.size(); k++)
    radLengths += fSteps[k] * MediumOf(*fMaterials[k]).fRadLen;
  return radLengths;
}

/// Returns the length at which so many radiation lengths of the last step lie behind its start, at
/// most that of the step.
double ParticleTransport::LengthTo(double radLengths, double maxLength) const {
  double length = 0;
  for (std::size_t k = 0; k < fSteps.size(); k++) {
    const double radLen = MediumOf(*fMaterials[k]).fRadLen;
    if (radLengths < radLen * fSteps[k]) return std::min(length + radLengths / radLen, maxLength);
    length += fSteps[k];
    radLengths -= radLen * fSteps[k];
  }
  return maxLength;
}

void ParticleTransport::Scatter(TVector3 x, TVector3 u, double T, double step,
                                util::RandomStream& random, SimulatedPath& path) {
  path.fPoints.assign(1, {x, T, 0});
  path.fStopped = false;
  NextPlane next(fDetector, x.Z());
  const double zStart = x.Z();
  double X = RadLengthsAhead(x, u, next.Distance(x, u)); // from plane to plane
  while (!HasLeft(x, zStart)) {
    const PathPoint before = path.fPoints.back();
    double dX0 = 0;
    const double length =
        LoseInStep(x, u, std::min(step, next.Distance(x, u) + kBehind), T, dX0, random);
    const double theta0 = Highland(dX0, X) / BetaP((before.fT + T) / 2);
    const double hingeAt = LengthTo(random.Uniform() * dX0, length);
    const double angle1 = theta0 * random.Normal();
    const double angle2 = theta0 * random.Normal();
    const PathPoint hinge =
        Between(before, {x + length * u, T, before.fLength + length}, hingeAt / length);
    u = Turned(u, angle1, angle2);
    x = hinge.fX + (length - hingeAt) * u;
    path.fPoints.push_back(hinge);
    path.fPoints.push_back({x, T, before.fLength + length});
    while (next.Pass(x.Z())) X = RadLengthsAhead(x, u, next.Distance(x, u));
    if (T < kStopped) {
      path.fStopped = true;
      return;
    }
  }
}

} // namespace kelvo
