// Hits in memory against the same numbers read from a file, and what is told of bad ones.

#include "io/FileError.h"
#include "python/HitArrays.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

using kelvo::HitArrays;
using kelvo::HitColumns;
using kelvo::HitLayout;
using kelvo::TrackHits;

using Column = std::vector<double>;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<TrackHits> ReadAll(kelvo::HitSource& source) {
  std::vector<TrackHits> tracks;
  for (TrackHits track; source.Next(track);) tracks.push_back(track);
  return tracks;
}

std::vector<TrackHits> ReadFile(const std::string& text) {
  const test::TempFolder folder;
  kelvo::HitReader reader({folder.Write("hits.csv", text)});
  return ReadAll(reader);
}

void ExpectSameHits(const std::vector<TrackHits>& a, const std::vector<TrackHits>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); i++) {
    EXPECT_EQ(a[i].fTrack, b[i].fTrack);
    ASSERT_EQ(a[i].fHits.size(), b[i].fHits.size()) << i;
    for (std::size_t j = 0; j < a[i].fHits.size(); j++) {
      const kelvo::Hit3D& p = a[i].fHits[j];
      const kelvo::Hit3D& q = b[i].fHits[j];
      EXPECT_EQ(p.fView, q.fView);
      for (const auto member : {&kelvo::Hit3D::fX, &kelvo::Hit3D::fY, &kelvo::Hit3D::fZ,
                                &kelvo::Hit3D::fT, &kelvo::Hit3D::fSigX, &kelvo::Hit3D::fSigY,
                                &kelvo::Hit3D::fSigZ, &kelvo::Hit3D::fSigT, &kelvo::Hit3D::fW})
        EXPECT_EQ(p.*member, q.*member) << "track " << i << ", hit " << j;
    }
  }
}

/// Two tracks of two hits and one of one.
struct Hits {
  std::vector<std::int64_t> fTrack{7, 7, -2, -2, 9};
  Column fView{'X', 'y', 0, 1, '1'};
  Column fU{1.5, 0.1, -3, 4e-3, 8};
  Column fZ{3, 9.05, 3, 15, 3};
  Column fSigU{0.3, 0.25, 0.3, 0.3, 0.3};
  Column fW{1, 2, 1, 0, 1};
  HitColumns fColumns{"hits", {"track", "view", "u", "z", "sigu", "w"}, {}};

  HitArrays Rows() const {
    HitArrays hits("hits", fColumns, HitLayout::kRowIsHit, fTrack.data(), fTrack.size());
    for (const auto& [column, values] : Set())
      hits.SetColumn(column, values->data(), values->size());
    return hits;
  }

  std::vector<std::pair<kelvo::HitColumn, const Column*>> Set() const {
    return {{kelvo::kHitView, &fView},
            {kelvo::kHitU, &fU},
            {kelvo::kHitZ, &fZ},
            {kelvo::kHitSigU, &fSigU},
            {kelvo::kHitW, &fW}};
  }
};

const char* const kSameAsFile =
    "track,view,u,z,sigu,w\n"
    "7,X,1.5,3,0.3,1\n7,y,0.1,9.05,0.25,2\n"
    "-2,0,-3,3,0.3,1\n-2,1,4e-3,15,0.3,0\n9,1,8,3,0.3,1\n";

TEST(HitArrays, OfHitsGiveTheTracksOfAFile) {
  const Hits kept;
  HitArrays hits = kept.Rows();
  const auto tracks = ReadAll(hits);
  ExpectSameHits(tracks, ReadFile(kSameAsFile));
  for (const TrackHits& track : tracks) EXPECT_TRUE(track.Good());
  EXPECT_EQ(tracks[1].Place(), "hits, row 2");
  EXPECT_EQ(hits.Fraction(), 1);
}

TEST(HitArrays, OfTracksGiveTheTracksOfAFile) {
  const Hits kept;
  const std::vector<std::int64_t> track{7, -2, 9};
  const std::vector<std::int64_t> offsets{0, 2, 4, 5};
  HitArrays hits("hits", kept.fColumns, HitLayout::kRowIsTrack, track.data(), 3);
  for (const auto& [column, values] : kept.Set())
    hits.SetVectors(column, values->data(), values->size(), offsets.data());
  const auto tracks = ReadAll(hits);
  ExpectSameHits(tracks, ReadFile(kSameAsFile));
  EXPECT_EQ(tracks[1].Place(), "hits, row 1");
}

