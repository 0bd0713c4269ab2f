#pragma once

#include "draw/Picture.h"

#include <memory>

class TCanvas;
class TVirtualPad;

namespace kelvo {

/// A canvas of ROOT's with a picture on it, as large as its format demands. No window is opened,
/// and the current pad and the mode of ROOT are as before when it goes.
class PictureCanvas {
public:
  /// @param format "svg", "png" or "pdf"
  PictureCanvas(const Picture& picture, std::string format);
  ~PictureCanvas();
  PictureCanvas(const PictureCanvas&) = delete;
  PictureCanvas& operator=(const PictureCanvas&) = delete;

  /// Writes the picture to a file, whose name must end as ROOT wants it for the format.
  void Print(const std::string& file);

private:
  void Draw(const Picture::LineShape& line);
  void Draw(const Picture::AreaShape& area);
  void Draw(const Picture::BoxShape& box);
  void Draw(const Picture::MarksShape& marks);
  void Draw(const Picture::TextShape& text);
  void DrawRound(const Picture::MarksShape& marks);
  void DrawLine(const std::vector<Point>& points, const LineStyle& style);
  /// Draws text of one font as it stands.
  void DrawText(Point at, const std::string& text, const TextStyle& style, short font);
  double DrawnSize(double size) const;
  double X(double x) const { return x * fScale; }
  double Y(double y) const { return (fHeight - y) * fScale; }

  bool fBatchBefore;
  TVirtualPad* fPadBefore;
  std::string fFormat;
  double fScale;
  double fHeight; // of the picture [pixels]
  std::unique_ptr<TCanvas> fCanvas;
};

} // namespace kelvo
