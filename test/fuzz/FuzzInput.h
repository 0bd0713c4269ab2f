#pragma once

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>

namespace fuzz {

/// The bytes of an input, taken one value after the other; zeros behind the end.
class Values {
public:
  Values(const std::uint8_t* data, std::size_t size) : fData(data), fLeft(size) {}

  bool AtEnd() const { return fLeft == 0; }

  unsigned Byte() {
    if (fLeft == 0) return 0;
    fLeft--;
    return *fData++;
  }

  /// From 0 to max.
  unsigned Count(unsigned max) { return Byte() % (max + 1); }

  /// Any bits; the special numbers, and those of a detector, come often.
  double Number() {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr double kSpecial[] = {
        0,      -0.0,  1,      -1,     kInfinity, -kInfinity,
        5e-324, 1e308, -1e308, 1e-300, 2.3e-308,  std::numeric_limits<double>::quiet_NaN()};
    const unsigned kind = Byte();
    if (kind < std::size(kSpecial)) return kSpecial[kind];
    if (kind < 128) return (static_cast<int>(Byte() << 8 | Byte()) - 32768) * 0.01;
    unsigned char bytes[sizeof(double)];
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(Byte());
    double value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }

  std::string Rest() {
    std::string rest(reinterpret_cast<const char*>(fData), fLeft);
    fLeft = 0;
    return rest;
  }

private:
  const std::uint8_t* fData;
  std::size_t fLeft;
};

/// Ends the program, which the fuzzer takes for a find, where the oracle says otherwise.
inline void Expect(bool agrees, const char* what) {
  if (agrees) return;
  std::fprintf(stderr, "disagrees: %s\n", what);
  std::abort();
}

/// Whether a number is one that detectors have, of which squares and quotients are far from the
/// ends of what a double holds.
inline bool IsUsual(double value) {
  return std::abs(value) < 1e9 && std::abs(value) > 1e-9;
}

/// The same bits, where all that are not a number count as one.
inline bool IsSame(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace fuzz

/// Takes back the handlers that ROOT has installed, so that the fuzzer installs its own.
extern "C" __attribute__((used)) inline int LLVMFuzzerInitialize(int*, char***) {
  for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) std::signal(number, SIG_DFL);
  return 0;
}
