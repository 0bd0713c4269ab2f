#include "track/MaterialAlong.h"

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

constexpr double kCrossings = kLanes; // of the way, each with shifts of its own
constexpr std::size_t kRay = 2;       // gaps that are crossed on one straight line, if on several

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
  Cross(points, 0, n);
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

/// What takes more of a slab in one place takes less in another: by the difference of the first
/// material and the mean of all others.
[[gnu::always_inline]] inline MaterialAlong::Mixture MaterialAlong::Mix(const geo::MeanSlab& slab) {
  const std::size_t first = Meet(slab.fMaterial[0]);
  const double firstLoss = fMet[first].fMipLoss;
  Mixture mixture{{first * fSums.size()},
                  slab.fFraction[0] * fMet[first].fRadLen,
                  slab.fFraction[0] * firstLoss,
                  0};
  for (std::size_t k = 1; k < slab.fN; k++) {
    const std::size_t place = Meet(slab.fMaterial[k]);
    mixture.fRow[k] = place * fSums.size();
    mixture.fRadLen += slab.fFraction[k] * fMet[place].fRadLen;
    mixture.fMipLoss += slab.fFraction[k] * fMet[place].fMipLoss;
  }
  const double change = mixture.fMipLoss - firstLoss;
  mixture.fVarMipLoss = change * change * slab.fVariance * (slab.fEnd - slab.fBegin);
  return mixture;
}

/// Adds what of a slab lies between two z. Its variance is that of the slab as a whole, of which
/// a part has its part.
[[gnu::always_inline]] inline void MaterialAlong::Add(std::size_t gap, double middle, double begin,
                                                      double end, const geo::MeanSlab& slab,
                                                      const Mixture& mixture, Lanes crossings) {
  const double length = end - begin, all = length * Sum(crossings);
  for (std::size_t k = 0; k < slab.fN; k++)
    fThickness[mixture.fRow[k] + gap] += all * slab.fFraction[k];
  Sums& sums = fSums[gap];
  sums.fLoss += crossings * (length * mixture.fMipLoss);
  sums.fVarLoss += length * mixture.fVarMipLoss;
  const double a = begin - middle, b = end - middle, twice = a + b, squares = a * a + b * b;
  sums.fMoment +=
      all * mixture.fRadLen *
      Lanes{1., twice * (1. / 2), (squares + a * b) * (1. / 3), twice * squares * (1. / 4)};
}

/// Adds what lies between two points: the mean where it is known, else what some lines cross.
void MaterialAlong::Cross(const std::vector<WayPoint>& points, std::size_t first,
                          std::size_t last) {
  if (!(points[last].fX[2] > points[first].fX[2])) return;
  if (fMaterials.MeanSlabs(&points[first], last - first + 1, fSlabs))
    return AddSlabs(points, first, last, 1);
  if (last - first > kRay) {
    for (; first < last; first += kRay) Cross(points, first, std::min(first + kRay, last));
    return;
  }
  FollowLines(points[first], points[last],
              [&](const Lanes& line) { AddSlabs(points, first, last, line); });
}

/// Adds the slabs of some crossings to the gaps between two points.
void MaterialAlong::AddSlabs(const std::vector<WayPoint>& points, std::size_t first,
                             std::size_t last, Lanes crossings) {
  std::size_t i = first;
  for (const geo::MeanSlab& slab : fSlabs) {
    const Mixture mixture = Mix(slab);
    for (double begin = slab.fBegin; begin < slab.fEnd;) {
      while (i + 1 < last && begin >= points[i + 1].fX[2]) i++;
      const double z0 = points[i].fX[2], z1 = points[i + 1].fX[2];
      const double end = i + 1 < last ? std::min(slab.fEnd, z1) : slab.fEnd;
      Add(i, (z0 + z1) / 2, begin, end, slab, mixture, crossings);
      begin = end;
    }
  }
}

void MaterialAlong::TraceEnd(const WayPoint& from, const std::array<double, 2>& slopes,
                             double length, double fraction) {
  WayPoint way[] = {from, from};
  for (std::size_t v = 0; v < 2; v++) way[1].fX[v] += slopes[v] * length;
  way[1].fX[2] += length;
  const double z0 = from.fX[2], spread = std::sqrt(kEndVariance);
  double end = 0;
  fEndMipLoss = fEndSigma = 0;
  const auto add = [&](const Lanes& crossings) {
    double loss = 0;
    for (const geo::MeanSlab& slab : fSlabs) loss += (slab.fEnd - slab.fBegin) * Mix(slab).fMipLoss;
    const auto spend = [&](double part, auto&& visit) {
      // Where nothing takes energy, half of the loss is half of the way.
      return loss > 0 ? Spend(part * loss, z0, visit) : z0 + part * length;
    };
    const auto pass = [](const geo::MeanSlab&, double) {};
    const double part = Sum(crossings) / kCrossings;
    fEndMipLoss += part * loss;
    fEndSigma += part * (spend(0.5 + spread, pass) - spend(0.5 - spread, pass)) / 2;
    end += part * spend(fraction, [&](const geo::MeanSlab& slab, double to) {
             Add(fSums.size() - 1, z0, slab.fBegin, to, slab, Mix(slab), crossings);
           });
  };
  if (fMaterials.MeanSlabs(way, 2, fSlabs))
    add(1);
  else
    FollowLines(way[0], way[1], add);
  fEnd = Summary(fSums.size() - 1, z0, end);
}

/// Visits slabs up to where an energy loss is spent, and returns where that is.
template <class Visit>
double MaterialAlong::Spend(double loss, double z0, Visit&& visit) {
  double end = z0;
  for (const geo::MeanSlab& slab : fSlabs) {
    if (!(loss > 0)) break;
    const double length = slab.fEnd - slab.fBegin, here = length * Mix(slab).fMipLoss;
    end = here > loss ? slab.fBegin + length * (loss / here) : slab.fEnd;
    visit(slab, end);
    loss -= here;
  }
  return end;
}

/// Follows straight lines that are shifted within an interval that has the standard deviation of
/// the points, one after the other, as one of several crossings each.
template <class Visit>
void MaterialAlong::FollowLines(const WayPoint& from, const WayPoint& to, Visit&& visit) {
  const std::array<Lanes, 2>& shift = NextShift();
  for (std::size_t l = 0; l < kLanes; l++) {
    double begin[3], end[3];
    for (std::size_t v = 0; v < 2; v++) {
      begin[v] = from.fX[v] + shift[v][l] * from.fSig[v];
      end[v] = to.fX[v] + shift[v][l] * to.fSig[v];
    }
    begin[2] = from.fX[2];
    end[2] = to.fX[2];
    fSlabs.clear();
    fMaterials.AddSlabs(begin, end, fSlabs);
    visit(Lanes(l == 0, l == 1, l == 2, l == 3));
  }
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
  gap.fVarMipLoss =
      sums.fVarLoss + Sum(off * off) / kCrossings * (kCrossings + 1) / (kCrossings - 1);
  return gap;
}

} // namespace kelvo
