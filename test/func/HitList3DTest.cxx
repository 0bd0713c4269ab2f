// References: lines known in closed form, and the completion as one plain program over arrays that
// tests every hit of the list in every window.
#include "func/HitList3D.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <random>
#include <type_traits>

#include "test/support/HitsReference.h"
#include "test/support/SameBits.h"

namespace {

using geo::kX;
using geo::kY;
using kelvo::Hit3D;
using kelvo::HitList3D;

constexpr auto kNoView = static_cast<geo::_plane_proj>(2);

void AddX(HitList3D& list, double z, double x, double w = 1) {
  list.AddHit(kX, x, 0, z, 0, 0.5, 0, 0.25, 0, w);
}

void AddY(HitList3D& list, double z, double y, double w = 1) {
  list.AddHit(kY, 0, y, z, 0, 0, 0.5, 0.25, 0, w);
}

const Hit3D& At(const HitList3D& list, double z) {
  return *std::find_if(list.begin(), list.end(), [z](const Hit3D& h) { return h.fZ == z; });
}

TEST(Hit3D, IsMadeOfNeitherViewWithWeightOne) {
  const Hit3D hit;
  EXPECT_EQ(hit.fView, 2);
  for (const double v :
       {hit.fX, hit.fY, hit.fZ, hit.fT, hit.fSigX, hit.fSigY, hit.fSigZ, hit.fSigT})
    EXPECT_EQ(v, 0);
  EXPECT_EQ(hit.fW, 1);
}

TEST(Hit3D, TellsItsViewByAnUnscopedInt) {
  EXPECT_TRUE((std::is_convertible_v<geo::_plane_proj, int>));
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<geo::_plane_proj>, int>));
  EXPECT_EQ(kX, 0);
  EXPECT_EQ(kY, 1);
}

TEST(HitList3D, IsAVectorOfHits) {
  EXPECT_TRUE((std::is_base_of_v<std::vector<Hit3D>, HitList3D>));
  EXPECT_TRUE(HitList3D().empty());
  const HitList3D list(3);
  ASSERT_EQ(list.size(), 3u);
  for (const Hit3D& hit : list) EXPECT_EQ(hit.fView, 2);
}

TEST(HitList3D, AddHitSetsEveryField) {
  HitList3D list;
  list.AddHit(kY, 1, 2, 3, 4, 5, 6, 7, 8, 9);
  ASSERT_EQ(list.size(), 1u);
  const Hit3D& h = list[0];
  EXPECT_EQ(h.fView, kY);
  const double fields[] = {h.fX, h.fY, h.fZ, h.fT, h.fSigX, h.fSigY, h.fSigZ, h.fSigT, h.fW};
  for (int i = 0; i < 9; i++) EXPECT_EQ(fields[i], i + 1);
}

TEST(HitList3D, SetHitSetsEveryFieldButTheUncertaintyOfTheTime) {
  HitList3D list(2);
  list.SetHit(1, kX, 1, 2, 3, 4, 5, 6, 7, 8, 9);
  EXPECT_EQ(list[0].fView, 2);
  const Hit3D& h = list[1];
  EXPECT_EQ(h.fView, kX);
  const double fields[] = {h.fX, h.fY, h.fZ, h.fT, h.fSigX, h.fSigY, h.fSigZ};
  for (int i = 0; i < 7; i++) EXPECT_EQ(fields[i], i + 1);
  EXPECT_EQ(h.fSigT, 0);
  EXPECT_EQ(h.fW, 9);
  list[1].fSigT = 0.125;
  list.SetHit(1, kY, 1, 2, 3, 4, 5, 6, 7, 8, 9);
  EXPECT_EQ(list[1].fSigT, 0.125);
  EXPECT_EQ(list[1].fView, kY);
}

TEST(HitList3D, SortsAscendingInZAndDescendingInY) {
  HitList3D list;
  AddY(list, 5, 1);
  AddY(list, -3, 7);
  AddY(list, 11, -2);
  list.SortByZ();
  EXPECT_EQ(list[0].fZ, -3);
  EXPECT_EQ(list[1].fZ, 5);
  EXPECT_EQ(list[2].fZ, 11);
  list.SortByY();
  EXPECT_EQ(list[0].fY, 7);
  EXPECT_EQ(list[1].fY, 1);
  EXPECT_EQ(list[2].fY, -2);
}

