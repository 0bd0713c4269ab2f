// 'kelvo display' and 'kelvo report' as a user runs them.

#include "io/FitReader.h"
#include "io/FitWriter.h"
#include "test/support/CommandRun.h"

#include <algorithm>

namespace {

using test::Contains;
using test::kFine;
using test::kMuons;
using test::Outcome;
using DisplayCommand = test::Command;

// To load ROOT's interpreter takes 0.2 s and 200 MB.
TEST_F(DisplayCommand, ReportsAndDisplaysAnRNTupleWithoutTheInterpreter) {
  if (kelvo::DefaultTableFormat() == kelvo::TableFormat::kTTree) GTEST_SKIP() << "no RNTuple";
  const auto loaded = [this](const std::string& arguments) {
    const Outcome run = Run(arguments, "LD_DEBUG=files");
    EXPECT_EQ(run.fStatus, 0);
    EXPECT_TRUE(Contains(run.fErr, "libCore")) << "the loader tells nothing";
    return Contains(run.fErr, "libCling");
  };
  EXPECT_EQ(Fit(kMuons + " --limit 10").fStatus, 0);
  EXPECT_FALSE(loaded("report fits.root -o fits.html"));
  EXPECT_FALSE(loaded("display fits.root --track 3 -o track.svg"));
  EXPECT_EQ(Fit(kMuons + " --limit 10 --format ttree").fStatus, 0);
  EXPECT_TRUE(loaded("display fits.root --track 3 -o track.svg")) << "the word to look for";
}

TEST_F(DisplayCommand, DrawsATrackUnderItsBestHypothesisOrAnother) {
  ASSERT_EQ(Fit(kMuons + " --limit 30 --hypothesis mu,p").fStatus, 0);
  const Outcome best = Run("display fits.root --track 17 -o best.svg");
  EXPECT_EQ(best.fStatus, 0);
  EXPECT_EQ(best.fOut, "written: best.svg\n");
  EXPECT_EQ(best.fErr, "");
  EXPECT_TRUE(Contains(fFolder.Read("best.svg"), ", the best hypothesis"));
  EXPECT_EQ(Run("display fits.root --track 17 --hypothesis p -o p.png").fStatus, 0);
  EXPECT_EQ(fFolder.Read("p.png").substr(1, 3), "PNG");
}

TEST_F(DisplayCommand, DrawsSeveralTracksAndTheWorstInOneCall) {
  ASSERT_EQ(Fit(kMuons + " --limit 30 --hypothesis mu").fStatus, 0);
  kelvo::FitReader fits(fFolder.Path("fits.root"));
  std::vector<std::pair<double, long long>> tracks;
  for (long long i = 0; i < fits.Entries(); i++) {
    const kelvo::FitRow& row = fits.Read(i, kelvo::FitPart::kScalars);
    tracks.emplace_back(row.fProb, row.fTrack);
  }
  std::sort(tracks.begin(), tracks.end());
  const auto name = [](long long track) { return "t-" + std::to_string(track) + ".svg"; };
  const long long first = tracks[0].second;
  const Outcome pictures =
      Run("display fits.root --track 17 " + std::to_string(first) + " --worst 2 -o t.svg");
  EXPECT_EQ(pictures.fStatus, 0) << pictures.fErr;
  EXPECT_EQ(pictures.fOut, "written: t-17.svg\nwritten: " + name(first) +
                               "\nwritten: " + name(tracks[1].second) + "\n");
  for (const long long track : {17LL, first, tracks[1].second})
    EXPECT_TRUE(Contains(fFolder.Read(name(track)), ">Track " + std::to_string(track) + " as "));
  const Outcome page = Run("display fits.root --worst 5 -o t.html");
  EXPECT_EQ(page.fOut, "written: t.html\n");
  const std::string html = fFolder.Read("t.html");
  std::size_t at = 0;
  for (std::size_t i = 0; i < 5; i++) {
    at = html.find(">Track " + std::to_string(tracks[i].second) + " as muon", at);
    ASSERT_NE(at, std::string::npos) << i;
  }
  EXPECT_EQ(html.find(">Track ", at + 1), std::string::npos);
}

TEST_F(DisplayCommand, SaysWhatItIsToDraw) {
  const Outcome none = Run("display fits.root -o t.html");
  EXPECT_EQ(none.fStatus, 2);
  EXPECT_EQ(none.fErr, "kelvo: which tracks? --track ID... or --worst N says it\n");
  const Outcome ending = Run("display fits.root --worst 3 -o t.txt");
  EXPECT_EQ(ending.fStatus, 2);
  EXPECT_EQ(ending.fErr.find("kelvo: --output: \"t.txt\" must end in .svg, .png or .pdf, or in "
                             ".html for a page\n"),
            0u)
      << ending.fErr;
}

TEST_F(DisplayCommand, DrawsTheOthersWhereATrackIsNotFitted) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n77,X,1,3,1\n77,X,1,9,1\n77,Y,1,15,1\n");
  ASSERT_EQ(Fit("few.csv " + kMuons + " --limit 5 --hypothesis mu").fStatus, 1);
  const Outcome run = Run("display fits.root --track 77 2 -o t.html");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_TRUE(Contains(run.fErr, "kelvo: track 77 is not fitted: "));
  EXPECT_EQ(run.fOut, "written: t.html\n");
  EXPECT_TRUE(Contains(fFolder.Read("t.html"), ">Track 2 as muon"));
}

