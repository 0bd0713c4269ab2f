#include "track/DepositTable.h"

#include "matter/CollisionLoss.h"

#include <Math/PdfFuncMathCore.h>
#include <TMath.h>

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

// The grid: kinetic energies from 0.01 to 63 masses, paths from 0.1 to 6 of the usual one.
constexpr std::size_t kEnergies = 64, kPaths = 14, kBins = 81;
constexpr double kEnergyStep = 0.139, kPathStep = 0.315; // of the logarithms
constexpr double kLowestT = 0.01, kShortest = 0.1;
constexpr double kFirstX = -6, kStepX = 0.25; // of (q - centre) / width

/// A part of a distribution of the energy lost.
struct Piece {
  double fLoss, fProbability;
};

/// Returns the density of lambda = (loss - mean) / xi + meanLambda, which is Landau's where kappa
/// is small.
double LandauVavilov(double lambda, double meanLambda, double kappa, double beta2) {
  constexpr double kLandau = 0.01, kGauss = 12; // where Vavilov's distribution is tabulated
  if (kappa < kLandau) return ROOT::Math::landau_pdf(lambda);
  if (kappa <= kGauss) return TMath::Vavilov(lambda, kappa, beta2);
  return TMath::Gaus(lambda, meanLambda, std::sqrt((1 - beta2 / 2) / kappa), true);
}

/// Cuts the distribution of the energy lost into pieces, the finer ones below.
std::vector<Piece> Pieces(double mean, double xi, double maxTransfer, double beta2) {
  constexpr std::size_t kN = 120;
  constexpr double kFirst = -4, kLast = 80; // of Landau's distribution
  const double kappa = xi / maxTransfer;
  const double meanLambda = TMath::EulerGamma() - 1 - beta2 - std::log(kappa);
  const double sigma = std::sqrt((1 - beta2 / 2) / kappa);
  const double low = std::max(kFirst, meanLambda - 6 * sigma);
  const double high = std::min(kLast, meanLambda + 10 * sigma);
  std::vector<Piece> pieces(kN);
  double sum = 0;
  for (std::size_t i = 0; i < kN; i++) {
    const double t = (static_cast<double>(i) + 0.5) / kN;
    const double lambda = low + t * t * (high - low);
    const double density = std::max(LandauVavilov(lambda, meanLambda, kappa, beta2), 0.);
    pieces[i] = {std::max(mean + xi * (lambda - meanLambda), 0.), t * density};
    sum += pieces[i].fProbability;
  }
  for (Piece& piece : pieces) piece.fProbability /= sum;
  return pieces;
}

double Median(const std::vector<Piece>& pieces) {
  double sum = 0;
  for (std::size_t i = 1; i < pieces.size(); i++) {
    const double more = (pieces[i - 1].fProbability + pieces[i].fProbability) / 2;
    if (sum + more >= 0.5)
      return pieces[i - 1].fLoss + (0.5 - sum) / more * (pieces[i].fLoss - pieces[i - 1].fLoss);
    sum += more;
  }
  return pieces.back().fLoss;
}

} // namespace

DepositTable::DepositTable(const matter::RangeTable& range, double mass, double xi,
                           double thickness, double noise)
    : fLowT(kLowestT * mass), fLowPath(kShortest * thickness) {
  for (std::size_t j = 0; j < kPaths; j++)
    for (std::size_t i = 0; i < kEnergies; i++) {
      const double path = fLowPath * std::exp(kPathStep * static_cast<double>(j));
      const double T = fLowT * std::exp(kEnergyStep * static_cast<double>(i));
      const double left = range.Range(T), gamma = 1 + T / mass;
      const double mean =
          range.Energy(left + path / 2) - (left > path / 2 ? range.Energy(left - path / 2) : 0);
      const double beta2 = 1 - 1 / (gamma * gamma);
      Tabulate(mean, xi * path / beta2, matter::MaxTransfer(T, mass), beta2, path, noise);
    }
}

void DepositTable::Tabulate(double mean, double xi, double maxTransfer, double beta2, double path,
                            double noise) {
  constexpr double kCore = 1.5;    // width of Landau's distribution without its tail [xi]
  constexpr double kLeast = 1e-30; // of a probability
  constexpr double kFar = 6;       // standard deviations
  const std::vector<Piece> pieces = Pieces(mean, xi, maxTransfer, beta2);
  const double core = std::min(kCore * kCore * xi * xi, xi * maxTransfer * (1 - beta2 / 2));
  const double centre = Median(pieces), width = std::sqrt(core + noise * mean);
  fNodes.push_back({centre / path, width / path});
  for (std::size_t k = 0; k < kBins; k++) {
    const double q = centre + width * (kFirstX + kStepX * static_cast<double>(k));
    double density = kLeast / width;
    for (const Piece& piece : pieces) {
      const double sigma = std::sqrt(noise * std::max(piece.fLoss, 0.1 * mean));
      const double x = (q - piece.fLoss) / sigma;
      if (std::abs(x) < kFar) density += piece.fProbability * std::exp(-x * x / 2) / sigma;
    }
    fLogDensity.push_back(static_cast<float>(std::log(density / std::sqrt(TMath::TwoPi()))));
  }
}

double DepositTable::LogDensity(double T, double path, double q) const {
  path = std::max(path, fLowPath);
  const auto at = [](double value, double low, double step, std::size_t n) {
    return std::clamp(std::log(value / low) / step, 0., static_cast<double>(n - 1) - 1e-9);
  };
  const double a = at(T, fLowT, kEnergyStep, kEnergies), b = at(path, fLowPath, kPathStep, kPaths);
  const auto i = static_cast<std::size_t>(a), j = static_cast<std::size_t>(b);
  const double da = a - static_cast<double>(i), db = b - static_cast<double>(j);
  const double weight[4] = {(1 - da) * (1 - db), da * (1 - db), (1 - da) * db, da * db};
  const std::size_t first = j * kEnergies + i;
  const std::size_t node[4] = {first, first + 1, first + kEnergies, first + kEnergies + 1};
  double centre = 0, width = 0;
  for (std::size_t k = 0; k < 4; k++) {
    centre += weight[k] * fNodes[node[k]].fCentre;
    width += weight[k] * fNodes[node[k]].fWidth;
  }
  const double x =
      std::clamp(((q / path - centre) / width - kFirstX) / kStepX, 0., kBins - 1.000001);
  const auto bin = static_cast<std::size_t>(x);
  const double dx = x - static_cast<double>(bin);
  double density = 0;
  for (std::size_t k = 0; k < 4; k++) {
    const float* values = fLogDensity.data() + node[k] * kBins + bin;
    density += weight[k] *
               ((1 - dx) * static_cast<double>(values[0]) + dx * static_cast<double>(values[1]));
  }
  return density;
}

} // namespace kelvo
