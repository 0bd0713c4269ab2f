#include "matter/ShellCorrection.h"

#include "matter/Constants.h"
#include "matter/Interpolation.h"
#include "matter/ShellTables.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace matter {
namespace {

using namespace shelltables;

// Factors on eta for the N shell and for all electrons further out. They are a choice: of the size
// of the L shell's binding energy over theirs, in lead 14 keV over 0.7 and 0.1 keV, and such that
// slow protons lose in heavy elements what is published. Outer electrons matter little: their
// factor may be 60 or 400; that of the N shell, if halved or doubled, moves protons of 10 MeV in
// heavy elements by 1 %.
constexpr double kScaleN = 20;
constexpr double kScaleO = 150;

double Square(double x) {
  return x * x;
}

// C(theta, eta) of the K shell at a row of theta and a column of eta.
struct KShell {
  static constexpr const auto& kTheta = kKTheta;
  static constexpr const auto& kEta = kKEta;
  static double At(std::size_t i, std::size_t j) {
    return kKS[i] * std::log(kEta[j]) + kKT[i] - kKB[i][j];
  }
  // U/eta + V/eta^2 + W/eta^3 with the W that continues the last column.
  static double Above(std::size_t i, double eta) {
    const double last = *std::rbegin(kEta);
    const double rest = At(i, std::size(kEta) - 1) - (kKU[i] + kKV[i] / last) / last;
    return (kKU[i] + kKV[i] / eta) / eta + rest * std::pow(last / eta, 3);
  }
};

struct LShell {
  static constexpr const auto& kTheta = kLTheta;
  static constexpr const auto& kEta = kLEta;
  static double At(std::size_t i, std::size_t j) {
    return kLS[i] * std::log(kEta[j]) + kLT[i] - kLB[i][j];
  }
  // U/eta + V/eta^2 with the V that continues the last column.
  static double Above(std::size_t i, double eta) {
    const double last = *std::rbegin(kEta);
    const double rest = At(i, std::size(kEta) - 1) - kLU[i] / last;
    return kLU[i] / eta + rest * Square(last / eta);
  }
};

template <class Shell>
double ShellFunction(double theta, double eta) {
  const Between row = FindBetween(Shell::kTheta, theta);
  if (eta > *std::rbegin(Shell::kEta))
    return (1 - row.fF) * Shell::Above(row.fI, eta) + row.fF * Shell::Above(row.fI + 1, eta);
  const Between column = FindBetween(Shell::kEta, eta);
  const auto along = [&column](std::size_t i) {
    return (1 - column.fF) * Shell::At(i, column.fI) + column.fF * Shell::At(i, column.fI + 1);
  };
  return (1 - row.fF) * along(row.fI) + row.fF * along(row.fI + 1);
}

// b = (beta/alpha)^2. Hydrogen has half a K shell and no screening.
double OfK(int z, double b) {
  const double charge2 = z == 1 ? 1 : Square(z - 0.3);
  const double theta = z > 11 ? Linear(kThetaK, FindBetween(kThetaKZ, z))
                              : charge2 * (1 + charge2 * Square(kAlpha) / 4);
  return (z == 1 ? 0.5 : 1) * ShellFunction<KShell>(theta, b / charge2);
}

// The subshells 2s and 2p1/2, then 2p3/2, and the electrons further out, shell by shell.
double OfLAndOuter(int z, double b) {
  const int last = static_cast<int>(std::size(kScreeningL)) - 1;
  const double charge2 = Square(z - kScreeningL[std::min(z, last)]);
  const double eta = b / charge2;
  const double inner = std::min(z - 2, 4), outer = std::clamp(z - 6, 0, 4);
  double thetaInner = charge2 / 4 * (1 + 5 * charge2 * Square(kAlpha) / 16);
  double thetaOuter = charge2 / 4 * (1 + charge2 * Square(kAlpha) / 16);
  if (z > 15) thetaInner = thetaOuter = Linear(kThetaL, FindBetween(kThetaLZ, z));
  double c = inner / 8 * ShellFunction<LShell>(thetaInner, eta) +
             outer / 8 * ShellFunction<LShell>(thetaOuter, eta);
  if (z <= 10) return c;
  const int row = std::min(z - 11, static_cast<int>(std::size(kScaleM)) - 1);
  const double theta = (inner * thetaInner + outer * thetaOuter) / (inner + outer);
  const auto add = [&](int electrons, double scale) {
    if (electrons > 0) c += electrons / 8. * ShellFunction<LShell>(theta, scale * eta);
  };
  add(std::min(z - 10, 18), kScaleM[row]); // M
  add(std::min(z - 28, 32), kScaleN);
  add(z - 60, kScaleO);
  return c;
}

} // namespace

double ShellCorrection(const Element& element, double beta) {
  const double b = Square(beta / kAlpha);
  const double c = OfK(element.fZ, b) + (element.fZ > 2 ? OfLAndOuter(element.fZ, b) : 0);
  return c / element.fZ;
}

} // namespace matter
