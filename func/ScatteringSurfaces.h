#pragma once

#include <vector>

#include "geo/GeometryBase.h"

namespace kelvo {

class Path;

/// Places the scattering planes of one track and tells how wide each of them scatters.
///
/// Runs of consecutive positions along the track are grouped into steps within three limits; each
/// step becomes one surface, at the middle of the step and with the root mean square projected
/// scattering angle of all material in it. Make one object per hypothesis and set of limits, call
/// MakeSurfaces for a track, then read N, S and SigAlpha and load them into the fit. The other
/// functions serve callers with a Path of their own.
///
/// Positions s are path coordinates [cm], ascending, on the path; this is not checked. Every
/// function that looks at a step passes on what the queries of Path throw (kBadKE, kBadRadLength),
/// throws as CheckLimits does, and for an unknown hypothesis writes "\n\n\nERROR: Kelvo is unable
/// to fit under the assumption PDG = <code>.  Aborting...\n\n\n" to the standard output and ends
/// the process with abort. One object serves one thread at a time.
class ScatteringSurfaces {
public:
  /// Stores the hypothesis and the limits, all unchecked; there are no surfaces yet.
  /// @param pdg    13 muon, 211 charged pion, 2212 proton; the sign does not matter
  /// @param maxDs  largest length of a step [cm]
  /// @param maxDX0 largest thickness of a step [radiation lengths]
  /// @param maxDT  largest product of a step's scattering width and length [rad cm]
  ScatteringSurfaces(int pdg, double maxDs, double maxDX0, double maxDT);

  /// Replaces the surfaces by those of the straight track from p0 to p1 (three coordinates each
  /// [cm]), with s[0] the path coordinate of p0. There is at least one surface afterwards: where
  /// no step has a length, one for the whole of s. The geometry is used during the call only.
  ///
  /// Throws kIndexProblem with value 0 for an empty s, before anything is touched. After any other
  /// exception the surfaces made before it for this track remain. Cost: the integration of the path
  /// and a few lookups per position.
  void MakeSurfaces(const geo::GeometryBase& geo, const double* p0, const double* p1,
                    const std::vector<double>& s);

  /// Appends one surface per step over the whole of s, none for a step of length exactly 0. Without
  /// two positions there is no step.
  void MakeSteps(const Path& path, const std::vector<double>& s);

  /// Returns the index of the last position of the step that begins at index i0.
  ///
  /// The step grows while it keeps the limits; it covers at least one interval, even one beyond the
  /// limits, and always takes in the last position of s once it has come to the one before it.
  unsigned int MakeStep(const Path& path, const std::vector<double>& s, unsigned int i0) const;

  /// Calculates the step from s[i0] to s[i1]; the indices are not checked. Any output may be null.
  /// @param ds       length [cm]
  /// @param sMid     middle, where momentum and velocity are taken [cm]
  /// @param dX0      thickness [radiation lengths]
  /// @param sigAlpha width of the scattering angle, see Width [rad]
  /// @param dT       sigAlpha times ds [rad cm]
  void GetStepData(const Path& path, const std::vector<double>& s, unsigned int i0, unsigned int i1,
                   double* ds, double* sMid, double* dX0, double* sigAlpha, double* dT) const;

  /// Appends one surface for the whole span of s, whatever the limits. Throws kIndexProblem with
  /// value 0 for an empty s.
  void ForceOnePlane(const Path& path, const std::vector<double>& s);

  /// Returns whether none of length [cm], thickness [radiation lengths] and dT [rad cm] lies above
  /// its limit. A NaN is above no limit.
  bool GoodStep(double ds, double dX0, double dT) const;

  /// Raises a momentum p [GeV/c] between -1e-5 and 1e-5 to 1e-5 and a velocity beta [c] between
  /// -1e-6 and 1e-6 to 1e-6, in place. Either may be null and is then not looked at. NaN passes.
  ///
  /// Throws kBadP with the momentum at or below -1e-5 or at exactly 1e-5, line 90, and kBadP with
  /// the velocity at or below -1e-6, line 95; the momentum is checked first.
  static void CheckLimits(double* beta, double* p);

  /// Returns the root mean square projected scattering angle [rad] behind a thickness of dX0
  /// radiation lengths, for a particle of velocity beta [c] and momentum p [GeV/c]:
  ///   sqrt(dX0) (13.6 MeV / sqrt(3)) / (beta p) (1 + 0.038 ln dX0),
  /// and 1e-6 for dX0 of 1e-6 and less (G. R. Lynch, O. I. Dahl, Nucl. Instr. Meth. B 58 (1991) 6;
  /// Particle Data Group, Passage of particles through matter, multiple scattering, where
  /// psi_plane = theta_0 / sqrt(3) is the angle of the chord). A negative result is returned as it
  /// is, with a diagnostic of three lines on the standard output. Throws nothing.
  static double Width(double dX0, double beta, double p);

  /// Returns the number of surfaces.
  unsigned int N() const { return static_cast<unsigned int>(fS.size()); }
  /// Returns the path coordinate of surface j [cm]; j must be below N() and is not checked.
  double S(unsigned int j) const { return fS[j]; }
  /// Returns the width of the scattering angle at surface j [rad]; j must be below N() and is not
  /// checked.
  double SigAlpha(unsigned int j) const { return fSigAlpha[j]; }

private:
  void AddSurface(double s, double sigAlpha);
  void GetState(const Path& path, double s, double* beta, double* p) const;

  unsigned int fPDG;             // magnitude of the code
  double fMaxDs;                 // [cm]
  double fMaxDX0;                // [radiation lengths]
  double fMaxDT;                 // [rad cm]
  std::vector<double> fS;        // [cm]
  std::vector<double> fSigAlpha; // as long as fS [rad]
};

} // namespace kelvo
