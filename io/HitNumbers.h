#pragma once

#include "io/HitColumns.h"
#include "io/HitReader.h"

#include <array>
#include <cstddef>
#include <string>

namespace kelvo {

/// Numbers that lie one after the other in memory of somebody else.
struct Numbers {
  const double* fData = nullptr;
  std::size_t fSize = 0;

  double operator[](std::size_t i) const { return fData[i]; }
};

/// The numbers of each column of hits, in the order of HitColumn; a view as 0 or 1, or as the code
/// of its letter. What a table does not have is not looked at.
using HitNumbers = std::array<Numbers, kHitColumns>;

/// Returns what is wrong with hit i, column and reason, such as "column sigu: is not above 0"; an
/// empty text for a hit that can be used.
std::string HitProblem(const HitColumns& columns, const HitNumbers& numbers, std::size_t i);

/// Appends hit i, as one hit or as one of each view.
void AddHit(const HitColumns& columns, const HitNumbers& numbers, std::size_t i, HitList3D& hits);

/// Appends all hits of a track that is one entry of a table, or says what is wrong with it.
/// @param track its place begins the messages, where it has the name of a file
void AddEntry(const HitColumns& columns, const HitNumbers& numbers, TrackHits& track);

} // namespace kelvo
