#include "python/HitArrays.h"

#include "io/CsvHits.h"
#include "io/HitNumbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace kelvo {

struct HitArrays::Rows {
  std::string fName;
  HitColumns fColumns;
  HitLayout fLayout;
  const std::int64_t* fTracks;
  std::size_t fN;
  HitNumbers fNumbers{};
  std::array<const std::int64_t*, kHitColumns> fOffsets{}; // null where each row is a hit
  std::size_t fNext = 0;                                   // row
  SeenNumbers fSeen = {};

  std::string Place(std::size_t row) const {
    return fmt::format(FMT_STRING("{}, row {}"), fName, row);
  }

  HitNumbers Slice(std::size_t row) const {
    HitNumbers slice;
    for (std::size_t c = 0; c < kHitColumns; c++) {
      const std::int64_t* offsets = fOffsets[c];
      if (!offsets) continue;
      slice[c] = {fNumbers[c].fData + offsets[row],
                  static_cast<std::size_t>(offsets[row + 1] - offsets[row])};
    }
    return slice;
  }

  void CheckComplete() const {
    for (std::size_t c = 0; c < kHitColumns; c++) {
      const auto column = static_cast<HitColumn>(c);
      const bool isSet = fNumbers[c].fData && (fLayout == HitLayout::kRowIsHit || fOffsets[c]);
      if (c != kHitTrack && fColumns.Has(column) && !isSet && fN > 0)
        throw std::invalid_argument(
            fmt::format(FMT_STRING("{}: column {} is not set"), fName, fColumns.Name(column)));
    }
  }
};

HitArrays::HitArrays(std::string name, HitColumns columns, HitLayout layout,
                     const std::int64_t* tracks, std::size_t n)
    : fRows(new Rows{std::move(name), std::move(columns), layout, tracks, n}) {}

HitArrays::HitArrays(HitArrays&&) noexcept = default;

HitArrays::~HitArrays() = default;

void HitArrays::SetColumn(HitColumn column, const double* values, std::size_t n) {
  if (n != fRows->fN)
    throw std::invalid_argument(
        fmt::format(FMT_STRING("{}, column {}: has {} values where there are {} rows"),
                    fRows->fName, fRows->fColumns.Name(column), n, fRows->fN));
  fRows->fNumbers[column] = {values, n};
}

void HitArrays::SetVectors(HitColumn column, const double* values, std::size_t n,
                           const std::int64_t* offsets) {
  const std::int64_t* end = offsets + fRows->fN + 1;
  const bool inside = offsets[0] >= 0 && static_cast<std::size_t>(end[-1]) <= n;
  if (!inside || !std::is_sorted(offsets, end))
    throw std::invalid_argument(
        fmt::format(FMT_STRING("{}, column {}: the offsets must rise from 0 or more to at most {}, "
                               "the number of values"),
                    fRows->fName, fRows->fColumns.Name(column), n));
  fRows->fNumbers[column] = {values, n};
  fRows->fOffsets[column] = offsets;
}

bool HitArrays::Next(TrackHits& track) {
  track = TrackHits();
  if (fRows->fNext == 0) fRows->CheckComplete();
  if (fRows->fNext == fRows->fN) return false;
  track.fFile = fRows->fName;
  track.fPlaceWord = "row";
  track.fPlace = fRows->fNext;
  track.fTrack = fRows->fTracks[fRows->fNext];
  if (fRows->fLayout == HitLayout::kRowIsTrack)
    AddEntry(fRows->fColumns, fRows->Slice(fRows->fNext++), track);
  else
    AddRowsOfTrack(track);
  return true;
}

void HitArrays::AddRowsOfTrack(TrackHits& track) {
  std::size_t& row = fRows->fNext;
  if (!fRows->fSeen.Add(track.fTrack))
    track.AddProblem(fmt::format(
        FMT_STRING(
            "{}, column {}: track {} had rows further up; the rows of a track must stand together"),
        fRows->Place(row), fRows->fColumns.Name(kHitTrack), track.fTrack));
  for (; row < fRows->fN && fRows->fTracks[row] == track.fTrack; row++) {
    const std::string problem = AddRow(fRows->fColumns, fRows->fNumbers, row, track);
    if (!problem.empty()) track.AddProblem(fRows->Place(row) + ", " + problem);
  }
}

double HitArrays::Fraction() const {
  return fRows->fN == 0 ? 0 : static_cast<double>(fRows->fNext) / static_cast<double>(fRows->fN);
}

} // namespace kelvo
