#include "draw/ColourScale.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace kelvo {

namespace {

using Colour = std::array<int, 3>;

std::string Between(const Colour& none, const Colour& full, double fraction) {
  std::string text = "#";
  for (std::size_t i = 0; i < none.size(); i++)
    text +=
        fmt::format(FMT_STRING("{:02x}"), std::lround(none[i] + fraction * (full[i] - none[i])));
  return text;
}

} // namespace

std::string StepColour(int step) {
  const Colour full = step < 0 ? Colour{0x00, 0x72, 0xb2} : Colour{0xd5, 0x5e, 0x00};
  return Between({255, 255, 255}, full, std::abs(step) / static_cast<double>(kColourSteps));
}

std::string StepColourInDark(int step) {
  const Colour full = step < 0 ? Colour{0x4a, 0xa8, 0xe8} : Colour{0xff, 0x8a, 0x3d};
  return Between({0x1f, 0x22, 0x28}, full, std::abs(step) / static_cast<double>(kColourSteps));
}

} // namespace kelvo
