#pragma once

#include "draw/Picture.h"

#include <string>
#include <vector>

namespace kelvo {

/// One axis of a plot.
struct Axis {
  double fLow = 0;
  double fHigh = 1;
  std::string fTitle;   ///< with its unit; empty: none
  bool fLog = false;    ///< logarithmic; both ends must be above 0
  bool fNumbers = true; ///< whether the marks have numbers
};

/// A plot in a picture: a frame with axes, and what is drawn into it in the units of the axes.
///
/// The title of the vertical axis stands above the frame, level, where it can be read on a narrow
/// screen too.
class Plot {
public:
  /// Draws nothing yet.
  /// @param corner,opposite of the frame in the picture [pixels]; numbers and titles are outside of
  ///                        it: 60 to the left, 32 above, 62 below
  Plot(Picture& picture, Point corner, Point opposite, Axis x, Axis y);

  /// Draws frame, marks, numbers and titles. Call it last, so that nothing lies on the frame.
  void DrawAxes();

  /// Returns where a point of the plot is in the picture [pixels].
  Point At(double x, double y) const;

  // What follows takes points in units of the axes. Lines and boxes end at the frame; areas and
  // marks must lie within it.
  void Line(const std::vector<Point>& points, const LineStyle& style);
  void Area(const std::vector<Point>& corners, const std::string& fill);
  void Box(Point corner, Point opposite, const std::string& fill);
  void Marks(const std::vector<Point>& points, const MarkStyle& style);
  /// Draws an upright error bar.
  void Bar(double x, double low, double high, const LineStyle& style);

  const Axis& X() const { return fX; }
  const Axis& Y() const { return fY; }
  Picture& In() { return fPicture; }
  double Left() const { return fCorner.fX; }     ///< of the frame [pixels]
  double Right() const { return fOpposite.fX; }  ///< [pixels]
  double Top() const { return fCorner.fY; }      ///< [pixels]
  double Bottom() const { return fOpposite.fY; } ///< [pixels]

private:
  Picture& fPicture;
  Point fCorner;   // upper left [pixels]
  Point fOpposite; // lower right [pixels]
  Axis fX;
  Axis fY;
};

/// A unit in which numbers of a plot are legible.
struct ShownUnit {
  const char* fName;
  double fPerUnit; ///< of it in a cm, or in a rad
};

/// Returns cm, or um where lengths are smaller than a millimetre.
/// @param max the largest of them [cm]
ShownUnit LengthUnitFor(double max);

/// Returns rad, or mrad where angles are smaller than a tenth of it.
/// @param max the largest of them [rad]
ShownUnit AngleUnitFor(double max);

/// Returns an axis from low to high with a little space on both sides; something of a width also
/// where both are equal.
Axis Around(double low, double high, std::string title, double space = 0.05);

/// One entry of a legend.
struct LegendEntry {
  enum Kind { kMark, kLine, kArea };
  Kind fKind;
  std::string fText;
  std::string fColour;
  Mark fMark = Mark::kDisc;
  LineStyle fLine = {}; ///< its colour is fColour
};

/// Writes entries side by side, in as many rows as they need, from a point on.
/// @param at    left end of the first row's base line [pixels]
/// @param right where a row ends [pixels]
/// @return the height of all rows [pixels]
double DrawLegend(Picture& picture, Point at, double right,
                  const std::vector<LegendEntry>& entries);

} // namespace kelvo
