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
  bin.fInverse = 2 / (first + end);
  const long double log = -std::log(static_cast<long double>(bin.fInverse));
  bin.fLog = static_cast<double>(log);
  bin.fLogRest = static_cast<double>(log - bin.fLog);
  // In units of 2^-61: 1 for the rounding of r, which is below 2^-7; 0.03 for the term r^9/9 that
  // is left out; 0.09 for what 1/x lacks, r^4, times 1e-11; 0.03 for all other roundings. A
  // thousandth of the last place is for the digits of a long double, 0.021 of it for the library.
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
  power.fBits = ToBits(rounded);
  power.fRest = static_cast<double>((exact - rounded) / exact);
  return power;
}

} // namespace

bool LogExpTables::Known() {
#if defined(__linux__)
  // Asked of the arithmetic itself: some systems set it to fewer digits than the type has.
  const volatile long double one = 1;
  return one + 0x1p-62L != one;
#else
  return false;
#endif
}

const LogExpTables& LogExpTables::Get() {
  static const LogExpTables tables;
  return tables;
}

double LogExpTables::LowerEdge(std::uint64_t bin) {
  return FromBits((kFirstBin + bin) << kBinShift);
}

LogExpTables::LogExpTables() : fBins(), fPowers() {
  for (std::uint64_t i = 0; i < kBins; ++i) fBins[i] = BinFrom(LowerEdge(i), LowerEdge(i + 1));
  for (std::uint64_t j = 0; j < kPowers; ++j) fPowers[j] = PowerOf(j);
}

} // namespace util
