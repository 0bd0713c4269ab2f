#pragma once

#include <limits>

namespace kelvo {

/// What one side of the track knows of the straight line at hand, as two independent terms:
///   chi^2 = P (x(Z) - X)^2 + Q (slope - C / Q)^2 + constant.
/// Z is the place where position and slope are uncorrelated. The whole filter is written in these
/// five numbers because combining two states and crossing a scattering plane then only add
/// positive numbers to P, Q and their like, so nothing cancels however far the weights are apart.
/// The internal algebra of KinkSmoother; docs/linear-time-fit.md derives it.
struct KinkState {
  double fP = 0; ///< weight of the position at fZ [cm^-2]; 0 if nothing is known
  double fZ = 0; ///< where position and slope are independent [cm]; 0 if nothing is known
  double fX = 0; ///< position there [cm]
  double fQ = 0; ///< weight of the slope; 0 if only one position is known
  double fC = 0; ///< slope times its weight
};

/// Adds what b knows to what a knows of the same line. One of both must know something.
///   P = p + p',  g = p p' / P,  D = z' - z,  Q = q + q' + g D^2,  C = c + c' + g D (x' - x).
inline KinkState Merge(const KinkState& a, const KinkState& b) {
  const double p = a.fP + b.fP;
  const double share = b.fP / p;
  const double g = a.fP * share;
  const double dz = b.fZ - a.fZ;
  const double dx = b.fX - a.fX;
  return {p, a.fZ + share * dz, a.fX + share * dx, a.fQ + b.fQ + g * dz * dz,
          a.fC + b.fC + g * dz * dx};
}

/// The same where neither needs to know anything.
inline KinkState MergeAny(const KinkState& a, const KinkState& b) {
  return a.fP + b.fP == 0 ? KinkState{} : Merge(a, b);
}

/// Adds one measurement of weight w > 0.
inline void AddPosition(KinkState& a, double w, double z, double x) {
  a = a.fP > 0 ? Merge(a, {w, z, x, 0, 0}) : KinkState{w, z, x, 0, 0};
}

/// What CrossPlane gives: the knowledge before the plane, and the same beyond it.
struct Crossing {
  KinkState fBefore; ///< a and b merged
  KinkState fBeyond; ///< of the line on the other side of the plane
};

/// CrossPlane for merged knowledge of one position, or none, where the kink is free: beyond the
/// plane the position is known only if it was known at the plane itself.
inline Crossing CrossFreely(const KinkState& a, const KinkState& b, double s) {
  if (a.fP + b.fP == 0) return {};
  const KinkState before = Merge(a, b);
  if (before.fP != before.fP || before.fQ != before.fQ) return {before, before};
  if (before.fZ != s) return {before, {}};
  return {before, {before.fP, s, before.fX, 0, 0}};
}

/// Merges a and b and crosses the plane at s with a kink of weight v, in either direction: the
/// variance of the slope grows by 1 / v, the position at s stays. With d = s - Z, e = v + Q and
/// f = e + P d^2:
///   P' = P e / f,  Q' = Q v / e,  Z' = Z + d Q / e,  X' = X + d C / e,  C' = C v / e.
/// The three divisions, by P, P e and P f, do not wait for each other: this is the serial chain
/// of the fit, and their latency is most of its time.
inline Crossing CrossPlane(const KinkState& a, const KinkState& b, double s, double v) {
  const double p = a.fP + b.fP;
  const double dz = b.fZ - a.fZ;
  const double dx = b.fX - a.fX;
  const double pp = a.fP * b.fP;
  const double pQ = (a.fQ + b.fQ) * p + pp * dz * dz;
  const double pE = v * p + pQ;
  if (!(pE > 0)) return CrossFreely(a, b, s);
  const double pD = a.fP * (s - a.fZ) + b.fP * (s - b.fZ); // both terms have the same sign
  const double invP = 1 / p;
  const double invE = 1 / pE;
  const double invF = 1 / (pE + pD * pD);

  const double share = b.fP * invP;
  const double c = a.fC + b.fC + pp * invP * dz * dx;
  const KinkState before = {p, a.fZ + share * dz, a.fX + share * dx, pQ * invP, c};
  const double d = pD * invP;
  const double keep = v * p * invE; // the share of the slope's weight that the plane leaves
  const double lose = pQ * invE;
  // The shorter way to Z': a free kink must give exactly s, no slope knowledge exactly Z.
  const double z = lose < keep ? before.fZ + d * lose : s - d * keep;
  const double x = before.fX + d * (c * (p * invE));
  return {before, {p * pE * invF, z, x, before.fQ * keep, c * keep}};
}

} // namespace kelvo
