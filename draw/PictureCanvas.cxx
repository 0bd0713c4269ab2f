#include "draw/PictureCanvas.h"

#include "draw/SvgText.h"

#include <TBox.h>
#include <TCanvas.h>
#include <TColor.h>
#include <TError.h>
#include <TPolyLine.h>
#include <TPolyMarker.h>
#include <TROOT.h>
#include <TText.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace kelvo {

namespace {

constexpr short kHelvetica = 43;     // with sizes in pixels
constexpr short kHelveticaBold = 63; // the same
constexpr short kSymbol = 123;       // the same
constexpr double kPngScale = 2;      // for screens of high resolution

short Colour(const std::string& hex) {
  return static_cast<short>(TColor::GetColor(hex.c_str()));
}

short RootMark(Mark mark) {
  static const std::map<Mark, short> numbers{{Mark::kDisc, 20},    {Mark::kCircle, 24},
                                             {Mark::kSquare, 21},  {Mark::kOpenSquare, 25},
                                             {Mark::kDiamond, 33}, {Mark::kTriangle, 22}};
  return numbers.at(mark);
}

short RootDash(Dash dash) {
  static const std::map<Dash, short> numbers{
      {Dash::kSolid, 1}, {Dash::kDashed, 2}, {Dash::kLongDashed, 9}};
  return numbers.at(dash);
}

constexpr char kEvenDash = '\x96'; // in the encoding of PDFs

// What ROOT draws at once: outside of SVG its texts are of Latin letters in one byte each, or of
// the signs in its font Symbol.
struct Run {
  std::string fText;
  bool fSymbol = false;
  bool fRaised = false;
  double fWidth = 0; // of a run of Symbol [size of its font]; Adobe font metrics
};

// @return [size of the font]
double WidthOf(const Run& run, bool bold) {
  if (run.fSymbol) return run.fWidth;
  std::string measured = run.fText;
  for (char& c : measured)
    if (c < 0) c = 'n'; // about as wide; ROOT measures no more than ASCII
  return RelativeWidth(measured, bold);
}

// A PDF has an even dash among the Latin letters, which readers without the font Symbol show, too.
Run Minus(bool inPdf, bool raised) {
  if (inPdf) return {std::string(1, kEvenDash), false, raised};
  return {"-", true, raised, 0.549};
}

Run RunOf(const std::string& sign, bool inPdf) {
  static const std::map<std::string, Run> greek{{"χ", {"c", true, false, 0.549}},
                                                {"σ", {"s", true, false, 0.603}},
                                                {"β", {"b", true, false, 0.549}},
                                                {"γ", {"g", true, false, 0.411}}};
  static const std::map<std::string, const char*> raised{
      {"⁰", "0"}, {"¹", "1"}, {"²", "2"}, {"³", "3"}, {"⁴", "4"},
      {"⁵", "5"}, {"⁶", "6"}, {"⁷", "7"}, {"⁸", "8"}, {"⁹", "9"}};
  if (sign.size() == 1) return {sign};
  if (sign == "−" || sign == "⁻") return Minus(inPdf, sign == "⁻");
  if (const auto known = greek.find(sign); known != greek.end()) return known->second;
  if (const auto known = raised.find(sign); known != raised.end())
    return {known->second, false, true};
  const auto lead = static_cast<unsigned char>(sign[0]);
  const bool isLatin = lead == 0xc2 || lead == 0xc3;
  return {isLatin ? std::string(1, static_cast<char>((lead << 6) | (sign[1] & 0x3f))) : "?"};
}

// @param text is UTF-8
std::vector<Run> Runs(const std::string& text, bool inPdf) {
  std::vector<Run> runs;
  for (std::size_t i = 0; i < text.size();) {
    std::size_t end = i + 1;
    while (end < text.size() && (text[end] & 0xc0) == 0x80) ++end;
    const Run run = RunOf(text.substr(i, end - i), inPdf);
    if (!runs.empty() && runs.back().fSymbol == run.fSymbol && runs.back().fRaised == run.fRaised) {
      runs.back().fText += run.fText;
      runs.back().fWidth += run.fWidth;
    } else {
      runs.push_back(run);
    }
    i = end;
  }
  return runs;
}

// The pieces of a dashed line. On bitmaps ROOT begins a dash anew at every point of a line, so that
// fine curves come out solid.
std::vector<std::vector<Point>> Dashes(const std::vector<Point>& points, Dash dash) {
  // As in ROOT's SVG [pixels].
  const double length[] = {dash == Dash::kDashed ? 4.5 : 30, dash == Dash::kDashed ? 4.5 : 7.5};
  std::vector<std::vector<Point>> pieces{{points.front()}};
  std::size_t phase = 0; // 0: dash, 1: gap
  double left = length[phase];
  for (std::size_t i = 1; i < points.size(); ++i) {
    Point from = points[i - 1];
    double way = std::hypot(points[i].fX - from.fX, points[i].fY - from.fY);
    for (; way > left; left = length[phase]) {
      from.fX += (points[i].fX - from.fX) * left / way;
      from.fY += (points[i].fY - from.fY) * left / way;
      way -= left;
      if (phase == 0) pieces.back().push_back(from);
      if (phase == 1) pieces.push_back({from});
      phase = 1 - phase;
    }
    left -= way;
    if (phase == 0) pieces.back().push_back(points[i]);
  }
  return pieces;
}

template <typename T>
void SetPoints(const std::vector<Point>& points, T&& set) {
  for (std::size_t i = 0; i < points.size(); ++i) set(static_cast<int>(i), points[i]);
}

} // namespace

