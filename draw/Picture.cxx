#include "draw/Picture.h"

#include "draw/PictureCanvas.h"
#include "draw/SvgText.h"
#include "io/FileError.h"
#include "io/PendingFile.h"

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
  explicit ScratchFile(const std::string& ending)
      : fName((std::filesystem::temp_directory_path() / "kelvo-XXXXXX").string() + ending) {
    const int descriptor = mkstemps(fName.data(), static_cast<int>(ending.size()));
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

// ROOT gives a PDF the name of the file as it is drawn for title, which readers show. Another one
// of the same length keeps the places of what follows.
std::string TitledPdf(std::string pdf, const std::string& title) {
  const std::string begin = "/Title (";
  const std::size_t from = pdf.find(begin);
  if (from == std::string::npos) return pdf;
  const std::size_t end = pdf.find('\n', from);
  std::string line = begin + title.substr(0, end - from - begin.size() - 1) + ')';
  line.resize(end - from, ' ');
  return pdf.replace(from, line.size(), line);
}

// What needs no escape in a text of a PDF.
std::string PlainWord(std::string text) {
  for (char& c : text)
    if (c < ' ' || c > '~' || c == '(' || c == ')' || c == '\\') c = '_';
  return text;
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

std::string Picture::Drawn(const std::string& format) const {
  const ScratchFile scratch('.' + format); // ROOT knows some formats by the ending alone
  PictureCanvas canvas(*this, format);
  canvas.Print(scratch.Name());
  const std::string drawn = WholeFile(scratch.Name());
  // ROOT does not tell what it could not write; each format ends with a sign of its own.
  const std::string end = format == "svg" ? "</svg>" : format == "png" ? "IEND" : "%%EOF";
  if (drawn.size() < 16 || drawn.find(end, drawn.size() - 16) == std::string::npos)
    throw FileError(scratch.Name() +
                    ": a temporary file could not be written completely; TMPDIR may name a folder "
                    "with space for it");
  return format == "svg" ? MendedSvg(drawn, fWidth, fHeight, fTitle) : drawn;
}

std::string Picture::Svg() const {
  return Drawn("svg");
}

void Picture::Save(const std::string& file) const {
  CheckName(file);
  const std::string format = Ending(file).substr(1);
  { const PendingFile isPossible(file); }
  std::string content = Drawn(format);
  if (format == "svg") content = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + content + '\n';
  if (format == "pdf")
    content = TitledPdf(content, PlainWord(std::filesystem::path(file).stem().string()));
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
}

} // namespace kelvo
