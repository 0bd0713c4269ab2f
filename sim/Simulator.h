#pragma once

#include "func/HitList3D.h"
#include "geo/PlaneDetector.h"
#include "sim/SimulatedPath.h"
#include "track/TrackFit.h"
#include "track/TrackFitter.h"
#include "util/Particles.h"
#include "util/RandomStream.h"

#include <TVector3.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace kelvo {

/// How simulated particles scatter.
enum class ScatteringModel {
  kFull, ///< Highland's width in small steps, see ParticleTransport
  kFit   ///< kinks at the planes and with the widths of the fit, see Simulator
};

/// What simulated planes measure.
enum class HitModel {
  kCells,   ///< the centre of the cell that is hit, with the cell's resolution
  kGaussian ///< the true coordinate with a Gaussian error
};

/// An interval from which numbers are drawn evenly.
struct SimulationRange {
  double fLow;
  double fHigh;
};

/// Which tracks are to be simulated.
struct SimulationOptions {
  int fPDG = kMuonPDG;                      ///< of a particle of Particles()
  SimulationRange fKineticEnergy{0.3, 1.6}; ///< at the start [GeV]; without effect in a beam
  double fBeamMomentum = 0;    ///< of a beam that crosses the detector [GeV/c]; 0: particles stop
  double fSigBeamMomentum = 0; ///< standard deviation of the beam's momentum [GeV/c]
  std::uint64_t fSeed = 1;
  ScatteringModel fScattering = ScatteringModel::kFull;
  HitModel fHits = HitModel::kCells;
  double fSigma = 0.3;         ///< error of Gaussian hits [cm]
  double fEfficiency = 1;      ///< probability that a plane gives its hit
  double fStep = 1;            ///< largest step of the full scattering [cm]
  bool fFluctuateLoss = false; ///< let the energy loss fluctuate
  bool fLeaving = false;       ///< also keep tracks that leave the detector
  /// Standard deviation of dx/dz and dy/dz at the start; by default 0.3, in a beam 0.001.
  std::optional<double> fSlope;
  /// Where tracks start [cm]. By default x and y lie on the face of the detector, z between 1 cm
  /// upstream of it and 50 cm, at most half of its length, downstream; a beam starts 1 cm upstream.
  std::optional<SimulationRange> fStart[3];
  /// Standard deviation of x and y at the start [cm], around the middles of their intervals; by
  /// default they are spread evenly.
  std::optional<double> fSpot;
  TrackFitOptions fFit; ///< limits and scattering factor for the scattering of the fit
};

/// A hit with its truth.
struct SimulatedHit {
  int fView;       ///< 0 measures x, 1 measures y
  double fU;       ///< measured coordinate [cm], where the plane is assumed to be
  double fZ;       ///< position where the plane is assumed to be [cm]
  double fSigU;    ///< uncertainty [cm]
  double fOffset;  ///< what to add to fU to get to where the plane is [cm]
  TVector3 fTrue;  ///< where the particle crossed the middle of the plane [cm]
  TVector3 fSlope; ///< dx/dz, dy/dz and 1 there
  double fT;       ///< kinetic energy there [GeV]
};

/// A track with its truth.
struct SimulatedTrack {
  long long fTrack = 0;
  int fPDG = 0;
  TVector3 fStart;                 ///< at the middle of the plane of the first hit [cm]
  TVector3 fMomentum;              ///< there [GeV/c]
  double fT = 0;                   ///< kinetic energy there [GeV]
  TVector3 fEnd;                   ///< where the particle stopped or left [cm]
  double fLength = 0;              ///< path length from fStart to fEnd [cm]
  std::vector<SimulatedHit> fHits; ///< by increasing z

  /// Returns the hits for a fit, at the true positions of the planes.
  HitList3D Hits() const;
};

/// Makes tracks whose truth is known.
///
///     kelvo::Simulator simulator(detector, options);
///     kelvo::SimulatedTrack track = simulator.Make(0);
///     kelvo::TrackFit fit = kelvo::TrackFitter(detector).Fit(track.Hits());
///
/// A track is determined by options, seed and its number alone: it is the same whatever else is
/// made, in whatever order and on however many threads.
///
/// Kinetic energy and place are drawn evenly, the two slopes at the start from a Gaussian, within
/// 45 degrees of z. A track is kept if it stops inside the detector and hits at least 4 planes of
/// each view; otherwise place and direction are drawn again, and after 300 of them the energy as
/// well. A plane is hit where the track first crosses the middle of it, inside a cell.
///
/// The momentum of a beam is drawn from a Gaussian. Its tracks are kept if they leave at the
/// downstream face of the detector, having hit at least 3 planes of each view: of those with fewer
/// a fit has no chi-square.
///
/// With ScatteringModel::kFit a track is a line in the frame of its fit that bends at the fit's
/// scattering planes, in each view by a Gaussian angle of the very width that the fit takes. It
/// goes on average along the straight line that was drawn and ends where a particle on that line
/// stops; its energies follow from its end, upstream, and are up to some percent above what was
/// drawn, since a bent way is longer. Gaps between cells count as cells. The fit's planes depend on
/// the hits, and the hits on the planes: both are found in turn. Such tracks are what the fit
/// assumes; with Gaussian hits its pulls and chi-squares follow their distributions.
///
/// One object serves one thread at a time; copies give the same tracks.
class Simulator {
public:
  /// @param detector must outlive the object
  /// @throw std::invalid_argument for an option out of range, and for a detector with a material of
  ///        which nothing is known; the text says which, and what is allowed
  Simulator(const geo::PlaneDetector& detector, const SimulationOptions& options);

  /// Makes one track.
  /// @throw std::runtime_error where no track meets the conditions above in 30,000 attempts
  SimulatedTrack Make(long long track);

  const SimulationOptions& Options() const { return fOptions; } ///< start ranges filled in

private:
  struct Start {
    TVector3 fX;   // [cm]
    TVector3 fU;   // unit vector
    double fT = 0; // [GeV]
  };

  bool IsBeam() const { return fOptions.fBeamMomentum > 0; }
  double DrawEnergy(util::RandomStream& random) const;
  Start DrawStart(double T, util::RandomStream& random) const;
  bool MayStop(const Start& start, util::RandomStream& random);
  bool Follow(const Start& start, util::RandomStream& random);
  bool FollowKinks(const std::vector<double>& lots, util::RandomStream& random);
  void FindCrossings(const std::vector<double>& lots);
  bool Wanted() const;
  bool EndsAsWanted() const;
  std::vector<SimulatedHit> HitsOf(const PlaneCrossing& crossing) const;
  bool Bend(const TVector3& begin, const TVector3& end, util::RandomStream& random);
  SimulatedTrack Measured(long long number, util::RandomStream& random) const;

  const geo::PlaneDetector& fDetector;
  SimulationOptions fOptions;
  ParticleTransport fTransport;
  TrackFitter fFitter; // knows where the fit has its planes

  // What belongs to the track at hand.
  SimulatedPath fPath;
  std::vector<PlaneCrossing> fCrossings;      // those that give hits
  std::vector<TVector3> fCorners;             // of a line with kinks [cm]
  std::vector<std::array<double, 2>> fNormal; // kinks by view, in units of their widths
};

} // namespace kelvo
