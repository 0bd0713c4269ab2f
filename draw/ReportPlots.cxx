#include "draw/ReportPlots.h"

#include "draw/ColourScale.h"
#include "draw/ParticleLine.h"
#include "draw/Plot.h"
#include "util/Particles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

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

// Below any count, for logarithmic axes.
constexpr double kBelowOne = 0.5;

/// @param floor the lower end of the axis
std::vector<Point> Outline(const Histogram& histogram, double floor) {
  std::vector<Point> points{{histogram.Low(), floor}};
  for (std::size_t i = 0; i < histogram.Counts().size(); i++) {
    const double count = std::max(static_cast<double>(histogram.Counts()[i]), floor);
    points.push_back({histogram.Edge(i), count});
    points.push_back({histogram.Edge(i + 1), count});
  }
  points.push_back({histogram.High(), floor});
  return points;
}

Picture Titled(const std::string& title, double height = kHeight) {
  Picture picture(kWidth, height, title);
  picture.Text({12, 30}, title, {25, colour::kText, Align::kLeft, true});
  return picture;
}

// Histograms of one range, drawn into one plot.
using Histograms = std::vector<const Histogram*>;

// Whether few bins hold so many entries that those of the others would not be seen.
bool NeedsLog(const Histograms& histograms) {
  constexpr unsigned long long kMany = 30; // times the middle one of the bins with entries
  constexpr std::size_t kMinBins = 8;
  for (const Histogram* histogram : histograms) {
    std::vector<unsigned long long> filled;
    for (const unsigned long long count : histogram->Counts())
      if (count > 0) filled.push_back(count);
    if (filled.size() < kMinBins) continue;
    std::sort(filled.begin(), filled.end());
    if (filled.back() > kMany * filled[filled.size() / 2]) return true;
  }
  return false;
}

Plot CountPlot(Picture& picture, const Histograms& histograms, double atLeast,
               const std::string& quantity, const std::string& counted) {
  const Histogram none(0, 1, 1);
  const Histogram& range = histograms.empty() ? none : *histograms.front();
  double max = std::max(atLeast, 1.);
  for (const Histogram* histogram : histograms)
    max = std::max(max, static_cast<double>(histogram->Max()));
  const bool isLog = NeedsLog(histograms);
  return {picture,
          {kLeft, kTop},
          {kRight, kBottom},
          {range.Low(), range.High(), quantity, range.IsLog()},
          {isLog ? kBelowOne : 0, (isLog ? 2 : 1.08) * max, counted, isLog}};
}

std::string Short(double value) {
  return fmt::format(FMT_STRING("{:.4g}"), value);
}

// Tells counts and tracks of each bin to who points at it.
void AddTips(Plot& plot, const Histograms& histograms, const std::vector<std::string>& names) {
  if (histograms.empty()) return;
  for (std::size_t i = 0; i < histograms[0]->Counts().size(); i++) {
    const double low = histograms[0]->Edge(i);
    const double high = histograms[0]->Edge(i + 1);
    std::string text = Short(low) + " to " + Short(high);
    std::vector<long long> tracks;
    bool any = false;
    for (std::size_t h = 0; h < histograms.size(); h++) {
      const unsigned long long count = histograms[h]->Counts()[i];
      text += fmt::format(FMT_STRING("\n{}: {}"), names[h], count);
      any = any || count > 0;
      for (const long long track : histograms[h]->Tracks()[i])
        if (tracks.size() < Histogram::kTracksOfABin &&
            std::find(tracks.begin(), tracks.end(), track) == tracks.end())
          tracks.push_back(track);
    }
    if (!any) continue;
    if (!tracks.empty())
      text += fmt::format(FMT_STRING("\nfirst tracks: {}"), fmt::join(tracks, ", "));
    plot.In().Tip({plot.At(low, plot.Y().fLow).fX, plot.Top()},
                  {plot.At(high, plot.Y().fLow).fX, plot.Bottom()}, text, tracks);
  }
}

double At(const Gaussian& gaussian, double x) {
  const double t = (x - gaussian.fMean) / gaussian.fWidth;
  return gaussian.fHeight * std::exp(-t * t / 2);
}

