#pragma once

namespace matter {

/// Sternheimer's parametrisation of the density effect, by which a medium screens the field of a
/// fast particle: delta(X) of X = log10(beta gamma) is taken from the braces of the Bethe formula.
///
/// R. M. Sternheimer, M. J. Berger, S. M. Seltzer, At. Data Nucl. Data Tables 30 (1984) 261.
struct DensityEffect {
  double fC; ///< its magnitude: delta goes to 2 ln(beta gamma) - C
  double fX0;
  double fX1;
  double fA;
  double fM;
  double fDelta0; ///< of conductors, else 0

  /// Returns delta.
  /// @param x log10(beta gamma)
  double Delta(double x) const;

  /// Returns the parameters of the same medium with so many times its density: its delta is the one
  /// at beta gamma times the root of the ratio (equation 20 of the paper).
  DensityEffect AtDensityRatio(double ratio) const;
};

/// Returns parameters by the general rule of R. M. Sternheimer, R. F. Peierls, Phys. Rev. B 3
/// (1971) 3681, for a medium whose own are not published.
/// @param excitation   mean excitation energy [eV]
/// @param plasmaEnergy of the medium's electrons [eV]
/// @param isGas        whether the rule is that of gases, else that of condensed media
DensityEffect GeneralDensityEffect(double excitation, double plasmaEnergy, bool isGas);

} // namespace matter