TEST(HitArrays, GiveTwoHitsWhereAPlaneMeasuresBoth) {
  const std::vector<std::int64_t> track{1, 1};
  const Column x{1, 2}, y{3, 4}, z{5, 6}, sigx{0.1, 0.2}, sigy{0.3, 0.4};
  const HitColumns columns("hits", {"track", "x", "y", "z", "ex", "sigy"}, {{{"sigx", "ex"}}});
  HitArrays hits("hits", columns, HitLayout::kRowIsHit, track.data(), 2);
  hits.SetColumn(kelvo::kHitX, x.data(), 2);
  hits.SetColumn(kelvo::kHitY, y.data(), 2);
  hits.SetColumn(kelvo::kHitZ, z.data(), 2);
  hits.SetColumn(kelvo::kHitSigX, sigx.data(), 2);
  hits.SetColumn(kelvo::kHitSigY, sigy.data(), 2);
  ExpectSameHits(ReadAll(hits),
                 ReadFile("track,x,y,z,sigx,sigy\n1,1,3,5,0.1,0.3\n1,2,4,6,0.2,0.4\n"));
}

TEST(HitArrays, TellEachRowThatCannotBeUsed) {
  Hits kept;
  kept.fSigU[0] = 0;
  kept.fU[1] = kNaN;
  kept.fView[3] = 'Z';
  kept.fW[4] = -1;
  HitArrays hits = kept.Rows();
  const auto tracks = ReadAll(hits);
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0].fProblems,
            (std::vector<std::string>{"hits, row 0, column sigu: is not above 0",
                                      "hits, row 1, column u: is not a finite number"}));
  EXPECT_EQ(
      tracks[1].fProblems,
      std::vector<std::string>{"hits, row 3, column view: is not a view, which is X or Y, 0 or 1"});
  EXPECT_EQ(tracks[1].fHits.size(), 1u);
  EXPECT_EQ(tracks[2].fProblems, std::vector<std::string>{"hits, row 4, column w: is below 0"});
}

TEST(HitArrays, TellATrackWhoseRowsDoNotStandTogether) {
  Hits kept;
  kept.fTrack = {7, -2, 7, 7, 9};
  HitArrays hits = kept.Rows();
  const auto tracks = ReadAll(hits);
  ASSERT_EQ(tracks.size(), 4u);
  EXPECT_TRUE(tracks[0].Good());
  EXPECT_EQ(tracks[2].fProblems,
            std::vector<std::string>{"hits, row 2, column track: track 7 had rows further up; the "
                                     "rows of a track must stand together"});
  EXPECT_EQ(tracks[2].fHits.size(), 2u);
}

TEST(HitArrays, TellVectorsOfDifferentLengths) {
  const Hits kept;
  const std::vector<std::int64_t> track{7, 8};
  const std::vector<std::int64_t> offsets{0, 2, 5};
  const std::vector<std::int64_t> others{0, 3, 5};
  HitArrays hits("hits", kept.fColumns, HitLayout::kRowIsTrack, track.data(), 2);
  for (const auto& [column, values] : kept.Set())
    hits.SetVectors(column, values->data(), values->size(),
                    column == kelvo::kHitU ? others.data() : offsets.data());
  const auto tracks = ReadAll(hits);
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_EQ(tracks[0].fProblems,
            std::vector<std::string>{"hits, row 0, column u: has 3 values where column z has 2"});
  EXPECT_TRUE(tracks[0].fHits.empty());
}

template <typename Work>
std::string ErrorOf(Work work) {
  try {
    work();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "no error";
}

TEST(HitArrays, RefuseArraysThatDoNotFit) {
  const Hits kept;
  const std::vector<std::int64_t> track{7, 8};
  HitArrays rows("hits", kept.fColumns, HitLayout::kRowIsHit, track.data(), 2);
  EXPECT_EQ(ErrorOf([&] { rows.SetColumn(kelvo::kHitU, kept.fU.data(), 5); }),
            "hits, column u: has 5 values where there are 2 rows");
  TrackHits hit;
  EXPECT_EQ(ErrorOf([&] { rows.Next(hit); }), "hits: column view is not set");

  HitArrays vectors("hits", kept.fColumns, HitLayout::kRowIsTrack, track.data(), 2);
  for (const std::vector<std::int64_t>& bad :
       {std::vector<std::int64_t>{0, 3, 2}, {-1, 2, 5}, {0, 2, 6}})
    EXPECT_EQ(ErrorOf([&] { vectors.SetVectors(kelvo::kHitU, kept.fU.data(), 5, bad.data()); }),
              "hits, column u: the offsets must rise from 0 or more to at most 5, the number of "
              "values");
}

} // namespace
