// Pictures: what stands in the files, and that it is where it can be seen. Names from files must
// show as they are.

#include "draw/DetectorDrawing.h"
#include "draw/EnergyLoss.h"
#include "draw/Picture.h"
#include "draw/Plot.h"
#include "draw/SvgText.h"
#include "geo/MaterialBudget.h"
#include "io/FileError.h"
#ifdef KELVO_HAS_RSVG
#include "test/support/PngPixels.h"
#endif
#include "test/support/SvgShapes.h"
#include "test/support/TempFolder.h"

#include <TGeoMaterial.h>
#include <gtest/gtest.h>

#include <cmath>

namespace {

kelvo::Picture SmallPicture() {
  kelvo::Picture picture(300, 200, "a <small> picture");
  picture.Box({10, 10}, {100, 50}, kelvo::colour::kBlue);
  picture.Line({{10, 100}, {50, 120}, {90, 100}}, {kelvo::colour::kGreen, 2});
  picture.Marks({{150, 50}, {160, 60}}, {});
  picture.Text({10, 190}, "text: χ² < 3 & σ ≥ \"2\"");
  return picture;
}

geo::PlaneDetector Detector(const std::string& name) {
  return geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/" + name + ".toml");
}

TEST(Picture, KeepsShapesInPlaceAndTextsAsTheyAre) {
  const test::SvgShapes svg(SmallPicture().Svg());
  EXPECT_EQ(svg.fViewBox, (std::vector<double>{0, 0, 300, 200}));
  ASSERT_EQ(svg.fCircles.size(), 2u);
  EXPECT_EQ(test::SvgShapes::Number(svg.fCircles[0].fTag, "cx"), 150);
  EXPECT_EQ(test::SvgShapes::Number(svg.fCircles[0].fTag, "cy"), 50);
  ASSERT_EQ(test::SvgShapes::Count(svg.fBoxes, kelvo::colour::kBlue), 1u);
  ASSERT_EQ(svg.fTexts.size(), 1u);
  EXPECT_EQ(svg.fTexts[0].fContent, "text: χ² &lt; 3 &amp; σ ≥ &quot;2&quot;");
}

// A letter of Helvetica is about half as wide as high.
TEST(Picture, SaysHowWideTextsAre) {
  EXPECT_NEAR(kelvo::TextWidth("nnnnnnnnnn", {20}), 10 * 0.556 * 20, 1e-9);
  EXPECT_NEAR(kelvo::TextWidth("mmmmmmmmmm", {20}), 10 * 0.833 * 20, 1e-9);
  EXPECT_GT(kelvo::TextWidth("nnn", {20, "#000000", kelvo::Align::kLeft, true}),
            kelvo::TextWidth("nnn", {20}));
  EXPECT_NEAR(kelvo::TextWidth("χ²", {20}), (0.556 + 0.333) * 20, 1e-9);
  EXPECT_NEAR(kelvo::TextWidth("検出器", {20}), 3 * 20, 1e-9);
}

TEST(Picture, IsTheSameWhenDrawnAgain) {
  const kelvo::Picture picture = SmallPicture();
  EXPECT_EQ(picture.Svg(), picture.Svg());
}

TEST(Picture, HasItsTitleForThoseWhoDoNotSeeIt) {
  const std::string svg = SmallPicture().Svg();
  EXPECT_NE(svg.find("role=\"img\""), std::string::npos);
  EXPECT_NE(svg.find("<title>a &lt;small&gt; picture</title>"), std::string::npos);
}

#ifdef KELVO_HAS_RSVG

TEST(Picture, IsStoredInTheFormatOfItsEnding) {
  const test::TempFolder folder;
  SmallPicture().Save(folder.Path("a.svg"));
  SmallPicture().Save(folder.Path("a.png"));
  SmallPicture().Save(folder.Path("a.PDF"));
  EXPECT_EQ(folder.Read("a.svg").rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg ", 0), 0u);
  EXPECT_EQ(folder.Read("a.png").substr(0, 4), "\x89PNG");
  EXPECT_EQ(folder.Read("a.PDF").substr(0, 5), "%PDF-");
  EXPECT_EQ(folder.Files(), 3);
}

/// From the first to the last column of dots with ink [pixels], in the rows of one text.
struct Ink {
  double fLeft;
  double fRight;
};

Ink FindInk(const test::PngPixels& png, int top, int bottom) {
  Ink ink{1e9, -1e9};
  for (int y = 2 * top; y < 2 * bottom; y++)
    for (int x = 0; x < png.Width(); x++)
      if (png.IsDark(x, y)) ink = {std::min(ink.fLeft, x / 2.), std::max(ink.fRight, (x + 1) / 2.)};
  return ink;
}

// Ink ends a tenth of a letter before the letter does.
TEST(Picture, HasTextsOfAnyScriptWhereTheyShouldBe) {
  const test::TempFolder folder;
  for (const std::string text : {"mmm ² mmm", "χ²/ndf = 51.1", "−10⁻³ ± 1σ, 2 × ö", "検出器"}) {
    kelvo::Picture picture(400, 120, "");
    picture.Text({200, 30}, text);
    picture.Text({200, 70}, text, {24, "#000000", kelvo::Align::kCentre});
    picture.Text({200, 110}, text, {24, "#000000", kelvo::Align::kRight});
    picture.Save(folder.Path("a.png"));
    const test::PngPixels png(folder.Path("a.png"));
    const double width = kelvo::TextWidth(text);
    for (const auto& [row, left] : {std::pair{0, 200.}, {1, 200 - width / 2}, {2, 200 - width}}) {
      const Ink ink = FindInk(png, 40 * row + 5, 40 * row + 38);
      EXPECT_NEAR(ink.fLeft, left, 4) << text;
      EXPECT_NEAR(ink.fRight, left + width, 4) << text;
      EXPECT_GE(ink.fLeft, left - 0.5) << text;
      EXPECT_LE(ink.fRight, left + width + 0.5) << text;
    }
  }
}

// The PDF is drawn by a program of its own. Both smooth edges in their own way, so that squares of
// a few dots are compared; a line or letter out of its place changes some by more than 100.
TEST(Picture, IsTheSameInAPdfAsInAPng) {
  if (std::system("pdftoppm -v 2>/dev/null") != 0) GTEST_SKIP() << "pdftoppm is not installed";
  constexpr int kSquare = 8;        // dots
  constexpr double kTolerance = 30; // of 255
  const test::TempFolder folder;
  const auto curve = kelvo::FindEnergyLoss("Steel", kelvo::Particles()[1], {1e-3, 1e-2, 0.1, 1});
  const kelvo::Picture pictures[] = {SmallPicture(), kelvo::DrawDetector(Detector("range")),
                                     kelvo::DrawEnergyLoss({curve})};
  for (const kelvo::Picture& picture : pictures) {
    picture.Save(folder.Path("a.png"));
    picture.Save(folder.Path("a.pdf"));
    const std::string at = "'" + folder.Path("");
    ASSERT_EQ(
        std::system(("pdftoppm -r 192 -png -singlefile " + at + "a.pdf' " + at + "b'").c_str()), 0);
    const test::PngPixels png(folder.Path("a.png"));
    const test::PngPixels pdf(folder.Path("b.png"));
    ASSERT_EQ(pdf.Width(), png.Width());
    ASSERT_EQ(pdf.Height(), png.Height());
    for (int y = 0; y + kSquare <= png.Height(); y += kSquare)
      for (int x = 0; x + kSquare <= png.Width(); x += kSquare)
        for (int channel = 0; channel < 3; channel++)
          ASSERT_NEAR(pdf.Mean(x, y, kSquare, channel), png.Mean(x, y, kSquare, channel),
                      kTolerance)
              << "at " << x << ", " << y;
  }
}

TEST(Picture, NamesAPdfAfterWhatItShows) {
  const test::TempFolder folder;
  kelvo::Picture(300, 200, "Track 17 as muon").Save(folder.Path("a.pdf"));
  EXPECT_NE(folder.Read("a.pdf").find("/Title (Track 17 as muon)"), std::string::npos);
}

// A line of many points, as curves are.
TEST(Picture, DashesCurvesInAPng) {
  constexpr double kPeriod[] = {9, 37.5}; // pixels; a dash and a gap
  const kelvo::Dash dashes[] = {kelvo::Dash::kDashed, kelvo::Dash::kLongDashed};
  const test::TempFolder folder;
  for (std::size_t k = 0; k < 2; k++) {
    kelvo::Picture picture(400, 100, "");
    std::vector<kelvo::Point> points;
    for (double x = 10; x <= 385; x += 0.5) points.push_back({x, 50});
    picture.Line(points, {"#000000", 3, dashes[k]});
    picture.Save(folder.Path("a.png"));
    const test::PngPixels png(folder.Path("a.png"));
    int begins = 0;
    for (int x = 1; x < png.Width(); x++)
      begins += png.IsDark(x, png.Height() / 2) && !png.IsDark(x - 1, png.Height() / 2);
    EXPECT_NEAR(begins, 375 / kPeriod[k], 1);
  }
}

#else

TEST(Picture, SaysWhatIsMissingForAPng) {
  const test::TempFolder folder;
  const std::string path = folder.Path("a.png");
  try {
    SmallPicture().Save(path);
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(e.what(), '"' + path +
                            "\" must end in .svg: this kelvo was built without librsvg and cairo, "
                            "which make PNG and PDF");
  }
  EXPECT_EQ(folder.Files(), 0);
}

#endif

// Coordinates of a precise detector far from the axis.
TEST(Plot, KeepsLongNumbersWithinThePicture) {
  kelvo::Picture picture(640, 400, "");
  kelvo::Plot(picture, {86, 60}, {620, 330}, {0, 1, "z [cm]"}, {-1000.00012, -1000.00004, "x [cm]"})
      .DrawAxes();
  test::ExpectTextsInside(test::SvgShapes(picture.Svg()));
}

TEST(Picture, RefusesOtherEndings) {
  const test::TempFolder folder;
  for (const char* name : {"a.html", "svg", "a.", "a"}) {
    const std::string path = folder.Path(name);
    try {
      SmallPicture().Save(path);
      FAIL() << name;
    } catch (const std::invalid_argument& e) {
      EXPECT_EQ(e.what(), '"' + path + "\" must end in .svg, .png or .pdf");
    }
  }
  EXPECT_EQ(folder.Files(), 0);
}

TEST(Picture, SaysWhereItCannotBeWritten) {
  const test::TempFolder folder;
  const std::string path = folder.Path("missing/a.svg");
  try {
    SmallPicture().Save(path);
    FAIL();
  } catch (const kelvo::FileError& e) {
    EXPECT_EQ(e.what(), path + ": cannot be written: No such file or directory");
  }
}

TEST(SvgText, EscapesWhatMeansSomethingInPages) {
  EXPECT_EQ(kelvo::Escaped("<a href=\"x\">'&'</a>"),
            "&lt;a href=&quot;x&quot;&gt;&#39;&amp;&#39;&lt;/a&gt;");
  EXPECT_EQ(kelvo::Escaped("größe χ²"), "größe χ²");
}

TEST(SvgText, ReplacesWhatNoPageMayHold) {
  EXPECT_EQ(kelvo::Printable("a\nb\tc\x01\x7f."), "a b c  .");
  EXPECT_EQ(kelvo::Printable("σ€😀"), "σ€😀");
  EXPECT_EQ(kelvo::Printable("\xff|\xc3"), "\xef\xbf\xbd|\xef\xbf\xbd");
  // A slash in two bytes, half of a pair of UTF-16, and a code that stands for no sign.
  EXPECT_EQ(kelvo::Printable("\xc0\xaf").find('/'), std::string::npos);
  EXPECT_EQ(kelvo::Printable("\xed\xa0\x80").find('\xed'), std::string::npos);
  EXPECT_EQ(kelvo::Printable("\xef\xbf\xbf").find("\xef\xbf\xbf"), std::string::npos);
}

TEST(DetectorDrawing, ShowsNamesFromTheFileAsTheyAre) {
  const auto detector = geo::PlaneDetector::FromText(R"(
name = "<script>alert(1)</script> #frac{a}{b} & more"
world = "Vacuum"
[[material]]
name = "<b>Plastic</b>"
density = 1
radiation_length = 40
[[material]]
name = "Vacuum"
density = 1e-25
[[plane]]
name = "<i>x</i>"
view = "X"
count = 10
cell = { width = 2, length = 20, depth = 1 }
filling = "<b>Plastic</b>"
[[plane]]
name = "y"
view = "Y"
count = 10
cell = { width = 2, length = 20, depth = 1 }
filling = "<b>Plastic</b>"
[[stack]]
repeat = 4
parts = ["<i>x</i>", 1, "y", 1]
)",
                                                     "test.toml");
  const std::string svg = kelvo::DrawDetector(detector).Svg();
  for (const char* bad : {"<script", "<b>", "<i>"}) EXPECT_EQ(svg.find(bad), std::string::npos);
  for (const char* good : {">&lt;script&gt;alert(1)&lt;/script&gt; #frac{a}{b} &amp; more<",
                           ">&lt;b&gt;Plastic&lt;/b&gt;<", "&lt;i&gt;x&lt;/i&gt;"})
    EXPECT_NE(svg.find(good), std::string::npos) << good;
}

// Both side views show every plane, as does the legend once per kind.
TEST(DetectorDrawing, ShowsEveryPlaneInBothSideViews) {
  const test::SvgShapes svg(kelvo::DrawDetector(Detector("fine")).Svg());
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, kelvo::colour::kBlue), 2u * 64 + 1);
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, kelvo::colour::kOrange), 2u * 64 + 1);
}

