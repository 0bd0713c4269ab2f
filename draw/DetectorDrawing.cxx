#include "draw/DetectorDrawing.h"

#include "draw/Plot.h"
#include "geo/MaterialBudget.h"
#include "geo/PlaneDetectorReader.h"

#include <TGeoMaterial.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace kelvo {

namespace {

constexpr double kWidth = 640; // pixels, as all that follow
constexpr double kLeft = 86;
constexpr double kRight = kWidth - 14;
constexpr double kSideHeight = 190;
constexpr double kCellHeight = 290;
constexpr double kBudgetHeight = 260;

using Description = geo::DetectorDescription;
using Part = Description::Part;

bool IsActive(const Part& part) {
  return part.fCount[0] > 0 || part.fCount[1] > 0;
}

const char* PartColour(const Part& part) {
  if (!IsActive(part)) return colour::kGrey;
  if (part.fCount[0] > 0 && part.fCount[1] > 0) return colour::kGreen;
  return part.fCount[0] > 0 ? colour::kBlue : colour::kOrange;
}

// Draws a detector; the picture grows from the top to the bottom.
class Drawing {
public:
  Drawing(const geo::PlaneDetector& detector, Picture& picture)
      : fDetector(detector),
        fDescription(geo::ReadDetectorText(detector.Text(), detector.Name())),
        fPicture(picture) {
    // The world is what is not drawn.
    static const char* const colours[] = {colour::kSkyBlue,    colour::kPurple, colour::kYellow,
                                          colour::kVermillion, colour::kGreen,  colour::kOrange,
                                          colour::kBlue,       colour::kGrey};
    std::size_t i = 0;
    const std::string world = fDescription.fMaterials[fDescription.fWorld].fName;
    for (const auto& material : fDescription.fMaterials)
      fColours[material.fName] =
          material.fName == world ? colour::kWhite : colours[i++ % std::size(colours)];
  }

  void Draw() {
    double y = DrawHeading();
    for (unsigned axis = 0; axis < 2; axis++) {
      DrawSide(axis, y);
      y += kSideHeight + (axis == 0 ? 80 : 146);
    }
    DrawCell(y);
    y += kCellHeight + 92;
    y += DrawLegend(fPicture, {12, y}, kRight, MaterialLegend()) + 34;
    DrawBudget(y);
    fPicture.SetHeight(y + kBudgetHeight + 66);
  }

private:
  double DrawHeading() {
    const geo::Box& box = fDetector.Extent();
    fPicture.Text({12, 34}, fDetector.Name(), {28, colour::kText, Align::kLeft, true});
    fPicture.Text({12, 70},
                  fmt::format(FMT_STRING("{} planes; {:.5g} × {:.5g} cm across, {:.6g} cm long"),
                              fDetector.Planes().size(), box.fHigh[0] - box.fLow[0],
                              box.fHigh[1] - box.fLow[1], box.fHigh[2] - box.fLow[2]));
    std::vector<LegendEntry> entries;
    const auto add = [&](const char* text, const char* colour) {
      for (const auto& placed : fDescription.fPlaced)
        if (IsVisible(placed) && PartColour(fDescription.fParts[placed.fPart]) == colour) {
          entries.push_back({LegendEntry::kArea, text, colour});
          return;
        }
    };
    add("plane for x", colour::kBlue);
    add("plane for y", colour::kOrange);
    add("plane for x and y", colour::kGreen);
    add("slab", colour::kGrey);
    return 132 + DrawLegend(fPicture, {12, 110}, kRight, entries);
  }

  // The length along z that is about a pixel of the side views [cm].
  double Pixel() const {
    return (fDetector.Extent().fHigh[2] - fDetector.Extent().fLow[2]) / (kRight - kLeft);
  }

  // Thin sheets between planes are not drawn, thin planes as lines.
  bool IsVisible(const Description::Placed& placed) const {
    return IsActive(fDescription.fParts[placed.fPart]) || placed.fZHigh - placed.fZLow > Pixel();
  }

  void DrawSide(unsigned axis, double top) {
    const geo::Box& box = fDetector.Extent();
    Plot plot(fPicture, {kLeft, top}, {kRight, top + kSideHeight},
              Around(box.fLow[2], box.fHigh[2], axis == 1 ? "z [cm]" : "", 0.02),
              Around(box.fLow[axis], box.fHigh[axis], axis == 0 ? "x [cm]" : "y [cm]"));
    for (const auto& placed : fDescription.fPlaced) {
      const Part& part = fDescription.fParts[placed.fPart];
      if (!IsVisible(placed)) continue;
      const double half = part.fSize[axis] / 2;
      plot.Box({placed.fZLow, placed.fCentre[axis] - half},
               {std::max(placed.fZHigh, placed.fZLow + Pixel()), placed.fCentre[axis] + half},
               PartColour(part));
    }
    plot.DrawAxes();
  }

  // A plane whose cells have walls or gaps shows most.
  const Part& PartToEnlarge() const {
    const Part* chosen = nullptr;
    for (const auto& placed : fDescription.fPlaced) {
      const Part& part = fDescription.fParts[placed.fPart];
      if (!IsActive(part)) continue;
      if (part.fWall > 0 || part.fGap > 0) return part;
      if (!chosen) chosen = &part;
    }
    return *chosen;
  }

  const std::string& ColourOf(unsigned material) const {
    return fColours.at(fDescription.fMaterials[material].fName);
  }

