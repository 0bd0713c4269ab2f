#include "track/MaterialAlong.h"

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

constexpr double kCrossings = kLanes; // of the way, each with shifts of its own
constexpr std::size_t kRay = 2;       // gaps that are crossed on one straight line

/// Places and weights of the quadrature of two points that has these moments about the middle of
/// the gap: in units of the standard deviation the points are the zeros of t^2 - skewness t - 1,
/// and the weights make their mean zero.
void SetPlanes(const Lanes& moment, Gap& gap) {
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
  fRay = 0;
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

/// Returns the place of a material among those that the track has met.
inline std::size_t MaterialAlong::Meet(const TGeoMaterial* material) {
  for (std::size_t k = 0; k < fMet.size(); k++)
    if (fMet[k].fMaterial == material) return k;
  return MeetFirst(material);
}

std::size_t MaterialAlong::MeetFirst(const TGeoMaterial* material) {
  const std::size_t index = fMaterials.Index(material);
  fMet.push_back({material, index, fMaterials[index].fRadLen, fMaterials[index].fMipLoss});
  fThickness.resize(fMet.size() * fSums.size(), 0);
  return fMet.size() - 1;
}

/// Adds what of a slab lies between two z.
[[gnu::always_inline]] inline void MaterialAlong::Add(std::size_t gap, double middle, double begin,
                                                      double end, const geo::LaneSlab& slab) {
  Sums& sums = fSums[gap];
  const double length = end - begin;
  double radLen = 0;
  for (std::size_t k = 0; k < slab.fN; k++) {
    const std::size_t place = Meet(slab.fMaterial[k]);
    const double thickness = length * Sum(slab.fFraction[k]);
    radLen += thickness * fMet[place].fRadLen;
    sums.fLoss += slab.fFraction[k] * (length * fMet[place].fMipLoss);
    fThickness[place * fSums.size() + gap] += thickness;
  }
  const double a = begin - middle, b = end - middle, twice = a + b, squares = a * a + b * b;
  sums.fMoment += radLen * Lanes{1., twice * (1. / 2), (squares + a * b) * (1. / 3),
                                 twice * squares * (1. / 4)};
}

void MaterialAlong::CrossGaps(const std::vector<WayPoint>& points, std::size_t first,
                              std::size_t last) {
  if (!(points[last].fX[2] > points[first].fX[2])) return;
  const geo::LaneLines lines = Shifted(points[first], points[last], points[first + 1].fX[2]);
  std::size_t i = first;
  for (const geo::LaneSlab& slab : fMaterials.Slabs(lines)) {
    if (slab.fBegin < points[i].fX[2]) i = first; // another line
    for (double begin = slab.fBegin; begin < slab.fEnd;) {
      while (i + 1 < last && begin >= points[i + 1].fX[2]) i++;
      const double z0 = points[i].fX[2], z1 = points[i + 1].fX[2];
      const double end = i + 1 < last ? std::min(slab.fEnd, z1) : slab.fEnd;
      Add(i, (z0 + z1) / 2, begin, end, slab);
      begin = end;
    }
  }
}

void MaterialAlong::TraceEnd(const WayPoint& from, const std::array<double, 2>& slopes,
                             double length, double fraction) {
  WayPoint to = from;
  for (std::size_t v = 0; v < 2; v++) to.fX[v] += slopes[v] * length;
  to.fX[2] += length;
  const double z0 = from.fX[2];
  const std::vector<geo::LaneSlab>& slabs = fMaterials.Slabs(Shifted(from, to, z0));
  Lanes all{};
  for (const geo::LaneSlab& slab : slabs) all += MipLoss(slab);
  fEndMipLoss = Sum(all) / kCrossings;
  // Where nothing takes energy, half of the loss is half of the way.
  const Lanes limit = WhereAbove(all, 0, all, length);
  // Goes on until a part of the loss is spent, and returns where that is on each line.
  const auto follow = [&](double part, auto&& visit) {
    Lanes left = part * limit, end = z0;
    for (const geo::LaneSlab& slab : slabs) {
      const Lanes way = (slab.fEnd - slab.fBegin) * slab.Crossed();
      const Lanes loss = WhereAbove(all, 0, MipLoss(slab), way);
      const Lanes on = WhereAbove(left, 0, WhereAbove(loss, left, left / loss, 1), 0);
      visit(slab, on);
      end += on * way;
      left -= on * loss;
    }
    return end;
  };
  const Lanes end = follow(fraction, [&](const geo::LaneSlab& slab, const Lanes& on) {
    geo::LaneSlab spent = slab;
    for (std::size_t k = 0; k < slab.fN; k++) spent.fFraction[k] = slab.fFraction[k] * on;
    Add(fSums.size() - 1, z0, slab.fBegin, slab.fEnd, spent);
  });
  fEnd = Summary(fSums.size() - 1, z0, Sum(end) / kCrossings);
  const auto pass = [](const geo::LaneSlab&, const Lanes&) {};
  const double spread = std::sqrt(kEndVariance);
  fEndSigma = Sum(follow(0.5 + spread, pass) - follow(0.5 - spread, pass)) / (2 * kCrossings);
}

/// Returns straight lines that are shifted within an interval that has the standard deviation of
/// the points.
geo::LaneLines MaterialAlong::Shifted(const WayPoint& from, const WayPoint& to, double cut) {
  const double perLength = 1 / (to.fX[2] - from.fX[2]);
  const std::array<Lanes, 2>& shift = NextShift();
  geo::LaneLines lines{from.fX[2], to.fX[2], cut, {}, {}};
  for (std::size_t v = 0; v < 2; v++) {
    lines.fFrom[v] = from.fX[v] + shift[v] * from.fSig[v];
    lines.fSlope[v] = (to.fX[v] - from.fX[v] + shift[v] * (to.fSig[v] - from.fSig[v])) * perLength;
  }
  return lines;
}

/// Returns shifts in standard deviations, by a sequence that fills the plane evenly (M. Roberts,
/// "The unreasonable effectiveness of quasirandom sequences", 2018: multiples of the inverse powers
/// of the plastic number, modulo 1). It is the same for all tracks, and kept.
const std::array<Lanes, 2>& MaterialAlong::NextShift() {
  static constexpr double kStep[] = {0.7548776662466927, 0.5698402909980532};
  const double width = std::sqrt(12.); // of a uniform distribution, in standard deviations
  if (fRay == fShifts.size()) {
    fShifts.emplace_back();
    for (std::size_t v = 0; v < 2; v++) {
      const auto next = [this, v, width] {
        fLastShift[v] += kStep[v] - (fLastShift[v] + kStep[v] >= 1 ? 1 : 0);
        return (fLastShift[v] - 0.5) * width;
      };
      fShifts.back()[v] = Lanes{next(), next(), next(), next()}; // in this order
    }
  }
  return fShifts[fRay++];
}

Lanes MaterialAlong::MipLoss(const geo::LaneSlab& slab) {
  Lanes loss{};
  for (std::size_t k = 0; k < slab.fN; k++)
    loss += slab.fFraction[k] * fMet[Meet(slab.fMaterial[k])].fMipLoss;
  return loss * (slab.fEnd - slab.fBegin);
}

Gap MaterialAlong::Summary(std::size_t i, double begin, double end) {
  Sums& sums = fSums[i];
  Gap gap{};
  gap.fBegin = begin;
  gap.fEnd = end;
  gap.fFirst = fLayers.size();
  for (std::size_t k = 0; k < fMet.size(); k++) {
    const std::size_t m = fMet[k].fIndex;
    const double thickness = fThickness[k * fSums.size() + i] / kCrossings;
    if (!(thickness * fMaterials[m].fMipLoss > 0)) continue;
    fLayers.push_back({m, thickness});
    gap.fXi += thickness * fMaterials[m].fXi;
  }
  gap.fN = fLayers.size() - gap.fFirst;
  sums.fMoment *= 1 / kCrossings;
  gap.fRadLen = sums.fMoment[0];
  gap.fMipLoss = Sum(sums.fLoss) / kCrossings;
  const Lanes off = sums.fLoss - gap.fMipLoss;
  // Of one way, from the scatter of a few; and of the mean of these that is taken for it.
  gap.fVarMipLoss = Sum(off * off) / kCrossings * (kCrossings + 1) / (kCrossings - 1);
  return gap;
}

} // namespace kelvo
