#pragma once

namespace kelvo {

/// Mean energy loss per length of a charged particle in one material.
///
/// The tables hold the muon's mass stopping power at 90 kinetic energies from 10 keV to 10 TeV; in
/// between and beyond the ends it follows the power law of the interval. A particle of another mass
/// is looked up at the muon energy of the same beta gamma. docs/stopping-power.md has method and
/// sources.
///
/// An object points at constant data: construction allocates nothing, copies share the data, and
/// lookups may run on any number of threads.
class dEdxTable {
public:
  /// Selects a material by its exact name: "Scintillator", "PVC", "Steel", "Glue" or "Vacuum".
  /// The first ten unknown names of a process fall back to Vacuum with one warning line each on the
  /// standard error stream; every later one gives a table that returns 0. Throws nothing.
  /// @param material a valid string, not null
  explicit dEdxTable(const char* material);

  /// Returns the energy loss per length [GeV/cm], 0 for a table without data.
  /// Not guarded: T = 0 gives the limit of the first interval's power law (0, infinity or NaN), T
  /// between -2 M and 0 and a NaN give NaN.
  /// @param T kinetic energy [GeV]
  /// @param M mass [GeV]
  double operator()(double T, double M) const;

  /// Returns the mass stopping power [GeV cm2/g] from the given table, by log-log interpolation.
  /// @param T    kinetic energy [GeV]
  /// @param M    mass [GeV]
  /// @param t    n muon kinetic energies, increasing [GeV]
  /// @param dedx n stopping powers [MeV cm2/g]
  /// @param n    number of points, at least 2
  double Interp(double T, double M, const double* t, const double* dedx, unsigned int n) const;

  /// Returns beta gamma of a particle of kinetic energy T and mass M [GeV].
  double TtoBetaGamma(double T, double M) const;

  /// Returns the kinetic energy [GeV] of a particle of mass M [GeV] with beta gamma bg.
  double BetaGammaToT(double bg, double M) const;

  /// Points the object at the table of one material.
  void InitScintillator();
  void InitPVC();
  void InitGlue();
  void InitSteel();
  void InitVac();

private:
  friend class Path; // ranges out three particles at once

  /// Gives the losses [GeV/cm] of three particles, each in a table of its own: the same bits as by
  /// operator(), in less time, because the processor takes their roots side by side.
  static void Losses(const dEdxTable* tables, const double* T, const double* M, double* loss);

  /// Returns the loss [GeV/cm] of a particle with the beta gamma of a muon of kinetic energy x.
  double AtMuonEnergy(double x) const;

  void Select(const double* t, const double* dedx, unsigned int n, double density);

  unsigned int fN = 0;           ///< number of points: 90, 2 for Vacuum, 0 without data
  const double* fT = nullptr;    ///< fN muon kinetic energies [GeV]; not owned
  const double* fdEdx = nullptr; ///< fN stopping powers [MeV cm2/g]; not owned
  double fDensity = 0;           ///< density of the material [g/cm3]
};

} // namespace kelvo
