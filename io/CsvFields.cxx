#include "io/CsvFields.h"

namespace kelvo {

namespace {

constexpr char kMark = '"';

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

} // namespace

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool CsvFields::Split(std::string_view line) {
  fFields.clear();
  if (line.find(kMark) != std::string_view::npos) return SplitQuoted(line);
  for (;;) {
    const std::size_t comma = line.find(',');
    fFields.push_back(Trimmed(line.substr(0, comma)));
    if (comma == std::string_view::npos) return true;
    line.remove_prefix(comma + 1);
  }
}

bool CsvFields::SplitQuoted(std::string_view line) {
  fUnquoted.clear();
  fUnquoted.reserve(line.size()); // the fields stay where they are
  for (;;) {
    while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
    const bool quoted = !line.empty() && line.front() == kMark;
    if (quoted && !Unquote(line)) return false;
    const std::size_t comma = line.find(',');
    const std::string_view rest = Trimmed(line.substr(0, comma));
    if (quoted && !rest.empty()) return false;
    if (!quoted) fFields.push_back(rest);
    if (comma == std::string_view::npos) return true;
    line.remove_prefix(comma + 1);
  }
}

bool CsvFields::Unquote(std::string_view& line) {
  const std::size_t begin = fUnquoted.size();
  for (;;) {
    line.remove_prefix(1); // the opening mark, or the first of two
    const std::size_t mark = line.find(kMark);
    if (mark == std::string_view::npos) return false;
    fUnquoted += line.substr(0, mark);
    line.remove_prefix(mark + 1);
    if (line.empty() || line.front() != kMark) break;
    fUnquoted += kMark;
  }
  fFields.push_back(std::string_view(fUnquoted).substr(begin));
  return true;
}

} // namespace kelvo
