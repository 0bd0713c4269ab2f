#pragma once

#include "io/HitColumns.h"
#include "io/HitReader.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace kelvo {

/// The numbers of one hit, in the order of HitColumn; a view as 0 or 1, or as the code of its
/// letter.
using HitValues = std::array<double, kHitColumns>;

/// Returns what a hit has in columns that its table lacks: the weight 1, else 0.
HitValues AbsentHitValues();

/// Returns the code of a text of one printable character, -1 for another.
double CharacterCode(std::string_view text);

/// Returns the rule that a number breaks, such as "is not above 0"; null for a good one. A table of
/// hits is held to these rules wherever it is from; which sizes a fit can take, CheckHits says.
const char* BrokenRule(const HitColumns& columns, HitColumn column, double value);

/// Appends a hit of good numbers, as one hit or as one of each view.
void AddHit(const HitColumns& columns, const HitValues& values, TrackHits& track);

/// Numbers that lie one after the other in memory of somebody else.
struct Numbers {
  const double* fData = nullptr;
  std::size_t fSize = 0;

  double operator[](std::size_t i) const { return fData[i]; }
};

/// The numbers of each column of hits, in the order of HitColumn. What a table does not have is not
/// looked at.
using HitNumbers = std::array<Numbers, kHitColumns>;

/// Appends hit i, or returns what is wrong with it: column and rule, such as "column sigu: is not
/// above 0".
[[nodiscard]] std::string AddRow(const HitColumns& columns, const HitNumbers& numbers,
                                 std::size_t i, TrackHits& track);

/// Appends all hits of a track that is one entry of a table, or says what is wrong with it.
/// @param track its place begins the messages, where it has the name of a file
void AddEntry(const HitColumns& columns, const HitNumbers& numbers, TrackHits& track);

} // namespace kelvo
