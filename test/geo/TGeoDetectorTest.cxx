// The reference is a detector of the same boxes as planes and slabs, which PlaneDetectorTest
// checks; and closed forms for spheres, tubes and assemblies.

#include "geo/TGeoDetector.h"

#include "geo/PlaneDetector.h"
#include "test/support/TempFolder.h"

#include <TClass.h>
#include <TGeoManager.h>
#include <TGeoMatrix.h>
#include <TGeoMedium.h>
#include <TGeoVolume.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <thread>

namespace {

using Point = std::array<double, 3>;
using Steps = std::vector<std::pair<std::string, double>>;

constexpr double kBoundary = 1e-7; // cm; how well ROOT finds boundaries, with some reserve

double Distance(const Point& a, const Point& b) {
  return std::hypot(b[0] - a[0], b[1] - a[1], b[2] - a[2]);
}

Steps StepsOf(const geo::GeometryBase& detector, const Point& from, const Point& to) {
  std::vector<double> ds{-1};
  std::vector<const TGeoMaterial*> mats{nullptr};
  detector.MaterialsBetweenPoints(from.data(), to.data(), ds, mats);
  EXPECT_EQ(ds.size(), mats.size());
  Steps steps;
  for (std::size_t i = 0; i < ds.size(); i++) steps.emplace_back(mats[i]->GetName(), ds[i]);
  return steps;
}

double Sum(const Steps& steps) {
  return std::accumulate(steps.begin(), steps.end(), 0.0,
                         [](double sum, const auto& step) { return sum + step.second; });
}

/// What a detector owes its callers, on any way.
void ExpectSound(const Steps& steps, const Point& from, const Point& to) {
  const double distance = Distance(from, to);
  EXPECT_NEAR(Sum(steps), distance, 1e-12 * (1 + distance));
  for (std::size_t i = 0; i < steps.size(); i++) {
    EXPECT_GT(steps[i].second, 0);
    if (i > 0) {
      EXPECT_NE(steps[i].first, steps[i - 1].first);
    }
  }
}

void ExpectSame(const Steps& a, const Steps& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); i++) {
    EXPECT_EQ(a[i].first, b[i].first) << "step " << i;
    EXPECT_NEAR(a[i].second, b[i].second, kBoundary) << "step " << i;
  }
}

/// Each test has a manager of its own, which owns all that is made here.
class TGeoDetectorTest : public testing::Test {
protected:
  ~TGeoDetectorTest() override { delete gGeoManager; }

  static TGeoMedium* Medium(const char* name, double a, double z, double density) {
    return new TGeoMedium(name, 1, new TGeoMaterial(name, a, z, density));
  }
  static TGeoMedium* Steel() { return Medium("Steel", 55.845, 26, 7.87); }
  static TGeoMedium* Scintillator() { return Medium("Scintillator", 11.2, 5.6, 0.859); }
  static TGeoMedium* Galactic() { return Medium("Galactic", 1.01, 1, 1e-25); }

  static TGeoVolume* MakeWorld(double x, double y, double z) {
    new TGeoManager("test", "");
    TGeoVolume* world = gGeoManager->MakeBox("world", Galactic(), x, y, z);
    gGeoManager->SetTopVolume(world);
    return world;
  }

  /// Ten pairs of 2.5 cm of steel and 1.5 cm of scintillator, 20 cm x 30 cm, from z = 0 on.
  static void MakeStack() {
    TGeoVolume* world = MakeWorld(100, 100, 100);
    TGeoVolume* steel = gGeoManager->MakeBox("steel", Steel(), 10, 15, 1.25);
    TGeoVolume* strips = gGeoManager->MakeBox("strips", Scintillator(), 10, 15, 0.75);
    for (int i = 0; i < 10; i++) {
      world->AddNode(steel, i, new TGeoTranslation(0, 0, 4 * i + 1.25));
      world->AddNode(strips, i, new TGeoTranslation(0, 0, 4 * i + 3.25));
    }
    gGeoManager->CloseGeometry();
  }
  static geo::PlaneDetector SameStack() {
    return geo::PlaneDetector::FromText(R"(
name = "stack"
world = "Vacuum"
[[material]]
name = "Vacuum"
density = 1e-25
[[material]]
name = "Steel"
density = 7.87
radiation_length = 1.7584
[[material]]
name = "Scintillator"
density = 0.859
radiation_length = 51.447
[[slab]]
name = "steel"
material = "Steel"
size = [20, 30]
thickness = 2.5
[[plane]]
name = "strips"
view = "X"
count = 10
cell = { width = 2, length = 30, depth = 1.5 }
filling = "Scintillator"
[[stack]]
repeat = 10
parts = ["steel", "strips"]
)",
                                        "stack");
  }
};

