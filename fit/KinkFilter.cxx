#include "fit/KinkFilter.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace kelvo {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Lists the indices in ascending order of position, equal positions in order of index. The order
/// of the last fit is tried first: there is only one, so no result depends on what went before.
template <class Item>
void SortBy(double Item::*position, const std::vector<Item>& items,
            std::vector<unsigned int>& order) {
  const auto before = [position, &items](unsigned int a, unsigned int b) {
    return items[a].*position < items[b].*position ||
           (items[a].*position == items[b].*position && a < b);
  };
  if (order.size() == items.size() && std::is_sorted(order.begin(), order.end(), before)) return;
  order.resize(items.size());
  std::iota(order.begin(), order.end(), 0u);
  std::sort(order.begin(), order.end(), before);
}

} // namespace

void KinkSmoother::Filter::Resize(unsigned int nscat) {
  fNscat = nscat;
  fMeasOrder.clear();
  fPlaneOrder.clear();
  fSegments.resize(std::size_t{nscat} + 1);
  fLocal.resize(std::size_t{nscat} + 1);
  fBoth.resize(std::size_t{nscat} + 1);
  fBehind.resize(std::size_t{nscat} / 2 + 1);
}

bool KinkSmoother::Filter::InOrder(const std::vector<Measurement>& meas,
                                   const std::vector<Plane>& planes) {
  return std::is_sorted(meas.begin(), meas.end(),
                        [](const Measurement& a, const Measurement& b) { return a.fZ < b.fZ; }) &&
         std::is_sorted(planes.begin(), planes.end(),
                        [](const Plane& a, const Plane& b) { return a.fS < b.fS; });
}

void KinkSmoother::Filter::PlaceSegments(const std::vector<Plane>& planes) {
  for (unsigned int k = 0; k < fNscat; k++) {
    const Plane& plane = planes[PlaneAt(k)];
    fSegments[k].fEnd = plane.fS;
    fSegments[k].fV = plane.fV;
  }
  fSegments[fNscat].fEnd = kInfinity;
}

/// A measurement at the very position of a plane belongs upstream of it: it does not feel the kink.
inline void KinkSmoother::Filter::GatherDownstream(unsigned int k, std::vector<Measurement>& all,
                                                   const unsigned int* order, unsigned int& place) {
  KinkSum local;
  const double end = fSegments[k].fEnd;
  for (; place < all.size(); place++) {
    Measurement& meas = all[order ? order[place] : place];
    if (meas.fZ > end) break;
    meas.fSegment = k;
    if (meas.fW > 0) local.Add(meas.fW, meas.fZ, meas.fX);
  }
  fLocal[k] = local;
}

inline void KinkSmoother::Filter::GatherUpstream(unsigned int k, std::vector<Measurement>& all,
                                                 const unsigned int* order, unsigned int& place) {
  KinkSum local;
  const double begin = fSegments[k - 1].fEnd;
  for (; place > 0; place--) {
    Measurement& meas = all[order ? order[place - 1] : place - 1];
    if (!(meas.fZ > begin)) break;
    meas.fSegment = k;
    if (meas.fW > 0) local.Add(meas.fW, meas.fZ, meas.fX);
  }
  fLocal[k] = local;
}

