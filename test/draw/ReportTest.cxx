// The report: its numbers against the rows it is made from, and a page that holds nothing but what
// was meant.

#include "draw/Report.h"
#include "draw/ReportData.h"
#include "draw/ReportPlots.h"
#include "io/FileError.h"
#include "io/HitReader.h"
#include "test/support/FitsFiles.h"
#include "test/support/SvgShapes.h"
#include "test/support/TempFolder.h"
#include "track/TrackFitter.h"

#include <TF1.h>
#include <TH1D.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using kelvo::FitRow;

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";
const char* const kEvil = "<script>alert('track')</script><img src=x onerror=\"alert(1)\">";

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

/// The rows of 60 tracks, of which the fit of the last two failed.
const std::vector<FitRow>& Rows() {
  static const std::vector<FitRow> rows = [] {
    std::vector<FitRow> all;
    kelvo::TrackFitOptions options;
    options.fWithPlanes = true;
    kelvo::TrackFitter fitter(Detector(), options);
    kelvo::HitReader reader({kMuons});
    kelvo::TrackHits track;
    for (int i = 0; i < 60 && reader.Next(track); i++) {
      if (i >= 58) track.fHits.resize(1);
      for (auto& row : kelvo::FitRows(track, fitter.Fit(track.fHits), true)) all.push_back(row);
    }
    all.back().fMessage = all[all.size() - 3].fMessage = kEvil;
    return all;
  }();
  return rows;
}

class Report : public testing::Test {
protected:
  std::string Write(const std::vector<FitRow>& rows, bool withVectors = true,
                    const std::string& detector = Detector().Text(),
                    const std::string& beam = "0") {
    kelvo::FitWriterOptions options;
    options.fWithVectors = withVectors;
    options.fTexts = {{"detector", detector},
                      {"options", "hits = " + fHits + "\nbeam_momentum = " + beam + "\n"},
                      {"version", "1.2.3"},
                      {"run", "date = 2024-02-29T12:00:00Z\nhost = \"<b>farm\"\nseconds = 1.250\n"},
                      {"command", std::string("kelvo fit ") + kEvil}};
    return test::WriteRows(fFolder.Path("fits.root"), rows, options);
  }

  std::string Page(const std::string& fits) {
    kelvo::FitReader reader(fits);
    kelvo::WriteReport(reader, fFolder.Path("page.html"));
    return fFolder.Read("page.html");
  }

  kelvo::ReportData Data(const std::vector<FitRow>& rows) {
    kelvo::FitReader reader(Write(rows));
    return kelvo::GatherReport(reader, &Detector());
  }

  std::string fHits = "[\"a.csv\", \"b.csv\"]";
  test::TempFolder fFolder;
};

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    count++;
  return count;
}

bool Contains(const std::string& text, const std::string& part) {
  return Count(text, part) > 0;
}

bool IsWild(const kelvo::ReportData& data, const FitRow& row, std::size_t i) {
  return std::abs(static_cast<double>(row.fPull[i])) >=
         data.fWildPull[static_cast<std::size_t>(row.fHitView[i])];
}

TEST_F(Report, CountsTracksFitsAndFailures) {
  const kelvo::ReportData data = Data(Rows());
  EXPECT_EQ(data.fTracks, 60u);
  EXPECT_EQ(data.fFitted, 58u);
  ASSERT_EQ(data.fHypotheses.size(), 3u);
  unsigned long long best = 0;
  for (const auto& hypothesis : data.fHypotheses) {
    EXPECT_EQ(hypothesis.fFitted, 58u);
    best += hypothesis.fBest;
  }
  EXPECT_EQ(best, 58u);
  ASSERT_EQ(data.fFailures.size(), 1u);
  const auto& [status, failure] = *data.fFailures.begin();
  EXPECT_EQ(status, 1);
  EXPECT_EQ(failure.fCount, 2u);
  ASSERT_EQ(failure.fExamples.size(), 2u);
  EXPECT_EQ(failure.fExamples[0].fTrack, 58);
  EXPECT_EQ(failure.fExamples[1].fTrack, 59);
}

