#include "fit/KinkSmoother.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "fit/KinkFilter.h"
#include "func/KelvoException.h"

namespace kelvo {

namespace {

constexpr const char* kFile = "fit/KinkSmoother";
constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();
constexpr KinkPoint kNoPoint = {0, 0, kUndefined, kUndefined, kUndefined};

} // namespace

KinkSmoother::KinkSmoother(unsigned int nmeas, unsigned int nscat)
    : fFilter(std::make_unique<Filter>()) {
  Reset(nmeas, nscat);
}

KinkSmoother::KinkSmoother(const KinkSmoother& other) : KinkSmoother(1, 0) {
  *this = other;
}

KinkSmoother& KinkSmoother::operator=(const KinkSmoother& other) {
  fNmeas = other.fNmeas;
  fNscat = other.fNscat;
  fMeas = other.fMeas;
  fPlanes = other.fPlanes;
  fLoadedW = other.fLoadedW;
  *fFilter = *other.fFilter;
  fX0 = other.fX0;
  fSlope = other.fSlope;
  fChi2XI = other.fChi2XI;
  fChi2Beta = other.fChi2Beta;
  fStatus = other.fStatus;
  return *this;
}

KinkSmoother::~KinkSmoother() = default;

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
  fNmeas = nmeas;
  fNscat = nscat;
  fMeas.resize(nmeas);
  fPlanes.resize(nscat);
  fLoadedW.clear();
  fFilter->Resize(nscat);
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
  const bool regular = fFilter->Solve(fMeas, fPlanes);
  const Filter::Segment& first = fFilter->At(0);
  fSlope = first.fSlope;
  fX0 = first.fX - first.fSlope * first.fZ;
  fChi2Beta = fFilter->Chi2Beta();
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

void KinkSmoother::FitMeasurements() {
  double chi2 = 0;
  for (Measurement& meas : fMeas) {
    const Filter::Segment& line = fFilter->At(meas.fSegment);
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

KinkPoint KinkSmoother::At(double z) const {
  return Succeeded() ? fFilter->SegmentAt(z).At(z) : kNoPoint;
}

KinkPoint KinkSmoother::Between(unsigned int k, double z) const {
  return Succeeded() ? fFilter->At(k).At(z) : kNoPoint;
}

KinkPoint KinkSmoother::AtStart() const {
  return Succeeded() ? fFilter->At(0).At(0) : kNoPoint;
}

double KinkSmoother::X(double z) const {
  if (!Succeeded()) return 0;
  const Filter::Segment& line = fFilter->SegmentAt(z);
  return line.fX + line.fSlope * (z - line.fZ);
}

double KinkSmoother::Slope(double z) const {
  return Succeeded() ? fFilter->SegmentAt(z).fSlope : 0;
}

} // namespace kelvo
