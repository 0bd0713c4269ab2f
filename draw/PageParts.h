#pragma once

#include <string>

namespace kelvo {

/// Returns the beginning of a page up to and with the tag body: styles for light, dark and print,
/// in which pictures are dark where the page is. The page lets the browser load nothing, and run no
/// script but that of PageEnd().
/// @param title text, which is escaped
/// @param fits  the name of the file of fits, which the script writes into commands
std::string PageHead(const std::string& title, const std::string& fits);

/// Returns the end of a page, with a script that shows the tracks of a bin that is clicked, and
/// that zooms and moves pictures in figures of the class "zoom".
std::string PageEnd();

/// Returns buttons for the figures of the class "zoom".
std::string ZoomButtons();

/// Returns text for a page: printable and escaped.
std::string Safe(const std::string& text);

/// Stores a page as a whole file.
/// @throw FileError where it cannot be written
void SavePage(const std::string& file, const std::string& html);

} // namespace kelvo
