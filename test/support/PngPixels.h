#pragma once

#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace test {

/// The dots of a PNG file.
class PngPixels {
public:
  explicit PngPixels(const std::string& file)
      : fSurface(cairo_image_surface_create_from_png(file.c_str())) {
    EXPECT_EQ(cairo_surface_status(fSurface), CAIRO_STATUS_SUCCESS) << file;
  }
  ~PngPixels() { cairo_surface_destroy(fSurface); }
  PngPixels(const PngPixels&) = delete;
  PngPixels& operator=(const PngPixels&) = delete;

  int Width() const { return cairo_image_surface_get_width(fSurface); }
  int Height() const { return cairo_image_surface_get_height(fSurface); }

  /// Returns red, green or blue (2, 1, 0), 0 to 255, of a dot.
  int Colour(int x, int y, int channel) const {
    const unsigned char* row =
        cairo_image_surface_get_data(fSurface) +
        static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(fSurface);
    std::uint32_t dot = 0;
    std::memcpy(&dot, row + 4 * static_cast<std::ptrdiff_t>(x), sizeof dot);
    return static_cast<int>(dot >> (8 * channel)) & 0xff;
  }

  bool IsDark(int x, int y) const { return Colour(x, y, 1) < 0x80; }

  /// Returns the mean of a colour over a square.
  double Mean(int left, int top, int size, int channel) const {
    double sum = 0;
    for (int y = top; y < top + size; y++)
      for (int x = left; x < left + size; x++) sum += Colour(x, y, channel);
    return sum / size / size;
  }

private:
  cairo_surface_t* fSurface;
};

} // namespace test
