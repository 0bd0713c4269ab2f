#include "geo/PlaneDetector.h"

#include "test/support/PlaneDetectorReference.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Messages are compared word for word. The positions in them count the lines and columns of kGood
// below, after one exchange of text.

namespace {

using geo::DetectorError;
using geo::PlaneDetector;

const std::string kGood = R"(name = "test"
world = "Vacuum"

[[material]]
name = "Oil"
density = 0.9
radiation_length = 50.0

[[material]]
name = "Wall"
density = 1.5
radiation_length = 16.5
A = 12.5
Z = 6

[[material]]
name = "Vacuum"
density = 1e-25

[[slab]]
name = "sheet"
material = "Wall"
size = [30, 20]
thickness = 0.5
centre = [1, -2]

[[plane]]
name = "x"
view = "X"
count = 3
cell = { width = 4, length = 20, depth = 6 }
wall = { material = "Wall", thickness = 0.2 }
filling = "Oil"
gap = { material = "Vacuum", width = 0.5 }
resolution = 1.5

[[plane]]
name = "pixels"
view = "XY"
count = [10, 20]
cell = { width = [2, 0.5], depth = 1 }
filling = "Oil"

[[stack]]
repeat = 2
parts = ["x", "sheet", 3.5]

[[stack]]
z = 30
parts = ["pixels"]
offset = [0.1, -0.2, 0.3]
)";