/// Two fronts run towards each other and past each other, side by side: each is a chain of
/// divisions that wait for each other. While they wait, the processor gathers the measurements
/// ahead of them until they meet. From then on each segment and plane that they reach is known from
/// both sides, and is smoothed one step later.
bool KinkSmoother::Filter::Solve(std::vector<Measurement>& meas, std::vector<Plane>& planes) {
  fOthersKnown = false;
  if (!fMeasOrder.empty() || !InOrder(meas, planes)) {
    SortBy(&Measurement::fZ, meas, fMeasOrder);
    SortBy(&Plane::fS, planes, fPlaneOrder);
  }
  PlaceSegments(planes);

  const unsigned int m = fNscat;
  const unsigned int* order = fMeasOrder.empty() ? nullptr : fMeasOrder.data();
  unsigned int next = 0;
  auto last = static_cast<unsigned int>(meas.size());
  const auto gather = [&](unsigned int k) {
    if (2 * k <= m) GatherDownstream(k, meas, order, next);
    if (2 * k < m) GatherUpstream(m - k, meas, order, last);
  };

  fChi2Beta = 0;
  bool regular = true;
  KinkStates<KinkPair> known;
  unsigned int k = 0;
  gather(0);
  for (; k < m / 2; k++) {
    gather(k + 1);
    fBehind[k] = known;
    known = CrossTwoPlanes(k, known);
  }
  fBehind[k] = known;
  if (k < m) known = CrossTwoPlanes(k++, known);
  for (; k < m; k++) {
    known = CrossTwoPlanes(k, known);
    regular = Smooth(k - 1, planes) && regular;
  }
  if (m > 0) regular = Smooth(m - 1, planes) && regular;
  fBoth[m] = Both(MergeAny(One(known, 0), fLocal[m]), MergeAny(One(known, 1), fLocal[0]));
  return SmoothLines(m) && regular;
}

/// Takes what is known behind the segments where the fronts are after k planes, returns what is
/// known behind the next ones. Inlined, or the states would go through memory in the middle of the
/// chain.
[[gnu::always_inline]] inline KinkStates<KinkPair> KinkSmoother::Filter::CrossTwoPlanes(
    unsigned int k, KinkStates<KinkPair> known) {
  const Segment& up = fSegments[k];
  const Segment& plane = fSegments[fNscat - k - 1];
  const KinkStates<KinkPair> local = Both(fLocal[k], fLocal[fNscat - k]);
  const KinkPair s = {up.fEnd, plane.fEnd};
  const KinkPair v = {up.fV, plane.fV};
  const KinkPair pE = CrossingWeight(known, local, v);
  const KinkPair regular = pE * v;
  const KinkCrossings<KinkPair> crossing =
      regular[0] > 0 && regular[1] > 0 ? CrossRegularPlane(known, local, s, v, pE)
                                       : CrossBoth(known.fP, known.fZ, known.fX, known.fQ, known.fC,
                                                   fLocal[k], fLocal[fNscat - k], s, v);
  fBoth[k] = crossing.fBefore;
  return crossing.fBeyond;
}

/// What the fronts have come to after k planes: the planes ahead of them, and their segments.
inline bool KinkSmoother::Filter::Smooth(unsigned int k, std::vector<Plane>& planes) {
  SmoothKinks(k, planes);
  return 2 * k < fNscat || SmoothLines(k);
}

inline bool KinkSmoother::Filter::SmoothLines(unsigned int k) {
  const unsigned int l = fNscat - k;
  const KinkStates<KinkPair> all = Merge(fBoth[k], Swapped(fBehind[l]));
  const KinkPair varX = 1 / all.fP;
  const KinkPair varSlope = 1 / all.fQ;
  const KinkPair slope = all.fC * varSlope;
  const auto set = [&](Segment& segment, int which) {
    segment.fZ = all.fZ[which];
    segment.fX = all.fX[which];
    segment.fSlope = slope[which];
    segment.fVarX = varX[which];
    segment.fVarSlope = varSlope[which];
    return all.fP[which] > 0 && all.fQ[which] > 0;
  };
  const bool regular = set(fSegments[k], 0);
  return set(fSegments[l], 1) && regular;
}