TEST_F(Report, HasEveryHitAndKinkOfTheBestFits) {
  const kelvo::ReportData data = Data(Rows());
  unsigned long long hits[2] = {};
  unsigned long long kinks = 0;
  double sum[2] = {};
  for (const FitRow& row : Rows()) {
    if (!row.fBest) continue;
    kinks += row.fPlaneS.size();
    for (std::size_t i = 0; i < row.fHitZ.size(); i++) {
      hits[row.fHitView[i]]++;
      if (!IsWild(data, row, i)) sum[row.fHitView[i]] += static_cast<double>(row.fResidual[i]);
    }
  }
  for (std::size_t v = 0; v < 2; v++) {
    EXPECT_EQ(data.fPull[v].Inside() + data.fPull[v].Outside(), hits[v]);
    EXPECT_EQ(data.fKink[v].Inside() + data.fKink[v].Outside(), kinks);
    kelvo::ResidualSum all;
    kelvo::ResidualSum parts;
    for (const auto& plane : data.fResiduals[v]) {
      all.fN += plane.fAll.fN + plane.fWild;
      all.fSum += plane.fAll.fSum;
      parts.fN += plane.fWild;
      for (const auto& part : plane.fByPosition) parts.fN += part.fN;
    }
    EXPECT_EQ(all.fN, hits[v]);
    EXPECT_EQ(parts.fN, hits[v]);
    EXPECT_NEAR(all.fSum, sum[v], 1e-9);
  }
}

// The planes of this detector have 32 cells with a pitch of 4.05 cm around 0: 24 parts of 5.4 cm.
TEST_F(Report, PutsResidualsWhereTheHitsWere) {
  const kelvo::ReportData data = Data(Rows());
  std::vector<unsigned long long> expected(24);
  std::vector<unsigned long long> found(24);
  for (const FitRow& row : Rows()) {
    if (!row.fBest) continue;
    for (std::size_t i = 0; i < row.fHitZ.size(); i++)
      for (std::size_t k = 0; k < 24; k++) {
        const double low = -64.8 + 5.4 * static_cast<double>(k);
        if (!IsWild(data, row, i) && row.fHitU[i] >= low && row.fHitU[i] < low + 5.4) expected[k]++;
      }
  }
  for (const auto& view : data.fResiduals)
    for (std::size_t plane = 0; plane < view.size(); plane++)
      for (std::size_t k = 0; k < 24; k++) found[k] += view[plane].fByPosition[k].fN;
  EXPECT_EQ(found, expected);
}

TEST_F(Report, DisplaysTheBestTypicalAndWorstTracksOnce) {
  const kelvo::ReportData data = Data(Rows());
  std::vector<double> probabilities;
  for (const FitRow& row : Rows())
    if (row.fBest) probabilities.push_back(row.fProb);
  std::sort(probabilities.begin(), probabilities.end());
  const auto probability = [](long long entry) {
    return Rows()[static_cast<std::size_t>(entry)].fProb;
  };
  ASSERT_EQ(data.fBestTracks.size(), 4u);
  ASSERT_EQ(data.fTypicalTracks.size(), 4u);
  ASSERT_EQ(data.fWorstTracks.size(), 10u);
  for (std::size_t i = 0; i < 10; i++)
    EXPECT_EQ(probability(data.fWorstTracks[i]), probabilities[i]);
  for (std::size_t i = 0; i < 4; i++) {
    EXPECT_EQ(probability(data.fBestTracks[i]), probabilities[57 - i]);
    EXPECT_GE(probability(data.fTypicalTracks[i]), probabilities[26]);
    EXPECT_LE(probability(data.fTypicalTracks[i]), probabilities[32]);
  }
}

TEST_F(Report, DisplaysAFewTracksWithoutRepeatingThem) {
  std::vector<FitRow> rows(Rows().begin(), Rows().begin() + 15);
  const kelvo::ReportData data = Data(rows);
  EXPECT_EQ(data.fBestTracks.size() + data.fTypicalTracks.size() + data.fWorstTracks.size(), 5u);
}

TEST_F(Report, TakesTracksOfOneNumberInARowAsTwo) {
  std::vector<FitRow> rows(Rows().begin(), Rows().begin() + 6);
  for (FitRow& row : rows) row.fTrack = 7;
  EXPECT_EQ(Data(rows).fTracks, 2u);
}

