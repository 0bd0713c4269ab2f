#include "track/MaterialAlong.h"

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

constexpr int kCrossings = 4;   // of the way, each with shifts of its own
constexpr std::size_t kRay = 2; // gaps that are crossed on one straight line

/// Places and weights of the quadrature of two points that has these moments about the middle of
/// the gap: in units of the standard deviation the points are the zeros of t^2 - skewness t - 1,
/// and the weights make their mean zero.
void SetPlanes(const double (&moment)[4], Gap& gap) {
  constexpr double kThinnest = 1e-9; // radiation lengths; what is thinner does not scatter
  constexpr double kThin = 1e-10; // variance of place, in squares of the gap, of a thin scatterer
  if (!(moment[0] > kThinnest)) return;
  const double length = gap.fEnd - gap.fBegin;
  const double mean = moment[1] / moment[0];
  const double variance = moment[2] / moment[0] - mean * mean;
  const auto add = [&](double place, double radLen) {
    const double z = std::clamp((gap.fBegin + gap.fEnd) / 2 + place, gap.fBegin, gap.fEnd);
    gap.fPlane[gap.fNPlanes++] = {z, radLen};
  };
  if (!(variance > kThin * length * length)) return add(mean, moment[0]);
  const double sigma = std::sqrt(variance);
  const double third = moment[3] / moment[0] - mean * (3 * variance + mean * mean);
  const double half = third / (2 * variance * sigma);
  const double root = std::sqrt(half * half + 1);
  const double low = half - root, high = half + root; // their product is -1
  add(mean + sigma * low, moment[0] * high / (high - low));
  add(mean + sigma * high, moment[0] * -low / (high - low));
}

} // namespace

void MaterialAlong::Trace(const std::vector<WayPoint>& points) {
  fGaps.clear();
  fLayers.clear();
  fShift[0] = fShift[1] = 0;
  const std::size_t n = points.size() - 1;
  fSums.assign(n + 1, Sums{});
  fMet.clear();
  fThickness.clear();
  for (std::size_t first = 0; first < n; first += kRay)
    CrossGaps(points, first, std::min(first + kRay, n));
  for (std::size_t i = 0; i < n; i++) {
    fGaps.push_back(Summary(i, points[i].fX[2], points[i + 1].fX[2]));
    SetPlanes(fSums[i].fMoment, fGaps.back());
  }
}

void MaterialAlong::CrossGaps(const std::vector<WayPoint>& points, std::size_t first,
                              std::size_t last) {
  if (!(points[last].fX[2] > points[first].fX[2])) return;
  for (int k = 0; k < kCrossings; k++) {
    std::size_t i = first;
    double begin = points[first].fX[2];
    for (const MaterialStep& step : Shifted(points[first], points[last])) {
      const double end = begin + step.fLength;
      for (; i + 1 < last && points[i + 1].fX[2] < end; i++) {
        Add(i, (points[i].fX[2] + points[i + 1].fX[2]) / 2, begin, points[i + 1].fX[2],
            step.fMaterial);
        Close(i);
        begin = points[i + 1].fX[2];
      }
      Add(i, (points[i].fX[2] + points[i + 1].fX[2]) / 2, begin, end, step.fMaterial);
      begin = end;
    }
    for (; i < last; i++) Close(i);
  }
}

void MaterialAlong::TraceEnd(const WayPoint& from, const std::array<double, 2>& slopes,
                             double length, double fraction) {
  WayPoint to = from;
  for (std::size_t v = 0; v < 2; v++) to.fX[v] += slopes[v] * length;
  to.fX[2] += length;
  const double z0 = from.fX[2];
  const std::size_t i = fSums.size() - 1;
  const double spread = std::sqrt(kEndVariance);
  fEndMipLoss = fEndSigma = 0;
  double sumEnd = 0;
  for (int k = 0; k < kCrossings; k++) {
    const std::vector<MaterialStep>& steps = Shifted(from, to);
    double all = 0;
    for (const MaterialStep& step : steps)
      all += fMaterials[step.fMaterial].fMipLoss * step.fLength;
    fEndMipLoss += all / kCrossings;
    // Where nothing takes energy, half of the loss is half of the way.
    const double limit = all > 0 ? all : length;
    const auto spent = [&](double part) {
      double left = part * limit, z = z0;
      for (const MaterialStep& step : steps) {
        if (!(left > 0)) break;
        const double loss = all > 0 ? fMaterials[step.fMaterial].fMipLoss : 1;
        const double thickness = loss > 0 ? std::min(step.fLength, left / loss) : step.fLength;
        z += thickness;
        left -= loss * thickness;
      }
      return z;
    };
    const double end = spent(fraction);
    double begin = z0;
    for (const MaterialStep& step : steps) {
      if (!(begin < end)) break;
      Add(i, z0, begin, std::min(begin + step.fLength, end), step.fMaterial);
      begin += step.fLength;
    }
    Close(i);
    sumEnd += end;
    fEndSigma += (spent(0.5 + spread) - spent(0.5 - spread)) / (2 * kCrossings);
  }
  fEnd = Summary(i, z0, sumEnd / kCrossings);
}