  // A cell and what can be seen of its neighbours, in the plane of z and of the measured
  // coordinate, with one scale for both.
  void DrawCell(double top) {
    const Part& part = PartToEnlarge();
    const unsigned axis = part.fCount[0] > 0 ? 0 : 1;
    const double width = part.fWidth[axis];
    const double depth = part.fSize[2];
    const double scale = std::min((kRight - kLeft) / (1.1 * depth),
                                  kCellHeight / (1.5 * width + 2 * part.fGap)); // pixels per cm
    const double along = (kRight - kLeft) / scale;
    const double across = kCellHeight / scale;
    Plot plot(fPicture, {kLeft, top}, {kRight, top + kCellHeight},
              {-along / 2, along / 2, "z from the middle of the plane [cm]"},
              {-across / 2, across / 2, axis == 0 ? "x [cm]" : "y [cm]"});
    const double pitch = width + part.fGap;
    if (part.fGap > 0)
      plot.Box({-depth / 2, -across}, {depth / 2, across}, ColourOf(part.fGapMaterial));
    const int neighbours = static_cast<int>(std::ceil(across / pitch));
    for (int i = -neighbours; i <= neighbours; i++) {
      const auto box = [&](double margin, unsigned material) {
        plot.Box({-depth / 2 + margin, i * pitch - width / 2 + margin},
                 {depth / 2 - margin, i * pitch + width / 2 - margin}, ColourOf(material));
      };
      if (part.fWall > 0) box(0, part.fWallMaterial);
      box(part.fWall, part.fMaterial);
      if (part.fWall == 0)
        plot.Line({{-depth / 2, i * pitch - width / 2},
                   {depth / 2, i * pitch - width / 2},
                   {depth / 2, i * pitch + width / 2},
                   {-depth / 2, i * pitch + width / 2},
                   {-depth / 2, i * pitch - width / 2}},
                  {colour::kText, 1});
    }
    plot.DrawAxes();
    fPicture.Text({12, top - 44}, "One cell of \"" + part.fName + "\"",
                  {24, colour::kText, Align::kLeft, true});
    fPicture.Text({kRight, top - 16}, CellText(part, axis), {21, colour::kText, Align::kRight});
  }

  static std::string CellText(const Part& part, unsigned axis) {
    double size[2];
    size[axis] = part.fWidth[axis];
    size[1 - axis] = part.fCount[1 - axis] > 0 ? part.fWidth[1 - axis] : part.fSize[1 - axis];
    std::string text =
        fmt::format(FMT_STRING("x {:.4g}, y {:.4g}, z {:.4g} cm"), size[0], size[1], part.fSize[2]);
    if (part.fWall > 0) text += fmt::format(FMT_STRING(", wall {:.4g} cm"), part.fWall);
    if (part.fGap > 0) text += fmt::format(FMT_STRING(", gap {:.4g} cm"), part.fGap);
    return text;
  }

  std::vector<LegendEntry> MaterialLegend() const {
    std::vector<LegendEntry> entries;
    for (const TGeoMaterial* material : fDetector.Materials())
      if (fColours.at(material->GetName()) != colour::kWhite)
        entries.push_back(
            {LegendEntry::kArea, material->GetName(), fColours.at(material->GetName())});
    return entries;
  }

  void DrawBudget(double top) {
    const geo::MaterialBudget budget = geo::FindMaterialBudget(fDetector, 400);
    double all = 0;
    for (const TGeoMaterial* material : fDetector.Materials()) all += budget.RadLengths(material);
    Plot plot(fPicture, {kLeft, top}, {kRight, top + kBudgetHeight},
              {budget.fLow, budget.fHigh, "z [cm]"},
              {0, 1.05 * std::max(all, 1e-12), "radiation lengths from the upstream face to z"});
    std::vector<double> below(budget.fBins + 1);
    for (const TGeoMaterial* material : fDetector.Materials()) {
      std::vector<double> above = below;
      double sum = 0;
      for (std::size_t i = 0; i < budget.fBins; i++) {
        sum += budget.fRadLengths.at(material)[i];
        above[i + 1] += sum;
      }
      if (sum > 0) plot.Area(Between(budget, below, above), fColours.at(material->GetName()));
      below = above;
    }
    plot.DrawAxes();
    fPicture.Text({plot.Left() + 16, plot.Top() + 34},
                  fmt::format(FMT_STRING("in all {:.4g}"), all));
  }

  static std::vector<Point> Between(const geo::MaterialBudget& budget,
                                    const std::vector<double>& below,
                                    const std::vector<double>& above) {
    const auto z = [&budget](std::size_t i) {
      return budget.fLow + (budget.fHigh - budget.fLow) * static_cast<double>(i) / budget.fBins;
    };
    std::vector<Point> corners;
    for (std::size_t i = 0; i < above.size(); i++) corners.push_back({z(i), above[i]});
    for (std::size_t i = below.size(); i-- > 0;) corners.push_back({z(i), below[i]});
    return corners;
  }

  const geo::PlaneDetector& fDetector;
  Description fDescription;
  Picture& fPicture;
  std::map<std::string, std::string> fColours; // by name of the material
};

} // namespace

Picture DrawDetector(const geo::PlaneDetector& detector) {
  Picture picture(
      kWidth, 0,
      "The detector " + detector.Name() + ": side views, one cell, radiation lengths along z");
  Drawing(detector, picture).Draw();
  return picture;
}

} // namespace kelvo
