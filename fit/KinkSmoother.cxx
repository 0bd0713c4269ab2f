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

void KinkSmoother::Reset(unsigned int nmeas, unsigned int nscat) {
  Resize(nmeas, nscat);
  std::memset(fMeas.data(), 0, nmeas * sizeof(Measurement)); // the bytes of 0.0 are 0
  std::fill(fPlanes.begin(), fPlanes.end(), Plane{});
}

void KinkSmoother::Load(unsigned int nmeas, const double* z, const double* x, const double* sigx,
                        unsigned int nscat, const double* s, const double* sigAlpha) {
  Resize(nmeas, nscat);
  for (unsigned int i = 0; i < nmeas; i++) {
    if (!IsMeasurement(z[i], x[i], sigx[i])) {
      Reset(nmeas, nscat);
      ThrowBadMeasurement(z[i], x[i], sigx[i]);
    }
    const double w = 1 / (sigx[i] * sigx[i]);
    Measurement& meas = fMeas[i];
    meas.fZ = z[i];
    meas.fX = x[i];
    meas.fW = w;
    meas.fXfit = 0;
  }
  for (unsigned int j = 0; j < nscat; j++) {
    if (!IsPlane(s[j], sigAlpha[j])) {
      Reset(nmeas, nscat);
      ThrowBadPlane(s[j], sigAlpha[j]);
    }
    Plane& plane = fPlanes[j];
    plane.fS = s[j];
    plane.fV = 1 / (sigAlpha[j] * sigAlpha[j]);
    plane.fAlpha = 0;
  }
}

void KinkSmoother::Resize(unsigned int nmeas, unsigned int nscat) {
  if (!(nmeas > nscat)) throw KelvoException(kFile, __LINE__, kBadNScat, 0.0);
  fNmeas = nmeas;
  fNscat = nscat;
  fMeas.resize(nmeas);
  fPlanes.resize(nscat);
  fLoadedW.clear();
  fMeasOrder.clear();
  fPlaneOrder.clear();
  fSegments.resize(std::size_t{nscat} + 1);
  fLocal.resize(std::size_t{nscat} + 1);
  fBoth.resize(std::size_t{nscat} + 1);
  fBehind.resize(std::size_t{nscat} / 2 + 1);
  fStatus = KinkStatus::kNotFitted;
  fX0 = fSlope = fChi2XI = fChi2Beta = 0;
}

void KinkSmoother::ThrowIndexProblem() const {
  throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
}

void KinkSmoother::ThrowBadMeasurement(double z, double x, double sigx) const {
  if (std::isnan(z) || std::isnan(x) || std::isnan(sigx))
    throw KelvoException(kFile, __LINE__, kNaN, 0.0);
  throw KelvoException(kFile, __LINE__, kBadSigX, sigx);
}

void KinkSmoother::ThrowBadPlane(double z, double sigAlpha) const {
  if (std::isnan(z) || std::isnan(sigAlpha)) throw KelvoException(kFile, __LINE__, kNaN, 0.0);
  throw KelvoException(kFile, __LINE__, kBadSigSJ, sigAlpha);
}

void KinkSmoother::SetWeightFactor(unsigned int i, double factor) {
  if (i >= fNmeas) ThrowIndexProblem();
  if (!(factor >= 0 && factor <= 1)) throw KelvoException(kFile, __LINE__, kIndexProblem, factor);
  if (fLoadedW.empty()) {
    fLoadedW.reserve(fNmeas);
    for (const Measurement& meas : fMeas) fLoadedW.push_back(meas.fW);
  }
  fMeas[i].fW = factor * fLoadedW[i];
}

void KinkSmoother::Fit(double* x0, double* dxdz, double* alpha, double* chi2) {
  fOthersKnown = false;
  if (!fMeasOrder.empty() || !InOrder()) {
    SortBy(&Measurement::fZ, fMeas, fMeasOrder);
    SortBy(&Plane::fS, fPlanes, fPlaneOrder);
  }
  PlaceSegments();
  const bool regular = Solve();
  FitMeasurements();
  if (regular && std::isfinite(fChi2XI + fChi2Beta + fX0)) {
    fStatus = KinkStatus::kSucceeded;
  } else {
    NullResult();
    fStatus = regular ? KinkStatus::kNotFinite : WhySingular();
    for (unsigned int i = 0; i < fNmeas; i++) fChi2XI += Chi2XIi(i);
  }
  if (x0) *x0 = fX0;
  if (dxdz) *dxdz = fSlope;
  if (alpha)
    for (const Plane& plane : fPlanes) *alpha++ = plane.fAlpha;
  if (chi2) *chi2 = fChi2XI + fChi2Beta;
}

