#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

namespace matter {

/// A smooth function of a positive argument, as cubic pieces. The nodes divide each power of two
/// into 32 equal parts, so that a piece is found from the bits of the argument, without logarithm
/// or search, and is as fine relative to small arguments as to large ones.
///
/// Between nodes it is the cubic that has the values and slopes given there (Hermite): one that
/// rises throughout stays so where slopes are within three times the mean slope of their pieces,
/// as they are for ranges and energies. Below the first node it is proportional to the argument,
/// above the last one it goes on as a straight line.
class SmoothTable {
public:
  /// Value and slope at a node.
  struct Node {
    double fValue;
    double fSlope;
  };

  /// @param min  the first node is this one or the next one below, above 0 and normalised
  /// @param max  the last node is this one or the next one above, above min
  /// @param node gives value and slope at each node, called in ascending order
  SmoothTable(double min, double max, const std::function<Node(double)>& node);

  /// Returns the function at x, above 0.
  double operator()(double x) const {
    if (!(x >= fFirst)) return fAtFirst.fValue * (x / fFirst);
    if (x >= fLast) return fAtLast.fValue + (x - fLast) * fAtLast.fSlope;
    const std::uint64_t bits = Bits(x);
    const Piece& p = fPieces[(bits >> kShift) - fFirstKey];
    const double t = Fraction(bits);
    return (p.fC0 + t * p.fC1) + t * t * (p.fC2 + t * p.fC3); // two halves at a time
  }

  /// Returns the first and the last node.
  double First() const { return fFirst; }
  double Last() const { return fLast; }

  /// Returns the nodes that such a table has, in ascending order.
  static std::vector<double> Nodes(double min, double max);

private:
  static constexpr int kMantissa = 52;              // bits of a double
  static constexpr int kParts = 5;                  // 2^5 parts of each power of two
  static constexpr int kShift = kMantissa - kParts; // bits below those that name a piece
  static constexpr std::uint64_t kBelow = (1ULL << kShift) - 1;

  static std::uint64_t Bits(double x) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &x, sizeof bits);
    return bits;
  }
  /// Returns the place of a number in its piece, 0 to 1: the bits below those that name the piece,
  /// as the mantissa of a number between 1 and 2.
  static double Fraction(std::uint64_t bits) {
    const std::uint64_t mantissa = (bits & kBelow) << kParts | Bits(1.0);
    double t = 0;
    std::memcpy(&t, &mantissa, sizeof t);
    return t - 1;
  }
  static double OfKey(std::uint64_t key);
  static std::uint64_t KeyAbove(double x);

  // Of a piece, by the fraction t of it: c0 + c1 t + c2 t^2 + c3 t^3.
  struct Piece {
    double fC0, fC1, fC2, fC3;
  };

  double fFirst = 0;
  double fLast = 0;
  Node fAtFirst{};
  Node fAtLast{};
  std::uint64_t fFirstKey = 0; // leading bits of the first node
  std::vector<Piece> fPieces;
};

} // namespace matter
