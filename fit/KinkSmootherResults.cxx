// What a KinkSmoother tells on request, beyond the results of its Fit.
#include <cmath>
#include <limits>

#include "fit/KinkFilter.h"

namespace kelvo {

namespace {

constexpr double kLogTwoPi = 1.8378770664093454836; // log(2 pi)
constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

/// The logarithm of a long product, at the price of few logarithms.
class LogProduct {
public:
  void Multiply(double factor) {
    fProduct *= factor;
    if (fProduct > 1e-150 && fProduct < 1e150) return;
    fLog += std::log(fProduct);
    fProduct = 1;
  }
  double Log() const { return fLog + std::log(fProduct); }

private:
  double fProduct = 1;
  double fLog = 0;
};

/// A quantity's covariance with position and slope of the track at one z.
struct CovarianceWith {
  double fX;
  double fSlope;
};

/// What the knowledge a at d = Z - s takes back when the line turns about its position at a plane:
/// the slope beyond the plane follows from position and slope before it, up to independent noise,
/// as
///   (v slope - P d x) / E,  E = v + Q + P d^2.
struct Turn {
  Turn(const KinkState& a, double s, double v)
      : fV(v), fPull(a.fP * (a.fZ - s)), fHold(a.fQ + fPull * (a.fZ - s)), fE(v + fHold) {}
  double Kink(const CovarianceWith& c) const { return -(fHold * c.fSlope + fPull * c.fX) / fE; }
  double Slope(const CovarianceWith& c) const { return (fV * c.fSlope - fPull * c.fX) / fE; }

  double fV;    // weight of the kink
  double fPull; // P d
  double fHold; // Q + P d^2
  double fE;
};

} // namespace

double KinkSmoother::VarKink(unsigned int j) const {
  return Succeeded() ? fPlanes[j].fVarAlpha : kUndefined;
}

KinkResidual KinkSmoother::Residual(unsigned int i) const {
  if (!Succeeded())
    return {kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined};
  const Measurement& meas = fMeas[i];
  const Filter::Others& others = fFilter->WithoutOne(i, fMeas);
  const double variance = 1 / LoadedW(i) + others.fVar;
  const double biased = meas.fX - meas.fXfit;
  if (std::isinf(others.fVar)) return {biased, 0, 0, variance, 0, 1, Chi2XIi(i)};
  // With the leverage h: biased = (1 - h) unbiased. Written so that 1 - h does not cancel.
  const double unbiased = meas.fX - others.fX;
  const double kept = 1 / (1 + meas.fW * others.fVar);
  return {biased,    kept * kept * variance,         unbiased,
          variance,  unbiased / std::sqrt(variance), meas.fW * others.fVar * kept,
          Chi2XIi(i)};
}

/// log det A = sum_k log f_k + log(P Q) of the last segment: the filter eliminates one slope per
/// plane, of weight f_k = v_k + Q + P (s_k - Z)^2, and is left with the last position and slope.
double KinkSmoother::LogLikelihood() const {
  if (!Succeeded()) return kUndefined;
  LogProduct determinant;
  for (unsigned int k = 0; k < fNscat; k++) {
    const Filter::Segment& segment = fFilter->At(k);
    const KinkState upstream = fFilter->Upstream(k);
    const double d = segment.fEnd - upstream.fZ;
    const double f = segment.fV + upstream.fQ + upstream.fP * d * d;
    determinant.Multiply(segment.fV > 0 ? f / segment.fV : f);
  }
  determinant.Multiply(fFilter->Upstream(fNscat).fP);
  determinant.Multiply(fFilter->Upstream(fNscat).fQ);
  for (const Measurement& meas : fMeas)
    if (meas.fW > 0) determinant.Multiply(1 / meas.fW);
  return -0.5 * (fChi2XI + fChi2Beta + determinant.Log() + NDOF() * kLogTwoPi);
}

/// The track given all measurements is a Markov process too: beyond each plane its slope depends on
/// what lies before only through the state there (Turn). So the covariance of any quantity with the
/// state is carried from plane to plane in constant time, and gives that with each kink on the way.
TMatrixDSym KinkSmoother::Covariance() const {
  const int size = static_cast<int>(fNscat) + 2;
  TMatrixDSym c(size);
  double* element = c.GetMatrixArray();
  const auto set = [element, size](std::size_t p, std::size_t q, double value) {
    element[p * static_cast<std::size_t>(size) + q] = value;
    element[q * static_cast<std::size_t>(size) + p] = value;
  };
  if (!Succeeded()) {
    c = kUndefined;
    return c;
  }

  std::vector<Turn> downstream; // at plane k, by what lies beyond; in reverse order
  downstream.reserve(fNscat);
  KinkState beyond;
  for (unsigned int k = fNscat; k-- > 0;) {
    const Filter::Segment& plane = fFilter->At(k);
    const KinkState known = MergeAny(beyond, fFilter->Local(k + 1));
    downstream.emplace_back(known, plane.fEnd, plane.fV);
    beyond = CrossPlane(known, {}, plane.fEnd, plane.fV).fBeyond;
  }
  // Carries c, valid at plane k, to all planes from k on.
  const auto carry = [this, &downstream, &set](CovarianceWith with, unsigned int k,
                                               std::size_t row) {
    for (; k < fNscat; k++) {
      const Turn& turn = downstream[fNscat - 1 - k];
      set(row, std::size_t{fFilter->PlaneAt(k)} + 2, turn.Kink(with));
      with.fSlope = turn.Slope(with);
      if (k + 1 < fNscat) with.fX += with.fSlope * (fFilter->At(k + 1).fEnd - fFilter->At(k).fEnd);
    }
  };

  const Filter::Segment& first = fFilter->At(0);
  set(0, 0, first.fVarX + first.fZ * first.fZ * first.fVarSlope);
  set(0, 1, -first.fZ * first.fVarSlope);
  set(1, 1, first.fVarSlope);
  if (fNscat == 0) return c;
  const double d = first.fEnd - first.fZ;
  carry({first.fVarX - d * first.fZ * first.fVarSlope, -first.fZ * first.fVarSlope}, 0, 0);
  carry({d * first.fVarSlope, first.fVarSlope}, 0, 1);
  for (unsigned int k = 0; k < fNscat; k++) {
    const std::size_t row = std::size_t{fFilter->PlaneAt(k)} + 2;
    set(row, row, fPlanes[fFilter->PlaneAt(k)].fVarAlpha);
    if (k + 1 == fNscat) break;
    // Seen from beyond the plane the kink turns the other way, against what lies upstream.
    const Filter::Segment& next = fFilter->At(k + 1);
    const double s = fFilter->At(k).fEnd;
    const double lever = s - next.fZ;
    const double covXSlope = lever * next.fVarSlope;
    const Turn back(fFilter->Upstream(k), s, fFilter->At(k).fV);
    CovarianceWith with{-back.Kink({next.fVarX + lever * covXSlope, covXSlope}),
                        -back.Kink({covXSlope, next.fVarSlope})};
    with.fX += with.fSlope * (next.fEnd - s);
    carry(with, k + 1, row);
  }
  return c;
}

} // namespace kelvo
