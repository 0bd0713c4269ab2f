#pragma once

#include <string_view>

namespace matter {

/// A chemical element.
struct Element {
  int fZ;
  const char* fSymbol;
  const char* fName; ///< in English, such as "Iron"
  double fA;         ///< molar mass [g/mole]
  double fI;         ///< mean excitation energy [eV], ICRU Reports 37 and 49
};

/// Returns the element of a symbol, null where there is none of Z = 1 to 98.
const Element* FindElement(std::string_view symbol);

/// Returns the element of an atomic number, null where there is none.
const Element* FindElement(int z);

} // namespace matter
