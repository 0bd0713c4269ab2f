#include "sim/Simulator.h"

#include "geo/Detector.h"
#include "sim/KinkedLine.h"
#include "track/OptionCheck.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace kelvo {
namespace {

constexpr int kPlacesPerEnergy = 300;
constexpr int kEnergies = 100;
constexpr int kMinHits = 4;     // per view
constexpr int kMinBeamHits = 3; // per view
// Energy and range are nearly proportional: a straight line on which more than this part of the
// energy is left where it leaves the detector is no place for a track to stop.
constexpr double kMaxLeft = 0.07;
// The search for planes and track that agree. It seldom gets further: the fit's steps end at hits,
// and where a step ends jumps when a hit moves by a hair, for the fit as for the simulation.
constexpr int kPasses = 6;
constexpr double kAgree = 0.01; // cm; far below the uncertainty of a hit
// Standard deviations of the slopes of particles that stop and of a beam, where none are given.
constexpr double kSlope = 0.3;
constexpr double kBeamSlope = 1e-3;

void CheckRange(const SimulationRange& range, const char* name, double low, double high,
                const char* rule) {
  for (const double value : {range.fLow, range.fHigh})
    CheckOption(value >= low && value <= high, name, value, rule);
  if (range.fLow > range.fHigh)
    throw std::invalid_argument(std::string(name) + " goes from " + NumberText(range.fLow) +
                                " down to " + NumberText(range.fHigh) +
                                "; give the smaller number first");
}

void CheckOptions(const SimulationOptions& o) {
  CheckOption(FindParticle(o.fPDG), "the particle's code", o.fPDG,
              ParticleCodes() + ", of either sign");
  CheckRange(o.fKineticEnergy, "the kinetic energy", 1e-3, 1e4, "from 0.001 to 10000 GeV");
  CheckOption(o.fSigma > 0 && o.fSigma <= 1e3, "the error of the hits", o.fSigma,
              "above 0 and at most 1000 cm");
  CheckOption(o.fEfficiency > 0 && o.fEfficiency <= 1, "the efficiency", o.fEfficiency,
              "above 0 and at most 1");
  CheckOption(o.fStep >= 1e-3 && o.fStep <= 100, "the largest step", o.fStep,
              "from 0.001 to 100 cm");
  CheckOption(o.fBeamMomentum == 0 || (o.fBeamMomentum >= 1e-3 && o.fBeamMomentum <= 1e4),
              "the beam momentum", o.fBeamMomentum,
              "0 (particles stop) or from 0.001 to 10000 GeV/c");
  CheckOption(o.fSigBeamMomentum >= 0 && o.fSigBeamMomentum <= o.fBeamMomentum / 3,
              "the spread of the beam momentum", o.fSigBeamMomentum,
              "from 0 to a third of the beam momentum");
  if (o.fSlope)
    CheckOption(*o.fSlope >= 0 && *o.fSlope <= 1, "the width of the slopes", *o.fSlope,
                "from 0 to 1");
  if (o.fSpot)
    CheckOption(*o.fSpot >= 0 && *o.fSpot <= 1e4, "the width of the spot", *o.fSpot,
                "from 0 to 10000 cm");
  const char* const names[] = {"x at the start", "y at the start", "z at the start"};
  for (int k = 0; k < 3; k++)
    if (o.fStart[k]) CheckRange(*o.fStart[k], names[k], -1e5, 1e5, "from -100000 to 100000 cm");
  if (o.fScattering == ScatteringModel::kFit &&
      (o.fFluctuateLoss || o.fLeaving || o.fBeamMomentum > 0))
    throw std::invalid_argument(
        "with the scattering of the fit, tracks stop after their mean range: a fluctuating energy "
        "loss, tracks that leave and beams need the full scattering");
  if (o.fBeamMomentum > 0 && o.fLeaving)
    throw std::invalid_argument("all tracks of a beam leave the detector; drop fLeaving");
  if (o.fFit.fBeamMomentum != 0)
    throw std::invalid_argument(
        "the fit's scattering is that of particles that stop; a beam is "
        "simulated with fBeamMomentum of SimulationOptions");
}

void CheckMaterials(const geo::PlaneDetector& detector) {
  const geo::Detector any(detector);
  if (any.UnknownMaterials().empty()) return;
  throw std::invalid_argument(
      "the detector \"" + detector.Name() + "\" has " + Joined(any.UnknownMaterials()) +
      ", of which neither the name nor the elements are known, so that particles cannot be "
      "followed; give a formula or a composition");
}

SimulationOptions Completed(const geo::PlaneDetector& detector, SimulationOptions options) {
  CheckOptions(options);
  CheckMaterials(detector);
  const geo::Box& box = detector.Extent();
  for (int k = 0; k < 2; k++)
    if (!options.fStart[k]) options.fStart[k] = {box.fLow[k], box.fHigh[k]};
  const double half = (box.fHigh[2] - box.fLow[2]) / 2;
  const double upstream = box.fLow[2] - 1;
  const bool beam = options.fBeamMomentum > 0;
  if (!options.fStart[2])
    options.fStart[2] = {upstream, beam ? upstream : box.fLow[2] + std::min(50., half)};
  if (!options.fSlope) options.fSlope = beam ? kBeamSlope : kSlope;
  options.fFit.fHypotheses = {options.fPDG};
  options.fFit.fWithPlanes = true;
  options.fFit.fEnd = TrackEndMode::kStops;
  options.fFit.fScatteringMomentum = false;
  return options;
}

bool Inside(const geo::Box& box, const TVector3& x) {
  for (int k = 0; k < 3; k++)
    if (x[k] < box.fLow[k] || x[k] > box.fHigh[k]) return false;
  return true;
}

/// Returns whether a point [cm] of a plane lies in one of its cells, or in a gap between them where
/// gaps count as cells.
bool InCell(const geo::ActivePlane& plane, const TVector3& x, bool gaps) {
  for (int view = 0; view < 2; view++) {
    const geo::CellRow& row = plane.fCells[view];
    if (row.fCount == 0) continue;
    const int cell = row.Cell(x[view]);
    if (cell < 0) return false;
    const double off = std::abs(x[view] - row.Centre(static_cast<unsigned>(cell)));
    if (!gaps && off > row.fWidth / 2) return false;
    const bool pixels = plane.Measures(0) && plane.Measures(1);
    if (!pixels && std::abs(x[1 - view] - row.fMiddle) > row.fLength / 2) return false;
  }
  return true;
}

bool Agree(const std::vector<PlaneCrossing>& a, const std::vector<PlaneCrossing>& b) {
  const auto same = [](const PlaneCrossing& p, const PlaneCrossing& q) {
    return p.fPlane == q.fPlane && (p.fAt.fX - q.fAt.fX).Mag() < kAgree;
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

Hit3D HitAt(int view, const TVector3& x, double sigU) {
  Hit3D hit;
  hit.fView = view == 0 ? geo::kX : geo::kY;
  hit.fX = x.X();
  hit.fY = x.Y();
  hit.fZ = x.Z();
  (view == 0 ? hit.fSigX : hit.fSigY) = sigU;
  return hit;
}

} // namespace

HitList3D SimulatedTrack::Hits() const {
  HitList3D hits;
  for (const SimulatedHit& hit : fHits) {
    // What was measured, from where the plane is.
    const double z = hit.fTrue.Z();
    hits.push_back(HitAt(hit.fView, TVector3(0, 0, z), hit.fSigU));
    (hit.fView == 0 ? hits.back().fX : hits.back().fY) = hit.fU + hit.fOffset;
  }
  return hits;
}

Simulator::Simulator(const geo::PlaneDetector& detector, const SimulationOptions& options)
    : fDetector(detector),
      fOptions(Completed(detector, options)),
      fTransport(detector, options.fPDG, options.fFluctuateLoss),
      fFitter(detector, fOptions.fFit) {}

SimulatedTrack Simulator::Make(long long track) {
  util::RandomStream random(fOptions.fSeed, static_cast<std::uint64_t>(track));
  for (int i = 0; i < kEnergies; i++) {
    const double T = DrawEnergy(random);
    for (int k = 0; k < kPlacesPerEnergy; k++) {
      const Start start = DrawStart(T, random);
      if (Follow(start, random)) return Measured(track, random);
    }
  }
  throw std::runtime_error("track " + std::to_string(track) + ": in " +
                           std::to_string(kPlacesPerEnergy * kEnergies) + " attempts no particle " +
                           (IsBeam()            ? "crossed the detector and was"
                            : fOptions.fLeaving ? "was"
                                                : "stopped inside the detector and was") +
                           " seen by " + std::to_string(IsBeam() ? kMinBeamHits : kMinHits) +
                           " planes of each view; choose another " +
                           (IsBeam() ? "momentum" : "kinetic energy") + " or start");
}

double Simulator::DrawEnergy(util::RandomStream& random) const {
  if (!IsBeam()) return random.Uniform(fOptions.fKineticEnergy.fLow, fOptions.fKineticEnergy.fHigh);
  double p = 0;
  do {
    p = fOptions.fBeamMomentum + fOptions.fSigBeamMomentum * random.Normal();
  } while (!(p > 0));
  const double mass = fTransport.Mass();
  return p * p / (std::hypot(p, mass) + mass);
}

Simulator::Start Simulator::DrawStart(double T, util::RandomStream& random) const {
  Start start;
  start.fT = T;
  for (int k = 0; k < 3; k++) {
    const SimulationRange& range = *fOptions.fStart[k];
    start.fX[k] = fOptions.fSpot && k < 2
                      ? (range.fLow + range.fHigh) / 2 + *fOptions.fSpot * random.Normal()
                      : random.Uniform(range.fLow, range.fHigh);
  }
  double dxdz = 0, dydz = 0;
  do {
    dxdz = *fOptions.fSlope * random.Normal();
    dydz = *fOptions.fSlope * random.Normal();
  } while (dxdz * dxdz + dydz * dydz > 1);
  start.fU = TVector3(dxdz, dydz, 1).Unit();
  return start;
}

/// Whether the straight way is long enough to stop on.
bool Simulator::MayStop(const Start& start, util::RandomStream& random) {
  fTransport.FollowStraight(start.fX, start.fU, start.fT, random, fPath);
  return fPath.fPoints.back().fT < kMaxLeft * start.fT;
}

/// Makes fPath and fCrossings; returns whether this is a track to keep.
bool Simulator::Follow(const Start& start, util::RandomStream& random) {
  std::vector<double> lots(fDetector.Planes().size());
  if (fOptions.fEfficiency < 1)
    for (double& lot : lots) lot = random.Uniform();
  if (!IsBeam() && !fOptions.fLeaving && !MayStop(start, random)) return false;
  if (fOptions.fScattering == ScatteringModel::kFit) return FollowKinks(lots, random);
  fTransport.Scatter(start.fX, start.fU, start.fT, fOptions.fStep, random, fPath);
  FindCrossings(lots);
  return Wanted();
}

bool Simulator::FollowKinks(const std::vector<double>& lots, util::RandomStream& random) {
  const TVector3 begin = fPath.fPoints.front().fX, end = fPath.fPoints.back().fX;
  fNormal.clear();
  FindCrossings(lots); // of the straight line
  if (!Wanted()) return false;
  for (int pass = 0; pass < kPasses; pass++) {
    const std::vector<PlaneCrossing> before = fCrossings;
    if (!Bend(begin, end, random)) return false;
    FindCrossings(lots);
    if (fCrossings.size() != before.size()) return false; // it left at a side
    if (Agree(before, fCrossings)) break;
  }
  fTransport.FollowBack(fCorners, fPath);
  FindCrossings(lots);
  return Wanted();
}

void Simulator::FindCrossings(const std::vector<double>& lots) {
  const bool gaps = fOptions.fScattering == ScatteringModel::kFit;
  fCrossings.clear();
  for (const PlaneCrossing& crossing : Crossings(fDetector, fPath))
    if (lots[crossing.fPlane] < fOptions.fEfficiency &&
        InCell(fDetector.Planes()[crossing.fPlane], crossing.fAt.fX, gaps))
      fCrossings.push_back(crossing);
}

bool Simulator::EndsAsWanted() const {
  const TVector3& end = fPath.fPoints.back().fX;
  if (IsBeam()) return !fPath.fStopped && end.Z() > fDetector.Extent().fHigh[2];
  return fPath.fStopped ? Inside(fDetector.Extent(), end) : fOptions.fLeaving;
}

bool Simulator::Wanted() const {
  if (!EndsAsWanted()) return false;
  int hits[2] = {0, 0};
  for (const PlaneCrossing& crossing : fCrossings)
    for (unsigned view = 0; view < 2; view++)
      if (fDetector.Planes()[crossing.fPlane].Measures(view)) hits[view]++;
  const int min = IsBeam() ? kMinBeamHits : kMinHits;
  return hits[0] >= min && hits[1] >= min;
}

/// Makes fPath between the z of two points [cm]: a line with kinks at the scattering planes that a
/// fit of the crossings has. The straight line nearest to it is the one between the points.
bool Simulator::Bend(const TVector3& begin, const TVector3& end, util::RandomStream& random) {
  HitList3D hits;
  for (const PlaneCrossing& crossing : fCrossings)
    for (const SimulatedHit& hit : HitsOf(crossing))
      hits.push_back(HitAt(hit.fView, hit.fTrue, hit.fSigU));
  const TrackFit fit = fFitter.Fit(hits);
  if (!fit.Fitted()) return false;
  const HypothesisFit& planes = fit.fHypothesis.front();
  while (fNormal.size() < planes.fPlaneS.size())
    fNormal.push_back({random.Normal(), random.Normal()});

  KinkedLine line(hits);
  const std::vector<TVector3>& points = planes.fPlanePoint;
  for (std::size_t j = 0; j < points.size(); j++) {
    const TVector3& before = j > 0 ? points[j - 1] : planes.fPosition;
    const TVector3& behind = j + 1 < points.size() ? points[j + 1] : planes.fEnd;
    const TVector3 slope = (behind - before) * (1 / (behind.Z() - before.Z()));
    // The slope of a view for an angle in its plane, see TrackChain::PlacePlanes.
    const auto kink = [&](int view) {
      return fNormal[j][static_cast<std::size_t>(view)] * planes.fPlaneSigAlpha[j] * slope.Mag() *
             std::hypot(1, slope[view]);
    };
    line.AddKink(points[j].Z(), kink(0), kink(1));
  }
  line.Align(begin, end);
  line.Corners(begin.Z(), end.Z(), fCorners);
  fPath.fPoints.clear();
  for (const TVector3& corner : fCorners) fPath.fPoints.push_back({corner, 0, 0});
  return true;
}

/// The hits that a crossing gives, not yet measured: one per view of the plane.
std::vector<SimulatedHit> Simulator::HitsOf(const PlaneCrossing& crossing) const {
  const geo::ActivePlane& plane = fDetector.Planes()[crossing.fPlane];
  std::vector<SimulatedHit> hits;
  for (int view = 0; view < 2; view++) {
    const geo::CellRow& row = plane.fCells[view];
    if (row.fCount == 0) continue;
    SimulatedHit hit{};
    hit.fView = view;
    hit.fTrue = crossing.fAt.fX;
    hit.fU = hit.fTrue[view];
    hit.fOffset = plane.fOffset[view];
    hit.fZ = plane.ZMid() - plane.fOffset[2];
    hit.fSigU = fOptions.fHits == HitModel::kCells ? row.fResolution : fOptions.fSigma;
    hit.fSlope = crossing.fDirection * (1 / crossing.fDirection.Z());
    hit.fT = crossing.fAt.fT;
    hits.push_back(hit);
  }
  return hits;
}

SimulatedTrack Simulator::Measured(long long number, util::RandomStream& random) const {
  SimulatedTrack track;
  track.fTrack = number;
  track.fPDG = fOptions.fPDG;
  const PlaneCrossing& first = fCrossings.front();
  const PathPoint& end = fPath.fPoints.back();
  const double T = first.fAt.fT;
  track.fStart = first.fAt.fX;
  track.fT = T;
  track.fMomentum = std::sqrt(T * (T + 2 * fTransport.Mass())) * first.fDirection;
  track.fEnd = end.fX;
  track.fLength = end.fLength - first.fAt.fLength;
  for (const PlaneCrossing& crossing : fCrossings)
    for (SimulatedHit& hit : HitsOf(crossing)) {
      const geo::CellRow& row = fDetector.Planes()[crossing.fPlane].fCells[hit.fView];
      if (fOptions.fHits == HitModel::kCells)
        hit.fU = row.Centre(static_cast<unsigned>(row.Cell(hit.fU)));
      else
        hit.fU += hit.fSigU * random.Normal();
      hit.fU -= hit.fOffset;
      track.fHits.push_back(hit);
    }
  return track;
}

} // namespace kelvo