TEST_F(TGeoDetectorTest, GivesTheStepsOfTheSameDetectorDescribedAsPlanes) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  const geo::PlaneDetector reference = SameStack();
  std::mt19937 random(1);
  std::uniform_real_distribution<double> x(-12, 12), y(-17, 17), z(-5, 45);
  for (int i = 0; i < 2000; i++) {
    const Point from{x(random), y(random), z(random)};
    const Point to{x(random), y(random), z(random)};
    const Steps steps = StepsOf(detector, from, to);
    ExpectSound(steps, from, to);
    ExpectSame(steps, StepsOf(reference, from, to));
  }
}

TEST_F(TGeoDetectorTest, GivesTheSameStepsBackwards) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  const Point from{1, 2, -3}, to{-4, 3, 44};
  Steps steps = StepsOf(detector, from, to);
  std::reverse(steps.begin(), steps.end());
  ExpectSame(StepsOf(detector, to, from), steps);
}

TEST_F(TGeoDetectorTest, TakesPointsOutsideOfTheWorldForVacuum) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  // Beside the world, away from it, towards it, and through it.
  ExpectSame(StepsOf(detector, {150, 0, 0}, {150, 0, 40}), {{"Vacuum", 40}});
  ExpectSame(StepsOf(detector, {0, 0, 150}, {0, 0, 900}), {{"Vacuum", 750}});
  ExpectSame(StepsOf(detector, {0, 0, -500}, {0, 0, -200}), {{"Vacuum", 300}});
  ExpectSame(StepsOf(detector, {0, 0, -500}, {0, 0, 1}), {{"Vacuum", 500}, {"Steel", 1}});
  ExpectSame(StepsOf(detector, {0, 0, 39}, {0, 0, 900}), {{"Scintillator", 1}, {"Vacuum", 860}});
  ExpectSame(StepsOf(detector, {-300, 0, 1}, {300, 0, 1}),
             {{"Vacuum", 290}, {"Steel", 20}, {"Vacuum", 290}});
}

TEST_F(TGeoDetectorTest, GivesNoStepForAWayOfNoLength) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  for (const Point& p : {Point{0, 0, 1}, Point{0, 0, 2.5}, Point{500, 0, 0}})
    EXPECT_TRUE(StepsOf(detector, p, p).empty());
}

TEST_F(TGeoDetectorTest, GivesOneStepForTheSmallestWays) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  for (const double z : {1.0, 2.5, 0.0, 200.0})
    for (const double d : {1e-14, 1e-11, 1e-9, 1e-6}) {
      const Point from{0, 0, z}, to{0, 0, z + d};
      if (Distance(from, to) == 0) continue;
      const Steps steps = StepsOf(detector, from, to);
      ExpectSound(steps, from, to);
      EXPECT_EQ(steps.size(), 1u);
    }
}

TEST_F(TGeoDetectorTest, ComesToAnEndOnBoundariesAndAlongThem) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  for (const double d : {0.0, 1e-13, -1e-13, 1e-10, -1e-10, 1e-9}) {
    // From boundary to boundary, along a face, along an edge, into a corner.
    for (const auto& [from, to] : {std::pair<Point, Point>{{0, 0, 0 + d}, {0, 0, 2.5 + d}},
                                   {{-20, 0, 2.5 + d}, {20, 0, 2.5 + d}},
                                   {{10 + d, -20, 2.5 + d}, {10 + d, 20, 2.5 + d}},
                                   {{-20, -25, -30}, {20 + d, 25 + d, 30 + d}}})
      ExpectSound(StepsOf(detector, from, to), from, to);
  }
  ExpectSame(StepsOf(detector, {0, 0, 0}, {0, 0, 4}), {{"Steel", 2.5}, {"Scintillator", 1.5}});
}

TEST_F(TGeoDetectorTest, MergesVolumesOfOneMaterial) {
  TGeoVolume* world = MakeWorld(50, 50, 50);
  TGeoMedium* steel = Steel();
  TGeoVolume* plate = gGeoManager->MakeBox("plate", steel, 10, 10, 1);
  for (int i = 0; i < 5; i++) world->AddNode(plate, i, new TGeoTranslation(0, 0, 2 * i));
  gGeoManager->CloseGeometry();
  const geo::TGeoDetector detector(*gGeoManager);
  ExpectSame(StepsOf(detector, {0, 0, -10}, {0, 0, 20}),
             {{"Vacuum", 9}, {"Steel", 10}, {"Vacuum", 11}});
}

