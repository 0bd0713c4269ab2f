#pragma once

#include <TNamed.h>

#include <cmath>
#include <cstddef>
#include <vector>

/// Material record with the interface of the class of the same name in ROOT's geometry package,
/// for a ROOT that comes without that package. Limited to what a material is: name, atomic mass
/// and number, density, radiation and interaction length.
class TGeoMaterial : public TNamed {
public:
  /// @param name    name of the material
  /// @param a       atomic mass [g/mole]
  /// @param z       atomic number
  /// @param density density [g/cm3]
  /// @param radlen  radiation length, see SetRadLen()
  /// @param intlen  interaction length, see SetRadLen()
  TGeoMaterial(const char* name, double a, double z, double density, double radlen = 0,
               double intlen = 0)
      : TNamed(name, ""), fA(a), fZ(z), fDensity(density) {
    SetRadLen(radlen, intlen);
  }
  TGeoMaterial(const TGeoMaterial&) = delete;
  TGeoMaterial& operator=(const TGeoMaterial&) = delete;

  virtual double GetA() const { return fA; }             ///< atomic mass [g/mole]
  virtual double GetZ() const { return fZ; }             ///< atomic number
  virtual double GetDensity() const { return fDensity; } ///< density [g/cm3]
  virtual double GetRadLen() const { return fRadLen; }   ///< radiation length [cm]
  virtual double GetIntLen() const { return fIntLen; }   ///< interaction length [cm]

  /// Sets radiation and interaction length. A negative value means: take its magnitude [cm].
  /// Zero or a positive value means: compute it from A, Z and density, whatever the value.
  /// For A or Z below 1 (vacuum) a computed length is 1e30 cm. Formulas: radiation length from
  /// Y.S. Tsai's fit, Rev. Mod. Phys. 46 (1974) 815, in the approximation
  /// X0 = 1/(alpha r_e^2 4 N_A rho/A Z (Z + xi) (ln(183 Z^-1/3) - f_c)); nuclear interaction
  /// length 35 g/cm2 A^(1/3).
  void SetRadLen(double radlen, double intlen = 0) {
    fRadLen = radlen < 0 ? -radlen : ComputedRadLen();
    fIntLen = intlen < 0 ? -intlen : ComputedIntLen();
  }

private:
  static constexpr double kLong = 1e30; // cm; what "does not interact" is reported as

  bool IsVacuum() const { return fA < 0.9 || fZ < 0.9; }

  double ComputedRadLen() const {
    if (IsVacuum()) return kLong;
    constexpr double kAlphaRe2Na4 = 4 * 6.02214076e23 * 7.940787e-26 / 137.035999; // cm2/mole
    return fA / (kAlphaRe2Na4 * fDensity * fZ * (fZ + Xi()) *
                 (std::log(183. / std::cbrt(fZ)) - CoulombCorrection()));
  }

  double ComputedIntLen() const { return IsVacuum() ? kLong : 35. * std::cbrt(fA) / fDensity; }

  /// Contribution of the atomic electrons.
  double Xi() const {
    return std::log(1440. / std::pow(fZ, 2. / 3.)) /
           (std::log(183. / std::cbrt(fZ)) - CoulombCorrection());
  }

  double CoulombCorrection() const {
    const double a = fZ / 137.035999 * (fZ / 137.035999);
    return a * (1 / (1 + a) + 0.20206 - 0.0369 * a + 0.0083 * a * a - 0.002 * a * a * a);
  }

protected:
  double fA;
  double fZ;
  double fDensity;
  double fRadLen = 0;
  double fIntLen = 0;
};

/// Material of several elements, with the interface of ROOT's class of the same name. Atomic mass
/// and number are means by mass; both lengths are those of these means.
class TGeoMixture : public TGeoMaterial {
public:
  /// @param nel number of elements that will be added, a hint
  /// @param rho density [g/cm3]
  TGeoMixture(const char* name, int nel, double rho) : TGeoMaterial(name, 0, 0, rho) {
    for (std::vector<double>* column : {&fAmixture, &fZmixture, &fWeights})
      column->reserve(static_cast<std::size_t>(nel));
  }

  /// Adds an element.
  /// @param a      atomic mass [g/mole]
  /// @param z      atomic number
  /// @param weight fraction of the mass
  void AddElement(double a, double z, double weight) {
    fAmixture.push_back(a);
    fZmixture.push_back(z);
    fWeights.push_back(weight);
    fA += weight * a;
    fZ += weight * z;
    SetRadLen(0);
  }

  int GetNelements() const { return static_cast<int>(fWeights.size()); }
  // As in ROOT, a mixture that does not change gives its numbers to be changed.
  double* GetAmixt() const { return fAmixture.data(); } ///< by element, as are the other two
  double* GetZmixt() const { return fZmixture.data(); }
  double* GetWmixt() const { return fWeights.data(); }

private:
  mutable std::vector<double> fAmixture, fZmixture, fWeights;
};