void DrawGaussian(Plot& plot, const Gaussian& gaussian, const LineStyle& style) {
  constexpr double kSteps = 200;
  if (!gaussian.fFitted) return;
  std::vector<Point> curve;
  for (double i = 0; i <= kSteps; i++) {
    const double x = plot.X().fLow + (plot.X().fHigh - plot.X().fLow) * i / kSteps;
    curve.push_back({x, std::max(At(gaussian, x), plot.Y().fLow)});
  }
  plot.Line(curve, style);
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

// The step of a mean in units of its error.
int StepOf(double errors) {
  return static_cast<int>(std::lround(std::clamp(errors / kMapScale, -1., 1.) * kColourSteps));
}

void DrawColourScale(Picture& picture) {
  constexpr double kWide = 22;
  double x = kLeft;
  picture.Text({12, 62}, "mean residual / its error, grey: too few hits", {22});
  const TextStyle small{21};
  const std::string end = fmt::format(FMT_STRING("{:g}"), kMapScale);
  picture.Text({x, 92}, "−" + end, small);
  x += TextWidth("−" + end, small) + 10;
  for (int step = -kColourSteps; step <= kColourSteps; step++, x += kWide)
    picture.Box({x, 76}, {x + kWide, 94}, StepColour(step));
  picture.Text({x + 10, 92}, "+" + end, small);
}

} // namespace

Picture DrawViews(const std::array<Histogram, 2>& views, const std::array<Gaussian, 2>& gaussians,
                  const std::string& title, const std::string& quantity) {
  Picture picture = Titled(title);
  std::vector<LegendEntry> legend;
  for (std::size_t v = 0; v < 2; v++)
    legend.push_back({LegendEntry::kLine, kViewName[v], kViewColour[v], {}, {"", 2}});
  if (gaussians[0].fFitted || gaussians[1].fFitted)
    legend.push_back(
        {LegendEntry::kLine, "Gaussian fits", colour::kText, {}, {"", 2, Dash::kDashed}});
  DrawLegend(picture, {12, 62}, kRight, legend);
  const Histograms both{&views[0], &views[1]};
  Plot plot = CountPlot(picture, both, 0, quantity, "entries");
  for (std::size_t v = 0; v < 2; v++)
    plot.Line(Outline(views[v], plot.Y().fLow), {kViewColour[v], 2});
  for (std::size_t v = 0; v < 2; v++)
    DrawGaussian(plot, gaussians[v], {kViewColour[v], 2, Dash::kDashed});
  plot.DrawAxes();
  AddTips(plot, both, {kViewName[0], kViewName[1]});
  return picture;
}

Picture DrawProbability(const Histogram& probability) {
  Picture picture = Titled("Probability of chi-square");
  const double flat =
      static_cast<double>(probability.Inside()) / static_cast<double>(probability.Counts().size());
  Plot plot =
      CountPlot(picture, {&probability}, 2 * flat, "probability of a larger chi-square", "tracks");
  plot.Line({{0, flat}, {1, flat}}, {colour::kGrey, 2, Dash::kDashed});
  plot.Line(Outline(probability, plot.Y().fLow), {colour::kText, 2});
  plot.DrawAxes();
  DrawLegend(picture, {12, 62}, kRight,
             {{LegendEntry::kLine, "tracks", colour::kText, {}, {"", 2}},
              {LegendEntry::kLine, "flat", colour::kGrey, {}, {"", 2, Dash::kDashed}}});
  AddTips(plot, {&probability}, {"tracks"});
  return picture;
}

Picture DrawByHypothesis(const ReportData& report, HistogramOf histogram, const std::string& title,
                         const std::string& quantity) {
  Picture picture = Titled(title);
  std::vector<LegendEntry> legend;
  Histograms shown;
  std::vector<std::string> names;
  std::vector<LineStyle> lines;
  for (const HypothesisReport& hypothesis : report.fHypotheses) {
    const std::optional<Histogram>& one = histogram(hypothesis);
    if (!one) continue;
    shown.push_back(&*one);
    names.push_back(ParticleWord(hypothesis.fPDG));
    lines.push_back(ParticleLine(hypothesis.fPDG));
    legend.push_back({LegendEntry::kLine, names.back(), lines.back().fColour, {}, lines.back()});
  }
  DrawLegend(picture, {12, 62}, kRight, legend);
  Plot plot = CountPlot(picture, shown, 0, quantity, "tracks");
  for (std::size_t h = 0; h < shown.size(); h++)
    plot.Line(Outline(*shown[h], plot.Y().fLow), lines[h]);
  plot.DrawAxes();
  AddTips(plot, shown, names);
  return picture;
}