TEST_F(DisplayCommand, SaysWhichTrackItCannotDraw) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n77,X,1,3,1\n77,X,1,9,1\n77,Y,1,15,1\n");
  ASSERT_EQ(Fit(kMuons + " few.csv " + kMuons + " --limit 3002 --hypothesis mu,pi").fStatus, 1);
  const auto display = [this](const std::string& arguments) {
    return Run("display " + arguments + " -o a.svg");
  };
  const Outcome unknown = display("fits.root --track 5000");
  EXPECT_EQ(unknown.fStatus, 2);
  EXPECT_EQ(unknown.fErr, "kelvo: fits.root: has no track 5000\n");
  const Outcome other = display("fits.root --track 5 --hypothesis p");
  EXPECT_EQ(other.fStatus, 2);
  EXPECT_EQ(other.fErr, "kelvo: fits.root: track 5 is not there as p, only as mu, pi\n");
  const Outcome none = display("fits.root --track 5 --hypothesis electron");
  EXPECT_EQ(none.fStatus, 2);
  EXPECT_EQ(none.fErr,
            "kelvo: --hypothesis: \"electron\" is none of mu, pi and p\n"
            "'kelvo display --help' shows how it is used\n");
  const Outcome huge = display("fits.root --track 99999999999999999999");
  EXPECT_EQ(huge.fStatus, 2);
  EXPECT_EQ(huge.fErr.find("kelvo: --track: \"99999999999999999999\" is not a whole number of at "
                           "most 64 bits\n"),
            0u);
  EXPECT_FALSE(Exists("a.svg"));
  const Outcome twice = display("fits.root --track 0");
  EXPECT_EQ(twice.fStatus, 0);
  EXPECT_EQ(twice.fErr, "kelvo: fits.root has 2 tracks of the number 0; the first is drawn\n");
}

TEST_F(DisplayCommand, SaysWhyATrackThatIsNotFittedIsNotDrawn) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n77,X,1,3,1\n77,X,1,9,1\n77,Y,1,15,1\n");
  ASSERT_EQ(Fit("few.csv").fStatus, 1);
  const Outcome run = Run("display fits.root --track 77 -o a.svg");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_EQ(
      run.fErr,
      "kelvo: track 77 is not fitted: view Y has 1 hit; a fit needs two or more in each view\n");
  EXPECT_FALSE(Exists("a.svg"));
}

TEST_F(DisplayCommand, DrawsOnlyWhatAFileHolds) {
  ASSERT_EQ(Fit(kMuons + " --limit 10 --scalars").fStatus, 0);
  const Outcome display = Run("display fits.root --track 1 -o a.svg");
  EXPECT_EQ(display.fStatus, 2);
  EXPECT_EQ(display.fErr,
            "kelvo: fits.root: has no hits and planes to draw; fit again without --scalars\n");
  EXPECT_EQ(Run("report fits.root -o fits.html").fStatus, 0);
  const Outcome wrong = Run("display " + kMuons + " --track 1 -o a.svg");
  EXPECT_EQ(wrong.fStatus, 2);
  EXPECT_EQ(wrong.fErr, "kelvo: " + kMuons +
                            ": is not a ROOT file; a file of fits is expected, as "
                            "'kelvo fit' writes it\n");
}

TEST_F(DisplayCommand, ReportsOnARunDirectlyOrLater) {
  ASSERT_EQ(Fit(kMuons + " --limit 40 --report direct.html").fStatus, 0);
  const Outcome later = Run("report fits.root -o later.html");
  EXPECT_EQ(later.fStatus, 0);
  EXPECT_EQ(later.fOut, "written: later.html\n");
  const std::string page = fFolder.Read("direct.html");
  EXPECT_EQ(page, fFolder.Read("later.html"));
  EXPECT_TRUE(Contains(page, "<dt>command</dt><dd><code>kelvo fit --detector " + kFine +
                                 " -o fits.root " + kMuons + " --limit 40 --report direct.html<"));
  EXPECT_EQ(Results(), 3);
}

} // namespace
