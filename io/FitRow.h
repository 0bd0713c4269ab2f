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
// NOLINTNEXTLINE(bugprone-exception-escape): RVec allocates where it is moved
struct FitRow {
  long long fTrack = 0;
  int fPDG = 0;
  int fStatus = 0;
  std::string fMessage;
  bool fBest = false;
  int fNX = 0;
  int fNY = 0;
  int fNOutliers = 0;
  double fChi2X = 0;
  double fChi2Y = 0;
  double fChi2KinkX = 0;
  double fChi2KinkY = 0;
  int fNDF = 0;
  double fProb = 0;
  double fLogLikelihood = 0;
  double fLogLikelihoodCharge = 0;
  double fProbHypothesis = 0;
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
  double fSigT = 0;
  double fSigP = 0;
  double fSigLength = 0;
  bool fLeaves = false;
  double fEndDistance = 0;
  double fEndPlanes = 0;
  double fStopChi2 = 0;
  double fPMin = 0;
  double fPScattering = 0;
  double fPScatteringLow = 0;
  double fPScatteringHigh = 0;
  double fInvPScattering = 0;
  double fSigInvPScattering = 0;
  double fProbScattering = 0;
  ROOT::RVec<double> fCov;
  ROOT::RVec<int> fHitView;
  ROOT::RVec<double> fHitZ;
  ROOT::RVec<double> fHitU;
  ROOT::RVec<double> fHitSigU;
  ROOT::RVec<double> fFitU;
  ROOT::RVec<float> fFitSigU;
  ROOT::RVec<float> fResidual;
  ROOT::RVec<float> fPull;
  ROOT::RVec<float> fResidualUnbiased;
  ROOT::RVec<float> fSigResidualUnbiased;
  ROOT::RVec<float> fHitWeight;
  ROOT::RVec<float> fPlaneS;
  ROOT::RVec<float> fPlaneX;
  ROOT::RVec<float> fPlaneY;
  ROOT::RVec<float> fPlaneZ;
  ROOT::RVec<float> fPlaneSigAlpha;
  ROOT::RVec<float> fKinkX;
  ROOT::RVec<float> fKinkY;
  ROOT::RVec<double> fAtZ;
  ROOT::RVec<double> fAtX;
  ROOT::RVec<double> fAtY;
  ROOT::RVec<double> fAtSlopeX;
  ROOT::RVec<double> fAtSlopeY;
  ROOT::RVec<double> fAtSigX;
  ROOT::RVec<double> fAtSigY;
  ROOT::RVec<double> fAtSigSlopeX;
  ROOT::RVec<double> fAtSigSlopeY;
  ROOT::RVec<double> fAtCovX;
  ROOT::RVec<double> fAtCovY;
  ROOT::RVec<double> fAtXUnbiased;
  ROOT::RVec<double> fAtYUnbiased;
  ROOT::RVec<double> fAtSlopeXUnbiased;
  ROOT::RVec<double> fAtSlopeYUnbiased;
  ROOT::RVec<double> fAtSigXUnbiased;
  ROOT::RVec<double> fAtSigYUnbiased;
  ROOT::RVec<double> fAtSigSlopeXUnbiased;
  ROOT::RVec<double> fAtSigSlopeYUnbiased;
  ROOT::RVec<double> fAtCovXUnbiased;
  ROOT::RVec<double> fAtCovYUnbiased;

  /// Returns the chi-square of hits and kinks in both views.
  double Chi2() const { return fChi2X + fChi2Y + fChi2KinkX + fChi2KinkY; }
};

