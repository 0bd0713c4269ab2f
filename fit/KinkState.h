#pragma once

namespace kelvo {

/// Two numbers calculated side by side, for two states at once.
using KinkPair = double __attribute__((vector_size(2 * sizeof(double))));

/// What one side of the track knows of the straight line at hand, as two independent terms:
///   chi^2 = P (x(Z) - X)^2 + Q (slope - C / Q)^2 + constant.
/// Z is the place where position and slope are uncorrelated. The whole filter is written in these
/// five numbers because combining two states and crossing a scattering plane then only add
/// positive numbers to P, Q and their like, so nothing cancels however far the weights are apart.
/// The internal algebra of KinkSmoother; docs/linear-time-fit.md derives it. Real is double, or
/// KinkPair for two states at once with the same bits.
template <class Real>
struct KinkStates {
  Real fP{}; ///< weight of the position at fZ [cm^-2]; 0 if nothing is known
  Real fZ{}; ///< where position and slope are independent [cm]; 0 if nothing is known
  Real fX{}; ///< position there [cm]
  Real fQ{}; ///< weight of the slope; 0 if only one position is known
  Real fC{}; ///< slope times its weight
};
using KinkState = KinkStates<double>;

/// Puts two states side by side.
inline KinkStates<KinkPair> Both(const KinkState& a, const KinkState& b) {
  return {KinkPair{a.fP, b.fP}, KinkPair{a.fZ, b.fZ}, KinkPair{a.fX, b.fX}, KinkPair{a.fQ, b.fQ},
          KinkPair{a.fC, b.fC}};
}

/// Takes the first (0) or the second (1) of two states.
inline KinkState One(const KinkStates<KinkPair>& both, int which) {
  return {both.fP[which], both.fZ[which], both.fX[which], both.fQ[which], both.fC[which]};
}

/// Lets two states change places.
inline KinkStates<KinkPair> Swapped(const KinkStates<KinkPair>& both) {
  const auto swap = [](KinkPair pair) { return KinkPair{pair[1], pair[0]}; };
  return {swap(both.fP), swap(both.fZ), swap(both.fX), swap(both.fQ), swap(both.fC)};
}

/// Adds what b knows to what a knows of the same line. One of both must know something.
///   P = p + p',  g = p p' / P,  D = z' - z,  Z = z + p' / P D,  X = x + p' / P (x' - x),
///   Q = q + q' + g D^2,  C = c + c' + g D (x' - x).
template <class Real>
inline KinkStates<Real> Merge(const KinkStates<Real>& a, const KinkStates<Real>& b) {
  const Real p = a.fP + b.fP;
  const Real fraction = b.fP * (1 / p);
  const Real dz = b.fZ - a.fZ;
  const Real dx = b.fX - a.fX;
  const Real lever = a.fP * fraction * dz;
  return {p, a.fZ + fraction * dz, a.fX + fraction * dx, a.fQ + b.fQ + lever * dz,
          a.fC + b.fC + lever * dx};
}

/// The same where neither needs to know anything.
inline KinkState MergeAny(const KinkState& a, const KinkState& b) {
  if (a.fP + b.fP == 0) return {};
  return Merge(a, b);
}

/// A state to which measurements are added one after the other, position and measured value side by
/// side.
class KinkSum {
public:
  KinkSum() = default;
  KinkSum(const KinkState& a) : fP(a.fP), fZX{a.fZ, a.fX}, fQC{a.fQ, a.fC} {}
  operator KinkState() const { return {fP, fZX[0], fZX[1], fQC[0], fQC[1]}; }