TEST_F(Report, ShowsPlotsTracksAndFailures) {
  const std::string page = Page(Write(Rows()));
  EXPECT_EQ(Count(page, "<figure"), 30u); // 12 plots and 18 tracks
  EXPECT_EQ(Count(page, "</svg>"), 30u);
  EXPECT_EQ(Count(page, "<figcaption>"), 30u);
  EXPECT_TRUE(Contains(page, "60 tracks, 58 fitted"));
  EXPECT_TRUE(Contains(page, "kelvo 1.2.3"));
  EXPECT_TRUE(Contains(page, "2024-02-29T12:00:00Z on &lt;b&gt;farm, 1.250 s"));
  EXPECT_TRUE(Contains(page, "<dt>hits from</dt><dd>a.csv, b.csv</dd>"));
  EXPECT_TRUE(Contains(page, "fine, 128 planes"));
  EXPECT_TRUE(Contains(page, "<td>too few hits in a view</td><td>2</td>"));
  EXPECT_TRUE(Contains(page, "x view: 68 % lie within ±"));
}

TEST_F(Report, ShowsTextFromInputAsText) {
  std::string detector = Detector().Text();
  const std::string name = "name = \"fine\"";
  std::string quoted;
  for (const char* c = kEvil; *c; c++) quoted += (*c == '"' ? "\\\"" : std::string(1, *c));
  detector.replace(detector.find(name), name.size(), "name = \"" + quoted + '"');
  const std::string page = Page(Write(Rows(), true, detector));
  EXPECT_EQ(Count(page, "<script"), 1u); // the page's own
  EXPECT_FALSE(Contains(page, "<img"));
  // In the title, heading, list and twice in the description and the command; and for two tracks.
  EXPECT_GE(Count(page, "&lt;script&gt;alert(&#39;track&#39;)"), 5u);
  EXPECT_TRUE(Contains(page, "track 58: view"));
}

TEST_F(Report, NeedsNothingFromOutside) {
  const std::string page = Page(Write(Rows()));
  for (const char* bad : {" src=\"", "@import", "url(", "<link", "<iframe", "<object"})
    EXPECT_FALSE(Contains(page, bad)) << bad;
  EXPECT_EQ(Count(page, "http"), Count(page, "xmlns=\"http://www.w3.org/2000/svg\"") + 1);
  EXPECT_TRUE(Contains(page, "Content-Security-Policy"));
}

TEST_F(Report, SaysWhatAFileWithoutVectorsLacks) {
  const std::string page = Page(Write(Rows(), false));
  EXPECT_TRUE(Contains(page, "The file has no hits and planes"));
  EXPECT_EQ(Count(page, "<figure"), 6u);
}

TEST_F(Report, IsMadeWithoutAnyFit) {
  const std::string page = Page(Write({Rows().end() - 6, Rows().end()}));
  EXPECT_TRUE(Contains(page, "2 tracks, 0 fitted"));
  EXPECT_TRUE(Contains(page, "No track was fitted."));
  EXPECT_EQ(Count(page, "<figure"), 0u);
  EXPECT_TRUE(Contains(Page(Write({})), "0 tracks, 0 fitted"));
}

TEST_F(Report, IsMadeOfASingleTrackOfOneHypothesis) {
  FitRow row = Rows()[0];
  row.fBest = true;
  const std::string page = Page(Write({row}));
  EXPECT_TRUE(Contains(page, "1 track, 1 fitted"));
  EXPECT_EQ(Count(page, "<figure"), 11u); // no comparison of hypotheses
}

// Nothing follows from where the particles of a beam stop.
TEST_F(Report, ShowsNoRangesOfABeam) {
  const std::string page = Page(Write(Rows(), true, Detector().Text(), "120"));
  EXPECT_TRUE(Contains(page, "<dt>particles</dt><dd>a beam of 120 GeV/c</dd>"));
  EXPECT_EQ(Count(page, "<figure"), 28u);
  EXPECT_FALSE(Contains(page, "Momentum at the first hit"));
}

TEST_F(Report, IsMadeForAGeometryThatKnowsNoPlanes) {
  const std::string page = Page(Write(Rows(), true, "the geometry \"<b>hall</b>\" in memory"));
  EXPECT_TRUE(Contains(page, "&lt;b&gt;hall&lt;/b&gt;"));
  EXPECT_EQ(Count(page, "<figure"), 26u);
}

