#pragma once

#include "func/dEdxTable.h"
#include "geo/PlaneDetector.h"
#include "sim/Simulator.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace kelvo::test {

/// A way through a material, as far as the fluctuation of the energy lost depends on it.
struct LossOnWay {
  double fMean;  ///< [GeV]
  double fXi;    ///< Landau's xi of the way, divided by beta^2 [GeV]
  double fMax;   ///< largest energy that an electron can get [GeV]
  double fBeta2; ///< velocity squared
};

/// Returns the energy that a particle loses in the library's scintillator, or has more upstream,
/// on a way from where it has T.
/// @param sign -1 downstream, 1 upstream
inline double EnergyChange(double T, double mass, double way, int sign) {
  constexpr int kSteps = 200;
  static const dEdxTable table("Scintillator");
  const double T0 = T;
  for (int i = 0; i < kSteps && T > 1e-4; i++) {
    const double middle = T + sign * table(T, mass) * way / kSteps / 2;
    T += sign * table(std::max(middle, 1e-4), mass) * way / kSteps;
  }
  return sign > 0 ? T - T0 : T0 - std::max(T, 0.);
}

/// Returns the way of a particle through the library's scintillator.
/// @param T kinetic energy in the middle of the way [GeV]
inline LossOnWay InScintillator(double T, double mass, double path) {
  constexpr double kElectron = 0.51099895e-3;           // GeV
  constexpr double kXi = 0.1535375e-3 * 0.859 * 0.5563; // GeV/cm: density, and moles of electrons
  const double gamma = 1 + T / mass, beta2 = 1 - 1 / (gamma * gamma), ratio = kElectron / mass;
  const double max =
      2 * kElectron * beta2 * gamma * gamma / (1 + 2 * gamma * ratio + ratio * ratio);
  const double mean = EnergyChange(T, mass, path / 2, 1) + EnergyChange(T, mass, path / 2, -1);
  return {mean, kXi * path / beta2, max, beta2};
}

/// Returns a loss drawn collision by collision: those above a small energy one by one, the others
/// as their mean.
template <typename Random>
double DrawLoss(const LossOnWay& way, Random& random) {
  const double cut = std::min(0.02 * way.fXi, way.fMax / 50);
  std::poisson_distribution<int> number(way.fXi * (1 / cut - 1 / way.fMax));
  std::uniform_real_distribution<double> unit;
  double loss =
      way.fMean - way.fXi * (std::log(way.fMax / cut) - way.fBeta2 * (1 - cut / way.fMax));
  for (int i = number(random); i > 0; i--) {
    const double energy = 1 / (1 / cut - unit(random) * (1 / cut - 1 / way.fMax));
    if (unit(random) > way.fBeta2 * energy / way.fMax) loss += energy;
  }
  return std::max(loss, 0.);
}

/// Returns the length of the straight way in the scintillator around a point [cm], 0 outside.
inline double PathInCell(const geo::PlaneDetector& detector, const TVector3& point,
                         const TVector3& slope) {
  constexpr double kFar = 10; // along z [cm]
  double length = 0;
  for (const double sign : {-1., 1.}) {
    const TVector3 far = point + sign * kFar * slope;
    const double p0[3] = {point.X(), point.Y(), point.Z()}, p1[3] = {far.X(), far.Y(), far.Z()};
    std::vector<double> ds;
    std::vector<const TGeoMaterial*> materials;
    detector.MaterialsBetweenPoints(p0, p1, ds, materials);
    if (std::string(materials.front()->GetName()) == "Scintillator") length += ds.front();
  }
  return length;
}

/// Returns a deposit for each hit of a track [GeV], with an error whose variance is noise times the
/// deposit.
template <typename Random>
std::vector<double> DrawDeposits(const geo::PlaneDetector& detector, const SimulatedTrack& track,
                                 double mass, double noise, Random& random) {
  std::normal_distribution<double> gauss;
  std::vector<double> deposits;
  for (const SimulatedHit& hit : track.fHits) {
    const double path = PathInCell(detector, hit.fTrue, hit.fSlope);
    const double loss = path > 0 ? DrawLoss(InScintillator(hit.fT, mass, path), random) : 0;
    deposits.push_back(loss + std::sqrt(noise * loss) * gauss(random));
  }
  return deposits;
}

} // namespace kelvo::test
