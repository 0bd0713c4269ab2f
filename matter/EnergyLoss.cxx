#include "matter/EnergyLoss.h"

#include "matter/CollisionLoss.h"
#include "matter/Constants.h"
#include "matter/RadiationLoss.h"
#include "matter/SlowLoss.h"

#include <algorithm>
#include <cmath>

namespace matter {
namespace {

constexpr int kNeon = 10;              // last element without M shell
constexpr double kLowestTau = 1e-3;    // T/M from which on Bethe's formula is used
constexpr double kHighest = 2e4;       // GeV, end of the table
const double kStep = std::log(2.) / 8; // of the table, in ln T
const double kCoarse = std::log(4.);   // of the table of radiation, which is smooth
constexpr double kRadiationTau = 1;    // T/M from which on radiation is looked at
constexpr double kFall = 0.78;         // of the loss above its maximum, as of protons in water

// Slopes at the points of a table in equal steps: from the neighbours on both sides, at the ends
// from one side.
std::vector<double> Slopes(const std::vector<double>& y) {
  const std::size_t n = y.size();
  std::vector<double> slope(n);
  for (std::size_t i = 2; i + 2 < n; i++)
    slope[i] = (8 * (y[i + 1] - y[i - 1]) - (y[i + 2] - y[i - 2])) / 12;
  slope[1] = (y[2] - y[0]) / 2;
  slope[n - 2] = (y[n - 1] - y[n - 3]) / 2;
  slope[0] = 2 * (y[1] - y[0]) - slope[1];
  slope[n - 1] = 2 * (y[n - 1] - y[n - 2]) - slope[n - 2];
  return slope;
}

// The cubic with given values and slopes at both ends of the interval in which x is, counted in
// steps from the table's start; beyond the end the last interval's goes on in a straight line.
double Cubic(const std::vector<double>& y, const std::vector<double>& slope, double x) {
  const double last = static_cast<double>(y.size() - 1);
  if (x >= last) return y.back() + (x - last) * slope.back();
  const std::size_t i = static_cast<std::size_t>(std::max(x, 0.));
  const double t = x - static_cast<double>(i), u = 1 - t;
  return u * u * ((1 + 2 * t) * y[i] + t * slope[i]) +
         t * t * ((1 + 2 * u) * y[i + 1] - u * slope[i + 1]);
}

// Velocity squared at a kinetic energy in masses.
double Beta2(double tau) {
  return tau * (tau + 2) / ((tau + 1) * (tau + 1));
}

// Loss by collisions [MeV cm2/g] with what measurements of slow protons add to Bethe's formula.
// That concerns elements of more than K and L shells, whose corrections are calculated and not
// scaled.
class Collisions {
public:
  Collisions(const Material& material, const Projectile& particle)
      : fMaterial(material), fParticle(particle) {
    const double T = kLowestTau * kProton.fMass;
    for (const auto& [element, w] : material.Parts()) {
      if (element->fZ <= kNeon) continue;
      const Material alone = Material::OfMassFractions("", {{element->fSymbol, 1}}, 1);
      fExcess += w * (SlowProtonLoss(*element, T) - CollisionLoss(alone, kProton, T));
    }
  }

  double operator()(double T) const {
    const double fall = Beta2(kLowestTau) / Beta2(T / fParticle.fMass);
    return CollisionLoss(fMaterial, fParticle, T) + fExcess * fall * fall;
  }

private:
  const Material& fMaterial;
  const Projectile& fParticle;
  double fExcess = 0; // at kLowestTau
};

// The kinetic energy [GeV] from which on the formula is used: above its maximum.
double LowestEnergy(const Collisions& loss, double mass) {
  double T = kLowestTau * mass;
  while (T < mass && loss(T) < loss(2 * T)) T *= 2;
  return T;
}

// Logarithms of the radiation loss at coarse steps.
class Radiation {
public:
  Radiation(const Material& material, const Projectile& particle)
      : fStart(std::log(kRadiationTau * particle.fMass)) {
    const double steps = (std::log(kHighest) - fStart) / kCoarse;
    for (int i = 0; i <= static_cast<int>(steps) + 1; i++)
      fLog.push_back(std::log(RadiationLoss(material, particle, std::exp(fStart + i * kCoarse))));
    fSlope = Slopes(fLog);
  }

  double At(double logT) const {
    return logT < fStart ? 0 : std::exp(Cubic(fLog, fSlope, (logT - fStart) / kCoarse));
  }

private:
  double fStart;
  std::vector<double> fLog, fSlope;
};

} // namespace

EnergyLoss::EnergyLoss(const Material& material, const Projectile& particle) {
  const Collisions collisions(material, particle);
  fLowest = LowestEnergy(collisions, particle.fMass);
  const double perLength = material.Density() * kGeVPerMeV;
  const Radiation radiation(material, particle);
  const double start = std::log(fLowest);
  const int steps = static_cast<int>((std::log(kHighest) - start) / kStep) + 1;
  for (int i = 0; i <= steps; i++) {
    const double logT = start + i * kStep;
    fLog.push_back(std::log(perLength * (collisions(std::exp(logT)) + radiation.At(logT))));
  }
  fSlope = Slopes(fLog);
  fLowLoss = std::exp(fLog[0]);
  const double power = std::max(fSlope[0] / kStep, 0.02 - kFall);
  fBend = (0.5 - power) / (kFall + power);
}

// Below the table S = S0 sqrt(t) (1 + a)/(1 + a t^(1/2 + f)), t = T/T0, which has the value and the
// slope of the table's start.
double EnergyLoss::operator()(double T) const {
  if (T >= fLowest) return std::exp(Cubic(fLog, fSlope, std::log(T / fLowest) / kStep));
  const double t = T / fLowest;
  return fLowLoss * std::sqrt(t) * (1 + fBend) / (1 + fBend * std::pow(t, 0.5 + kFall));
}

} // namespace matter
