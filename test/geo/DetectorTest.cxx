#include "geo/Detector.h"

#include "geo/DetectorFiles.h"

#include "test/support/TestGeometry.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace {

using geo::Detector;

const char* const kFine = KELVO_SOURCE_DIR "/detectors/fine.toml";

TEST(DetectorTest, OpensADetectorMadeOfPlanes) {
  const Detector detector = Detector::FromFile(kFine);
  ASSERT_NE(detector.Planes(), nullptr);
  EXPECT_EQ(&detector.Geometry(), detector.Planes());
  EXPECT_EQ(detector.Name(), "fine");
  EXPECT_EQ(detector.MaterialNames(), detector.Planes()->MaterialNames());
  std::stringstream file;
  file << std::ifstream(kFine).rdbuf();
  EXPECT_EQ(detector.Text(), file.str());
}

TEST(DetectorTest, FindsInstalledDetectorsByTheirNames) {
  EXPECT_EQ(geo::InstalledDetectors(), (std::vector<std::string>{"fine", "range", "telescope"}));
  EXPECT_EQ(Detector::FromFile("fine").Text(), Detector::FromFile(kFine).Text());
  EXPECT_EQ(geo::DetectorFileOf("no such"), "no such");
  EXPECT_EQ(geo::DetectorFileOf("../detectors/fine"), "../detectors/fine");
}

TEST(DetectorTest, CopiesShareTheGeometryAndKeepItAlive) {
  auto first = std::make_unique<Detector>(Detector::FromFile(kFine));
  const Detector second = *first;
  first.reset();
  EXPECT_EQ(second.Planes()->Planes().size(), 128u);
}

TEST(DetectorTest, RefersToADetectorOfTheCaller) {
  const auto planes = geo::PlaneDetector::FromFile(kFine);
  const Detector detector = planes;
  EXPECT_EQ(detector.Planes(), &planes);
  EXPECT_EQ(detector.Name(), "fine");
}

TEST(DetectorTest, RefersToAnyGeometry) {
  const LayeredGeometry slabs({{1, "Steel"}});
  const Detector detector(slabs, "slabs", {"Vacuum", "Steel"});
  EXPECT_EQ(&detector.Geometry(), &slabs);
  EXPECT_EQ(detector.Planes(), nullptr);
  EXPECT_EQ(detector.Text(), "the geometry \"slabs\" in memory");
  EXPECT_EQ(detector.MaterialNames(), (std::vector<std::string>{"Vacuum", "Steel"}));
}

#ifndef KELVO_HAS_GEOMETRY
TEST(DetectorTest, SaysWhatToDoWithoutTheGeometryPackage) {
  for (const char* file : {"calorimeter.gdml", "calorimeter.root"}) {
    try {
      Detector::FromFile(file);
      ADD_FAILURE() << file << " was opened";
    } catch (const geo::DetectorError& e) {
      EXPECT_EQ(e.what(),
                std::string(file) +
                    ": this ROOT has no geometry package, which detectors in .gdml and .root files "
                    "need; use kelvo with a ROOT that was built with geom=ON and gdml=ON, or "
                    "describe the detector in a TOML file, as detectors/fine.toml does");
    }
  }
}
#endif

} // namespace