TEST(DetectorDrawing, HasNothingOutsideOfThePicture) {
  for (const char* name : {"fine", "range", "telescope"})
    test::ExpectTextsInside(test::SvgShapes(kelvo::DrawDetector(Detector(name)).Svg()));
}

// One layer of the range stack: 2.5 cm of steel and 1 cm of scintillator in 4 cm.
TEST(MaterialBudget, AddsUpToWhatTheLayersHave) {
  constexpr double kSteel = 2.5 / 1.7584;
  constexpr double kScintillator = 1 / 51.447;
  const geo::PlaneDetector detector = Detector("range");
  for (const unsigned bins : {1u, 60u, 333u}) {
    const geo::MaterialBudget budget = geo::FindMaterialBudget(detector, bins);
    for (const TGeoMaterial* material : detector.Materials()) {
      const std::string name = material->GetName();
      const double expected = name == "Steel"          ? 60 * kSteel
                              : name == "Scintillator" ? 60 * kScintillator
                                                       : 0;
      EXPECT_NEAR(budget.RadLengths(material), expected, 1e-9 * (1 + expected)) << name;
    }
  }
}

TEST(MaterialBudget, PutsMaterialWhereItIs) {
  const geo::PlaneDetector detector = Detector("range");
  const geo::MaterialBudget budget = geo::FindMaterialBudget(detector, 479); // steps of 0.5 cm
  for (const TGeoMaterial* material : detector.Materials()) {
    if (std::string(material->GetName()) != "Steel") continue;
    const std::vector<double>& steps = budget.fRadLengths.at(material);
    for (std::size_t i = 0; i < steps.size(); i++)
      EXPECT_NEAR(steps[i], i % 8 < 5 ? 0.5 / 1.7584 : 0, 1e-9) << i;
  }
}

