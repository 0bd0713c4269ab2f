#pragma once

#include "draw/Histogram.h"
#include "draw/TruthComparison.h"
#include "geo/PlaneDetector.h"
#include "io/FitReader.h"
#include "util/LogHistogram.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// What a report is asked for beside the fits.
struct ReportOptions {
  std::string fTruth;      ///< a file of the true tracks, as TrueTracks reads it; empty: none
  std::size_t fWorst = 10; ///< how many of the worst tracks are listed and displayed
};

/// What a report says about one hypothesis. The histograms are there if a track has it for its
/// shown one.
struct HypothesisReport {
  int fPDG = 0;
  unsigned long long fFitted = 0;
  unsigned long long fBest = 0;
  unsigned long long fShown = 0; ///< tracks that are shown under it
  LogHistogram fChi2PerNDF;      ///< both views, hits and kinks
  LogHistogram fProb;
  LogHistogram fMomentum;                 ///< [GeV/c]
  LogHistogram fLead;                     ///< where it is best: log-likelihood minus the second
  std::optional<Histogram> fChi2Plot;     ///< of all fits, per degree of freedom
  std::optional<Histogram> fMomentumPlot; ///< where it is shown [GeV/c]
  std::optional<Histogram> fLengthPlot;   ///< where it is shown [cm]
  std::optional<Histogram> fLeadPlot;     ///< where it is best
};

/// Tracks that were not fitted for one reason.
struct FailureReport {
  unsigned long long fCount = 0;
  struct Example {
    long long fTrack;
    std::string fMessage;
  };
  std::vector<Example> fExamples; ///< the first few
};

/// Sums of residuals, or of pulls.
struct ResidualSum {
  unsigned long long fN = 0;
  double fSum = 0;
  double fSquares = 0;

  void Add(double residual) {
    fN++;
    fSum += residual;
    fSquares += residual * residual;
  }
  double Mean() const;  ///< 0 without entries
  double Width() const; ///< standard deviation; 0 without entries
  double Error() const; ///< of the mean; 0 without entries
};

/// Sums for the line of residuals against a coordinate: a rotated plane, or one of another pitch.
struct SlopeSum {
  double fN = 0;
  double fV = 0;
  double fVV = 0;
  double fR = 0;
  double fVR = 0;
  double fRR = 0;

  void Add(double coordinate, double residual);
  double Slope() const; ///< of the residual [rad]; 0 where it is not determined
  double Error() const; ///< of the slope, from the spread of the residuals; 0 as above
};

/// Residuals of one plane in one view, in all and by the coordinate that it measures.
struct PlaneResiduals {
  static constexpr std::size_t kParts = 24; ///< equal ones, across the plane
  unsigned long long fWild = 0;             ///< hits that the sums leave out
  ResidualSum fAll;                         ///< [cm]
  ResidualSum fPulls;
  std::array<ResidualSum, kParts> fByPosition;
  SlopeSum fAlong;  ///< against the coordinate that is measured
  SlopeSum fAcross; ///< against the other one, of the fitted track
};

/// How many of the best and of the typical tracks a report displays.
constexpr std::size_t kTracksOfAKind = 4;

/// All that a report shows, in memory that does not grow with the number of tracks, but for the
/// comparison with the truth. A track is shown under its best hypothesis or, where none is best as
/// in a beam, under the first one that was fitted.
struct ReportData {
  unsigned long long fTracks = 0;
  unsigned long long fFitted = 0;      ///< tracks with at least one fitted hypothesis
  unsigned long long fLeft = 0;        ///< of these, tracks that are taken to leave the detector
  unsigned long long fWithoutBest = 0; ///< of these, tracks that have no best hypothesis
  std::vector<HypothesisReport> fHypotheses;
  std::map<int, FailureReport> fFailures; ///< by status, of tracks that no hypothesis fits
  LogHistogram fLength;                   ///< of the shown fits [cm]
  LogHistogram fChi2PerNDF;               ///< of the shown fits

  // Of the shown fit of each track.
  Histogram fProb{0, 1, 50};
  std::array<Histogram, 2> fPull{Histogram{-5, 5, 100}, Histogram{-5, 5, 100}}; ///< by view
  std::array<Histogram, 2> fKink{Histogram{-4, 4, 80}, Histogram{-4, 4, 80}};
  bool HasKinks() const { return fKink[0].Inside() + fKink[0].Outside() > 0; }
  std::array<std::vector<PlaneResiduals>, 2> fResiduals; ///< by view and plane of the detector
  /// Size of the pulls in each view from which hits are left out of the sums by plane, so that a
  /// few wild ones do not hide the others: five times what 68 % of the pulls in the first tracks
  /// are below.
  std::array<double, 2> fWildPull{};

  // Entries of the file to be displayed.
  std::vector<long long> fBestTracks;
  std::vector<long long> fTypicalTracks;
  std::vector<long long> fWorstTracks; ///< the worst one first

  std::optional<TruthComparison> fTruth;
};

/// Returns the entries of the tracks with the smallest probability of chi-square, each under its
/// shown hypothesis, the worst one first.
/// @throw FileError for damaged data
std::vector<long long> WorstTracks(FitReader& fits, std::size_t count);

/// Reads a file of fits twice: numbers first, then hits and planes of the shown fits.
/// @param detector null: residuals are not gathered by plane
/// @throw FileError for damaged data, and for a truth that cannot be read or is not of these hits
ReportData GatherReport(FitReader& fits, const geo::PlaneDetector* detector,
                        const ReportOptions& options = {});

} // namespace kelvo
