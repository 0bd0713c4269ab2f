#include "draw/TruthComparison.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace kelvo {

namespace {

// Places of the variances in the upper triangle of the covariance of (x, y, ux, uy), row by row.
constexpr std::size_t kVarX = 0;
constexpr std::size_t kVarY = 4;
constexpr std::size_t kVarUX = 7;
constexpr std::size_t kVarUY = 9;

double QuantileOf(const std::vector<double>& sorted, double fraction) {
  const double place = fraction * static_cast<double>(sorted.size() - 1);
  const auto i = static_cast<std::size_t>(place);
  if (i + 1 == sorted.size()) return sorted[i];
  return sorted[i] + (place - static_cast<double>(i)) * (sorted[i + 1] - sorted[i]);
}

} // namespace

void Deviations::Add(double value, double sigma, long long track) {
  fValues.push_back(value);
  fTracks.push_back(track);
  if (!(sigma > 0)) return;
  fPulls.push_back(value / sigma);
  fPullTracks.push_back(track);
}

// The variance of the quantile of a fraction q is q (1 - q) / (n f^2) with the density f there, and
// the covariance of two is q1 (1 - q2) / (n f1 f2) (M. G. Kendall and A. Stuart, The Advanced
// Theory of Statistics, vol. 1, section 10.10). For a Gaussian of width 1, f = 0.3989 in the middle
// and 0.2420 at +-1: errors of 1.2533 and 0.9626 widths over sqrt(n).
Spread SpreadOf(std::vector<double> values) {
  constexpr double kLow = 0.158655; // of a Gaussian below minus one width
  constexpr double kMedianError = 1.2533;
  constexpr double kWidthError = 0.9626;
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  const double width = (QuantileOf(values, 1 - kLow) - QuantileOf(values, kLow)) / 2;
  const double root = std::sqrt(static_cast<double>(values.size()));
  return {values.size(), QuantileOf(values, 0.5), kMedianError * width / root, width,
          kWidthError * width / root};
}

int TruthComparison::TruePDG(long long track) const {
  const TrueTrack* truth = fTrue.Find(track);
  return truth ? std::abs(truth->fPDG) : 0;
}

void TruthComparison::AddFit(const FitRow& row) {
  const TrueTrack* truth = fTrue.Find(row.fTrack);
  if (!truth || row.fStatus != 0) return;
  fCompared++;
  const double p =
      std::sqrt(truth->fPX * truth->fPX + truth->fPY * truth->fPY + truth->fPZ * truth->fPZ);
  if (std::isfinite(row.fP) && row.fSigP > 0) {
    fDeviations[kMomentum].Add(row.fP / p - 1, row.fSigP / p, row.fTrack);
    fTrueMomenta.push_back(p);
  } else {
    fNoMomentum++;
  }
  // Straight on, where the fit's first hit was taken to be at another z than the truth's.
  const double dz = row.fZ - truth->fZ;
  const auto sigma = [&row](std::size_t variance) {
    return row.fCov.size() > variance ? std::sqrt(row.fCov[variance]) : 0;
  };
  const auto add = [&](Quantity quantity, double value, std::size_t variance) {
    fDeviations[quantity].Add(value, sigma(variance), row.fTrack);
  };
  add(kX, row.fX - (truth->fX + dz * truth->fPX / truth->fPZ), kVarX);
  add(kY, row.fY - (truth->fY + dz * truth->fPY / truth->fPZ), kVarY);
  add(kUX, row.fUX - truth->fPX / p, kVarUX);
  add(kUY, row.fUY - truth->fPY / p, kVarUY);
}

void TruthComparison::AddBest(long long track, int bestPDG) {
  const int truth = TruePDG(track);
  if (truth == 0)
    fWithoutTruth++;
  else
    fConfusion[{truth, bestPDG}]++;
}

} // namespace kelvo
