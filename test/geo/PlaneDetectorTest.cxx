#include "geo/PlaneDetector.h"

#include "test/support/PlaneDetectorReference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// The material steps are compared with the independent description of the two detectors in
// PlaneDetectorReference.h, and with cases worked out by hand.

namespace {

using geo::PlaneDetector;
using reference::Line;
using reference::Random;

constexpr double kSumTolerance = 1e-9;  // of the distance: what the steps may miss
constexpr double kStepTolerance = 1e-9; // cm: rounding of coordinates of some metres
constexpr double kBeside = 1e-7;        // cm: how far from a boundary to look

const std::string kDetectors = KELVO_SOURCE_DIR "/detectors/";

struct StepList {
  std::vector<double> fLengths;
  std::vector<const TGeoMaterial*> fMaterials;

  std::string Name(std::size_t i) const { return fMaterials[i]->GetName(); }
};

StepList StepsOf(const PlaneDetector& detector, const Line& line) {
  StepList steps;
  detector.MaterialsBetweenPoints(line.fFrom, line.fTo, steps.fLengths, steps.fMaterials);
  return steps;
}

double LengthOf(const Line& line) {
  return std::hypot(line.fTo[0] - line.fFrom[0], line.fTo[1] - line.fFrom[1],
                    line.fTo[2] - line.fFrom[2]);
}

/// Point at distance s from the line's start.
void At(const Line& line, double s, double* p) {
  for (int k = 0; k < 3; k++)
    p[k] = line.fFrom[k] + s / LengthOf(line) * (line.fTo[k] - line.fFrom[k]);
}

std::string NameAt(const reference::Detector& truth, const Line& line, double s) {
  double p[3];
  At(line, s, p);
  return reference::kNames[truth.fAt(p[0], p[1], p[2])];
}

std::string Print(const Line& l) {
  std::ostringstream text;
  text.precision(17);
  text << "from " << l.fFrom[0] << ", " << l.fFrom[1] << ", " << l.fFrom[2] << " to " << l.fTo[0]
       << ", " << l.fTo[1] << ", " << l.fTo[2];
  return text.str();
}

Line Reversed(const Line& l) {
  return {{l.fTo[0], l.fTo[1], l.fTo[2]}, {l.fFrom[0], l.fFrom[1], l.fFrom[2]}};
}

/// What holds for every line: positive finite lengths that add up, no two neighbours alike.
void ExpectSoundSteps(const StepList& steps, const Line& line) {
  ASSERT_EQ(steps.fLengths.size(), steps.fMaterials.size());
  double sum = 0;
  for (std::size_t i = 0; i < steps.fLengths.size(); i++) {
    ASSERT_GT(steps.fLengths[i], 0) << Print(line);
    ASSERT_TRUE(std::isfinite(steps.fLengths[i])) << Print(line);
    if (i > 0) {
      ASSERT_NE(steps.fMaterials[i], steps.fMaterials[i - 1]) << Print(line);
    }
    sum += steps.fLengths[i];
  }
  ASSERT_NEAR(sum, LengthOf(line), kSumTolerance * LengthOf(line)) << Print(line);
}

void ExpectSteps(const StepList& steps, const std::vector<std::pair<double, std::string>>& truth) {
  ASSERT_EQ(steps.fLengths.size(), truth.size());
  for (std::size_t i = 0; i < truth.size(); i++) {
    EXPECT_NEAR(steps.fLengths[i], truth[i].first, kStepTolerance) << "step " << i;
    EXPECT_EQ(steps.Name(i), truth[i].second) << "step " << i;
  }
}

class Bundled : public testing::TestWithParam<reference::Detector> {
protected:
  const reference::Detector& fTruth = GetParam();
  const PlaneDetector fDetector = PlaneDetector::FromFile(kDetectors + fTruth.fName + ".toml");
};

INSTANTIATE_TEST_SUITE_P(Detectors, Bundled, testing::Values(reference::Fine(), reference::Range()),
                         [](const auto& detector) { return detector.param.fName; });

/// Each step in its middle and just behind its beginning and before its end.
void ExpectMaterialsOfThePoints(const StepList& steps, const reference::Detector& truth,
                                const Line& line) {
  double start = 0;
  for (std::size_t i = 0; i < steps.fLengths.size(); i++) {
    const double length = steps.fLengths[i];
    if (length > 4 * kBeside) {
      for (double s : {kBeside, 0.5 * length, length - kBeside})
        ASSERT_EQ(steps.Name(i), NameAt(truth, line, start + s)) << Print(line) << " at " << s;
    }
    start += length;
  }
}

TEST_P(Bundled, HasTheMaterialOfEverySampledPointOn100000RandomRays) {
  Random random(20240601);
  for (int i = 0; i < 100000; i++) {
    const Line line = i % 50 == 0 ? TrackThrough(fTruth, random) : AnyWay(fTruth, random);
    const StepList steps = StepsOf(fDetector, line);
    ExpectSoundSteps(steps, line);
    ExpectMaterialsOfThePoints(steps, fTruth, line);
    if (HasFatalFailure()) return;
  }
}

TEST_P(Bundled, HasTheMaterialOfEveryPointOfADenseSampling) {
  Random random(7);
  for (int i = 0; i < 100; i++) {
    const Line line = TrackThrough(fTruth, random);
    const StepList steps = StepsOf(fDetector, line);
    std::size_t step = 0;
    double end = steps.fLengths[0];
    for (int k = 0; k < 4000; k++) {
      const double s = (k + 0.5) / 4000 * LengthOf(line);
      while (s > end) end += steps.fLengths[++step];
      if (end - s < kBeside || s - (end - steps.fLengths[step]) < kBeside) continue;
      ASSERT_EQ(steps.Name(step), NameAt(fTruth, line, s)) << Print(line) << " at " << s;
    }
  }
}

TEST_P(Bundled, ListsTheStepsOfAPlainSortOfAllFaces) {
  Random random(99);
  for (int i = 0; i < 1000; i++) {
    const Line line = i % 5 == 0 ? TrackThrough(fTruth, random) : AnyWay(fTruth, random);
    const StepList steps = StepsOf(fDetector, line);
    const auto truth = reference::Steps(fTruth, line.fFrom, line.fTo);
    ASSERT_EQ(steps.fLengths.size(), truth.size()) << Print(line);
    for (std::size_t k = 0; k < truth.size(); k++) {
      ASSERT_NEAR(steps.fLengths[k], truth[k].fLength, kStepTolerance) << Print(line);
      ASSERT_EQ(steps.Name(k), reference::kNames[truth[k].fMaterial]) << Print(line);
    }
  }
}

// Points on faces, edges and corners, lines along them, in planes and along axes: the material is
// that of one of the sides.
TEST_P(Bundled, TakesOneOfTheSidesOnEveryBoundary) {
  Random random(31);
  const auto coordinate = [&](int k) {
    const auto& faces = fTruth.fFaces[k];
    return faces[random.Below(faces.size())];
  };
  for (int i = 0; i < 20000; i++) {
    Line line = AnyWay(fTruth, random);
    for (int k = 0; k < 3; k++) {
      if (random.Below(2) == 0) line.fFrom[k] = coordinate(k);
      if (random.Below(3) == 0) line.fTo[k] = coordinate(k);
      if (random.Below(3) == 0) line.fTo[k] = line.fFrom[k];
    }
    const StepList steps = StepsOf(fDetector, line);
    ExpectSoundSteps(steps, line);
    if (HasFatalFailure()) return;
    double start = 0;
    for (std::size_t n = 0; n < steps.fLengths.size(); n++) {
      double p[3];
      At(line, start + 0.5 * steps.fLengths[n], p);
      start += steps.fLengths[n];
      if (steps.fLengths[n] < kBeside) continue;
      bool found = false;
      for (int side = 0; side < 8; side++) {
        const double d = 1e-9; // cm, above the rounding of coordinates
        const auto m = fTruth.fAt(p[0] + (side & 1 ? d : -d), p[1] + (side & 2 ? d : -d),
                                  p[2] + (side & 4 ? d : -d));
        found = found || steps.Name(n) == reference::kNames[m];
      }
      ASSERT_TRUE(found) << Print(line) << " step " << n << " " << steps.Name(n);
    }
  }
}

TEST_P(Bundled, GivesTheSameNumbersBackwards) {
  Random random(5);
  for (int i = 0; i < 2000; i++) {
    const Line line = i % 2 == 0 ? TrackThrough(fTruth, random) : AnyWay(fTruth, random);
    StepList back = StepsOf(fDetector, Reversed(line));
    std::reverse(back.fLengths.begin(), back.fLengths.end());
    std::reverse(back.fMaterials.begin(), back.fMaterials.end());
    const StepList steps = StepsOf(fDetector, line);
    ASSERT_EQ(steps.fLengths, back.fLengths) << Print(line);
    ASSERT_EQ(steps.fMaterials, back.fMaterials) << Print(line);
  }
}

TEST_P(Bundled, ServesTwoThreadsAtOnce) {
  const auto sum = [this] {
    Random random(77);
    StepList steps;
    double total = 0;
    for (int i = 0; i < 500; i++) {
      steps = StepsOf(fDetector, TrackThrough(fTruth, random));
      total = std::accumulate(steps.fLengths.begin(), steps.fLengths.end(), total);
    }
    return total;
  };
  double sums[2];
  std::thread first([&] { sums[0] = sum(); });
  std::thread second([&] { sums[1] = sum(); });
  first.join();
  second.join();
  EXPECT_EQ(sums[0], sum());
  EXPECT_EQ(sums[1], sum());
}

class FineDetector : public testing::Test {
protected:
  const PlaneDetector fDetector = PlaneDetector::FromFile(kDetectors + "fine.toml");
};

TEST_F(FineDetector, HasWallFillingWallAndSheetInEachPlaneOnTheWayAlongACell) {
  // x and y of the centre of cell 16
  const StepList steps = StepsOf(fDetector, {{2.025, 2.025, -1}, {2.025, 2.025, 776.35}});
  std::vector<std::pair<double, std::string>> truth{{1, "Vacuum"}};
  for (int plane = 0; plane < 128; plane++) {
    truth.insert(truth.end(), {{0.2, "PVC"}, {5.6, "Scintillator"}, {0.2, "PVC"}});
    if (plane < 127) truth.push_back({0.05, "Glue"});
  }
  truth.push_back({2, "Vacuum"});
  ExpectSteps(steps, truth);
}

TEST_F(FineDetector, MergesTheGlueBetweenCellsWithTheSheets) {
  ExpectSteps(StepsOf(fDetector, {{0, 0, 0}, {0, 0, 774.35}}), {{774.35, "Glue"}});
}

TEST_F(FineDetector, HasGlueAndWallsOnTheWayAcrossAPlane) {
  std::vector<std::pair<double, std::string>> truth{{5.175, "Vacuum"}, {0.05, "Glue"}};
  for (int cell = 0; cell < 32; cell++)
    truth.insert(truth.end(), {{0.2, "PVC"}, {3.6, "Scintillator"}, {0.2, "PVC"}, {0.05, "Glue"}});
  truth.push_back({5.175, "Vacuum"});
  ExpectSteps(StepsOf(fDetector, {{-70, 1, 3}, {70, 1, 3}}), truth);
  // along the cells: one of them from end to end
  ExpectSteps(StepsOf(fDetector, {{2.025, -71, 3}, {2.025, 71, 3}}),
              {{1, "Vacuum"}, {0.2, "PVC"}, {139.6, "Scintillator"}, {0.2, "PVC"}, {1, "Vacuum"}});
  // in the wall at the upstream face, only walls and glue
  const StepList wall = StepsOf(fDetector, {{-64.825, 1, 0.1}, {64.825, 1, 0.1}});
  EXPECT_EQ(wall.fLengths.size(), 65u);
  EXPECT_NEAR(wall.fLengths[1], 4, kStepTolerance);
  EXPECT_EQ(wall.Name(1), "PVC");
}

TEST_F(FineDetector, CountsAPointOnAFaceToTheSideOfLargerCoordinates) {
  // The wall of cell 16 begins at x = 0.025 and its filling at 0.225; plane 0 ends at z = 6.
  const double y = 10;
  EXPECT_EQ(StepsOf(fDetector, {{1, y, 0}, {2, y, 0}}).Name(0), "PVC");
  EXPECT_EQ(StepsOf(fDetector, {{1, y, 6}, {2, y, 6}}).Name(0), "Glue");
  EXPECT_EQ(StepsOf(fDetector, {{1, y, 774.35}, {2, y, 774.35}}).Name(0), "Vacuum");
  EXPECT_EQ(StepsOf(fDetector, {{-64.825, y, 1}, {-64.825, y, 2}}).Name(0), "Glue");
  EXPECT_EQ(StepsOf(fDetector, {{64.825, y, 1}, {64.825, y, 2}}).Name(0), "Vacuum");
}

TEST_F(FineDetector, HasTheFractionsOfMaterialsThatFollowFromTheCellsOnObliqueWays) {
  // Averaged over the place in the cell, of every pitch of 4.05 x 6.05: filling 3.6 x 5.6, cell
  // 4 x 6, the rest glue.
  constexpr int kN = 405;
  std::map<std::string, double> fraction;
  for (int i = 0; i < kN; i++) {
    const double shift = 4.05 * i / kN;
    const Line line{{-40 + shift, -50 + shift, 0}, {30 + shift, 40 + shift, 127 * 6.05}};
    for (const auto& t : geo::ThicknessBetweenPoints(fDetector, line.fFrom, line.fTo))
      fraction[t.fMaterial->GetName()] += t.fLength / LengthOf(line) / kN;
  }
  EXPECT_EQ(fraction.size(), 3u);
  EXPECT_NEAR(fraction["Scintillator"], 3.6 / 4.05 * 5.6 / 6.05, 1e-4);
  EXPECT_NEAR(fraction["PVC"], (4. * 6. - 3.6 * 5.6) / (4.05 * 6.05), 1e-4);
  EXPECT_NEAR(fraction["Glue"], 1 - 4. * 6. / (4.05 * 6.05), 1e-4);
  EXPECT_NEAR(fraction["Scintillator"], 0.8228, 2e-4);
  EXPECT_NEAR(fraction["PVC"], 0.1567, 2e-4);
  EXPECT_NEAR(fraction["Glue"], 0.0205, 2e-4);
}

TEST_F(FineDetector, ListsItsPlanesWithTheirCells) {
  ASSERT_EQ(fDetector.Planes().size(), 128u);
  for (unsigned p = 0; p < 128; p++) {
    const geo::ActivePlane& plane = fDetector.Planes()[p];
    EXPECT_STREQ(plane.View(), p % 2 == 0 ? "X" : "Y");
    EXPECT_NEAR(plane.fZLow, 6.05 * p, kStepTolerance);
    EXPECT_NEAR(plane.fZHigh, 6.05 * p + 6, kStepTolerance);
    EXPECT_NEAR(plane.ZMid(), 6.05 * p + 3, kStepTolerance);
    EXPECT_EQ(plane.fOffset[0], 0);
    EXPECT_FALSE(plane.Measures(1 - p % 2));
    const geo::CellRow& cells = plane.fCells[p % 2];
    EXPECT_EQ(cells.fCount, 32u);
    EXPECT_EQ(cells.fWidth, 4);
    EXPECT_EQ(cells.fPitch, 4.05);
    EXPECT_EQ(cells.fLength, 140);
    EXPECT_DOUBLE_EQ(cells.fResolution, 4 / std::sqrt(12.));
    for (unsigned i = 0; i < 32; i++)
      EXPECT_NEAR(cells.Centre(i), -62.775 + 4.05 * i, kStepTolerance);
  }
}

TEST_F(FineDetector, FindsTheCellOfACoordinate) {
  const geo::CellRow& cells = fDetector.Planes()[0].fCells[0];
  for (unsigned i = 0; i < 32; i++)
    for (double u : {-2.02, -1.9, 0., 2.02})
      EXPECT_EQ(cells.Cell(cells.Centre(i) + u), static_cast<int>(i));
  EXPECT_EQ(cells.Cell(-64.9), -1);
  EXPECT_EQ(cells.Cell(64.9), -1);
  EXPECT_EQ(cells.Cell(1e300), -1);
  EXPECT_EQ(cells.Cell(std::nan("")), -1);
  EXPECT_EQ(fDetector.Planes()[0].fCells[1].Cell(0), -1); // y is not measured
}

TEST_F(FineDetector, FindsThePlaneNearestToAZ) {
  for (unsigned p = 0; p < 128; p++)
    for (double dz : {-3.02, 0., 3.02}) EXPECT_EQ(fDetector.NearestPlane(6.05 * p + 3 + dz), p);
  EXPECT_EQ(fDetector.NearestPlane(-1e9), 0u);
  EXPECT_EQ(fDetector.NearestPlane(1e9), 127u);
}

TEST_F(FineDetector, TellsItsNameTextSizeAndMaterials) {
  std::ifstream in(kDetectors + "fine.toml");
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(fDetector.Name(), "fine");
  EXPECT_EQ(fDetector.Text(), text);
  for (int k = 0; k < 2; k++) {
    EXPECT_EQ(fDetector.Extent().fLow[k], -70);
    EXPECT_EQ(fDetector.Extent().fHigh[k], 70);
  }
  EXPECT_EQ(fDetector.Extent().fLow[2], 0);
  EXPECT_NEAR(fDetector.Extent().fHigh[2], 774.35, kStepTolerance);
  const std::vector<std::string> names{"Vacuum", "Scintillator", "PVC", "Glue"};
  EXPECT_EQ(fDetector.MaterialNames(), names);
  const auto& materials = fDetector.Materials();
  EXPECT_EQ(materials[0]->GetRadLen(), 1e30);
  EXPECT_EQ(materials[1]->GetRadLen(), 51.447);
  EXPECT_EQ(materials[2]->GetRadLen(), 16.517);
  EXPECT_EQ(materials[3]->GetRadLen(), 31.864);
  EXPECT_EQ(materials[3]->GetDensity(), 1.34);
}

TEST(RangeDetector, HasTheRadiationLengthsOfSteelAndScintillatorInEachLayer) {
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "range.toml");
  const double p0[3] = {1, 2, 40}, p1[3] = {1, 2, 44};
  const auto layer = geo::ThicknessBetweenPoints(detector, p0, p1);
  ASSERT_EQ(layer.size(), 3u);
  EXPECT_NEAR(layer[0].fLength, 2.5, kStepTolerance);
  EXPECT_NEAR(layer[1].fLength, 1, kStepTolerance);
  EXPECT_NEAR(layer[2].fLength, 0.5, kStepTolerance);
  EXPECT_NEAR(layer[0].fRadLengths + layer[1].fRadLengths + layer[2].fRadLengths, 1.441, 5e-4);
  EXPECT_EQ(layer[2].fRadLengths, 0.5 / 1e30);