PictureCanvas::PictureCanvas(const Picture& picture, std::string format)
    : fBatchBefore(gROOT->IsBatch()),
      fPadBefore(gPad),
      fFormat(std::move(format)),
      fScale(fFormat == "png" ? kPngScale : 1),
      fHeight(picture.Height()) {
  gROOT->SetBatch(true);
  const auto width = static_cast<unsigned>(std::lround(picture.Width() * fScale));
  const auto height = static_cast<unsigned>(std::lround(picture.Height() * fScale));
  fCanvas = std::make_unique<TCanvas>("kelvo_picture", "", static_cast<int>(width),
                                      static_cast<int>(height));
  fCanvas->SetCanvasSize(width, height);
  fCanvas->SetBorderMode(0);
  fCanvas->SetFillColor(Colour(colour::kWhite));
  fCanvas->Range(0, 0, width, height);
  for (const auto& shape : picture.fShapes) std::visit([this](const auto& s) { Draw(s); }, shape);
  for (const auto& text : picture.fTexts) Draw(text);
}

PictureCanvas::~PictureCanvas() {
  fCanvas.reset();
  gPad = fPadBefore;
  gROOT->SetBatch(fBatchBefore);
}

void PictureCanvas::Print(const std::string& file) {
  const int before = gErrorIgnoreLevel;
  gErrorIgnoreLevel = kWarning; // a line for every picture otherwise
  fCanvas->Print(file.c_str(), fFormat.c_str());
  gErrorIgnoreLevel = before;
}

// The canvas owns and deletes what has the bit kCanDelete.

void PictureCanvas::Draw(const Picture::LineShape& line) {
  if (fFormat != "png" || line.fStyle.fDash == Dash::kSolid || line.fPoints.empty())
    return DrawLine(line.fPoints, line.fStyle);
  LineStyle solid = line.fStyle;
  solid.fDash = Dash::kSolid;
  for (const std::vector<Point>& piece : Dashes(line.fPoints, line.fStyle.fDash))
    DrawLine(piece, solid);
}

void PictureCanvas::DrawLine(const std::vector<Point>& points, const LineStyle& style) {
  auto* drawn = new TPolyLine(static_cast<int>(points.size()));
  drawn->SetBit(kCanDelete);
  SetPoints(points, [&](int i, const Point& p) { drawn->SetPoint(i, X(p.fX), Y(p.fY)); });
  drawn->SetLineColor(Colour(style.fColour));
  drawn->SetLineWidth(static_cast<short>(std::lround(style.fWidth * fScale)));
  drawn->SetLineStyle(RootDash(style.fDash));
  drawn->Draw();
}

void PictureCanvas::Draw(const Picture::AreaShape& area) {
  auto* drawn = new TPolyLine(static_cast<int>(area.fCorners.size()));
  drawn->SetBit(kCanDelete);
  SetPoints(area.fCorners, [&](int i, const Point& p) { drawn->SetPoint(i, X(p.fX), Y(p.fY)); });
  drawn->SetFillColor(Colour(area.fFill));
  drawn->SetFillStyle(1001);
  drawn->Draw("f");
}

