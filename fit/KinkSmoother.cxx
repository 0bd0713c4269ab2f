#include "fit/KinkSmoother.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "func/KelvoException.h"

namespace kelvo {

namespace {

constexpr const char* kFile = "fit/KinkSmoother";
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

// Puts the indices in ascending order of position, equal positions in order of index. The order of
// the last fit is tried first: there is no other, so no result depends on what went before.
void SortByPosition(std::vector<unsigned int>& order, const std::vector<double>& position) {
  const auto before = [&position](unsigned int a, unsigned int b) {
    return position[a] < position[b] || (position[a] == position[b] && a < b);
  };
  if (std::is_sorted(order.begin(), order.end(), before)) return;
  std::iota(order.begin(), order.end(), 0u);
  if (!std::is_sorted(order.begin(), order.end(), before))
    std::sort(order.begin(), order.end(), before);
}

bool KnowsLine(const KinkState& a) {
  return a.fP > 0 && a.fQ > 0;
}

} // namespace

void KinkSmoother::Reset(unsigned int nmeas, unsigned int nscat) {
  if (!(nmeas > nscat)) throw KelvoException(kFile, __LINE__, kBadNScat, 0.0);
  fNmeas = nmeas;
  fNscat = nscat;
  for (auto* input : {&fZ, &fX, &fW, &fLoadedW}) input->assign(nmeas, 0.0);
  for (auto* input : {&fS, &fV}) input->assign(nscat, 0.0);
  fMeasOrder.resize(nmeas);
  std::iota(fMeasOrder.begin(), fMeasOrder.end(), 0u);
  fPlaneOrder.resize(nscat);
  std::iota(fPlaneOrder.begin(), fPlaneOrder.end(), 0u);
  fFirst.resize(std::size_t{nscat} + 2);
  fSegments.resize(std::size_t{nscat} + 1);
  fXfit.resize(nmeas);
  fAlpha.resize(nscat);
  fVarAlpha.resize(nscat);
  NullResult();
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
  fW[i] = factor * fLoadedW[i];
}

void KinkSmoother::Fit(double* x0, double* dxdz, double* alpha, double* chi2) {
  fLeftOut = false;
  Sort();
  FilterDownstream();
  if (SmoothUpstream()) {
    const bool finite = std::isfinite(fX0) && std::isfinite(fSlope) && std::isfinite(fChi2XI);
    fStatus = finite ? KinkStatus::kSucceeded : KinkStatus::kNotFinite;
  } else {
    const KinkStatus why = WhySingular();
    NullResult();
    fStatus = why;
    for (unsigned int i = 0; i < fNmeas; ++i) fChi2XI += Chi2XIi(i);
  }
  if (x0) *x0 = fX0;
  if (dxdz) *dxdz = fSlope;
  if (alpha) std::copy(fAlpha.begin(), fAlpha.end(), alpha);
  if (chi2) *chi2 = fChi2XI + fChi2Beta;
}

void KinkSmoother::Sort() {
  SortByPosition(fMeasOrder, fZ);
  SortByPosition(fPlaneOrder, fS);
  for (unsigned int k = 0; k < fNscat; ++k) {
    fSegments[k].fEnd = fS[fPlaneOrder[k]];
    fSegments[k].fV = fV[fPlaneOrder[k]];
  }
  fSegments[fNscat].fEnd = kInfinity;
}

// A measurement at the very position of a plane belongs upstream of it: it does not feel the kink.
void KinkSmoother::FilterDownstream() {
  KinkState upstream;
  unsigned int place = 0;
  for (unsigned int k = 0; k <= fNscat; ++k) {
    Segment& segment = fSegments[k];
    fFirst[k] = place;
    KinkState local;
    for (; place < fNmeas && fZ[fMeasOrder[place]] <= segment.fEnd; ++place) {
      const unsigned int i = fMeasOrder[place];
      if (fW[i] > 0) AddPosition(local, fW[i], fZ[i], fX[i]);
    }
    segment.fLocal = local;
    if (k == fNscat) {
      segment.fUpstream = MergeAny(upstream, local);
    } else {
      const Crossing crossing = CrossPlane(upstream, local, segment.fEnd, segment.fV);
      segment.fUpstream = crossing.fBefore;
      upstream = crossing.fBeyond;
    }
  }
  fFirst[fNscat + 1] = fNmeas;
}

bool KinkSmoother::SmoothUpstream() {
  fChi2XI = 0;
  fChi2Beta = 0;
  KinkState downstream;
  bool regular = SmoothSegment(fNscat, downstream);
  for (unsigned int k = fNscat; k > 0; --k) {
    const Segment& plane = fSegments[k - 1];
    const Crossing crossing = CrossPlane(downstream, fSegments[k].fLocal, plane.fEnd, plane.fV);
    SmoothKink(k - 1, crossing.fBefore);
    downstream = crossing.fBeyond;
    regular = SmoothSegment(k - 1, downstream) && regular;
  }
  const Segment& first = fSegments[0];
  fSlope = first.fSlope;
  fX0 = first.fX - first.fSlope * first.fZ;
  return regular;
}

// Both sides know the position at the plane: from upstream (p, z, x, q, c), from downstream
// (p', z', x', q', c'). With g = p p' / (p + p'), D = z' - z, E = x' - x, d = s - z, d' = s - z'
// their mismatch alone measures the kink as a / A with weight A / N:
//   N = q + q' + g D^2,  A = q q' + g (d^2 q' + d'^2 q),
//   a = (q c' - q' c) - g [d (q' E - c' D) + d' (q E - c D)].
// Together with the kink measured as 0 with weight v: alpha = a / (A + v N), variance N / (A + v
// N).
void KinkSmoother::SmoothKink(unsigned int k, const KinkState& downstream) {
  const Segment& segment = fSegments[k];
  const KinkState& up = segment.fUpstream;
  const KinkState& down = downstream;
  const double g = up.fP * (down.fP / (up.fP + down.fP));
  const double dz = down.fZ - up.fZ;
  const double dx = down.fX - up.fX;
  const double dUp = segment.fEnd - up.fZ;
  const double dDown = segment.fEnd - down.fZ;
  const double n = up.fQ + down.fQ + g * dz * dz;
  const double weight = up.fQ * down.fQ + g * (dUp * dUp * down.fQ + dDown * dDown * up.fQ);
  const double tilt = dUp * (down.fQ * dx - down.fC * dz) + dDown * (up.fQ * dx - up.fC * dz);
  const double inverse = 1 / (weight + segment.fV * n);
  const double alpha = (up.fQ * down.fC - down.fQ * up.fC - g * tilt) * inverse;
  const unsigned int j = fPlaneOrder[k];
  fAlpha[j] = alpha;
  fVarAlpha[j] = n * inverse;
  fChi2Beta += alpha * alpha * segment.fV;
}

bool KinkSmoother::SmoothSegment(unsigned int k, const KinkState& downstream) {
  Segment& segment = fSegments[k];
  const KinkState all = Merge(segment.fUpstream, downstream);
  segment.fZ = all.fZ;
  segment.fX = all.fX;
  segment.fVarX = 1 / all.fP;
  segment.fVarSlope = 1 / all.fQ;
  segment.fSlope = all.fC * segment.fVarSlope;
  for (unsigned int place = fFirst[k]; place < fFirst[k + 1]; ++place) {
    const unsigned int i = fMeasOrder[place];
    fXfit[i] = segment.fX + segment.fSlope * (fZ[i] - segment.fZ);
    fChi2XI += Chi2XIi(i);
  }
  return KnowsLine(all);
}

void KinkSmoother::NullResult() {
  fStatus = KinkStatus::kNotFitted;
  fX0 = fSlope = fChi2XI = fChi2Beta = 0;
  std::fill(fXfit.begin(), fXfit.end(), 0.0);
  std::fill(fAlpha.begin(), fAlpha.end(), 0.0);
  std::fill(fVarAlpha.begin(), fVarAlpha.end(), kUndefined);
}

KinkStatus KinkSmoother::WhySingular() const {
  bool any = false, finite = true, elsewhere = false;
  double z = 0;
  for (unsigned int i = 0; i < fNmeas; ++i) {
    if (fW[i] == 0) continue;
    finite = finite && std::isfinite(fZ[i]) && std::isfinite(fX[i]) && std::isfinite(fW[i]);
    elsewhere = elsewhere || (any && fZ[i] != z);
    z = fZ[i];
    any = true;
  }
  for (unsigned int j = 0; j < fNscat; ++j)
    finite = finite && std::isfinite(fS[j]) && std::isfinite(fV[j]);
  if (!any) return KinkStatus::kNoMeasurement;
  if (!finite) return KinkStatus::kNotFinite;
  if (!elsewhere) return KinkStatus::kOnePosition;
  const bool free = std::find(fV.begin(), fV.end(), 0.0) != fV.end();
  return free ? KinkStatus::kFreeKink : KinkStatus::kNotFinite;
}

int KinkSmoother::NDOF() const {
  int ndof = -2;
  for (const double w : fW)
    if (w > 0) ++ndof;
  for (const double v : fV)
    if (!(v > 0)) --ndof;
  return ndof;
}

// The first segment whose end is not before z.
const KinkSmoother::Segment& KinkSmoother::SegmentAt(double z) const {
  const auto endsBefore = [](const Segment& segment, double at) { return segment.fEnd < at; };
  const auto found = std::lower_bound(fSegments.begin(), fSegments.end() - 1, z, endsBefore);
  return *found;
}

KinkPoint KinkSmoother::At(double z) const {
  if (!Succeeded()) return {X(z), Slope(z), kUndefined, kUndefined, kUndefined};
  const Segment& line = SegmentAt(z);
  const double d = z - line.fZ;
  return {line.fX + line.fSlope * d, line.fSlope, line.fVarX + d * d * line.fVarSlope,
          d * line.fVarSlope, line.fVarSlope};
}

double KinkSmoother::X(double z) const {
  if (!Succeeded()) return 0;
  const Segment& line = SegmentAt(z);
  return line.fX + line.fSlope * (z - line.fZ);
}

double KinkSmoother::Slope(double z) const {
  return Succeeded() ? SegmentAt(z).fSlope : 0;
}

double KinkSmoother::Chi2XIi(unsigned int i) const {
  const double r = fX[i] - fXfit[i];
  return r * r * fW[i];
}

} // namespace kelvo
