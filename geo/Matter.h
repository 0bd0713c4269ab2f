#pragma once

#include "geo/OwnMaterial.h"
#include "matter/Material.h"

#include <TGeoMaterial.h>

#include <optional>
#include <utility>

namespace geo {

/// Name of the one material that takes no energy and does not scatter.
inline constexpr const char* kVacuum = "Vacuum";

/// A material of a detector that knows what it is made of.
class MaterialOfMatter : public TGeoMaterial {
public:
  /// @param name   of the material in its detector
  /// @param a,z    atomic mass [g/mole] and number, 0 where none were given
  /// @param radLen radiation length [cm]
  MaterialOfMatter(const char* name, double a, double z, double radLen, matter::Material matter)
      : TGeoMaterial(name, a, z, matter.Density(), -radLen, GivenIntLen(a, z, matter.Density())),
        fMatter(std::move(matter)) {}

  const matter::Material& Matter() const { return fMatter; }

private:
  matter::Material fMatter;
};

/// Returns what a material is made of, nothing where that is not known: as its detector has it
/// (MaterialOfMatter), else by its name, if that is a published one, else by the elements of a
/// mixture of ROOT's geometry package, else by its atomic number. Density and radiation length are
/// those of the record.
std::optional<matter::Material> MatterOf(const TGeoMaterial& material);

} // namespace geo