TEST_F(TGeoDetectorTest, FollowsVolumesInVolumesWithTheirRotations) {
  TGeoVolume* world = MakeWorld(50, 50, 50);
  TGeoVolume* box = gGeoManager->MakeBox("box", Steel(), 5, 5, 20);
  TGeoVolume* core = gGeoManager->MakeBox("core", Scintillator(), 1, 1, 20);
  box->AddNode(core, 1);
  // Turned by 90 degrees about x: the long axis lies along y.
  auto* turned = new TGeoCombiTrans(0, 0, 10, new TGeoRotation("turned", 0, 90, 0));
  world->AddNode(box, 1, turned);
  gGeoManager->CloseGeometry();
  const geo::TGeoDetector detector(*gGeoManager);
  ExpectSame(StepsOf(detector, {0, 15, 0}, {0, 15, 20}),
             {{"Vacuum", 5}, {"Steel", 4}, {"Scintillator", 2}, {"Steel", 4}, {"Vacuum", 5}});
}

TEST_F(TGeoDetectorTest, FindsTheChordsOfASphere) {
  TGeoVolume* world = MakeWorld(50, 50, 50);
  world->AddNode(gGeoManager->MakeSphere("ball", Steel(), 0, 10), 1);
  gGeoManager->CloseGeometry();
  const geo::TGeoDetector detector(*gGeoManager);
  for (const double b : {0.0, 1.0, 5.0, 9.0, 9.99}) {
    const double half = std::sqrt(100 - b * b);
    ExpectSame(StepsOf(detector, {b, 0, -20}, {b, 0, 30}),
               {{"Vacuum", 20 - half}, {"Steel", 2 * half}, {"Vacuum", 30 - half}});
  }
}

TEST_F(TGeoDetectorTest, LooksIntoAssembliesOnSeveralThreads) {
  TGeoVolume* world = MakeWorld(50, 50, 50);
  auto* assembly = new TGeoVolumeAssembly("pair");
  assembly->AddNode(gGeoManager->MakeBox("a", Steel(), 5, 5, 1), 1, new TGeoTranslation(0, 0, -3));
  assembly->AddNode(gGeoManager->MakeTube("b", Scintillator(), 0, 5, 2), 1,
                    new TGeoTranslation(0, 0, 3));
  world->AddNode(assembly, 1);
  gGeoManager->CloseGeometry();
  const geo::TGeoDetector detector(*gGeoManager);
  const Steps expected{
      {"Vacuum", 6}, {"Steel", 2}, {"Vacuum", 3}, {"Scintillator", 4}, {"Vacuum", 5}};
  ExpectSame(StepsOf(detector, {1, 1, -10}, {1, 1, 10}), expected);
  std::vector<std::thread> threads;
  std::atomic<int> same{0};
  for (int t = 0; t < 4; t++)
    threads.emplace_back([&] {
      for (int i = 0; i < 500; i++) {
        const Steps steps = StepsOf(detector, {1, 1, -10}, {1, 1, 10});
        if (steps.size() == expected.size()) same++;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(same, 2000);
  EXPECT_EQ(detector.MaterialNames(),
            (std::vector<std::string>{"Vacuum", "Steel", "Scintillator"}));
}

TEST_F(TGeoDetectorTest, GivesEveryThreadTheSameSteps) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  std::vector<std::pair<Point, Point>> ways;
  std::mt19937 random(2);
  std::uniform_real_distribution<double> x(-12, 12), z(-5, 45);
  for (int i = 0; i < 500; i++)
    ways.push_back({{x(random), x(random), z(random)}, {x(random), x(random), z(random)}});
  std::vector<Steps> alone;
  for (const auto& [from, to] : ways) alone.push_back(StepsOf(detector, from, to));

  std::atomic<int> same{0};
  const auto work = [&] {
    for (std::size_t i = 0; i < ways.size(); i++)
      if (StepsOf(detector, ways[i].first, ways[i].second) == alone[i]) same++;
  };
  // Twice, since the second four threads may be known by the numbers of the first.
  for (int round = 0; round < 2; round++) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) threads.emplace_back(work);
    work();
    for (std::thread& thread : threads) thread.join();
  }
  EXPECT_EQ(same, 10 * 500);
}

TEST_F(TGeoDetectorTest, NamesTheMaterialsThatAreInPlace) {
  MakeStack();
  gGeoManager->MakeBox("unused", Medium("Lead", 207.2, 82, 11.35), 1, 1, 1);
  const geo::TGeoDetector detector(*gGeoManager);
  EXPECT_EQ(detector.Name(), "test");
  EXPECT_EQ(detector.MaterialNames(),
            (std::vector<std::string>{"Vacuum", "Steel", "Scintillator"}));
}

TEST_F(TGeoDetectorTest, RefusesPointsThatAreNotFinite) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(StepsOf(detector, {0, 0, nan}, {0, 0, 1}), std::invalid_argument);
  EXPECT_THROW(StepsOf(detector, {0, 0, 0}, {0, HUGE_VAL, 1}), std::invalid_argument);
}

std::string MessageOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const geo::DetectorError& e) {
    return e.what();
  }
  return "";
}

