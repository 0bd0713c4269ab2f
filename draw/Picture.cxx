#include "draw/Picture.h"

#include "draw/DrawnSvg.h"
#include "draw/SvgText.h"
#include "io/FileError.h"
#include "io/PendingFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace kelvo {

namespace {

// Fonts with the widths of Helvetica come first; the others are stretched.
constexpr const char* kFonts =
    "Helvetica, Arial, 'Liberation Sans', 'Nimbus Sans', Arimo, Roboto, sans-serif";

// A hundredth of a pixel cannot be seen.
double Rounded(double value) {
  return std::round(value * 100) / 100;
}

std::string Corners(const std::vector<Point>& points) {
  std::string text;
  for (const Point& p : points)
    text +=
        fmt::format(FMT_STRING("{}{},{}"), text.empty() ? "" : " ", Rounded(p.fX), Rounded(p.fY));
  return text;
}

std::string DashAttribute(Dash dash) {
  if (dash == Dash::kSolid) return "";
  return fmt::format(FMT_STRING(" stroke-dasharray=\"{}\""),
                     dash == Dash::kDashed ? "4.5,4.5" : "30,7.5");
}

bool IsRound(Mark mark) {
  return mark == Mark::kDisc || mark == Mark::kCircle;
}

bool IsOpen(Mark mark) {
  return mark == Mark::kCircle || mark == Mark::kOpenSquare;
}

std::vector<Point> MarkCorners(Mark mark, Point p, double size) {
  const double h = size / 2;
  switch (mark) {
    case Mark::kDiamond:
      return {{p.fX, p.fY - h}, {p.fX + h, p.fY}, {p.fX, p.fY + h}, {p.fX - h, p.fY}};
    case Mark::kTriangle:
      return {{p.fX, p.fY - h}, {p.fX + h, p.fY + h}, {p.fX - h, p.fY + h}};
    default:
      return {
          {p.fX - h, p.fY - h}, {p.fX + h, p.fY - h}, {p.fX + h, p.fY + h}, {p.fX - h, p.fY + h}};
  }
}

std::string MarkElement(Mark mark, Point p, double size) {
  if (!IsRound(mark))
    return fmt::format(FMT_STRING("<polygon points=\"{}\"/>\n"),
                       Corners(MarkCorners(mark, p, size)));
  return fmt::format(FMT_STRING("<circle cx=\"{}\" cy=\"{}\" r=\"{}\"/>\n"), Rounded(p.fX),
                     Rounded(p.fY), Rounded(size / 2));
}

/// @param fitting the attributes that make the text as wide as it should be
std::string TextElement(Point at, const std::string& text, const TextStyle& style,
                        const std::string& fitting) {
  const char* const anchors[] = {"", " text-anchor=\"middle\"", " text-anchor=\"end\""};
  return fmt::format(FMT_STRING("<text xml:space=\"preserve\" x=\"{}\" y=\"{}\" font-size=\"{}\" "
                                "fill=\"{}\"{}{}{}>{}</text>\n"),
                     Rounded(at.fX), Rounded(at.fY), Rounded(style.fSize), style.fColour,
                     anchors[static_cast<int>(style.fAlign)],
                     style.fBold ? " font-weight=\"bold\"" : "", fitting, Escaped(text));
}

// A text for a renderer that knows no textLength and in whose fonts it is as wide as told [size of
// the font].
std::string StretchedText(Point at, const std::string& text, TextStyle style, double drawnWidth) {
  const double width = TextWidth(text, style);
  const double stretch = width / (drawnWidth * style.fSize);
  at.fX -= style.fAlign == Align::kLeft ? 0 : style.fAlign == Align::kCentre ? width / 2 : width;
  style.fAlign = Align::kLeft; // the others are reckoned without the stretching
  return TextElement(at, text, style,
                     fmt::format(FMT_STRING(" transform=\"translate({:.3f} 0) scale({:.5f} 1)\""),
                                 at.fX * (1 - stretch), stretch));
}

std::string Ending(const std::string& file) {
  std::string ending = std::filesystem::path(file).extension().string();
  for (char& c : ending)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return ending;
}

} // namespace

Picture::Picture(double width, double height, std::string title)
    : fWidth(width), fHeight(height), fTitle(std::move(title)) {}

void Picture::Line(const std::vector<Point>& points, const LineStyle& style) {
  fShapes += fmt::format(
      FMT_STRING("<polyline points=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"{}\"{}/>\n"),
      Corners(points), style.fColour, style.fWidth, DashAttribute(style.fDash));
}

void Picture::Area(const std::vector<Point>& corners, const std::string& fill) {
  fShapes +=
      fmt::format(FMT_STRING("<polygon points=\"{}\" fill=\"{}\"/>\n"), Corners(corners), fill);
}

