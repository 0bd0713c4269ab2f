// Tracks fitted by several threads: the same rows in the same order as by one loop.

#include "geo/PlaneDetector.h"
#include "io/FileError.h"
#include "run/FittedBlocks.h"
#include "test/support/SameColumn.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>

namespace {

using kelvo::FitRow;
using kelvo::FitStatus;
using kelvo::FittedBlock;
using kelvo::FittedBlocks;
using kelvo::TrackHits;

// Likelihoods as close as this do not decide between hypotheses [nats].
constexpr double kTie = 1e-8;

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

kelvo::RowFitter Fitter() {
  return {kelvo::TrackFitter(Detector()), nullptr};
}

/// Nearly straight tracks of 4 to 23 planes; every 50th has a line that could not be read, and
/// every 70th a single hit.
std::vector<TrackHits> MakeTracks(int n) {
  std::mt19937 random(3);
  std::normal_distribution<double> gauss(0, 0.3);
  std::vector<TrackHits> tracks;
  for (int i = 0; i < n; i++) {
    TrackHits track;
    track.fTrack = 1000 - i;
    track.fFile = "hits.csv";
    track.fPlace = static_cast<unsigned long long>(i);
    const int planes = i % 70 == 69 ? 1 : 4 + i % 20;
    for (int p = 0; p < planes; p++) {
      const double z = 3 + 6.05 * p;
      const double u = 0.1 * z + gauss(random);
      const bool isX = p % 2 == 0;
      track.fHits.AddHit(isX ? geo::kX : geo::kY, isX ? u : 0, isX ? 0 : u, z, 0, isX ? 0.3 : 0,
                         isX ? 0 : 0.3, 0, 0, 1);
    }
    if (i % 50 == 49) track.AddProblem("hits.csv, line 7: nonsense");
    tracks.push_back(track);
  }
  return tracks;
}

std::function<bool(TrackHits&)> From(const std::vector<TrackHits>& tracks) {
  return [&tracks, i = std::size_t(0)](TrackHits& track) mutable {
    if (i == tracks.size()) return false;
    track = tracks[i++];
    return true;
  };
}

struct Result {
  std::vector<kelvo::TrackOutcome> fOutcomes;
  std::vector<FitRow> fRows;
};

Result FitAll(const std::function<bool(TrackHits&)>& next, unsigned threads) {
  FittedBlocks blocks(next, Fitter(), threads, true);
  Result result;
  for (FittedBlock block; blocks.Next(block);) {
    for (auto& outcome : block.fOutcomes) result.fOutcomes.push_back(outcome);
    for (FitRow& row : block.fRows) result.fRows.push_back(row);
  }
  return result;
}

void ExpectSameRows(const std::vector<FitRow>& a, const std::vector<FitRow>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); i++) {
    const auto compare = [&](const char* name, auto member) {
      EXPECT_TRUE(test::SameColumn(a[i].*member, b[i].*member)) << name << ", row " << i;
    };
    kelvo::VisitScalars(compare);
    kelvo::VisitVectors(compare);
  }
}

TEST(FittedBlocks, GiveTheRowsOfOneLoopForAnyNumberOfThreads) {
  const auto tracks = MakeTracks(400);
  std::vector<FitRow> expected;
  kelvo::RowFitter fitter = Fitter();
  for (TrackHits track : tracks)
    for (const FitRow& row : kelvo::FitRows(track, fitter.Fit(track), true))
      expected.push_back(row);
  ASSERT_EQ(expected.size(), 3 * tracks.size());
  for (const unsigned threads : {1u, 2u, 3u, 8u})
    ExpectSameRows(FitAll(From(tracks), threads).fRows, expected);
}

TEST(FittedBlocks, KeepEveryTrackFittedOrNot) {
  const auto tracks = MakeTracks(400);
  const Result result = FitAll(From(tracks), 2);
  ASSERT_EQ(result.fOutcomes.size(), tracks.size());
  for (std::size_t i = 0; i < tracks.size(); i++) {
    const auto& outcome = result.fOutcomes[i];
    EXPECT_EQ(result.fRows[3 * i].fTrack, tracks[i].fTrack);
    EXPECT_EQ(outcome.fHits, tracks[i].fHits.size());
    if (i % 50 == 49) {
      EXPECT_EQ(outcome.fStatus, FitStatus::kBadNumber);
      EXPECT_EQ(outcome.fProblems, std::vector<std::string>{"hits.csv, line 7: nonsense"});
      EXPECT_EQ(result.fRows[3 * i].fMessage, "hits.csv, line 7: nonsense");
    } else if (i % 70 == 69) {
      EXPECT_EQ(outcome.fStatus, FitStatus::kTooFewHits);
      ASSERT_EQ(outcome.fProblems.size(), 1u);
      EXPECT_EQ(outcome.fProblems[0], tracks[i].Place() + ": track " +
                                          std::to_string(tracks[i].fTrack) +
                                          " is not fitted: " + result.fRows[3 * i].fMessage);
    } else {
      EXPECT_EQ(outcome.fStatus, FitStatus::kFitted) << result.fRows[3 * i].fMessage;
      EXPECT_TRUE(outcome.fFitted);
      EXPECT_TRUE(outcome.fProblems.empty());
    }
  }
}

