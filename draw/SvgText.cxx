#include "draw/SvgText.h"

#include <cstddef>

namespace kelvo {

namespace {

// Widths of the letters from the space to the tilde [size of the font / 1000], of Helvetica and of
// Helvetica Bold (Adobe, Core 14 AFM files, 1997).
constexpr int kWidths[2][95] = {
    {278,  278, 355, 556, 556, 889, 667, 191, 333, 333, 389, 584, 278, 333, 278, 278,
     556,  556, 556, 556, 556, 556, 556, 556, 556, 556, 278, 278, 584, 584, 584, 556,
     1015, 667, 667, 722, 722, 667, 611, 778, 722, 278, 500, 667, 556, 833, 722, 778,
     667,  778, 722, 667, 611, 722, 667, 944, 667, 667, 611, 278, 278, 278, 469, 556,
     333,  556, 556, 500, 556, 556, 278, 556, 556, 222, 222, 500, 222, 833, 556, 556,
     556,  556, 333, 500, 278, 556, 500, 722, 500, 500, 500, 334, 260, 334, 584},
    {278, 333, 474, 556, 556, 889, 722, 238, 333, 333, 389, 584, 278, 333, 278, 278,
     556, 556, 556, 556, 556, 556, 556, 556, 556, 556, 333, 333, 584, 584, 584, 611,
     975, 722, 722, 722, 722, 667, 611, 778, 722, 278, 556, 722, 611, 833, 722, 778,
     667, 778, 722, 667, 611, 722, 667, 944, 667, 667, 611, 333, 278, 333, 584, 556,
     333, 556, 611, 556, 611, 556, 333, 611, 611, 278, 278, 556, 278, 889, 611, 611,
     611, 611, 389, 556, 333, 611, 556, 778, 556, 556, 500, 389, 280, 389, 584}};

constexpr char32_t kReplacement = 0xfffd;

// A code point and how many bytes it takes; what is not UTF-8, or what no XML file may hold, is one
// byte long and the sign of replacement.
struct Letter {
  char32_t fCode;
  std::size_t fBytes;
};

bool IsAllowed(char32_t code, std::size_t bytes) {
  constexpr char32_t kFirst[] = {0, 0x80, 0x800, 0x10000}; // that need so many bytes
  const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
  return code >= kFirst[bytes - 1] && code <= 0x10ffff && !isSurrogate && code != 0xfffe &&
         code != 0xffff;
}

Letter LetterAt(const std::string& text, std::size_t i) {
  const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char first = byte(i);
  if (first < 0x80) return {first, 1};
  const std::size_t bytes = first < 0xc0 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (bytes == 0 || first >= 0xf8 || i + bytes > text.size()) return {kReplacement, 1};
  char32_t code = first & (0xff >> (bytes + 1));
  for (std::size_t k = 1; k < bytes; k++) {
    if ((byte(i + k) & 0xc0) != 0x80) return {kReplacement, 1};
    code = code << 6 | (byte(i + k) & 0x3f);
  }
  if (!IsAllowed(code, bytes)) return {kReplacement, 1};
  return {code, bytes};
}

bool IsRaised(char32_t code) {
  return code == 0xb9 || code == 0xb2 || code == 0xb3 || (code >= 0x2070 && code <= 0x207f);
}

// Blocks of the Unicode standard whose signs are as wide as high (UAX 11, East Asian Width).
bool IsSquare(char32_t code) {
  return (code >= 0x1100 && code <= 0x115f) || (code >= 0x2e80 && code <= 0xa4cf) ||
         (code >= 0xac00 && code <= 0xd7a3) || (code >= 0xf900 && code <= 0xfaff) ||
         (code >= 0xff01 && code <= 0xff60) || (code >= 0x1f300 && code <= 0x1faff) ||
         (code >= 0x20000 && code <= 0x3fffd);
}

// [size of the font / 1000]
int WidthOf(char32_t code, bool bold) {
  const auto& widths = kWidths[bold ? 1 : 0];
  if (code >= ' ' && code <= '~') return widths[code - ' '];
  if (IsRaised(code)) return 333;
  return IsSquare(code) ? 1000 : widths['0' - ' '];
}

} // namespace

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) switch (c) {
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  return escaped;
}

std::string Printable(const std::string& text) {
  std::string printable;
  for (std::size_t i = 0; i < text.size();) {
    const Letter letter = LetterAt(text, i);
    if (letter.fCode == kReplacement)
      printable += "\xef\xbf\xbd";
    else if (letter.fCode < ' ' || letter.fCode == 0x7f)
      printable += ' ';
    else
      printable.append(text, i, letter.fBytes);
    i += letter.fBytes;
  }
  return printable;
}

std::string PrintableLines(const std::string& text) {
  std::string lines;
  std::size_t begin = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    lines += Printable(text.substr(begin, end - begin)) + '\n';
    begin = end + 1;
  }
  return lines + Printable(text.substr(begin));
}

double RelativeWidth(const std::string& text, bool bold) {
  int width = 0;
  for (std::size_t i = 0; i < text.size();) {
    const Letter letter = LetterAt(text, i);
    width += WidthOf(letter.fCode, bold);
    i += letter.fBytes;
  }
  return width / 1000.;
}

} // namespace kelvo