  ASSERT_EQ(detector.Planes().size(), 60u);
  for (unsigned k = 0; k < 60; k++) {
    EXPECT_NEAR(detector.Planes()[k].ZMid(), 4 * k + 3, kStepTolerance);
    const geo::CellRow& strips = detector.Planes()[k].fCells[k % 2];
    EXPECT_EQ(strips.fCount, 100u);
    EXPECT_EQ(strips.fPitch, 3);
    for (unsigned i = 0; i < 100; i++) EXPECT_EQ(strips.Centre(i), -148.5 + 3 * i);
    EXPECT_DOUBLE_EQ(strips.fResolution, 3 / std::sqrt(12.));
  }
  EXPECT_NEAR(detector.Extent().fHigh[2], 239.5, kStepTolerance);
}

TEST(PlaneDetector, GivesNoStepForAZeroDistance) {
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "range.toml");
  StepList steps{{1.}, {nullptr}};
  const double p[3] = {0, 0, 3};
  detector.MaterialsBetweenPoints(p, p, steps.fLengths, steps.fMaterials);
  EXPECT_TRUE(steps.fLengths.empty());
  EXPECT_TRUE(steps.fMaterials.empty());
}

TEST(PlaneDetector, MeasuresTheTiniestAndTheLongestWays) {
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "range.toml");
  for (double d : {5e-324, 1e-300, 1e-160, 1e-12, 1e-7}) {
    const StepList steps = StepsOf(detector, {{0, 0, 0}, {d, 0, 0}});
    ASSERT_EQ(steps.fLengths.size(), 1u) << d;
    EXPECT_EQ(steps.fLengths[0], d);
    EXPECT_EQ(steps.Name(0), "Steel");
  }
  for (double d : {1e6, 1e9, 1e150, 1e300}) {
    const Line lines[] = {
        {{-d, -d, -d}, {d, d, d}}, {{0, 0, -d}, {0, 0, d}}, {{0, 0, 3}, {d, 1, 3}}};
    for (const Line& line : lines) ExpectSoundSteps(StepsOf(detector, line), line);
  }
  // almost parallel to the layers: the way stays in the steel for as long as z says
  const StepList steps = StepsOf(detector, {{0, 0, 1}, {100, 0, 1 + 1e-14}});
  ASSERT_EQ(steps.fLengths.size(), 1u);
  EXPECT_EQ(steps.Name(0), "Steel");
}

