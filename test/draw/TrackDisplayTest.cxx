// Displays of fitted tracks: the track that is drawn against the fit's own positions, directions
// and kinks; what the SVG shows against what was fitted.

#include "draw/FittedTrack.h"
#include "draw/TrackDisplay.h"
#include "io/HitReader.h"
#include "test/support/SvgShapes.h"
#include "track/TrackFitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";
constexpr int kTracks = 40;

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

const std::vector<kelvo::FitRow>& Rows() {
  static const std::vector<kelvo::FitRow> rows = [] {
    std::vector<kelvo::FitRow> all;
    kelvo::TrackFitOptions options;
    options.fWithPlanes = true;
    kelvo::TrackFitter fitter(Detector(), options);
    kelvo::HitReader reader({kMuons});
    kelvo::TrackHits track;
    for (int i = 0; i < kTracks && reader.Next(track); i++)
      for (auto& row : kelvo::FitRows(track, fitter.Fit(track.fHits), true)) all.push_back(row);
    return all;
  }();
  return rows;
}

const kelvo::FitRow& BestRow() {
  for (const kelvo::FitRow& row : Rows())
    if (row.fBest && row.fPlaneS.size() > 10) return row;
  throw std::runtime_error("no such track");
}

std::size_t HitsOf(const kelvo::FitRow& row) {
  return static_cast<std::size_t>(row.fNX) + static_cast<std::size_t>(row.fNY);
}

std::vector<std::size_t> HitsOfView(const kelvo::FitRow& row, std::size_t view) {
  std::vector<std::size_t> hits;
  for (std::size_t i = 0; i < row.fHitZ.size(); i++)
    if (row.fHitView[i] == static_cast<int>(view)) hits.push_back(i);
  return hits;
}

/// An upright line [pixels].
struct Bar {
  double fMiddle;
  double fLength;
};

/// The black lines, which come in the order of the views and their hits.
std::vector<Bar> HitBars(const test::SvgShapes& svg, const kelvo::FitRow& row, std::size_t view) {
  std::vector<Bar> bars;
  for (const auto& line : svg.fLines) {
    if (line.fColour != "#000000") continue;
    std::string points = test::SvgShapes::Attribute(line.fTag, "points");
    std::replace(points.begin(), points.end(), ',', ' ');
    const std::vector<double> n = test::SvgShapes::Numbers(points);
    bars.push_back({(n.at(1) + n.at(3)) / 2, std::abs(n.at(1) - n.at(3))});
  }
  const auto first = bars.begin() + (view == 0 ? 0 : row.fNX);
  return {first, first + (view == 0 ? row.fNX : row.fNY)};
}

void ExpectInside(const test::SvgShapes& svg) {
  test::ExpectTextsInside(svg);
  const double right = svg.fViewBox.at(2);
  const double bottom = svg.fViewBox.at(3);
  for (const auto& circle : svg.fCircles) {
    EXPECT_GT(test::SvgShapes::Number(circle.fTag, "cx"), 0);
    EXPECT_LT(test::SvgShapes::Number(circle.fTag, "cx"), right);
    EXPECT_GT(test::SvgShapes::Number(circle.fTag, "cy"), 0);
    EXPECT_LT(test::SvgShapes::Number(circle.fTag, "cy"), bottom);
  }
}

TEST(FittedTrack, GoesThroughTheFittedPositionOfEveryHit) {
  for (const kelvo::FitRow& row : Rows()) {
    const kelvo::FittedTrack track(row);
    for (std::size_t i = 0; i < row.fHitZ.size(); i++)
      EXPECT_NEAR(track.At(static_cast<std::size_t>(row.fHitView[i]), row.fHitZ[i]), row.fFitU[i],
                  1e-9)
          << "track " << row.fTrack << " as " << row.fPDG << ", hit " << i;
  }
}

