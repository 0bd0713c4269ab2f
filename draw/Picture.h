#pragma once

#include <string>
#include <vector>

namespace kelvo {

/// Colours that people with any kind of colour vision tell apart, in print too (M. Okabe and K.
/// Ito, "Color universal design", 2008), and greys and light tints for what lies behind.
namespace colour {
constexpr const char* kBlack = "#000000";
constexpr const char* kOrange = "#e69f00";
constexpr const char* kSkyBlue = "#56b4e9";
constexpr const char* kGreen = "#009e73";
constexpr const char* kBlue = "#0072b2";
constexpr const char* kVermillion = "#d55e00";
constexpr const char* kPurple = "#cc79a7";
constexpr const char* kYellow = "#f0e442";
constexpr const char* kText = "#222222";
constexpr const char* kGrey = "#767676";
constexpr const char* kLightGrey = "#d9d9d9";
constexpr const char* kPaleGrey = "#f0f0f0";
constexpr const char* kPaleBlue = "#b3d9f2";
constexpr const char* kPaleOrange = "#fbe3b0";
constexpr const char* kWhite = "#ffffff";
} // namespace colour

/// A point of a picture [pixels], from the left and from the top; or of a plot, in its units.
struct Point {
  double fX;
  double fY;
};

enum class Dash { kSolid, kDashed, kLongDashed };

struct LineStyle {
  std::string fColour = colour::kText;
  double fWidth = 1; ///< [pixels]
  Dash fDash = Dash::kSolid;
};

enum class Mark { kDisc, kCircle, kSquare, kOpenSquare, kDiamond, kTriangle };

struct MarkStyle {
  Mark fMark = Mark::kDisc;
  std::string fColour = colour::kBlack;
  double fSize = 8; ///< width [pixels]
};

enum class Align { kLeft, kCentre, kRight };

struct TextStyle {
  double fSize = 24; ///< [pixels]
  std::string fColour = colour::kText;
  Align fAlign = Align::kLeft; ///< what of the text is at the given place; y is its base line
  bool fBold = false;
};

/// A picture of a fixed size, written as SVG while it is drawn; PNG and PDF are made from the SVG,
/// so that all three look the same. Shapes lie over those before them, texts over all. Every text
/// is as wide as Helvetica's letters make it, whichever font shows it.
///
/// The default size of texts stays legible where a picture 640 pixels wide is seen on a telephone
/// 360 pixels wide.
class Picture {
public:
  /// @param width,height [pixels]
  /// @param title        what the picture shows, for readers who do not see it
  Picture(double width, double height, std::string title);

  /// Sets the height [pixels], for a picture that is drawn before it is known.
  void SetHeight(double height) { fHeight = height; }

  double Width() const { return fWidth; }   ///< [pixels]
  double Height() const { return fHeight; } ///< [pixels]

  void Line(const std::vector<Point>& points, const LineStyle& style);
  void Area(const std::vector<Point>& corners, const std::string& fill);
  void Box(Point corner, Point opposite, const std::string& fill);
  /// Draws marks of one style, which stay together in a SVG file.
  void Marks(const std::vector<Point>& points, const MarkStyle& style);
  /// Writes text (UTF-8) as it stands.
  void Text(Point at, const std::string& text, const TextStyle& style = {});

  /// Makes a box tell a text to who points at it, over all that is drawn; PNG and PDF lack it.
  /// @param tracks which tracks it is about, for a page's script
  void Tip(Point corner, Point opposite, const std::string& text,
           const std::vector<long long>& tracks = {});

  /// Returns the picture as an element svg for a page, without ids, fonts or links.
  std::string Svg() const;

  /// Stores the picture as a whole file.
  /// @param file ends in .svg, .png (two dots per pixel) or .pdf, which gives the format
  /// @throw std::invalid_argument as CheckName
  /// @throw FileError where the file cannot be written, or where no font is installed that a PNG or
  ///        a PDF could show its texts with
  void Save(const std::string& file) const;

  /// Checks the ending of a name for Save, before anything is drawn.
  /// @throw std::invalid_argument for an ending that names no format, or one that this build of
  ///        kelvo does not know how to write
  static void CheckName(const std::string& file);

private:
  struct TextShape {
    Point fAt;
    std::string fText;
    TextStyle fStyle;
  };

  std::string Head() const;
  std::string Drawn(const std::string& format) const;

  double fWidth;
  double fHeight;
  std::string fTitle;
  std::string fShapes; // SVG
  std::string fTips;   // SVG
  std::vector<TextShape> fTexts;
};

/// Returns the width that a text has in pictures [pixels].
double TextWidth(const std::string& text, const TextStyle& style = {});

} // namespace kelvo