TEST(PlaneDetector, RefusesPointsThatAreNotFinite) {
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "range.toml");
  const auto message = [&](const Line& line) -> std::string {
    try {
      StepsOf(detector, line);
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "";
  };
  const double inf = std::numeric_limits<double>::infinity();
  for (double bad : {std::nan(""), inf, -inf})
    for (int k = 0; k < 3; k++) {
      Line line{{0, 0, 0}, {1, 1, 1}};
      line.fFrom[k] = bad;
      EXPECT_EQ(message(line), "material steps between two points: a coordinate is not finite");
      EXPECT_EQ(message(Reversed(line)),
                "material steps between two points: a coordinate is not finite");
    }
  EXPECT_EQ(message({{-1.5e308, 0, 0}, {1.5e308, 0, 0}}),
            "material steps between two points: they are too far apart");
}

TEST(PlaneDetector, KeepsItsMaterialsWhenMoved) {
  PlaneDetector first = PlaneDetector::FromFile(kDetectors + "range.toml");
  const Line line{{0, 0, 0}, {0, 0, 1}};
  const TGeoMaterial* steel = StepsOf(first, line).fMaterials[0];
  const PlaneDetector second(std::move(first));
  EXPECT_EQ(StepsOf(second, line).fMaterials[0], steel);
}

