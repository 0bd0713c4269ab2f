#include "matter/DensityEffect.h"

#include <algorithm>
#include <cmath>

namespace matter {
namespace {

const double kTwoLn10 = 2 * std::log(10.);

struct Limits {
  double fX0, fX1;
};

Limits OfCondensed(double c, double excitation) {
  if (excitation < 100) return {c < 3.681 ? 0.2 : 0.326 * c - 1, 2};
  return {c < 5.215 ? 0.2 : 0.326 * c - 1.5, 3};
}

Limits OfGas(double c) {
  if (c < 12.25) return {c < 10 ? 1.6 : c < 10.5 ? 1.7 : c < 11 ? 1.8 : c < 11.5 ? 1.9 : 2., 4};
  return {c < 13.804 ? 2. : 0.326 * c - 2.5, 5};
}

} // namespace

double DensityEffect::Delta(double x) const {
  if (x < fX0) return fDelta0 > 0 ? fDelta0 * std::pow(10, 2 * (x - fX0)) : 0;
  const double far = kTwoLn10 * x - fC;
  return x < fX1 ? far + fA * std::pow(fX1 - x, fM) : far;
}

DensityEffect DensityEffect::AtDensityRatio(double ratio) const {
  const double shift = std::log10(ratio) / 2;
  DensityEffect shifted = *this;
  shifted.fC -= kTwoLn10 * shift;
  shifted.fX0 -= shift;
  shifted.fX1 -= shift;
  return shifted;
}

DensityEffect GeneralDensityEffect(double excitation, double plasmaEnergy, bool isGas) {
  const double c = 1 + 2 * std::log(excitation / plasmaEnergy);
  Limits limits = isGas ? OfGas(c) : OfCondensed(c, excitation);
  limits.fX1 = std::max(limits.fX1, limits.fX0 + 1); // of media too thin for the rule
  const double a = (c - kTwoLn10 * limits.fX0) / std::pow(limits.fX1 - limits.fX0, 3);
  return {c, limits.fX0, limits.fX1, a, 3, 0};
}

} // namespace matter
