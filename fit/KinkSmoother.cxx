#include "fit/KinkSmoother.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

#include "func/KelvoException.h"

namespace kelvo {

namespace {

constexpr const char* kFile = "fit/KinkSmoother";
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();
constexpr KinkPoint kNoPoint = {0, 0, kUndefined, kUndefined, kUndefined};

// Lists the indices in ascending order of position, equal positions in order of index. The order of
// the last fit is tried first: there is only one, so no result depends on what went before.
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

void KinkSmoother::Reset(unsigned int nmeas, unsigned int nscat) {
  if (!(nmeas > nscat)) throw KelvoException(kFile, __LINE__, kBadNScat, 0.0);
  fNmeas = nmeas;
  fNscat = nscat;
  fMeas.resize(nmeas);
  fPlanes.resize(nscat);
  std::memset(fMeas.data(), 0, nmeas * sizeof(Measurement)); // the bytes of 0.0 are 0
  std::fill(fPlanes.begin(), fPlanes.end(), Plane{});
  fMeasOrder.clear();
  fPlaneOrder.clear();
  fSegments.resize(std::size_t{nscat} + 1);
  fStatus = KinkStatus::kNotFitted;
  fX0 = fSlope = fChi2XI = fChi2Beta = 0;
}

void KinkSmoother::ThrowBadMeasurement(unsigned int i, double z, double x, double sigx) const {
  if (i >= fNmeas) throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
  if (std::isnan(z) || std::isnan(x) || std::isnan(sigx))
    throw KelvoException(kFile, __LINE__, kNaN, 0.0);
  throw KelvoException(kFile, __LINE__, kBadSigX, sigx);
}

void KinkSmoother::ThrowBadPlane(unsigned int j, double z, double sigAlpha) const {
  if (j >= fNscat) throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
  if (std::isnan(z) || std::isnan(sigAlpha)) throw KelvoException(kFile, __LINE__, kNaN, 0.0);
  throw KelvoException(kFile, __LINE__, kBadSigSJ, sigAlpha);
}

void KinkSmoother::SetWeightFactor(unsigned int i, double factor) {
  if (i >= fNmeas) throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
  if (!(factor >= 0 && factor <= 1)) throw KelvoException(kFile, __LINE__, kIndexProblem, factor);
  fMeas[i].fW = factor * fMeas[i].fLoadedW;
}

void KinkSmoother::Fit(double* x0, double* dxdz, double* alpha, double* chi2) {
  fOthersKnown = false;
  if (!fMeasOrder.empty() || !Gather()) {
    SortBy(&Measurement::fZ, fMeas, fMeasOrder);
    SortBy(&Plane::fS, fPlanes, fPlaneOrder);
    Gather();
  }
  Filter();
  const bool regular = Smooth();
  FitMeasurements();
  if (regular && std::isfinite(fChi2XI + fChi2Beta + fX0)) {
    fStatus = KinkStatus::kSucceeded;
  } else {
    NullResult();
    fStatus = regular ? KinkStatus::kNotFinite : WhySingular();
    for (unsigned int i = 0; i < fNmeas; ++i) fChi2XI += Chi2XIi(i);
  }
  if (x0) *x0 = fX0;
  if (dxdz) *dxdz = fSlope;
  if (alpha)
    for (const Plane& plane : fPlanes) *alpha++ = plane.fAlpha;
  if (chi2) *chi2 = fChi2XI + fChi2Beta;
}

// A measurement at the very position of a plane belongs upstream of it: it does not feel the kink.
// Returns false where the next measurement or plane lies upstream of the last.
bool KinkSmoother::Gather() {
  const unsigned int* order = fMeasOrder.empty() ? nullptr : fMeasOrder.data();
  Measurement* const first = fMeas.data();
  const unsigned int n = fNmeas;
  unsigned int place = 0;
  double lastEnd = -kInfinity;
  double lastZ = -kInfinity;
  for (unsigned int k = 0; k <= fNscat; ++k) {
    double end = kInfinity;
    if (k < fNscat) {
      const Plane& plane = fPlanes[PlaneAt(k)];
      if (plane.fS < lastEnd) return false;
      end = lastEnd = plane.fS;
      fSegments[k].fV = plane.fV;
    }
    KinkState local;
    for (; place < n; ++place) {
      Measurement& meas = first[order ? order[place] : place];
      const double z = meas.fZ;
      if (z < lastZ) return false;
      if (z > end) break;
      lastZ = z;
      meas.fSegment = k;
      if (meas.fW > 0) AddPosition(local, meas.fW, z, meas.fX);
    }
    fSegments[k].fEnd = end;
    fSegments[k].fLocal = local;
  }
  return true;
}

// Both directions at once, side by side: each is a chain of divisions that wait for each other.
void KinkSmoother::Filter() {
  unsigned int up = 0;
  for (; up < fNscat && fSegments[up].fLocal.fP == 0; ++up) fSegments[up].fUpstream = {};
  unsigned int down = fNscat;
  for (; down > 0 && fSegments[down].fLocal.fP == 0; --down)
    fSegments[down].fBeyond = fSegments[down].fDownstream = {};

  KinkStates<KinkPair> known;
  for (; up < fNscat && down > 0; ++up, --down)
    known = CrossTwoPlanes(fSegments[up], fSegments[down], fSegments[down - 1], known);
  FilterDownstream(up, One(known, 0));
  FilterUpstream(down, One(known, 1));
}

// From the segment ahead downstream, and from the segment back upstream over the plane. Takes and
// returns what is known before its own measurements. Inlined, or the states would go through memory
// in the middle of the chain.
[[gnu::always_inline]] inline KinkStates<KinkPair> KinkSmoother::CrossTwoPlanes(
    Segment& ahead, Segment& back, const Segment& plane, KinkStates<KinkPair> known) {
  const KinkStates<KinkPair> local = Both(ahead.fLocal, back.fLocal);
  const KinkPair s = {ahead.fEnd, plane.fEnd};
  const KinkPair v = {ahead.fV, plane.fV};
  const KinkPair pE = CrossingWeight(known, local, v);
  const KinkPair regular = pE * v;
  back.fBeyond = One(known, 1);
  const auto keep = [&](const KinkCrossings<KinkPair>& crossing) {
    ahead.fUpstream = One(crossing.fBefore, 0);
    back.fDownstream = One(crossing.fBefore, 1);
    return crossing.fBeyond;
  };
  if (regular[0] > 0 && regular[1] > 0) return keep(CrossRegularPlane(known, local, s, v, pE));
  return keep(CrossBoth(known, local, s, v));
}

void KinkSmoother::FilterDownstream(unsigned int k, KinkState known) {
  for (; k < fNscat; ++k) {
    Segment& segment = fSegments[k];
    const KinkCrossings<double> crossing =
        CrossPlane(known, segment.fLocal, segment.fEnd, segment.fV);
    segment.fUpstream = crossing.fBefore;
    known = crossing.fBeyond;
  }
  fSegments[k].fUpstream = MergeAny(known, fSegments[k].fLocal);
}

void KinkSmoother::FilterUpstream(unsigned int k, KinkState known) {
  for (; k > 0; --k) {
    Segment& segment = fSegments[k];
    const Segment& plane = fSegments[k - 1];
    const KinkCrossings<double> crossing = CrossPlane(known, segment.fLocal, plane.fEnd, plane.fV);
    segment.fBeyond = known;
    segment.fDownstream = crossing.fBefore;
    known = crossing.fBeyond;
  }
  fSegments[k].fBeyond = known;
}

// Segments and planes two at a time, side by side.
bool KinkSmoother::Smooth() {
  bool regular = true;
  fChi2Beta = 0;
  for (unsigned int k = 0; k <= fNscat; k += 2) {
    const unsigned int l = std::min(k + 1, fNscat); // the last segment may be its own neighbour
    const KinkStates<KinkPair> upstream = Both(fSegments[k].fUpstream, fSegments[l].fUpstream);
    regular = SmoothLines(k, l, upstream) && regular;
    if (k < fNscat) SmoothKinks(k, l, upstream);
  }
  const Segment& first = fSegments[0];
  fSlope = first.fSlope;
  fX0 = first.fX - first.fSlope * first.fZ;
  return regular;
}

inline bool KinkSmoother::SmoothLines(unsigned int k, unsigned int l,
                                      const KinkStates<KinkPair>& upstream) {
  const KinkStates<KinkPair> all =
      Merge(upstream, Both(fSegments[k].fBeyond, fSegments[l].fBeyond));
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

// Both sides know the position at the plane: from upstream (p, z, x, q, c), from downstream
// (p', z', x', q', c'). With P = p + p', D = z' - z, E = x' - x, d = s - z, d' = s - z' their
// mismatch alone measures the kink as a / A with weight A / N:
//   N = (q + q') P + p p' D^2,  A = q q' P + p p' (d^2 q' + d'^2 q),
//   a = (q c' - q' c) P - p p' [(d q' + d' q) E - (d c' + d' c) D].
// Together with the kink measured as 0 with weight v: alpha = a / (A + v N), its variance
// N / (A + v N).
inline void KinkSmoother::SmoothKinks(unsigned int k, unsigned int l,
                                      const KinkStates<KinkPair>& upstream) {
  const KinkStates<KinkPair>& up = upstream;
  const KinkStates<KinkPair> down =
      Both(fSegments[l].fDownstream, fSegments[std::min(l + 1, fNscat)].fDownstream);
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
  const auto set = [&](Plane& plane, int which) {
    plane.fAlpha = alpha[which];
    plane.fVarAlpha = variance[which];
    fChi2Beta += chi2[which];
  };
  set(fPlanes[PlaneAt(k)], 0);
  if (l < fNscat) set(fPlanes[PlaneAt(l)], 1);
}

void KinkSmoother::FitMeasurements() {
  double chi2 = 0;
  for (Measurement& meas : fMeas) {
    const Segment& line = fSegments[meas.fSegment];
    meas.fXfit = line.fX + line.fSlope * (meas.fZ - line.fZ);
    const double r = meas.fX - meas.fXfit;
    chi2 += r * r * meas.fW;
  }
  fChi2XI = chi2;
}

void KinkSmoother::NullResult() {
  fStatus = KinkStatus::kNotFitted;
  fX0 = fSlope = fChi2XI = fChi2Beta = 0;
  for (Measurement& meas : fMeas) meas.fXfit = 0;
  for (Plane& plane : fPlanes) plane.fAlpha = 0;
}

KinkStatus KinkSmoother::WhySingular() const {
  const Measurement* first = nullptr;
  bool finite = true, elsewhere = false, free = false;
  for (const Measurement& meas : fMeas) {
    if (meas.fW == 0) continue;
    finite = finite && std::isfinite(meas.fZ) && std::isfinite(meas.fX) && std::isfinite(meas.fW);
    if (!first) first = &meas;
    elsewhere = elsewhere || meas.fZ != first->fZ;
  }
  for (const Plane& plane : fPlanes) {
    finite = finite && std::isfinite(plane.fS) && std::isfinite(plane.fV);
    free = free || plane.fV == 0;
  }
  if (!first) return KinkStatus::kNoMeasurement;
  if (!finite) return KinkStatus::kNotFinite;
  if (!elsewhere) return KinkStatus::kOnePosition;
  return free ? KinkStatus::kFreeKink : KinkStatus::kNotFinite;
}

int KinkSmoother::NDOF() const {
  int ndof = -2;
  for (const Measurement& meas : fMeas)
    if (meas.fW > 0) ++ndof;
  for (const Plane& plane : fPlanes)
    if (!(plane.fV > 0)) --ndof;
  return ndof;
}

// The first segment whose end is not before z.
const KinkSmoother::Segment& KinkSmoother::SegmentAt(double z) const {
  const auto endsBefore = [](const Segment& segment, double at) { return segment.fEnd < at; };
  const auto found = std::lower_bound(fSegments.begin(), fSegments.end() - 1, z, endsBefore);
  return *found;
}

KinkPoint KinkSmoother::Segment::At(double z) const {
  const double d = z - fZ;
  return {fX + fSlope * d, fSlope, fVarX + d * d * fVarSlope, d * fVarSlope, fVarSlope};
}

KinkPoint KinkSmoother::At(double z) const {
  return Succeeded() ? SegmentAt(z).At(z) : kNoPoint;
}

KinkPoint KinkSmoother::AtStart() const {
  return Succeeded() ? fSegments[0].At(0) : kNoPoint;
}

double KinkSmoother::X(double z) const {
  if (!Succeeded()) return 0;
  const Segment& line = SegmentAt(z);
  return line.fX + line.fSlope * (z - line.fZ);
}

double KinkSmoother::Slope(double z) const {
  return Succeeded() ? SegmentAt(z).fSlope : 0;
}

} // namespace kelvo
