#include "fit/LaneSmoother.h"

#include <cmath>
#include <limits>

namespace kelvo {

namespace {

// Variances of what is unknown: beyond all that is measured, and with no effect on its bits. Powers
// of two, so that they can be taken back.
constexpr double kAnySlope = 0x1p100;
constexpr double kAnyPosition = 0x1p200; // cm^2
constexpr double kLogTwoPi = 1.8378770664093454836;

/// The logarithm of a long product in each lane, at the price of few logarithms.
class LogProduct {
public:
  void Multiply(const Lanes& factor) {
    fProduct *= factor;
    if (!AreBetween(fProduct, 1e-200, 1e200)) Rescale();
  }
  Lanes Log() {
    Rescale();
    return fLog;
  }

private:
  void Rescale() {
    fLog += {std::log(fProduct[0]), std::log(fProduct[1]), std::log(fProduct[2]),
             std::log(fProduct[3])};
    fProduct = 1;
  }

  Lanes fProduct = 1;
  Lanes fLog{};
};

LineState Unknown(double z) {
  return {z, 0, 0, kAnyPosition, kAnySlope};
}

LineNoise NoiseOf(const LanePlane& plane) {
  return {plane.fZ, 0, plane.fVariance};
}

LanePoint At(double z, const LineState& line) {
  const Lanes d = z - line.fZ;
  const Lanes covariance = d * line.fVarSlope;
  return {line.fX + line.fSlope * d, line.fSlope, line.fVarX + d * covariance, covariance,
          line.fVarSlope};
}

/// Chi-square and likelihood of a view, measurement by measurement.
struct Sums {
  Lanes fChi2{};
  LogProduct fVariance; // of the values expected from all measurements before
  int fN = 0;

  /// The first measurement is expected nowhere: it has no part in the likelihood.
  void Add(const Innovation& innovation) {
    if (fN++ == 0) return;
    fChi2 += innovation.fChi2;
    fVariance.Multiply(innovation.fVariance);
  }
};

} // namespace

void LaneSmoother::Fit(const std::vector<LaneMeasurement>& measurements,
                       const std::vector<Noise>& noise, bool withPlanes) {
  const auto grow = [&measurements](auto& vector) {
    if (vector.size() < measurements.size()) vector.resize(measurements.size());
  };
  fN = measurements.size();
  grow(fUpstream);
  grow(fPoints);
  if (withPlanes) grow(fDownstream);
  Filter(measurements, noise);
  Smooth(measurements, noise, withPlanes);
}

void LaneSmoother::Filter(const std::vector<LaneMeasurement>& measurements,
                          const std::vector<Noise>& noise) {
  std::array<LineState, 2> line = {Unknown(measurements[0].fZ), Unknown(measurements[0].fZ)};
  std::array<Sums, 2> sums;
  for (std::size_t i = 0; i < measurements.size(); i++) {
    const LaneMeasurement& m = measurements[i];
    if (i > 0)
      for (std::size_t v = 0; v < 2; v++) Scatter(noise[i - 1][v], line[v]);
    sums[m.fView].Add(Measure(m.fZ, m.fU, m.fVariance, line[m.fView]));
    fUpstream[i] = line;
  }
  for (std::size_t v = 0; v < 2; v++) {
    fChi2Kink[v] = sums[v].fChi2; // of all, until those of the measurements are known
    const Lanes determinant = sums[v].fVariance.Log() - std::log(kAnySlope);
    const Lanes value = -0.5 * (sums[v].fChi2 + determinant + (sums[v].fN - 2) * kLogTwoPi);
    fLogLikelihood[v] = WhereAbove(1e-9 * kAnySlope, line[v].fVarSlope, value,
                                   std::numeric_limits<double>::quiet_NaN());
  }
}

void LaneSmoother::Smooth(const std::vector<LaneMeasurement>& measurements,
                          const std::vector<Noise>& noise, bool withPlanes) {
  const double end = measurements.back().fZ;
  std::array<LineState, 2> line = {Unknown(end), Unknown(end)};
  std::array<Lanes, 2> chi2{};
  for (std::size_t i = measurements.size(); i-- > 0;) {
    const LaneMeasurement& m = measurements[i];
    for (std::size_t v = 0; v < 2; v++) {
      if (i + 1 < measurements.size()) Scatter(noise[i][v], line[v]);
      fPoints[i][v] = kelvo::At(m.fZ, Merged(fUpstream[i][v], line[v]));
    }
    const Lanes residual = m.fU - fPoints[i][m.fView].fX;
    chi2[m.fView] += residual * residual * (1 / m.fVariance);
    Measure(m.fZ, m.fU, m.fVariance, line[m.fView]);
    if (withPlanes) fDownstream[i] = line;
  }
  fChi2 = chi2;
  for (std::size_t v = 0; v < 2; v++) fChi2Kink[v] = Max(fChi2Kink[v] - chi2[v], 0);
}

void LaneSmoother::FitPlanes(std::size_t view, std::size_t i, const LanePlane* planes,
                             std::size_t n, LaneKink* kinks) const {
  LineState up = fUpstream[i][view];
  for (std::size_t k = 0; k < n; k++) {
    const LanePlane& plane = planes[k];
    LineState down = fDownstream[i + 1][view];
    for (std::size_t j = n; --j > k;) Scatter(NoiseOf(planes[j]), down);
    const MeasuredKink measured = KinkBetween(up, down, plane.fZ);
    const Lanes part = plane.fVariance / (plane.fVariance + measured.fVariance);
    Scatter(NoiseOf(plane), down);
    kinks[k] = {part * measured.fKink, part * measured.fVariance,
                kelvo::At(plane.fZ, Merged(up, down)).fX};
    Scatter(NoiseOf(plane), up);
  }
}

LanePoint LaneSmoother::Without(std::size_t view, double z, std::size_t first, std::size_t end,
                                const LanePlane* planes, std::size_t n) const {
  LineState up = first > 0 ? fUpstream[first - 1][view] : Unknown(z);
  LineState down = end < fN ? fDownstream[end][view] : Unknown(z);
  std::size_t before = 0;
  for (; before < n && planes[before].fZ < z; before++) Scatter(NoiseOf(planes[before]), up);
  for (std::size_t k = n; k-- > before;) Scatter(NoiseOf(planes[k]), down);
  const LineState line = Merged(up, down);
  const Lanes none = std::numeric_limits<double>::quiet_NaN();
  LanePoint point = kelvo::At(z, line);
  for (Lanes* value : {&point.fX, &point.fSlope, &point.fVarX, &point.fCovXSlope, &point.fVarSlope})
    *value = WhereAbove(1e-9 * kAnySlope, line.fVarSlope, *value, none);
  return point;
}

} // namespace kelvo