/// Returns the steps of a straight line, which is shifted within an interval that has the standard
/// deviation of the points, by a sequence that fills the plane evenly (M. Roberts, "The
/// unreasonable effectiveness of quasirandom sequences", 2018: multiples of the inverse powers of
/// the plastic number, modulo 1).
const std::vector<MaterialStep>& MaterialAlong::Shifted(const WayPoint& from, const WayPoint& to) {
  constexpr double kStep[] = {0.7548776662466927, 0.5698402909980532};
  const double width = std::sqrt(12.); // of a uniform distribution, in standard deviations
  std::array<double, 3> p = from.fX, q = to.fX;
  for (std::size_t v = 0; v < 2; v++) {
    fShift[v] += kStep[v] - (fShift[v] + kStep[v] >= 1 ? 1 : 0);
    p[v] += (fShift[v] - 0.5) * width * from.fSig[v];
    q[v] += (fShift[v] - 0.5) * width * to.fSig[v];
  }
  return fMaterials.Steps(p.data(), q.data());
}

void MaterialAlong::Add(std::size_t gap, double middle, double begin, double end,
                        std::size_t material) {
  const MaterialData& data = fMaterials[material];
  Sums& sums = fSums[gap];
  const double a = begin - middle, b = end - middle, thickness = end - begin;
  const double radLen = thickness * data.fRadLen, twice = a + b, squares = a * a + b * b;
  sums.fMoment[0] += radLen;
  sums.fMoment[1] += radLen * (twice * (1. / 2));
  sums.fMoment[2] += radLen * ((squares + a * b) * (1. / 3));
  sums.fMoment[3] += radLen * (twice * squares * (1. / 4));
  sums.fNow += thickness * data.fMipLoss;
  std::size_t k = 0;
  while (k < fMet.size() && fMet[k] != material) k++;
  if (k == fMet.size()) {
    fMet.push_back(material);
    fThickness.resize(fMet.size() * fSums.size(), 0);
  }
  const std::size_t place = k * fSums.size() + gap;
  fThickness[place] += thickness;
}

void MaterialAlong::Close(std::size_t gap) {
  Sums& sums = fSums[gap];
  sums.fLoss += sums.fNow;
  sums.fLoss2 += sums.fNow * sums.fNow;
  sums.fNow = 0;
}

Gap MaterialAlong::Summary(std::size_t i, double begin, double end) {
  Sums& sums = fSums[i];
  Gap gap{};
  gap.fBegin = begin;
  gap.fEnd = end;
  gap.fFirst = fLayers.size();
  for (std::size_t k = 0; k < fMet.size(); k++) {
    const std::size_t m = fMet[k];
    const double thickness = fThickness[k * fSums.size() + i] / kCrossings;
    if (!(thickness * fMaterials[m].fMipLoss > 0)) continue;
    fLayers.push_back({m, thickness});
    gap.fXi += thickness * fMaterials[m].fXi;
  }
  gap.fN = fLayers.size() - gap.fFirst;
  for (double& moment : sums.fMoment) moment /= kCrossings;
  gap.fRadLen = sums.fMoment[0];
  gap.fMipLoss = sums.fLoss / kCrossings;
  const double squares = sums.fLoss2 / kCrossings - gap.fMipLoss * gap.fMipLoss;
  // Of one way, from the scatter of a few; and of the mean of these that is taken for it.
  gap.fVarMipLoss = std::max(squares, 0.) * (kCrossings + 1) / (kCrossings - 1);
  return gap;
}

} // namespace kelvo
