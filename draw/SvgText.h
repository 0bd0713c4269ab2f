#pragma once

#include <string>

namespace kelvo {

/// Returns text with the characters that mean something in HTML and SVG replaced, quotes included,
/// so that it shows as it is in elements and attributes.
std::string Escaped(const std::string& text);

/// Returns text without control characters, which no SVG file may hold, and with U+FFFD in place of
/// bytes that are not UTF-8.
std::string Printable(const std::string& text);

/// Returns the width of a text in Helvetica [size of the font]. A canvas must be the current pad.
double RelativeWidth(const std::string& text, bool bold);

/// Makes ROOT's SVG fit for pages: an element of a size that follows the page's, smooth lines, and
/// texts as wide as ROOT measured them, whichever font the reader has in place of Helvetica.
/// The canvas must still be the current pad, to measure in.
/// @param width,height of the canvas [pixels]
/// @param title        read out to those who do not see the picture
/// @return the element svg alone, which can stand in a page
std::string MendedSvg(const std::string& svg, double width, double height,
                      const std::string& title);

} // namespace kelvo