/// Both sides know the position at the plane: from upstream (p, z, x, q, c), from downstream
/// (p', z', x', q', c'). With P = p + p', D = z' - z, E = x' - x, d = s - z, d' = s - z' their
/// mismatch alone measures the kink as a / A with weight A / N:
///   N = (q + q') P + p p' D^2,  A = q q' P + p p' (d^2 q' + d'^2 q),
///   a = (q c' - q' c) P - p p' [(d q' + d' q) E - (d c' + d' c) D].
/// Together with the kink measured as 0 with weight v: alpha = a / (A + v N), its variance
/// N / (A + v N). The front that runs upstream sees the kink turn the other way.
inline void KinkSmoother::Filter::SmoothKinks(unsigned int k, std::vector<Plane>& planes) {
  const unsigned int l = fNscat - 1 - k;
  const KinkStates<KinkPair>& up = fBoth[k];
  const KinkStates<KinkPair> down = Swapped(fBoth[l]);
  const KinkPair s = {fSegments[k].fEnd, fSegments[l].fEnd};
  const KinkPair v = {fSegments[k].fV, fSegments[l].fV};
  const KinkPair p = up.fP + down.fP;
  const KinkPair pp = up.fP * down.fP;
  const KinkPair dz = down.fZ - up.fZ;
  const KinkPair dx = down.fX - up.fX;
  const KinkPair dUp = s - up.fZ;
  const KinkPair dDown = s - down.fZ;
  const KinkPair qUp = dUp * down.fQ;
  const KinkPair qDown = dDown * up.fQ;
  const KinkPair n = (up.fQ + down.fQ) * p + pp * dz * dz;
  const KinkPair weight = up.fQ * down.fQ * p + pp * (dUp * qUp + dDown * qDown);
  const KinkPair tilt = (qUp + qDown) * dx - (dUp * down.fC + dDown * up.fC) * dz;
  const KinkPair inverse = 1 / (weight + v * n);
  const KinkPair alpha = ((up.fQ * down.fC - down.fQ * up.fC) * p - pp * tilt) * inverse;
  const KinkPair variance = n * inverse;
  const KinkPair chi2 = alpha * alpha * v;
  Plane& first = planes[PlaneAt(k)];
  first.fAlpha = alpha[0];
  first.fVarAlpha = variance[0];
  fChi2Beta += chi2[0];
  if (l == k) return;
  Plane& second = planes[PlaneAt(l)];
  second.fAlpha = -alpha[1];
  second.fVarAlpha = variance[1];
  fChi2Beta += chi2[1];
}

/// Filters once more in both directions, now stopping at each measurement.
void KinkSmoother::Filter::LeaveEachOut(const std::vector<Measurement>& all) {
  fOthers.resize(all.size());
  const auto at = [this, &all](unsigned int place) -> const Measurement& {
    return all[MeasAt(place)];
  };
  unsigned int place = 0;
  KinkSum upstream;
  for (unsigned int k = 0; k <= fNscat; k++) {
    if (k > 0)
      upstream = CrossPlane(upstream, {}, fSegments[k - 1].fEnd, fSegments[k - 1].fV).fBeyond;
    for (; place < all.size() && at(place).fSegment == k; place++) {
      fOthers[MeasAt(place)].fUpstream = upstream;
      if (at(place).fW > 0) upstream.Add(at(place).fW, at(place).fZ, at(place).fX);
    }
  }
  KinkSum downstream;
  for (unsigned int k = fNscat + 1; k-- > 0;) {
    for (; place > 0 && at(place - 1).fSegment == k; place--) {
      const Measurement& meas = at(place - 1);
      Others& others = fOthers[MeasAt(place - 1)];
      const KinkState both = MergeAny(others.fUpstream, downstream);
      const double d = meas.fZ - both.fZ;
      const bool line = both.fP > 0 && both.fQ > 0;
      others.fX = line ? both.fX + both.fC / both.fQ * d : 0;
      others.fVar = line ? 1 / both.fP + d * d / both.fQ : kInfinity;
      if (meas.fW > 0) downstream.Add(meas.fW, meas.fZ, meas.fX);
    }
    if (k > 0)
      downstream = CrossPlane(downstream, {}, fSegments[k - 1].fEnd, fSegments[k - 1].fV).fBeyond;
  }
  fOthersKnown = true;
}

} // namespace kelvo