// As in a beam, and for tracks that leave the detector.
TEST_F(Report, ShowsTracksWithoutABestHypothesisUnderTheirFirstOne) {
  std::vector<FitRow> rows = Rows();
  for (FitRow& row : rows) row.fBest = false;
  const kelvo::ReportData data = Data(rows);
  EXPECT_EQ(data.fWithoutBest, 58u);
  EXPECT_EQ(data.fProb.Inside(), 58u);
  EXPECT_EQ(data.fHypotheses[0].fShown, 58u);
  EXPECT_EQ(data.fHypotheses[0].fMomentumPlot->Inside(), 58u);
  EXPECT_GT(data.fPull[0].Inside(), 1000u);
  EXPECT_EQ(data.fWorstTracks.size(), 10u);
  const std::string page = Page(Write(rows));
  EXPECT_TRUE(Contains(page, "of these, without a best hypothesis</td><td>58</td>"));
  EXPECT_FALSE(Contains(page, "How often each hypothesis fits best"));
}

// Numbers of hits in the wrong unit.
TEST_F(Report, HasRangesThatFitTheData) {
  std::vector<FitRow> rows = Rows();
  for (FitRow& row : rows) {
    row.fChi2X *= 1e6;
    row.fChi2Y *= 1e6;
    for (float& pull : row.fPull) pull *= 1e3F;
  }
  const kelvo::ReportData data = Data(rows);
  const kelvo::Histogram& chi2 = *data.fHypotheses[0].fChi2Plot;
  EXPECT_LT(chi2.Max(), 15u); // 58 tracks, not in one bin
  EXPECT_LE(data.fPull[0].Outside() + data.fPull[1].Outside(), 50u);
  const std::string page = Page(fFolder.Path("fits.root"));
  EXPECT_TRUE(Contains(page, "<a href=\"#pulls\">Pulls of the hits</a>: x view: "));
  EXPECT_TRUE(Contains(page, "<a href=\"#chi2\">Chi-square per degree of freedom</a>"));
}

TEST_F(Report, ListsAndDisplaysAsManyOfTheWorstAsAsked) {
  kelvo::FitReader reader(Write(Rows()));
  kelvo::ReportOptions options;
  options.fWorst = 3;
  kelvo::WriteReport(reader, fFolder.Path("page.html"), options);
  const std::string page = fFolder.Read("page.html");
  EXPECT_EQ(Count(page, "<a href=\"#track-"), 3u);
  EXPECT_EQ(Count(page, "<p>Largest pull "), 3u + 8);
  for (std::size_t at = page.find("href=\"#"); at != std::string::npos;
       at = page.find("href=\"#", at + 1)) {
    const std::string id = page.substr(at + 7, page.find('"', at + 7) - at - 7);
    EXPECT_EQ(Count(page, " id=\"" + id + '"'), 1u) << id;
  }
}

TEST_F(Report, TellsTheTracksOfABin) {
  const kelvo::ReportData data = Data(Rows());
  const kelvo::Histogram& prob = data.fProb;
  for (const FitRow& row : Rows()) {
    if (!row.fBest) continue;
    const auto bin = static_cast<std::size_t>(row.fProb * 50);
    const std::vector<long long>& tracks = prob.Tracks().at(bin);
    EXPECT_NE(std::find(tracks.begin(), tracks.end(), row.fTrack), tracks.end());
  }
}

TEST_F(Report, ComparesWithTheTruth) {
  fHits = "[\"a.csv\"]";
  kelvo::FitReader reader(Write(Rows()));
  kelvo::ReportOptions options;
  options.fTruth = KELVO_SOURCE_DIR "/examples/data/fine_mu_truth.csv.gz";
  const kelvo::ReportData data = kelvo::GatherReport(reader, &Detector(), options);
  ASSERT_TRUE(data.fTruth);
  EXPECT_EQ(data.fTruth->Compared(), 58u);
  EXPECT_EQ(data.fTruth->WithoutTruth(), 0u);
  const kelvo::Spread momentum =
      kelvo::SpreadOf(data.fTruth->Of(kelvo::TruthComparison::kMomentum).fValues);
  EXPECT_NEAR(momentum.fMedian, 0, 5 * momentum.fMedianError);
  EXPECT_NEAR(momentum.fWidth, 0.027, 0.012); // of all 3000 tracks
  unsigned long long all = 0;
  for (const auto& [pair, count] : data.fTruth->Confusion()) {
    EXPECT_EQ(pair.first, 13);
    for (const auto& hypothesis : data.fHypotheses) {
      if (hypothesis.fPDG == pair.second) {
        EXPECT_EQ(count, hypothesis.fBest);
      }
    }
    all += count;
  }
  EXPECT_EQ(all, 58u);
  kelvo::WriteReport(reader, fFolder.Path("page.html"), options);
  const std::string page = fFolder.Read("page.html");
  EXPECT_TRUE(Contains(page, "58 of 3000 true tracks in "));
  EXPECT_EQ(Count(page, "<figure id=\"true-"), 7u);
}

