// Fits of parts of the tracks, joined to what one run makes.

#include "io/FileError.h"
#include "io/FitReader.h"
#include "run/FitFile.h"
#include "run/FitMerge.h"
#include "test/support/FitsFiles.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";
constexpr unsigned long long kTracks = 60;

const geo::Detector& Detector() {
  static const auto detector = geo::Detector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

/// Makes hits of the first tracks as an own file, so that its end is there to be met.
std::string Hits(const test::TempFolder& folder) {
  kelvo::HitReader reader({kMuons});
  std::string text = "track,view,u,z,sigu\n";
  kelvo::TrackHits track;
  for (unsigned long long i = 0; i < kTracks && reader.Next(track); i++)
    for (const kelvo::Hit3D& hit : track.fHits) {
      const bool isX = hit.fView == geo::kX;
      text += std::to_string(track.fTrack) + (isX ? ",X," : ",Y,") +
              std::to_string(isX ? hit.fX : hit.fY) + "," + std::to_string(hit.fZ) + ",0.3\n";
    }
  return folder.Write("hits.csv", text);
}

kelvo::FitFileOptions PartOptions(const test::TempFolder& folder, const std::string& name,
                                  unsigned long long first, unsigned long long limit) {
  kelvo::FitFileOptions options;
  options.fInputs = {folder.Path("hits.csv")};
  options.fOutput = folder.Path(name);
  options.fFit.fAt = {"20", "z=30"};
  options.fFirst = first;
  options.fLimit = limit;
  return options;
}

std::string Part(const test::TempFolder& folder, const std::string& name, unsigned long long first,
                 unsigned long long limit) {
  const auto options = PartOptions(folder, name, first, limit);
  kelvo::FitFile(Detector(), options);
  return options.fOutput;
}

std::string ErrorOf(const test::TempFolder& folder, const std::vector<std::string>& parts) {
  kelvo::FitMergeOptions options;
  options.fParts = parts;
  options.fOutput = folder.Path("merged.root");
  try {
    kelvo::MergeFits(options);
  } catch (const kelvo::FileError& e) {
    EXPECT_FALSE(std::filesystem::exists(options.fOutput));
    return e.what();
  }
  return "no error";
}

class FitMerge : public testing::TestWithParam<kelvo::TableFormat> {
protected:
  void SetUp() override { Hits(fFolder); }
  test::TempFolder fFolder;
};

TEST_P(FitMerge, OfPartsInAnyOrderIsWhatOneRunMakes) {
  const std::string all = Part(fFolder, "all.root", 0, 0);
  kelvo::FitMergeOptions options;
  options.fParts = {Part(fFolder, "c.root", 45, 100), Part(fFolder, "a.root", 0, 20),
                    Part(fFolder, "b.root", 20, 25)};
  options.fOutput = fFolder.Path("merged.root");
  options.fFormat = GetParam();
  const kelvo::FitMergeSummary summary = kelvo::MergeFits(options);
  EXPECT_EQ(summary.fTracks, kTracks);
  EXPECT_FALSE(summary.fMayLackTracks);
  EXPECT_EQ(test::Content(options.fOutput), test::Content(all));
  const kelvo::FitReader one(all), merged(options.fOutput);
  for (const char* text : {"options", "detector", "version"})
    EXPECT_EQ(merged.Text(text), one.Text(text)) << text;
}

INSTANTIATE_TEST_SUITE_P(Formats, FitMerge, testing::ValuesIn(test::Formats()));

class FitMergeParts : public FitMerge {};

TEST_F(FitMergeParts, BehindTheEndAreEmptyAndWelcome) {
  kelvo::FitMergeOptions options;
  options.fParts = {Part(fFolder, "a.root", 0, kTracks), Part(fFolder, "b.root", kTracks, 20),
                    Part(fFolder, "c.root", kTracks + 20, 20)};
  options.fOutput = fFolder.Path("merged.root");
  const kelvo::FitMergeSummary summary = kelvo::MergeFits(options);
  EXPECT_EQ(summary.fTracks, kTracks);
  EXPECT_FALSE(summary.fMayLackTracks);
}

TEST_F(FitMergeParts, ThatEndAtTheirLimitMayLackTracks) {
  kelvo::FitMergeOptions options;
  options.fParts = {Part(fFolder, "a.root", 0, 10)};
  options.fOutput = fFolder.Path("merged.root");
  EXPECT_TRUE(kelvo::MergeFits(options).fMayLackTracks);
}

TEST_F(FitMergeParts, WithAGapOrAnOverlapAreRefusedWithTheTracks) {
  const std::string a = Part(fFolder, "a.root", 0, 10), c = Part(fFolder, "c.root", 30, 10),
                    d = Part(fFolder, "d.root", 35, 10);
  EXPECT_EQ(ErrorOf(fFolder, {c, a}), c + ": begins with track 30 of the input, and no part has "
                                          "those from 10 on; fit them with --first 10 --limit 20");
  EXPECT_EQ(ErrorOf(fFolder, {c}), c + ": begins with track 30 of the input, and no part has those "
                                       "from 0 on; fit them with --first 0 --limit 30");
  const std::string b = Part(fFolder, "b.root", 10, 20);
  EXPECT_EQ(ErrorOf(fFolder, {a, b, c, d}), d + ": begins with track 35 of the input, which " + c +
                                                " has, too; give each part once");
}

TEST_F(FitMergeParts, MadeDifferentlyAreRefusedWithTheDifference) {
  const std::string a = Part(fFolder, "a.root", 0, 10);
  auto options = PartOptions(fFolder, "b.root", 10, 10);
  options.fFit.fScatteringFactor = 1.5;
  kelvo::FitFile(Detector(), options);
  EXPECT_EQ(ErrorOf(fFolder, {a, options.fOutput}),
            options.fOutput + " and " + a +
                ": scattering_factor is 1.5 in the one and 1.7320508075688772 in the "
                "other; fit all parts with the same options");
  options.fFit = PartOptions(fFolder, "b.root", 10, 10).fFit;
  options.fScalarsOnly = true;
  kelvo::FitFile(Detector(), options);
  EXPECT_NE(ErrorOf(fFolder, {a, options.fOutput}).find("was made with --scalars"),
            std::string::npos);
  options.fScalarsOnly = false;
  auto text = Detector().Text();
  text.replace(text.find("count = 32"), 10, "count = 31");
  const std::string other = fFolder.Write("other.toml", text);
  kelvo::FitFile(geo::Detector::FromFile(other), options);
  EXPECT_NE(ErrorOf(fFolder, {a, options.fOutput}).find("different detector files"),
            std::string::npos);
}

} // namespace
