#include "draw/ReportData.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <set>

namespace kelvo {

namespace {

constexpr std::size_t kExamples = 5;  // of failed tracks, per reason
constexpr std::size_t kSample = 4096; // tracks among which typical ones are looked for
constexpr double kNearlyAll = 0.995;  // of the tracks are within the range of a plot

// How well an entry is fitted; the better one is the larger one.
struct Quality {
  double fProb;
  double fChi2PerNDF;
  long long fEntry;

  bool operator<(const Quality& other) const {
    if (fProb != other.fProb) return fProb < other.fProb;
    if (fChi2PerNDF != other.fChi2PerNDF) return fChi2PerNDF > other.fChi2PerNDF;
    return fEntry > other.fEntry;
  }
};

// Picks the best, the worst and typical fits while they come.
class DisplayPicker {
public:
  void Add(const Quality& quality) {
    fBest.insert(quality);
    if (fBest.size() > kTracksOfAKind) fBest.erase(fBest.begin());
    fWorst.insert(quality);
    if (fWorst.size() > kTracksOfAKind) fWorst.erase(std::prev(fWorst.end()));
    AddToSample(quality);
  }

  void Pick(ReportData& report) {
    std::set<long long> picked;
    const auto take = [&picked](const Quality& quality, std::vector<long long>& entries) {
      if (entries.size() < kTracksOfAKind && picked.insert(quality.fEntry).second)
        entries.push_back(quality.fEntry);
    };
    for (auto at = fBest.rbegin(); at != fBest.rend(); at++) take(*at, report.fBestTracks);
    for (const Quality& quality : fWorst) take(quality, report.fWorstTracks);
    // From the middle of the sample outwards.
    std::sort(fSample.begin(), fSample.end());
    for (std::size_t i = 0; i < fSample.size(); i++) {
      const std::size_t step = (i + 1) / 2;
      const std::size_t middle = fSample.size() / 2;
      take(fSample[i % 2 == 1 ? middle - step : middle + step], report.fTypicalTracks);
    }
  }

private:
  // Each of n entries is in the sample with the same probability (J. S. Vitter, "Random sampling
  // with a reservoir", ACM Trans. Math. Softw. 11 (1985) 37, algorithm R).
  void AddToSample(const Quality& quality) {
    fSeen++;
    if (fSample.size() < kSample) {
      fSample.push_back(quality);
      return;
    }
    const std::size_t at = fRandom() % fSeen;
    if (at < kSample) fSample[at] = quality;
  }

  std::set<Quality> fBest;
  std::set<Quality> fWorst;
  std::vector<Quality> fSample;
  std::mt19937_64 fRandom{1};
  unsigned long long fSeen = 0;
};

HypothesisReport& HypothesisOf(const FitRow& row, ReportData& report) {
  for (HypothesisReport& hypothesis : report.fHypotheses)
    if (hypothesis.fPDG == row.fPDG) return hypothesis;
  report.fHypotheses.emplace_back().fPDG = row.fPDG;
  return report.fHypotheses.back();
}

// The entries of one track stand together; this adds them up, track by track.
class ScalarPass {
public:
  explicit ScalarPass(ReportData& report) : fReport(report) {}

  void Add(const FitRow& row, long long entry) {
    if (fRows == 0 || row.fTrack != fTrack || fSeen.count(row.fPDG)) EndTrack();
    fTrack = row.fTrack;
    fRows++;
    fSeen.insert(row.fPDG);
    HypothesisReport& hypothesis = HypothesisOf(row, fReport);
    if (row.fStatus != 0) {
      if (fRows == 1) fFailure = {row.fStatus, row.fMessage};
      return;
    }
    hypothesis.fFitted++;
    const double chi2PerNDF = row.fNDF > 0 ? row.Chi2() / row.fNDF : 0;
    if (row.fNDF > 0) {
      hypothesis.fChi2PerNDF.Add(chi2PerNDF);
      hypothesis.fChi2.AddClamped(chi2PerNDF);
      hypothesis.fProb.Add(row.fProb);
    }
    if (row.fLeaves)
      fLeaves = true; // and has no momentum from range
    else
      hypothesis.fMomentum.Add(row.fP);
    fLikelihoods.push_back(row.fLogLikelihood);
    if (!row.fBest) return;
    fBestPDG = row.fPDG;
    hypothesis.fBest++;
    if (row.fNDF > 0) fReport.fProb.AddClamped(row.fProb);
    fReport.fLength.Add(row.fLength);
    fPicker.Add({row.fProb, chi2PerNDF, entry});
  }

  void End() {
    EndTrack();
    fPicker.Pick(fReport);
  }

private:
  void EndTrack() {
    if (fRows == 0) return;
    fReport.fTracks++;
    if (fLikelihoods.empty())
      AddFailure();
    else
      AddFit();
    fRows = 0;
    fBestPDG = 0;
    fLeaves = false;
    fSeen.clear();
    fLikelihoods.clear();
  }

  void AddFailure() {
    FailureReport& failure = fReport.fFailures[fFailure.first];
    failure.fCount++;
    if (failure.fExamples.size() < kExamples)
      failure.fExamples.push_back({fTrack, fFailure.second});
  }

