#include "track/TrackEnd.h"

#include "test/support/BundledDetector.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kelvo::FindTrackEnd;
using kelvo::TrackEnd;

// Planes of detectors/fine.toml: mid z 3 + 6.05 i, 6 cm thick; even ones measure x within 64.8 cm
// and are 140 cm long in y.
double Z(int plane) {
  return 3 + 6.05 * plane;
}
constexpr double kGap = 6.05;

TrackEnd InFine(double x, double y, int plane, double slopeX, double slopeY) {
  return FindTrackEnd(BundledDetector("fine"), {x, y, Z(plane)}, {slopeX, slopeY}, kGap);
}

TEST(TrackEnd, TheLastPlaneIsTheEnd) {
  EXPECT_NEAR(InFine(0, 0, 127, 0.1, 0.1).fDistance, 3, 1e-9);
  EXPECT_NEAR(InFine(0, 0, 126, 0.1, 0.1).fDistance, 9.05, 1e-9);
  EXPECT_NEAR(InFine(0, 0, 100, 0, 0).fPlanes, 27 + 3 / kGap, 1e-9);
}

TEST(TrackEnd, ATrackThatMissedOnePlaneAtMostLeaves) {
  EXPECT_TRUE(InFine(0, 0, 127, 0, 0).fLeaves);
  EXPECT_TRUE(InFine(0, 0, 126, 0, 0).fLeaves);
  EXPECT_FALSE(InFine(0, 0, 125, 0, 0).fLeaves);
}

TEST(TrackEnd, ASideIsWhereTheLineCrossesIt) {
  // Plane 52 measures x: at z 12.1 cm behind the hit the line would be 1.2 cm outside.
  const TrackEnd end = InFine(64.8 + 1.2 - 12.1, 0, 50, 1, 0);
  EXPECT_NEAR(end.fDistance, 12.1 - 1.2, 1e-9);
  EXPECT_FALSE(end.fLeaves); // plane 51 is met before
}

TEST(TrackEnd, ATrackThatMeetsNoFurtherPlaneBeforeTheSideLeaves) {
  // In plane 51 cells are 140 cm long in x, so that the next one is met up to 70 cm.
  EXPECT_TRUE(InFine(64, 0, 50, 2, 0).fLeaves);
  EXPECT_FALSE(InFine(64, 0, 50, 0.9, 0).fLeaves);
  EXPECT_FALSE(InFine(40, 0, 50, 1, 0).fLeaves);
  EXPECT_TRUE(InFine(0, -64, 50, 0, -1).fLeaves);
}

TEST(TrackEnd, ALineAlongTheSideOutsideOfTheCellsHasLeft) {
  const TrackEnd end = InFine(80, 0, 50, 0, 0);
  EXPECT_EQ(end.fDistance, 0);
  EXPECT_TRUE(end.fLeaves);
}

std::string TwoBlocks(const std::string& between) {
  return R"(
name = "blocks"
world = "Vacuum"
[[material]]
name = "Vacuum"
density = 1e-25
[[material]]
name = "Scintillator"
density = 0.859
radiation_length = 51.447
[[plane]]
name = "x"
view = "X"
count = 10
cell = { width = 4, length = 40, depth = 2 }
filling = "Scintillator"
[[plane]]
name = "y"
view = "Y"
count = 10
cell = { width = 4, length = 40, depth = 2 }
filling = "Scintillator"
[[stack]]
parts = ["x", "y", "x", "y", )" +
         between + R"(, "x", "y", "x", "y"]
)";
}

TEST(TrackEnd, AGapWithoutPlanesIsABoundary) {
  const geo::PlaneDetector far = geo::PlaneDetector::FromText(TwoBlocks("30.0"), "far");
  const double z = far.Planes()[3].ZMid();
  EXPECT_TRUE(FindTrackEnd(far, {0, 0, z}, {0, 0}, 2).fLeaves);
  EXPECT_NEAR(FindTrackEnd(far, {0, 0, z}, {0, 0}, 2).fDistance, 1, 1e-9);
  const geo::PlaneDetector near = geo::PlaneDetector::FromText(TwoBlocks("1.0"), "near");
  EXPECT_FALSE(FindTrackEnd(near, {0, 0, near.Planes()[3].ZMid()}, {0, 0}, 2).fLeaves);
}

} // namespace
