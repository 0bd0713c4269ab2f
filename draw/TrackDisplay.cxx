#include "draw/TrackDisplay.h"

#include "draw/FittedTrack.h"
#include "draw/Plot.h"
#include "util/Particles.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace kelvo {

namespace {

constexpr double kWidth = 640; // pixels, as all that follow
constexpr double kLeft = 86;
constexpr double kRight = kWidth - 14;
constexpr double kViewHeight = 300;
constexpr double kPanelHeight = 160;
constexpr double kAbovePanel = 50;
constexpr double kBelowNumbers = 62;

const LineStyle kTrackLine{colour::kText, 1.5};
const LineStyle kPlaneLine{colour::kGrey, 1};
const LineStyle kHitBar{colour::kBlack, 1};
const MarkStyle kHitMark{Mark::kDisc, colour::kBlack, 7};
const char* const kViewColour[] = {colour::kBlue, colour::kVermillion};
const Mark kViewMark[] = {Mark::kDisc, Mark::kOpenSquare};
const char* const kViewName[] = {"x", "y"};
constexpr double kLegible = 3;   // pixels
constexpr double kVisible = 0.5; // pixels
constexpr int kManyCells = 20;   // of a plane

// What of a detector is drawn into one view.
struct Boxes {
  struct Box {
    Point fCorner; // z and x or y [cm]
    Point fOpposite;
  };
  std::vector<Box> fSlabs;
  std::vector<Box> fPlanes;
  std::vector<Box> fCells; // that the track crosses
};

// Draws one track; the picture grows from the top to the bottom.
class TrackDrawing {
public:
  TrackDrawing(const geo::PlaneDetector* detector, const FitRow& row, Picture& picture)
      : fDetector(detector), fRow(row), fTrack(row), fPicture(picture) {
    const double first = row.fHitZ.front();
    const double last = row.fHitZ.back();
    const double space = std::max(0.02 * (last - first), Depth());
    fLow = first - space;
    fHigh = last + space;
    for (std::size_t view = 0; fDetector && view < 2; view++) FindBoxes(view);
  }

  void Draw() {
    double y = DrawHeading();
    for (std::size_t view = 0; view < 2; view++) {
      y += kAbovePanel;
      DrawView(view, y);
      y += kViewHeight + kBelowNumbers - 12;
    }
    y += kAbovePanel;
    DrawPanel(y, false);
    y += kPanelHeight + kAbovePanel;
    DrawPanel(y, true);
    fPicture.SetHeight(y + kPanelHeight + kBelowNumbers);
  }

private:
  // Half of the thickness of the first plane: space for its cells at the edge of the picture.
  double Depth() const {
    if (!fDetector) return 0;
    const geo::ActivePlane& plane =
        fDetector->Planes()[fDetector->NearestPlane(fRow.fHitZ.front())];
    return 0.7 * (plane.fZHigh - plane.fZLow);
  }

  double DrawHeading() {
    const double chi2 = fRow.Chi2();
    const std::string best = fRow.fBest ? ", the best hypothesis" : "";
    fPicture.Text(
        {12, 34},
        fmt::format(FMT_STRING("Track {} as "), fRow.fTrack) + ParticleWord(fRow.fPDG) + best,
        {28, colour::kText, Align::kLeft, true});
    fPicture.Text({12, 70}, fmt::format(FMT_STRING("χ²/ndf = {:.1f}/{}   (probability {:.2g})"),
                                        chi2, fRow.fNDF, fRow.fProb));
    fPicture.Text({12, 102}, Momentum());
    return 126 + DrawLegend(fPicture, {12, 142}, kRight, Entries());
  }

  std::vector<LegendEntry> Entries() const {
    std::vector<LegendEntry> entries{
        {LegendEntry::kMark, "hit", colour::kBlack},
        {LegendEntry::kLine, "fitted track", kTrackLine.fColour, {}, kTrackLine},
        {LegendEntry::kArea, "±1σ", colour::kPaleBlue}};
    const auto add = [&](const char* text, std::vector<Boxes::Box> Boxes::*boxes,
                         const char* colour) {
      if (!(fBoxes[0].*boxes).empty() || !(fBoxes[1].*boxes).empty())
        entries.push_back({LegendEntry::kArea, text, colour});
    };
    add("crossed cell", &Boxes::fCells, colour::kPaleOrange);
    add("plane", &Boxes::fPlanes, colour::kPaleGrey);
    add("slab", &Boxes::fSlabs, colour::kLightGrey);
    if (fRow.fPlaneZ.empty()) return entries; // a fit has them only where they were asked for
    entries.push_back({LegendEntry::kMark, "kink", colour::kPurple, Mark::kDiamond});
    entries.push_back({LegendEntry::kLine, "scattering plane", colour::kGrey, {}, kPlaneLine});
    return entries;
  }

