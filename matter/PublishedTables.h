#pragma once

#include "matter/DensityEffect.h"
#include "matter/Element.h"

#include <array>
#include <iterator>

// The published numbers as the sources of this folder read them: not installed.

namespace matter {

/// A row of the table of materials.
struct PublishedMaterial {
  struct Part {
    int fZ; ///< 0: no further part
    double fMassFraction;
  };

  const char* fName;
  double fDensity; ///< [g/cm3]
  bool fIsGas;
  double fI;         ///< mean excitation energy [eV]
  double fRadLength; ///< [g/cm2]
  DensityEffect fDensityEffect;
  std::array<Part, 10> fComposition;
};

/// A table of constants that a loop can run over.
template <typename Row>
struct Rows {
  const Row* fBegin;
  const Row* fEnd;
  const Row* begin() const { return fBegin; }
  const Row* end() const { return fEnd; }
};

Rows<Element> PublishedElements(); ///< Z = 1 to 98, in order
Rows<PublishedMaterial> PublishedMaterials();

} // namespace matter
