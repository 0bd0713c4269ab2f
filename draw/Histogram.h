#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace kelvo {

/// Counts of numbers in bins of equal width, or of equal ratio, and the first few tracks that they
/// are of. No TH1D, since to make one loads ROOT's interpreter (0.2 s, 170 MB), which a report does
/// without.
class Histogram {
public:
  static constexpr std::size_t kTracksOfABin = 12;

  /// @param isLog bins of equal ratio; low must be above 0
  Histogram(double low, double high, unsigned bins, bool isLog = false)
      : fLow(low), fHigh(high), fIsLog(isLog), fCounts(bins), fTracks(bins) {}

  /// Numbers outside of the bins, and NaN, are counted, no more.
  void Add(double value, long long track) {
    const double bin = std::floor(Place(value) * static_cast<double>(fCounts.size()));
    if (!(bin >= 0 && bin < static_cast<double>(fCounts.size()))) {
      fOutside++;
      return;
    }
    const auto i = static_cast<std::size_t>(bin);
    fCounts[i]++;
    std::vector<long long>& tracks = fTracks[i];
    if (tracks.size() < kTracksOfABin && (tracks.empty() || tracks.back() != track))
      tracks.push_back(track);
  }

  /// As Add, but numbers beyond an end count in the bin next to it.
  void AddClamped(double value, long long track) {
    const double first = Edge(0) + (Edge(1) - Edge(0)) / 2;
    const double last = Edge(fCounts.size() - 1) + (fHigh - Edge(fCounts.size() - 1)) / 2;
    Add(value < fLow ? first : value >= fHigh ? last : value, track);
  }

  double Low() const { return fLow; }
  double High() const { return fHigh; }
  bool IsLog() const { return fIsLog; }
  /// Returns the lower edge of a bin, the upper end for the number of bins.
  double Edge(std::size_t bin) const {
    const double fraction = static_cast<double>(bin) / static_cast<double>(fCounts.size());
    return fIsLog ? fLow * std::pow(fHigh / fLow, fraction) : fLow + fraction * (fHigh - fLow);
  }
  const std::vector<unsigned long long>& Counts() const { return fCounts; }
  /// Returns the first tracks of each bin, at most kTracksOfABin.
  const std::vector<std::vector<long long>>& Tracks() const { return fTracks; }
  unsigned long long Outside() const { return fOutside; }

  unsigned long long Inside() const {
    unsigned long long sum = 0;
    for (const unsigned long long count : fCounts) sum += count;
    return sum;
  }
  unsigned long long Max() const { return *std::max_element(fCounts.begin(), fCounts.end()); }

  /// Returns the number below which a fraction of the entries inside lies, as if they were evenly
  /// spread in each bin; NaN without any.
  double Quantile(double fraction) const {
    const double wanted = fraction * static_cast<double>(Inside());
    double below = 0;
    for (std::size_t i = 0; i < fCounts.size(); i++) {
      const auto count = static_cast<double>(fCounts[i]);
      if (count > 0 && below + count >= wanted)
        return Edge(i) + (Edge(i + 1) - Edge(i)) * (wanted - below) / count;
      below += count;
    }
    return std::numeric_limits<double>::quiet_NaN();
  }

private:
  // From 0 at the lower to 1 at the upper end.
  double Place(double value) const {
    return fIsLog ? std::log(value / fLow) / std::log(fHigh / fLow)
                  : (value - fLow) / (fHigh - fLow);
  }

  double fLow;
  double fHigh;
  bool fIsLog;
  std::vector<unsigned long long> fCounts;
  std::vector<std::vector<long long>> fTracks;
  unsigned long long fOutside = 0;
};

} // namespace kelvo