TEST_F(TGeoDetectorTest, AsksForAClosedGeometry) {
  MakeWorld(1, 1, 1);
  EXPECT_EQ(MessageOf([] { geo::TGeoDetector detector(*gGeoManager); }),
            "the geometry \"test\" is not closed; call its function CloseGeometry first");
}

TEST_F(TGeoDetectorTest, NoticesThatTheGeometryIsGone) {
  MakeStack();
  const geo::TGeoDetector detector(*gGeoManager);
  delete gGeoManager;
  EXPECT_EQ(MessageOf([&] {
              StepsOf(detector, {0, 0, 0}, {0, 0, 1});
            }),
            "the geometry \"test\" was deleted or replaced by another one, but is still in use");
}

TEST_F(TGeoDetectorTest, SaysWhatIsWrongWithAFile) {
  const test::TempFolder folder;
  const std::string missing = folder.Path("none.gdml");
  EXPECT_EQ(MessageOf([&] { geo::TGeoDetector::FromFile(missing); }),
            missing + ": cannot be opened for reading");
  const std::string other = folder.Path("detector.xml");
  EXPECT_EQ(MessageOf([&] { geo::TGeoDetector::FromFile(other); }),
            other + ": a geometry of ROOT's has a name that ends in .root or .gdml");
  const std::string quoted = folder.Path("a\"b.gdml");
  EXPECT_EQ(MessageOf([&] { geo::TGeoDetector::FromFile(quoted); }),
            quoted +
                ": ROOT reads no GDML file with quotation marks, backslashes or line ends in its "
                "name; give it another one");
  MakeStack();
  const std::string file = folder.Write("stack.root", "");
  EXPECT_EQ(MessageOf([&] { geo::TGeoDetector::FromFile(file); }),
            file +
                ": the geometry \"test\" is in memory already, and ROOT holds one at a time; "
                "delete it first, or use it as the detector");
}

TEST_F(TGeoDetectorTest, ReadsARootFile) {
  const test::TempFolder folder;
  const std::string file = folder.Path("stack.root");
  MakeStack();
  gGeoManager->Export(file.c_str());
  delete gGeoManager;
  const auto detector = geo::TGeoDetector::FromFile(file);
  ExpectSame(StepsOf(*detector, {0, 0, 0}, {0, 0, 4}), {{"Steel", 2.5}, {"Scintillator", 1.5}});
}

TEST_F(TGeoDetectorTest, ReadsARootFileUnderItsNameAsItStands) {
  const test::TempFolder folder;
  MakeStack();
  gGeoManager->Export(folder.Path("stack.root").c_str());
  delete gGeoManager;
  for (const char* name : {"a#b.root", "a?b.root", "a|b.root", "a.gdml.root"}) {
    std::filesystem::copy_file(folder.Path("stack.root"), folder.Path(name));
    const auto detector = geo::TGeoDetector::FromFile(folder.Path(name));
    ExpectSame(StepsOf(*detector, {0, 0, 0}, {0, 0, 4}), {{"Steel", 2.5}, {"Scintillator", 1.5}});
  }
}

const char* const kGdml = R"(<?xml version="1.0" encoding="UTF-8"?>
<gdml xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
  <define>
    <position name="centre" unit="cm" x="0" y="0" z="5"/>
  </define>
  <materials>
    <material name="Steel" Z="26"><D value="7.87" unit="g/cm3"/><atom value="55.845"/></material>
    <material name="Space" Z="1"><D value="1e-25" unit="g/cm3"/><atom value="1.01"/></material>
  </materials>
  <solids>
    <box name="worldBox" x="1000" y="1000" z="1000" lunit="mm"/>
    <box name="plateBox" x="200" y="200" z="25" lunit="mm"/>
  </solids>
  <structure>
    <volume name="plate"><materialref ref="Steel"/><solidref ref="plateBox"/></volume>
    <volume name="world">
      <materialref ref="Space"/><solidref ref="worldBox"/>
      <physvol><volumeref ref="plate"/><positionref ref="centre"/></physvol>
    </volume>
  </structure>
  <setup name="Default" version="1.0"><world ref="world"/></setup>
</gdml>
)";

TEST_F(TGeoDetectorTest, ReadsAGdmlFile) {
  if (!TClass::GetClass("TGDMLParse")) GTEST_SKIP() << "this ROOT cannot read GDML";
  const test::TempFolder folder;
  const std::string file = folder.Write("plate.gdml", kGdml);
  const auto detector = geo::TGeoDetector::FromFile(file);
  ExpectSame(StepsOf(*detector, {0, 0, 0}, {0, 0, 10}),
             {{"Vacuum", 3.75}, {"Steel", 2.5}, {"Vacuum", 3.75}});
}

} // namespace
