// Random numbers against their distribution functions (Kolmogorov-Smirnov), and the generator
// against the number that the C++ standard gives for it.

#include "util/RandomStream.h"

#include <TMath.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <vector>

namespace {

using util::RandomStream;

constexpr int kNumbers = 100'000;
constexpr double kMinProbability = 1e-3; // of a test with a fixed seed

template <typename Draw, typename Distribution>
double KolmogorovProbability(Draw draw, Distribution cumulative) {
  std::vector<double> x;
  for (int i = 0; i < kNumbers; i++) x.push_back(cumulative(draw()));
  std::sort(x.begin(), x.end());
  double distance = 0;
  for (std::size_t i = 0; i < x.size(); i++) {
    const double below = static_cast<double>(i) / kNumbers;
    distance = std::max({distance, std::abs(x[i] - below), std::abs(x[i] - below - 1. / kNumbers)});
  }
  return TMath::KolmogorovProb(distance * std::sqrt(kNumbers));
}

TEST(RandomStream, GeneratorIsTheStandards) {
  std::mt19937_64 generator;
  generator.discard(9999);
  EXPECT_EQ(generator(), 9981545732273789042u); // C++17, [rand.predef]
}

TEST(RandomStream, UniformNumbersFillTheIntervalEvenly) {
  RandomStream random(1, 0);
  EXPECT_GT(KolmogorovProbability([&] { return random.Uniform(); }, [](double x) { return x; }),
            kMinProbability);
  EXPECT_GT(KolmogorovProbability([&] { return random.Uniform(-3, 7); },
                                  [](double x) { return (x + 3) / 10; }),
            kMinProbability);
}

TEST(RandomStream, NormalNumbersAreGaussianAndIndependent) {
  RandomStream random(2, 0);
  EXPECT_GT(KolmogorovProbability([&] { return random.Normal(); },
                                  [](double x) { return TMath::Freq(x); }),
            kMinProbability);
  // The two numbers of a pair lie at an even angle, and the sum of neighbours is Gaussian.
  EXPECT_GT(KolmogorovProbability([&] { return (random.Normal() + random.Normal()) / M_SQRT2; },
                                  [](double x) { return TMath::Freq(x); }),
            kMinProbability);
}

TEST(RandomStream, GammaNumbersFollowTheIncompleteGammaFunction) {
  for (const double shape : {0.05, 0.5, 1., 3., 200.}) {
    RandomStream random(3, 0);
    EXPECT_GT(KolmogorovProbability([&] { return random.Gamma(shape); },
                                    [shape](double x) { return TMath::Gamma(shape, x); }),
              kMinProbability)
        << shape;
  }
}

TEST(RandomStream, SeedAndStreamTogetherPickTheNumbers) {
  std::set<double> first;
  for (std::uint64_t seed = 0; seed < 100; seed++)
    for (std::uint64_t stream = 0; stream < 100; stream++)
      first.insert(RandomStream(seed, stream).Uniform());
  EXPECT_EQ(first.size(), 10'000u);
  EXPECT_EQ(RandomStream(4, 5).Uniform(), RandomStream(4, 5).Uniform());
}

TEST(RandomStream, StreamsOfNeighbouringNumbersAreIndependent) {
  std::uint64_t stream = 0;
  EXPECT_GT(KolmogorovProbability([&] { return RandomStream(6, stream++).Uniform(); },
                                  [](double x) { return x; }),
            kMinProbability);
}

} // namespace
