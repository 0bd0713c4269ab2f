#pragma once

#include "geo/PlaneDetector.h"
#include "track/MaterialLoss.h"
#include "util/RandomStream.h"

#include <TVector3.h>

#include <optional>
#include <vector>

namespace kelvo {

/// A point of a simulated path.
struct PathPoint {
  TVector3 fX;    ///< [cm]
  double fT;      ///< kinetic energy there [GeV]
  double fLength; ///< path length from the first point [cm]
};

/// The way of one particle: straight from point to point, so close that the energy changes linearly
/// in between.
struct SimulatedPath {
  std::vector<PathPoint> fPoints;
  bool fStopped = false; ///< whether the particle stopped at the last point; else it left
};

/// Where a path first crosses the middle of a plane.
struct PlaneCrossing {
  unsigned fPlane; ///< index of the active plane
  PathPoint fAt;
  TVector3 fDirection; ///< unit vector
};

/// Returns where a path crosses the middles of a detector's active planes for the first time, going
/// downstream, by increasing z.
std::vector<PlaneCrossing> Crossings(const geo::PlaneDetector& detector, const SimulatedPath& path);

/// Moves charged particles through a detector, step by step, with energy loss and scattering of its
/// own: it shares MaterialLoss and the geometry with the fit, and nothing else. One object serves
/// one thread at a time.
///
/// Energy is lost at the mean rate. With fluctuations, the loss in a step comes from a gamma
/// distribution with this mean and the variance of collisions with free electrons. It is never
/// negative, is skewed to large losses, and does not depend on how a thickness is cut into steps;
/// its tail is shorter than Landau's.
class ParticleTransport {
public:
  /// @param detector  must outlive the object; of each material the elements are known
  /// @param pdg       code of a particle of Particles(), of either sign
  /// @param fluctuate whether the energy loss fluctuates
  ParticleTransport(const geo::PlaneDetector& detector, int pdg, bool fluctuate);

  double Mass() const { return fMass; } ///< [GeV]

  /// Follows a particle along a straight line until it stops or has left the detector.
  /// @param x start [cm]
  /// @param u direction, unit vector
  /// @param T kinetic energy at the start [GeV]
  void FollowStraight(const TVector3& x, const TVector3& u, double T, util::RandomStream& random,
                      SimulatedPath& path);

  /// Finds the energies of a particle that stops at the end of a line, at the mean energy loss.
  /// @param line corners of the line [cm], two at least
  void FollowBack(const std::vector<TVector3>& line, SimulatedPath& path);

  /// Follows a particle that scatters until it stops or leaves the detector.
  ///
  /// Between the middles of two active planes the projected angles add up to the width of
  /// Highland's formula for all material in between (G. R. Lynch, O. I. Dahl, Nucl. Instr. Meth. B
  /// 58 (1991) 6): a step through dX of the X radiation lengths there has
  ///   theta_0^2 = (13.6 MeV / (beta c p))^2 dX (1 + 0.038 ln X)^2.
  /// Two Gaussian angles of this width turn the particle at a random place of the step, evenly
  /// spread over its radiation lengths, which gives the lateral displacement its mean square (in
  /// one material theta_0^2 length^2 / 3) and its correlation with the angle (J. Baro et al., Nucl.
  /// Instr. Meth. B 100 (1995) 31, random hinge). Steps end at the middles of planes.
  /// @param x    start [cm]
  /// @param u    direction there, unit vector
  /// @param T    kinetic energy there [GeV]
  /// @param step largest step [cm]
  void Scatter(TVector3 x, TVector3 u, double T, double step, util::RandomStream& random,
               SimulatedPath& path);

private:
  /// What a material does to the particle.
  struct Medium {
    const TGeoMaterial* fMaterial = nullptr;
    double fRadLen = 0;                // radiation lengths per length [1/cm]
    std::optional<MaterialLoss> fLoss; // none in vacuum
  };

  const Medium& MediumOf(const TGeoMaterial& material) const;
  double Lose(const Medium& medium, double maxLength, double& T, util::RandomStream& random) const;
  double LoseInStep(const TVector3& x, const TVector3& u, double step, double& T, double& dX0,
                    util::RandomStream& random);
  double RadLengthsAhead(const TVector3& x, const TVector3& u, double length);
  double LengthTo(double radLengths, double maxLength) const;
  double Gain(const Medium& medium, double maxLength, double& T) const;
  void FindSteps(const TVector3& from, const TVector3& to);
  double BetaP(double T) const;
  bool HasLeft(const TVector3& x, double zStart) const;

  const geo::PlaneDetector& fDetector;
  double fMass; // [GeV]
  bool fFluctuate;
  std::vector<Medium> fMedia;
  std::vector<double> fSteps;                  // scratch: steps of one leg [cm]
  std::vector<const TGeoMaterial*> fMaterials; // scratch: their materials
};

} // namespace kelvo