TEST(Telescope, MeasuresBothCoordinatesInShiftedPlanes) {
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "telescope.toml");
  ASSERT_EQ(detector.Planes().size(), 4u);
  for (unsigned p = 0; p < 4; p++) {
    const geo::ActivePlane& plane = detector.Planes()[p];
    EXPECT_STREQ(plane.View(), "XY");
    EXPECT_NEAR(plane.ZMid(), p, kStepTolerance);
    EXPECT_NEAR(plane.fCells[0].fResolution, 0.007217, 1e-6);
    EXPECT_NEAR(plane.fCells[1].fResolution, 0.001443, 1e-6);
    EXPECT_EQ(plane.fCells[0].fCount, 80u);
    EXPECT_EQ(plane.fCells[1].fCount, 336u);
    EXPECT_EQ(plane.fCells[0].fLength, 0.005);
    const double low = plane.fCells[0].Centre(0) - 0.0125;
    EXPECT_NEAR(low, 0.975 - 1 + plane.fOffset[0], kStepTolerance);
  }
  EXPECT_NE(detector.Planes()[1].fOffset[1], 0);
  const double p0[3] = {0.9, 0.9, -1}, p1[3] = {0.9, 0.9, 4};
  const auto thickness = geo::ThicknessBetweenPoints(detector, p0, p1);
  ASSERT_EQ(thickness.size(), 2u);
  EXPECT_NEAR(thickness[1].fLength, 4 * (0.025 + 0.015), kStepTolerance);
  EXPECT_NEAR(thickness[1].fRadLengths, 0.16 / 9.37, 1e-9);
}

