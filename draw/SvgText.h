#pragma once

#include <string>

namespace kelvo {

/// Returns text with the characters that mean something in HTML and SVG replaced, quotes included,
/// so that it shows as it is in elements and attributes.
std::string Escaped(const std::string& text);

/// Returns text without control characters, which no SVG file may hold, and with U+FFFD in place of
/// bytes that are not UTF-8.
std::string Printable(const std::string& text);

/// The same for each line of a text, and lines stay lines.
std::string PrintableLines(const std::string& text);

/// Returns the width of a text (UTF-8) in Helvetica [size of the font]: the sum of its letters'
/// widths in Adobe's font metrics. Beyond ASCII, raised digits are taken as a third wide, signs of
/// East Asia as square and all others as wide as a digit.
double RelativeWidth(const std::string& text, bool bold);

} // namespace kelvo
