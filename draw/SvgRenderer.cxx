#include "draw/DrawnSvg.h"

#include "draw/SvgText.h"

#include <cairo-pdf.h>
#include <fmt/format.h>
#include <fontconfig/fontconfig.h>
#include <librsvg/rsvg.h>

#include <cmath>
#include <memory>
#include <stdexcept>

namespace kelvo {

namespace {

constexpr double kPngScale = 2;           // dots per pixel
constexpr double kPdfScale = 72. / 96;    // points per pixel
constexpr double kMeasuredSize = 100;     // pixels; of the font that texts are measured in
constexpr const char* kMeasuredEnd = "|"; // so that a text's empty ends are measured, too

using Handle = std::unique_ptr<RsvgHandle, void (*)(void*)>;
using Surface = std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)>;
using Context = std::unique_ptr<cairo_t, void (*)(cairo_t*)>;

[[noreturn]] void Throw(GError* error) {
  const std::string message = error->message;
  g_error_free(error);
  throw std::runtime_error(message);
}

void Check(cairo_status_t status) {
  if (status != CAIRO_STATUS_SUCCESS) throw std::runtime_error(cairo_status_to_string(status));
}

Handle Parsed(const std::string& svg) {
  GError* error = nullptr;
  const auto* bytes = reinterpret_cast<const guint8*>(svg.data());
  Handle handle(rsvg_handle_new_from_data(bytes, svg.size(), &error), g_object_unref);
  if (!handle) Throw(error);
  return handle;
}

cairo_status_t Append(void* file, const unsigned char* bytes, unsigned count) {
  static_cast<std::string*>(file)->append(reinterpret_cast<const char*>(bytes), count);
  return CAIRO_STATUS_SUCCESS;
}

// Draws the picture over all of a surface [dots, or points].
void Draw(const std::string& svg, cairo_surface_t* surface, double width, double height) {
  const Handle handle = Parsed(svg);
  const Context context(cairo_create(surface), cairo_destroy);
  const RsvgRectangle all{0, 0, width, height};
  GError* error = nullptr;
  if (!rsvg_handle_render_document(handle.get(), context.get(), &all, &error)) Throw(error);
  Check(cairo_status(context.get()));
}

std::string MeasuredElement(std::size_t id, const FontText& text) {
  return fmt::format(
      FMT_STRING(
          "<text id=\"t{}\" xml:space=\"preserve\" y=\"{}\" font-size=\"{}\"{}>{}{}{}</text>\n"),
      id, kMeasuredSize, kMeasuredSize, text.fBold ? " font-weight=\"bold\"" : "", kMeasuredEnd,
      Escaped(text.fText), kMeasuredEnd);
}

// Without any font librsvg draws boxes.
void CheckFonts() {
  const FcFontSet* fonts = FcInit() ? FcConfigGetFonts(nullptr, FcSetSystem) : nullptr;
  if (!fonts || fonts->nfont == 0)
    throw std::runtime_error(
        "its texts need a font, and none is installed (Debian: fonts-dejavu-core)");
}

// The width of the ink [size of the font].
double InkWidth(RsvgHandle* handle, std::size_t id) {
  const std::string name = fmt::format(FMT_STRING("#t{}"), id);
  RsvgRectangle ink{};
  GError* error = nullptr;
  if (!rsvg_handle_get_geometry_for_element(handle, name.c_str(), &ink, nullptr, &error))
    Throw(error);
  return ink.width / kMeasuredSize;
}

std::vector<double> Widths(const std::string& fonts, const std::vector<FontText>& texts) {
  CheckFonts();
  const std::size_t plainEnds = texts.size();
  const std::size_t boldEnds = plainEnds + 1;
  std::string svg = fmt::format(
      FMT_STRING("<svg xmlns=\"http://www.w3.org/2000/svg\" font-family=\"{}\">\n"), fonts);
  for (std::size_t i = 0; i < texts.size(); i++) svg += MeasuredElement(i, texts[i]);
  svg += MeasuredElement(plainEnds, {"", false}) + MeasuredElement(boldEnds, {"", true}) + "</svg>";
  const Handle handle = Parsed(svg);
  const double ends[] = {InkWidth(handle.get(), plainEnds), InkWidth(handle.get(), boldEnds)};
  std::vector<double> widths;
  for (std::size_t i = 0; i < texts.size(); i++)
    widths.push_back(InkWidth(handle.get(), i) - ends[texts[i].fBold ? 1 : 0]);
  return widths;
}

std::string Png(const std::string& svg, double width, double height) {
  const auto dots = [](double pixels) { return static_cast<int>(std::lround(pixels * kPngScale)); };
  const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, dots(width), dots(height)),
                        cairo_surface_destroy);
  Check(cairo_surface_status(surface.get()));
  Draw(svg, surface.get(), width * kPngScale, height * kPngScale);
  std::string file;
  Check(cairo_surface_write_to_png_stream(surface.get(), Append, &file));
  return file;
}

// As text a letter of a stretched font would keep its place but not its width (librsvg 2.54): it is
// drawn as an outline, which it is on any surface but a PDF's own.
std::string Pdf(const std::string& svg, double width, double height, const std::string& title) {
  const cairo_rectangle_t page{0, 0, width * kPdfScale, height * kPdfScale};
  const Surface drawn(cairo_recording_surface_create(CAIRO_CONTENT_COLOR_ALPHA, &page),
                      cairo_surface_destroy);
  Draw(svg, drawn.get(), page.width, page.height);
  std::string file;
  const Surface pdf(cairo_pdf_surface_create_for_stream(Append, &file, page.width, page.height),
                    cairo_surface_destroy);
  cairo_pdf_surface_set_metadata(pdf.get(), CAIRO_PDF_METADATA_TITLE, title.c_str());
  {
    const Context context(cairo_create(pdf.get()), cairo_destroy);
    cairo_set_source_surface(context.get(), drawn.get(), 0, 0);
    cairo_paint(context.get());
    Check(cairo_status(context.get()));
  }
  cairo_surface_finish(pdf.get());
  Check(cairo_surface_status(pdf.get()));
  return file;
}

} // namespace

} // namespace kelvo

extern "C" const kelvo::SvgRenderer kelvo_svg_renderer;
const kelvo::SvgRenderer kelvo_svg_renderer = {kelvo::Widths, kelvo::Png, kelvo::Pdf};