  /// Adds one of weight w > 0: the same as Merge with a state that knows one position.
  void Add(double w, double z, double x) {
    const KinkPair zx = {z, x};
    if (fP == 0) {
      fP = w;
      fZX = zx;
      return;
    }
    const double p = fP + w;
    const double fraction = w * (1 / p);
    const KinkPair d = zx - fZX;
    const double lever = fP * fraction * d[0];
    fP = p;
    fZX += fraction * d;
    fQC += lever * d;
  }

private:
  double fP = 0;
  KinkPair fZX = {0, 0};
  KinkPair fQC = {0, 0};
};

/// What crossing a plane gives.
template <class Real>
struct KinkCrossings {
  KinkStates<Real> fBefore; ///< what is known before the plane
  KinkStates<Real> fBeyond; ///< what that says of the line beyond it
};

/// P e of CrossPlane; the formulas there hold if this and v are above 0.
template <class Real>
inline Real CrossingWeight(const KinkStates<Real>& a, const KinkStates<Real>& b, Real v) {
  const Real dz = b.fZ - a.fZ;
  return (a.fQ + (b.fQ + v)) * (a.fP + b.fP) + a.fP * b.fP * dz * dz;
}

/// Merges a and b and crosses the plane at s with a kink of weight v, in either direction: the
/// variance of the slope grows by 1 / v, the position at s stays. With d = s - Z, e = v + Q and
/// f = e + P d^2:
///   P' = P e / f,  Z' = Z + d Q / e,  X' = X + d C / e,  Q' = Q v / e,  C' = C v / e.
/// The three divisions, by P, P e and P f, do not wait for each other: this is the serial chain
/// of the fit, and their latency is most of its time.
template <class Real>
inline KinkCrossings<Real> CrossRegularPlane(const KinkStates<Real>& a, const KinkStates<Real>& b,
                                             Real s, Real v, Real pE) {
  const Real p = a.fP + b.fP;
  const Real pD = a.fP * (s - a.fZ) + b.fP * (s - b.fZ); // both terms have the same sign
  const Real invP = 1 / p;
  const Real invE = 1 / pE;
  const Real invF = 1 / (pE + pD * pD);

  const Real dz = b.fZ - a.fZ;
  const Real dx = b.fX - a.fX;
  const Real pp = a.fP * b.fP;
  const Real pQ = (a.fQ + b.fQ) * p + pp * dz * dz;
  const Real fraction = b.fP * invP;
  const Real z = a.fZ + fraction * dz;
  const Real x = a.fX + fraction * dx;
  const Real q = pQ * invP;
  const Real c = a.fC + b.fC + pp * invP * dz * dx;
  const Real keep = v * p * invE;
  return {{p, z, x, q, c},
          {p * pE * invF, z + pD * q * invE, x + pD * invE * c, keep * q, keep * c}};
}

/// The same for a free kink, or where nothing is known: beyond the plane only the position at s is
/// known, and nothing if before it no slope is. (A single position at s itself would survive, but
/// then no measurement fixes the slope before the plane and the problem is singular anyway.)
inline KinkCrossings<double> CrossFreely(const KinkState& a, const KinkState& b, double s) {
  const KinkState before = MergeAny(a, b);
  if (before.fQ == 0) return {before, {}};
  const double d = s - before.fZ;
  const double p = before.fP / (1 + before.fP * (d * d / before.fQ));
  return {before, {p, s, before.fX + d * (before.fC / before.fQ), 0, 0}};
}

/// The same for any plane.
inline KinkCrossings<double> CrossPlane(const KinkState& a, const KinkState& b, double s,
                                        double v) {
  const double pE = CrossingWeight(a, b, v);
  if (!(pE > 0 && v > 0)) return CrossFreely(a, b, s);
  return CrossRegularPlane(a, b, s, v, pE);
}

/// CrossPlane for two states that are side by side. What is known comes number by number: in
/// registers, where a call for a rare plane would have all others write it to memory.
[[gnu::noinline, gnu::cold]] inline KinkCrossings<KinkPair> CrossBoth(
    KinkPair p, KinkPair z, KinkPair x, KinkPair q, KinkPair c, const KinkState& b0,
    const KinkState& b1, KinkPair s, KinkPair v) {
  const KinkStates<KinkPair> a = {p, z, x, q, c};
  const KinkCrossings<double> one = CrossPlane(One(a, 0), b0, s[0], v[0]);
  const KinkCrossings<double> other = CrossPlane(One(a, 1), b1, s[1], v[1]);
  return {Both(one.fBefore, other.fBefore), Both(one.fBeyond, other.fBeyond)};
}

} // namespace kelvo
