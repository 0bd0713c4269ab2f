#include "io/HitNumbers.h"

#include <cmath>

namespace kelvo {

namespace {

HitColumn Column(std::size_t c) {
  return static_cast<HitColumn>(c);
}

bool Has(const HitColumns& columns, std::size_t c) {
  return c != kHitTrack && columns.Has(Column(c));
}

int ViewOf(double value) {
  if (value == 0 || value == 'X' || value == 'x' || value == '0') return geo::kX;
  if (value == 1 || value == 'Y' || value == 'y' || value == '1') return geo::kY;
  return -1;
}

// Which column has another length than that of z; empty if none has.
std::string LengthProblem(const HitColumns& columns, const HitNumbers& numbers) {
  const std::size_t n = numbers[kHitZ].fSize;
  for (std::size_t c = 0; c < kHitColumns; ++c) {
    if (!Has(columns, c) || numbers[c].fSize == n) continue;
    return "column " + columns.Name(Column(c)) + ": has " + std::to_string(numbers[c].fSize) +
           " values where column " + columns.Name(kHitZ) + " has " + std::to_string(n);
  }
  return "";
}

} // namespace

std::string HitProblem(const HitColumns& columns, const HitNumbers& numbers, std::size_t i) {
  for (std::size_t c = 0; c < kHitColumns; ++c) {
    if (!Has(columns, c)) continue;
    const double value = numbers[c][i];
    const auto problem = [&](const char* reason) {
      return "column " + columns.Name(Column(c)) + ": " + reason;
    };
    if (!std::isfinite(value)) return problem("is not a finite number");
    if (c == kHitView && ViewOf(value) < 0)
      return problem("is not a view, which is X or Y, 0 or 1");
    const bool isError = c == kHitSigU || c == kHitSigX || c == kHitSigY;
    if (isError && !(value > 0)) return problem("is not above 0");
    if ((c == kHitSigZ || c == kHitSigT || c == kHitW) && value < 0) return problem("is below 0");
  }
  return "";
}

void AddHit(const HitColumns& columns, const HitNumbers& numbers, std::size_t i, HitList3D& hits) {
  const auto value = [&](HitColumn c, double otherwise) {
    return columns.Has(c) ? numbers[c][i] : otherwise;
  };
  Hit3D hit;
  hit.fZ = numbers[kHitZ][i];
  hit.fSigZ = value(kHitSigZ, 0);
  hit.fT = value(kHitT, 0);
  hit.fSigT = value(kHitSigT, 0);
  hit.fW = value(kHitW, 1);
  const bool both = columns.BothViews();
  const int view = both ? geo::kX : ViewOf(numbers[kHitView][i]);
  if (both || view == geo::kX) {
    Hit3D x = hit;
    x.fView = geo::kX;
    x.fX = numbers[both ? kHitX : kHitU][i];
    x.fSigX = numbers[both ? kHitSigX : kHitSigU][i];
    hits.push_back(x);
  }
  if (both || view == geo::kY) {
    Hit3D y = hit;
    y.fView = geo::kY;
    y.fY = numbers[both ? kHitY : kHitU][i];
    y.fSigY = numbers[both ? kHitSigY : kHitSigU][i];
    hits.push_back(y);
  }
}

void AddEntry(const HitColumns& columns, const HitNumbers& numbers, TrackHits& track) {
  const auto add = [&track](const std::string& problem) {
    track.AddProblem(track.fFile.empty() ? problem : track.Place() + ", " + problem);
  };
  const std::string length = LengthProblem(columns, numbers);
  if (!length.empty()) return add(length);
  for (std::size_t i = 0; i < numbers[kHitZ].fSize; ++i) {
    const std::string problem = HitProblem(columns, numbers, i);
    if (problem.empty())
      AddHit(columns, numbers, i, track.fHits);
    else
      add("hit " + std::to_string(i) + ", " + problem);
  }
}

} // namespace kelvo
