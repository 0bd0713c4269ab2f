#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace test {

/// The elements of a SVG picture.
class SvgShapes {
public:
  explicit SvgShapes(const std::string& svg) {
    std::string group; // the colour of the marks that follow
    for (std::size_t at = svg.find('<'); at != std::string::npos; at = svg.find('<', at + 1)) {
      const std::size_t end = svg.find('>', at);
      const std::string tag = svg.substr(at, end - at);
      const std::string name = tag.substr(1, tag.find_first_of(" \n/") - 1);
      if (name == "svg") fViewBox = Numbers(Attribute(tag, "viewBox"));
      if (name == "g") group = Colour(tag);
      if (tag == "</g") group.clear();
      if (name == "circle") fCircles.push_back({group, tag});
      if (name == "polygon") fPolygons.push_back({group, tag});
      if (name == "rect") fBoxes.push_back({Colour(tag), tag});
      if (name == "polyline") fLines.push_back({Colour(tag), tag});
      if (name == "text")
        fTexts.push_back({tag, svg.substr(end + 1, svg.find("</text>", end) - end - 1)});
    }
  }

  struct Shape {
    std::string fColour;
    std::string fTag;
  };
  struct Text {
    std::string fTag;
    std::string fContent;
  };

  static std::string Attribute(const std::string& tag, const std::string& name) {
    const std::size_t at = tag.find(' ' + name + "=\"");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + name.size() + 3;
    return tag.substr(begin, tag.find('"', begin) - begin);
  }
  static double Number(const std::string& tag, const std::string& name) {
    return std::atof(Attribute(tag, name).c_str());
  }
  static std::vector<double> Numbers(const std::string& text) {
    std::vector<double> numbers;
    const char* at = text.c_str();
    for (char* end = nullptr;; at = end) {
      const double number = std::strtod(at, &end);
      if (end == at) return numbers;
      numbers.push_back(number);
    }
  }
  static std::size_t Count(const std::vector<Shape>& shapes, const std::string& colour) {
    std::size_t count = 0;
    for (const Shape& shape : shapes) count += shape.fColour == colour;
    return count;
  }

  std::vector<double> fViewBox;
  std::vector<Shape> fCircles;
  std::vector<Shape> fPolygons;
  std::vector<Shape> fBoxes;
  std::vector<Shape> fLines;
  std::vector<Text> fTexts;

private:
  static std::string Colour(const std::string& tag) {
    const std::string fill = Attribute(tag, "fill");
    return fill.empty() || fill == "none" ? Attribute(tag, "stroke") : fill;
  }
};

/// Expects every text to be within the picture from its left end to its right one.
inline void ExpectTextsInside(const SvgShapes& svg) {
  EXPECT_FALSE(svg.fTexts.empty());
  for (const auto& text : svg.fTexts) {
    const double width = SvgShapes::Number(text.fTag, "textLength");
    const std::string anchor = SvgShapes::Attribute(text.fTag, "text-anchor");
    const double shift = anchor == "end" ? width : anchor == "middle" ? width / 2 : 0;
    const double x = SvgShapes::Number(text.fTag, "x") - shift;
    const double y = SvgShapes::Number(text.fTag, "y");
    EXPECT_GE(x, 0) << text.fContent;
    EXPECT_LE(x + width, svg.fViewBox.at(2)) << text.fContent;
    EXPECT_GE(y, 0) << text.fContent;
    EXPECT_LE(y, svg.fViewBox.at(3)) << text.fContent;
  }
}

} // namespace test
