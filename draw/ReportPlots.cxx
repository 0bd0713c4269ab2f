#include "draw/ReportPlots.h"

#include "draw/ParticleLine.h"
#include "draw/Plot.h"
#include "util/Particles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

constexpr double kWidth = 600; // pixels, as all that follow
constexpr double kHeight = 450;
constexpr double kLeft = 86;
constexpr double kRight = kWidth - 16;
constexpr double kTop = 110;
constexpr double kBottom = kHeight - 64;

const char* const kViewColour[] = {colour::kBlue, colour::kVermillion};
const char* const kViewName[] = {"x view", "y view"};

std::vector<Point> Outline(const Histogram& histogram) {
  std::vector<Point> points{{histogram.Low(), 0}};
  for (std::size_t i = 0; i < histogram.Counts().size(); i++) {
    const auto count = static_cast<double>(histogram.Counts()[i]);
    points.push_back({histogram.Edge(i), count});
    points.push_back({histogram.Edge(i + 1), count});
  }
  points.push_back({histogram.High(), 0});
  return points;
}

Picture Titled(const std::string& title, double height = kHeight) {
  Picture picture(kWidth, height, title);
  picture.Text({12, 30}, title, {25, colour::kText, Align::kLeft, true});
  return picture;
}

Plot CountPlot(Picture& picture, const Histogram& range, unsigned long long max,
               const std::string& quantity, const std::string& counted) {
  return {picture,
          {kLeft, kTop},
          {kRight, kBottom},
          {range.Low(), range.High(), quantity},
          {0, 1.08 * static_cast<double>(std::max(max, 1ull)), counted}};
}

double At(const Gaussian& gaussian, double x) {
  const double t = (x - gaussian.fMean) / gaussian.fWidth;
  return gaussian.fHeight * std::exp(-t * t / 2);
}

// From blue through white to vermillion, for -1 to 1.
std::string Diverging(double value) {
  const double fraction = std::min(std::abs(value), 1.);
  const int end[2][3] = {{0x00, 0x72, 0xb2}, {0xd5, 0x5e, 0x00}};
  int rgb[3];
  for (int i = 0; i < 3; i++)
    rgb[i] = static_cast<int>(std::lround(255 + fraction * (end[value > 0 ? 1 : 0][i] - 255)));
  return fmt::format(FMT_STRING("#{:02x}{:02x}{:02x}"), rgb[0], rgb[1], rgb[2]);
}

// A few steps of colour are told apart better than many, and keep pages small.
std::string DivergingStep(double value) {
  constexpr int kSteps = 5;
  return Diverging(std::round(std::clamp(value, -1., 1.) * kSteps) / kSteps);
}

// The coordinates between which a view's planes measure, all planes together.
Axis AcrossPlanes(const geo::PlaneDetector& detector, std::size_t view) {
  double low = 0;
  double high = 0;
  bool any = false;
  for (const geo::ActivePlane& plane : detector.Planes()) {
    const geo::CellRow& cells = plane.fCells[view];
    if (cells.fCount == 0) continue;
    const double first = cells.Centre(0) - cells.fPitch / 2;
    const double last = cells.Centre(cells.fCount - 1) + cells.fPitch / 2;
    low = any ? std::min(low, first) : first;
    high = any ? std::max(high, last) : last;
    any = true;
  }
  return Around(low, high, view == 0 ? "x [cm]" : "y [cm]", 0.02);
}

// From the first to the last plane that has residuals in a view.
Axis AlongZ(const ReportData& report, const geo::PlaneDetector& detector, std::size_t view) {
  double low = 0;
  double high = 0;
  bool any = false;
  for (std::size_t i = 0; i < detector.Planes().size(); i++) {
    if (report.fResiduals[view][i].fAll.fN == 0) continue;
    const geo::ActivePlane& plane = detector.Planes()[i];
    low = any ? std::min(low, plane.fZLow) : plane.fZLow;
    high = any ? std::max(high, plane.fZHigh) : plane.fZHigh;
    any = true;
  }
  return Around(low, high, "z of the plane [cm]", 0.03);
}

// Where the residuals of plane i are drawn: half way to its neighbours of the view, so that maps
// have no gaps; planes far apart keep some distance.
std::pair<double, double> Column(const ReportData& report, const geo::PlaneDetector& detector,
                                 std::size_t view, std::size_t i, const Axis& z) {
  const auto& planes = detector.Planes();
  const auto has = [&](std::size_t k) { return report.fResiduals[view][k].fAll.fN > 0; };
  const double max = (z.fHigh - z.fLow) / 20;
  const double middle = planes[i].ZMid();
  double low = middle - max;
  double high = middle + max;
  for (std::size_t k = i; k-- > 0;)
    if (has(k)) {
      low = std::max(low, (planes[k].ZMid() + middle) / 2);
      break;
    }
  for (std::size_t k = i + 1; k < planes.size(); k++)
    if (has(k)) {
      high = std::min(high, (planes[k].ZMid() + middle) / 2);
      break;
    }
  return {low, high};
}