  void AddFit() {
    fReport.fFitted++;
    if (fLeaves) fReport.fLeft++;
    if (fLikelihoods.size() < 2 || fBestPDG == 0) return;
    std::sort(fLikelihoods.rbegin(), fLikelihoods.rend());
    for (HypothesisReport& hypothesis : fReport.fHypotheses)
      if (hypothesis.fPDG == fBestPDG)
        hypothesis.fLead.AddClamped(fLikelihoods[0] - fLikelihoods[1]);
  }

  ReportData& fReport;
  DisplayPicker fPicker;
  // Of the track at hand.
  unsigned fRows = 0;
  long long fTrack = 0;
  int fBestPDG = 0;
  bool fLeaves = false;
  std::set<int> fSeen;
  std::vector<double> fLikelihoods;
  std::pair<int, std::string> fFailure; // status and message of its first entry
};

// Makes the histograms whose ranges follow from the first pass.
void MakeRanges(ReportData& report) {
  constexpr unsigned kBins = 44;
  double maxMomentum = 0;
  for (const HypothesisReport& hypothesis : report.fHypotheses)
    if (hypothesis.fBest > 0 && hypothesis.fMomentum.Entries() > 0)
      maxMomentum = std::max(maxMomentum, hypothesis.fMomentum.Quantile(kNearlyAll));
  const double maxLength = report.fLength.Quantile(kNearlyAll);
  for (HypothesisReport& hypothesis : report.fHypotheses) {
    if (hypothesis.fBest == 0) continue;
    if (maxMomentum > 0) hypothesis.fMomentumOfBest.emplace_back(0, 1.1 * maxMomentum, kBins);
    hypothesis.fLengthOfBest.emplace_back(0, 1.1 * maxLength, kBins);
  }
}

// The part of the plane, across its cells, that a coordinate belongs to.
std::size_t PartOf(const geo::CellRow& cells, double u) {
  const double low = cells.Centre(0) - cells.fPitch / 2;
  const double fraction = (u - low) / (cells.fPitch * cells.fCount);
  const double part = std::floor(fraction * PlaneResiduals::kParts);
  return static_cast<std::size_t>(
      std::clamp(part, 0., static_cast<double>(PlaneResiduals::kParts - 1)));
}

void AddVectors(const FitRow& row, const geo::PlaneDetector* detector, ReportData& report) {
  for (std::size_t i = 0; i < row.fHitZ.size(); i++) {
    const auto view = static_cast<std::size_t>(row.fHitView[i]);
    const double residual = static_cast<double>(row.fResidual[i]);
    if (row.fPull[i] != 0) report.fPull[view].Add(static_cast<double>(row.fPull[i]));
    if (!detector) continue;
    const unsigned plane = detector->NearestPlane(row.fHitZ[i]);
    const geo::CellRow& cells = detector->Planes()[plane].fCells[view];
    PlaneResiduals& residuals = report.fResiduals[view][plane];
    residuals.fAll.Add(residual);
    if (cells.fCount > 0) residuals.fByPosition[PartOf(cells, row.fHitU[i])].Add(residual);
  }
  for (std::size_t view = 0; view < 2; view++)
    for (std::size_t j = 0; j < row.fPlaneS.size(); j++)
      report.fKink[view].Add(static_cast<double>((view == 0 ? row.fKinkX : row.fKinkY)[j]) /
                             static_cast<double>(row.fPlaneSigAlpha[j]));
}

void AddBest(FitReader& fits, long long entry, const geo::PlaneDetector* detector,
             ReportData& report) {
  const FitRow& names = fits.Read(entry, FitPart::kNames);
  if (!names.fBest || names.fStatus != 0) return;
  const FitRow& row = fits.Read(entry, FitPart::kAll);
  HypothesisReport& hypothesis = HypothesisOf(row, report);
  if (!row.fLeaves) hypothesis.fMomentumOfBest[0].Add(row.fP);
  hypothesis.fLengthOfBest[0].Add(row.fLength);
  if (fits.HasVectors()) AddVectors(row, detector, report);
}

} // namespace

double ResidualSum::Mean() const {
  return fN > 0 ? fSum / static_cast<double>(fN) : 0;
}

double ResidualSum::Width() const {
  if (fN == 0) return 0;
  return std::sqrt(std::max(0., fSquares / static_cast<double>(fN) - Mean() * Mean()));
}

double ResidualSum::Error() const {
  return fN > 0 ? Width() / std::sqrt(static_cast<double>(fN)) : 0;
}

ReportData GatherReport(FitReader& fits, const geo::PlaneDetector* detector) {
  ReportData report;
  ScalarPass scalars(report);
  for (long long entry = 0; entry < fits.Entries(); entry++)
    scalars.Add(fits.Read(entry, FitPart::kScalars), entry);
  scalars.End();
  MakeRanges(report);
  for (auto& residuals : report.fResiduals)
    residuals.resize(detector ? detector->Planes().size() : 0);
  for (long long entry = 0; entry < fits.Entries(); entry++) AddBest(fits, entry, detector, report);
  return report;
}

} // namespace kelvo
