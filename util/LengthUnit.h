#pragma once

#include <array>
#include <string_view>

namespace kelvo {

/// A unit that lengths may be given in.
struct LengthUnit {
  const char* fName;
  double fTimes; // one of the two is 1, so that numbers are rounded once
  double fOver;

  /// Returns a length in cm.
  double ToCm(double length) const { return length * fTimes / fOver; }
};

constexpr std::array<LengthUnit, 4> kLengthUnits{
    {{"cm", 1, 1}, {"mm", 1, 10}, {"m", 100, 1}, {"um", 1, 1e4}}};

constexpr LengthUnit kCentimetre = kLengthUnits[0];

/// What messages call them.
constexpr const char* kLengthUnitNames = "cm, mm, m or um";

/// Returns the unit of a name, null for another name.
inline const LengthUnit* FindLengthUnit(std::string_view name) {
  for (const LengthUnit& unit : kLengthUnits)
    if (name == unit.fName) return &unit;
  return nullptr;
}

} // namespace kelvo