TEST(HitList3D, HitsOfEqualKeyComeInNoOrder) {
  Hit3D a, b;
  EXPECT_FALSE(gsSortHit3DByZ(a, b));
  EXPECT_FALSE(gsSortHit3DByY(a, b));
  b.fZ = 1;
  b.fY = 1;
  EXPECT_TRUE(gsSortHit3DByZ(a, b));
  EXPECT_FALSE(gsSortHit3DByZ(b, a));
  EXPECT_FALSE(gsSortHit3DByY(a, b));
  EXPECT_TRUE(gsSortHit3DByY(b, a));
}

TEST(CompleteOrtho, LeavesAnEmptyListEmpty) {
  HitList3D list;
  list.CompleteOrtho(nullptr);
  EXPECT_TRUE(list.empty());
}

TEST(CompleteOrtho, SortsAndPutsEveryHitOfAStraightTrackOntoIt) {
  // x = 3 + 0.1 z, y = -2 - 0.2 z, planes of either view every 10 cm, in descending order.
  HitList3D list;
  for (int i = 40; i-- > 0;) {
    const double z = 10.0 * i;
    i % 2 ? AddX(list, z, 3 + 0.1 * z) : AddY(list, z, -2 - 0.2 * z);
  }
  list.CompleteOrtho();
  for (std::size_t i = 0; i < list.size(); i++) {
    const Hit3D& h = list[i];
    EXPECT_EQ(h.fZ, 10.0 * static_cast<double>(i));
    EXPECT_NEAR(h.fX, 3 + 0.1 * h.fZ, 1e-10);
    EXPECT_NEAR(h.fY, -2 - 0.2 * h.fZ, 1e-10);
  }
}

TEST(CompleteOrtho, AddsTheSlopeTimesTheZUncertaintyToTheHitsOwnUncertainty) {
  HitList3D list;
  AddX(list, 0, 1);
  for (int i = 1; i <= 8; i++) AddY(list, 10.0 * i, 20.0 * i);
  list[0].fSigZ = 0.75;
  list[0].fSigX = 2;
  list.CompleteOrtho();
  EXPECT_NEAR(list[0].fY, 0, 1e-12);
  EXPECT_NEAR(list[0].fSigY, std::sqrt(1.5 * 1.5 + 2 * 2), 1e-12); // slope 2, sigz 0.75
  EXPECT_EQ(list[0].fX, 1);
  EXPECT_EQ(list[0].fSigX, 2);
}

TEST(CompleteOrtho, AHitWithoutAnyOfTheOtherViewNearIsUnknown) {
  HitList3D list;
  AddX(list, 0, 3);
  AddY(list, 400, 5); // exactly the widest window: outside
  AddX(list, 1, 3);
  AddX(list, 2, 3);
  list.CompleteOrtho();
  EXPECT_EQ(At(list, 0).fY, 0);
  EXPECT_EQ(At(list, 0).fSigY, 1000);
  EXPECT_EQ(At(list, 0).fX, 3);
  HitList3D alone;
  AddY(alone, 7, 5);
  alone.CompleteOrtho();
  EXPECT_EQ(alone[0].fX, 0);
  EXPECT_EQ(alone[0].fSigX, 1000);
  EXPECT_EQ(alone[0].fY, 5);
}

TEST(CompleteOrtho, OneHitOfTheOtherViewDoesNotMakeALine) {
  HitList3D list;
  AddX(list, 0, 3);
  AddY(list, 50.7, 5);
  list.CompleteOrtho();
  EXPECT_EQ(list[0].fY, 0);
  EXPECT_EQ(list[0].fSigY, 1000);
  EXPECT_EQ(list[1].fX, 0);
  EXPECT_EQ(list[1].fSigX, 1000);
}

