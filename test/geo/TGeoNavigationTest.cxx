// How a geometry of ROOT's is asked: navigators, threads and who owns materials. Reference: slabs
// along z, by hand, in a stand-in for the package that knows its rules
// (test/support/root_geometry). What the package's own shapes give is tested by TGeoDetectorTest
// where ROOT has it.

#include "geo/OwnMaterial.h"
#include "geo/TGeoDetector.h"

#include <TGeoManager.h>
#include <TGeoNavigator.h>
#include <TGeoVolume.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Steps = std::vector<std::pair<std::string, double>>;

Steps StepsOf(const geo::TGeoDetector& detector) {
  const double from[] = {0, 0, -5}, to[] = {0, 0, 10};
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  detector.MaterialsBetweenPoints(from, to, ds, mats);
  Steps steps;
  for (std::size_t i = 0; i < ds.size(); i++) steps.emplace_back(mats[i]->GetName(), ds[i]);
  return steps;
}

/// 1 cm of lead behind z = 0, seen by the manager's current navigator only; two sheets of steel,
/// each with a record of its own, behind z = 3.
class TGeoNavigation : public testing::Test {
protected:
  TGeoNavigation() {
    fLead = std::make_unique<TGeoVolume>(new TGeoMaterial("Lead", 207, 82, 11.35), 0, 1, true);
    fSheet = std::make_unique<TGeoVolume>(new TGeoMaterial("Steel", 56, 26, 7.87), 3, 4);
    fOther = std::make_unique<TGeoVolume>(new TGeoMaterial("Steel", 56, 26, 7.87), 4, 5.5);
    fWorld = std::make_unique<TGeoVolume>(new TGeoMaterial("Space", 1, 1, 1e-25), -100, 100);
    for (TGeoVolume* volume : {fLead.get(), fSheet.get(), fOther.get()}) fWorld->AddNode(volume);
    fManager->SetTopVolume(fWorld.get());
    fManager->CloseGeometry();
  }

  /// In a thread of its own.
  Steps Elsewhere(const geo::TGeoDetector& detector) const {
    Steps steps;
    std::thread([&] { steps = StepsOf(detector); }).join();
    return steps;
  }

  const Steps fExpected{{"Vacuum", 5}, {"Lead", 1}, {"Vacuum", 2}, {"Steel", 2.5}, {"Vacuum", 4.5}};
  std::unique_ptr<TGeoManager> fManager = std::make_unique<TGeoManager>("test");
  std::unique_ptr<TGeoVolume> fLead, fSheet, fOther, fWorld;
};

TEST_F(TGeoNavigation, SeesVolumesOfVoxelsAndMergesNeighboursOfOneName) {
  const geo::TGeoDetector detector(*fManager);
  EXPECT_EQ(StepsOf(detector), fExpected);
}

TEST_F(TGeoNavigation, TakesTheNavigatorThatIsThere) {
  for (int i = 0; i < 10; i++) {
    const geo::TGeoDetector one(*fManager), other(*fManager);
    EXPECT_EQ(StepsOf(one), fExpected);
    EXPECT_EQ(StepsOf(other), fExpected);
  }
  EXPECT_EQ(TGeoNavigator::fgAlive, 1);
}

TEST_F(TGeoNavigation, FollowsTheCallersChoiceOfANavigator) {
  const geo::TGeoDetector detector(*fManager);
  fManager->AddNavigator(); // the current one of this thread now, but not yet of the manager
  EXPECT_EQ(StepsOf(detector), fExpected);
  fManager->SetCurrentNavigator(0);
  EXPECT_EQ(StepsOf(detector), fExpected);
  EXPECT_EQ(TGeoNavigator::fgAlive, 2);
}

TEST_F(TGeoNavigation, GivesAThreadOfItsOwnANavigatorOfItsOwn) {
  const geo::TGeoDetector detector(*fManager);
  EXPECT_EQ(Elsewhere(detector), fExpected); // before the thread of the manager has asked
  EXPECT_TRUE(fManager->IsMultiThread());
  EXPECT_EQ(StepsOf(detector), fExpected);
  EXPECT_EQ(TGeoNavigator::fgAlive, 2);
}

TEST_F(TGeoNavigation, ServesSeveralDetectorsOfOneManagerFromSeveralThreads) {
  constexpr int kThreads = 8, kTimes = 200;
  std::atomic<int> same{0};
  {
    const geo::TGeoDetector one(*fManager), other(*fManager);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
      threads.emplace_back([&, t] {
        for (int i = 0; i < kTimes; i++)
          if (StepsOf((i + t) % 2 ? one : other) == fExpected) same++;
      });
    for (int i = 0; i < kTimes; i++)
      if (StepsOf(one) == fExpected) same++;
    for (std::thread& thread : threads) thread.join();
  }
  EXPECT_EQ(same, (kThreads + 1) * kTimes);
  // One for each thread, however many detectors there were; threads that ended give theirs on.
  EXPECT_LE(TGeoNavigator::fgAlive, kThreads + 1);
}

TEST_F(TGeoNavigation, LeavesMaterialsToTheirMakers) {
  const int before = TGeoMaterial::fgAlive;
  const auto own = std::make_unique<geo::Own<>>("Iron", 56., 26., 7.87, -1.76, -17.);
  {
    const geo::TGeoDetector detector(*fManager); // has vacuum of its own
    EXPECT_EQ(TGeoMaterial::fgAlive, before + 2);
  }
  EXPECT_EQ(TGeoMaterial::fgAlive, before + 1);
  fManager.reset(); // takes those with it that are the manager's
  EXPECT_EQ(TGeoMaterial::fgAlive, 1);
  EXPECT_STREQ(own->GetName(), "Iron");
}

TEST(OwnMaterial, AsksNoManagerWhereBothLengthsAreGiven) {
  ASSERT_EQ(gGeoManager, nullptr);
  EXPECT_THROW(TGeoMaterial("Iron", 56, 26, 7.87, -1.76), std::logic_error);
  const geo::Own<> iron("Iron", 56., 26., 7.87, -1.76, geo::GivenIntLen(56, 26, 7.87));
  const geo::Own<> oil("Oil", 0., 0., 0.9, -50., geo::GivenIntLen(0, 0, 0.9));
  EXPECT_EQ(iron.GetRadLen(), 1.76);
  // 35 g/cm2 A^(1/3); measured 132.1 g/cm2 for iron (Particle Data Group).
  EXPECT_NEAR(-geo::GivenIntLen(55.845, 26, 7.874), 132.1 / 7.874, 0.4);
  EXPECT_EQ(geo::GivenIntLen(0, 0, 0.9), 0);
}

} // namespace