constexpr unsigned long long kEnough = 10; // residuals for a mean that is worth a colour
constexpr double kMapScale = 5;            // errors of a mean that make the full colour

void DrawColourScale(Picture& picture) {
  constexpr double kWide = 22;
  double x = kLeft;
  picture.Text({12, 62}, "mean residual / its error, grey: too few hits", {22});
  const TextStyle small{21};
  const std::string end = fmt::format(FMT_STRING("{:g}"), kMapScale);
  picture.Text({x, 92}, "−" + end, small);
  x += TextWidth("−" + end, small) + 10;
  for (int step = -5; step <= 5; step++, x += kWide)
    picture.Box({x, 76}, {x + kWide, 94}, DivergingStep(step / 5.));
  picture.Text({x + 10, 92}, "+" + end, small);
}

} // namespace

Picture DrawViews(const std::array<Histogram, 2>& views, const std::array<Gaussian, 2>& gaussians,
                  const std::string& title, const std::string& quantity) {
  constexpr double kSteps = 200;
  Picture picture = Titled(title);
  std::vector<LegendEntry> legend;
  for (std::size_t v = 0; v < 2; v++)
    legend.push_back({LegendEntry::kLine, kViewName[v], kViewColour[v], {}, {"", 2}});
  legend.push_back(
      {LegendEntry::kLine, "Gaussian fits", colour::kText, {}, {"", 2, Dash::kDashed}});
  DrawLegend(picture, {12, 62}, kRight, legend);
  Plot plot =
      CountPlot(picture, views[0], std::max(views[0].Max(), views[1].Max()), quantity, "entries");
  for (std::size_t v = 0; v < 2; v++) plot.Line(Outline(views[v]), {kViewColour[v], 2});
  for (std::size_t v = 0; v < 2; v++) {
    if (!gaussians[v].fFitted) continue;
    std::vector<Point> curve;
    for (double i = 0; i <= kSteps; i++) {
      const double x = views[v].Low() + (views[v].High() - views[v].Low()) * i / kSteps;
      curve.push_back({x, At(gaussians[v], x)});
    }
    plot.Line(curve, {kViewColour[v], 2, Dash::kDashed});
  }
  plot.DrawAxes();
  return picture;
}

Picture DrawProbability(const Histogram& probability) {
  Picture picture = Titled("Probability of chi-square");
  const double flat =
      static_cast<double>(probability.Inside()) / static_cast<double>(probability.Counts().size());
  Plot plot = CountPlot(picture, probability,
                        std::max(probability.Max(), static_cast<unsigned long long>(2 * flat)),
                        "probability of a larger chi-square", "tracks");
  plot.Line({{0, flat}, {1, flat}}, {colour::kGrey, 2, Dash::kDashed});
  plot.Line(Outline(probability), {colour::kBlue, 2});
  plot.DrawAxes();
  DrawLegend(picture, {12, 62}, kRight,
             {{LegendEntry::kLine, "tracks", colour::kBlue, {}, {"", 2}},
              {LegendEntry::kLine, "flat", colour::kGrey, {}, {"", 2, Dash::kDashed}}});
  return picture;
}

Picture DrawByHypothesis(const ReportData& report, HistogramOf histogram, const std::string& title,
                         const std::string& quantity) {
  Picture picture = Titled(title);
  std::vector<LegendEntry> legend;
  const Histogram* range = nullptr;
  unsigned long long max = 0;
  for (const HypothesisReport& hypothesis : report.fHypotheses) {
    const Histogram* shown = histogram(hypothesis);
    if (!shown) continue;
    range = shown;
    max = std::max(max, shown->Max());
    const LineStyle line = ParticleLine(hypothesis.fPDG);
    legend.push_back({LegendEntry::kLine, ParticleWord(hypothesis.fPDG), line.fColour, {}, line});
  }
  DrawLegend(picture, {12, 62}, kRight, legend);
  const Histogram none(0, 1, 1);
  Plot plot = CountPlot(picture, range ? *range : none, max, quantity, "tracks");
  for (const HypothesisReport& hypothesis : report.fHypotheses)
    if (const Histogram* shown = histogram(hypothesis))
      plot.Line(Outline(*shown), ParticleLine(hypothesis.fPDG));
  plot.DrawAxes();
  return picture;
}