std::string Exchanged(const std::string& from, const std::string& to) {
  std::string text = kGood;
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

std::string MessageOf(const std::string& text) {
  try {
    PlaneDetector::FromText(text, "test.toml");
  } catch (const DetectorError& e) {
    return e.what();
  }
  return "no error";
}

std::string Message(const std::string& from, const std::string& to) {
  return MessageOf(Exchanged(from, to));
}

TEST(DetectorFile, PlacesPartsBehindEachOtherAndRepeatsGroups) {
  const PlaneDetector d = PlaneDetector::FromText(kGood, "test.toml");
  ASSERT_EQ(d.Planes().size(), 3u);
  EXPECT_DOUBLE_EQ(d.Planes()[0].fZLow, 0);
  EXPECT_DOUBLE_EQ(d.Planes()[0].fZHigh, 6);
  EXPECT_DOUBLE_EQ(d.Planes()[1].fZLow, 10);
  EXPECT_DOUBLE_EQ(d.Planes()[2].fZLow, 30.3);
  EXPECT_DOUBLE_EQ(d.Extent().fHigh[2], 31.3);
  EXPECT_DOUBLE_EQ(d.Extent().fLow[0], -14); // the sheet: 30 cm around x = 1
  EXPECT_DOUBLE_EQ(d.Extent().fHigh[0], 16);
  EXPECT_DOUBLE_EQ(d.Extent().fLow[1], -12);
}

TEST(DetectorFile, GivesCellsTheirPlaceResolutionAndOffset) {
  const PlaneDetector d = PlaneDetector::FromText(kGood, "test.toml");
  const geo::CellRow& cells = d.Planes()[0].fCells[0];
  EXPECT_EQ(cells.fCount, 3u);
  EXPECT_DOUBLE_EQ(cells.Centre(0), -4.5);
  EXPECT_DOUBLE_EQ(cells.Centre(2), 4.5);
  EXPECT_EQ(cells.fResolution, 1.5);
  const geo::ActivePlane& pixels = d.Planes()[2];
  EXPECT_STREQ(pixels.View(), "XY");
  EXPECT_EQ(pixels.fOffset[1], -0.2);
  EXPECT_EQ(pixels.fOffset[2], 0.3);
  EXPECT_DOUBLE_EQ(pixels.fCells[0].Centre(0), -9 + 0.1);
  EXPECT_DOUBLE_EQ(pixels.fCells[1].Centre(19), 4.75 - 0.2);
  EXPECT_DOUBLE_EQ(pixels.fCells[1].fResolution, 0.5 / std::sqrt(12.));
}

TEST(DetectorFile, TakesLengthsInTheUnitItNames) {
  std::string text = kGood;
  const auto replace = [&text](const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
  };
  replace("world", "unit = \"mm\"\nworld");
  replace("size = [30, 20]\nthickness = 0.5\ncentre = [1, -2]",
          "size = [300, 200]\nthickness = 5\ncentre = [10, -20]");
  replace("width = 4, length = 20, depth = 6", "width = 40, length = 200, depth = 60");
  replace("thickness = 0.2", "thickness = 2");
  replace("width = 0.5 }\nresolution = 1.5", "width = 5 }\nresolution = 15");
  replace("width = [2, 0.5], depth = 1", "width = [20, 5], depth = 10");
  replace("3.5]", "35]");
  replace("z = 30", "z = 300");
  replace("offset = [0.1, -0.2, 0.3]", "offset = [1, -2, 3]");
  const auto cm = PlaneDetector::FromText(kGood, "cm.toml");
  const auto mm = PlaneDetector::FromText(text, "mm.toml");
  ASSERT_EQ(mm.Planes().size(), cm.Planes().size());
  for (std::size_t i = 0; i < cm.Planes().size(); i++) {
    const auto& a = cm.Planes()[i];
    const auto& b = mm.Planes()[i];
    EXPECT_EQ(a.fZLow, b.fZLow);
    EXPECT_EQ(a.fZHigh, b.fZHigh);
    for (int k = 0; k < 3; k++) EXPECT_EQ(a.fOffset[k], b.fOffset[k]);
    for (int view = 0; view < 2; view++) {
      EXPECT_EQ(a.fCells[view].fPitch, b.fCells[view].fPitch);
      EXPECT_EQ(a.fCells[view].fFirst, b.fCells[view].fFirst);
      EXPECT_EQ(a.fCells[view].fLength, b.fCells[view].fLength);
      EXPECT_EQ(a.fCells[view].fResolution, b.fCells[view].fResolution);
    }
  }
  const double p0[3] = {-3, 1, -1};
  const double p1[3] = {4, 2, 40};
  const auto inCm = geo::ThicknessBetweenPoints(cm, p0, p1);
  const auto inMm = geo::ThicknessBetweenPoints(mm, p0, p1);
  ASSERT_EQ(inCm.size(), inMm.size());
  for (std::size_t i = 0; i < inCm.size(); i++) {
    EXPECT_EQ(inCm[i].fLength, inMm[i].fLength);
    EXPECT_EQ(inCm[i].fRadLengths, inMm[i].fRadLengths);
  }
}

TEST(DetectorFile, FindsTheNearestPlaneOfAViewAsALoopDoes) {
  const auto detector = PlaneDetector::FromText(kGood, "test.toml");
  for (const unsigned view : {0u, 1u})
    for (double z = -10; z < 50; z += 0.37) {
      const geo::ActivePlane* nearest = nullptr;
      for (const geo::ActivePlane& plane : detector.Planes())
        if (plane.Measures(view) &&
            (!nearest || std::abs(z - plane.ZMid()) < std::abs(z - nearest->ZMid())))
          nearest = &plane;
      EXPECT_EQ(detector.NearestPlane(z, view), nearest) << z;
    }
}

TEST(DetectorFile, TellsUnitsThatItDoesNotKnowAndLengthsOutOfRangeInOthers) {
  EXPECT_EQ(Message("world = ", "unit = \"inch\"\nworld = "),
            "test.toml:2:8: unit: expected one of cm, mm, m or um, found \"inch\"");
  std::string text = Exchanged("world = ", "unit = \"m\"\nworld = ");
  text.replace(text.find("z = 30"), 6, "z = 3e4");
  EXPECT_EQ(MessageOf(text),
            "test.toml:50:5: stack.z: expected a position in cm from -1e6 to 1e6 once it is "
            "converted from m, found 30000");
}

TEST(DetectorFile, TakesMaterialsAsGiven) {
  const PlaneDetector d = PlaneDetector::FromText(kGood, "test.toml");
  ASSERT_EQ(d.Materials().size(), 3u);
  const TGeoMaterial& wall = *d.Materials()[2];
  EXPECT_STREQ(wall.GetName(), "Wall");
  EXPECT_EQ(wall.GetRadLen(), 16.5);
  EXPECT_EQ(wall.GetDensity(), 1.5);
  EXPECT_EQ(wall.GetA(), 12.5);
  EXPECT_EQ(wall.GetZ(), 6);
}

TEST(DetectorFile, DescribesNineHundredPlanesInAFewLines) {
  const std::string end = kGood.substr(kGood.find("[[stack]]"));
  const PlaneDetector d =
      PlaneDetector::FromText(Exchanged(end, "[[stack]]\nrepeat = 900\nparts = [\"x\"]\n"), "many");
  ASSERT_EQ(d.Planes().size(), 900u);
  EXPECT_DOUBLE_EQ(d.Planes()[899].fZHigh, 5400);
}

TEST(DetectorFile, AddsTheCentresOfPartAndGroup) {
  const PlaneDetector d = PlaneDetector::FromText(
      Exchanged("offset = [0.1, -0.2, 0.3]", "centre = [100, 200]\noffset = [0.5, 0]"), "test");
  EXPECT_DOUBLE_EQ(d.Planes()[2].fCells[0].Centre(0), 100 - 9 + 0.5);
  EXPECT_DOUBLE_EQ(d.Planes()[2].fCells[1].Centre(0), 200 - 4.75);
  EXPECT_EQ(d.Planes()[2].fOffset[0], 0.5);
  const PlaneDetector sheets = PlaneDetector::FromText(
      Exchanged("z = 30\nparts = [\"pixels\"]", "z = 30\nparts = [\"sheet\"]\ncentre = [100, 200]"),
      "test");
  EXPECT_DOUBLE_EQ(sheets.Extent().fHigh[0], 100 + 1 + 15 + 0.1);
  EXPECT_DOUBLE_EQ(sheets.Extent().fHigh[1], 200 - 2 + 10 - 0.2);
}

TEST(DetectorFile, IsWhatItsDocumentationShows) {
  std::ifstream in(KELVO_SOURCE_DIR "/docs/detector-file.md");
  const std::string page((std::istreambuf_iterator<char>(in)), {});
  const auto begin = page.find("```toml\n") + 8;
  const std::string example = page.substr(begin, page.find("```\n", begin) - begin);
  const PlaneDetector d = PlaneDetector::FromText(example, "detector-file.md");
  EXPECT_EQ(d.Planes().size(), 900u);
}

TEST(DetectorFile, LetsPartsTouchWhateverTheRounding) {
  // 0.1 + 0.2 is above 0.3 in binary arithmetic: no overlap, and no gap either.
  const std::string end = kGood.substr(kGood.find("[[stack]]"));
  const std::string sheets = Exchanged("thickness = 0.5", "thickness = 0.1");
  std::string stack = "[[stack]]\nparts = [\"sheet\", \"sheet\", \"sheet\"]\n";
  stack += "[[stack]]\nz = 0.3\nparts = [\"sheet\", \"pixels\"]\n";
  const PlaneDetector d =
      PlaneDetector::FromText(sheets.substr(0, sheets.find("[[stack]]")) + stack, "test.toml");
  const double p0[3] = {0, 0, 0}, p1[3] = {0, 0, 0.4};
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  d.MaterialsBetweenPoints(p0, p1, ds, mats);
  EXPECT_EQ(ds, std::vector<double>{0.4});
}

TEST(DetectorFile, TellsOfAFileThatCannotBeRead) {
  const auto message = [](const std::string& file) -> std::string {
    try {
      PlaneDetector::FromFile(file);
    } catch (const DetectorError& e) {
      return e.what();
    }
    return "no error";
  };
  EXPECT_EQ(message("no/such.toml"),
            "cannot read the detector file \"no/such.toml\": No such file or directory");
  EXPECT_EQ(message("."), "cannot read the detector file \".\": Is a directory");
}

TEST(DetectorFile, TellsWhereTheTextIsNotToml) {
  const std::string message = Message("[[slab]]", "[[slab]");
  EXPECT_EQ(message.substr(0, 32), "test.toml:20:8: not valid TOML: ") << message;
}

TEST(DetectorFile, TakesAnyCharacterInTextsAndComments) {
  const auto name = [](const std::string& written) {
    const std::string line = "name = " + written + " # \u00e9 \" '''";
    const std::string text = Exchanged("name = \"test\"", line);
    return PlaneDetector::FromText("\xEF\xBB\xBF" + text, "test.toml").Name();
  };
  EXPECT_EQ(name("\"d\u00e9tecteur # \u00e9\""), "d\u00e9tecteur # \u00e9");
  EXPECT_EQ(name("'d\u00e9tecteur \"'"), "d\u00e9tecteur \"");
  EXPECT_EQ(name("\"\\\"\u00e9\\\\\""), "\"\u00e9\\");
}

TEST(DetectorFile, RefusesNamesThatATerminalWouldObey) {
  const std::string rule = "expected a text without control characters, found ";
  EXPECT_EQ(Message("\"test\"", "\"a\\u001B[31m\""),
            "test.toml:1:8: name: " + rule + "\"a\\u001B[31m\"");
  for (const std::string control : {"\\n", "\\u007F", "\\u009B", "\\t"})
    EXPECT_NE(Message("name = \"test\"", "name = \"a" + control + "\"").find(rule),
              std::string::npos);
}

TEST(DetectorFile, RefusesOtherCharactersElsewhere) {
  const std::string rule =
      "a character outside of ASCII may only be in a comment or between quotation marks";
  EXPECT_EQ(Message("density = 0.9", "density = 0.9\u00e9"), "test.toml:6:14: " + rule);
  EXPECT_EQ(Message("density = 0.9", "\u00e9 = 0.9"), "test.toml:6:1: " + rule);
  EXPECT_EQ(Message("\"test\"", "\"t\u00e9st\" \u00e9"), "test.toml:1:15: " + rule);
  const std::string lines =
      "test.toml:1:8: expected a text on one line, found three quotation marks";
  EXPECT_EQ(Message("\"test\"", "\"\"\"test\"\"\""), lines);
  EXPECT_EQ(Message("\"test\"", "'''test'''"), lines);
}

TEST(DetectorFile, RefusesWhatTheParserCannotBeGiven) {
  EXPECT_EQ(Message("density = 0.9", "density = 0.9\"\u00e9\""),
            "test.toml:6:14: a quotation mark may only be where a text or a key begins");
  EXPECT_EQ(Message("density = 0.9", " [ #"),
            "test.toml:6:4: expected the name of a table, found a comment");
  std::string deep = "a";
  for (int i = 0; i < 100000; i++) deep += i % 2 ? " . a" : ".\"b\"";
  EXPECT_NE(Message("density = 0.9", deep + " = 1").find(": a key has more than 32 parts"),
            std::string::npos);
}

TEST(DetectorFile, TakesCommentsInArraysAndQuotedKeys) {
  const std::string text = Exchanged("density = 0.9", "\"density\" = 0.9");
  EXPECT_NO_THROW(PlaneDetector::FromText(text, "test.toml"));
  EXPECT_EQ(Message("density = 0.9", "density = [ # one\n[ # two\n1.0, 2.0 ] ]").find("TOML"),
            std::string::npos);
}

TEST(DetectorFile, TellsWhatIsMissing) {
  EXPECT_EQ(MessageOf(""),
            "test.toml:1:1: name: expected a text that is not empty, but the key is missing");
  EXPECT_EQ(Message("world = \"Vacuum\"", ""),
            "test.toml:1:1: world: expected a text that is not empty, but the key is missing");
  EXPECT_EQ(Message("density = 0.9", ""),
            "test.toml:4:1: material.density: expected a density in g/cm3 from 1e-30 to 1e3, but "
            "the key is missing");
  EXPECT_EQ(Message("radiation_length = 50.0", ""),
            "test.toml:4:1: material.radiation_length: expected a radiation length in cm from 1e-6 "
            "to 1e30, but the key is missing");
  EXPECT_EQ(
      Message("count = 3\n", "\n"),
      "test.toml:27:1: plane.count: expected a whole number from 1 to 1000000, but the key is "
      "missing");
  EXPECT_EQ(Message("cell = { width = 4, length = 20, depth = 6 }", ""),
            "test.toml:27:1: plane.cell: expected a table { width, length, depth }, but the key is "
            "missing");
  EXPECT_EQ(Message(", depth = 6", ""),
            "test.toml:31:8: plane.cell.depth: expected a length in cm from 1e-6 to 1e6, but the "
            "key is missing");
  EXPECT_EQ(Message("parts = [\"pixels\"]", ""),
            "test.toml:48:1: stack.parts: expected an array of names of parts and of distances in "
            "cm, but the key is missing");
  EXPECT_EQ(MessageOf("name = \"a\"\nworld = \"b\""),
            "test.toml:1:1: material: expected at least one table [[material]], but there is none");
}

TEST(DetectorFile, TellsUnknownKeysAndTheKnownOnes) {
  EXPECT_EQ(Message("world =", "wrold ="),
            "test.toml:2:1: wrold: unknown key; expected one of \"name\", \"unit\", \"world\", "
            "\"material\", "
            "\"slab\", \"plane\", \"stack\"");
  EXPECT_EQ(Message("density = 0.9", "rho = 0.9"),
            "test.toml:6:1: material.rho: unknown key; expected one of \"name\", \"like\", "
            "\"formula\", \"composition\", \"density\", \"I\", \"radiation_length\", \"A\", \"Z\"");
  EXPECT_EQ(Message("centre =", "center ="),
            "test.toml:25:1: slab.center: unknown key; expected one of \"name\", \"material\", "
            "\"size\", \"thickness\", \"centre\"");
  EXPECT_EQ(Message("resolution =", "sigma ="),
            "test.toml:35:1: plane.sigma: unknown key; expected one of \"name\", \"view\", "
            "\"count\", \"cell\", \"filling\", \"wall\", \"gap\", \"centre\", \"resolution\"");
  EXPECT_EQ(Message("depth = 6", "height = 6"),
            "test.toml:31:34: plane.cell.height: unknown key; expected one of \"width\", "
            "\"length\", \"depth\"");
  EXPECT_EQ(Message("thickness = 0.2", "width = 0.2"),
            "test.toml:32:29: plane.wall.width: unknown key; expected one of \"material\", "
            "\"thickness\"");
  EXPECT_EQ(Message("width = 0.5 }", "thickness = 0.5 }"),
            "test.toml:34:30: plane.gap.thickness: unknown key; expected one of \"material\", "
            "\"width\"");
  EXPECT_EQ(Message("[2, 0.5],", "[2, 0.5], length = 3,"),
            "test.toml:41:28: plane.cell.length: unknown key; expected one of \"width\", "
            "\"depth\"");
  EXPECT_EQ(Message("repeat = 2", "times = 2"),
            "test.toml:45:1: stack.times: unknown key; expected one of \"parts\", \"repeat\", "
            "\"z\", \"centre\", \"offset\"");
}

TEST(DetectorFile, TellsUnknownNamesAndTheKnownOnes) {
  EXPECT_EQ(Message("world = \"Vacuum\"", "world = \"Void\""),
            "test.toml:2:9: world: expected one of the materials \"Oil\", \"Wall\", \"Vacuum\", "
            "found \"Void\"");
  EXPECT_EQ(Message("filling = \"Oil\"", "filling = \"oil\""),
            "test.toml:33:11: plane.filling: expected one of the materials \"Oil\", \"Wall\", "
            "\"Vacuum\", found \"oil\"");
  EXPECT_EQ(Message("{ material = \"Wall\"", "{ material = \"Wool\""),
            "test.toml:32:21: plane.wall.material: expected one of the materials \"Oil\", "
            "\"Wall\", \"Vacuum\", found \"Wool\"");
  EXPECT_EQ(Message("[\"pixels\"]", "[\"pixel\"]"),
            "test.toml:50:10: stack.parts: expected one of the parts \"sheet\", \"x\", \"pixels\" "
            "or a distance in cm, found \"pixel\"");
  EXPECT_EQ(Message("view = \"X\"\n", "view = \"Z\"\n"),
            "test.toml:29:8: plane.view: expected \"X\", \"Y\" or \"XY\", found \"Z\"");
  EXPECT_EQ(Message("name = \"Wall\"", "name = \"Oil\""),
            "test.toml:10:8: material.name: expected a name that is not yet taken, found \"Oil\"");
  EXPECT_EQ(Message("name = \"x\"", "name = \"sheet\""),
            "test.toml:28:8: plane.name: expected a name that is not yet taken, found \"sheet\"");
}

TEST(DetectorFile, TellsValuesOfAnotherKind) {
  EXPECT_EQ(Message("name = \"test\"", "name = 3"),
            "test.toml:1:8: name: expected a text that is not empty, found 3");
  EXPECT_EQ(Message("name = \"test\"", "name = \"\""),
            "test.toml:1:8: name: expected a text that is not empty, found \"\"");
  EXPECT_EQ(Message("density = 0.9", "density = \"0.9\""),
            "test.toml:6:11: material.density: expected a density in g/cm3 from 1e-30 to 1e3, "
            "found \"0.9\"");
  EXPECT_EQ(Message("size = [30, 20]", "size = 30"),
            "test.toml:23:8: slab.size: expected two numbers [x, y], found 30");
  EXPECT_EQ(Message("size = [30, 20]", "size = [30, 20, 10]"),
            "test.toml:23:8: slab.size: expected two numbers [x, y], found an array of 3 values");
  EXPECT_EQ(Message("size = [30, 20]", "size = [30, true]"),
            "test.toml:23:13: slab.size: expected a length in cm from 1e-6 to 1e6, found true");
  EXPECT_EQ(Message("offset = [0.1, -0.2, 0.3]", "offset = [1]"),
            "test.toml:51:10: stack.offset: expected two or three numbers [x, y, z], found an "
            "array of 1 values");
  EXPECT_EQ(Message("cell = { width = 4, length = 20, depth = 6 }", "cell = 4"),
            "test.toml:31:8: plane.cell: expected a table { width, length, depth }, found 4");
  EXPECT_EQ(Message("wall = { material = \"Wall\", thickness = 0.2 }", "wall = 2000-01-01"),
            "test.toml:32:8: plane.wall: expected a table { material, thickness }, found a date or "
            "time");
  EXPECT_EQ(Message("count = [10, 20]", "count = 10"),
            "test.toml:40:9: plane.count: expected two whole numbers [x, y], found 10");
  EXPECT_EQ(Message("[[slab]]", "[slab]"),
            "test.toml:20:1: slab: expected tables that begin with [[slab]], found a table");
  EXPECT_EQ(Message("parts = [\"pixels\"]", "parts = []"),
            "test.toml:50:9: stack.parts: expected an array of names of parts and of distances in "
            "cm, found an array of 0 values");
  EXPECT_EQ(Message("parts = [\"pixels\"]", "parts = [false]"),
            "test.toml:50:10: stack.parts: expected one of the parts \"sheet\", \"x\", \"pixels\" "
            "or a distance in cm, found false");
}

TEST(DetectorFile, TellsNumbersOutOfRange) {
  EXPECT_EQ(Message("density = 0.9", "density = -0.9"),
            "test.toml:6:11: material.density: expected a density in g/cm3 from 1e-30 to 1e3, "
            "found -0.9");
  EXPECT_EQ(Message("radiation_length = 50.0", "radiation_length = 0"),
            "test.toml:7:20: material.radiation_length: expected a radiation length in cm from "
            "1e-6 to 1e30, found 0");
  EXPECT_EQ(Message("A = 12.5", "A = nan"),
            "test.toml:13:5: material.A: expected an atomic mass in g/mole from 1 to 300, found "
            "nan");
  EXPECT_EQ(Message("Z = 6", "Z = 0.5"),
            "test.toml:14:5: material.Z: expected an atomic number from 1 to 120, found 0.5");
  EXPECT_EQ(Message("thickness = 0.5", "thickness = inf"),
            "test.toml:24:13: slab.thickness: expected a length in cm from 1e-6 to 1e6, found inf");
  EXPECT_EQ(Message("centre = [1, -2]", "centre = [1, -2e7]"),
            "test.toml:25:14: slab.centre: expected a position in cm from -1e6 to 1e6, found "
            "-20000000");
  EXPECT_EQ(Message("count = 3\n", "count = 3.0\n"),
            "test.toml:30:9: plane.count: expected a whole number from 1 to 1000000, found 3");
  EXPECT_EQ(Message("count = 3\n", "count = 0\n"),
            "test.toml:30:9: plane.count: expected a whole number from 1 to 1000000, found 0");
  EXPECT_EQ(Message("count = [10, 20]", "count = [10, 2000000]"),
            "test.toml:40:14: plane.count: expected a whole number from 1 to 1000000, found "
            "2000000");
  EXPECT_EQ(Message("repeat = 2", "repeat = -2"),
            "test.toml:45:10: stack.repeat: expected a whole number from 1 to 100000, found -2");
  EXPECT_EQ(Message("3.5]", "-3.5]"),
            "test.toml:46:24: stack.parts: expected a length in cm from 1e-6 to 1e6, found -3.5");
  EXPECT_EQ(Message("resolution = 1.5", "resolution = 0"),
            "test.toml:35:14: plane.resolution: expected a length in cm from 1e-6 to 1e6, found 0");
}

TEST(DetectorFile, TellsWhatDoesNotFit) {
  EXPECT_EQ(Message("thickness = 0.2", "thickness = 2"),
            "test.toml:32:41: plane.wall.thickness: expected less than half of the cell's smallest "
            "side of 4 cm, found 2");
  EXPECT_EQ(Message("count = 3\n", "count = 1000000\n"),
            "test.toml:30:9: plane.count: expected cells that take at most 1e6 cm side by side, "
            "found 4500000.5");
  EXPECT_EQ(
      Message("filling = \"Oil\"\n\n[[stack]]",
              "filling = \"Oil\"\nwall = { material = \"Wall\", thickness = 0.1 }\n[[stack]]"),
      "test.toml:43:8: plane.wall: not possible with view \"XY\"");
  EXPECT_EQ(Message("z = 30", "z = 15"),
            "test.toml:48:1: stack: part \"pixels\" begins at z = 15.3 cm, inside of part \"x\", "
            "which ends at 16 cm; expected parts that do not overlap");
  EXPECT_EQ(Message("repeat = 2", "repeat = 60000"),
            "test.toml:44:1: stack: expected at most 100000 parts in all");
  EXPECT_EQ(Message("z = 30", "z = 999999.8"),
            "test.toml:48:1: stack: part \"pixels\" lies at z = 1000000.1 cm; expected parts "
            "within 1e6 cm of z = 0");
  EXPECT_EQ(
      MessageOf(kGood.substr(0, kGood.find("[[stack]]")) + "[[stack]]\nparts = [\"sheet\"]\n"),
      "test.toml:44:1: stack: expected at least one [[plane]] among the parts");
}

/// A file with slips in it: characters and lines exchanged, lost and doubled.
std::string Mutated(std::string text, reference::Random& random) {
  const char alphabet[] = "[]{}=,.\"'\n #+-0123456789eEinfaXY_\\\x80\xff";
  for (auto n = 1 + random.Below(4); n > 0; --n) {
    const auto at = random.Below(text.size());
    const auto length = random.Below(20);
    const auto other = random.Below(text.size());
    switch (random.Below(5)) {
      case 0:
        text[at] = alphabet[random.Below(sizeof alphabet - 1)];
        break;
      case 1:
        text.insert(at, 1, alphabet[random.Below(sizeof alphabet - 1)]);
        break;
      case 2:
        text.erase(at, length);
        break;
      case 3:
        text.insert(at, text.substr(other, length));
        break;
      default:
        std::swap(text[at], text[other]);
    }
    if (text.empty()) return text;
  }
  return text;
}

void ExpectUsable(const PlaneDetector& detector, reference::Random& random) {
  for (int i = 0; i < 3; i++) {
    double p[2][3], sum = 0;
    for (auto& point : p)
      for (int k = 0; k < 3; k++)
        point[k] = random(detector.Extent().fLow[k] - 1, detector.Extent().fHigh[k] + 1);
    std::vector<double> ds;
    std::vector<const TGeoMaterial*> mats;
    detector.MaterialsBetweenPoints(p[0], p[1], ds, mats);
    for (double d : ds) sum += d;
    const double distance = std::hypot(p[1][0] - p[0][0], p[1][1] - p[0][1], p[1][2] - p[0][2]);
    ASSERT_NEAR(sum, distance, 1e-9 * distance);
  }
}

TEST(DetectorFile, IsReadOrRefusedHoweverItIsDamaged) {
  reference::Random random(2718);
  int read = 0;
  constexpr int kFiles = 20000;
  for (int i = 0; i < kFiles; i++) {
    const std::string text = Mutated(kGood, random);
    try {
      const PlaneDetector detector = PlaneDetector::FromText(text, "test.toml");
      ExpectUsable(detector, random);
      read++;
    } catch (const DetectorError& e) {
      ASSERT_EQ(std::string(e.what()).rfind("test.toml:", 0), 0u) << e.what();
    }
    if (HasFatalFailure()) FAIL() << text;
  }
  // Neither all nor none: the slips reach what is behind the grammar.
  EXPECT_GT(read, kFiles / 100);
  EXPECT_LT(read, kFiles / 2);
}

} // namespace
