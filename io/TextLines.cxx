#include "io/TextLines.h"

#include "io/FileError.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace kelvo {

namespace {

constexpr unsigned kChunk = 1 << 18;          // bytes asked for at a time
constexpr std::size_t kLongestLine = 1 << 20; // bytes

struct Damage {
  std::string fWhat;
};

} // namespace

/// The bytes of the text.
class TextLines::Input {
public:
  explicit Input(std::unique_ptr<InputBytes> bytes)
      : fBytes(std::move(bytes)), fIsCompressed(fBytes->BeginsWith("\x1f\x8b")) {
    constexpr int kGzip = 16;
    if (!fIsCompressed) return;
    fPacked.resize(kChunk);
    if (inflateInit2(&fStream, MAX_WBITS + kGzip) != Z_OK) throw std::bad_alloc();
  }
  ~Input() {
    if (fIsCompressed) inflateEnd(&fStream);
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  double Fraction() const { return fBytes->Fraction(); }

  /// Gives up to `size` bytes and returns how many, 0 at the end.
  std::size_t Read(char* buffer, std::size_t size) {
    if (!fIsCompressed) return fBytes->Read(buffer, size);
    fStream.next_out = reinterpret_cast<Bytef*>(buffer);
    fStream.avail_out = static_cast<uInt>(size);
    while (fStream.avail_out == size && !fAtEnd) Unpack();
    return size - fStream.avail_out;
  }

private:
  void Unpack() {
    if (fStream.avail_in == 0) Refill();
    if (fStream.avail_in == 0) {
      if (fIsInMember) throw Damage{"the compressed data end too early"};
      fAtEnd = true;
      return;
    }
    if (!fIsInMember) BeginMember();
    const int code = fAtEnd ? Z_OK : inflate(&fStream, Z_NO_FLUSH);
    if (code == Z_STREAM_END) {
      inflateReset(&fStream);
      fIsInMember = false;
    } else if (code != Z_OK && code != Z_BUF_ERROR) {
      throw Damage{fmt::format(FMT_STRING("the compressed data are damaged ({})"),
                               fStream.msg ? fStream.msg : zError(code))};
    }
  }

  /// What comes behind a member is another one, or the zeros with which some devices fill a file
  /// up.
  void BeginMember() {
    constexpr Bytef kFirstMagic = 0x1f;
    fIsInMember = *fStream.next_in == kFirstMagic;
    if (fIsInMember) return;
    while (fStream.avail_in > 0) {
      for (; fStream.avail_in > 0; fStream.avail_in--)
        if (*fStream.next_in++ != 0)
          throw Damage{"something that is not compressed follows the compressed data"};
      Refill();
    }
    fAtEnd = true;
  }

  void Refill() {
    fStream.next_in = reinterpret_cast<Bytef*>(fPacked.data());
    fStream.avail_in = static_cast<uInt>(fBytes->Read(fPacked.data(), fPacked.size()));
  }

  std::unique_ptr<InputBytes> fBytes;
  bool fIsCompressed;
  bool fIsInMember = false; // one file may hold several, one after the other
  bool fAtEnd = false;
  std::vector<char> fPacked;
  z_stream fStream{};
};

TextLines::TextLines(std::unique_ptr<InputBytes> bytes)
    : fFile(bytes->Name()),
      fInput(std::make_unique<Input>(std::move(bytes))),
      fBuffer(2 * std::size_t{kChunk}) {}

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
  try {
    const std::size_t read = fInput->Read(fBuffer.data() + fEnd, kChunk);
    fEnd += read;
    return read > 0;
  } catch (const Damage& damage) {
    throw FileError(fmt::format(FMT_STRING("{}: cannot be read on after line {}: {}"), fFile,
                                fNumber, damage.fWhat));
  }
}

double TextLines::Fraction() const {
  return fInput->Fraction();
}

} // namespace kelvo
