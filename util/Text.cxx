#include "util/Text.h"

#include <fmt/format.h>

namespace kelvo {

namespace {

constexpr std::size_t kLongestShown = 60; // characters

bool IsControl(char c) {
  return (c >= 0 && c < ' ') || c == '\x7f';
}

} // namespace

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string Joined(const std::vector<std::string>& texts) {
  return fmt::format(FMT_STRING("{}"), fmt::join(texts, ", "));
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
