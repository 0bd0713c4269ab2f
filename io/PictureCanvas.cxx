#include "io/PictureCanvas.h"

#include "io/SvgText.h"

#include <TBox.h>
#include <TCanvas.h>
#include <TColor.h>
#include <TError.h>
#include <TLatex.h>
#include <TPolyLine.h>
#include <TPolyMarker.h>
#include <TROOT.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace kelvo {

namespace {

constexpr short kHelvetica = 43;     // with sizes in pixels
constexpr short kHelveticaBold = 63; // the same
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

// Except in SVG, ROOT's texts have Latin letters only; other signs need its notation for formulas.
std::string InFormulaNotation(const std::string& text) {
  static const std::pair<const char*, const char*> signs[] = {
      {"χ", "#chi"},   {"σ", "#sigma"}, {"β", "#beta"},     {"γ", "#gamma"}, {"±", "#pm"},
      {"−", "#minus"}, {"×", "#times"}, {"⁻", "^{#minus}"}, {"⁰", "^{0}"},   {"¹", "^{1}"},
      {"²", "^{2}"},   {"³", "^{3}"},   {"⁴", "^{4}"},      {"⁵", "^{5}"},   {"⁶", "^{6}"},
      {"⁷", "^{7}"},   {"⁸", "^{8}"},   {"⁹", "^{9}"},      {"₀", "_{0}"}};
  std::string formula = text;
  for (const auto& [sign, notation] : signs) {
    const std::string from = sign;
    const std::string to = notation;
    for (auto at = formula.find(from); at != std::string::npos; at = formula.find(from, at))
      formula.replace(at, from.size(), to);
  }
  return formula;
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
  auto* drawn = new TPolyLine(static_cast<int>(line.fPoints.size()));
  drawn->SetBit(kCanDelete);
  SetPoints(line.fPoints, [&](int i, const Point& p) { drawn->SetPoint(i, X(p.fX), Y(p.fY)); });
  drawn->SetLineColor(Colour(line.fStyle.fColour));
  drawn->SetLineWidth(static_cast<short>(std::lround(line.fStyle.fWidth * fScale)));
  drawn->SetLineStyle(RootDash(line.fStyle.fDash));
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
  constexpr short kBaseLine = 1;
  const short align[] = {10, 20, 30};
  const std::string formula = InFormulaNotation(text.fText);
  TText* drawn = fFormat != "svg" && formula != text.fText
                     ? new TLatex(X(text.fAt.fX), Y(text.fAt.fY), formula.c_str())
                     : new TText(X(text.fAt.fX), Y(text.fAt.fY), text.fText.c_str());
  drawn->SetBit(kCanDelete);
  drawn->SetTextFont(text.fStyle.fBold ? kHelveticaBold : kHelvetica);
  drawn->SetTextSize(static_cast<float>(text.fStyle.fSize * fScale));
  drawn->SetTextColor(Colour(text.fStyle.fColour));
  drawn->SetTextAlign(static_cast<short>(align[static_cast<int>(text.fStyle.fAlign)] + kBaseLine));
  drawn->Draw();
}

double TextWidth(const std::string& text, const TextStyle& style) {
  const PictureCanvas canvas(Picture(200, 200, ""), "svg"); // to measure in
  return style.fSize * RelativeWidth(text, style.fBold);
}

} // namespace kelvo
