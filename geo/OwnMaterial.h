#pragma once

#include <TGeoMaterial.h>

#if __has_include(<TGeoManager.h>)
#include <TGeoManager.h>
#include <TList.h>
#endif

#include <cmath>

namespace geo {

/// Keeps a new material with its maker. ROOT's geometry manager, where there is one, takes every
/// new material for its own and would delete it once more at the end of the program. To be called
/// right after the material is made.
inline void KeepFromManager([[maybe_unused]] TGeoMaterial& material) {
#if __has_include(<TGeoManager.h>)
  if (gGeoManager) gGeoManager->GetListOfMaterials()->Remove(&material);
#endif
}

/// A material, or a mixture, that belongs to whoever makes it, such as a variable.
template <typename Record = TGeoMaterial>
struct Own final : Record {
  template <typename... Arguments>
  explicit Own(const Arguments&... arguments) : Record(arguments...) {
    KeepFromManager(*this);
  }
};

/// Returns minus the nuclear interaction length [cm], 35 g/cm2 A^(1/3), as the constructor of
/// TGeoMaterial takes a given one; 0 for vacuum, A or Z below 1, of which ROOT takes none. Where
/// both lengths are given ROOT computes none, for which it would ask a geometry manager that need
/// not be there yet.
/// @param a,z     atomic mass [g/mole] and number
/// @param density [g/cm3]
inline double GivenIntLen(double a, double z, double density) {
  constexpr double kAtomic = 0.9; // what ROOT takes for vacuum lies below
  return a < kAtomic || z < kAtomic ? 0 : -35 * std::cbrt(a) / density;
}

} // namespace geo