  std::string Momentum() const {
    if (!fRow.fLeaves)
      return fmt::format(FMT_STRING("momentum {:.4g} GeV/c at the first hit"), fRow.fP);
    return fmt::format(FMT_STRING("leaves: above {:.4g} GeV/c at the first hit, by scattering "
                                  "{:.3g} to {:.3g}"),
                       fRow.fPMin, fRow.fPScatteringLow, fRow.fPScatteringHigh);
  }

  std::vector<std::size_t> Hits(std::size_t view) const {
    std::vector<std::size_t> hits;
    for (std::size_t i = 0; i < fRow.fHitZ.size(); i++)
      if (fRow.fHitView[i] == static_cast<int>(view)) hits.push_back(i);
    return hits;
  }

  void DrawView(std::size_t view, double top) {
    Plot plot(fPicture, {kLeft, top}, {kRight, top + kViewHeight}, {fLow, fHigh, "z [cm]"},
              Vertical(view, std::string(kViewName[view]) + " [cm]"));
    DrawBoxes(plot, fBoxes[view].fSlabs, colour::kLightGrey, 0);
    DrawBoxes(plot, fBoxes[view].fPlanes, colour::kPaleGrey, 0);
    DrawBoxes(plot, fBoxes[view].fCells, colour::kPaleOrange, kLegible);
    DrawBand(plot, view);
    DrawScatteringPlanes(plot, view);
    DrawTrackLine(plot, view);
    DrawKinks(plot, view);
    DrawHits(plot, view);
    plot.DrawAxes();
  }

  // From the lowest to the highest of hits and track.
  Axis Vertical(std::size_t view, const std::string& title) const {
    double low = fTrack.At(view, fRow.fHitZ.front());
    double high = low;
    const auto add = [&](double u, double sigma) {
      low = std::min(low, u - sigma);
      high = std::max(high, u + sigma);
    };
    for (const std::size_t i : Hits(view)) {
      add(fRow.fHitU[i], fRow.fHitSigU[i]);
      add(fRow.fFitU[i], fRow.fFitSigU[i]);
    }
    for (const Point& p : fTrack.Line(view)) add(p.fY, 0);
    return Around(low, high, title, 0.08);
  }

  void FindBoxes(std::size_t view) {
    Boxes& boxes = fBoxes[view];
    const double pixel = (fHigh - fLow) / (kRight - kLeft); // [cm]
    const auto isInside = [this](double low, double high) { return high >= fLow && low <= fHigh; };
    for (const geo::Box& slab : fDetector->Slabs())
      if (slab.fHigh[2] - slab.fLow[2] > kVisible * pixel && isInside(slab.fLow[2], slab.fHigh[2]))
        boxes.fSlabs.push_back(
            {{slab.fLow[2], slab.fLow[view]}, {slab.fHigh[2], slab.fHigh[view]}});
    for (const geo::ActivePlane& plane : fDetector->Planes()) {
      const geo::CellRow& cells = plane.fCells[view];
      if (cells.fCount == 0 || !isInside(plane.fZLow, plane.fZHigh)) continue;
      boxes.fPlanes.push_back(CellBox(plane, view, 0, cells.fCount - 1));
      FindCells(plane, view);
    }
  }

  static Boxes::Box CellBox(const geo::ActivePlane& plane, std::size_t view, unsigned first,
                            unsigned last) {
    const geo::CellRow& cells = plane.fCells[view];
    const double half = cells.fWidth / 2;
    return {{plane.fZLow, cells.Centre(first) - half}, {plane.fZHigh, cells.Centre(last) + half}};
  }

  // The cells between the track's coordinates at both faces; many of them as one box.
  void FindCells(const geo::ActivePlane& plane, std::size_t view) {
    if (plane.fZHigh < fRow.fHitZ.front() || plane.fZLow > fRow.fHitZ.back()) return;
    const geo::CellRow& cells = plane.fCells[view];
    const int one = cells.Cell(fTrack.At(view, plane.fZLow));
    const int other = cells.Cell(fTrack.At(view, plane.fZHigh));
    if (one < 0 || other < 0) return;
    const auto first = static_cast<unsigned>(std::min(one, other));
    const auto last = static_cast<unsigned>(std::max(one, other));
    if (std::abs(one - other) >= kManyCells) {
      fBoxes[view].fCells.push_back(CellBox(plane, view, first, last));
      return;
    }
    for (unsigned i = first; i <= last; i++)
      fBoxes[view].fCells.push_back(CellBox(plane, view, i, i));
  }

