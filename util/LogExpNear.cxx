#include "util/LogExpNear.h"

#include <algorithm>
#include <limits>

namespace util {

namespace {

// The difference of two neighbouring doubles at x.
double UnitInLastPlace(double x) {
  return std::ldexp(1.0, std::ilogb(x) - 52);
}

LogExpTables::Bin BinFrom(double first, double end) {
  LogExpTables::Bin bin{};
  bin.fInverse = static_cast<float>(2 / (first + end));
  const long double log = -std::log(static_cast<long double>(bin.fInverse));
  bin.fLog = static_cast<double>(log);
  bin.fLogRest = static_cast<double>(log - bin.fLog);
  // r is rounded by up to 2^-61. Leaving out r^9 and its rounding, and 1/x to r^4 for an argument
  // 1e-11 away, add up to 0.13 of that; the table's digits are those of a long double.
  const double largest = std::max(std::abs(std::log(first)), std::abs(std::log(end)));
  bin.fMargin = std::abs(bin.fLog) < 0x1p-6
                    ? std::numeric_limits<double>::infinity()
                    : 1.2 * 0x1p-61 + (0.021 + 0.001) * UnitInLastPlace(largest);
  return bin;
}

LogExpTables::Power PowerOf(std::uint64_t j) {
  const long double exact = std::exp2(static_cast<long double>(j) / LogExpTables::kPowers);
  const double rounded = static_cast<double>(exact);
  LogExpTables::Power power{};
  std::memcpy(&power.fBits, &rounded, sizeof rounded);
  power.fRest = static_cast<double>((exact - rounded) / exact);
  return power;
}

} // namespace

const LogExpTables& LogExpTables::Get() {
  static const LogExpTables tables;
  return tables;
}

double LogExpTables::LowerEdge(std::uint64_t bin) {
  return FromBits((kFirstBin + bin) << kBinShift);
}

LogExpTables::LogExpTables() {
  for (std::uint64_t i = 0; i < kBins; ++i) fBins[i] = BinFrom(LowerEdge(i), LowerEdge(i + 1));
  for (std::uint64_t j = 0; j < kPowers; ++j) fPowers[j] = PowerOf(j);
}

} // namespace util
