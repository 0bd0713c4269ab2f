#include "matter/SmoothTable.h"

#include <cstdint>
#include <cstring>

namespace matter {

namespace {

constexpr int kMantissa = 52;              // bits of a double
constexpr int kParts = 5;                  // 2^5 parts of each power of two
constexpr int kShift = kMantissa - kParts; // bits below those that name a piece
constexpr double kPiece = 1.0 / (1ULL << kShift);

std::uint64_t Bits(double x) {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return bits;
}

double OfKey(std::uint64_t key) {
  const std::uint64_t bits = key << kShift;
  double x;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

std::uint64_t KeyBelow(double x) {
  return Bits(x) >> kShift;
}

std::uint64_t KeyAbove(double x) {
  const std::uint64_t key = KeyBelow(x);
  return OfKey(key) < x ? key + 1 : key;
}

} // namespace

std::vector<double> SmoothTable::Nodes(double min, double max) {
  std::vector<double> nodes;
  for (std::uint64_t key = KeyBelow(min); key <= KeyAbove(max); key++) nodes.push_back(OfKey(key));
  return nodes;
}

SmoothTable::SmoothTable(double min, double max, const std::function<Node(double)>& node)
    : fFirstKey(KeyBelow(min)) {
  const std::vector<double> nodes = Nodes(min, max);
  fFirst = nodes.front();
  fLast = nodes.back();
  fAtFirst = node(fFirst);
  Node from = fAtFirst;
  for (std::size_t i = 1; i < nodes.size(); i++) {
    const Node to = node(nodes[i]);
    const double width = nodes[i] - nodes[i - 1];
    const double rise = to.fValue - from.fValue;
    const double a = width * from.fSlope, b = width * to.fSlope;
    fPieces.push_back({from.fValue, a, 3 * rise - 2 * a - b, a + b - 2 * rise});
    from = to;
  }
  fAtLast = from;
}

double SmoothTable::operator()(double x) const {
  if (!(x >= fFirst)) return fAtFirst.fValue * (x / fFirst);
  if (x >= fLast) return fAtLast.fValue + (x - fLast) * fAtLast.fSlope;
  const std::uint64_t bits = Bits(x);
  const Piece& p = fPieces[(bits >> kShift) - fFirstKey];
  const auto low = static_cast<std::int64_t>(bits & ((1ULL << kShift) - 1));
  const double t = static_cast<double>(low) * kPiece;
  return p.fC0 + t * (p.fC1 + t * (p.fC2 + t * p.fC3));
}

} // namespace matter
