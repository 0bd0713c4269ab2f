#include "run/HitPlanes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace kelvo {

namespace {

constexpr const char* kOffPlane = "more than half a plane from any;";
constexpr const char* kOtherView =
    "on planes that do not measure their view; are the views exchanged?";
constexpr const char* kOutside = "outside of the cells of their plane;";
constexpr const char* kSeparated =
    " times a track has hits in cells of one plane that do not touch; are several tracks under one "
    "number?";

constexpr double kFewHits = 0.05;
constexpr double kFewCrossings = 0.2;
constexpr double kNearlyAll = 0.9;

bool Exceeds(unsigned long long part, double fraction, unsigned long long all) {
  return static_cast<double>(part) > fraction * static_cast<double>(all);
}

/// "2,911 of 3,000".
std::string PartOf(unsigned long long part, unsigned long long all) {
  const auto grouped = [](unsigned long long count) {
    std::string digits = std::to_string(count);
    for (std::size_t left = digits.size(); left > 3; left -= 3) digits.insert(left - 3, ",");
    return digits;
  };
  return grouped(part) + " of " + grouped(all);
}

} // namespace

void HitPlaneCounts::Add(const HitPlaneCounts& other) {
  fHits += other.fHits;
  fOffPlane += other.fOffPlane;
  fOtherView += other.fOtherView;
  fOutside += other.fOutside;
  fTenTimes += other.fTenTimes;
  fCrossings += other.fCrossings;
  fSeparated += other.fSeparated;
}

std::vector<std::string> HitPlaneCounts::Doubts() const {
  std::vector<std::string> doubts;
  const unsigned long long largest = std::max({fOffPlane, fOtherView, fOutside});
  const bool isTenTimes = Exceeds(fTenTimes, kNearlyAll, fOffPlane + fOutside);
  if (Exceeds(largest, kFewHits, fHits))
    doubts.push_back(PartOf(largest, fHits) + " hits lie " +
                     (largest == fOffPlane    ? kOffPlane
                      : largest == fOtherView ? kOtherView
                                              : kOutside) +
                     (isTenTimes && largest != fOtherView ? " are lengths in mm?" : "") +
                     " is this the detector?");
  if (Exceeds(fSeparated, kFewCrossings, fCrossings))
    doubts.push_back(PartOf(fSeparated, fCrossings) + kSeparated);
  return doubts;
}

void HitPlanes::Count(const HitList3D& hits, HitPlaneCounts& counts) {
  if (!fDetector) return;
  fFound.clear();
  for (const Hit3D& hit : hits) {
    counts.fHits++;
    const int view = hit.fView == geo::kX ? 0 : 1;
    const double u = view == 0 ? hit.fX : hit.fY;
    if (const geo::ActivePlane* plane = PlaneAt(view, hit.fZ)) {
      const geo::CellRow& cells = plane->fCells[view];
      if (cells.Cell(u) < 0) {
        counts.fOutside++;
        counts.fTenTimes += IsInCell(view, u / 10, hit.fZ / 10) ? 1 : 0;
      }
      fFound.push_back({&cells, u});
    } else if (PlaneAt(1 - view, hit.fZ)) {
      counts.fOtherView++;
    } else {
      counts.fOffPlane++;
      counts.fTenTimes += IsInCell(view, u / 10, hit.fZ / 10) ? 1 : 0;
    }
  }
  CountSeparated(counts);
}

bool HitPlanes::IsInCell(int view, double u, double z) const {
  const geo::ActivePlane* plane = PlaneAt(view, z);
  return plane && plane->fCells[view].Cell(u) >= 0;
}

/// Returns the plane of a view that a position is on, null for none.
const geo::ActivePlane* HitPlanes::PlaneAt(int view, double z) const {
  const geo::ActivePlane* nearest = fDetector->NearestPlane(z, static_cast<unsigned>(view));
  return nearest && nearest->Holds(z) ? nearest : nullptr;
}

/// Neighbouring cells are less than two cells apart wherever in them their hits are.
void HitPlanes::CountSeparated(HitPlaneCounts& counts) {
  const std::less<const geo::CellRow*> before;
  std::sort(fFound.begin(), fFound.end(), [before](const Found& a, const Found& b) {
    return a.fCells == b.fCells ? a.fU < b.fU : before(a.fCells, b.fCells);
  });
  for (auto begin = fFound.begin(); begin != fFound.end();) {
    const geo::CellRow* cells = begin->fCells;
    bool separated = false;
    auto next = begin + 1;
    for (; next != fFound.end() && next->fCells == cells; next++)
      separated |= next->fU - next[-1].fU > 2 * cells->fPitch;
    counts.fCrossings++;
    counts.fSeparated += separated ? 1 : 0;
    begin = next;
  }
}

} // namespace kelvo
