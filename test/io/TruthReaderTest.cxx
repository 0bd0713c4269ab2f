// Reading the truth of simulated tracks: what the simulation has written, as CSV and as ROOT file,
// and what cannot be used.

#include "io/FileError.h"
#include "io/SimulationWriter.h"
#include "io/TruthReader.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

namespace {

class TrueTracks : public testing::Test {
protected:
  std::string Message(const std::string& text) {
    fFolder.Write("truth.csv", text);
    try {
      const kelvo::TrueTracks tracks(fFolder.Path("truth.csv"));
      return "";
    } catch (const kelvo::FileError& e) {
      const std::string message = e.what();
      return message.substr(message.find("truth.csv"));
    }
  }

  test::TempFolder fFolder;
};

kelvo::SimulatedTrack Track(long long number) {
  kelvo::SimulatedTrack track;
  track.fTrack = number;
  track.fPDG = -13;
  const auto n = static_cast<double>(number);
  track.fStart = {1 + n, 2, 3.25};
  track.fMomentum = {0.1, -0.2, 1. / 3 + n};
  track.fT = 0.4;
  return track;
}

TEST_F(TrueTracks, AreThoseThatTheSimulationHasWritten) {
  const std::string files[][2] = {{"hits.csv", "hits.truth.csv"},
                                  {"hits.csv.gz", "hits.truth.csv.gz"},
                                  {"hits.root", "hits.root"}};
  for (const auto& [hits, truth] : files) {
    const auto writer = kelvo::MakeSimulationWriter(fFolder.Path(hits), false, {});
    for (const long long number : {5LL, -7LL, 9007199254740993LL}) writer->Write(Track(number));
    writer->Commit();
    const kelvo::TrueTracks tracks(fFolder.Path(truth));
    EXPECT_EQ(tracks.Size(), 3u);
    EXPECT_EQ(tracks.Find(4), nullptr);
    for (const long long number : {5LL, -7LL, 9007199254740993LL}) {
      const kelvo::TrueTrack* found = tracks.Find(number);
      ASSERT_NE(found, nullptr) << truth;
      const kelvo::SimulatedTrack expected = Track(number);
      EXPECT_EQ(found->fPDG, -13);
      EXPECT_EQ(found->fX, expected.fStart.X());
      EXPECT_EQ(found->fY, expected.fStart.Y());
      EXPECT_EQ(found->fZ, expected.fStart.Z());
      EXPECT_EQ(found->fPX, expected.fMomentum.X());
      EXPECT_EQ(found->fPY, expected.fMomentum.Y());
      EXPECT_EQ(found->fPZ, expected.fMomentum.Z());
    }
  }
}

TEST_F(TrueTracks, ComeInColumnsOfAnyOrder) {
  fFolder.Write(
      "truth.csv",
      "# by hand\n\npz, px,py,pdg,track, note,z0,y0,x0\n1,0.25,0.5,211,3,\"a, b\",30,20,10\n");
  const kelvo::TrueTracks tracks(fFolder.Path("truth.csv"));
  const kelvo::TrueTrack* track = tracks.Find(3);
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(track->fPDG, 211);
  EXPECT_EQ(track->fX, 10);
  EXPECT_EQ(track->fZ, 30);
  EXPECT_EQ(track->fPX, 0.25);
  EXPECT_EQ(track->fPZ, 1);
}

TEST_F(TrueTracks, AreRefusedWithTheLineAndTheReason) {
  const std::string head = "track,pdg,x0,y0,z0,px,py,pz\n";
  EXPECT_EQ(Message("\n# nothing\n"), "truth.csv: is empty");
  EXPECT_EQ(
      Message("track,view,u,z,sigu\n"),
      "truth.csv, line 1: has no column pdg; the truth has track, pdg, x0, y0, z0, px, py, pz, "
      "as kelvo simulate writes it beside the hits");
  EXPECT_EQ(Message(head + "1,13,0,0,0,0,0,1\n1,13,0,0,0,0,0,1\n"),
            "truth.csv, line 3: track 1 was there before; each has one line");
  EXPECT_EQ(Message(head + "1,13,0,0,0,0,0,one\n"),
            "truth.csv, line 2, column pz: \"one\" is not a number");
  EXPECT_EQ(Message(head + "1,13,nan,0,0,0,0,1\n"),
            "truth.csv, line 2, column x0: \"nan\" is not a number");
  EXPECT_EQ(Message(head + "1.5,13,0,0,0,0,0,1\n"),
            "truth.csv, line 2, column track: \"1.5\" is not a whole number");
  EXPECT_EQ(Message(head + "1,13,0,0\n"),
            "truth.csv, line 2: has 4 fields where 8 columns are named");
}

} // namespace
