#pragma once

#include "matter/DensityEffect.h"
#include "matter/Element.h"

#include <string>
#include <utility>
#include <vector>

namespace matter {

/// What a material is made of, and the numbers that follow from it: all that energy loss and
/// scattering need to know.
///
///     auto gas = matter::Material::Named("Argon");
///     auto glue = matter::Material::OfFormula("glue", "C21H25ClO5", 1.2);
///     auto foam = matter::Material::OfMassFractions("foam", {{"C", 0.9}, {"H", 0.1}}, 0.05);
///
/// A value: copies are independent of each other. docs/materials.md has method and sources.
class Material {
public:
  /// A part of the mass.
  struct Part {
    const Element* fElement; ///< not null
    double fMassFraction;    ///< all of a material add up to 1
  };

  /// Returns a published material, one of MaterialNames() or by its everyday name, or one of those
  /// that kelvo::dEdxTable has a table of: "Scintillator", "PVC", "Glue", "Steel".
  /// @throws std::invalid_argument that suggests the nearest names
  static Material Named(const std::string& name);

  /// Returns a material of a chemical formula such as "SiO2" or "Ca(OH)2".
  /// @param density [g/cm3]
  /// @throws std::invalid_argument for a formula that cannot be read, an element that does not
  ///         exist, and a density that is not positive
  static Material OfFormula(const std::string& name, const std::string& formula, double density);

  /// Returns a material of elements by mass.
  /// @param fractions symbol and mass fraction of each element
  /// @param density   [g/cm3]
  /// @throws std::invalid_argument for an element that does not exist or comes twice, fractions
  ///         that are not positive or do not add up to 1 within 1%, and a density that is not
  ///         positive
  static Material OfMassFractions(const std::string& name,
                                  const std::vector<std::pair<std::string, double>>& fractions,
                                  double density);

  /// Replaces the density [g/cm3]: the density effect follows it.
  void SetDensity(double density);

  /// Replaces the mean excitation energy [eV], and with it the density effect by that of the
  /// general rule.
  void SetExcitation(double excitation);

  /// Replaces the radiation length [g/cm2].
  void SetRadLength(double radLength) { fRadLength = radLength; }

  const std::string& Name() const { return fName; }
  const std::vector<Part>& Parts() const { return fParts; } ///< by Z, each element once
  double Density() const { return fDensity; }               ///< [g/cm3]
  double Excitation() const { return fExcitation; }         ///< mean excitation energy I [eV]
  double RadLength() const { return fRadLength; }           ///< [g/cm2]
  const DensityEffect& GetDensityEffect() const { return fDensityEffect; }

  double MolesOfElectrons() const; ///< [mole/g]: the sum of w Z/A
  double PlasmaEnergy() const;     ///< of all electrons as if they were free [eV]
  bool IsGas() const;              ///< by its density: below 0.02 g/cm3

private:
  Material(std::string name, std::vector<Part> parts, double density);

  std::string fName;
  std::vector<Part> fParts;
  double fDensity;
  double fExcitation;
  double fRadLength;
  DensityEffect fDensityEffect;
};

/// Returns whether Material::Named knows a name.
bool IsKnown(const std::string& name);

/// Returns the names of the published materials, in the order of their table.
std::vector<std::string> MaterialNames();

/// Returns the everyday names of a published material, none for some.
std::vector<std::string> EverydayNames(const std::string& name);

/// Returns the mean excitation energy of a mixture [eV] by Bragg's rule, ln I = sum(w Z/A ln I_Z) /
/// sum(w Z/A).
double BraggExcitation(const std::vector<Material::Part>& parts);

/// Returns the radiation length of a mixture [g/cm2] from the radiation logarithms of Y. S. Tsai,
/// Rev. Mod. Phys. 46 (1974) 815, 1/X0 = sum(w/X0_Z).
double TsaiRadLength(const std::vector<Material::Part>& parts);

} // namespace matter
