#include "track/EnergyAlong.h"

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

constexpr double kLeastLoss = 1e-9; // GeV; the difference of two energies has rounding errors
constexpr double kElectronMass = 0.51099895e-3; // GeV; CODATA 2018

/// Carries the energy of particle i upstream through a gap, layer by layer.
double ThroughLayers(const MaterialAlong& material, const Gap& gap, double stretch, std::size_t i,
                     double T) {
  const Layer* layers = material.Layers(gap);
  for (std::size_t k = gap.fN; k-- > 0;) {
    const matter::RangeTable& table = material.Materials()[layers[k].fMaterial].fTables[i];
    T = table.Energy(table.Range(T) + layers[k].fThickness * stretch);
  }
  return T;
}

/// Carries energies downstream through a gap; 0 where a particle stops in it.
void Downstream(const MaterialAlong& material, const Gap& gap, double stretch,
                std::vector<double>& T) {
  const Layer* layers = material.Layers(gap);
  for (std::size_t k = 0; k < gap.fN; k++) {
    const std::vector<matter::RangeTable>& tables =
        material.Materials()[layers[k].fMaterial].fTables;
    const double length = layers[k].fThickness * stretch;
    for (std::size_t i = 0; i < tables.size(); i++)
      T[i] = tables[i].Energy(std::max(tables[i].Range(T[i]) - length, 0.));
  }
}

/// What collisions with electrons depend on: 1 over velocity squared, and 1 over the largest energy
/// that an electron can get in one of them [1/GeV] (Particle Data Group, passage of particles
/// through matter, eq. 34.4).
struct Collisions {
  Lanes fPerBeta2{}, fPerMax{};
  Collisions(const Lanes& T, const Lanes& perMass) {
    const Lanes gamma = 1 + T * perMass, square = gamma * gamma, ratio = kElectronMass * perMass;
    const Lanes perBetaGamma2 = 1 / (square - 1);
    fPerBeta2 = square * perBetaGamma2;
    fPerMax = (1 + 2 * gamma * ratio + ratio * ratio) * perBetaGamma2 * (0.5 / kElectronMass);
  }
};

} // namespace

void EnergyAlong::Stop(const MaterialAlong& material, const std::vector<double>& stretch) {
  const std::vector<Gap>& gaps = material.Gaps();
  fPoints = gaps.size() + 1;
  fT.resize(fMasses.size() * fPoints);
  fNow.assign(fMasses.size(), 0);
  fRange.assign(fMasses.size(), 0);
  fLoss.assign(fMasses.size(), 0);
  fRangeIn = nullptr;
  for (std::size_t i = fPoints; i-- > 0;) {
    Upstream(material, i < gaps.size() ? gaps[i] : material.End(), stretch[i]);
    for (std::size_t p = 0; p < fNow.size(); p++) fT[p * fPoints + i] = fNow[p];
  }
}

/// Carries energies upstream through a gap, from its downstream end. What is in it lies in
/// no order (the averaged layers have none), so that all of it counts as a length of the material
/// that takes most energy: by the ratio of losses in the middle of the gap. Where the energy
/// changes much in a gap, at the end of a track, layers are crossed one by one.
void EnergyAlong::Upstream(const MaterialAlong& material, const Gap& gap, double stretch) {
  constexpr double kFar = 4; // gaps from the end
  if (gap.fN == 0) return;
  const Layer* layers = material.Layers(gap);
  const DetectorMaterials& data = material.Materials();
  const auto loss = [&data](const Layer& layer) {
    return layer.fThickness * data[layer.fMaterial].fMipLoss;
  };
  const Layer* main =
      std::max_element(layers, layers + gap.fN,
                       [&loss](const Layer& a, const Layer& b) { return loss(a) < loss(b); });
  const MaterialData& in = data[main->fMaterial];
  const double length = gap.fMipLoss / in.fMipLoss * stretch;
  for (std::size_t p = 0; p < fNow.size(); p++) {
    const matter::RangeTable& table = in.fTables[p];
    if (fRangeIn != &in) fRange[p] = table.Range(fNow[p]);
    if (fRange[p] < kFar * length) {
      fNow[p] = ThroughLayers(material, gap, stretch, p, fNow[p]);
      fLoss[p] = table.Loss(fNow[p]);
      fRange[p] = table.Range(fNow[p]);
      continue;
    }
    double more = main->fThickness;
    if (gap.fN > 1) {
      const double middle = fNow[p] + 0.5 * length * fLoss[p];
      fLoss[p] = table.Loss(middle);
      const double perLoss = 1 / fLoss[p];
      for (const Layer* layer = layers; layer != layers + gap.fN; layer++)
        if (layer != main)
          more += layer->fThickness * data[layer->fMaterial].fTables[p].Loss(middle) * perLoss;
    }
    fRange[p] += more * stretch;
    fNow[p] = table.Energy(fRange[p]);
  }
  fRangeIn = &in;
}

