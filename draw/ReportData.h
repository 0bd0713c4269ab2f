#pragma once

#include "draw/Histogram.h"
#include "geo/PlaneDetector.h"
#include "io/FitReader.h"
#include "util/LogHistogram.h"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace kelvo {

/// What a report says about one hypothesis.
struct HypothesisReport {
  int fPDG = 0;
  unsigned long long fFitted = 0;
  unsigned long long fBest = 0;
  LogHistogram fChi2PerNDF; ///< both views, hits and kinks
  LogHistogram fProb;
  LogHistogram fMomentum;    ///< [GeV/c]
  Histogram fChi2{0, 4, 80}; ///< per degree of freedom
  Histogram fLead{0, 6, 60}; ///< where it is best: log-likelihood minus the second best
  std::vector<Histogram> fMomentumOfBest; ///< where it is best [GeV/c]; one, or none without tracks
  std::vector<Histogram> fLengthOfBest;   ///< [cm]
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

/// Sums of residuals.
struct ResidualSum {
  unsigned long long fN = 0;
  double fSum = 0;     ///< [cm]
  double fSquares = 0; ///< [cm2]

  void Add(double residual) {
    fN++;
    fSum += residual;
    fSquares += residual * residual;
  }
  double Mean() const;  ///< [cm]; 0 without entries
  double Width() const; ///< standard deviation [cm]; 0 without entries
  double Error() const; ///< of the mean [cm]; 0 without entries
};

/// Residuals of one plane in one view, in all and by the coordinate that it measures.
struct PlaneResiduals {
  static constexpr std::size_t kParts = 24; ///< equal ones, across the plane
  ResidualSum fAll;
  std::array<ResidualSum, kParts> fByPosition;
};

/// How many of the best, of the typical and of the worst tracks a report displays.
constexpr std::size_t kTracksOfAKind = 4;

/// All that a report shows, in memory that does not grow with the number of tracks.
struct ReportData {
  unsigned long long fTracks = 0;
  unsigned long long fFitted = 0; ///< tracks with at least one fitted hypothesis
  unsigned long long fLeft = 0;   ///< of these, tracks that are taken to leave the detector
  std::vector<HypothesisReport> fHypotheses;
  std::map<int, FailureReport> fFailures; ///< by status, of tracks that no hypothesis fits
  LogHistogram fLength;                   ///< of the best fits [cm]

  // Of the best hypothesis of each track.
  Histogram fProb{0, 1, 50};
  std::array<Histogram, 2> fPull{Histogram{-5, 5, 100}, Histogram{-5, 5, 100}}; ///< by view
  std::array<Histogram, 2> fKink{Histogram{-4, 4, 80}, Histogram{-4, 4, 80}};
  bool HasKinks() const { return fKink[0].Inside() + fKink[0].Outside() > 0; }
  std::array<std::vector<PlaneResiduals>, 2> fResiduals; ///< by view and plane of the detector

  // Entries of the file to be displayed.
  std::vector<long long> fBestTracks;
  std::vector<long long> fTypicalTracks;
  std::vector<long long> fWorstTracks;
};

/// Reads a file of fits twice: numbers first, then hits and planes of the best fits.
/// @param detector null: residuals are not gathered by plane
/// @throw FileError for damaged data
ReportData GatherReport(FitReader& fits, const geo::PlaneDetector* detector);

} // namespace kelvo
