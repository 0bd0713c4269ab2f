#pragma once

#include <cstddef>
#include <cstdint>

#include "fit/KinkSmoother.h"

namespace kelvo {

/// Many fit problems in flat arrays, as NumPy or an RVec holds them. Track t has the measurements
/// fMeasOffset[t] up to, not including, fMeasOffset[t + 1], and likewise planes; the arrays belong
/// to the caller and stay as they are.
struct KinkBatchInput {
  std::size_t fNTracks = 0;                  ///< number of tracks
  const std::int64_t* fMeasOffset = nullptr; ///< fNTracks + 1, ascending
  const double* fZ = nullptr;                ///< position of each measurement [cm]
  const double* fX = nullptr;                ///< measured coordinate [cm]
  const double* fSigX = nullptr;             ///< its standard deviation [cm]
  const std::int64_t* fScatOffset = nullptr; ///< fNTracks + 1, ascending
  const double* fS = nullptr;                ///< position of each plane [cm]; null without planes
  const double* fSigAlpha = nullptr;         ///< width of its scattering [rad]; null without planes
};

/// Where the results go; an array that is null is skipped.
struct KinkBatchOutput {
  // One per track.
  KinkStatus* fStatus = nullptr;    ///< how the fit ended
  double* fX0 = nullptr;            ///< intercept at z = 0 before all planes [cm]
  double* fSlope = nullptr;         ///< slope there
  double* fVarX0 = nullptr;         ///< variance of the intercept [cm^2]; NaN for a failed fit
  double* fCovX0Slope = nullptr;    ///< covariance of both [cm]; NaN for a failed fit
  double* fVarSlope = nullptr;      ///< variance of the slope; NaN for a failed fit
  double* fChi2XI = nullptr;        ///< measurements' part of chi-square
  double* fChi2Beta = nullptr;      ///< kinks' part of chi-square
  int* fNDOF = nullptr;             ///< degrees of freedom of both together
  double* fLogLikelihood = nullptr; ///< as KinkSmoother::LogLikelihood; NaN for a failed fit
  // One per plane, placed as in the input.
  double* fAlpha = nullptr;    ///< kinks [rad]
  double* fVarAlpha = nullptr; ///< their variances [rad^2]; NaN for a failed fit
  // One per measurement, placed as in the input.
  double* fXfit = nullptr; ///< fitted coordinates [cm]
  double* fPull = nullptr; ///< KinkSmoother::Residual's pulls; NaN for a failed fit
};

/// For programs that bring fit problems of their own in flat arrays; tracks from hits and a
/// detector are fitted by TrackFitter. Fits many tracks with one KinkSmoother: the same bits as one
/// by one, and nothing is allocated once the largest track has been seen. One object serves one
/// thread at a time; for more threads give each an object and a range of the tracks.
class KinkSmootherBatch {
public:
  /// Fits all tracks in order. Throws at the first track with bad input, whose elements and those
  /// of later tracks then stay unwritten: kIndexProblem (value: the offset) for an offset below
  /// the one before it, and what the setters of KinkSmoother throw. A singular track is not an
  /// error: see fStatus.
  void Fit(const KinkBatchInput& tracks, const KinkBatchOutput& results);

private:
  void FitTrack(const KinkBatchInput& tracks, const KinkBatchOutput& results, std::size_t t);

  KinkSmoother fFit{1, 0};
};

} // namespace kelvo
