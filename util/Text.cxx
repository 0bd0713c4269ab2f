#include "util/Text.h"

#include <fmt/format.h>

namespace kelvo {

namespace {

constexpr std::size_t kLongestShown = 60; // characters

bool IsControl(char c) {
  return (c >= 0 && c < ' ') || c == '\x7f';
}

/// How many bytes of a control character there are at a place, 0 where it is another one.
std::size_t ControlAt(std::string_view text, std::size_t i) {
  const auto isOfTwo = [](unsigned char a, unsigned char b) { return a == 0xc2 && b >> 5 == 4; };
  if (IsControl(text[i])) return 1;
  return i + 1 < text.size() && isOfTwo(static_cast<unsigned char>(text[i]),
                                        static_cast<unsigned char>(text[i + 1]))
             ? 2
             : 0;
}

} // namespace

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string Joined(const std::vector<std::string>& texts) {
  return fmt::format(FMT_STRING("{}"), fmt::join(texts, ", "));
}

std::string Printable(std::string_view text) {
  std::string printable;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t bytes = text[i] == '\n' ? 0 : ControlAt(text, i);
    printable += bytes > 0 ? '?' : text[i];
    i += bytes > 0 ? bytes : 1;
  }
  return printable;
}

bool HasControls(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); i++)
    if (ControlAt(text, i) > 0) return true;
  return false;
}

std::string Quoted(std::string_view text) {
  return fmt::format(FMT_STRING("\"{}\""), text);
}

std::string TomlText(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (IsControl(c)) {
      escaped += fmt::format(FMT_STRING("\\u{:04X}"), c);
      continue;
    }
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return Quoted(escaped);
}

std::string Shown(std::string_view text) {
  std::string shown(text.substr(0, kLongestShown));
  for (char& c : shown)
    if (c < ' ' || c > '~') c = '?';
  return Quoted(text.size() > kLongestShown ? shown + "..." : shown);
}

std::string NumberText(double value) {
  return fmt::format(FMT_STRING("{:g}"), value);
}

} // namespace kelvo