std::vector<double> Energies() {
  std::vector<double> energies;
  for (int i = 0; i <= 120; i++) energies.push_back(1e-3 * std::pow(10, i / 20.));
  return energies;
}

// By definition; differences of ranges on a grid of 12 % know the slope to a fraction of a percent.
TEST(EnergyLoss, IsTheInverseSlopeOfTheRange) {
  for (const kelvo::Particle& particle : kelvo::Particles()) {
    const auto curve = kelvo::FindEnergyLoss("Steel", particle, Energies());
    for (std::size_t i = 1; i < curve.fPoints.size(); i++) {
      const auto& a = curve.fPoints[i - 1];
      const auto& b = curve.fPoints[i];
      const double mean = 1e3 * (b.fT - a.fT) / (b.fRange - a.fRange); // MeV/cm
      EXPECT_LT(mean, 1.003 * std::max(a.fLoss, b.fLoss));
      EXPECT_GT(mean, 0.997 * std::min(a.fLoss, b.fLoss));
    }
  }
}

// The tables depend on beta gamma alone, so that ranges of equal beta gamma are as the masses, up
// to the fraction of radiation, which is below a percent here.
TEST(EnergyLoss, ScalesWithTheMass) {
  const kelvo::Particle& muon = kelvo::Particles()[0];
  const kelvo::Particle& proton = kelvo::Particles()[2];
  const double ratio = proton.fMass / muon.fMass;
  const auto light = kelvo::FindEnergyLoss("PVC", muon, {0.01, 0.1, 1});
  const auto heavy = kelvo::FindEnergyLoss("PVC", proton, {0.01 * ratio, 0.1 * ratio, 1 * ratio});
  for (std::size_t i = 0; i < 4; i++) {
    EXPECT_NEAR(heavy.fPoints[i].fLoss, light.fPoints[i].fLoss, 1e-5 * light.fPoints[i].fLoss);
    EXPECT_NEAR(heavy.fPoints[i].fRange, ratio * light.fPoints[i].fRange,
                1e-4 * heavy.fPoints[i].fRange);
  }
}

