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

/// Turns the numbers of one mode into weights between 0 and 1. Only ratios of weights matter, and
/// relative to the largest one they neither overflow nor add up to infinity.
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

/// Exponent of the power of two that brings the largest magnitude to about 1, so that squares and
/// sums stay in range. Kept to where that power itself is a number.
int Exponent(const std::vector<double>& v) {
  double largest = 0;
  for (const double one : v) largest = std::max(largest, std::fabs(one));
  if (largest == 0 || !std::isfinite(largest)) return 0;
  return std::clamp(std::ilogb(largest), -1000, 1000);
}

struct Points {
  const std::vector<double>& fX;
  const std::vector<double>& fY;
  const std::vector<double>& fW;
  Weighting fWeight;
  std::size_t fFirst = 0; // first point that counts
};

struct Line {
  double fSlope, fIntercept;
  bool fSafe; // no sum has left the range in which a double keeps its digits
};

/// Fits y sy over x sx.
Line FitScaled(const Points& p, double sx, double sy) {
  const std::size_t n = p.fX.size();
  // Coordinates u, v relative to the first point that counts: equal abscissae or ordinates are then
  // exactly 0, whatever the weights, and so is the slope.
  const double x0 = sx * p.fX[p.fFirst];
  const double y0 = sy * p.fY[p.fFirst];
  double sum = 0, sumU = 0, sumV = 0;
  for (std::size_t j = p.fFirst; j < n; j++) {
    const double w = p.fWeight(p.fW[j]);
    sum += w;
    sumU += w * (sx * p.fX[j] - x0);
    sumV += w * (sy * p.fY[j] - y0);
  }
  const double meanU = sumU / sum;
  const double meanV = sumV / sum;

  double sumUU = 0, sumUV = 0;
  for (std::size_t j = p.fFirst; j < n; j++) {
    const double w = p.fWeight(p.fW[j]);
    const double u = sx * p.fX[j] - x0 - meanU;
    const double v = sy * p.fY[j] - y0 - meanV;
    sumUU += w * u * u;
    sumUV += w * u * v;
  }
  const double slope = sumUU == 0 ? 0.0 : sumUV / sumUU;
  const double intercept = y0 + meanV - slope * (x0 + meanU);
  constexpr double kSmall = 1e-280, kLarge = 1e280;
  const auto inside = [](double v) { return v > kSmall && v < kLarge; };
  return {slope, intercept,
          inside(sumUU) && inside(std::fabs(sumUV)) && std::fabs(intercept) < kLarge};
}

/// Fits in coordinates of about 1, for values at the ends of the range of a double.
Line FitExtreme(const Points& p) {
  const int ex = Exponent(p.fX);
  const int ey = Exponent(p.fY);
  Line line = FitScaled(p, std::ldexp(1.0, -ex), std::ldexp(1.0, -ey));
  line.fSlope = std::ldexp(line.fSlope, ey - ex);
  line.fIntercept = std::ldexp(line.fIntercept, ey);
  return line;
}

} // namespace

void LinFitTS(const std::vector<double>& x, const std::vector<double>& y,
              const std::vector<double>& w, double& m, double& c, int mode) {
  CheckInput(x, y, w, mode);
  Points points{x, y, w, Weighting(w, mode)};
  while (points.fFirst < x.size() && points.fWeight(w[points.fFirst]) == 0) points.fFirst++;
  if (points.fFirst == x.size()) {
    m = 0;
    c = 0;
    return;
  }
  Line line = FitScaled(points, 1, 1);
  if (!line.fSafe) line = FitExtreme(points);
  m = line.fSlope;
  c = line.fIntercept;
}

} // namespace util
