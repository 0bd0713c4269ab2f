// Displays of fitted tracks: the track that is drawn, made again from what a file keeps, against
// the fit's own positions; what the SVG shows against what was fitted.

#include "draw/FittedTrack.h"
#include "draw/TrackDisplay.h"
#include "io/HitReader.h"
#include "test/support/SvgShapes.h"
#include "track/TrackFitter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace {

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";
constexpr double kSigma = 0.3; // cm; of all hits in that file
constexpr int kTracks = 40;

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

const std::vector<kelvo::FitRow>& Rows() {
  static const std::vector<kelvo::FitRow> rows = [] {
    std::vector<kelvo::FitRow> all;
    kelvo::TrackFitter fitter(Detector());
    kelvo::HitReader reader({kMuons});
    kelvo::TrackHits track;
    for (int i = 0; i < kTracks && reader.Next(track); ++i)
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
  return static_cast<std::size_t>(row.fNX + row.fNY);
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

// The frame of the fit is found again from uncertainties that are known to a few percent; that
// moves the track by less than a hundredth of a hit's uncertainty.
TEST(FittedTrack, GoesThroughTheFittedPositionOfEveryHit) {
  constexpr double kTolerance = 0.01 * kSigma;
  for (const kelvo::FitRow& row : Rows()) {
    const kelvo::FittedTrack track(row);
    ASSERT_EQ(track.Planes().size(), row.fPlaneS.size());
    for (std::size_t i = 0; i < row.fHitZ.size(); ++i)
      EXPECT_NEAR(track.At(static_cast<std::size_t>(row.fHitView[i]), row.fHitZ[i]), row.fFitU[i],
                  kTolerance)
          << "track " << row.fTrack << " as " << row.fPDG << ", hit " << i;
  }
}

TEST(FittedTrack, EndsAtItsFirstAndLastHit) {
  for (const kelvo::FitRow& row : Rows()) {
    const kelvo::FittedTrack track(row);
    EXPECT_NEAR(track.Points().front()[2], row.fHitZ.front(), 1e-9);
    EXPECT_NEAR(track.Points().back()[2], row.fHitZ.back(), 1e-9);
  }
}

TEST(FittedTrack, FindsTheUncertaintyThatAHitWasMeasuredWith) {
  for (const kelvo::FitRow& row : Rows())
    for (std::size_t i = 0; i < row.fHitZ.size(); ++i)
      EXPECT_NEAR(kelvo::HitUncertainty(row, i), kSigma, 0.05 * kSigma);
}

TEST(TrackDisplay, ShowsEveryHitKinkAndScatteringPlaneInBothViews) {
  for (const kelvo::FitRow& row : Rows()) {
    if (!row.fBest) continue;
    const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
    const std::size_t planes = row.fPlaneS.size();
    constexpr std::size_t kLegend = 1;
    using Shapes = test::SvgShapes;
    EXPECT_EQ(Shapes::Count(svg.fCircles, "black"), HitsOf(row) + kLegend);
    EXPECT_EQ(Shapes::Count(svg.fPolygons, "#d55e00"), 2 * planes + kLegend);
    EXPECT_EQ(Shapes::Count(svg.fPaths, "#cc79a7"), 2 * planes + kLegend);
  }
}

TEST(TrackDisplay, ShowsResidualAndPullOfEveryHit) {
  const kelvo::FitRow& row = BestRow();
  const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
  constexpr std::size_t kLegend = 1;
  EXPECT_EQ(test::SvgShapes::Count(svg.fCircles, "#0072b2"),
            2 * (static_cast<std::size_t>(row.fNX) + kLegend));
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, "none"), 0u);
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
    for (unsigned i = 0; i < cells.fCount; ++i)
      if (cells.Centre(i) + cells.fPitch / 2 > std::min(a, b) &&
          cells.Centre(i) - cells.fPitch / 2 < std::max(a, b))
        ++crossed;
  }
  const test::SvgShapes svg(kelvo::DrawTrack(&Detector(), row).Svg());
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, "#fbe3b0"), crossed + 1); // one in the legend
}

TEST(TrackDisplay, NeedsNoDetector) {
  const kelvo::FitRow& row = BestRow();
  const test::SvgShapes svg(kelvo::DrawTrack(nullptr, row).Svg());
  EXPECT_EQ(test::SvgShapes::Count(svg.fBoxes, "#fbe3b0"), 1u);
  EXPECT_EQ(test::SvgShapes::Count(svg.fCircles, "black"), HitsOf(row) + 1);
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
  EXPECT_LT(svg.size(), 150'000u);
}

} // namespace