TEST_F(Report, RefusesTheTruthOfOtherHits) {
  fHits = "[\"a.csv\"]";
  fFolder.Write("truth.csv", "track,pdg,x0,y0,z0,px,py,pz\n777777,13,0,0,0,0,0,1\n");
  kelvo::FitReader reader(Write(Rows()));
  kelvo::ReportOptions options;
  options.fTruth = fFolder.Path("truth.csv");
  try {
    kelvo::GatherReport(reader, &Detector(), options);
    FAIL();
  } catch (const kelvo::FileError& e) {
    EXPECT_EQ(std::string(e.what()), options.fTruth + ": has none of the 58 fitted tracks of " +
                                         reader.File() + "; is it the truth of these hits?");
  }
  EXPECT_THROW(kelvo::WriteReport(reader, fFolder.Path("page.html"), options), kelvo::FileError);
  EXPECT_FALSE(std::filesystem::exists(fFolder.Path("page.html")));
}

TEST_F(Report, RefusesOneTruthForSeveralFilesOfHits) {
  kelvo::FitReader reader(Write(Rows()));
  kelvo::ReportOptions options;
  options.fTruth = "truth.csv";
  try {
    kelvo::WriteReport(reader, fFolder.Path("page.html"), options);
    FAIL();
  } catch (const kelvo::FileError& e) {
    EXPECT_EQ(std::string(e.what()),
              "truth.csv: is the truth of one file of hits, but the fits in " + reader.File() +
                  " are of several");
  }
}

TEST_F(Report, SaysThatTheDetectorOfAFileCannotBeUsed) {
  const std::string fits = Write(Rows(), true, "name = ");
  try {
    Page(fits);
    FAIL();
  } catch (const geo::DetectorError& e) {
    EXPECT_EQ(std::string(e.what()).rfind(fits + ", detector:1:", 0), 0u) << e.what();
  }
}

// Ten thousand numbers: the error of their width is 0.7 %.
TEST(FitGaussian, FindsMeanAndWidth) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal(0.3, 0.8);
  kelvo::Histogram histogram(-5, 5, 100);
  for (int i = 0; i < 10000; i++) histogram.Add(normal(random), i);
  const kelvo::Gaussian gaussian = kelvo::FitGaussian(histogram);
  ASSERT_TRUE(gaussian.fFitted);
  EXPECT_NEAR(gaussian.fMean, 0.3, 4 * 0.008);
  EXPECT_NEAR(gaussian.fWidth, 0.8, 4 * 0.8 / std::sqrt(20000));
  EXPECT_NEAR(gaussian.fWidthError, 0.8 / std::sqrt(20000), 0.1 * 0.0057);
  EXPECT_NEAR(gaussian.fMeanError, 0.008, 0.0008);
}

// ROOT's minimiser goes another way to the same maximum; it stops near it.
TEST(FitGaussian, AgreesWithRootsFit) {
  constexpr double kTolerance = 0.01; // standard deviations
  std::mt19937 random(5);
  for (const double mean : {-2., 0., 1.5})
    for (const int entries : {25, 300, 100000}) {
      std::normal_distribution<double> normal(mean, 1.1);
      kelvo::Histogram histogram(-5, 5, 50);
      TH1D counts("", "", 50, -5, 5);
      counts.SetDirectory(nullptr);
      for (int i = 0; i < entries; i++) {
        const double value = normal(random);
        histogram.Add(value, i);
        counts.Fill(value);
      }
      TF1 bell("bell", "gaus", -5, 5, TF1::EAddToList::kNo);
      bell.SetParameters(counts.GetMaximum(), mean, 1.1);
      counts.Fit(&bell, "Q N 0 L");
      const kelvo::Gaussian gaussian = kelvo::FitGaussian(histogram);
      ASSERT_TRUE(gaussian.fFitted);
      EXPECT_NEAR(gaussian.fHeight, bell.GetParameter(0), kTolerance * bell.GetParError(0));
      EXPECT_NEAR(gaussian.fMean, bell.GetParameter(1), kTolerance * bell.GetParError(1));
      EXPECT_NEAR(gaussian.fWidth, bell.GetParameter(2), kTolerance * bell.GetParError(2));
      EXPECT_NEAR(gaussian.fMeanError, bell.GetParError(1), kTolerance * bell.GetParError(1));
      EXPECT_NEAR(gaussian.fWidthError, bell.GetParError(2), kTolerance * bell.GetParError(2));
    }
}