void Picture::Box(Point corner, Point opposite, const std::string& fill) {
  fShapes += fmt::format(
      FMT_STRING("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"{}\"/>\n"),
      Rounded(std::min(corner.fX, opposite.fX)), Rounded(std::min(corner.fY, opposite.fY)),
      Rounded(std::abs(corner.fX - opposite.fX)), Rounded(std::abs(corner.fY - opposite.fY)), fill);
}

void Picture::Marks(const std::vector<Point>& points, const MarkStyle& style) {
  if (points.empty()) return;
  const char* paint = IsOpen(style.fMark) ? "fill=\"none\" stroke" : "fill";
  fShapes += fmt::format(FMT_STRING("<g {}=\"{}\">\n"), paint, style.fColour);
  for (const Point& point : points) fShapes += MarkElement(style.fMark, point, style.fSize);
  fShapes += "</g>\n";
}

void Picture::Text(Point at, const std::string& text, const TextStyle& style) {
  if (!text.empty()) fTexts.push_back({at, Printable(text), style});
}

void Picture::Tip(Point corner, Point opposite, const std::string& text,
                  const std::vector<long long>& tracks) {
  std::string list;
  if (!tracks.empty())
    list = fmt::format(FMT_STRING(" data-tracks=\"{}\""), fmt::join(tracks, " "));
  fTips += fmt::format(
      FMT_STRING("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"transparent\"{}>"
                 "<title>{}</title></rect>\n"),
      Rounded(std::min(corner.fX, opposite.fX)), Rounded(std::min(corner.fY, opposite.fY)),
      Rounded(std::abs(corner.fX - opposite.fX)), Rounded(std::abs(corner.fY - opposite.fY)), list,
      Escaped(PrintableLines(text)));
}

std::string Picture::Head() const {
  return fmt::format(
      FMT_STRING(
          "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" "
          "height=\"{1}\" style=\"max-width:100%;height:auto\" role=\"img\" font-family=\"{2}\">\n"
          "<title>{3}</title>\n"
          "<rect x=\"0\" y=\"0\" width=\"{0}\" height=\"{1}\" fill=\"{4}\"/>\n"),
      Rounded(fWidth), Rounded(fHeight), kFonts, Escaped(Printable(fTitle)), colour::kWhite);
}

std::string Picture::Svg() const {
  std::string svg = Head() + fShapes;
  for (const TextShape& text : fTexts)
    svg +=
        TextElement(text.fAt, text.fText, text.fStyle,
                    fmt::format(FMT_STRING(" textLength=\"{}\" lengthAdjust=\"spacingAndGlyphs\""),
                                Rounded(TextWidth(text.fText, text.fStyle))));
  return svg + fTips + "</svg>";
}

std::string Picture::Drawn(const std::string& format) const {
  const SvgRenderer& renderer = GetSvgRenderer();
  std::vector<FontText> letters;
  for (const TextShape& text : fTexts) letters.push_back({text.fText, text.fStyle.fBold});
  const std::vector<double> widths = renderer.fWidths(kFonts, letters);
  std::string svg = Head() + fShapes;
  for (std::size_t i = 0; i < fTexts.size(); i++)
    svg += StretchedText(fTexts[i].fAt, fTexts[i].fText, fTexts[i].fStyle, widths[i]);
  svg += "</svg>";
  return format == ".png" ? renderer.fPng(svg, fWidth, fHeight)
                          : renderer.fPdf(svg, fWidth, fHeight, Printable(fTitle));
}

void Picture::Save(const std::string& file) const {
  CheckName(file);
  const std::string format = Ending(file);
  std::string content;
  try {
    content = format == ".svg" ? "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + Svg() + '\n'
                               : Drawn(format);
  } catch (const std::runtime_error& e) {
    throw FileError(file + ": cannot be drawn: " + e.what());
  }
  PendingFile pending(file); // as late as possible, for an interrupted run leaves it behind
  std::ofstream out(pending.Partial(), std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  if (!out) throw FileError(file + ": could not be written completely; is the disk full?");
  pending.Commit();
}

void Picture::CheckName(const std::string& file) {
  const std::string ending = Ending(file);
  if (ending != ".svg" && ending != ".png" && ending != ".pdf")
    throw std::invalid_argument("\"" + file + "\" must end in .svg, .png or .pdf");
  if (ending == ".svg") return;
  try {
    GetSvgRenderer();
  } catch (const std::runtime_error& e) {
    throw std::invalid_argument("\"" + file + "\" must end in .svg: " + e.what());
  }
}

double TextWidth(const std::string& text, const TextStyle& style) {
  return style.fSize * RelativeWidth(Printable(text), style.fBold);
}

} // namespace kelvo
