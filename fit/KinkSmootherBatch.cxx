#include "fit/KinkSmootherBatch.h"

#include "func/KelvoException.h"

namespace kelvo {

namespace {

constexpr const char* kFile = "fit/KinkSmootherBatch";

unsigned int Count(const std::int64_t* offset, std::size_t t) {
  const std::int64_t count = offset[t + 1] - offset[t];
  if (offset[t] < 0 || count < 0 || count > UINT32_MAX)
    throw KelvoException(kFile, __LINE__, kIndexProblem, static_cast<double>(offset[t + 1]));
  return static_cast<unsigned int>(count);
}

} // namespace

void KinkSmootherBatch::Fit(const KinkBatchInput& tracks, const KinkBatchOutput& results) {
  for (std::size_t t = 0; t < tracks.fNTracks; t++) FitTrack(tracks, results, t);
}

void KinkSmootherBatch::FitTrack(const KinkBatchInput& tracks, const KinkBatchOutput& results,
                                 std::size_t t) {
  const unsigned int n = Count(tracks.fMeasOffset, t);
  const unsigned int m = Count(tracks.fScatOffset, t);
  const std::int64_t meas = tracks.fMeasOffset[t];
  const std::int64_t scat = tracks.fScatOffset[t];
  fFit.Load(n, tracks.fZ + meas, tracks.fX + meas, tracks.fSigX + meas, m, tracks.fS + scat,
            tracks.fSigAlpha + scat);
  fFit.Fit(results.fX0 ? results.fX0 + t : nullptr, results.fSlope ? results.fSlope + t : nullptr,
           results.fAlpha ? results.fAlpha + scat : nullptr, nullptr);
  if (results.fStatus) results.fStatus[t] = fFit.Status();
  const KinkPoint start = fFit.AtStart();
  if (results.fVarX0) results.fVarX0[t] = start.fVarX;
  if (results.fCovX0Slope) results.fCovX0Slope[t] = start.fCovXSlope;
  if (results.fVarSlope) results.fVarSlope[t] = start.fVarSlope;
  if (results.fChi2XI) results.fChi2XI[t] = fFit.Chi2XI();
  if (results.fChi2Beta) results.fChi2Beta[t] = fFit.Chi2Beta();
  if (results.fNDOF) results.fNDOF[t] = fFit.NDOF();
  if (results.fLogLikelihood) results.fLogLikelihood[t] = fFit.LogLikelihood();
  if (results.fVarAlpha)
    for (unsigned int j = 0; j < m; j++) results.fVarAlpha[scat + j] = fFit.VarKink(j);
  if (results.fXfit)
    for (unsigned int i = 0; i < n; i++) results.fXfit[meas + i] = fFit.XFit(i);
  if (results.fPull)
    for (unsigned int i = 0; i < n; i++) results.fPull[meas + i] = fFit.Residual(i).fPull;
}

} // namespace kelvo