TEST(Telescope, HasASlabBehindEachPlane) {
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "telescope.toml");
  ASSERT_EQ(detector.Slabs().size(), 4u);
  for (unsigned p = 0; p < 4; p++) {
    const geo::Box& slab = detector.Slabs()[p];
    const geo::ActivePlane& plane = detector.Planes()[p];
    EXPECT_NEAR(slab.fLow[2], plane.fZHigh, kStepTolerance);
    EXPECT_NEAR(slab.fHigh[2] - slab.fLow[2], 0.015, kStepTolerance);
    EXPECT_NEAR(slab.fHigh[0] - slab.fLow[0], 2.02, kStepTolerance);
    EXPECT_NEAR((slab.fLow[1] + slab.fHigh[1]) / 2, 0.94 + plane.fOffset[1], kStepTolerance);
  }
}

/// The columns x, y of the four hits of each track, or nothing where the data are not at hand.
std::vector<std::vector<double>> TelescopeTracks() {
  const char* folder = std::getenv("KELVO_SHARED_DATA");
  const std::string shared = folder ? folder : KELVO_SOURCE_DIR "/../shared";
  std::ifstream in(shared + "/data/telescope/telescope_fei4.csv");
  std::vector<std::vector<double>> tracks;
  std::string line;
  while (std::getline(in, line)) {
    double event = 0, plane = 0, z = 0, x = 0, y = 0;
    if (std::sscanf(line.c_str(), "%lf,%lf,%lf,%lf,%lf", &event, &plane, &z, &x, &y) != 5) continue;
    if (plane == 0) tracks.emplace_back();
    tracks.back().insert(tracks.back().end(), {x, y});
  }
  return tracks;
}

