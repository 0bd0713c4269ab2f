// What a detector owes its callers, for the materials along a track; and by hand, the materials of
// layers that a slanted track crosses.

#include <TGeoMaterial.h>
#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "test/support/TestGeometry.h"
#include "track/RangeOutGeometry.h"

namespace {

using kelvo::UnrolledTrack;

struct Steps {
  std::vector<double> fDs;
  std::vector<const TGeoMaterial*> fMats;

  double Sum() const { return std::accumulate(fDs.begin(), fDs.end(), 0.); }
  std::string Names() const {
    std::string names;
    for (const TGeoMaterial* mat : fMats) names += std::string(mat->GetName()) + ' ';
    return names;
  }
};

Steps Between(const UnrolledTrack& track, double z0, double z1) {
  const double p0[3] = {0, 0, z0};
  const double p1[3] = {0, 0, z1};
  Steps steps;
  track.MaterialsBetweenPoints(p0, p1, steps.fDs, steps.fMats);
  return steps;
}

/// 10 cm of four layers, crossed with a slope of 3/4 (lengths 5/4 of those along z), in two legs.
class UnrolledTrackTest : public testing::Test {
protected:
  LayeredGeometry fDetector{{{2, "PVC"}, {4, "Scintillator"}, {2, "Steel"}, {2, "Glue"}}};
  UnrolledTrack fTrack{fDetector,
                       {TVector3(0, 0, 0), TVector3(3, 0, 4), TVector3(7.5, 0, 10)},
                       {{1, 2, 1}, {0, 0, 1.2}}};
};

TEST_F(UnrolledTrackTest, BeginsAtTheEndOfTheTrackAndStretchesItsLegs) {
  const Steps steps = Between(fTrack, 0, fTrack.Length());
  EXPECT_EQ(steps.Names(), "Glue Steel Scintillator Scintillator PVC ");
  const double expected[] = {3, 3, 3, 2.5, 2.5};
  ASSERT_EQ(steps.fDs.size(), 5u);
  for (std::size_t k = 0; k < 5; k++) EXPECT_NEAR(steps.fDs[k], expected[k], 1e-12) << k;
}

TEST_F(UnrolledTrackTest, LengthsAddUpToTheDistanceBetweenAnyTwoPoints) {
  for (double z0 = 0; z0 <= 14; z0 += 0.7)
    for (double z1 = 0; z1 <= 14; z1 += 0.7)
      EXPECT_NEAR(Between(fTrack, z0, z1).Sum(), std::abs(z1 - z0), 1e-12) << z0 << ' ' << z1;
}

TEST_F(UnrolledTrackTest, GivesTheSameAnswerHoweverOftenAndInWhateverOrderItIsAsked) {
  const Steps first = Between(fTrack, 1, 7);
  const Steps back = Between(fTrack, 7, 1);
  const Steps again = Between(fTrack, 1, 7);
  EXPECT_EQ(first.fDs, again.fDs);
  EXPECT_EQ(first.fMats, again.fMats);
  EXPECT_EQ(first.Names(), "Glue Steel Scintillator ");
  EXPECT_EQ(back.Names(), "Scintillator Steel Glue ");
}

} // namespace
