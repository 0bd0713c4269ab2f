#include "track/PlanePlacement.h"

#include "func/ScatteringSurfaces.h"

#include <TGeoMaterial.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace kelvo {
namespace {

constexpr double kWidening = 1.5; // a compromise: fewer attempts, yet few planes given away
constexpr int kMaxWidenings = 40; // 10^7 times the limits

void Take(const ScatteringSurfaces& surfaces, double factor, PlaneList& planes) {
  planes.fS.clear();
  planes.fSigAlpha.clear();
  for (unsigned int j = 0; j < surfaces.N(); j++) {
    planes.fS.push_back(surfaces.S(j));
    planes.fSigAlpha.push_back(surfaces.SigAlpha(j) * factor);
  }
}

constexpr double kThinnest = 1e-6; // radiation lengths; what is thinner does not scatter

/// The cheapest way to have one slab less: its place, and the second moment that is lost.
struct Merger {
  std::size_t fIndex = 0; // 0: leave out the first, N: the last, else merge k - 1 and k
  double fMoment = std::numeric_limits<double>::infinity(); // radiation lengths cm^2
};

Merger CheapestMerger(const std::vector<Slab>& slabs, const BeamTrack& track) {
  // At the first hit a kink is no other than the slope, behind the last hit it is not seen.
  const double first = slabs.front().fS - track.fFirst;
  const double last = track.fLast - slabs.back().fS;
  Merger best{0, slabs.front().fDX0 * first * first};
  const double atEnd = slabs.back().fDX0 * last * last;
  if (atEnd < best.fMoment) best = {slabs.size(), atEnd};
  for (std::size_t k = 1; k < slabs.size(); k++) {
    const double x0 = slabs[k - 1].fDX0, x1 = slabs[k].fDX0;
    const double d = slabs[k].fS - slabs[k - 1].fS;
    const double moment = x0 * x1 / (x0 + x1) * d * d;
    if (moment < best.fMoment) best = {k, moment};
  }
  return best;
}

void Merge(std::vector<Slab>& slabs, std::size_t k) {
  if (k == slabs.size()) {
    slabs.pop_back();
    return;
  }
  if (k > 0) {
    Slab& into = slabs[k - 1];
    const double sum = into.fDX0 + slabs[k].fDX0;
    into = {(into.fS * into.fDX0 + slabs[k].fS * slabs[k].fDX0) / sum, sum};
  }
  slabs.erase(slabs.begin() + static_cast<std::ptrdiff_t>(k));
}

} // namespace

void PlaceByLimits(const Path& path, int pdg, const std::vector<double>& s,
                   const TrackFitOptions& options, std::size_t most, PlaneList& planes) {
  planes.fMaxDs = options.fMaxDs;
  planes.fMaxDX0 = options.fMaxDX0;
  planes.fMaxDT = options.fMaxDT;
  for (int attempt = 0; attempt <= kMaxWidenings; attempt++) {
    ScatteringSurfaces surfaces(pdg, planes.fMaxDs, planes.fMaxDX0, planes.fMaxDT);
    surfaces.MakeSteps(path, s);
    if (surfaces.N() <= most) return Take(surfaces, options.fScatteringFactor, planes);
    planes.fMaxDs *= kWidening;
    planes.fMaxDX0 *= kWidening;
    planes.fMaxDT *= kWidening;
  }
  ScatteringSurfaces one(pdg, planes.fMaxDs, planes.fMaxDX0, planes.fMaxDT);
  one.ForceOnePlane(path, s);
  Take(one, options.fScatteringFactor, planes);
}

void FindSlabs(const geo::GeometryBase& geo, const Vector& p0, const Vector& p1, double s0,
               std::vector<Slab>& slabs) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  geo.MaterialsBetweenPoints(p0.data(), p1.data(), ds, mats);
  slabs.clear();
  double s = s0;
  for (std::size_t k = 0; k < ds.size(); k++) {
    const bool vacuum = std::strcmp(mats[k]->GetName(), "Vacuum") == 0;
    const double dX0 = vacuum ? 0 : ds[k] / mats[k]->GetRadLen();
    if (dX0 > kThinnest) slabs.push_back({s + ds[k] / 2, dX0});
    s += ds[k];
  }
}

void PlaceInSlabs(std::vector<Slab> slabs, const BeamTrack& track, std::size_t most,
                  PlaneList& planes) {
  constexpr double kSeen = 0.01; // of the smallest uncertainty
  while (!slabs.empty()) {
    const Merger merger = CheapestMerger(slabs, track);
    // The width behind one radiation length, taken to go with the square root of the thickness.
    const double width = track.fFactor * ScatteringSurfaces::Width(1, track.fBeta, track.fP);
    const double shift = width * std::sqrt(merger.fMoment);
    if (slabs.size() <= most && shift > kSeen * track.fSmallestSigma) break;
    Merge(slabs, merger.fIndex);
  }
  planes = PlaneList{};
  for (const Slab& slab : slabs) {
    planes.fS.push_back(slab.fS);
    planes.fSigAlpha.push_back(track.fFactor *
                               ScatteringSurfaces::Width(slab.fDX0, track.fBeta, track.fP));
  }
}

} // namespace kelvo
