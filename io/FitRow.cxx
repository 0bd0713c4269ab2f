#include "io/FitRow.h"

#include <array>
#include <iterator>
#include <limits>
#include <type_traits>

namespace kelvo {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

void SetScalars(const HypothesisFit& fit, FitRow& row) {
  const auto& [x, y] = fit.fView;
  row.fNX = static_cast<int>(x.fN);
  row.fNY = static_cast<int>(y.fN);
  row.fChi2X = x.fChi2;
  row.fChi2Y = y.fChi2;
  row.fChi2KinkX = x.fChi2Kink;
  row.fChi2KinkY = y.fChi2Kink;
  row.fNDF = fit.fNDF;
  row.fProb = fit.fProb;
  row.fLogLikelihood = fit.fLogLikelihood;
  row.fLogLikelihoodCharge = fit.fLogLikelihoodCharge;
  row.fProbHypothesis = fit.fProbHypothesis;
  row.fX = fit.fPosition.X();
  row.fY = fit.fPosition.Y();
  row.fZ = fit.fPosition.Z();
  row.fUX = fit.fDirection.X();
  row.fUY = fit.fDirection.Y();
  row.fUZ = fit.fDirection.Z();
  row.fT = fit.fT;
  row.fP = fit.fP;
  row.fBeta = fit.fBeta;
  row.fGamma = fit.fGamma;
  row.fLength = fit.fLength;
  row.fRadLen = fit.fRadLen;
  row.fSigT = fit.fSigT;
  row.fSigP = fit.fSigP;
  row.fSigLength = fit.fSigLength;
  row.fPMin = fit.fPMin;
  row.fPScattering = fit.fScattering.fP;
  row.fPScatteringLow = fit.fScattering.fLow;
  row.fPScatteringHigh = fit.fScattering.fHigh;
  row.fInvPScattering = fit.fScattering.fInverse;
  row.fSigInvPScattering = fit.fScattering.fSigInverse;
  row.fProbScattering = fit.fProbScattering;
}

void SetEnd(const TrackFit& fit, FitRow& row) {
  row.fLeaves = fit.fLeaves;
  row.fEndDistance = fit.fEndDistance;
  row.fEndPlanes = fit.fEndPlanes;
  row.fStopChi2 = fit.fStopChi2;
}

/// Numbers of hits per view are known for a failed fit, too; all else is not.
void SetNothing(const HitList3D& hits, FitRow& row) {
  VisitScalars([&row](const char*, auto member) {
    if constexpr (std::is_same_v<decltype(member), double FitRow::*>) row.*member = kNone;
  });
  for (const Hit3D& hit : hits) {
    if (hit.fView == geo::kX) row.fNX++;
    if (hit.fView == geo::kY) row.fNY++;
  }
}

void SetHits(const std::vector<HitFit>& hits, FitRow& row) {
  const std::size_t n = hits.size();
  row.fHitView.resize(n);
  row.fHitZ.resize(n);
  row.fHitU.resize(n);
  row.fHitSigU.resize(n);
  row.fFitU.resize(n);
  row.fFitSigU.resize(n);
  row.fResidual.resize(n);
  row.fPull.resize(n);
  row.fResidualUnbiased.resize(n);
  row.fSigResidualUnbiased.resize(n);
  row.fHitWeight.resize(n);
  for (std::size_t i = 0; i < n; i++) {
    row.fHitView[i] = hits[i].fView;
    row.fHitZ[i] = hits[i].fZ;
    row.fHitU[i] = hits[i].fU;
    row.fHitSigU[i] = hits[i].fSigU;
    row.fFitU[i] = hits[i].fFitU;
    row.fFitSigU[i] = static_cast<float>(hits[i].fFitSigU);
    row.fResidual[i] = static_cast<float>(hits[i].fResidual);
    row.fPull[i] = static_cast<float>(hits[i].fPull);
    row.fResidualUnbiased[i] = static_cast<float>(hits[i].fUnbiased);
    row.fSigResidualUnbiased[i] = static_cast<float>(hits[i].fSigUnbiased);
    row.fHitWeight[i] = static_cast<float>(hits[i].fWeight);
  }
}

ROOT::RVec<float> Single(const std::vector<double>& values) {
  ROOT::RVec<float> single(values.size());
  for (std::size_t i = 0; i < values.size(); i++) single[i] = static_cast<float>(values[i]);
  return single;
}

void SetPlanes(const HypothesisFit& fit, FitRow& row) {
  row.fPlaneS = Single(fit.fPlaneS);
  row.fPlaneSigAlpha = Single(fit.fPlaneSigAlpha);
  row.fKinkX = Single(fit.fView[0].fKink);
  row.fKinkY = Single(fit.fView[1].fKink);
  for (const TVector3& point : fit.fPlanePoint) {
    row.fPlaneX.push_back(static_cast<float>(point.X()));
    row.fPlaneY.push_back(static_cast<float>(point.Y()));
    row.fPlaneZ.push_back(static_cast<float>(point.Z()));
  }
}

/// Members of a row for one view of a line: coordinate, slope, their uncertainties, covariance.
using PlaceColumns = std::array<ROOT::RVec<double> FitRow::*, 5>;

void AddLine(const LineAt& line, const PlaceColumns& columns, FitRow& row) {
  const double values[] = {line.fU, line.fSlope, line.fSigU, line.fSigSlope, line.fCov};
  for (std::size_t i = 0; i < columns.size(); i++) (row.*columns[i]).push_back(values[i]);
}

void SetPlaces(const HypothesisFit& fit, FitRow& row) {
  constexpr PlaceColumns kX{&FitRow::fAtX, &FitRow::fAtSlopeX, &FitRow::fAtSigX,
                            &FitRow::fAtSigSlopeX, &FitRow::fAtCovX};
  constexpr PlaceColumns kY{&FitRow::fAtY, &FitRow::fAtSlopeY, &FitRow::fAtSigY,
                            &FitRow::fAtSigSlopeY, &FitRow::fAtCovY};
  constexpr PlaceColumns kXUnbiased{&FitRow::fAtXUnbiased, &FitRow::fAtSlopeXUnbiased,
                                    &FitRow::fAtSigXUnbiased, &FitRow::fAtSigSlopeXUnbiased,
                                    &FitRow::fAtCovXUnbiased};
  constexpr PlaceColumns kYUnbiased{&FitRow::fAtYUnbiased, &FitRow::fAtSlopeYUnbiased,
                                    &FitRow::fAtSigYUnbiased, &FitRow::fAtSigSlopeYUnbiased,
                                    &FitRow::fAtCovYUnbiased};
  for (const PlaceFit& place : fit.fPlace) {
    row.fAtZ.push_back(place.fZ);
    AddLine(place.fView[0], kX, row);
    AddLine(place.fView[1], kY, row);
    AddLine(place.fOthers[0], kXUnbiased, row);
    AddLine(place.fOthers[1], kYUnbiased, row);
  }
}

void SetVectors(const HypothesisFit& fit, FitRow& row) {
  row.fCov.assign(fit.fCov.begin(), fit.fCov.end());
  SetHits(fit.fHit, row);
  SetPlanes(fit, row);
  SetPlaces(fit, row);
}

} // namespace

