#include "io/HitNumbers.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace kelvo {

namespace {

int ViewOf(double value) {
  if (value == 0 || value == 'X' || value == 'x' || value == '0') return geo::kX;
  if (value == 1 || value == 'Y' || value == 'y' || value == '1') return geo::kY;
  return -1;
}

/// The column that says where hits are.
HitColumn Position(const HitColumns& columns) {
  return columns.Has(kHitPlane) ? kHitPlane : kHitZ;
}

/// Which column has another length than that of the position; empty if none has.
std::string LengthProblem(const HitColumns& columns, const HitNumbers& numbers) {
  const HitColumn position = Position(columns);
  const std::size_t n = numbers[position].fSize;
  for (std::size_t c = kHitTrack + 1; c < kHitColumns; c++) {
    const auto column = static_cast<HitColumn>(c);
    if (columns.Has(column) && numbers[c].fSize != n)
      return fmt::format(FMT_STRING("column {}: has {} values where column {} has {}"),
                         columns.Name(column), numbers[c].fSize, columns.Name(position), n);
  }
  return "";
}

} // namespace

HitValues AbsentHitValues() {
  HitValues values{};
  values[kHitW] = 1;
  return values;
}

double CharacterCode(std::string_view text) {
  return text.size() == 1 && text[0] > ' ' ? text[0] : -1.0;
}

const char* BrokenRule(const HitColumns& columns, HitColumn column, double value) {
  if (!std::isfinite(value)) return "is not a finite number";
  switch (column) {
    case kHitView:
      return ViewOf(value) < 0 ? "is not a view, which is X or Y, 0 or 1" : nullptr;
    case kHitSigU:
    case kHitSigX:
    case kHitSigY:
      return value <= 0 ? "is not above 0" : nullptr;
    case kHitSigZ:
    case kHitSigT:
    case kHitW:
      return value < 0 ? "is below 0" : nullptr;
    case kHitPlane:
      return columns.IsPlane(value) ? nullptr : "is not the number, from 0, or name of one plane";
    default:
      return nullptr;
  }
}

void AddHit(const HitColumns& columns, const HitValues& values, TrackHits& track) {
  HitList3D& hits = track.fHits;
  const bool both = columns.BothViews();
  const auto cm = [&](HitColumn column) { return columns.Unit().ToCm(values[column]); };
  Hit3D hit;
  hit.fZ = columns.Has(kHitPlane) ? columns.ZOfPlane(values[kHitPlane]) : cm(kHitZ);
  const auto sigma = [&](HitColumn column, unsigned view) {
    return columns.Has(column) ? cm(column) : columns.Sigma(view, hit.fZ);
  };
  hit.fSigZ = cm(kHitSigZ);
  hit.fT = values[kHitT];
  hit.fSigT = values[kHitSigT];
  hit.fW = values[kHitW];
  if (both || ViewOf(values[kHitView]) == geo::kX) {
    Hit3D& x = hits.emplace_back(hit);
    x.fView = geo::kX;
    x.fX = cm(both ? kHitX : kHitU);
    x.fSigX = sigma(both ? kHitSigX : kHitSigU, 0);
  }
  if (both || ViewOf(values[kHitView]) == geo::kY) {
    Hit3D& y = hits.emplace_back(hit);
    y.fView = geo::kY;
    y.fY = cm(both ? kHitY : kHitU);
    y.fSigY = sigma(both ? kHitSigY : kHitSigU, 1);
  }
  if (!columns.Has(kHitQ)) return;
  track.fCharges.push_back(values[kHitQ]);
  track.fCharges.resize(hits.size(), std::numeric_limits<double>::infinity());
}

std::string AddRow(const HitColumns& columns, const HitNumbers& numbers, std::size_t i,
                   TrackHits& track) {
  HitValues values = AbsentHitValues();
  for (std::size_t c = kHitTrack + 1; c < kHitColumns; c++) {
    const auto column = static_cast<HitColumn>(c);
    if (!columns.Has(column)) continue;
    values[c] = numbers[c][i];
    if (const char* rule = BrokenRule(columns, column, values[c]))
      return fmt::format(FMT_STRING("column {}: {}"), columns.Name(column), rule);
  }
  AddHit(columns, values, track);
  return "";
}

void AddEntry(const HitColumns& columns, const HitNumbers& numbers, TrackHits& track) {
  const auto add = [&track](const std::string& problem) {
    track.AddProblem(track.fFile.empty() ? problem : track.Place() + ", " + problem);
  };
  const std::string length = LengthProblem(columns, numbers);
  if (!length.empty()) return add(length);
  for (std::size_t i = 0; i < numbers[Position(columns)].fSize; i++) {
    const std::string problem = AddRow(columns, numbers, i, track);
    if (!problem.empty()) add(fmt::format(FMT_STRING("hit {}, {}"), i, problem));
  }
}

} // namespace kelvo
