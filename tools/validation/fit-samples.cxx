// Fits the samples of tracks that Geant4 made and compares the fits with the truth.
//
//   fit-samples                         prints a table of the figures of all samples
//   fit-samples --tracks > tracks.csv   one line per track, for document.py
//
// KELVO_SHARED_DATA tells where the samples are.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "geo/PlaneDetector.h"
#include "test/support/Geant4Sample.h"
#include "track/TrackFitter.h"

namespace {

using kelvo::HitFit;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::test::Geant4Track;

struct Sample {
  const char* fDetector;
  const char* fParticle;
  std::size_t fHypothesis; // the right one, in the order of the options
};

constexpr Sample kSamples[] = {{"fine", "mu", 0},  {"fine", "pi", 1},  {"fine", "p", 2},
                               {"range", "mu", 0}, {"range", "pi", 1}, {"range", "p", 2}};

/// What is compared with the truth in one track.
enum Column {
  kTrueP,
  kFitP,
  kPullP,
  kPullLength,
  kProb,
  kBest,
  kLead,
  kFirstPulls,                 // x, y, ux, uy at the first hit,
  kHitPulls = kFirstPulls + 4, // u and slope of the first hits of both views, those in the middle
  kColumns = kHitPulls + 12    // and the last ones
};
constexpr const char* kNames =
    "p_true,p_fit,pull_p,pull_length,prob,best,lead,pull_x,pull_y,pull_ux,pull_uy,"
    "pull_x_first,pull_tx_first,pull_y_first,pull_ty_first,"
    "pull_x_middle,pull_tx_middle,pull_y_middle,pull_ty_middle,"
    "pull_x_last,pull_tx_last,pull_y_last,pull_ty_last";

using Row = std::array<double, kColumns>;

/// Returns the hit of a view that is nearest to a place in the list.
std::size_t Nearest(const HypothesisFit& fit, int view, std::size_t place) {
  std::size_t best = fit.fHit.size();
  const auto distance = [place](std::size_t i) { return i > place ? i - place : place - i; };
  for (std::size_t i = 0; i < fit.fHit.size(); i++)
    if (fit.fHit[i].fView == view && (best == fit.fHit.size() || distance(i) < distance(best)))
      best = i;
  return best;
}

Row Compare(const TrackFit& all, const HypothesisFit& fit, const Geant4Track& track) {
  Row row{};
  row[kTrueP] = track.fP;
  row[kFitP] = fit.fP;
  row[kPullP] = (fit.fP - track.fP) / fit.fSigP;
  row[kPullLength] = (fit.fLength - track.fLength) / fit.fSigLength;
  row[kProb] = fit.fProb;
  row[kBest] = all.fBest;
  row[kLead] = all.fLead;
  const Geant4Track::Point& truth = track.fTruth.front();
  const double norm = std::sqrt(1 + truth.fDxDz * truth.fDxDz + truth.fDyDz * truth.fDyDz);
  row[kFirstPulls] = (fit.fPosition.X() - truth.fX) / std::sqrt(fit.fCov[0]);
  row[kFirstPulls + 1] = (fit.fPosition.Y() - truth.fY) / std::sqrt(fit.fCov[4]);
  row[kFirstPulls + 2] = (fit.fDirection.X() - truth.fDxDz / norm) / std::sqrt(fit.fCov[7]);
  row[kFirstPulls + 3] = (fit.fDirection.Y() - truth.fDyDz / norm) / std::sqrt(fit.fCov[9]);
  std::size_t k = kHitPulls;
  const std::size_t n = fit.fHit.size();
  for (std::size_t place : {std::size_t{0}, n / 2, n - 1})
    for (int view = 0; view < 2; view++) {
      const std::size_t i = Nearest(fit, view, place);
      const HitFit& hit = fit.fHit[i];
      const Geant4Track::Point& at = track.fTruth[i];
      row[k++] = (hit.fFitU - (view == 0 ? at.fX : at.fY)) / hit.fFitSigU;
      row[k++] = (hit.fFitSlope - (view == 0 ? at.fDxDz : at.fDyDz)) / hit.fFitSigSlope;
    }
  return row;
}

/// The rows of a sample, sorted by the true momentum, and how many tracks have no fit.
struct Fits {
  std::vector<Row> fRows;
  int fLost = 0;
};

Fits FitSample(const Sample& sample, const char* hits) {
  const geo::PlaneDetector detector = geo::PlaneDetector::FromFile(
      std::string(KELVO_SOURCE_DIR "/detectors/") + sample.fDetector + ".toml");
  kelvo::TrackFitOptions options;
  options.fEnd = kelvo::TrackEndMode::kStops; // as all do
  kelvo::TrackFitter fitter(detector, options);
  const std::string name = std::string(sample.fDetector) + "_" + sample.fParticle;
  Fits fits;
  for (const Geant4Track& track : kelvo::test::ReadGeant4(name, hits)) {
    const TrackFit fit = fitter.Fit(track.fHits);
    const HypothesisFit& right = fit.fHypothesis[sample.fHypothesis];
    if (right.fStatus == kelvo::FitStatus::kFitted)
      fits.fRows.push_back(Compare(fit, right, track));
    else
      fits.fLost++;
  }
  std::stable_sort(fits.fRows.begin(), fits.fRows.end(),
                   [](const Row& a, const Row& b) { return a[kTrueP] < b[kTrueP]; });
  return fits;
}

double Quantile(std::vector<double> values, double fraction) {
  const auto k = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size()));
  std::nth_element(values.begin(), values.begin() + k, values.end());
  return values[static_cast<std::size_t>(k)];
}