const char* StatusWords(int status) {
  static const char* const words[] = {"fitted",
                                      "too few hits in a view",
                                      "a bad line or number",
                                      "no usable geometry",
                                      "no solution of the equations",
                                      "an error of the fit library"};
  const bool known = status >= 0 && status < static_cast<int>(std::size(words));
  return known ? words[status] : "an unknown reason";
}

void FillFitRow(const TrackHits& track, const TrackFit& fit, std::size_t h, bool withVectors,
                FitRow& row) {
  const HypothesisFit& hypothesis = fit.fHypothesis[h];
  row.fTrack = track.fTrack;
  row.fPDG = hypothesis.fPDG;
  row.fStatus = static_cast<int>(hypothesis.fStatus);
  row.fMessage = hypothesis.fMessage;
  row.fBest = fit.fHasBest && static_cast<int>(h) == fit.fBest;
  if (hypothesis.fStatus != FitStatus::kFitted) {
    SetNothing(track.fHits, row);
    return;
  }
  SetScalars(hypothesis, row);
  row.fNOutliers = static_cast<int>(fit.fOutliers);
  SetEnd(fit, row);
  if (withVectors) SetVectors(hypothesis, row);
}

std::vector<FitRow> FitRows(const TrackHits& track, const TrackFit& fit, bool withVectors) {
  std::vector<FitRow> rows(fit.fHypothesis.size());
  for (std::size_t h = 0; h < rows.size(); h++) FillFitRow(track, fit, h, withVectors, rows[h]);
  return rows;
}

} // namespace kelvo