TEST(CompleteOrtho, TwoHitsOfTheOtherViewMakeTheLineThroughThem) {
  HitList3D list;
  AddX(list, 10, 3);
  AddY(list, -20, 1);
  AddY(list, 30, 2);
  list.CompleteOrtho();
  EXPECT_NEAR(At(list, 10).fY, 1.6, 1e-13);
}

/// A hit of the x view at 0 among the given numbers of y hits at y = 1 within 100 cm and within
/// 200 cm, and one more at the given y within 400 cm. Returns its completed y.
double CompletedAmong(int near, int middle, double yFar) {
  HitList3D list;
  AddX(list, 0, 0);
  for (int i = 0; i < near; i++) AddY(list, 10.0 * (i + 1), 1);
  for (int i = 0; i < middle; i++) AddY(list, -150 - i, 1);
  AddY(list, 350, yFar);
  list.CompleteOrtho();
  return At(list, 0).fY;
}

TEST(CompleteOrtho, SixHitsInAWindowAreEnoughAndFiveAreNot) {
  EXPECT_NEAR(CompletedAmong(6, 0, 5000), 1, 1e-12);
  EXPECT_NEAR(CompletedAmong(5, 1, 5000), 1, 1e-12);
  EXPECT_GT(std::fabs(CompletedAmong(5, 0, 5000) - 1), 1);
  EXPECT_GT(std::fabs(CompletedAmong(4, 1, 5000) - 1), 1);
}

TEST(CompleteOrtho, AWindowExcludesItsEdge) {
  // Six hits within 100 cm on y = 1 when the one at the edge counts, five when not.
  HitList3D list;
  AddX(list, 0, 0);
  for (int i = 1; i <= 5; i++) AddY(list, 10 * i, 1);
  AddY(list, 100, 1);
  AddY(list, -199, 60);
  HitList3D inside = list;
  list.CompleteOrtho();
  EXPECT_GT(At(list, 0).fY, 2); // the far one was taken in
  for (Hit3D& h : inside)
    if (h.fZ == 100) h.fZ = std::nextafter(100.0, 0.0);
  inside.CompleteOrtho();
  EXPECT_NEAR(At(inside, 0).fY, 1, 1e-12);
}

TEST(CompleteOrtho, EachOfTheThreeWindowsExcludesItsEdge) {
  for (const double edge : {100.0, 200.0, 400.0}) {
    HitList3D list;
    AddX(list, 0, 0);
    for (int i = 1; i <= 5; i++) AddY(list, -i, 1);
    AddY(list, edge, 50);
    HitList3D inside = list;
    list.CompleteOrtho();
    inside.back().fZ = std::nextafter(edge, 0.0);
    inside.CompleteOrtho();
    EXPECT_GT(At(inside, 0).fY, 1.001) << edge;
    if (edge == 400)
      EXPECT_NEAR(At(list, 0).fY, 1, 1e-12);
    else
      EXPECT_GT(At(list, 0).fY, 1.001) << edge;
  }
}

TEST(CompleteOrtho, HitsOfTheSameViewNeverContribute) {
  HitList3D list;
  AddX(list, 0, 3);
  AddY(list, -20, 1);
  AddY(list, 30, 2);
  HitList3D crowded = list;
  for (int i = 0; i < 50; i++) AddX(crowded, 1 + 0.01 * i, 1000 + i);
  list.CompleteOrtho();
  crowded.CompleteOrtho();
  EXPECT_TRUE(SameBits(At(crowded, 0).fY, At(list, 0).fY));
}

TEST(CompleteOrtho, TakesTheWeightsAsTheyAre) {
  // Weighted mean of slopeless pairs at either side: y at z = 0 is that of weights 3 and 1.
  HitList3D list;
  AddX(list, 0, 3);
  for (const double z : {-10.0, 10.0}) {
    AddY(list, z, 8, 3);
    AddY(list, z, 4, 1);
  }
  list.CompleteOrtho();
  EXPECT_NEAR(At(list, 0).fY, 7, 1e-13);
}

int gCalls = 0;

