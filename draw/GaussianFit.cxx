#include "draw/GaussianFit.h"

#include <TMatrixDSym.h>
#include <TVectorD.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

namespace kelvo {

namespace {

// The logarithm of a bell, a + b x + c x^2.
using Terms = std::array<double, 3>;

struct Parabola {
  Terms fTerms;
  TMatrixDSym fCovariance;
};

// The likelihood of a histogram whose counts n follow Poisson's law around exp(a + b x + c x^2) at
// the middles of the bins. Its logarithm is a concave function of the terms, so there is one
// maximum, and Newton's steps lead there (J. A. Nelder and R. W. M. Wedderburn, "Generalized Linear
// Models", J. R. Statist. Soc. A 135 (1972) 370).
class BellLikelihood {
public:
  explicit BellLikelihood(const Histogram& histogram) : fCounts(histogram.Counts()) {}

  // The terms of a bell with the mean and the width of the entries.
  Terms Start() const {
    double n = 0;
    double sum = 0;
    double squares = 0;
    for (std::size_t i = 0; i < fCounts.size(); i++) {
      n += Count(i);
      sum += Count(i) * X(i);
      squares += Count(i) * X(i) * X(i);
    }
    const double mean = sum / n;
    const double variance = std::max(squares / n - mean * mean, Step() * Step() / 12);
    const double height = n * Step() / std::sqrt(2 * M_PI * variance);
    return {std::log(height) - mean * mean / (2 * variance), mean / variance, -0.5 / variance};
  }

  // ln L without what depends on the counts alone.
  double Log(const Terms& terms) const {
    double sum = 0;
    for (std::size_t i = 0; i < fCounts.size(); i++)
      sum += Count(i) * Exponent(terms, X(i)) - std::exp(Exponent(terms, X(i)));
    return sum;
  }

  // Gradient of ln L: sum (n - mu) x^k.
  TVectorD Gradient(const Terms& terms) const {
    TVectorD gradient(3);
    for (std::size_t i = 0; i < fCounts.size(); i++)
      for (int k = 0; k < 3; k++)
        gradient(k) += (Count(i) - std::exp(Exponent(terms, X(i)))) * std::pow(X(i), k);
    return gradient;
  }

  // Minus the second derivatives of ln L: sum mu x^(k+l), 3 x 3.
  TMatrixDSym Information(const Terms& terms) const {
    TMatrixDSym information(3);
    for (std::size_t i = 0; i < fCounts.size(); i++)
      for (int k = 0; k < 3; k++)
        for (int l = 0; l < 3; l++)
          information(k, l) += std::exp(Exponent(terms, X(i))) * std::pow(X(i), k + l);
    return information;
  }

private:
  static double Exponent(const Terms& terms, double x) {
    return terms[0] + x * (terms[1] + x * terms[2]);
  }
  double Count(std::size_t i) const { return static_cast<double>(fCounts[i]); }
  double Step() const { return 2 / static_cast<double>(fCounts.size()); }
  double X(std::size_t i) const { return -1 + (static_cast<double>(i) + 0.5) * Step(); }

  const std::vector<unsigned long long>& fCounts;
};

// Newton's steps, halved until they lead upwards. None where the terms are not those of a bell.
std::optional<Parabola> Maximum(const BellLikelihood& likelihood) {
  constexpr int kSteps = 100;
  constexpr double kEnough = 1e-9; // of ln L, whose 0.5 is one standard deviation
  Terms terms = likelihood.Start();
  double best = likelihood.Log(terms);
  for (int i = 0; i < kSteps; i++) {
    TMatrixDSym covariance = likelihood.Information(terms);
    double determinant = 0;
    covariance.Invert(&determinant);
    if (!(determinant > 0)) return std::nullopt;
    const TVectorD step = covariance * likelihood.Gradient(terms);
    double length = 1;
    const auto moved = [&] {
      return Terms{terms[0] + length * step(0), terms[1] + length * step(1),
                   terms[2] + length * step(2)};
    };
    while (!(likelihood.Log(moved()) >= best) && length > kEnough) length /= 2;
    const double gain = likelihood.Log(moved()) - best;
    if (!(gain > kEnough)) {
      if (!(terms[2] < 0)) return std::nullopt;
      return Parabola{terms, covariance};
    }
    terms = moved();
    best += gain;
  }
  return std::nullopt;
}

} // namespace

Gaussian FitGaussian(const Histogram& histogram) {
  constexpr unsigned long long kMin = 20;
  constexpr double kHalf = 1; // the coordinate x of the fit is -1 to 1 in the histogram
  if (histogram.Inside() < kMin) return {};
  const BellLikelihood likelihood(histogram);
  const std::optional<Parabola> log = Maximum(likelihood);
  if (!log) return {};
  const auto& [a, b, c] = log->fTerms;
  const double mean = -b / (2 * c);
  const double width = 1 / std::sqrt(-2 * c);
  if (std::abs(mean) > kHalf || width > kHalf) return {};
  const double scale = (histogram.High() - histogram.Low()) / 2;
  const double middle = histogram.Low() + scale;
  // From the variances of b and c: m = -b / 2c, w^2 = -1 / 2c.
  const TMatrixDSym& v = log->fCovariance;
  const double w2 = width * width;
  const double meanVariance = w2 * w2 * (v(1, 1) + 4 * mean * v(1, 2) + 4 * mean * mean * v(2, 2));
  const double widthError = w2 * width * std::sqrt(v(2, 2));
  return {true,
          std::exp(a - b * b / (4 * c)),
          middle + scale * mean,
          scale * std::sqrt(meanVariance),
          scale * width,
          scale * widthError};
}

} // namespace kelvo
