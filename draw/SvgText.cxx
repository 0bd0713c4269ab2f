#include "draw/SvgText.h"

#include <TText.h>
#include <TVirtualPad.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace kelvo {

namespace {

constexpr const char* kFonts =
    "Helvetica, Arial, 'Liberation Sans', 'Nimbus Sans', Arimo, Roboto, sans-serif";

std::string Attribute(const std::string& tag, const std::string& name) {
  const std::size_t at = tag.find(' ' + name + "=\"");
  if (at == std::string::npos) return "";
  const std::size_t begin = at + name.size() + 3;
  return tag.substr(begin, tag.find('"', begin) - begin);
}

// Replaces all of one text by another.
void Replace(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

std::string Unescaped(std::string text) {
  for (const auto& [from, to] : std::map<std::string, std::string>{
           {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}})
    Replace(text, from, to);
  Replace(text, "&amp;", "&");
  return text;
}

// One element text, from "<text " to before "</text>".
std::string MendedText(const std::string& element) {
  const std::size_t end = element.find('>');
  std::string tag = element.substr(0, end);
  std::string content = element.substr(end + 1);
  while (!content.empty() && content.back() == '\n') content.pop_back();
  Replace(tag, "font-family=\"Helvetica\"", std::string("font-family=\"") + kFonts + '"');
  const std::string plain = Unescaped(content);
  if (plain.size() > 1) {
    const double size = std::atof(Attribute(tag, "font-size").c_str());
    const bool bold = !Attribute(tag, "font-weight").empty();
    char length[64];
    std::snprintf(length, sizeof length, " textLength=\"%.2f\" lengthAdjust=\"spacingAndGlyphs\"",
                  size * RelativeWidth(plain, bold));
    tag += length;
  }
  return tag + '>' + content;
}

std::string MendedTexts(const std::string& svg) {
  const std::string begin = "<text ";
  const std::string end = "</text>";
  std::string mended;
  std::size_t done = 0;
  for (std::size_t at = svg.find(begin); at != std::string::npos; at = svg.find(begin, done)) {
    const std::size_t stop = svg.find(end, at);
    if (stop == std::string::npos) break;
    mended += svg.substr(done, at - done) + MendedText(svg.substr(at, stop - at));
    done = stop;
  }
  return mended + svg.substr(done);
}

std::string Head(const std::string& tag, double width, double height, const std::string& title) {
  char text[512];
  std::snprintf(text, sizeof text,
                "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"%s\" width=\"%g\" "
                "height=\"%g\" style=\"max-width:100%%;height:auto\" role=\"img\">\n",
                Attribute(tag, "viewBox").c_str(), width, height);
  return text + ("<title>" + Escaped(Printable(title)) + "</title>\n");
}

// The length of the UTF-8 sequence that begins at i, 0 where there is none.
std::size_t SequenceLength(const std::string& text, std::size_t i) {
  const auto byte = static_cast<unsigned char>(text[i]);
  const std::size_t length = byte < 0x80                   ? 1
                             : byte >= 0xc2 && byte < 0xe0 ? 2
                             : byte >= 0xe0 && byte < 0xf0 ? 3
                             : byte >= 0xf0 && byte < 0xf5 ? 4
                                                           : 0;
  if (length == 0 || i + length > text.size()) return 0;
  for (std::size_t k = 1; k < length; ++k)
    if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80) return 0;
  return length;
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
    const std::size_t length = SequenceLength(text, i);
    if (length == 0)
      printable += "\xef\xbf\xbd";
    else if (length == 1 && (text[i] < ' ' || text[i] == 0x7f))
      printable += ' ';
    else
      printable.append(text, i, length);
    i += std::max<std::size_t>(length, 1);
  }
  return printable;
}

namespace {

// ROOT measures bytes: a letter about as wide stands for each sign beyond ASCII.
std::string ForMeasuring(const std::string& text) {
  std::string measured;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = std::max<std::size_t>(SequenceLength(text, i), 1);
    const std::string sign = text.substr(i, length);
    const bool raised = sign == "²" || sign == "³" || sign == "¹" || sign.rfind("\xe2\x81", 0) == 0;
    if (length == 1)
      measured += sign;
    else
      measured += raised ? 'r' : 'n';
    i += length;
  }
  return measured;
}

} // namespace

// ROOT's unit of measurement depends on the canvas; the letter m, 833 thousandths wide in the plain
// font and 889 in the bold one, gives the scale (Adobe font metrics of Helvetica).
double RelativeWidth(const std::string& text, bool bold) {
  constexpr double kPixels = 200; // widths of letters are rounded to whole ones
  const auto size = static_cast<float>(kPixels / std::min(gPad->GetWw(), gPad->GetWh()));
  const auto width = [bold, size](const std::string& measured) {
    TText object(0, 0, "");
    object.SetTextFont(bold ? 62 : 42);
    object.SetTextSize(size);
    unsigned w = 0;
    unsigned h = 0;
    // Between bars, since ROOT leaves out what is empty at both ends.
    object.GetTextExtent(w, h, ('|' + measured + '|').c_str());
    return static_cast<double>(w);
  };
  const double bars = width("");
  return (bold ? 8.89 : 8.33) * (width(ForMeasuring(text)) - bars) / (width("mmmmmmmmmm") - bars);
}

std::string MendedSvg(const std::string& svg, double width, double height,
                      const std::string& title) {
  const std::size_t begin = svg.find("<svg ");
  const std::size_t end = svg.find("</defs>");
  const std::size_t tagEnd = svg.find('>', begin);
  const std::string head = Head(svg.substr(begin, tagEnd - begin), width, height, title);
  const std::size_t last = svg.find_last_not_of(" \n");
  return head + MendedTexts(svg.substr(end + 7, last + 1 - (end + 7)));
}

} // namespace kelvo