TEST(CompleteOrtho, GivesEachHitOfTheUnsortedListToTheCallersFunction) {
  HitList3D list;
  AddX(list, 5, 0);
  AddX(list, 1, 0);
  gCalls = 0;
  list.CompleteOrtho([](Hit3D& hit, HitList3D& hits) {
    EXPECT_EQ(&hit, &hits[static_cast<std::size_t>(gCalls)]);
    hit.fT = ++gCalls;
  });
  EXPECT_EQ(gCalls, 2);
  EXPECT_EQ(list[0].fZ, 5);
  EXPECT_EQ(list[0].fT, 1);
  EXPECT_EQ(list[1].fT, 2);
}

TEST(CompleteOrtho, FollowsTheSizeThatTheCallersFunctionLeaves) {
  HitList3D list;
  AddX(list, 5, 0);
  gCalls = 0;
  list.CompleteOrtho([](Hit3D&, HitList3D& hits) {
    if (++gCalls < 4) AddX(hits, 0, 0);
  });
  EXPECT_EQ(gCalls, 4);
  EXPECT_EQ(list.size(), 4u);
}

TEST(CompleteOrtho, EqualsThePlainProgramBitForBit) {
  std::mt19937 random(51);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int round = 0; round < 3000; round++) {
    HitList3D list;
    const int n = static_cast<int>(random() % 60);
    const double length = 50 + 3000 * unit(random);
    const bool onGrid = round % 3 == 0; // equal z, and distances of exactly a window
    for (int i = 0; i < n; i++) {
      double z = length * unit(random) - 500;
      if (onGrid) z = 50 * std::floor(z / 50);
      const double w = round % 2 ? 1 : unit(random);
      list.AddHit(unit(random) < 0.5 ? kX : kY, 200 * unit(random), 200 * unit(random), z, 0,
                  unit(random), unit(random), unit(random), 0, w);
    }
    list.SortByZ();
    const reference::HitArrays hits(list);
    for (Hit3D& h : list) gsDefaultInterp(h, list);
    for (std::size_t k = 0; k < list.size(); k++) {
      double c = 0, sigma = 0;
      reference::Complete(hits, k, &c, &sigma);
      const Hit3D& h = list[k];
      ASSERT_TRUE(SameBits(h.fView == kX ? h.fY : h.fX, c)) << "round " << round << " hit " << k;
      ASSERT_TRUE(SameBits(h.fView == kX ? h.fSigY : h.fSigX, sigma)) << round << ' ' << k;
      ASSERT_TRUE(SameBits(h.fView == kX ? h.fX : h.fY, h.fView == kX ? hits.x[k] : hits.y[k]));
    }
  }
}

TEST(CompleteOrtho, AHitOfNeitherViewIsLeftAloneWhereThereIsNoLine) {
  HitList3D list(1);
  list[0].fX = 1;
  list[0].fY = 2;
  list[0].fSigX = 3;
  list[0].fSigY = 4;
  AddX(list, 1, 7);
  gsDefaultInterp(list[0], list);
  EXPECT_EQ(list[0].fX, 1);
  EXPECT_EQ(list[0].fY, 2);
  EXPECT_EQ(list[0].fSigX, 3);
  EXPECT_EQ(list[0].fSigY, 4);
}

TEST(CompleteOrthoDeath, EndsTheProcessOnAHitOfNeitherViewInsideTheWindow) {
  HitList3D list;
  AddX(list, 0, 7);
  list.AddHit(kNoView, 0, 0, 1, 0, 0, 0, 0, 0, 1);
  EXPECT_EXIT(gsDefaultInterp(list[0], list), testing::KilledBySignal(SIGABRT), "");
  list[1].fZ = 400;
  gsDefaultInterp(list[0], list); // outside: never looked at
  EXPECT_EQ(list[0].fSigY, 1000);
}

TEST(CompleteOrthoDeath, EndsTheProcessOnALineForAHitOfNeitherView) {
  HitList3D list(1);
  AddX(list, 1, 7);
  AddX(list, 2, 7);
  EXPECT_EXIT(gsDefaultInterp(list[0], list), testing::KilledBySignal(SIGABRT), "");
}

} // namespace
