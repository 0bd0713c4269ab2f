#pragma once

#include "fit/KinkSmoother.h"
#include "func/HitList3D.h"
#include "func/Lutz.h"
#include "func/Path.h"
#include "func/TrackBasis.h"
#include "func/dEdxTable.h"
#include "io/HitColumns.h"
#include "track/TrackFit.h"
#include "track/TrackFitter.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <string>
#include <vector>

namespace kelvo {

/// Calls over arrays, for languages in which a loop over hits is slow: each does for n numbers what
/// the class does for one, throws what that throws, and writes into arrays of the caller. What has
/// several numbers per entry has them side by side, in the order of the structure's members.
///
/// This one is for what Lutz and KinkSmoother have in common; n measurements and m planes are
/// those of the fit.
template <typename Fit>
struct LineFitCalls {
  static void SetMeasurements(Fit& fit, const double* z, const double* x, const double* sigx) {
    for (unsigned i = 0; i < fit.NMeas(); i++) fit.SetMeasurement(i, z[i], x[i], sigx[i]);
  }
  static void SetScatteringPlanes(Fit& fit, const double* z, const double* sigAlpha) {
    for (unsigned j = 0; j < fit.NScat(); j++) fit.SetScatteringPlane(j, z[j], sigAlpha[j]);
  }
  /// @param out receives n values of X
  static void X(const Fit& fit, std::size_t n, const double* z, double* out) {
    for (std::size_t i = 0; i < n; i++) out[i] = fit.X(z[i]);
  }
  /// @param out receives one value per measurement
  static void Chi2XIi(const Fit& fit, double* out) {
    for (unsigned i = 0; i < fit.NMeas(); i++) out[i] = fit.Chi2XIi(i);
  }
  /// @param out receives one value per plane
  static void Chi2BetaJ(const Fit& fit, double* out) {
    for (unsigned j = 0; j < fit.NScat(); j++) out[j] = fit.Chi2BetaJ(j);
  }
};

/// As above, for one class each, and constructors that throw as functions: of a class that has
/// several constructors, Python loses the exception among the reasons why the others do not fit.
struct ArrayCalls {
  static HitColumns MakeColumns(const std::string& place, const std::vector<std::string>& inFile,
                                const HitConventions& conventions) {
    return HitColumns(place, inFile, conventions);
  }
  /// Returns the bytes of what an exception says: a file's name in it may be no text in UTF-8,
  /// which alone Python takes for a text.
  static std::vector<int> What(const std::exception& e) {
    const std::string text = e.what();
    std::vector<int> bytes;
    for (const char c : text) bytes.push_back(static_cast<unsigned char>(c));
    return bytes;
  }

  /// Returns the version of the libraries.
  static std::string Version();

  /// Returns the names of all materials: those with the library's own table, then the published.
  static std::vector<std::string> MaterialNames();
  /// Returns the everyday names of a material, with commas between them.
  static std::string OtherNames(const std::string& name);
  /// @param out receives density [g/cm3], radiation length [g/cm2] and mean excitation energy [eV]
  static void MaterialNumbers(const std::string& name, double* out);

  static TrackFitter MakeFitter(const geo::GeometryBase& detector, const TrackFitOptions& options) {
    return TrackFitter(detector, options);
  }

  static void VarX(const Lutz& fit, std::size_t n, const double* z, double* out);

  /// @param out receives n times the five numbers of a KinkPoint
  static void At(const KinkSmoother& fit, std::size_t n, const double* z, double* out);
  static void Slope(const KinkSmoother& fit, std::size_t n, const double* z, double* out);
  /// @param out receives one number per measurement
  static void XFit(const KinkSmoother& fit, double* out);
  /// @param out receives one number per plane
  static void Kink(const KinkSmoother& fit, double* out);
  static void VarKink(const KinkSmoother& fit, double* out);
  /// @param out receives the seven numbers of a KinkResidual per measurement
  static void Residual(const KinkSmoother& fit, double* out);

  /// @param numbers nine per hit: x, y, z, t and their uncertainties, weight; as in Hit3D
  static void SetHits(HitList3D& hits, std::size_t n, const std::int64_t* view,
                      const double* numbers);
  static void GetHits(const HitList3D& hits, std::int64_t* view, double* numbers);

  /// @param from six arrays of n numbers, one after the other: x, y, z and their uncertainties
  /// @param to   receives as many
  static void DetToTrk(const TrackBasis& basis, std::size_t n, const double* from, double* to);
  static void TrkToDet(const TrackBasis& basis, std::size_t n, const double* from, double* to);

  /// Returns a path through n points, three coordinates each.
  static Path MakePath(const geo::GeometryBase& geo, std::size_t n, const double* xyz, double s0);
  static void X0(const Path& path, std::size_t n, const double* s, double* out);
  /// @param pdg code of a particle of Particles()
  /// @param out four arrays of n numbers: kinetic energy, momentum, velocity, Lorentz factor
  static void Params(const Path& path, int pdg, std::size_t n, const double* s, double* out);
  static void TPBG(std::size_t n, const double* T, double m, double* out);

  /// @param out receives n losses
  static void Loss(const dEdxTable& table, std::size_t n, const double* T, double M, double* out);
};

} // namespace kelvo