Picture DrawHistogram(const Histogram& histogram, const Gaussian& gaussian,
                      const std::string& title, const std::string& quantity) {
  Picture picture = Titled(title);
  std::vector<LegendEntry> legend{{LegendEntry::kLine, "tracks", colour::kText, {}, {"", 2}}};
  if (gaussian.fFitted)
    legend.push_back(
        {LegendEntry::kLine, "Gaussian fit", colour::kText, {}, {"", 2, Dash::kDashed}});
  DrawLegend(picture, {12, 62}, kRight, legend);
  Plot plot = CountPlot(picture, {&histogram}, 0, quantity, "tracks");
  plot.Line(Outline(histogram, plot.Y().fLow), {colour::kText, 2});
  DrawGaussian(plot, gaussian, {colour::kText, 2, Dash::kDashed});
  plot.DrawAxes();
  AddTips(plot, {&histogram}, {"tracks"});
  return picture;
}

// Parts of equally many tracks, which have errors of about the same size.
Picture DrawMomentumResolution(const TruthComparison& truth) {
  constexpr std::size_t kMaxParts = 12;
  constexpr std::size_t kMinTracks = 40; // of a part
  Picture picture = Titled("Momentum resolution against momentum");
  const std::vector<double>& p = truth.TrueMomenta();
  const std::vector<double>& deviations = truth.Of(TruthComparison::kMomentum).fValues;
  std::vector<std::size_t> order(p.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&p](auto a, auto b) { return p[a] < p[b]; });
  const std::size_t parts = std::clamp<std::size_t>(p.size() / kMinTracks, 1, kMaxParts);
  std::vector<double> at;
  std::vector<Spread> spreads;
  double max = 0;
  for (std::size_t part = 0; part < parts; part++) {
    std::vector<double> values;
    const std::size_t begin = part * p.size() / parts;
    const std::size_t end = (part + 1) * p.size() / parts;
    for (std::size_t i = begin; i < end; i++) values.push_back(100 * deviations[order[i]]);
    at.push_back(p[order[(begin + end) / 2]]);
    spreads.push_back(SpreadOf(std::move(values)));
    const Spread& s = spreads.back();
    max = std::max({max, s.fWidth + s.fWidthError, std::abs(s.fMedian) + s.fMedianError});
  }
  Plot plot(picture, {kLeft, kTop}, {kRight, kBottom},
            Around(p[order.front()], p[order.back()], "true momentum [GeV/c]"),
            {-0.4 * max, 1.1 * max, "[%]"});
  plot.Line({{plot.X().fLow, 0}, {plot.X().fHigh, 0}}, {colour::kGrey, 1});
  std::vector<Point> widths;
  std::vector<Point> medians;
  for (std::size_t i = 0; i < at.size(); i++) {
    const Spread& s = spreads[i];
    plot.Bar(at[i], s.fWidth - s.fWidthError, s.fWidth + s.fWidthError, {colour::kText, 1});
    plot.Bar(at[i], s.fMedian - s.fMedianError, s.fMedian + s.fMedianError, {colour::kGrey, 1});
    widths.push_back({at[i], s.fWidth});
    medians.push_back({at[i], std::max(s.fMedian, -0.4 * max)});
    const Point middle = plot.At(at[i], 0);
    picture.Tip(
        {middle.fX - 14, plot.Top()}, {middle.fX + 14, plot.Bottom()},
        fmt::format(FMT_STRING("{:.4g} GeV/c, {} tracks\nresolution {:.2f} ± {:.2f} %\nbias "
                               "{:.2f} ± {:.2f} %"),
                    at[i], s.fN, s.fWidth, s.fWidthError, s.fMedian, s.fMedianError));
  }
  plot.Marks(widths, {Mark::kDisc, colour::kText, 9});
  plot.Marks(medians, {Mark::kOpenSquare, colour::kGrey, 9});
  plot.DrawAxes();
  DrawLegend(picture, {12, 62}, kRight,
             {{LegendEntry::kMark, "resolution (68 %)", colour::kText},
              {LegendEntry::kMark, "bias (median)", colour::kGrey, Mark::kOpenSquare}});
  return picture;
}

