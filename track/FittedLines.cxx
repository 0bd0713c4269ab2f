// The fitted track where a TrackChain has no hit in use.
#include "track/TrackChain.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

constexpr double kEdge = 3;  // standard deviations that a crossing is inside of the cells
constexpr double kFound = 5; // standard deviations from it that a hit may be

LineAt Lane(const LanePoint& line, std::size_t lane) {
  return {line.fX[lane], line.fSlope[lane], std::sqrt(line.fVarX[lane]),
          std::sqrt(line.fVarSlope[lane]), line.fCovXSlope[lane]};
}

bool IsAcross(const geo::CellRow& cells, const LineAt& line) {
  const double margin = kEdge * line.fSigU;
  return cells.Cell(line.fU - margin) >= 0 && cells.Cell(line.fU + margin) >= 0;
}

/// Whether a line surely crosses the cells that measure a view.
bool IsInside(const geo::ActivePlane& plane, std::size_t view, const LineAt& across,
              const LineAt& along) {
  const geo::CellRow &cells = plane.fCells[view], &others = plane.fCells[1 - view];
  if (!IsAcross(cells, across)) return false;
  if (others.fCount > 0) return IsAcross(others, along);
  return std::abs(along.fU - cells.fMiddle) + kEdge * along.fSigU < cells.fLength / 2;
}

} // namespace

bool TrackChain::NeedsLines() const {
  return fOptions.fWithPlanes || fOptions.fCrossings || !fLeftOut.empty() || !fPlaces.empty();
}

/// Returns the line of a view without some of the hits in use that follow each other, as
/// LaneSmoother::Without.
LanePoint TrackChain::LineWithout(std::size_t view, double z, std::size_t first, std::size_t end) {
  const std::size_t last = fHits.size() - 1;
  fCrossed.clear();
  for (std::size_t j = fPlanesBefore[first > 0 ? first - 1 : 0];
       j < fPlanesBefore[std::min(end, last)]; j++) {
    const double factor = fPlanes[j].fSlopePerAngle[view];
    fCrossed.push_back({fPlanes[j].fZ, fVarAlpha[j] * (factor * factor)});
  }
  return fSmoother.Without(view, z, first, end, fCrossed.data(), fCrossed.size());
}

LanePoint TrackChain::LineAtHit(const TrackHit& leftOut) {
  const auto next = std::lower_bound(fHits.begin(), fHits.end(), leftOut, IsUpstream);
  const auto i = static_cast<std::size_t>(next - fHits.begin());
  return LineWithout(leftOut.fView, leftOut.fZ, i, i);
}

/// Whether a hit is in the plane of its view at z; in a geometry whose planes are not known, within
/// 1 mm of it.
bool TrackChain::IsAt(double z, const TrackHit& hit) const {
  constexpr double kSame = 0.1; // cm
  if (!fPlaneDetector) return std::abs(hit.fZ - z) <= kSame;
  const auto view = static_cast<unsigned>(hit.fView);
  const geo::ActivePlane* plane = fPlaneDetector->NearestPlane(z, view);
  return plane && plane->Holds(z) && plane->Holds(hit.fZ) &&
         fPlaneDetector->NearestPlane(hit.fZ, view) == plane;
}

/// Returns the line of a view as the hits tell that are not at z.
LanePoint TrackChain::LineOfOthers(std::size_t view, double z) {
  const auto before = [](const TrackHit& hit, double at) { return hit.fZ < at; };
  const auto next = std::lower_bound(fHits.begin(), fHits.end(), z, before);
  auto first = static_cast<std::size_t>(next - fHits.begin()), end = first;
  for (std::size_t i = 0; i < fHits.size(); i++) {
    if (fHits[i].fView != view || !IsAt(z, fHits[i])) continue;
    first = std::min(first, i);
    end = std::max(end, i + 1);
  }
  return LineWithout(view, z, first, end);
}

void TrackChain::FillPlaces(const LaneFits& lanes) {
  const auto before = [](const TrackHit& hit, double at) { return hit.fZ < at; };
  for (const double z : fPlaces) {
    const auto next = std::lower_bound(fHits.begin(), fHits.end(), z, before);
    const auto i = static_cast<std::size_t>(next - fHits.begin());
    LanePoint all[2], others[2];
    for (std::size_t v = 0; v < 2; v++) {
      all[v] = LineWithout(v, z, i, i);
      others[v] = LineOfOthers(v, z);
    }
    for (std::size_t l = 0; l < lanes.fN; l++)
      lanes.fFit[l].fPlace.push_back(
          {z, {Lane(all[0], l), Lane(all[1], l)}, {Lane(others[0], l), Lane(others[1], l)}});
  }
}

void TrackChain::FillCrossings(const LaneFits& lanes) {
  if (!fPlaneDetector) return;
  const std::vector<geo::ActivePlane>& planes = fPlaneDetector->Planes();
  for (unsigned int p = 0; p < planes.size(); p++) {
    // Where a particle was that may stop, hits on both sides tell.
    const bool isPassed = fHits.front().fZ < planes[p].fZLow && fHits.back().fZ > planes[p].fZHigh;
    for (unsigned int v = 0; v < 2; v++)
      if ((isPassed || IsBeam()) && planes[p].Measures(v)) CrossPlane(p, v, lanes);
  }
}

void TrackChain::CrossPlane(unsigned int plane, std::size_t view, const LaneFits& lanes) {
  const geo::ActivePlane& at = fPlaneDetector->Planes()[plane];
  const double z = at.ZMid();
  const LanePoint across = LineOfOthers(view, z), along = LineOfOthers(1 - view, z);
  for (std::size_t l = 0; l < lanes.fN; l++) {
    const LineAt line = Lane(across, l);
    if (!IsInside(at, view, line, Lane(along, l))) continue;
    const auto isFound = [&](const TrackHit& hit) {
      return hit.fView == view && IsAt(z, hit) &&
             std::abs(hit.fU - line.fU) <= kFound * std::hypot(line.fSigU, hit.fSig);
    };
    const bool found = std::any_of(fHits.begin(), fHits.end(), isFound) ||
                       std::any_of(fLeftOut.begin(), fLeftOut.end(), isFound);
    lanes.fFit[l].fCrossing.push_back({plane, static_cast<unsigned int>(view), found});
  }
}

} // namespace kelvo
