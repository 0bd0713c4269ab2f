#pragma once

#include <cstdint>
#include <random>

namespace util {

/// Random numbers for one of many independent tasks: the task's number picks the stream, so that
/// results do not depend on the thread or the order in which tasks are done.
///
/// The generator is std::mt19937_64, whose numbers the C++ standard fixes; its seed is hashed from
/// the user's seed and the task. The distributions are written out here, since those of the
/// standard library differ from one implementation to another.
class RandomStream {
public:
  /// @param seed   chosen by the user
  /// @param stream number of the task
  RandomStream(std::uint64_t seed, std::uint64_t stream);

  /// Returns a number evenly spread between 0 and 1, both excluded.
  double Uniform();

  /// Returns a number evenly spread between low and high.
  double Uniform(double low, double high) { return low + (high - low) * Uniform(); }

  /// Returns a number from a Gaussian of mean 0 and standard deviation 1 (G. E. P. Box, M. E.
  /// Muller, Ann. Math. Stat. 29 (1958) 610).
  double Normal();

  /// Returns a number from a gamma distribution of mean and variance `shape` (G. Marsaglia, W. W.
  /// Tsang, ACM Trans. Math. Softw. 26 (2000) 363).
  /// @param shape above 0
  double Gamma(double shape);

private:
  std::mt19937_64 fGenerator;
  double fSpare = 0; // the second of a pair of Gaussian numbers
  bool fHasSpare = false;
};

} // namespace util
