#include "draw/Plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace kelvo {

namespace {

constexpr double kTick = 7;           // pixels
constexpr double kNumberSize = 22;    // pixels
constexpr double kTitleSize = 23;     // pixels
constexpr double kSpaceOfNumber = 95; // min pixels between the numbers of the horizontal axis
constexpr double kSpaceOfRow = 52;    // between those of the vertical one

// One mark of an axis.
struct Tick {
  double fValue;
  std::string fText; // empty: a small mark
};

std::string NumberAt(double value, double step) {
  const int digits = std::max(0, static_cast<int>(std::ceil(-std::log10(step) - 1e-9)));
  std::string number =
      fmt::format(FMT_STRING("{:.{}f}"), std::abs(value) < step / 1000 ? 0 : value, digits);
  if (number[0] == '-') number = "−" + number.substr(1);
  return number;
}

// 1, 2 or 5 times a power of ten: the smallest that is not below the one asked for.
double NiceStep(double min) {
  const double power = std::pow(10, std::floor(std::log10(min)));
  for (const double factor : {1., 2., 5.})
    if (factor * power >= min * (1 - 1e-9)) return factor * power;
  return 10 * power;
}

std::vector<Tick> LinearTicks(const Axis& axis, double max) {
  constexpr double kMin = 3;
  double step = NiceStep((axis.fHigh - axis.fLow) / std::max(max, 1.));
  const auto number = [&axis](double width) {
    return std::floor(axis.fHigh / width) - std::ceil(axis.fLow / width) + 1;
  };
  if (number(step) < kMin) step = NiceStep(step / 2.6); // the next smaller one
  std::vector<Tick> ticks;
  const double slack = 1e-9 * (axis.fHigh - axis.fLow);
  for (double i = std::ceil((axis.fLow - slack) / step); i * step <= axis.fHigh + slack; i++)
    ticks.push_back({i * step, NumberAt(i * step, step)});
  return ticks;
}

std::string PowerOfTen(int power) {
  static const char* const digits[] = {"⁰", "¹", "²", "³", "⁴", "⁵", "⁶", "⁷", "⁸", "⁹"};
  std::string text = power < 0 ? "10⁻" : "10";
  for (const char digit : std::to_string(std::abs(power))) text += digits[digit - '0'];
  return text;
}

std::vector<Tick> LogTicks(const Axis& axis, double max) {
  const int first = static_cast<int>(std::floor(std::log10(axis.fLow)));
  const int last = static_cast<int>(std::ceil(std::log10(axis.fHigh)));
  const bool plain = first >= -2 && last <= 3;
  const int every = std::max(1, static_cast<int>(std::ceil((last - first) / max)));
  std::vector<Tick> ticks;
  for (int power = first; power <= last; power++)
    for (int factor = 1; factor < 10; factor++) {
      const double value = factor * std::pow(10, power);
      if (value < axis.fLow * (1 - 1e-9) || value > axis.fHigh * (1 + 1e-9)) continue;
      const bool numbered = factor == 1 && (power - first) % every == 0;
      if (factor > 1 && every > 1) continue;
      ticks.push_back({value, !numbered ? "" : plain ? NumberAt(value, value) : PowerOfTen(power)});
    }
  return ticks;
}

std::vector<Tick> Ticks(const Axis& axis, double max) {
  return axis.fLog ? LogTicks(axis, max) : LinearTicks(axis, max);
}

double Fraction(const Axis& axis, double value) {
  if (axis.fLog) return std::log(value / axis.fLow) / std::log(axis.fHigh / axis.fLow);
  return (value - axis.fLow) / (axis.fHigh - axis.fLow);
}

// The part of a line that lies in a box (J. D. Foley et al., Computer Graphics: Principles and
// Practice, 2nd ed., section 3.12: the parametric line-clipping algorithm).
std::optional<std::pair<Point, Point>> Clipped(Point a, Point b, Point low, Point high) {
  double begin = 0;
  double end = 1;
  const auto cut = [&begin, &end](double from, double step, double edge) { // from + t step <= edge
    if (step == 0) return from <= edge;
    const double t = (edge - from) / step;
    if (step > 0)
      end = std::min(end, t);
    else
      begin = std::max(begin, t);
    return begin <= end;
  };
  const Point d{b.fX - a.fX, b.fY - a.fY};
  if (!cut(a.fX, d.fX, high.fX) || !cut(-a.fX, -d.fX, -low.fX) || !cut(a.fY, d.fY, high.fY) ||
      !cut(-a.fY, -d.fY, -low.fY))
    return std::nullopt;
  return std::pair{Point{a.fX + begin * d.fX, a.fY + begin * d.fY},
                   Point{a.fX + end * d.fX, a.fY + end * d.fY}};
}

bool Same(Point a, Point b) {
  constexpr double kRounding = 1e-6; // pixels
  return std::abs(a.fX - b.fX) < kRounding && std::abs(a.fY - b.fY) < kRounding;
}

} // namespace

Plot::Plot(Picture& picture, Point corner, Point opposite, Axis x, Axis y)
    : fPicture(picture), fCorner(corner), fOpposite(opposite), fX(std::move(x)), fY(std::move(y)) {}

Point Plot::At(double x, double y) const {
  return {fCorner.fX + Fraction(fX, x) * (fOpposite.fX - fCorner.fX),
          fOpposite.fY - Fraction(fY, y) * (fOpposite.fY - fCorner.fY)};
}