Picture DrawBestFractions(const ReportData& report) {
  constexpr double kBar = 44;
  constexpr double kSpace = 22;
  const auto bars = static_cast<double>(report.fHypotheses.size());
  Picture picture = Titled("How often each hypothesis fits best", 70 + bars * (kBar + kSpace));
  const double all = static_cast<double>(std::max(report.fFitted - report.fWithoutBest, 1ull));
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
  double max = 1e-9;
  for (const PlaneResiduals& plane : report.fResiduals[view])
    max = std::max(max,
                   std::abs(plane.fAll.Mean()) + std::max(plane.fAll.Width(), plane.fAll.Error()));
  const ShownUnit unit = LengthUnitFor(max);
  Plot plot(picture, {kLeft, kTop}, {kRight, kBottom}, z,
            Around(-max * unit.fPerUnit, max * unit.fPerUnit,
                   std::string("residual [") + unit.fName + "]"));
  std::vector<Point> means;
  std::vector<Point> band;
  std::vector<Point> lower;
  std::vector<double> errors;
  for (std::size_t i = 0; i < detector.Planes().size(); i++) {
    const ResidualSum& sum = report.fResiduals[view][i].fAll;
    if (sum.fN == 0) continue;
    const double at = detector.Planes()[i].ZMid();
    const double mean = sum.Mean() * unit.fPerUnit;
    const double width = sum.Width() * unit.fPerUnit;
    means.push_back({at, mean});
    errors.push_back(sum.Error() * unit.fPerUnit);
    band.push_back({at, mean + width});
    lower.push_back({at, mean - width});
    const auto [low, high] = Column(report, detector, view, i, z);
    picture.Tip({plot.At(low, 0).fX, plot.Top()}, {plot.At(high, 0).fX, plot.Bottom()},
                fmt::format(FMT_STRING("plane {} at z = {:.6g} cm, {} hits\nmean {:.4g} ± {:.2g} "
                                       "{}\nwidth {:.4g} {}"),
                            i, at, sum.fN, mean, errors.back(), unit.fName, width, unit.fName));
  }
  band.insert(band.end(), lower.rbegin(), lower.rend());
  if (means.size() > 1) plot.Area(band, colour::kPaleBlue);
  plot.Line({{z.fLow, 0}, {z.fHigh, 0}}, {colour::kGrey, 1});
  for (std::size_t i = 0; i < means.size(); i++)
    plot.Bar(means[i].fX, means[i].fY - errors[i], means[i].fY + errors[i], {kViewColour[view], 1});
  plot.Marks(means, {Mark::kDisc, kViewColour[view], 7});
  plot.DrawAxes();
  DrawLegend(picture, {12, 62}, kRight,
             {{LegendEntry::kMark, "mean and its error", kViewColour[view]},
              {LegendEntry::kArea, "±1σ", colour::kPaleBlue}});
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
      plot.Box({low, u}, {high, u + part}, StepColour(StepOf(sum.Mean() / sum.Error())));
      const ShownUnit unit = LengthUnitFor(std::abs(sum.Mean()) + sum.Error());
      const Point corner = plot.At(low, u);
      const Point opposite = plot.At(high, u + part);
      picture.Tip(corner, opposite,
                  fmt::format(FMT_STRING("plane {}, {:.4g} to {:.4g} cm, {} hits\nmean {:.3g} ± "
                                         "{:.2g} {}"),
                              i, u, u + part, sum.fN, sum.Mean() * unit.fPerUnit,
                              sum.Error() * unit.fPerUnit, unit.fName));
    }
  }
  plot.DrawAxes();
  DrawColourScale(picture);
  return picture;
}

} // namespace kelvo
