#pragma once

#include <cmath>
#include <cstddef>

namespace kelvo {

/// Numbers of several problems, calculated side by side: the same bits as one after the other.
constexpr std::size_t kLanes = 4;
using Lanes = double __attribute__((vector_size(kLanes * sizeof(double))));

/// Returns the same number in all lanes.
inline Lanes InAll(double x) {
  return Lanes{x, x, x, x};
}

inline Lanes Sqrt(const Lanes& x) {
  return Lanes{std::sqrt(x[0]), std::sqrt(x[1]), std::sqrt(x[2]), std::sqrt(x[3])};
}

/// Returns the smaller of both, lane by lane.
inline Lanes Min(const Lanes& a, const Lanes& b) {
  return b < a ? b : a;
}

/// Returns the larger of both, lane by lane.
inline Lanes Max(const Lanes& a, const Lanes& b) {
  return a < b ? b : a;
}

} // namespace kelvo