void EnergyAlong::Pass(const MaterialAlong& material, const std::vector<double>& stretch,
                       const std::vector<double>& momenta) {
  constexpr double kLeast = 0.01; // of the first energy
  const std::vector<Gap>& gaps = material.Gaps();
  fPoints = gaps.size() + 1;
  fT.resize(fMasses.size() * fPoints);
  fNow.clear();
  for (std::size_t k = 0; k < fMasses.size(); k++) {
    const double p = momenta[k], mass = fMasses[k];
    fNow.push_back(p * p / (std::hypot(p, mass) + mass));
  }
  for (std::size_t i = 0; i < fPoints; i++) {
    if (i > 0) Downstream(material, gaps[i - 1], stretch[i - 1], fNow);
    for (std::size_t k = 0; k < fNow.size(); k++) {
      if (i > 0) fNow[k] = std::max(fNow[k], kLeast * fT[k * fPoints]);
      fT[k * fPoints + i] = fNow[k];
    }
  }
}

// What follows is to first order. A particle that in a gap loses d more than it should, L in place
// of the loss M of a minimum-ionising one, could have gone through d M / L more of the latter; had
// that been missing at the first point, where the ratio is L0 / M0, its energy there would have
// been (d M / L) (L0 / M0) less.

double EnergyAlong::LossRatio(const MaterialAlong& material, std::size_t particle,
                              const std::vector<double>& stretch) const {
  const std::vector<Gap>& gaps = material.Gaps();
  for (std::size_t i = 0; i < gaps.size(); i++) {
    const double loss = T(particle)[i] - T(particle)[i + 1];
    if (gaps[i].fMipLoss > kLeastLoss && loss > kLeastLoss)
      return loss / (gaps[i].fMipLoss * stretch[i]);
  }
  return 0;
}

double EnergyAlong::Change(const MaterialAlong& material, std::size_t particle,
                           const std::vector<double>& from, const std::vector<double>& to) const {
  const std::vector<Gap>& gaps = material.Gaps();
  double more = material.End().fMipLoss * (to.back() - from.back());
  for (std::size_t i = 0; i < gaps.size(); i++) more += gaps[i].fMipLoss * (to[i] - from[i]);
  return more * LossRatio(material, particle, from);
}

// The variance of the loss in a gap is xi T' (1 - beta^2 T' / (2 T_max)) / beta^2, where no
// collision gives more than T'. With T' the largest transfer possible, T_max, that is all of it;
// but where less than about one collision per track comes near that, these make a tail, and the
// central part of the distribution is narrower:
//   1 / T' = 1 / T_max + 1 / (13 sum of xi).
// Its half width of 68 % is then right to 6 %, from Landau's distribution (xi << T_max), of 3.4 xi,
// to a Gaussian.
Lanes EnergyAlong::Straggling(const MaterialAlong& material, std::size_t first,
                              const std::vector<double>& stretch) const {
  constexpr double kLandau = 13;
  const std::vector<Gap>& gaps = material.Gaps();
  const auto at = [this, first](std::size_t lane) {
    return std::min(first + lane, fMasses.size() - 1);
  };
  const Lanes perMass = 1 / Lanes{fMasses[at(0)], fMasses[at(1)], fMasses[at(2)], fMasses[at(3)]};
  const double* T[] = {this->T(at(0)), this->T(at(1)), this->T(at(2)), this->T(at(3))};
  const auto energy = [&T](std::size_t i) { return Lanes{T[0][i], T[1][i], T[2][i], T[3][i]}; };
  Lanes sumXi{};
  for (std::size_t i = 0; i < gaps.size(); i++)
    if (gaps[i].fXi > 0) // else the particle may be at rest
      sumXi += gaps[i].fXi * stretch[i] *
               Collisions(0.5 * (energy(i) + energy(i + 1)), perMass).fPerBeta2;
  const Lanes perLandau = 1 / (kLandau * sumXi);
  Lanes variance{};
  for (std::size_t i = 0; i < gaps.size(); i++) {
    const double mip = gaps[i].fMipLoss * stretch[i];
    if (!(mip > kLeastLoss)) continue;
    const Lanes up = energy(i), down = energy(i + 1), loss = up - down;
    const Collisions collisions(0.5 * (up + down), perMass);
    const Lanes cut = 1 / (collisions.fPerMax + perLandau), perRatio = mip / loss;
    const Lanes here = gaps[i].fXi * stretch[i] * cut *
                           (collisions.fPerBeta2 - 0.5 * cut * collisions.fPerMax) * perRatio *
                           perRatio +
                       gaps[i].fVarMipLoss * stretch[i] * stretch[i];
    variance += WhereAbove(loss, kLeastLoss, here, 0);
  }
  const Lanes ratio = {LossRatio(material, at(0), stretch), LossRatio(material, at(1), stretch),
                       LossRatio(material, at(2), stretch), LossRatio(material, at(3), stretch)};
  return variance * ratio * ratio;
}

double EnergyAlong::EndVariance(const MaterialAlong& material, std::size_t particle,
                                const std::vector<double>& stretch) const {
  const double end =
      material.EndMipLoss() * stretch.back() * LossRatio(material, particle, stretch);
  return MaterialAlong::kEndVariance * end * end;
}

} // namespace kelvo
