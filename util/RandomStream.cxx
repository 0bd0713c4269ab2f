#include "util/RandomStream.h"

#include <cmath>

namespace util {

namespace {

/// A hash in which every bit of the input changes half of the output's bits (G. L. Steele, D. Lea,
/// C. H. Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014, the finaliser of
/// SplitMix64).
std::uint64_t Hash(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9;
  x = (x ^ (x >> 27)) * 0x94d049bb133111eb;
  return x ^ (x >> 31);
}

} // namespace

RandomStream::RandomStream(std::uint64_t seed, std::uint64_t stream)
    : fGenerator(Hash(Hash(seed) ^ stream)) {}

double RandomStream::Uniform() {
  // The upper 52 bits, in the middle of their interval: neither 0 nor 1.
  return (static_cast<double>(fGenerator() >> 12) + 0.5) * 0x1p-52;
}

double RandomStream::Normal() {
  if (fHasSpare) {
    fHasSpare = false;
    return fSpare;
  }
  constexpr double kTwoPi = 6.283185307179586;
  const double radius = std::sqrt(-2 * std::log(Uniform()));
  const double angle = kTwoPi * Uniform();
  fSpare = radius * std::sin(angle);
  fHasSpare = true;
  return radius * std::cos(angle);
}

double RandomStream::Gamma(double shape) {
  if (shape < 1) {
    const double power = std::pow(Uniform(), 1 / shape);
    return power * Gamma(shape + 1);
  }
  const double d = shape - 1. / 3;
  const double c = 1 / std::sqrt(9 * d);
  for (;;) {
    const double x = Normal();
    const double root = 1 + c * x;
    if (root <= 0) continue;
    const double v = root * root * root;
    if (std::log(Uniform()) < x * x / 2 + d * (1 - v + std::log(v))) return d * v;
  }
}

} // namespace util
