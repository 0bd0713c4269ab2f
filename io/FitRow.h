#pragma once

#include "io/HitReader.h"
#include "track/TrackFit.h"

#include <ROOT/RVec.hxx>

#include <string>
#include <vector>

namespace kelvo {

/// One entry of the table of fits: one track under one hypothesis. The member comments give the
/// column names; docs/files.md explains them. What a fit that failed does not give is NaN, 0 in
/// whole numbers, and empty in vectors.
///
/// What was measured and the coordinates of the fit are kept in double precision, the rest per hit
/// and plane in single precision: seven digits are far below any resolution, and the files are
/// smaller by a third.
struct FitRow {
  long long fTrack = 0;
  int fPDG = 0;
  int fStatus = 0;
  std::string fMessage;
  bool fBest = false;
  int fNX = 0;
  int fNY = 0;
  double fChi2X = 0;
  double fChi2Y = 0;
  double fChi2KinkX = 0;
  double fChi2KinkY = 0;
  int fNDF = 0;
  double fProb = 0;
  double fLogLikelihood = 0;
  double fX = 0;
  double fY = 0;
  double fZ = 0;
  double fUX = 0;
  double fUY = 0;
  double fUZ = 0;
  double fT = 0;
  double fP = 0;
  double fBeta = 0;
  double fGamma = 0;
  double fLength = 0;
  double fRadLen = 0;
  double fMaxDs = 0;
  double fMaxDX0 = 0;
  double fMaxDT = 0;
  ROOT::RVec<double> fCov;
  ROOT::RVec<int> fHitView;
  ROOT::RVec<double> fHitZ;
  ROOT::RVec<double> fHitU;
  ROOT::RVec<double> fHitSigU;
  ROOT::RVec<double> fFitU;
  ROOT::RVec<float> fFitSigU;
  ROOT::RVec<float> fResidual;
  ROOT::RVec<float> fPull;
  ROOT::RVec<float> fPlaneS;
  ROOT::RVec<float> fPlaneX;
  ROOT::RVec<float> fPlaneY;
  ROOT::RVec<float> fPlaneZ;
  ROOT::RVec<float> fPlaneSigAlpha;
  ROOT::RVec<float> fKinkX;
  ROOT::RVec<float> fKinkY;

  /// Returns the chi-square of hits and kinks in both views.
  double Chi2() const { return fChi2X + fChi2Y + fChi2KinkX + fChi2KinkY; }
};

/// Calls visit(name, member) for each column of one number or text, in the order of the file.
template <typename Row, typename Visit>
void VisitScalars(Row& row, Visit visit) {
  visit("track", row.fTrack);
  visit("pdg", row.fPDG);
  visit("status", row.fStatus);
  visit("message", row.fMessage);
  visit("best", row.fBest);
  visit("n_x", row.fNX);
  visit("n_y", row.fNY);
  visit("chi2_x", row.fChi2X);
  visit("chi2_y", row.fChi2Y);
  visit("chi2_kink_x", row.fChi2KinkX);
  visit("chi2_kink_y", row.fChi2KinkY);
  visit("ndf", row.fNDF);
  visit("prob", row.fProb);
  visit("log_likelihood", row.fLogLikelihood);
  visit("x", row.fX);
  visit("y", row.fY);
  visit("z", row.fZ);
  visit("ux", row.fUX);
  visit("uy", row.fUY);
  visit("uz", row.fUZ);
  visit("T", row.fT);
  visit("p", row.fP);
  visit("beta", row.fBeta);
  visit("gamma", row.fGamma);
  visit("length", row.fLength);
  visit("radlen", row.fRadLen);
  visit("max_ds", row.fMaxDs);
  visit("max_dx0", row.fMaxDX0);
  visit("max_dt", row.fMaxDT);
}

/// Calls visit(name, member) for each column of vectors, in the order of the file.
template <typename Row, typename Visit>
void VisitVectors(Row& row, Visit visit) {
  visit("cov", row.fCov);
  visit("hit_view", row.fHitView);
  visit("hit_z", row.fHitZ);
  visit("hit_u", row.fHitU);
  visit("hit_sigu", row.fHitSigU);
  visit("fit_u", row.fFitU);
  visit("fit_sigu", row.fFitSigU);
  visit("residual", row.fResidual);
  visit("pull", row.fPull);
  visit("plane_s", row.fPlaneS);
  visit("plane_x", row.fPlaneX);
  visit("plane_y", row.fPlaneY);
  visit("plane_z", row.fPlaneZ);
  visit("plane_sigalpha", row.fPlaneSigAlpha);
  visit("kink_x", row.fKinkX);
  visit("kink_y", row.fKinkY);
}

/// Returns what a status in a file of fits means, in a few words.
const char* StatusWords(int status);

/// Fills a new entry with one track and its hypothesis h.
/// @param withVectors whether the vectors are filled
void FillFitRow(const TrackHits& track, const TrackFit& fit, std::size_t h, bool withVectors,
                FitRow& row);

/// Returns the entries of one track, one per hypothesis in the order of the fit.
/// @param withVectors whether the vectors are filled
std::vector<FitRow> FitRows(const TrackHits& track, const TrackFit& fit, bool withVectors);

/// Returns the fit of a track whose input could not be used: no hypothesis is fitted, and each says
/// what is wrong with the input.
TrackFit UnusableTrack(const TrackHits& track, const std::vector<int>& hypotheses);

} // namespace kelvo