  /// @param min width and height that is made of smaller boxes [pixels]
  static void DrawBoxes(Plot& plot, const std::vector<Boxes::Box>& boxes, const char* colour,
                        double min) {
    const double z = min * (plot.X().fHigh - plot.X().fLow) / (plot.Right() - plot.Left());
    const double u = min * (plot.Y().fHigh - plot.Y().fLow) / (plot.Bottom() - plot.Top());
    for (const Boxes::Box& box : boxes) {
      const Point& low = box.fCorner;
      const Point& high = box.fOpposite;
      const double dz = std::max(0., z - (high.fX - low.fX)) / 2;
      const double du = std::max(0., u - (high.fY - low.fY)) / 2;
      plot.Box({low.fX - dz, low.fY - du}, {high.fX + dz, high.fY + du}, colour);
    }
  }

  // The uncertainty is known at the hits of the view; in between it is taken as linear in z.
  void DrawBand(Plot& plot, std::size_t view) const {
    const std::vector<std::size_t> hits = Hits(view);
    if (hits.size() < 2) return;
    std::vector<double> z;
    z.reserve(hits.size());
    for (const std::size_t i : hits) z.push_back(fRow.fHitZ[i]);
    for (const Point& p : fTrack.Line(view))
      if (p.fX > z.front() && p.fX < fRow.fHitZ[hits.back()]) z.push_back(p.fX);
    std::sort(z.begin(), z.end());
    std::vector<Point> corners;
    corners.reserve(2 * z.size());
    for (const double at : z) corners.push_back({at, fTrack.At(view, at) + SigmaAt(hits, at)});
    for (auto at = z.rbegin(); at != z.rend(); at++)
      corners.push_back({*at, fTrack.At(view, *at) - SigmaAt(hits, *at)});
    plot.Area(corners, colour::kPaleBlue);
  }

  double SigmaAt(const std::vector<std::size_t>& hits, double z) const {
    std::size_t k = 1;
    while (k + 1 < hits.size() && fRow.fHitZ[hits[k]] < z) k++;
    const double z0 = fRow.fHitZ[hits[k - 1]];
    const double z1 = fRow.fHitZ[hits[k]];
    const double s0 = fRow.fFitSigU[hits[k - 1]];
    const double s1 = fRow.fFitSigU[hits[k]];
    return z1 > z0 ? s0 + (s1 - s0) * (z - z0) / (z1 - z0) : s1;
  }

  // Where the track crosses a scattering plane.
  Point PlanePoint(std::size_t j, std::size_t view) const {
    return {static_cast<double>(fRow.fPlaneZ[j]),
            static_cast<double>((view == 0 ? fRow.fPlaneX : fRow.fPlaneY)[j])};
  }

  // Planes cross the whole detector; a piece around the track leaves the rest of it to be seen.
  void DrawScatteringPlanes(Plot& plot, std::size_t view) const {
    const double half = 0.03 * (plot.Y().fHigh - plot.Y().fLow);
    for (std::size_t j = 0; j < fRow.fPlaneZ.size(); j++) {
      const Point p = PlanePoint(j, view);
      plot.Bar(p.fX, p.fY - half, p.fY + half, kPlaneLine);
    }
  }

  void DrawHits(Plot& plot, std::size_t view) const {
    std::vector<Point> points;
    for (const std::size_t i : Hits(view)) {
      const double u = fRow.fHitU[i];
      const double sigma = fRow.fHitSigU[i];
      plot.Bar(fRow.fHitZ[i], u - sigma, u + sigma, kHitBar);
      points.push_back({fRow.fHitZ[i], u});
      AddTip(plot, view, i);
    }
    plot.Marks(points, kHitMark);
  }