// PDG, Review of Particle Physics: muons lose at least 1.451 MeV cm2/g in iron (atomic and nuclear
// properties of materials; here times 7.87 g/cm3), at a beta gamma between 3 and 4 (section on the
// passage of particles through matter).
TEST(EnergyLoss, IsLeastWhereTheLiteratureHasIt) {
  const auto curve = kelvo::FindEnergyLoss("Steel", kelvo::Particles()[0], Energies());
  const auto& min = curve.fPoints[curve.fMinimum];
  EXPECT_NEAR(min.fBetaGamma, 3.5, 0.5);
  EXPECT_NEAR(min.fLoss, 1.451 * 7.87, 0.01 * min.fLoss);
  for (const auto& point : curve.fPoints) EXPECT_GE(point.fLoss, min.fLoss);
}

TEST(EnergyLoss, IsDrawnWithEveryMinimumMarked) {
  std::vector<kelvo::EnergyLossCurve> curves;
  for (const char* material : {"Scintillator", "PVC", "Glue", "Steel"})
    for (const kelvo::Particle& particle : kelvo::Particles())
      curves.push_back(kelvo::FindEnergyLoss(material, particle, Energies()));
  const std::string svg = kelvo::DrawEnergyLoss(curves).Svg();
  EXPECT_EQ(test::SvgShapes(svg).fCircles.size(), curves.size() + 1);
  test::ExpectTextsInside(test::SvgShapes(svg));
}

} // namespace
