// A text gives the same lines, plain and compressed, as splitting it at its line ends does; any
// compressed stream is read or refused with a FileError.
#include "io/FileError.h"
#include "io/TextLines.h"
#include "test/fuzz/FuzzFile.h"
#include "test/fuzz/FuzzInput.h"

#include <string_view>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

Lines LinesOf(const std::string& content) {
  const fuzz::File file(content);
  kelvo::TextLines lines(file.Bytes());
  Lines all;
  for (std::string_view line; lines.Next(line);) all.emplace_back(line);
  return all;
}

Lines Split(const std::string& text) {
  const std::size_t mark = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  Lines all;
  if (mark > 0 && text.size() == mark) all.emplace_back(); // a line all the same
  for (std::size_t at = mark; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const bool isWindows = end > at && text[end - 1] == '\r';
    all.push_back(text.substr(at, end - at - isWindows));
    at = end + 1;
  }
  return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.compare(0, 2, "\x1F\x8B") == 0) {
    try {
      LinesOf(text);
    } catch (const kelvo::FileError&) {
    }
    return 0;
  }
  const Lines expected = Split(text);
  fuzz::Expect(LinesOf(text) == expected, "the lines of a plain file");
  fuzz::Expect(LinesOf(fuzz::Gzip(text)) == expected, "the lines of a compressed file");
  return 0;
}
