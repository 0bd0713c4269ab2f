#pragma once

#include <string>
#include <vector>

namespace kelvo {

/// A text in the plain or the bold font.
struct FontText {
  std::string fText; ///< not empty
  bool fBold;
};

/// What draws SVG: a library of its own, kelvo_drawn, which is loaded at its first use. So whoever
/// draws no PNG or PDF does not load librsvg and all that it needs, and can do without it.
struct SvgRenderer {
  /// Returns how wide texts come out in the fonts that the functions below find [size of the font].
  /// fonts: names in the order of preference, as SVG's attribute font-family has them. Throws
  /// std::runtime_error where no font is installed.
  std::vector<double> (*fWidths)(const std::string& fonts, const std::vector<FontText>& texts);

  /// Returns a picture as a PNG file, two dots per pixel for screens of high resolution. svg:
  /// without textLength, which librsvg leaves out; width, height [pixels]. Throws
  /// std::runtime_error.
  std::string (*fPng)(const std::string& svg, double width, double height);

  /// Returns a picture as a PDF file of one page, 96 pixels per inch. title: readers of PDF show
  /// it. Throws std::runtime_error.
  std::string (*fPdf)(const std::string& svg, double width, double height,
                      const std::string& title);
};

/// Returns what draws SVG here.
/// @throw std::runtime_error where it cannot be loaded: what is missing, and what to install
const SvgRenderer& GetSvgRenderer();

} // namespace kelvo