TEST(FittedBlocks, LeaveNothingInAFitThatFailed) {
  const auto tracks = MakeTracks(70);
  const Result result = FitAll(From(tracks), 1);
  for (std::size_t h = 0; h < 3; h++) {
    const FitRow& row = result.fRows[3UL * 69 + h];
    EXPECT_NE(row.fStatus, 0);
    EXPECT_FALSE(row.fBest);
    EXPECT_NE(row.fMessage, "");
    EXPECT_EQ(row.fNX, 1);
    EXPECT_EQ(row.fNY, 0);
    kelvo::VisitScalars([&row](const char* name, auto member) {
      if constexpr (std::is_same_v<decltype(member), double FitRow::*>) {
        EXPECT_TRUE(std::isnan(row.*member)) << name;
      }
    });
    kelvo::VisitVectors(
        [&row](const char* name, auto member) { EXPECT_TRUE((row.*member).empty()) << name; });
  }
}

TEST(FittedBlocks, MarkOneBestHypothesisOfAFittedTrack) {
  const Result result = FitAll(From(MakeTracks(40)), 2);
  for (std::size_t i = 0; i < 40; i++) {
    int best = 0;
    for (std::size_t h = 0; h < 3; h++) {
      const FitRow& row = result.fRows[3 * i + h];
      if (!row.fBest) continue;
      best++;
      for (std::size_t k = 0; k < 3; k++)
        EXPECT_GE(row.fLogLikelihood + kTie, result.fRows[3 * i + k].fLogLikelihood);
    }
    EXPECT_EQ(best, 1) << i;
  }
}

TEST(FittedBlocks, EndAtOnceWithoutTracks) {
  for (const unsigned threads : {1u, 4u})
    EXPECT_TRUE(FitAll([](TrackHits&) { return false; }, threads).fRows.empty());
}

TEST(FittedBlocks, GiveTheTracksBeforeAnErrorOfTheInput) {
  const auto tracks = MakeTracks(200);
  for (const unsigned threads : {1u, 2u, 4u}) {
    const auto next = [read = From(tracks)](TrackHits& track) mutable {
      if (!read(track)) throw kelvo::FileError("the file ends too early");
      return true;
    };
    FittedBlocks blocks(next, Fitter(), threads, false);
    std::size_t given = 0;
    std::string error;
    try {
      for (FittedBlock block; blocks.Next(block);) given += block.fOutcomes.size();
    } catch (const kelvo::FileError& e) {
      error = e.what();
    }
    EXPECT_EQ(given, tracks.size());
    EXPECT_EQ(error, "the file ends too early");
  }
}

TEST(FittedBlocks, CanBeLeftInTheMiddle) {
  const auto tracks = MakeTracks(50);
  const auto endless = [&tracks, i = std::size_t(0)](TrackHits& track) mutable {
    track = tracks[i++ % tracks.size()];
    return true;
  };
  for (const unsigned threads : {1u, 2u, 4u}) {
    FittedBlocks blocks(endless, Fitter(), threads, false);
    FittedBlock block;
    EXPECT_TRUE(blocks.Next(block));
  }
}

TEST(FittedBlocks, ReadOnlyALittleAhead) {
  const auto tracks = MakeTracks(50);
  std::atomic<unsigned long long> read{0};
  const auto endless = [&](TrackHits& track) {
    track = tracks[read++ % tracks.size()];
    return true;
  };
  FittedBlocks blocks(endless, Fitter(), 3, false);
  unsigned long long given = 0;
  for (FittedBlock block; given < 3000 && blocks.Next(block);) {
    given += block.fOutcomes.size();
    EXPECT_LE(read - given, 2000u);
  }
}

} // namespace