/// The columns of fits: every table of them, in files, in memory or in a data frame, has these
/// names in this order. Calls visit(name, member) for each column of one number or text;
/// row.*member is its value.
template <typename Visit>
void VisitScalars(Visit visit) {
  visit("track", &FitRow::fTrack);
  visit("pdg", &FitRow::fPDG);
  visit("status", &FitRow::fStatus);
  visit("message", &FitRow::fMessage);
  visit("best", &FitRow::fBest);
  visit("n_x", &FitRow::fNX);
  visit("n_y", &FitRow::fNY);
  visit("n_outliers", &FitRow::fNOutliers);
  visit("chi2_x", &FitRow::fChi2X);
  visit("chi2_y", &FitRow::fChi2Y);
  visit("chi2_kink_x", &FitRow::fChi2KinkX);
  visit("chi2_kink_y", &FitRow::fChi2KinkY);
  visit("ndf", &FitRow::fNDF);
  visit("prob", &FitRow::fProb);
  visit("log_likelihood", &FitRow::fLogLikelihood);
  visit("log_likelihood_charge", &FitRow::fLogLikelihoodCharge);
  visit("prob_hypothesis", &FitRow::fProbHypothesis);
  visit("x", &FitRow::fX);
  visit("y", &FitRow::fY);
  visit("z", &FitRow::fZ);
  visit("ux", &FitRow::fUX);
  visit("uy", &FitRow::fUY);
  visit("uz", &FitRow::fUZ);
  visit("T", &FitRow::fT);
  visit("p", &FitRow::fP);
  visit("beta", &FitRow::fBeta);
  visit("gamma", &FitRow::fGamma);
  visit("length", &FitRow::fLength);
  visit("radlen", &FitRow::fRadLen);
  visit("sig_T", &FitRow::fSigT);
  visit("sig_p", &FitRow::fSigP);
  visit("sig_length", &FitRow::fSigLength);
  visit("leaves", &FitRow::fLeaves);
  visit("end_distance", &FitRow::fEndDistance);
  visit("end_planes", &FitRow::fEndPlanes);
  visit("stop_chi2", &FitRow::fStopChi2);
  visit("p_min", &FitRow::fPMin);
  visit("p_scattering", &FitRow::fPScattering);
  visit("p_scattering_low", &FitRow::fPScatteringLow);
  visit("p_scattering_high", &FitRow::fPScatteringHigh);
  visit("inv_p_scattering", &FitRow::fInvPScattering);
  visit("sig_inv_p_scattering", &FitRow::fSigInvPScattering);
  visit("prob_scattering", &FitRow::fProbScattering);
}

/// The same for the columns of vectors, which come behind those.
template <typename Visit>
void VisitVectors(Visit visit) {
  visit("cov", &FitRow::fCov);
  visit("hit_view", &FitRow::fHitView);
  visit("hit_z", &FitRow::fHitZ);
  visit("hit_u", &FitRow::fHitU);
  visit("hit_sigu", &FitRow::fHitSigU);
  visit("fit_u", &FitRow::fFitU);
  visit("fit_sigu", &FitRow::fFitSigU);
  visit("residual", &FitRow::fResidual);
  visit("pull", &FitRow::fPull);
  visit("residual_unbiased", &FitRow::fResidualUnbiased);
  visit("sig_residual_unbiased", &FitRow::fSigResidualUnbiased);
  visit("hit_weight", &FitRow::fHitWeight);
  visit("plane_s", &FitRow::fPlaneS);
  visit("plane_x", &FitRow::fPlaneX);
  visit("plane_y", &FitRow::fPlaneY);
  visit("plane_z", &FitRow::fPlaneZ);
  visit("plane_sigalpha", &FitRow::fPlaneSigAlpha);
  visit("kink_x", &FitRow::fKinkX);
  visit("kink_y", &FitRow::fKinkY);
}

/// The same for the vectors of the track at places that were asked for, which come last; a table
/// without such places does not have them.
template <typename Visit>
void VisitPlaces(Visit visit) {
  visit("at_z", &FitRow::fAtZ);
  visit("at_x", &FitRow::fAtX);
  visit("at_y", &FitRow::fAtY);
  visit("at_dxdz", &FitRow::fAtSlopeX);
  visit("at_dydz", &FitRow::fAtSlopeY);
  visit("at_sig_x", &FitRow::fAtSigX);
  visit("at_sig_y", &FitRow::fAtSigY);
  visit("at_sig_dxdz", &FitRow::fAtSigSlopeX);
  visit("at_sig_dydz", &FitRow::fAtSigSlopeY);
  visit("at_cov_x", &FitRow::fAtCovX);
  visit("at_cov_y", &FitRow::fAtCovY);
  visit("at_x_unbiased", &FitRow::fAtXUnbiased);
  visit("at_y_unbiased", &FitRow::fAtYUnbiased);
  visit("at_dxdz_unbiased", &FitRow::fAtSlopeXUnbiased);
  visit("at_dydz_unbiased", &FitRow::fAtSlopeYUnbiased);
  visit("at_sig_x_unbiased", &FitRow::fAtSigXUnbiased);
  visit("at_sig_y_unbiased", &FitRow::fAtSigYUnbiased);
  visit("at_sig_dxdz_unbiased", &FitRow::fAtSigSlopeXUnbiased);
  visit("at_sig_dydz_unbiased", &FitRow::fAtSigSlopeYUnbiased);
  visit("at_cov_x_unbiased", &FitRow::fAtCovXUnbiased);
  visit("at_cov_y_unbiased", &FitRow::fAtCovYUnbiased);
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

} // namespace kelvo
