#pragma once

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// Whether a text, such as the name of a file, ends so.
bool EndsWith(std::string_view text, std::string_view end);

/// Returns the texts with a comma and a blank between them.
std::string Joined(const std::vector<std::string>& texts);

/// Returns a text for a terminal, which would obey control characters: each but the end of a line
/// becomes a question mark, also those of 0x80 to 0x9f in UTF-8.
std::string Printable(std::string_view text);

/// Returns whether a text has control characters, the end of a line included.
bool HasControls(std::string_view text);

/// Returns a text between quotation marks.
std::string Quoted(std::string_view text);

/// Returns a text as a value that TOML reads back: between quotation marks, with backslashes before
/// what may not stand there as it is.
std::string TomlText(std::string_view text);

/// Returns text from a file for a message: printable, between quotation marks, and cut where it is
/// long.
std::string Shown(std::string_view text);

/// Returns a number as people write it: six significant digits, without trailing zeros.
std::string NumberText(double value);

/// Appends a number with as few digits as give the same number when read again.
template <typename T>
void AppendNumber(std::string& text, T value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  text.append(digits, end);
}

/// Returns a number with as few digits as give the same number when read again.
inline std::string ExactNumber(double value) {
  std::string text;
  AppendNumber(text, value);
  return text;
}

} // namespace kelvo