TEST(FittedTrack, EndsAtItsFirstAndLastHitInBothViews) {
  for (const kelvo::FitRow& row : Rows()) {
    const kelvo::FittedTrack track(row);
    for (std::size_t view = 0; view < 2; view++) {
      EXPECT_EQ(track.Line(view).front().fX, row.fHitZ.front());
      EXPECT_EQ(track.Line(view).back().fX, row.fHitZ.back());
    }
  }
}

// Planes that lie at a hit are known to seven digits, which is coarse for a slope over less than
// this.
TEST(FittedTrack, BendsAtThePlanesByTheirKinks) {
  constexpr double kShortest = 0.5;   // cm
  constexpr double kTolerance = 1e-3; // rad
  std::size_t compared = 0;
  for (const kelvo::FitRow& row : Rows())
    for (std::size_t view = 0; view < 2; view++) {
      const kelvo::FittedTrack track(row);
      const std::vector<kelvo::Point>& line = track.Line(view);
      const double other = view == 0 ? row.fUY / row.fUZ : row.fUX / row.fUZ;
      const double slope = view == 0 ? row.fUX / row.fUZ : row.fUY / row.fUZ;
      const bool isFlat = std::hypot(slope, other) < 0.1; // kinks are angles in the track's frame
      for (std::size_t i = 1; isFlat && i + 1 < line.size(); i++) {
        const double before = line[i].fX - line[i - 1].fX;
        const double behind = line[i + 1].fX - line[i].fX;
        if (std::min(before, behind) < kShortest) continue;
        double kink = 0;
        for (std::size_t j = 0; j < row.fPlaneZ.size(); j++)
          if (static_cast<double>(row.fPlaneZ[j]) == line[i].fX)
            kink = static_cast<double>((view == 0 ? row.fKinkX : row.fKinkY)[j]);
        const double bend =
            (line[i + 1].fY - line[i].fY) / behind - (line[i].fY - line[i - 1].fY) / before;
        EXPECT_NEAR(bend, kink, kTolerance + 0.05 * std::abs(kink)) << "track " << row.fTrack;
        compared++;
      }
    }
  EXPECT_GT(compared, 100u);
}

TEST(TrackDisplay, HasErrorBarsAsLongAsTheHitsUncertainties) {
  kelvo::FitRow row = BestRow();
  for (std::size_t i = 0; i < row.fHitZ.size(); i++)
    row.fHitSigU[i] = 0.1 + 0.01 * static_cast<double>(i);
  // A hit exactly on the track, and one that alone fixes its part of the track.
  row.fResidual[3] = 0;
  row.fPull[3] = 0;
  row.fPull[4] = 0;
  const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
  for (std::size_t view = 0; view < 2; view++) {
    const std::vector<Bar> bars = HitBars(svg, row, view);
    const std::vector<std::size_t> hits = HitsOfView(row, view);
    ASSERT_EQ(bars.size(), hits.size());
    const double scale = (bars.back().fMiddle - bars.front().fMiddle) /
                         (row.fHitU[hits.front()] - row.fHitU[hits.back()]); // pixels per cm
    for (std::size_t k = 0; k < bars.size(); k++)
      EXPECT_NEAR(bars[k].fLength, 2 * row.fHitSigU[hits[k]] * scale, 0.05) << k;
  }
}

TEST(TrackDisplay, ShowsEveryHitKinkAndScatteringPlaneInBothViews) {
  for (const kelvo::FitRow& row : Rows()) {
    if (!row.fBest) continue;
    const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
    const std::size_t planes = row.fPlaneS.size();
    constexpr std::size_t kLegend = 1;
    using Shapes = test::SvgShapes;
    EXPECT_EQ(Shapes::Count(svg.fCircles, "#000000"), HitsOf(row) + kLegend);
    EXPECT_EQ(Shapes::Count(svg.fPolygons, "#cc79a7"), 2 * planes + kLegend);
    constexpr std::size_t kZeroLines = 2; // of the lower panels, as grey as the planes
    EXPECT_EQ(Shapes::Count(svg.fLines, "#767676"), 2 * planes + kLegend + kZeroLines);
  }
}

