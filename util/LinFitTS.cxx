#include "util/LinFitTS.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace util {

namespace {

constexpr int kUnweighted = 0;
constexpr int kWeights = 1;
constexpr int kVariances = 2;

void CheckInput(const std::vector<double>& x, const std::vector<double>& y,
                const std::vector<double>& w, int mode) {
  const auto check = [&](const char* name, std::size_t size) {
    if (size != x.size())
      throw std::invalid_argument("LinFitTS: " + std::string(name) + " has " +
                                  std::to_string(size) + " entries and x has " +
                                  std::to_string(x.size()) + "; give one entry per point.");
  };
  check("y", y.size());
  check("w", w.size());
  if (mode < kUnweighted || mode > kVariances)
    throw std::invalid_argument("LinFitTS: mode is " + std::to_string(mode) +
                                "; give 0 (unweighted), 1 (weights) or 2 (variances).");
}

// Turns the numbers of one mode into weights between 0 and 1. Only ratios of weights matter, and
// relative to the largest one they neither overflow nor add up to infinity.
class Weighting {
public:
  Weighting(const std::vector<double>& w, int mode) : fMode(mode) {
    if (mode == kWeights)
      for (const double one : w) fReference = std::max(fReference, one);
    if (mode == kVariances) {
      fReference = std::numeric_limits<double>::infinity();
      for (const double one : w) fReference = std::min(fReference, one);
    }
  }

  double operator()(double w) const {
    if (fMode == kUnweighted) return 1.0;
    if (fMode == kWeights) return w <= 0 ? 0.0 : w / fReference;
    if (fReference > 0) return fReference / w;
    return w <= 0 ? 1.0 : 0.0 / w; // beside exact points no other counts; NaN stays NaN
  }

private:
  int fMode;
  double fReference = 0; // largest weight or smallest variance
};

// Exponent of the power of two that brings the largest magnitude to about 1, so that squares and
// sums stay in range. Kept to where that power itself is a number.
int Exponent(const std::vector<double>& v) {
  double largest = 0;
  for (const double one : v) largest = std::max(largest, std::fabs(one));
  if (largest == 0 || !std::isfinite(largest)) return 0;
  return std::clamp(std::ilogb(largest), -1000, 1000);
}

} // namespace

void LinFitTS(const std::vector<double>& x, const std::vector<double>& y,
              const std::vector<double>& w, double& m, double& c, int mode) {
  CheckInput(x, y, w, mode);
  m = 0;
  c = 0;
  const std::size_t n = x.size();
  const Weighting weight(w, mode);
  std::size_t first = 0;
  while (first < n && weight(w[first]) == 0) ++first;
  if (first == n) return;

  const int ex = Exponent(x);
  const int ey = Exponent(y);
  const double sx = std::ldexp(1.0, -ex);
  const double sy = std::ldexp(1.0, -ey);

  // Coordinates u, v relative to the first point that counts: equal abscissae or ordinates are then
  // exactly 0, whatever the weights, and so is the slope.
  const double x0 = sx * x[first];
  const double y0 = sy * y[first];
  double sum = 0, sumU = 0, sumV = 0;
  for (std::size_t j = first; j < n; ++j) {
    const double wj = weight(w[j]);
    sum += wj;
    sumU += wj * (sx * x[j] - x0);
    sumV += wj * (sy * y[j] - y0);
  }
  const double meanU = sumU / sum;
  const double meanV = sumV / sum;

  double sumUU = 0, sumUV = 0;
  for (std::size_t j = first; j < n; ++j) {
    const double wj = weight(w[j]);
    const double u = sx * x[j] - x0 - meanU;
    const double v = sy * y[j] - y0 - meanV;
    sumUU += wj * u * u;
    sumUV += wj * u * v;
  }
  const double slope = sumUU == 0 ? 0.0 : sumUV / sumUU;
  m = std::ldexp(slope, ey - ex);
  c = std::ldexp(y0 + meanV - slope * (x0 + meanU), ey);
}

} // namespace util
