#include "draw/ReportData.h"

#include "draw/FittedTrack.h"
#include "io/FileError.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>

namespace kelvo {

namespace {

constexpr std::size_t kExamples = 5;  // of failed tracks, per reason
constexpr std::size_t kSample = 4096; // tracks among which typical ones are looked for

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
  explicit DisplayPicker(std::size_t worst) : fWorstCount(worst) {}

  void Add(const Quality& quality) {
    fBest.insert(quality);
    if (fBest.size() > kTracksOfAKind) fBest.erase(fBest.begin());
    fWorst.insert(quality);
    if (fWorst.size() > fWorstCount) fWorst.erase(std::prev(fWorst.end()));
    AddToSample(quality);
  }

  void Pick(ReportData& report) {
    std::set<long long> picked;
    const auto take = [&picked](const Quality& quality, std::vector<long long>& entries) {
      if (entries.size() < kTracksOfAKind && picked.insert(quality.fEntry).second)
        entries.push_back(quality.fEntry);
    };
    for (const Quality& quality : fWorst) {
      picked.insert(quality.fEntry);
      report.fWorstTracks.push_back(quality.fEntry);
    }
    for (auto at = fBest.rbegin(); at != fBest.rend(); at++) take(*at, report.fBestTracks);
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

  std::size_t fWorstCount;
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

// The entries of one track, which stand together.
struct TrackEntries {
  long long fBegin = 0;
  long long fEnd = 0;
  long long fShown = -1; // the best entry, else the first that was fitted; -1: none was fitted
  bool fHasBest = false;
};

// The tracks of a file, one after the other: another number, or a hypothesis for the second time,
// begins the next one.
class TrackSequence {
public:
  explicit TrackSequence(FitReader& fits) : fFits(fits) {}

  bool Next(TrackEntries& entries) {
    entries = {fNext, fNext, -1, false};
    long long track = 0;
    fSeen.clear();
    for (; fNext < fFits.Entries(); fNext++) {
      const FitRow& row = fFits.Read(fNext, FitPart::kNames);
      if (fNext > entries.fBegin && row.fTrack != track) break;
      if (!fSeen.insert(row.fPDG).second) break;
      track = row.fTrack;
      if (row.fStatus != 0) continue;
      if (row.fBest || entries.fShown < 0) entries.fShown = fNext;
      entries.fHasBest = entries.fHasBest || row.fBest;
    }
    entries.fEnd = fNext;
    return entries.fEnd > entries.fBegin;
  }

private:
  FitReader& fFits;
  long long fNext = 0;
  std::set<int> fSeen; // hypotheses of the track at hand
};

double Chi2PerNDF(const FitRow& row) {
  return row.fNDF > 0 ? row.Chi2() / row.fNDF : 0;
}

// Adds up the numbers from which the ranges of the plots follow.
class ScalarPass {
public:
  ScalarPass(FitReader& fits, std::size_t worst, ReportData& report)
      : fFits(fits), fPicker(worst), fReport(report) {}

  void Add(const TrackEntries& entries) {
    fLeaves = false;
    for (long long entry = entries.fBegin; entry < entries.fEnd; entry++)
      AddRow(fFits.Read(entry, FitPart::kScalars), entry, entries);
    fReport.fTracks++;
    if (entries.fShown < 0) return AddFailure(fFits.Read(entries.fBegin, FitPart::kScalars));
    fReport.fFitted++;
    if (fLeaves) fReport.fLeft++;
    if (!entries.fHasBest) fReport.fWithoutBest++;
  }

  void End() { fPicker.Pick(fReport); }

private:
  void AddRow(const FitRow& row, long long entry, const TrackEntries& entries) {
    HypothesisReport& hypothesis = HypothesisOf(row, fReport);
    if (row.fStatus != 0) return;
    hypothesis.fFitted++;
    if (row.fBest) hypothesis.fBest++;
    if (row.fNDF > 0) {
      hypothesis.fChi2PerNDF.Add(Chi2PerNDF(row));
      hypothesis.fProb.Add(row.fProb);
    }
    if (row.fLeaves)
      fLeaves = true; // and has no momentum from range
    else
      hypothesis.fMomentum.Add(row.fP);
    if (entry != entries.fShown) return;
    hypothesis.fShown++;
    if (row.fNDF > 0) fReport.fProb.AddClamped(row.fProb, row.fTrack);
    if (row.fNDF > 0) fReport.fChi2PerNDF.Add(Chi2PerNDF(row));
    fReport.fLength.Add(row.fLength);
    fPicker.Add({row.fProb, Chi2PerNDF(row), entry});
  }

  void AddFailure(const FitRow& first) {
    FailureReport& failure = fReport.fFailures[first.fStatus];
    failure.fCount++;
    if (failure.fExamples.size() < kExamples)
      failure.fExamples.push_back({first.fTrack, first.fMessage});
  }

  FitReader& fFits;
  DisplayPicker fPicker;
  ReportData& fReport;
  bool fLeaves = false; // the track at hand
};

// Where nearly all of some numbers lie; on a logarithmic axis where they span more than one decade
// and a half.
Histogram RangeOf(const std::vector<const LogHistogram*>& numbers, unsigned bins) {
  constexpr double kFew = 0.005; // of the numbers may be beyond an end
  constexpr double kLogFrom = 30;
  double low = std::numeric_limits<double>::infinity();
  double high = 0;
  for (const LogHistogram* number : numbers) {
    if (number->Entries() == 0) continue;
    low = std::min(low, number->Quantile(kFew));
    high = std::max(high, number->Quantile(1 - kFew));
  }
  if (!(high > 0) || !std::isfinite(high)) return {0, 1, bins};
  const bool isLog = low > 0 && high > kLogFrom * low;
  return isLog ? Histogram(low / 1.1, high * 1.1, bins, true) : Histogram(0, 1.1 * high, bins);
}

// Makes the histograms whose ranges follow from the first pass.
void MakeRanges(ReportData& report) {
  constexpr unsigned kBins = 60;
  std::vector<const LogHistogram*> chi2;
  std::vector<const LogHistogram*> momenta;
  for (const HypothesisReport& hypothesis : report.fHypotheses) {
    chi2.push_back(&hypothesis.fChi2PerNDF);
    if (hypothesis.fShown > 0) momenta.push_back(&hypothesis.fMomentum);
  }
  const Histogram chi2Plot = RangeOf(chi2, kBins);
  const Histogram momentumPlot = RangeOf(momenta, kBins);
  const Histogram lengthPlot = RangeOf({&report.fLength}, kBins);
  for (HypothesisReport& hypothesis : report.fHypotheses) {
    if (hypothesis.fFitted > 0) hypothesis.fChi2Plot = chi2Plot;
    if (hypothesis.fShown == 0) continue;
    hypothesis.fMomentumPlot = momentumPlot;
    hypothesis.fLengthPlot = lengthPlot;
    if (hypothesis.fBest > 0) hypothesis.fLeadPlot.emplace(0, 6, 60);
  }
}

// Pulls of hits or kinks reach as far as nearly all of those in the first tracks do, and at least
// as far as good ones.
Histogram PullRange(const LogHistogram& sizes, double fraction, double min, unsigned bins) {
  const double found = sizes.Entries() > 0 ? 1.2 * sizes.Quantile(fraction) : 0;
  const double high = std::isfinite(found) ? std::max(min, std::ceil(found)) : min;
  return {-high, high, bins};
}

double KinkPull(const FitRow& row, std::size_t view, std::size_t j) {
  return static_cast<double>((view == 0 ? row.fKinkX : row.fKinkY)[j]) /
         static_cast<double>(row.fPlaneSigAlpha[j]);
}

void MakePullRanges(FitReader& fits, ReportData& report) {
  constexpr int kTracks = 200;
  constexpr double kNearlyAll = 0.99;
  constexpr double kOneSigma = 0.683;
  constexpr double kWild = 5;
  std::array<LogHistogram, 2> pulls;
  LogHistogram kinks;
  TrackSequence tracks(fits);
  TrackEntries entries;
  for (int read = 0; read < kTracks && tracks.Next(entries); read++) {
    if (entries.fShown < 0) continue;
    const FitRow& row = fits.Read(entries.fShown, FitPart::kAll);
    for (std::size_t i = 0; i < row.fPull.size(); i++)
      if (row.fPull[i] != 0)
        pulls[static_cast<std::size_t>(row.fHitView[i])].Add(
            std::abs(static_cast<double>(row.fPull[i])));
    for (std::size_t view = 0; view < 2; view++)
      for (std::size_t j = 0; j < row.fPlaneS.size(); j++)
        kinks.Add(std::abs(KinkPull(row, view, j)));
  }
  const auto isNarrower = [](const LogHistogram& a, const LogHistogram& b) {
    return a.Quantile(kNearlyAll) < b.Quantile(kNearlyAll);
  };
  report.fPull.fill(
      PullRange(isNarrower(pulls[0], pulls[1]) ? pulls[1] : pulls[0], kNearlyAll, 5, 100));
  for (std::size_t view = 0; view < 2; view++)
    report.fWildPull[view] = kWild * std::max(1., pulls[view].Quantile(kOneSigma));
  report.fKink.fill(PullRange(kinks, kNearlyAll, 4, 80));
}

// The part of the plane, across its cells, that a coordinate belongs to.
std::size_t PartOf(const geo::CellRow& cells, double u) {
  const double low = cells.Centre(0) - cells.fPitch / 2;
  const double fraction = (u - low) / (cells.fPitch * cells.fCount);
  const double part = std::floor(fraction * PlaneResiduals::kParts);
  return static_cast<std::size_t>(
      std::clamp(part, 0., static_cast<double>(PlaneResiduals::kParts - 1)));
}

void AddResiduals(const FitRow& row, const geo::PlaneDetector& detector, ReportData& report) {
  const FittedTrack course(row);
  for (std::size_t i = 0; i < row.fHitZ.size(); i++) {
    const auto view = static_cast<std::size_t>(row.fHitView[i]);
    const double residual = static_cast<double>(row.fResidual[i]);
    const unsigned plane = detector.NearestPlane(row.fHitZ[i]);
    const geo::CellRow& cells = detector.Planes()[plane].fCells[view];
    PlaneResiduals& residuals = report.fResiduals[view][plane];
    if (!(std::abs(static_cast<double>(row.fPull[i])) < report.fWildPull[view])) {
      residuals.fWild++;
      continue;
    }
    residuals.fAll.Add(residual);
    if (row.fPull[i] != 0) residuals.fPulls.Add(static_cast<double>(row.fPull[i]));
    if (cells.fCount > 0) residuals.fByPosition[PartOf(cells, row.fHitU[i])].Add(residual);
    residuals.fAlong.Add(row.fFitU[i], residual);
    residuals.fAcross.Add(course.At(1 - view, row.fHitZ[i]), residual);
  }
}

void AddVectors(const FitRow& row, const geo::PlaneDetector* detector, ReportData& report) {
  for (std::size_t i = 0; i < row.fHitZ.size(); i++)
    if (row.fPull[i] != 0)
      report.fPull[static_cast<std::size_t>(row.fHitView[i])].Add(static_cast<double>(row.fPull[i]),
                                                                  row.fTrack);
  for (std::size_t view = 0; view < 2; view++)
    for (std::size_t j = 0; j < row.fPlaneS.size(); j++)
      report.fKink[view].Add(KinkPull(row, view, j), row.fTrack);
  if (detector) AddResiduals(row, *detector, report);
}

// Fills plots with the fits of one track.
class PlotPass {
public:
  PlotPass(FitReader& fits, const geo::PlaneDetector* detector, ReportData& report)
      : fFits(fits), fDetector(detector), fReport(report) {}

  void Add(const TrackEntries& entries) {
    fLikelihoods.clear();
    for (long long entry = entries.fBegin; entry < entries.fEnd; entry++) {
      const FitRow& names = fFits.Read(entry, FitPart::kNames);
      if (names.fStatus != 0) continue;
      const bool isShown = entry == entries.fShown;
      const bool isTrue = fReport.fTruth && fReport.fTruth->TruePDG(names.fTrack) == names.fPDG;
      AddFit(fFits.Read(entry, isShown || isTrue ? FitPart::kAll : FitPart::kScalars), isShown,
             isTrue);
    }
    if (entries.fShown < 0) return;
    const FitRow& shown = fFits.Read(entries.fShown, FitPart::kNames);
    if (entries.fHasBest && fLikelihoods.size() > 1) AddLead(shown);
    if (fReport.fTruth) fReport.fTruth->AddBest(shown.fTrack, entries.fHasBest ? shown.fPDG : 0);
  }

private:
  void AddFit(const FitRow& row, bool isShown, bool isTrue) {
    HypothesisReport& hypothesis = HypothesisOf(row, fReport);
    if (row.fNDF > 0) hypothesis.fChi2Plot->AddClamped(Chi2PerNDF(row), row.fTrack);
    fLikelihoods.push_back(row.fLogLikelihood);
    if (isTrue) fReport.fTruth->AddFit(row);
    if (!isShown) return;
    if (!row.fLeaves) hypothesis.fMomentumPlot->AddClamped(row.fP, row.fTrack);
    hypothesis.fLengthPlot->AddClamped(row.fLength, row.fTrack);
    if (fFits.HasVectors()) AddVectors(row, fDetector, fReport);
  }

  void AddLead(const FitRow& best) {
    std::sort(fLikelihoods.rbegin(), fLikelihoods.rend());
    HypothesisReport& hypothesis = HypothesisOf(best, fReport);
    const double lead = fLikelihoods[0] - fLikelihoods[1];
    hypothesis.fLead.Add(lead);
    hypothesis.fLeadPlot->AddClamped(lead, best.fTrack);
  }

  FitReader& fFits;
  const geo::PlaneDetector* fDetector;
  ReportData& fReport;
  std::vector<double> fLikelihoods; // of the track at hand
};

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

void SlopeSum::Add(double coordinate, double residual) {
  fN++;
  fV += coordinate;
  fVV += coordinate * coordinate;
  fR += residual;
  fVR += coordinate * residual;
  fRR += residual * residual;
}

// The least-squares line: slope = cov(v, r) / var(v).
double SlopeSum::Slope() const {
  const double variance = fVV - fV * fV / fN;
  return fN > 2 && variance > 0 ? (fVR - fV * fR / fN) / variance : 0;
}

double SlopeSum::Error() const {
  const double variance = fVV - fV * fV / fN;
  if (!(fN > 2 && variance > 0)) return 0;
  const double left = fRR - fR * fR / fN - Slope() * Slope() * variance;
  return std::sqrt(std::max(0., left) / (fN - 2) / variance);
}

std::vector<long long> WorstTracks(FitReader& fits, std::size_t count) {
  ReportData report;
  ScalarPass scalars(fits, count, report);
  TrackEntries entries;
  for (TrackSequence tracks(fits); tracks.Next(entries);) scalars.Add(entries);
  scalars.End();
  return report.fWorstTracks;
}

ReportData GatherReport(FitReader& fits, const geo::PlaneDetector* detector,
                        const ReportOptions& options) {
  ReportData report;
  if (!options.fTruth.empty()) report.fTruth.emplace(options.fTruth);
  TrackEntries entries;
  ScalarPass scalars(fits, options.fWorst, report);
  for (TrackSequence tracks(fits); tracks.Next(entries);) scalars.Add(entries);
  scalars.End();
  MakeRanges(report);
  if (fits.HasVectors()) MakePullRanges(fits, report);
  for (auto& residuals : report.fResiduals)
    residuals.resize(detector ? detector->Planes().size() : 0);
  PlotPass plots(fits, detector, report);
  for (TrackSequence tracks(fits); tracks.Next(entries);) plots.Add(entries);
  if (report.fTruth && report.fFitted > 0 && report.fTruth->WithoutTruth() == report.fFitted)
    throw FileError(fmt::format(FMT_STRING("{}: has none of the {} fitted tracks of {}; is it the "
                                           "truth of these hits?"),
                                options.fTruth, report.fFitted, fits.File()));
  return report;
}

} // namespace kelvo
