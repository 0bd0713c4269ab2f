#pragma once

#include <cmath>
#include <cstddef>

namespace kelvo {

/// Numbers of four problems, calculated side by side: the same bits as one after the other. Two at
/// a time, which is what every processor of 64 bits has registers for.
constexpr std::size_t kLanes = 4;

class Lanes {
public:
  /// Two numbers in one register.
  using Pair = double __attribute__((vector_size(2 * sizeof(double))));

  Lanes() = default;                           ///< not set; Lanes{} is 0 in all lanes
  Lanes(double x) : fLow{x, x}, fHigh{x, x} {} ///< the same number in all lanes
  Lanes(double a, double b, double c, double d) : fLow{a, b}, fHigh{c, d} {}
  Lanes(const Pair& low, const Pair& high) : fLow(low), fHigh(high) {}

  double operator[](std::size_t lane) const { return lane < 2 ? fLow[lane] : fHigh[lane - 2]; }

  Lanes& operator+=(const Lanes& b) { return *this = *this + b; }
  Lanes& operator-=(const Lanes& b) { return *this = *this - b; }
  Lanes& operator*=(const Lanes& b) { return *this = *this * b; }

  friend Lanes operator+(const Lanes& a, const Lanes& b) {
    return {a.fLow + b.fLow, a.fHigh + b.fHigh};
  }
  friend Lanes operator-(const Lanes& a, const Lanes& b) {
    return {a.fLow - b.fLow, a.fHigh - b.fHigh};
  }
  friend Lanes operator*(const Lanes& a, const Lanes& b) {
    return {a.fLow * b.fLow, a.fHigh * b.fHigh};
  }
  friend Lanes operator/(const Lanes& a, const Lanes& b) {
    return {a.fLow / b.fLow, a.fHigh / b.fHigh};
  }

  friend Lanes Sqrt(const Lanes& x) {
    return {Pair{std::sqrt(x.fLow[0]), std::sqrt(x.fLow[1])},
            Pair{std::sqrt(x.fHigh[0]), std::sqrt(x.fHigh[1])}};
  }
  friend Lanes Min(const Lanes& a, const Lanes& b) {
    return {b.fLow < a.fLow ? b.fLow : a.fLow, b.fHigh < a.fHigh ? b.fHigh : a.fHigh};
  }
  friend Lanes Max(const Lanes& a, const Lanes& b) {
    return {a.fLow < b.fLow ? b.fLow : a.fLow, a.fHigh < b.fHigh ? b.fHigh : a.fHigh};
  }
  /// Returns yes where a > b and no elsewhere.
  friend Lanes WhereAbove(const Lanes& a, const Lanes& b, const Lanes& yes, const Lanes& no) {
    return {a.fLow > b.fLow ? yes.fLow : no.fLow, a.fHigh > b.fHigh ? yes.fHigh : no.fHigh};
  }
  /// Returns whether all lanes are above a number.
  friend bool AreAbove(const Lanes& x, double low) {
    const auto above = (x.fLow > low) & (x.fHigh > low);
    return (above[0] & above[1]) != 0;
  }
  /// Returns whether all lanes are at or above low and below high.
  friend bool AreBetween(const Lanes& x, double low, double high) {
    const auto in = (x.fLow >= low) & (x.fLow < high) & (x.fHigh >= low) & (x.fHigh < high);
    return (in[0] & in[1]) != 0;
  }
  friend double Sum(const Lanes& x) {
    const Pair sum = x.fLow + x.fHigh;
    return sum[0] + sum[1];
  }

private:
  Pair fLow, fHigh;
};

/// Returns the nearest integer, for |x| < 2^51.
inline Lanes Rounded(const Lanes& x) {
  constexpr double kNoFraction = 0x1.8p52;
  return (x + kNoFraction) - kNoFraction;
}

} // namespace kelvo