TEST(TrackDisplay, ShowsResidualAndPullOfEveryHit) {
  const kelvo::FitRow& row = BestRow();
  const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
  constexpr std::size_t kLegend = 1;
  EXPECT_EQ(test::SvgShapes::Count(svg.fCircles, "#0072b2"),
            2 * (static_cast<std::size_t>(row.fNX) + kLegend));
  EXPECT_EQ(test::SvgShapes::Count(svg.fPolygons, "#d55e00"),
            2 * (static_cast<std::size_t>(row.fNY) + kLegend));
}

// A straight count of the cells between the track's coordinates at both faces of each plane.
TEST(TrackDisplay, ShowsEveryCrossedCellOnce) {
  const kelvo::FitRow& row = BestRow();
  const kelvo::FittedTrack track(row);
  std::size_t crossed = 0;
  for (const geo::ActivePlane& plane : Detector().Planes()) {
    if (plane.fZHigh < row.fHitZ.front() || plane.fZLow > row.fHitZ.back()) continue;
    const std::size_t view = plane.Measures(0) ? 0 : 1;
    const geo::CellRow& cells = plane.fCells[view];
    const double a = track.At(view, plane.fZLow);
    const double b = track.At(view, plane.fZHigh);
    for (unsigned i = 0; i < cells.fCount; i++)
      if (cells.Centre(i) + cells.fPitch / 2 > std::min(a, b) &&
          cells.Centre(i) - cells.fPitch / 2 < std::max(a, b))
        crossed++;
  }
  const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, "#fbe3b0"), crossed + 1); // one in the legend
}

TEST(TrackDisplay, HasALegendOfWhatIsThere) {
  kelvo::FitRow row = BestRow();
  const auto names = [&row](const std::string& what) {
    return kelvo::DrawTrack(&Detector(), row).Svg().find(">" + what + "<") != std::string::npos;
  };
  EXPECT_TRUE(names("kink"));
  for (auto* values : {&row.fPlaneS, &row.fPlaneX, &row.fPlaneY, &row.fPlaneZ, &row.fPlaneSigAlpha,
                       &row.fKinkX, &row.fKinkY})
    values->clear();
  EXPECT_FALSE(names("kink"));
  EXPECT_FALSE(names("scattering plane"));
  EXPECT_TRUE(names("fitted track"));
  EXPECT_TRUE(names("crossed cell"));
  EXPECT_TRUE(names("plane"));
  EXPECT_FALSE(names("slab")); // the sheets between planes are too thin to be seen
}

/// A thick plane of fine pixels between others, with slabs; a beam crosses its cells obliquely.
const geo::PlaneDetector& PixelDetector() {
  static const auto detector = geo::PlaneDetector::FromText(R"(
name = "pixels"
world = "Air"
[[material]]
name = "Air"
like = "Air"
[[material]]
name = "Silicon"
like = "Silicon"
[[plane]]
name = "thin"
view = "XY"
count = [400, 400]
cell = { width = [0.005, 0.005], depth = 0.03 }
filling = "Silicon"
[[plane]]
name = "thick"
view = "XY"
count = [20000, 20000]
cell = { width = [0.0001, 0.0001], depth = 1 }
filling = "Silicon"
[[slab]]
name = "plate"
material = "Silicon"
size = [3, 3]
thickness = 0.5
[[stack]]
z = 0
parts = ["thin", "plate", "thin", "plate", "thin", "plate", "thick"]
)",
                                                            "pixels.toml");
  return detector;
}

