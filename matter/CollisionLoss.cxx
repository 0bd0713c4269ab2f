#include "matter/CollisionLoss.h"

#include "matter/Constants.h"
#include "matter/Interpolation.h"
#include "matter/Quadrature.h"
#include "matter/ShellCorrection.h"
#include "matter/ShellTables.h"

#include <cmath>

namespace matter {
namespace {

// F(W): constant below the first tabulated W, falling like 1/W above the last.
double BarkasFunction(double w) {
  const double last = *std::rbegin(shelltables::kBarkasW);
  const double f = Linear(shelltables::kBarkasF, FindBetween(shelltables::kBarkasW, w));
  return w > last ? f * last / w : f;
}

// The cut-off parameter by ranges of Z (ICRU Report 49).
double BarkasCut(int z) {
  if (z <= 10) return 1.8;
  return z <= 17 || (z >= 19 && z <= 25) ? 1.4 : 1.35;
}

// L1 for a positive charge: 1.29 F(W) / (Z^1/2 x^3/2), x = b/Z, b = (beta/alpha)^2.
double BarkasTerm(int z, double beta) {
  const double x = beta * beta / (kAlpha * kAlpha * z);
  return 1.29 * BarkasFunction(BarkasCut(z) / std::sqrt(x)) / (std::sqrt(z * x) * x);
}

// L2 = -w sum over j of 1/(j (j^2 + w)), w = (alpha/beta)^2; beyond the last j by the integral.
double BlochTerm(double beta) {
  constexpr int kTerms = 10;
  const double w = kAlpha * kAlpha / (beta * beta);
  double sum = 0;
  for (int j = 1; j <= kTerms; j++) sum += 1 / (j * (j * j + w));
  const double from = kTerms + 0.5;
  return -w * (sum + 1 / (2 * from * from));
}

// How far a compound is the sum of its elements: 1 for slow particles, where measured losses of
// compounds are nearly that (ICRU Report 49), to 0 for fast ones, where the compound's own mean
// excitation energy and averages over its atoms are better.
double Additivity(double tau) {
  constexpr double kHalf =
      3e-3; // T/M where it is one half, for protons 2.8 MeV; a choice, see docs
  return 1 / (1 + tau / kHalf);
}

// The logarithm of the mean excitation energy [MeV].
double LogExcitation(const Material& material, double additivity) {
  const double own = std::log(material.Excitation() / kEvPerMeV);
  const double sum = std::log(BraggExcitation(material.Parts()) / kEvPerMeV);
  return own + additivity * (sum - own);
}

// Shells and the Barkas term, averaged over the atoms with the weight Z^additivity.
double AtomicTerms(const Material& material, double beta, int charge, double additivity) {
  double sum = 0, weights = 0;
  for (const auto& [element, w] : material.Parts()) {
    const double weight = w / element->fA * std::pow(element->fZ, additivity);
    sum += weight * (charge * BarkasTerm(element->fZ, beta) - ShellCorrection(*element, beta));
    weights += weight;
  }
  return 2 * sum / weights;
}

// What the formulas take of a particle, in MeV.
struct Kinematics {
  Kinematics(const Projectile& particle, double T)
      : fMass(particle.fMass / kGeVPerMeV), fTransfer(MaxTransfer(T, particle.fMass) / kGeVPerMeV) {
    const double tau = T / particle.fMass;
    fBetaGamma2 = tau * (tau + 2);
    fBeta2 = fBetaGamma2 / ((tau + 1) * (tau + 1));
    fEnergy = (tau + 1) * fMass;
  }

  double fMass;
  double fTransfer; // largest energy that a free electron can get
  double fBetaGamma2 = 0;
  double fBeta2 = 0;
  double fEnergy = 0; // with the mass
};

// alpha/(2 pi) times the integral over ln(eps) of [1 - beta^2 eps/T_max + eps^2/(2E^2)] a1 (a3 -
// a1), a1 = ln(1 + 2 eps/m_e), a3 = ln(4E(E - eps)/m^2), eps from 0.1 MeV to T_max.
double KnockOnRadiation(const Kinematics& k) {
  constexpr double kMinTransfer = 0.1; // MeV
  if (k.fTransfer <= kMinTransfer) return 0;
  const auto integrand = [&](double logEps) {
    const double eps = std::exp(logEps);
    const double a1 = std::log(1 + 2 * eps / kElectronMass);
    const double a3 = std::log(4 * k.fEnergy * (k.fEnergy - eps) / (k.fMass * k.fMass));
    const double spin = eps * eps / (2 * k.fEnergy * k.fEnergy);
    return (1 - k.fBeta2 * eps / k.fTransfer + spin) * a1 * (a3 - a1);
  };
  return kAlpha / (2 * kPi) * Gauss8(integrand, std::log(kMinTransfer), std::log(k.fTransfer));
}

} // namespace

double MaxTransfer(double T, double mass) {
  const double electron = kElectronMass * kGeVPerMeV;
  const double ratio = electron / mass;
  const double tau = T / mass;
  return 2 * electron * tau * (tau + 2) / (1 + 2 * (tau + 1) * ratio + ratio * ratio);
}

// 2 pi m_e r_e^2 n_el/beta^2 {ln[2 m_e (beta gamma)^2 T_max/I^2] - 2 beta^2 + (T_max/2E)^2 - delta
//                             - 2C + 2 (q L1 + L2) + pi alpha beta q + radiation}
double CollisionLoss(const Material& material, const Projectile& particle, double T) {
  const Kinematics k(particle, T);
  const double beta = std::sqrt(k.fBeta2);
  const double additivity = Additivity(T / particle.fMass);
  const double spin = particle.fSpinHalf ? k.fTransfer / (2 * k.fEnergy) : 0;
  const double radiation = particle.fIsLepton ? KnockOnRadiation(k) : 0;
  const double braces = std::log(2 * kElectronMass * k.fBetaGamma2 * k.fTransfer) -
                        2 * LogExcitation(material, additivity) - 2 * k.fBeta2 + spin * spin -
                        material.GetDensityEffect().Delta(std::log10(k.fBetaGamma2) / 2) +
                        AtomicTerms(material, beta, particle.fCharge, additivity) +
                        2 * BlochTerm(beta) + kPi * kAlpha * beta * particle.fCharge + radiation;
  return kBetheScale * material.MolesOfElectrons() / k.fBeta2 * braces;
}

// 2 pi m_e r_e^2 n_el/beta^2 times the integral over eps from 0 to T_max of
// 1 - beta^2 eps/T_max + eps^2/(2E^2).
double CollisionStraggling(const Material& material, const Projectile& particle, double T) {
  const Kinematics k(particle, T);
  const double ratio = particle.fSpinHalf ? k.fTransfer / k.fEnergy : 0;
  return kBetheScale * material.MolesOfElectrons() / k.fBeta2 * k.fTransfer *
         (1 - k.fBeta2 / 2 + ratio * ratio / 6);
}

} // namespace matter
