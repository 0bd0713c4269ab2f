// From files of hits to files of fits: order, counts, and what is left of a run that fails.

#include "io/FileError.h"
#include "io/FitReader.h"
#include "run/FitFile.h"
#include "test/support/BundledDetector.h"
#include "test/support/FitsFiles.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <regex>
#include <sstream>

namespace {

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

kelvo::FitFileOptions Options(const test::TempFolder& folder) {
  kelvo::FitFileOptions options;
  options.fInputs = {kMuons};
  options.fOutput = folder.Path("fits.root");
  options.fCsv = folder.Path("fits.csv");
  options.fLimit = 150;
  return options;
}

template <typename Error>
std::string ErrorOf(const kelvo::FitFileOptions& options,
                    const geo::PlaneDetector& detector = Detector()) {
  try {
    kelvo::FitFile(detector, options);
  } catch (const Error& e) {
    return e.what();
  }
  return "no error";
}

TEST(FitFile, GivesTheSameContentForAnyNumberOfThreads) {
  const test::TempFolder folder;
  auto options = Options(folder);
  kelvo::FitFile(Detector(), options);
  const std::string content = test::Content(options.fOutput);
  const std::string csv = folder.Read("fits.csv");
  EXPECT_GT(content.size(), 1000u);
  for (const unsigned threads : {2u, 5u}) {
    options.fThreads = threads;
    kelvo::FitFile(Detector(), options);
    EXPECT_TRUE(test::Content(options.fOutput) == content) << threads;
    EXPECT_TRUE(folder.Read("fits.csv") == csv) << threads;
  }
}

TEST(FitFile, SumsUpWhatCameOut) {
  const test::TempFolder folder;
  const auto options = Options(folder);
  unsigned long long shown = 0;
  const auto summary = kelvo::FitFile(Detector(), options, [&](const kelvo::Progress& p) {
    EXPECT_GT(p.fTracks, shown);
    shown = p.fTracks;
    EXPECT_GE(p.fFraction, static_cast<double>(p.fTracks) / 150);
    EXPECT_LE(p.fFraction, 1);
    return true;
  });
  EXPECT_EQ(shown, 150u);
  EXPECT_EQ(summary.fTracks, 150u);
  EXPECT_EQ(summary.fFitted, 150u);
  EXPECT_EQ(summary.fByStatus[0], 150u);
  EXPECT_TRUE(summary.AllUsed());
  ASSERT_EQ(summary.fHypotheses.size(), 3u);
  unsigned long long best = 0;
  for (const auto& hypothesis : summary.fHypotheses) {
    EXPECT_EQ(hypothesis.fFitted, 150u);
    best += hypothesis.fBest;
  }
  EXPECT_GT(summary.fLeft, 0u);
  EXPECT_EQ(best + summary.fLeft, 150u); // which have several hypotheses, none of them the best

  // The median, from the CSV file by sorting.
  std::istringstream lines(folder.Read("fits.csv"));
  std::string line;
  std::getline(lines, line);
  std::vector<double> ratios;
  while (std::getline(lines, line)) {
    std::vector<std::string> fields;
    std::istringstream row(line);
    for (std::string field; std::getline(row, field, ',');) fields.push_back(field);
    double chi2 = 0;
    for (std::size_t i = 8; i < 12; i++) chi2 += std::stod(fields[i]);
    if (fields[1] == "13") ratios.push_back(chi2 / std::stod(fields[12]));
  }
  std::sort(ratios.begin(), ratios.end());
  const double below = ratios[ratios.size() / 2 - 1];
  const double above = ratios[ratios.size() / 2];
  EXPECT_GT(summary.fHypotheses[0].fMedianChi2PerNDF, 0.995 * below);
  EXPECT_LT(summary.fHypotheses[0].fMedianChi2PerNDF, 1.005 * above);
}

TEST(FitFile, KeepsOptionsAndDetectorInTheFile) {
  const test::TempFolder folder;
  auto options = Options(folder);
  options.fInputs = {folder.Write("a \"b\".csv", "event,view,u,z,sigu\n")};
  options.fReader.fColumns = {{"track", "event"}};
  options.fFit.fHypotheses = {13, 2212};
  options.fFit.fScatteringFactor = 1;
  options.fScalarsOnly = true;
  kelvo::FitFile(Detector(), options);
  const kelvo::FitReader fits(options.fOutput);
  EXPECT_EQ(fits.Text("detector"), Detector().Text());
  EXPECT_EQ(fits.Text("version"), KELVO_VERSION);
  EXPECT_TRUE(std::regex_match(fits.Text("run"),
                               std::regex("date = 20\\d\\d-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ\n"
                                          "host = \".*\"\nseconds = \\d+\\.\\d{3}\n")))
      << fits.Text("run");
  std::string expected = "hits = [\"" + folder.Path("a \\\"b\\\".csv") +
                         "\"]\n"
                         "column.track = \"event\"\n"
                         "hypotheses = [13, 2212]\n"
                         "scattering_factor = 1\n"
                         "beyond_last_hit = 0.5\n"
                         "beam_momentum = 0\n"
                         "sig_beam_momentum = 0\n"
                         "with_planes = false\n"
                         "end = \"auto\"\n"
                         "scattering_momentum = true\n"
                         "first = 0\n"
                         "limit = 150\n";
  EXPECT_EQ(fits.Text("options"), expected);
}

const char* const kOneGoodOfFour =
    "track,view,u,z,sigu\n"
    "1,X,0,3,0.3\n1,Y,0,9.05,0.3\n1,X,0,15.1,0.3\n1,Y,0,21.15,0.3\n"
    "2,X,0,3,0.3\n2,Y,zero,9.05,0.3\n"
    "3,X,0,3,0.3\n"
    "1,X,0,3,0.3\n1,Y,0,9.05,0.3\n1,X,0,15.1,0.3\n1,Y,0,21.15,0.3\n";

TEST(FitFile, CountsWhatCouldNotBeUsedAndSaysWhy) {
  const test::TempFolder folder;
  auto options = Options(folder);
  const std::string file = folder.Write("hits.csv", kOneGoodOfFour);
  options.fInputs = {file};
  const auto summary = kelvo::FitFile(Detector(), options);
  EXPECT_FALSE(summary.AllUsed());
  EXPECT_EQ(summary.fTracks, 4u);
  EXPECT_EQ(summary.fFitted, 1u);
  EXPECT_EQ(summary.fByStatus, (std::array<unsigned long long, 6>{1, 1, 2, 0, 0, 0}));
  EXPECT_EQ(summary.fBadLines, 2u);
  EXPECT_EQ(summary.fProblemCount, 3u);
  ASSERT_EQ(summary.fProblems.size(), 3u);
  EXPECT_EQ(summary.fProblems[0], file + ", line 7, column u: \"zero\" is not a number");
  EXPECT_EQ(summary.fProblems[1].find(file + ", line 8: track 3 is not fitted: "), 0u);
  EXPECT_EQ(summary.fProblems[2], file +
                                      ", line 9, column track: track 1 had lines further up; the "
                                      "lines of a track must stand together");
  std::istringstream lines(folder.Read("fits.csv"));
  std::string line, tracks;
  std::getline(lines, line);
  while (std::getline(lines, line)) tracks += line.substr(0, 2);
  EXPECT_EQ(tracks, "1,1,1,2,2,2,3,3,3,1,1,1,");
}

TEST(FitFile, StopsAtTheFirstProblemWhenStrict) {
  const test::TempFolder folder;
  auto options = Options(folder);
  const std::string file = folder.Write("hits.csv", kOneGoodOfFour);
  options.fInputs = {file};
  options.fStrict = true;
  EXPECT_EQ(ErrorOf<kelvo::StrictStop>(options),
            file + ", line 7, column u: \"zero\" is not a number");
  EXPECT_EQ(folder.Files(), 1);
}

TEST(FitFile, StopsWhenTheCallerWants) {
  const test::TempFolder folder;
  EXPECT_THROW(
      kelvo::FitFile(Detector(), Options(folder), [](const kelvo::Progress&) { return false; }),
      kelvo::RunStopped);
  EXPECT_EQ(folder.Files(), 0);
}

TEST(FitFile, LeavesNoResultWhenTheInputIsCutOff) {
  const test::TempFolder folder;
  const test::TempFolder bundled;
  std::ifstream in(kMuons, std::ios::binary);
  std::string bytes(200'000, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  auto options = Options(folder);
  options.fInputs = {bundled.Write("cut.csv.gz", bytes)};
  options.fLimit = 0;
  options.fThreads = 2;
  const std::string error = ErrorOf<kelvo::FileError>(options);
  EXPECT_EQ(error.find(options.fInputs[0] + ": cannot be read on after line "), 0u) << error;
  EXPECT_EQ(folder.Files(), 0);
}

TEST(FitFile, LeavesNoResultWhenItIsKilled) {
  const test::TempFolder folder;
  const auto options = Options(folder);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    kelvo::FitFile(Detector(), options, [](const kelvo::Progress&) {
      std::raise(SIGKILL);
      return true;
    });
    std::_Exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_FALSE(std::filesystem::exists(options.fOutput));
  EXPECT_FALSE(std::filesystem::exists(options.fCsv));
}

TEST(FitFile, RefusesToWriteOverItsInput) {
  const test::TempFolder folder;
  auto options = Options(folder);
  options.fInputs = {folder.Write("fits.root", "precious")};
  EXPECT_EQ(ErrorOf<std::invalid_argument>(options), options.fOutput + " is both input and output");
  options = Options(folder);
  options.fCsv = folder.Path("./fits.root");
  EXPECT_EQ(ErrorOf<std::invalid_argument>(options), options.fCsv + " is named twice as output");
  options.fInputs.clear();
  EXPECT_EQ(ErrorOf<std::invalid_argument>(options), "there is no file of hits");
  EXPECT_EQ(folder.Read("fits.root"), "precious");
}

TEST(FitFile, RefusesADetectorOfUnknownMaterialsUnlessItIsInABeam) {
  const auto telescope = geo::PlaneDetector::FromText(
      std::regex_replace(BundledDetector("telescope").Text(), std::regex("\"Air\""), "\"Mist\""),
      "telescope.toml");
  const test::TempFolder folder;
  auto options = Options(folder);
  options.fInputs = {folder.Write("hits.csv", "track,z,x,y,sigx,sigy\n")};
  EXPECT_EQ(ErrorOf<std::invalid_argument>(options, telescope),
            "the detector \"telescope\" has Mist, of which neither the name nor the composition is "
            "known, so that particles cannot be followed to where they stop; name a material of "
            "'kelvo materials', give a composition, or fit a beam of known momentum");
  options.fFit.fBeamMomentum = 120;
  EXPECT_EQ(ErrorOf<std::invalid_argument>(options, telescope), "no error");
}

TEST(FitFile, AddsTheOffsetsOfPlanesToTheirHits) {
  const auto telescope = geo::PlaneDetector::FromText(
      std::regex_replace(BundledDetector("telescope").Text(), std::regex("\"Air\""), "\"Mist\""),
      "telescope.toml");
  const test::TempFolder folder;
  std::string text = "track,z,x,y,sigx,sigy\n";
  // Hits that a straight track leaves in planes that are shifted as the detector's file says.
  for (const geo::ActivePlane& plane : telescope.Planes()) {
    const double z = plane.ZMid() - plane.fOffset[2];
    std::ostringstream line;
    line.precision(17);
    line << "0," << z << ',' << 1 + 0.01 * z - plane.fOffset[0] << ','
         << 1 - 0.02 * z - plane.fOffset[1] << ",0.007,0.0014\n";
    text += line.str();
  }
  auto options = Options(folder);
  options.fInputs = {folder.Write("hits.csv", text)};
  options.fFit.fBeamMomentum = 120;
  const auto summary = kelvo::FitFile(telescope, options);
  EXPECT_EQ(summary.fFitted, 1u);
  kelvo::FitReader fits(options.fOutput);
  ASSERT_EQ(fits.Entries(), 3);
  for (long long i = 0; i < fits.Entries(); i++) {
    EXPECT_LT(fits.Read(i, kelvo::FitPart::kScalars).fChi2X, 1e-12);
    EXPECT_LT(fits.Read(i, kelvo::FitPart::kScalars).fChi2Y, 1e-12);
  }
}

} // namespace