/// A track with a slope of 0.1 in x through the middles of all planes.
kelvo::FitRow ObliqueTrack() {
  kelvo::TrackFitOptions options;
  options.fBeamMomentum = 100;
  options.fHypotheses = {211};
  kelvo::TrackFitter fitter(PixelDetector(), options);
  kelvo::TrackHits track;
  for (const geo::ActivePlane& plane : PixelDetector().Planes()) {
    const double z = plane.ZMid();
    track.fHits.AddHit(geo::kX, 0.1 * z, 0, z, 0, 0.0015, 0, 0, 0, 1);
    track.fHits.AddHit(geo::kY, 0, 0.001, z, 0, 0, 0.0015, 0, 0, 1);
  }
  return kelvo::FitRows(track, fitter.Fit(track.fHits), true).at(0);
}

// A thousand pixels of 1 um are one box. The others, of 50 um in a picture of 0.3 cm, can be seen.
TEST(TrackDisplay, ShowsSlabsSmallCellsAndManyCellsAsOne) {
  const kelvo::FitRow row = ObliqueTrack();
  ASSERT_EQ(row.fStatus, 0) << row.fMessage;
  const test::SvgShapes svg(kelvo::DrawTrack(&PixelDetector(), row).Svg());
  using Shapes = test::SvgShapes;
  EXPECT_EQ(Shapes::Count(svg.fBoxes, "#d9d9d9"), 2u * 3 + 1); // three slabs, one in the legend
  std::size_t cells = 0;
  for (const auto& box : svg.fBoxes) {
    if (box.fColour != "#fbe3b0") continue;
    cells++;
    EXPECT_GE(Shapes::Number(box.fTag, "height"), 2.9);
  }
  EXPECT_GE(cells, 2u * 4 + 1);
  EXPECT_LE(cells, 2u * 7 + 1);
  EXPECT_NE(kelvo::DrawTrack(&PixelDetector(), row).Svg().find(">residual [µm]<"),
            std::string::npos);
}

TEST(TrackDisplay, NeedsNoDetector) {
  const kelvo::FitRow& row = BestRow();
  const test::SvgShapes svg(kelvo::DrawTrack(nullptr, row).Svg());
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, "#fbe3b0"), 0u);
  EXPECT_EQ(test::SvgShapes::Count(svg.fCircles, "#000000"), HitsOf(row) + 1);
}

TEST(TrackDisplay, SaysTrackHypothesisChiSquareAndMomentum) {
  const kelvo::FitRow& row = BestRow();
  const std::string svg = kelvo::DrawTrack(&Detector(), row).Svg();
  const auto contains = [&svg](const std::string& text) {
    EXPECT_NE(svg.find(text), std::string::npos) << text;
  };
  contains(">Track " + std::to_string(row.fTrack) + " as ");
  contains(", the best hypothesis</text>");
  char text[100];
  std::snprintf(text, sizeof text, ">χ²/ndf = %.1f/%d ", row.Chi2(), row.fNDF);
  contains(text);
  std::snprintf(text, sizeof text, ">momentum %.4g GeV/c", row.fP);
  contains(text);
  for (const char* unit : {">x [cm]<", ">y [cm]<", ">z [cm]<", ">residual [cm]<"}) contains(unit);
}

TEST(TrackDisplay, HasNothingOutsideOfThePicture) {
  for (const kelvo::FitRow& row : Rows())
    if (row.fTrack % 5 == 0)
      ExpectInside(test::SvgShapes(kelvo::DrawTrack(&Detector(), row).Svg()));
}

// Several pictures stand in one page: nothing in one may be meant for, or change, another.
TEST(TrackDisplay, IsAPictureThatCanStandInAPage) {
  const std::string svg = kelvo::DrawTrack(&Detector(), BestRow()).Svg();
  EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
  EXPECT_EQ(svg.substr(svg.size() - 6), "</svg>");
  for (const char* bad : {" id=", "href", "url(", "<script", "<style", "<defs"})
    EXPECT_EQ(svg.find(bad), std::string::npos) << bad;
  EXPECT_LT(svg.size(), 200'000u);
}

} // namespace
