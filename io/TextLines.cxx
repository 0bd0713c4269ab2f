#include "io/TextLines.h"

#include "io/FileError.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace kelvo {

namespace {

constexpr unsigned kChunk = 1 << 18;          // bytes asked for at a time
constexpr std::size_t kLongestLine = 1 << 20; // bytes

std::string Reason(gzFile file) {
  int code = Z_OK;
  const char* text = gzerror(file, &code);
  if (code == Z_ERRNO) return std::strerror(errno);
  if (code == Z_BUF_ERROR) return "the compressed data end too early";
  return fmt::format(FMT_STRING("the compressed data are damaged ({})"), text);
}

} // namespace

struct TextLines::Input {
  gzFile fFile = nullptr;
  double fSize = 0; // bytes on disk, 0: unknown
  ~Input() {
    if (fFile) gzclose(fFile);
  }
};

TextLines::TextLines(const std::string& file)
    : fFile(file), fInput(std::make_unique<Input>()), fBuffer(2 * std::size_t{kChunk}) {
  std::error_code error;
  if (std::filesystem::is_directory(file, error))
    throw FileError(file + ": is a folder, a file of hits is expected");
  errno = 0;
  fInput->fFile = gzopen(file.c_str(), "rb");
  if (!fInput->fFile)
    throw FileError(fmt::format(FMT_STRING("{}: cannot be opened: {}"), file,
                                std::strerror(errno ? errno : ENOMEM)));
  gzbuffer(fInput->fFile, kChunk);
  const auto size = std::filesystem::file_size(file, error);
  if (!error) fInput->fSize = static_cast<double>(size);
}

TextLines::TextLines(TextLines&&) noexcept = default;
TextLines::~TextLines() = default;

bool TextLines::Next(std::string_view& line) {
  std::size_t searched = 0; // bytes of the line known to hold no line end
  for (;;) {
    const char* begin = fBuffer.data() + fBegin;
    const std::size_t size = fEnd - fBegin;
    const void* newline =
        size > searched ? std::memchr(begin + searched, '\n', size - searched) : nullptr;
    if (newline) {
      const auto length = static_cast<std::size_t>(static_cast<const char*>(newline) - begin);
      line = {begin, length};
      fBegin += length + 1;
      break;
    }
    if (fAtEnd && size == 0) return false;
    if (fAtEnd) {
      line = {begin, size};
      fBegin = fEnd;
      break;
    }
    if (size > kLongestLine)
      throw FileError(
          fmt::format(FMT_STRING("{}, line {}: longer than 1 MiB; this is not a table of hits"),
                      fFile, fNumber + 1));
    searched = size;
    fAtEnd = !Fill();
  }
  fNumber++;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (fNumber == 1 && line.substr(0, 3) == kByteOrderMark) line.remove_prefix(3);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return true;
}

bool TextLines::Fill() {
  std::copy(fBuffer.begin() + static_cast<std::ptrdiff_t>(fBegin),
            fBuffer.begin() + static_cast<std::ptrdiff_t>(fEnd), fBuffer.begin());
  fEnd -= fBegin;
  fBegin = 0;
  if (fBuffer.size() < fEnd + kChunk) fBuffer.resize(fEnd + kChunk);
  errno = 0;
  const int read = gzread(fInput->fFile, fBuffer.data() + fEnd, kChunk);
  int code = Z_OK;
  gzerror(fInput->fFile, &code);
  if (read < 0 || (read == 0 && code != Z_OK && code != Z_STREAM_END))
    throw FileError(fmt::format(FMT_STRING("{}: cannot be read on after line {}: {}"), fFile,
                                fNumber, Reason(fInput->fFile)));
  fEnd += static_cast<std::size_t>(read);
  return read > 0;
}

double TextLines::Fraction() const {
  if (fInput->fSize == 0) return 0;
  return std::min(1.0, static_cast<double>(gzoffset(fInput->fFile)) / fInput->fSize);
}

} // namespace kelvo