void PictureCanvas::Draw(const Picture::BoxShape& box) {
  auto* drawn = new TBox(X(box.fLow.fX), Y(box.fHigh.fY), X(box.fHigh.fX), Y(box.fLow.fY));
  drawn->SetBit(kCanDelete);
  drawn->SetFillColor(Colour(box.fFill));
  drawn->SetFillStyle(1001);
  drawn->SetLineWidth(0);
  drawn->Draw();
}

void PictureCanvas::Draw(const Picture::MarksShape& marks) {
  const Mark mark = marks.fStyle.fMark;
  if (fFormat == "png" && (mark == Mark::kDisc || mark == Mark::kCircle)) return DrawRound(marks);
  constexpr double kRootMark = 8; // pixels of a mark of size 1
  auto* drawn = new TPolyMarker(static_cast<int>(marks.fPoints.size()));
  drawn->SetBit(kCanDelete);
  SetPoints(marks.fPoints, [&](int i, const Point& p) { drawn->SetPoint(i, X(p.fX), Y(p.fY)); });
  drawn->SetMarkerStyle(RootMark(marks.fStyle.fMark));
  drawn->SetMarkerColor(Colour(marks.fStyle.fColour));
  drawn->SetMarkerSize(static_cast<float>(marks.fStyle.fSize * fScale / kRootMark));
  drawn->Draw();
}

void PictureCanvas::Draw(const Picture::TextShape& text) {
  const TextStyle& style = text.fStyle;
  const short font = style.fBold ? kHelveticaBold : kHelvetica;
  if (fFormat == "svg") return DrawText(text.fAt, text.fText, style, font);
  constexpr double kRaisedSize = 0.7; // sizes of the font
  constexpr double kRaisedBy = 0.35;
  const std::vector<Run> runs = Runs(text.fText, fFormat == "pdf");
  std::vector<double> widths;
  for (const Run& run : runs)
    widths.push_back(DrawnSize(style.fSize * (run.fRaised ? kRaisedSize : 1)) *
                     WidthOf(run, style.fBold));
  const double all = std::accumulate(widths.begin(), widths.end(), 0.);
  Point at = text.fAt;
  at.fX -= style.fAlign == Align::kLeft ? 0 : style.fAlign == Align::kCentre ? all / 2 : all;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    TextStyle own{style.fSize, style.fColour, Align::kLeft, style.fBold};
    Point place = at;
    if (runs[i].fRaised) {
      own.fSize *= kRaisedSize;
      place.fY -= kRaisedBy * style.fSize;
    }
    DrawText(place, runs[i].fText, own, runs[i].fSymbol ? kSymbol : font);
    at.fX += widths[i];
  }
}

// For each circle on a bitmap ROOT goes through all of its pixels, for a polygon not.
void PictureCanvas::DrawRound(const Picture::MarksShape& marks) {
  constexpr int kCorners = 32;
  for (const Point& centre : marks.fPoints) {
    std::vector<Point> corners;
    for (int i = 0; i <= kCorners; ++i) {
      const double angle = 2 * M_PI * i / kCorners;
      const double radius = marks.fStyle.fSize / 2;
      corners.push_back(
          {centre.fX + radius * std::cos(angle), centre.fY + radius * std::sin(angle)});
    }
    if (marks.fStyle.fMark == Mark::kDisc)
      Draw(Picture::AreaShape{corners, marks.fStyle.fColour});
    else
      DrawLine(corners, {marks.fStyle.fColour, 1});
  }
}

// ROOT draws letters smaller than asked for by the factor kScale of its TTF.cxx, and in whole
// pixels.
double PictureCanvas::DrawnSize(double size) const {
  return std::floor(std::floor(size * fScale) * 0.93376068 + 0.5) / fScale;
}

void PictureCanvas::DrawText(Point at, const std::string& text, const TextStyle& style,
                             short font) {
  constexpr short kBaseLine = 1;
  const short align[] = {10, 20, 30};
  auto* drawn = new TText(X(at.fX), Y(at.fY), text.c_str());
  drawn->SetBit(kCanDelete);
  drawn->SetTextFont(font);
  drawn->SetTextSize(static_cast<float>(style.fSize * fScale));
  drawn->SetTextColor(Colour(style.fColour));
  drawn->SetTextAlign(static_cast<short>(align[static_cast<int>(style.fAlign)] + kBaseLine));
  drawn->Draw();
}

double TextWidth(const std::string& text, const TextStyle& style) {
  const PictureCanvas canvas(Picture(200, 200, ""), "svg"); // to measure in
  return style.fSize * RelativeWidth(text, style.fBold);
}

} // namespace kelvo
