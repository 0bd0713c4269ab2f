#include "matter/SmoothTable.h"

namespace matter {

double SmoothTable::OfKey(std::uint64_t key) {
  const std::uint64_t bits = key << kShift;
  double x = 0;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

std::uint64_t SmoothTable::KeyAbove(double x) {
  const std::uint64_t key = Bits(x) >> kShift;
  return OfKey(key) < x ? key + 1 : key;
}

std::vector<double> SmoothTable::Nodes(double min, double max) {
  std::vector<double> nodes;
  for (std::uint64_t key = Bits(min) >> kShift; key <= KeyAbove(max); key++)
    nodes.push_back(OfKey(key));
  return nodes;
}

SmoothTable::SmoothTable(double min, double max, const std::function<Node(double)>& node)
    : fFirstKey(Bits(min) >> kShift) {
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

} // namespace matter
