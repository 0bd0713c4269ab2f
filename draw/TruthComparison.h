#pragma once

#include "io/FitRow.h"
#include "io/TruthReader.h"

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kelvo {

/// How fitted values of one quantity lie around the true ones.
struct Deviations {
  std::vector<double> fValues;        ///< fitted minus true
  std::vector<double> fPulls;         ///< the same over their uncertainties
  std::vector<long long> fTracks;     ///< of the values
  std::vector<long long> fPullTracks; ///< of the pulls

  void Add(double value, double sigma, long long track);
};

/// Middle and half width of the central 68.3 % of some numbers, which a few wild ones do not
/// change.
struct Spread {
  std::size_t fN = 0;
  double fMedian = 0;
  double fMedianError = 0; ///< as of a Gaussian: 1.2533 widths over sqrt(n)
  double fWidth = 0;
  double fWidthError = 0; ///< as of a Gaussian, by the density of order statistics
};
Spread SpreadOf(std::vector<double> values);

/// Compares fits with the truth of simulated tracks, in up to 400 bytes of memory a track.
///
/// Resolutions are those of the fit under the hypothesis of the true particle; whether it was found
/// is a question of its own, which the confusion answers.
class TruthComparison {
public:
  /// @throw FileError as TrueTracks
  explicit TruthComparison(const std::string& file) : fTrue(file) {}

  enum Quantity { kMomentum, kX, kY, kUX, kUY };
  static constexpr std::size_t kQuantities = 5;

  /// Returns the true particle's code, which is positive; 0 for a track that the truth lacks.
  int TruePDG(long long track) const;

  /// Adds a fit under the true hypothesis, with its vectors if the file has them.
  void AddFit(const FitRow& row);

  /// Counts what a track was fitted best as.
  /// @param bestPDG 0: none of its hypotheses is best
  void AddBest(long long track, int bestPDG);

  const std::string& File() const { return fTrue.File(); }
  std::size_t TrueCount() const { return fTrue.Size(); }
  std::size_t Compared() const { return fCompared; }                 ///< tracks
  unsigned long long WithoutTruth() const { return fWithoutTruth; }  ///< tracks
  unsigned long long WithoutMomentum() const { return fNoMomentum; } ///< of those compared
  /// Returns deviations: of the momentum over the true one, of x and y at the first hit [cm], of
  /// the direction's components ux and uy.
  const Deviations& Of(Quantity quantity) const { return fDeviations[quantity]; }
  /// Returns the true momentum of each deviation of the momentum [GeV/c].
  const std::vector<double>& TrueMomenta() const { return fTrueMomenta; }
  /// Returns the tracks by true and best hypothesis, 0 where none is best.
  const std::map<std::pair<int, int>, unsigned long long>& Confusion() const { return fConfusion; }

private:
  TrueTracks fTrue;
  std::array<Deviations, kQuantities> fDeviations;
  std::vector<double> fTrueMomenta;
  std::map<std::pair<int, int>, unsigned long long> fConfusion;
  std::size_t fCompared = 0;
  unsigned long long fWithoutTruth = 0;
  unsigned long long fNoMomentum = 0;
};

} // namespace kelvo