TEST(FitGaussian, LeavesWhatIsNoBellAlone) {
  kelvo::Histogram ends(-5, 5, 100);
  for (int i = 0; i < 500; i++) ends.Add(i % 2 ? -4.5 - 0.001 * i : 4.5 + 0.001 * i, i);
  EXPECT_FALSE(kelvo::FitGaussian(ends).fFitted);
  kelvo::Histogram slope(-5, 5, 100);
  for (int i = 0; i < 5000; i++) slope.Add(-5 + 10 * std::pow((i + 0.5) / 5000, 0.25), i);
  EXPECT_FALSE(kelvo::FitGaussian(slope).fFitted);
}

TEST(FitGaussian, LeavesTooFewEntriesAlone) {
  kelvo::Histogram histogram(-5, 5, 100);
  for (int i = 0; i < 19; i++) histogram.Add(0.1 * i, i);
  EXPECT_FALSE(kelvo::FitGaussian(histogram).fFitted);
}

TEST(LogHistogram, GivesTheMedian) {
  kelvo::LogHistogram histogram;
  EXPECT_TRUE(std::isnan(histogram.Median()));
  histogram.Add(120);
  EXPECT_EQ(histogram.Median(), 120);
  for (int i = 1; i <= 1000; i++) histogram.Add(0.01 * i);
  EXPECT_NEAR(histogram.Median(), 5, 0.03);
}

// Chi-square per degree of freedom of hits with uncertainties in the wrong unit, probabilities of
// bad fits, zeros of perfect ones.
TEST(LogHistogram, GivesTheMedianOfNumbersOfAnySize) {
  for (const double scale : {1e-300, 1e-9, 1e-4, 1e4, 3e7, 1e300}) {
    kelvo::LogHistogram histogram;
    for (int i = 1; i <= 999; i++) histogram.Add(scale * i);
    EXPECT_NEAR(histogram.Median() / scale, 500, 2.6);
    EXPECT_NEAR(histogram.Quantile(0.9) / scale, 900, 4.6);
  }
  kelvo::LogHistogram zeros;
  for (const double value : {0., 0., 0., 1., 7., std::nan("")}) zeros.Add(value);
  EXPECT_EQ(zeros.Entries(), 5u);
  EXPECT_EQ(zeros.Median(), 0);
  const double infinity = std::numeric_limits<double>::infinity();
  for (int i = 0; i < 4; i++) zeros.Add(infinity);
  EXPECT_NEAR(zeros.Median(), 7, 0.035);
  EXPECT_GT(zeros.Quantile(0.9), 1e300);
}

TEST(Histogram, CountsWhatIsOutside) {
  kelvo::Histogram histogram(0, 1, 4);
  for (const double value : {-0.1, 0., 0.24, 0.25, 0.999, 1., 7.}) histogram.Add(value, 1);
  histogram.Add(std::nan(""), 2);
  EXPECT_EQ(histogram.Counts(), (std::vector<unsigned long long>{2, 1, 0, 1}));
  EXPECT_EQ(histogram.Outside(), 4u);
  histogram.AddClamped(-3, 3);
  histogram.AddClamped(3, 3);
  EXPECT_EQ(histogram.Counts(), (std::vector<unsigned long long>{3, 1, 0, 2}));
  EXPECT_EQ(histogram.Tracks()[0], (std::vector<long long>{1, 3}));
  EXPECT_EQ(histogram.Tracks()[2], std::vector<long long>());
}

} // namespace
