#include "matter/RadiationLoss.h"

#include "matter/Constants.h"
#include "matter/Quadrature.h"

#include <algorithm>
#include <cmath>

namespace matter {
namespace {

const double kSqrtE = std::exp(0.5);

// A particle in the field of an atom: masses and energies in MeV.
struct Encounter {
  double fZ, fA;
  double fMass;
  double fEnergy; // with the mass
  bool fSpinHalf;
};

double Screening(const Encounter& e) {
  return (e.fZ == 1 ? 202.4 : 183.) / std::cbrt(e.fZ);
}

// eps dsigma/deps [cm2] of photons of energy eps.
double PhotonLoss(const Encounter& e, double eps) {
  const double v = eps / e.fEnergy;
  const double delta = e.fMass * e.fMass * v / (2 * (e.fEnergy - eps)); // momentum transfer
  double size = 1.54 * std::pow(e.fA, 0.27);
  if (e.fZ > 1) size = std::pow(size, 1 - 1 / e.fZ);
  const double b = Screening(e);
  const double nucleus = std::log(b * (e.fMass + delta * (size * kSqrtE - 2)) /
                                  (size * (kElectronMass + delta * kSqrtE * b)));
  const double c = (e.fZ == 1 ? 446. : 1429.) / std::cbrt(e.fZ * e.fZ);
  const double recoil = 1 + delta * e.fMass / (kElectronMass * kElectronMass * kSqrtE);
  const bool allowed = eps < e.fEnergy / (1 + e.fMass * e.fMass / (2 * kElectronMass * e.fEnergy));
  const double electrons =
      allowed ? std::log(c * e.fMass / (recoil * (kElectronMass + delta * kSqrtE * c))) : 0;
  const double radius = kElectronRadius * kElectronMass / e.fMass;
  return 16. / 3 * kAlpha * radius * radius * e.fZ *
         (e.fZ * std::max(nucleus, 0.) + std::max(electrons, 0.)) *
         (1 - v + (e.fSpinHalf ? 0.75 * v * v : 0));
}

double BremsstrahlungLoss(const Encounter& e) {
  constexpr int kSteps = 4;
  const double max = e.fEnergy - e.fMass;
  double sum = 0;
  for (int i = 0; i < kSteps; i++)
    sum += Gauss8([&e](double eps) { return PhotonLoss(e, eps); }, max * i / kSteps,
                  max * (i + 1) / kSteps);
  return sum;
}

// What the cross section of pairs needs at one pair energy and asymmetry rho.
struct PairPoint {
  double fY;    // eps^2/(E (E - eps))
  double fRho2; // rho^2
  double fXi;   // (m/m_e)^2 y (1 - rho^2)/4
};

// The factor of L_e; its expansion where ln(1 + 1/xi) loses digits.
double ElectronFactor(const PairPoint& p) {
  const auto [y, rho2, xi] = p;
  if (xi > 1e3) return (3 - rho2 + y * (1 + rho2)) / (2 * xi);
  return ((2 + rho2) * (1 + y / 2) + xi * (3 + rho2)) * std::log1p(1 / xi) +
         (1 - rho2 - y / 2) / (1 + xi) - (3 + rho2);
}

// The factor of L_mu, likewise.
double HeavyFactor(const PairPoint& p) {
  const auto [y, rho2, xi] = p;
  if (xi < 1e-3) return (5 - rho2 + y / 2 * (3 + rho2)) * xi / 2;
  return ((1 + rho2) * (1 + 0.75 * y) - (1 + y) * (1 - rho2) / xi) * std::log1p(xi) +
         xi * (1 - rho2 - y / 2) / (1 + xi) + (1 + y) * (1 - rho2);
}

// L_e, of the diagrams in which the pair couples to the screened nucleus.
double ElectronLogarithm(const Encounter& e, const PairPoint& p, double s) {
  const auto [y, rho2, xi] = p;
  const double ye = 1 + (5 - rho2 + 2 * y * (1 + rho2)) /
                            (2 * (1 + 1.5 * y) * std::log(3 + 1 / xi) - rho2 - y * (2 - rho2));
  const double width = (1 + xi) * ye;
  const double nucleus = 1.5 * std::cbrt(e.fZ) * kElectronMass / e.fMass;
  return std::log(Screening(e) * std::sqrt(width) / (1 + s * ye)) -
         0.5 * std::log1p(nucleus * nucleus * width);
}

// L_mu, of the diagrams in which the heavy particle emits the pair.
double HeavyLogarithm(const Encounter& e, const PairPoint& p, double s) {
  const auto [y, rho2, xi] = p;
  const double ym = 1 + (4 + rho2 + 1.5 * y * (1 + rho2)) /
                            ((1 + rho2) * (1.5 + y) * std::log(3 + xi) + 1 - 1.5 * rho2);
  return std::log(e.fMass / kElectronMass * Screening(e) / (1.5 * std::cbrt(e.fZ) * (1 + s * ym)));
}

// Phi_e + (m_e/m)^2 Phi_mu at an asymmetry rho = 1 - u of the pair.
double Asymmetry(const Encounter& e, double eps, double u) {
  const double y = eps * eps / (e.fEnergy * (e.fEnergy - eps));
  const double unlike = u * (2 - u); // 1 - rho^2
  const double ratio = e.fMass / kElectronMass;
  const PairPoint p{y, 1 - unlike, ratio * ratio * y * unlike / 4};
  const double s = 2 * kElectronMass * kSqrtE * Screening(e) * (1 + p.fXi) / (eps * unlike);
  return std::max(ElectronFactor(p) * ElectronLogarithm(e, p, s), 0.) +
         std::max(HeavyFactor(p) * HeavyLogarithm(e, p, s), 0.) / (ratio * ratio);
}

// zeta, the part of the atomic electrons.
double ElectronPart(const Encounter& e) {
  const double g1 = e.fZ == 1 ? 4.4e-5 : 1.95e-5, g2 = e.fZ == 1 ? 4.8e-5 : 5.3e-5;
  const double root = std::cbrt(e.fZ);
  const double above =
      0.073 * std::log(e.fEnergy / (e.fMass + g1 * root * root * e.fEnergy)) - 0.26;
  if (above <= 0) return 0;
  return above / (0.058 * std::log(e.fEnergy / (e.fMass + g2 * root * e.fEnergy)) - 0.14);
}

// eps^2 dsigma/deps [MeV cm2] of pairs of energy eps, without the factors common to all eps.
double PairLoss(const Encounter& e, double eps) {
  const double root = std::sqrt(1 - 4 * kElectronMass / eps);
  const double min = 4 * kElectronMass / eps / (1 + root) +
                     6 * e.fMass * e.fMass * root / (e.fEnergy * (e.fEnergy - eps));
  if (min >= 1) return 0;
  const auto integrand = [&](double logU) {
    const double u = std::exp(logU);
    return u * Asymmetry(e, eps, u);
  };
  return eps * (e.fEnergy - eps) / e.fEnergy * Gauss8(integrand, std::log(min), 0);
}

double PairsLoss(const Encounter& e) {
  constexpr double kStep = 3.5; // in ln eps
  const double low = std::log(4 * kElectronMass);
  const double max = e.fEnergy - 0.75 * kSqrtE * e.fMass * std::cbrt(e.fZ);
  if (max <= 4 * kElectronMass) return 0;
  const double range = std::log(max) - low;
  const int steps = 1 + static_cast<int>(range / kStep);
  double sum = 0;
  for (int i = 0; i < steps; i++)
    sum += Gauss8([&e](double logEps) { return PairLoss(e, std::exp(logEps)); },
                  low + range * i / steps, low + range * (i + 1) / steps);
  const double scale = kAlpha * kElectronRadius;
  return 4 / (3 * kPi) * e.fZ * (e.fZ + ElectronPart(e)) * scale * scale * sum;
}

} // namespace

double RadiationLoss(const Material& material, const Projectile& particle, double T) {
  double sum = 0;
  for (const auto& [element, w] : material.Parts()) {
    const Encounter e{static_cast<double>(element->fZ), element->fA, particle.fMass / kGeVPerMeV,
                      (particle.fMass + T) / kGeVPerMeV, particle.fSpinHalf};
    sum += w * kAvogadro / element->fA * (BremsstrahlungLoss(e) + PairsLoss(e));
  }
  return sum;
}

} // namespace matter