  void AddTip(Plot& plot, std::size_t view, std::size_t i) const {
    const ShownUnit unit =
        LengthUnitFor(std::max(std::abs(static_cast<double>(fRow.fResidual[i])), fRow.fHitSigU[i]));
    const Point at = plot.At(fRow.fHitZ[i], fRow.fHitU[i]);
    fPicture.Tip({at.fX - 6, at.fY - 6}, {at.fX + 6, at.fY + 6},
                 fmt::format(FMT_STRING("hit at z = {:.6g} cm, {} = {:.6g} cm\nresidual {:.3g} {}, "
                                        "uncertainty {:.3g} {}\npull {:.2f}"),
                             fRow.fHitZ[i], kViewName[view], fRow.fHitU[i],
                             static_cast<double>(fRow.fResidual[i]) * unit.fPerUnit, unit.fName,
                             fRow.fHitSigU[i] * unit.fPerUnit, unit.fName,
                             static_cast<double>(fRow.fPull[i])));
  }

  void DrawTrackLine(Plot& plot, std::size_t view) const {
    plot.Line(fTrack.Line(view), kTrackLine);
  }

  // The larger a kink in units of its expected width, the larger its mark.
  void DrawKinks(Plot& plot, std::size_t view) const {
    constexpr double kSmallest = 2; // pixels; two planes between any two hits would hide the track
    constexpr double kPerSigma = 14;
    constexpr double kLargest = 26;
    const auto& kinks = view == 0 ? fRow.fKinkX : fRow.fKinkY;
    for (std::size_t j = 0; j < kinks.size(); j++) {
      const double pull =
          std::abs(static_cast<double>(kinks[j])) / static_cast<double>(fRow.fPlaneSigAlpha[j]);
      const double size = std::min(kSmallest + kPerSigma * pull, kLargest);
      plot.Marks({PlanePoint(j, view)}, {Mark::kDiamond, colour::kPurple, size});
    }
  }

  // With the uncertainty of its hit [cm].
  double LargestResidual() const {
    double largest = 0;
    for (std::size_t i = 0; i < fRow.fHitZ.size(); i++)
      largest =
          std::max(largest, std::abs(static_cast<double>(fRow.fResidual[i])) + fRow.fHitSigU[i]);
    return largest;
  }

  // Residuals with the uncertainties of their hits, or pulls.
  void DrawPanel(double top, bool pulls) {
    const ShownUnit unit = LengthUnitFor(LargestResidual());
    const auto value = [&](std::size_t i) {
      return pulls ? static_cast<double>(fRow.fPull[i])
                   : static_cast<double>(fRow.fResidual[i]) * unit.fPerUnit;
    };
    const auto bar = [&](std::size_t i) { return pulls ? 0 : fRow.fHitSigU[i] * unit.fPerUnit; };
    double max = pulls ? 2.5 : 1e-6;
    for (std::size_t i = 0; i < fRow.fHitZ.size(); i++)
      max = std::max(max, std::abs(value(i)) + bar(i));
    Plot plot(
        fPicture, {kLeft, top}, {kRight, top + kPanelHeight},
        {fLow, fHigh, pulls ? "z [cm]" : "", false, pulls},
        {-1.1 * max, 1.1 * max, pulls ? "pull" : std::string("residual [") + unit.fName + "]"});
    if (pulls) plot.Box({fLow, -1}, {fHigh, 1}, colour::kPaleGrey);
    plot.Line({{fLow, 0}, {fHigh, 0}}, {colour::kGrey, 1});
    for (std::size_t view = 0; view < 2; view++) {
      std::vector<Point> points;
      for (const std::size_t i : Hits(view)) {
        points.push_back({fRow.fHitZ[i], value(i)});
        if (!pulls)
          plot.Bar(fRow.fHitZ[i], value(i) - bar(i), value(i) + bar(i), {kViewColour[view], 1});
      }
      plot.Marks(points, {kViewMark[view], kViewColour[view], 8});
    }
    plot.DrawAxes();
    DrawLegend(fPicture, {kRight - 230, top - 16}, kRight,
               {{LegendEntry::kMark, "x view", kViewColour[0], kViewMark[0]},
                {LegendEntry::kMark, "y view", kViewColour[1], kViewMark[1]}});
  }

  const geo::PlaneDetector* fDetector; // may be null
  const FitRow& fRow;
  FittedTrack fTrack;
  Picture& fPicture;
  std::array<Boxes, 2> fBoxes; // by view
  double fLow;                 // of the axis z [cm]
  double fHigh;                // [cm]
};

} // namespace

Picture DrawTrack(const geo::PlaneDetector* detector, const FitRow& row) {
  Picture picture(kWidth, 0,
                  "Track " + std::to_string(row.fTrack) + " fitted as " + ParticleWord(row.fPDG) +
                      ": both views, residuals and pulls");
  TrackDrawing(detector, row, picture).Draw();
  return picture;
}

} // namespace kelvo