double HalfWidth(const std::vector<double>& values) {
  return (Quantile(values, 0.8413) - Quantile(values, 0.1587)) / 2;
}

/// Fitted over true momenta of a third of the rows, or of all.
std::vector<double> Ratios(const std::vector<Row>& rows, std::size_t part, std::size_t parts) {
  std::vector<double> ratios;
  for (std::size_t i = part * rows.size() / parts; i < (part + 1) * rows.size() / parts; i++)
    ratios.push_back(rows[i][kFitP] / rows[i][kTrueP]);
  return ratios;
}

std::vector<double> Values(const std::vector<Row>& rows, std::size_t column) {
  std::vector<double> values;
  for (const Row& row : rows) values.push_back(row[column]);
  return values;
}

void PrintSummary(const Sample& sample, const char* hits, const Fits& fits) {
  const std::vector<Row>& rows = fits.fRows;
  std::printf("%-5s %-2s %-7s %5zu %4d ", sample.fDetector, sample.fParticle, hits, rows.size(),
              fits.fLost);
  std::printf(" %.4f %.4f ", Quantile(Ratios(rows, 0, 1), 0.5), HalfWidth(Ratios(rows, 0, 1)));
  for (std::size_t third = 0; third < 3; third++)
    std::printf(" %.4f", Quantile(Ratios(rows, third, 3), 0.5));
  for (std::size_t column : {kPullP, kPullLength}) {
    const std::vector<double> pulls = Values(rows, column);
    const auto far =
        std::count_if(pulls.begin(), pulls.end(), [](double pull) { return std::abs(pull) > 3; });
    std::printf("  %.2f %+.2f %4.1f%%", HalfWidth(pulls), Quantile(pulls, 0.5),
                100. * static_cast<double>(far) / static_cast<double>(pulls.size()));
  }
  for (std::size_t k = kFirstPulls; k < kColumns; k++)
    std::printf("%s %.2f", (k - kFirstPulls) % 4 == 0 ? " " : "", HalfWidth(Values(rows, k)));
  std::printf(" ");
  for (double limit : {0.01, 0.1, 0.5, 0.9}) {
    const auto below = std::count_if(rows.begin(), rows.end(),
                                     [limit](const Row& row) { return row[kProb] < limit; });
    std::printf(" %.3f", static_cast<double>(below) / static_cast<double>(rows.size()));
  }
  std::printf("\n");
}

void PrintTracks(const Sample& sample, const char* hits, const Fits& fits) {
  for (const Row& row : fits.fRows) {
    std::printf("%s,%s,%s", sample.fDetector, sample.fParticle, hits);
    for (double value : row) std::printf(",%.6g", value);
    std::printf("\n");
  }
}

constexpr const char* kSummaryHeader =
    "sample, hits, fitted and lost; p over truth: median, half width, median of thirds; pulls of p "
    "and of\nthe length: half width, median, beyond 3; half widths of the pulls of x, y, ux, uy, "
    "then x, x', y, y' at\nthe first, middle and last hits; fraction of chi-square probabilities "
    "below 0.01, 0.1, 0.5, 0.9";

} // namespace

int main(int argc, char** argv) {
  if (!std::filesystem::exists(kelvo::test::Geant4Folder())) {
    std::fprintf(stderr, "no simulated tracks in %s; set KELVO_SHARED_DATA to the shared folder\n",
                 kelvo::test::Geant4Folder().c_str());
    return 2;
  }
  const bool tracks = argc > 1 && std::strcmp(argv[1], "--tracks") == 0;
  if (tracks)
    std::printf("detector,particle,hits,%s\n", kNames);
  else
    std::puts(kSummaryHeader);
  for (const Sample& sample : kSamples)
    for (const char* hits : {"cell", "smeared"}) {
      const Fits fits = FitSample(sample, hits);
      (tracks ? PrintTracks : PrintSummary)(sample, hits, fits);
      std::fflush(stdout);
    }
}
