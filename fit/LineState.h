#pragma once

#include "util/Lanes.h"

namespace kelvo {

/// The algebra of LaneSmoother. What is known of a straight line: position and slope with their
/// variances at the place where they are independent. As in KinkState.h, what is uncertain only
/// adds up, so nothing cancels however far the uncertainties are apart. Variances in place of
/// weights let all that scatters between two measurements be crossed at once, with one division.
/// What is unknown has a variance too large to matter.
struct LineState {
  Lanes fZ{};     ///< [cm]
  Lanes fX{};     ///< position there [cm]
  Lanes fSlope{}; ///< dx/dz
  Lanes fVarX{};  ///< [cm^2]
  Lanes fVarSlope{};
};

/// How scattering changes a line, in either direction: its slope, about fZ, and independently its
/// position there.
struct LineNoise {
  Lanes fZ{};    ///< [cm]
  Lanes fVarX{}; ///< [cm^2]
  Lanes fVarSlope{};
};

/// Returns what two thin planes do, whose kinks have these variances.
inline LineNoise TwoPlanes(double z1, const Lanes& var1, double z2, const Lanes& var2) {
  const double apart = z2 - z1;
  const Lanes sum = var1 + var2;
  const Lanes part = var2 / sum;
  return {z1 + part * apart, var1 * part * (apart * apart), sum};
}

/// Lets a line scatter. With d = s - Z for the noise's place s, slope variances a and w:
///   Z' = Z + d w / (a + w),  var X' = var X + noise + a d^2 w / (a + w).
inline void Scatter(const LineNoise& noise, LineState& line) {
  const Lanes d = noise.fZ - line.fZ;
  const Lanes slope = line.fVarSlope + noise.fVarSlope;
  const Lanes move = d * (noise.fVarSlope / slope);
  line.fZ += move;
  line.fX += line.fSlope * move;
  line.fVarX += noise.fVarX + line.fVarSlope * d * move;
  line.fVarSlope = slope;
}

/// What a measurement tells beside the line it is added to.
struct Innovation {
  Lanes fVariance; ///< of measured minus expected value [cm^2]
  Lanes fChi2;
};

/// Adds a measurement u at z to what is known. With d = z - Z, its variance r, b = var X, a the
/// variance of the slope, S = b + r + a d^2 and v = u - X - slope d:
///   Z' = Z + d b / (b + r),  X' = X + (u - X) b / (b + r),  b' = r b / (b + r),
///   slope' = slope + a d v / S,  a' = a (b + r) / S.
inline Innovation Measure(double z, double u, double variance, LineState& line) {
  const Lanes d = z - line.fZ;
  const Lanes dx = u - line.fX;
  const Lanes v = dx - line.fSlope * d;
  const Lanes position = line.fVarX + variance;
  const Lanes lever = line.fVarSlope * d;
  const Lanes all = position + lever * d;
  const Lanes both = 1 / (all * position); // one division for two
  const Lanes perAll = both * position;
  const Lanes part = line.fVarX * (both * all);
  line.fZ += part * d;
  line.fX += part * dx;
  line.fSlope += lever * v * perAll;
  line.fVarX = part * variance;
  line.fVarSlope *= position * perAll;
  return {all, v * v * perAll};
}

/// Returns what two independent pieces of knowledge of the same line give together.
inline LineState Merged(const LineState& a, const LineState& b) {
  const Lanes dz = b.fZ - a.fZ, dx = b.fX - a.fX;
  const Lanes position = a.fVarX + b.fVarX;
  const Lanes slopes = a.fVarSlope * b.fVarSlope;
  const Lanes all = (a.fVarSlope + b.fVarSlope) * position + slopes * dz * dz;
  const Lanes both = 1 / (all * position); // one division for two
  const Lanes perAll = both * position;
  const Lanes part = a.fVarX * (both * all);
  const Lanes slope =
      (a.fSlope * b.fVarSlope + b.fSlope * a.fVarSlope) * position + slopes * dz * dx;
  return {a.fZ + part * dz, a.fX + part * dx, slope * perAll, b.fVarX * part,
          slopes * position * perAll};
}

/// What a kink is measured to be by the lines on both sides of it, which meet at z.
struct MeasuredKink {
  Lanes fKink, fVariance;
};

/// With d = z - Z on each side and T the variance of the distance E of both lines at z:
///   kink = slope' - slope - E (a d + a' d') / T,
///   variance = ((a + a') (b + b') + a a' (d - d')^2) / T.
inline MeasuredKink KinkBetween(const LineState& up, const LineState& down, double z) {
  const Lanes dUp = z - up.fZ, dDown = z - down.fZ;
  const Lanes leverUp = up.fVarSlope * dUp, leverDown = down.fVarSlope * dDown;
  const Lanes position = up.fVarX + down.fVarX;
  const Lanes distance = down.fX + down.fSlope * dDown - (up.fX + up.fSlope * dUp);
  const Lanes perAll = 1 / (position + leverUp * dUp + leverDown * dDown);
  const Lanes apart = dUp - dDown;
  return {
      down.fSlope - up.fSlope - distance * (leverUp + leverDown) * perAll,
      ((up.fVarSlope + down.fVarSlope) * position + up.fVarSlope * down.fVarSlope * apart * apart) *
          perAll};
}

} // namespace kelvo
