#pragma once

#include <algorithm>
#include <cstddef>

// Interpolation in tables of constants, for the sources of this folder: not installed.

namespace matter {

/// A place between two knots of a table: knot i has the weight 1 - f, the next one f.
struct Between {
  std::size_t fI;
  double fF;
};

/// Finds x between increasing knots; below the first and above the last it is held there.
template <std::size_t N>
Between FindBetween(const double (&knots)[N], double x) {
  const double inside = std::clamp(x, knots[0], knots[N - 1]);
  const double* above = std::upper_bound(knots + 1, knots + N - 1, inside);
  const std::size_t i = static_cast<std::size_t>(above - knots) - 1;
  return {i, (inside - knots[i]) / (knots[i + 1] - knots[i])};
}

template <std::size_t N>
double Linear(const double (&values)[N], Between at) {
  return (1 - at.fF) * values[at.fI] + at.fF * values[at.fI + 1];
}

} // namespace matter
