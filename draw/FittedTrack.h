#pragma once

#include "draw/Picture.h"
#include "io/FitRow.h"

#include <array>
#include <vector>

namespace kelvo {

/// The course of a fitted track in both views, as its file keeps it: straight pieces from the first
/// hit to the last one, which meet at the scattering planes.
class FittedTrack {
public:
  /// @param row a fitted one, with its vectors; the course refers to it no more
  explicit FittedTrack(const FitRow& row);

  /// Returns points on the track, z and x (view 0) or y (1), by increasing z [cm]; between them it
  /// is straight.
  const std::vector<Point>& Line(std::size_t view) const { return fLines[view]; }

  /// Returns x (view 0) or y (1) of the track at z [cm]; its ends are continued straight on.
  double At(std::size_t view, double z) const;

private:
  std::array<std::vector<Point>, 2> fLines;
};

} // namespace kelvo