void Plot::DrawAxes() {
  const LineStyle frame{colour::kText, 1};
  for (const Tick& tick : Ticks(fX, (Right() - Left()) / kSpaceOfNumber)) {
    const Point at = At(tick.fValue, fY.fLow);
    const double length = tick.fText.empty() ? kTick / 2 : kTick;
    fPicture.Line({{at.fX, Bottom()}, {at.fX, Bottom() - length}}, frame);
    if (!fX.fNumbers) continue;
    const double max = fPicture.Width() - 2 - TextWidth(tick.fText, {kNumberSize}) / 2;
    fPicture.Text({std::min(at.fX, max), Bottom() + 28}, tick.fText,
                  {kNumberSize, colour::kText, Align::kCentre});
  }
  const std::vector<Tick> rows = Ticks(fY, (Bottom() - Top()) / kSpaceOfRow);
  // Numbers of many digits are written smaller, so that they stay in the picture.
  double widest = 0;
  for (const Tick& tick : rows)
    if (!tick.fText.empty()) widest = std::max(widest, TextWidth(tick.fText, {kNumberSize}));
  const double room = Left() - 12;
  const double size = widest > room ? kNumberSize * room / widest : kNumberSize;
  for (const Tick& tick : rows) {
    const Point at = At(fX.fLow, tick.fValue);
    const double length = tick.fText.empty() ? kTick / 2 : kTick;
    fPicture.Line({{Left(), at.fY}, {Left() + length, at.fY}}, frame);
    if (fY.fNumbers)
      fPicture.Text({Left() - 8, at.fY + 0.36 * size}, tick.fText,
                    {size, colour::kText, Align::kRight});
  }
  fPicture.Line(
      {{Left(), Top()}, {Right(), Top()}, {Right(), Bottom()}, {Left(), Bottom()}, {Left(), Top()}},
      frame);
  if (!fX.fTitle.empty())
    fPicture.Text({Right(), Bottom() + 54}, fX.fTitle, {kTitleSize, colour::kText, Align::kRight});
  if (!fY.fTitle.empty())
    fPicture.Text({std::max(Left() - 52, 4.), Top() - 16}, fY.fTitle, {kTitleSize});
}

void Plot::Line(const std::vector<Point>& points, const LineStyle& style) {
  std::vector<Point> part;
  const auto draw = [&] {
    if (part.size() > 1) fPicture.Line(part, style);
    part.clear();
  };
  for (std::size_t i = 1; i < points.size(); i++) {
    const auto clipped = Clipped(At(points[i - 1].fX, points[i - 1].fY),
                                 At(points[i].fX, points[i].fY), fCorner, fOpposite);
    if (!clipped) {
      draw();
      continue;
    }
    if (part.empty() || !Same(part.back(), clipped->first)) {
      draw();
      part.push_back(clipped->first);
    }
    part.push_back(clipped->second);
  }
  draw();
}

void Plot::Area(const std::vector<Point>& corners, const std::string& fill) {
  std::vector<Point> at;
  at.reserve(corners.size());
  for (const Point& corner : corners) at.push_back(At(corner.fX, corner.fY));
  fPicture.Area(at, fill);
}

void Plot::Box(Point corner, Point opposite, const std::string& fill) {
  const Point a = At(corner.fX, corner.fY);
  const Point b = At(opposite.fX, opposite.fY);
  const Point low{std::max(std::min(a.fX, b.fX), Left()), std::max(std::min(a.fY, b.fY), Top())};
  const Point high{std::min(std::max(a.fX, b.fX), Right()),
                   std::min(std::max(a.fY, b.fY), Bottom())};
  if (low.fX < high.fX && low.fY < high.fY) fPicture.Box(low, high, fill);
}

void Plot::Marks(const std::vector<Point>& points, const MarkStyle& style) {
  std::vector<Point> at;
  at.reserve(points.size());
  for (const Point& point : points) at.push_back(At(point.fX, point.fY));
  fPicture.Marks(at, style);
}

void Plot::Bar(double x, double low, double high, const LineStyle& style) {
  Line({{x, low}, {x, high}}, style);
}

ShownUnit LengthUnitFor(double max) {
  return max < 0.1 ? ShownUnit{"µm", 1e4} : ShownUnit{"cm", 1};
}

ShownUnit AngleUnitFor(double max) {
  return max < 0.1 ? ShownUnit{"mrad", 1e3} : ShownUnit{"rad", 1};
}

Axis Around(double low, double high, std::string title, double space) {
  double width = high - low;
  if (!(width > 0)) width = std::max(std::abs(high), 1e-9);
  return {low - space * width, high + space * width, std::move(title)};
}

double DrawLegend(Picture& picture, Point at, double right,
                  const std::vector<LegendEntry>& entries) {
  constexpr double kLine = 46; // pixels; three dashes
  constexpr double kShort = 26;
  constexpr double kSpace = 22;
  constexpr double kRow = 32;
  const TextStyle style{21};
  Point place = at;
  for (const LegendEntry& entry : entries) {
    const double symbol = entry.fKind == LegendEntry::kLine ? kLine : kShort;
    const double width = symbol + 8 + TextWidth(entry.fText, style);
    if (place.fX > at.fX && place.fX + width > right) place = {at.fX, place.fY + kRow};
    const double middle = place.fY - 7;
    LineStyle line = entry.fLine;
    line.fColour = entry.fColour;
    switch (entry.fKind) {
      case LegendEntry::kMark:
        picture.Marks({{place.fX + symbol / 2, middle}}, {entry.fMark, entry.fColour, 12});
        break;
      case LegendEntry::kLine:
        picture.Line({{place.fX, middle}, {place.fX + symbol, middle}}, line);
        break;
      case LegendEntry::kArea:
        picture.Box({place.fX, middle - 8}, {place.fX + symbol, middle + 8}, entry.fColour);
    }
    picture.Text({place.fX + symbol + 8, place.fY}, entry.fText, style);
    place.fX += width + kSpace;
  }
  return place.fY - at.fY + kRow;
}

} // namespace kelvo
