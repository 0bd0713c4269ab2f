#include "matter/RangeTable.h"

#include <algorithm>
#include <cmath>

namespace matter {

namespace {

constexpr double kMuonMass = 0.1056583568; // GeV
constexpr double kMinT = 1e-5;             // GeV, for a muon
constexpr double kMaxT = 1e4;

// Gauss and Legendre's rule of five points on 0 to 1 (M. Abramowitz, I. A. Stegun, table 25.4).
constexpr double kPoint[] = {0.046910077030668, 0.230765344947158, 0.5, 0.769234655052842,
                             0.953089922969332};
constexpr double kWeight[] = {0.118463442528095, 0.239314335249683, 0.284444444444444,
                              0.239314335249683, 0.118463442528095};

double Integral(const RangeTable::Function& f, double a, double b) {
  double sum = 0;
  for (int i = 0; i < 5; i++) sum += kWeight[i] * f(a + (b - a) * kPoint[i]);
  return sum * (b - a);
}

SmoothTable Tabulated(const RangeTable::Function& f, double min, double max) {
  return SmoothTable(min, max, [&f](double x) {
    const double step = 1e-3 * x;
    return SmoothTable::Node{f(x), (f(x + step) - f(x - step)) / (2 * step)};
  });
}

// The integral of f from 0, where f is taken to be constant up to the first node.
SmoothTable Integrated(const RangeTable::Function& f, double min, double max) {
  double last = 0, sum = 0;
  return SmoothTable(min, max, [&](double x) {
    sum += last == 0 ? x * f(x) : Integral(f, last, x);
    last = x;
    return SmoothTable::Node{sum, f(x)};
  });
}

// Returns where a rising table takes a value between those at both ends of it.
double Inverted(const SmoothTable& table, double value) {
  double low = table.First(), high = table.Last();
  double x = low;
  for (int i = 0; i < 200 && high - low > 1e-15 * high; i++) {
    x = high > 2 * low ? std::sqrt(low * high) : (low + high) / 2;
    (table(x) < value ? low : high) = x;
  }
  return x;
}

SmoothTable Inverse(const SmoothTable& table, const RangeTable::Function& slope) {
  return SmoothTable(table(table.First()), table(table.Last()), [&](double y) {
    const double x =
        y <= table(table.First()) ? table.First() * (y / table(table.First())) : Inverted(table, y);
    return SmoothTable::Node{x, slope(x)};
  });
}

} // namespace

RangeTable::RangeTable(const Function& loss, const Function& variance, double mass)
    : fLoss(Tabulated(loss, kMinT * mass / kMuonMass, kMaxT * mass / kMuonMass)),
      fRange(Integrated([&](double T) { return 1 / loss(T); }, fLoss.First(), fLoss.Last())),
      fVariance(Integrated([&](double T) { return variance(T) / std::pow(loss(T), 3); },
                           fLoss.First(), fLoss.Last())),
      fEnergy(Inverse(fRange, loss)) {}

} // namespace matter