TEST(Telescope, HasOffsetsThatCentreTheResidualsOfStraightLines) {
  const auto tracks = TelescopeTracks();
  if (tracks.empty()) GTEST_SKIP() << "the telescope's data are not here: set KELVO_SHARED_DATA";
  const PlaneDetector detector = PlaneDetector::FromFile(kDetectors + "telescope.toml");
  double sums[4][2] = {};
  int used = 0;
  for (const auto& track : tracks) {
    double residual[4][2];
    bool good = true;
    for (unsigned view = 0; view < 2; view++) {
      double u[4], mean = 0, slope = 0;
      for (unsigned p = 0; p < 4; p++) {
        u[p] = track[2 * p + view] + detector.Planes()[p].fOffset[view];
        mean += u[p] / 4;
        slope += (p - 1.5) * u[p] / 5; // planes at 0, 1, 2, 3: sum of (z - 1.5)^2 is 5
      }
      for (unsigned p = 0; p < 4; p++) {
        residual[p][view] = u[p] - mean - slope * (p - 1.5);
        good = good && std::abs(residual[p][view]) < 0.03; // cm, far beyond the widths
      }
    }
    if (!good) continue;
    used++;
    for (int k = 0; k < 8; k++) sums[k / 2][k % 2] += residual[k / 2][k % 2];
  }
  EXPECT_GT(used, 1800);
  for (int k = 0; k < 8; k++) EXPECT_NEAR(sums[k / 2][k % 2] / used, 0, 3e-4) << k;
}

} // namespace
