#pragma once

#include <TVector3.h>

#include <atomic>
#include <cstddef>
#include <vector>

class TGeoMaterial;

namespace geo {
class GeometryBase;
}

namespace kelvo {

/// The path of one track: a polyline from its start to the point where the particle stops.
///
/// Along it the class knows length, radiation lengths, and the kinetic energy that a muon, a pion
/// and a proton must have in order to stop at the last point (with a kinetic energy of 1% of the
/// mass left there): the stopping power is integrated backwards from that point.
///
/// The integration runs by itself on the first query after the points were set or changed, and
/// fills tables that the const queries then read. One object serves one thread at a time; after a
/// first query, or Integrate(), any number of threads may run const queries until a point changes.
/// The geometry is referred to, not owned, and must outlive the path.
///
/// Lengths and path coordinates are in cm, energies and masses in GeV, momenta in GeV/c. A path
/// coordinate s is the caller's: s0 at the first point.
class Path {
public:
  /// Makes a straight path of two points, three coordinates each [cm].
  /// @param s0 path coordinate of the first point [cm]
  Path(const geo::GeometryBase& geo, const double* p0, const double* p1, double s0);

  /// Makes a path of n points at the origin, to be set with SetPoint.
  Path(const geo::GeometryBase& geo, unsigned int n, double s0);

  /// Makes a path of the given points [cm], in their order.
  Path(const geo::GeometryBase& geo, const std::vector<TVector3>& x, double s0);

  /// Sets point i, which must be below the number of points, to three coordinates [cm].
  void SetPoint(unsigned int i, const double* xyz);

  /// Removes the first point whose squared distance to its predecessor is below eps [cm2]; returns
  /// whether one was removed. The first point stays, and a path of two points stays as it is.
  bool ScrubOne(double eps);

  /// Calls ScrubOne until nothing is removed; returns the number of points removed.
  unsigned int Scrub(double eps);

  /// Returns ys as a piecewise linear function of xs at x. Beyond either end the first or last
  /// interval is continued. A result between -0.05 and 0 is returned as 0.
  /// @param xs not decreasing, at least two entries
  /// @param ys as many entries as xs
  /// Throws kBadKE (value: the result) for a result of -0.05 or below, whatever table is read; kNaN
  /// (value x) where x is NaN; kIndexProblem (value 0) for fewer than two entries.
  static double Interp(double x, const std::vector<double>& xs, const std::vector<double>& ys);

  /// Rebuilds the tables from the points. Queries call it when needed.
  /// Throws kBadRadLength (value: the radiation length) for a material other than "Vacuum" without
  /// a positive radiation length; the path then counts as not integrated.
  void Integrate() const;

  /// Integrates the straight leg from p0 to p1 (three coordinates each [cm]), p0 being the end
  /// where the particle is slower, and appends one entry per material step to the tables; the next
  /// Integrate drops them. The five running totals are read and advanced. Public for callers that
  /// sum up legs of their own.
  /// @param s   length [cm]
  /// @param nx0 radiation lengths
  /// @param Tmu,Tpi,Tp kinetic energy of muon, pion and proton [GeV]
  /// Throws kBadRadLength as Integrate does.
  void IntegrateLeg(const double* p0, const double* p1, double* s, double* nx0, double* Tmu,
                    double* Tpi, double* Tp) const;

  /// Returns the kinetic energy [GeV] upstream of a length ds [cm] of material, given T0 [GeV]
  /// downstream of it, for a mass m [GeV]. Midpoint rule, with 2^k steps of at most 10 cm each.
  double IntegrateT(double ds, const char* material, double m, double T0) const;

  /// Gives the kinematics of a particle of kinetic energy T and mass m [GeV]. Each output may be
  /// null. An energy between -1e-5 and 0 counts as 0.
  /// @param Tout kinetic energy [GeV]
  /// @param p    momentum [GeV/c]
  /// @param beta velocity in units of c
  /// @param gamma Lorentz factor
  /// Throws kBadKE (value T) for T of -1e-5 GeV or below.
  static void TPBG(double T, double m, double* Tout, double* p, double* beta, double* gamma);

  /// Returns the radiation lengths from the first point to path coordinate s.
  /// Throws what Integrate and Interp throw.
  double X0(double s) const;

  /// Returns the length of the path [cm]: the sum of the geometry's steps. 0 where there are none.
  /// Throws what Integrate throws.
  double Length() const;

  /// Returns the unit direction at path coordinate s; (0, 0, 1) outside of the path. The index of
  /// the material step that holds s selects the leg; beyond the legs it is the last one.
  /// Throws kTrackingFailure (value 0) where that leg has no length, and what Integrate throws.
  TVector3 Dir(double s);

  /// Give kinetic energy [GeV], momentum [GeV/c], velocity and Lorentz factor at path coordinate s
  /// under one hypothesis. Each output may be null. In a sequence of queries at neighbouring s each
  /// takes constant time.
  /// Throw what Integrate and Interp throw.
  void MuonParams(double s, double* T, double* p, double* beta, double* gamma) const;
  void PionParams(double s, double* T, double* p, double* beta, double* gamma) const;
  void ProtonParams(double s, double* T, double* p, double* beta, double* gamma) const;

private:
  /// Interval of the last lookup. Every value leads to the same result, so threads that query one
  /// path may overwrite each other's.
  struct Hint {
    Hint() = default;
    Hint(const Hint& other) noexcept : fInterval(other.fInterval.load(std::memory_order_relaxed)) {}
    std::atomic<std::size_t> fInterval{0};
  };

  /// Does what IntegrateT does for muon, pion and proton at once, replacing their energies T [GeV].
  static void IntegrateStep(double ds, const char* material, double* T);

  double Lookup(double s, const std::vector<double>& ys) const;

  const geo::GeometryBase& fGeo;
  std::vector<TVector3> fX;           ///< the points [cm]
  double fS0;                         ///< path coordinate of the first point [cm]
  mutable bool fIsIntegrated;         ///< whether the tables match the points
  mutable std::vector<double> fS;     ///< length from the first point to each boundary [cm]
  mutable std::vector<double> fX0;    ///< radiation lengths likewise
  mutable std::vector<double> fTmu;   ///< kinetic energy of a muon at each boundary [GeV]
  mutable std::vector<double> fTpi;   ///< of a pion
  mutable std::vector<double> fTp;    ///< of a proton
  mutable Hint fHint;                 ///< where the next lookup starts
  mutable std::vector<double> fSteps; ///< scratch: steps of one leg [cm]
  mutable std::vector<const TGeoMaterial*> fMaterials; ///< scratch: their materials
};

} // namespace kelvo