Picture DrawBestFractions(const ReportData& report) {
  constexpr double kBar = 44;
  constexpr double kSpace = 22;
  const auto bars = static_cast<double>(report.fHypotheses.size());
  Picture picture = Titled("How often each hypothesis fits best", 70 + bars * (kBar + kSpace));
  const double all = static_cast<double>(std::max(report.fFitted, 1ull));
  const double left = 110;
  const double right = kRight - 190;
  double y = 62;
  for (const HypothesisReport& hypothesis : report.fHypotheses) {
    const double fraction = static_cast<double>(hypothesis.fBest) / all;
    const double base = y + kBar / 2 + 8;
    picture.Text({12, base}, ParticleWord(hypothesis.fPDG));
    picture.Box({left, y}, {right, y + kBar}, colour::kPaleGrey);
    if (fraction > 0)
      picture.Box({left, y}, {left + fraction * (right - left), y + kBar},
                  ParticleLine(hypothesis.fPDG).fColour);
    picture.Text({right + 14, base},
                 fmt::format(FMT_STRING("{:.1f} %  ({})"), 100 * fraction, hypothesis.fBest));
    y += kBar + kSpace;
  }
  return picture;
}

Picture DrawResidualsByPlane(const ReportData& report, const geo::PlaneDetector& detector,
                             std::size_t view) {
  Picture picture = Titled(std::string("Residuals by plane, ") + kViewName[view]);
  const Axis z = AlongZ(report, detector, view);
  std::vector<Point> means;
  std::vector<Point> upper;
  std::vector<Point> lower;
  std::vector<double> errors;
  double max = 0;
  for (std::size_t i = 0; i < detector.Planes().size(); i++) {
    const ResidualSum& sum = report.fResiduals[view][i].fAll;
    if (sum.fN == 0) continue;
    const double at = detector.Planes()[i].ZMid();
    means.push_back({at, sum.Mean()});
    errors.push_back(sum.Error());
    upper.push_back({at, sum.Mean() + sum.Width()});
    lower.push_back({at, sum.Mean() - sum.Width()});
    max = std::max({max, std::abs(sum.Mean()) + sum.Width(), std::abs(sum.Mean()) + errors.back()});
  }
  Axis vertical = Around(-std::max(max, 1e-9), std::max(max, 1e-9), "residual [cm]");
  Plot plot(picture, {kLeft, kTop}, {kRight, kBottom}, z, vertical);
  if (means.size() > 1) {
    std::vector<Point> band = upper;
    band.insert(band.end(), lower.rbegin(), lower.rend());
    plot.Area(band, colour::kPaleBlue);
  }
  plot.Line({{z.fLow, 0}, {z.fHigh, 0}}, {colour::kGrey, 1});
  for (std::size_t i = 0; i < means.size(); i++)
    plot.Bar(means[i].fX, means[i].fY - errors[i], means[i].fY + errors[i], {kViewColour[view], 1});
  plot.Marks(means, {Mark::kDisc, kViewColour[view], 7});
  plot.DrawAxes();
  DrawLegend(picture, {12, 62}, kRight,
             {{LegendEntry::kMark, "mean and its error", kViewColour[view]},
              {LegendEntry::kArea, "standard deviation", colour::kPaleBlue}});
  return picture;
}

Picture DrawResidualMap(const ReportData& report, const geo::PlaneDetector& detector,
                        std::size_t view) {
  constexpr double kMapTop = 140;
  constexpr double kMapHeight = kHeight + 42;
  Picture picture =
      Titled(std::string("Residuals across each plane, ") + kViewName[view], kMapHeight);
  const Axis z = AlongZ(report, detector, view);
  Plot plot(picture, {kLeft, kMapTop}, {kRight, kMapHeight - 64}, z, AcrossPlanes(detector, view));
  for (std::size_t i = 0; i < detector.Planes().size(); i++) {
    const PlaneResiduals& plane = report.fResiduals[view][i];
    const geo::CellRow& cells = detector.Planes()[i].fCells[view];
    if (plane.fAll.fN == 0 || cells.fCount == 0) continue;
    const auto [low, high] = Column(report, detector, view, i, z);
    const double first = cells.Centre(0) - cells.fPitch / 2;
    const double part = cells.fPitch * cells.fCount / PlaneResiduals::kParts;
    plot.Box({low, first}, {high, first + part * PlaneResiduals::kParts}, colour::kLightGrey);
    for (std::size_t k = 0; k < PlaneResiduals::kParts; k++) {
      const ResidualSum& sum = plane.fByPosition[k];
      if (sum.fN < kEnough || sum.Error() == 0) continue;
      const double u = first + static_cast<double>(k) * part;
      plot.Box({low, u}, {high, u + part}, DivergingStep(sum.Mean() / sum.Error() / kMapScale));
    }
  }
  plot.DrawAxes();
  DrawColourScale(picture);
  return picture;
}

} // namespace kelvo
