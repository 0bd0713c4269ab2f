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

void CsvFields::FindSeparator(std::string_view line) {
  for (const char separator : {'\t', ';', ','})
    if (line.find(separator) != std::string_view::npos) fSeparator = separator;
}

bool CsvFields::IsBlankHere(char c) const {
  return IsBlank(c) && c != fSeparator;
}

bool CsvFields::Split(std::string_view line) {
  fFields.clear();
  if (line.find(kMark) != std::string_view::npos) return SplitQuoted(line);
  for (;;) {
    const std::size_t end = line.find(fSeparator);
    fFields.push_back(Trimmed(line.substr(0, end)));
    if (end == std::string_view::npos) return true;
    line.remove_prefix(end + 1);
  }
}

bool CsvFields::SplitQuoted(std::string_view line) {
  fUnquoted.clear();
  fUnquoted.reserve(line.size()); // the fields stay where they are
  for (;;) {
    while (!line.empty() && IsBlankHere(line.front())) line.remove_prefix(1);
    const bool quoted = !line.empty() && line.front() == kMark;
    if (quoted && !Unquote(line)) return false;
    const std::size_t end = line.find(fSeparator);
    const std::string_view rest = Trimmed(line.substr(0, end));
    if (quoted && !rest.empty()) return false;
    if (!quoted) fFields.push_back(rest);
    if (end == std::string_view::npos) return true;
    line.remove_prefix(end + 1);
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
