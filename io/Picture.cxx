#include "io/Picture.h"

#include "io/FileError.h"
#include "io/PendingFile.h"
#include "io/PictureCanvas.h"
#include "io/SvgText.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kelvo {

namespace {

// A file for the time of a function.
class ScratchFile {
public:
  ScratchFile() : fName((std::filesystem::temp_directory_path() / "kelvo-XXXXXX").string()) {
    const int descriptor = mkstemp(fName.data());
    if (descriptor < 0)
      throw FileError(fName +
                      ": a temporary file cannot be made; TMPDIR may name a folder that allows it");
    close(descriptor);
  }
  ~ScratchFile() { std::remove(fName.c_str()); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& Name() const { return fName; }

private:
  std::string fName;
};

std::string WholeFile(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
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

void Picture::Line(std::vector<Point> points, const LineStyle& style) {
  fShapes.push_back(LineShape{std::move(points), style});
}

void Picture::Area(std::vector<Point> corners, const std::string& fill) {
  fShapes.push_back(AreaShape{std::move(corners), fill});
}

void Picture::Box(Point a, Point b, const std::string& fill) {
  const Point low{std::min(a.fX, b.fX), std::min(a.fY, b.fY)};
  const Point high{std::max(a.fX, b.fX), std::max(a.fY, b.fY)};
  fShapes.push_back(BoxShape{low, high, fill});
}

void Picture::Marks(std::vector<Point> points, const MarkStyle& style) {
  if (!points.empty()) fShapes.push_back(MarksShape{std::move(points), style});
}

void Picture::Text(Point at, std::string text, const TextStyle& style) {
  if (!text.empty()) fTexts.push_back({at, Printable(text), style});
}

std::string Picture::SvgFrom(const std::string& scratch) const {
  PictureCanvas canvas(*this, "svg");
  canvas.Print(scratch);
  return MendedSvg(WholeFile(scratch), fWidth, fHeight, fTitle);
}

std::string Picture::Svg() const {
  const ScratchFile scratch;
  return SvgFrom(scratch.Name());
}

void Picture::Save(const std::string& file) const {
  CheckName(file);
  const std::string ending = Ending(file);
  PendingFile pending(file);
  // ROOT knows some formats by the ending alone.
  const std::string drawn = pending.Partial() + ending;
  if (ending == ".svg") {
    const std::string svg = SvgFrom(drawn);
    std::ofstream out(drawn, std::ios::binary | std::ios::trunc);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" << svg << '\n';
  } else {
    PictureCanvas(*this, ending.substr(1)).Print(drawn);
  }
  std::error_code error;
  std::filesystem::rename(drawn, pending.Partial(), error);
  if (error) throw FileError(file + ": could not be written; is the disk full?");
  pending.Commit();
}

void Picture::CheckName(const std::string& file) {
  const std::string ending = Ending(file);
  if (ending != ".svg" && ending != ".png" && ending != ".pdf")
    throw std::invalid_argument("\"" + file + "\" must end in .svg, .png or .pdf");
}

} // namespace kelvo
