#pragma once

#include <cmath>
#include <vector>

namespace kelvo {

/// Counts of numbers in equal bins. No TH1D, since to make one loads ROOT's interpreter (0.2 s, 170
/// MB), which a report does without.
class Histogram {
public:
  Histogram(double low, double high, unsigned bins) : fLow(low), fHigh(high), fCounts(bins) {}

  /// Numbers outside of the bins, and NaN, are counted, no more.
  void Add(double value) {
    const double bin = std::floor((value - fLow) / Width());
    if (bin >= 0 && bin < static_cast<double>(fCounts.size()))
      fCounts[static_cast<std::size_t>(bin)]++;
    else
      fOutside++;
  }

  /// As Add, but numbers beyond an end count in the bin next to it.
  void AddClamped(double value) {
    const double half = Width() / 2;
    Add(value < fLow ? fLow + half : value >= fHigh ? fHigh - half : value);
  }

  double Low() const { return fLow; }
  double High() const { return fHigh; }
  double Width() const {
    return (fHigh - fLow) / static_cast<double>(fCounts.size());
  } ///< of a bin
  double Edge(std::size_t bin) const {
    return fLow + static_cast<double>(bin) * Width();
  } ///< lower
  const std::vector<unsigned long long>& Counts() const { return fCounts; }
  unsigned long long Outside() const { return fOutside; }

  unsigned long long Inside() const {
    unsigned long long sum = 0;
    for (const unsigned long long count : fCounts) sum += count;
    return sum;
  }
  unsigned long long Max() const {
    unsigned long long max = 0;
    for (const unsigned long long count : fCounts) max = count > max ? count : max;
    return max;
  }

private:
  double fLow;
  double fHigh;
  std::vector<unsigned long long> fCounts;
  unsigned long long fOutside = 0;
};

} // namespace kelvo
