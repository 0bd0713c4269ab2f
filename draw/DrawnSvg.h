#pragma once

#include <string>
#include <vector>

namespace kelvo {

#ifdef KELVO_HAS_RSVG
constexpr bool kDrawsSvg = true;
#else
constexpr bool kDrawsSvg = false; ///< the functions below then only throw
#endif

/// A text in the plain or the bold font.
struct FontText {
  std::string fText; ///< not empty
  bool fBold;
};

/// Returns how wide texts come out in the fonts that the functions below find [size of the font].
/// @param fonts names in the order of preference, as SVG's attribute font-family has them
/// @throw std::runtime_error where no font is installed
std::vector<double> DrawnWidths(const std::string& fonts, const std::vector<FontText>& texts);

/// Returns a picture as a PNG file, two dots per pixel for screens of high resolution.
/// @param svg          without textLength, which librsvg leaves out
/// @param width,height [pixels]
/// @throw std::runtime_error
std::string PngOfSvg(const std::string& svg, double width, double height);

/// Returns a picture as a PDF file of one page, 96 pixels per inch.
/// @param title readers of PDF show it
/// @throw std::runtime_error
std::string PdfOfSvg(const std::string& svg, double width, double height, const std::string& title);

} // namespace kelvo