bool KinkSmoother::InOrder() const {
  return std::is_sorted(fMeas.begin(), fMeas.end(),
                        [](const Measurement& a, const Measurement& b) { return a.fZ < b.fZ; }) &&
         std::is_sorted(fPlanes.begin(), fPlanes.end(),
                        [](const Plane& a, const Plane& b) { return a.fS < b.fS; });
}

void KinkSmoother::PlaceSegments() {
  for (unsigned int k = 0; k < fNscat; k++) {
    const Plane& plane = fPlanes[PlaneAt(k)];
    fSegments[k].fEnd = plane.fS;
    fSegments[k].fV = plane.fV;
  }
  fSegments[fNscat].fEnd = kInfinity;
}

/// A measurement at the very position of a plane belongs upstream of it: it does not feel the kink.
inline void KinkSmoother::GatherDownstream(unsigned int k, const unsigned int* order,
                                           unsigned int& place) {
  KinkSum local;
  const double end = fSegments[k].fEnd;
  for (; place < fNmeas; place++) {
    Measurement& meas = fMeas[order ? order[place] : place];
    if (meas.fZ > end) break;
    meas.fSegment = k;
    if (meas.fW > 0) local.Add(meas.fW, meas.fZ, meas.fX);
  }
  fLocal[k] = local;
}

inline void KinkSmoother::GatherUpstream(unsigned int k, const unsigned int* order,
                                         unsigned int& place) {
  KinkSum local;
  const double begin = fSegments[k - 1].fEnd;
  for (; place > 0; place--) {
    Measurement& meas = fMeas[order ? order[place - 1] : place - 1];
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
bool KinkSmoother::Solve() {
  const unsigned int m = fNscat;
  const unsigned int* order = fMeasOrder.empty() ? nullptr : fMeasOrder.data();
  unsigned int next = 0;
  unsigned int last = fNmeas;
  const auto gather = [&](unsigned int k) {
    if (2 * k <= m) GatherDownstream(k, order, next);
    if (2 * k < m) GatherUpstream(m - k, order, last);
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
    regular = Smooth(k - 1) && regular;
  }
  if (m > 0) regular = Smooth(m - 1) && regular;
  fBoth[m] = Both(MergeAny(One(known, 0), fLocal[m]), MergeAny(One(known, 1), fLocal[0]));
  regular = SmoothLines(m) && regular;
  const Segment& first = fSegments[0];
  fSlope = first.fSlope;
  fX0 = first.fX - first.fSlope * first.fZ;
  return regular;
}

/// Takes what is known behind the segments where the fronts are after k planes, returns what is
/// known behind the next ones. Inlined, or the states would go through memory in the middle of the
/// chain.
[[gnu::always_inline]] inline KinkStates<KinkPair> KinkSmoother::CrossTwoPlanes(
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
inline bool KinkSmoother::Smooth(unsigned int k) {
  SmoothKinks(k);
  return 2 * k < fNscat || SmoothLines(k);
}

inline bool KinkSmoother::SmoothLines(unsigned int k) {
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
inline void KinkSmoother::SmoothKinks(unsigned int k) {
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
  Plane& first = fPlanes[PlaneAt(k)];
  first.fAlpha = alpha[0];
  first.fVarAlpha = variance[0];
  fChi2Beta += chi2[0];
  if (l == k) return;
  Plane& second = fPlanes[PlaneAt(l)];
  second.fAlpha = -alpha[1];
  second.fVarAlpha = variance[1];
  fChi2Beta += chi2[1];
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
    if (meas.fW > 0) ndof++;
  for (const Plane& plane : fPlanes)
    if (!(plane.fV > 0)) ndof--;
  return ndof;
}

/// The first segment whose end is not before z.
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
