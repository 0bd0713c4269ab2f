#pragma once

#include "util/Particles.h"

#include <TVector3.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

namespace kelvo {

/// Whether tracks stop in the detector or leave it.
enum class TrackEndMode {
  kAuto = 0,   ///< those leave that could not have made another hit; see TrackEnd
  kStops = 1,  ///< all stop
  kLeaves = 2, ///< all leave
};

/// Returns the name of a mode: "auto", "stops" or "leaves".
const char* EndModeName(TrackEndMode mode);

/// Returns the mode of a name.
/// @throw std::invalid_argument for any other name
TrackEndMode EndMode(const std::string& name);

/// What becomes of hits that are far from the track.
enum class OutlierMode {
  kKeep = 0,   ///< all hits count
  kHuber = 1,  ///< they pull no stronger than one at 1.3 standard deviations
  kTukey = 2,  ///< they count the less the farther they are, from 4.7 standard deviations on 0
  kCauchy = 3, ///< they count the less the farther they are
};

/// Returns the name of a mode: "keep", "huber", "tukey" or "cauchy".
const char* OutlierModeName(OutlierMode mode);

/// Returns the mode of a name.
/// @throw std::invalid_argument for any other name
OutlierMode OutlierModeOf(const std::string& name);

/// What a fit is to do. Every value has the default that users want for stopping particles.
struct TrackFitOptions {
  std::vector<int> fHypotheses{kMuonPDG, kPionPDG, kProtonPDG}; ///< PDG codes
  /// Factor on the library's scattering widths. The square root of 3 makes them those of Highland's
  /// formula, for which the pulls of Geant4's tracks have a core of width 1.
  double fScatteringFactor = 1.7320508075688772;
  double fBeyondLastHit = 0.5; ///< where the track ends behind its last hit, as a fraction of the
                               ///< energy loss up to where its next hit would have been; stopping
                               ///< particles
  double fBeamMomentum = 0; ///< known momentum of a beam at its first hit [GeV/c]; 0: the particle
                            ///< stops
  double fSigBeamMomentum = 0;             ///< its uncertainty [GeV/c]
  TrackEndMode fEnd = TrackEndMode::kAuto; ///< of no meaning for a beam
  bool fScatteringMomentum = true; ///< whether all tracks get a momentum from scattering; those
                                   ///< that leave need one
  double fChargeResolution = 0;    ///< standard deviation of the measured deposit of a
                                ///< minimum-ionising particle that crosses a plane at right angles,
                                ///< as a fraction of it; 0: deposits are not used
  double fChargeScale = 0; ///< measured deposit per GeV; 0: a run finds it from its first tracks,
                           ///< and a single track has its deposits in GeV
  std::vector<double> fFractions; ///< of the hypotheses among all tracks, in their order and up to
                                  ///< a common factor; empty: all equal
  OutlierMode fRobust = OutlierMode::kKeep;
  double fReject = 0; ///< hits whose pull is above it are taken out, the worst first; 0: none
  std::vector<std::string> fExclude; ///< planes, by name or number from 0, whose hits the fit does
                                     ///< not use: devices under test
  /// Where the fitted track is wanted beside its hits: a plane, by name or number from 0, or
  /// "z=12.5" [cm].
  std::vector<std::string> fAt;
  bool fCrossings = false;  ///< whether it is wanted which planes the track crosses, and which of
                            ///< them have a hit there
  bool fWithPlanes = false; ///< whether the fit at the scattering planes is wanted: kinks, points
                            ///< and widths, which take as much time as half of all else
};

/// Why a track, or a hypothesis of it, has no fit. 0 is success; the values are kept in files.
enum class FitStatus {
  kFitted = 0,
  kTooFewHits = 1,   ///< fewer than two hits in a view
  kBadNumber = 2,    ///< a coordinate, uncertainty or weight that cannot be used
  kBadGeometry = 3,  ///< the hits have no usable direction, or a material cannot be used
  kSingular = 4,     ///< the normal equations have no solution
  kLibraryError = 5, ///< the fit library raised an error; the message says which
};

/// One view of a fitted track: x or y against z.
struct ViewFit {
  unsigned int fN = 0;   ///< measurements
  double fIntercept = 0; ///< at the plane of the track's first hit [cm]
  double fSlope = 0;     ///< there, against z
  double fCov[3] = {};   ///< covariance: intercept-intercept, intercept-slope, slope-slope
  double fChi2 = 0;      ///< of the measurements
  double fChi2Kink = 0;  ///< of the kinks
  int fNDF = 0;          ///< degrees of freedom
  double fProb = 0;      ///< probability of a chi-square (measurements and kinks) above this one
  std::vector<double> fKink;    ///< one per scattering plane [rad]
  std::vector<double> fSigKink; ///< their uncertainties [rad]
};

/// One hit of a fitted track, in the detector frame; same order as the sorted hits.
struct HitFit {
  int fView = 0;           ///< 0 measures x, 1 measures y
  double fZ = 0;           ///< position of the measuring plane [cm]
  double fU = 0;           ///< measured coordinate [cm]
  double fSigU = 0;        ///< its uncertainty [cm]
  double fFitU = 0;        ///< fitted coordinate [cm]
  double fFitSigU = 0;     ///< uncertainty of the fitted coordinate [cm]
  double fResidual = 0;    ///< measured minus fitted [cm]
  double fPull = 0;        ///< residual over its own standard deviation
  double fFitSlope = 0;    ///< fitted slope against z
  double fFitSigSlope = 0; ///< uncertainty of the fitted slope
  /// Measured minus the fit of all other hits [cm], and its uncertainty: infinite where they fix no
  /// track there, the residual then being 0.
  double fUnbiased = 0;
  double fSigUnbiased = 0;
  double fWeight = 1; ///< how much the hit counts, 0 to 1; one of 0 is compared with the fit of the
                      ///< others throughout
};

/// One view of the fitted track at one z; NaN where the hits fix no line.
struct LineAt {
  double fU = 0;     ///< coordinate [cm]
  double fSlope = 0; ///< against z
  double fSigU = 0;  ///< their uncertainties
  double fSigSlope = 0;
  double fCov = 0; ///< their covariance [cm]
};

/// The fitted track at one place.
struct PlaceFit {
  double fZ = 0;                 ///< [cm]
  std::array<LineAt, 2> fView;   ///< 0: x, 1: y
  std::array<LineAt, 2> fOthers; ///< the same without the hits of the planes at this z
};

/// A plane that the track crosses within its cells, as the hits of the other planes tell.
struct CrossedPlane {
  unsigned int fPlane = 0; ///< number, from 0
  unsigned int fView = 0;  ///< 0: what measures x, 1: y
  bool fFound = false;     ///< whether it has a hit there
};

/// A momentum from multiple scattering alone. NaN where it was not asked for; ScatteringMomentum
/// finds it.
struct MomentumFromScattering {
  double fP = std::numeric_limits<double>::quiet_NaN();    ///< most likely [GeV/c]; may be infinite
  double fLow = std::numeric_limits<double>::quiet_NaN();  ///< ends of an interval of 68 % [GeV/c];
  double fHigh = std::numeric_limits<double>::quiet_NaN(); ///< infinite: the other is a lower limit
  double fInverse = std::numeric_limits<double>::quiet_NaN();    ///< 1 / fP [c/GeV]
  double fSigInverse = std::numeric_limits<double>::quiet_NaN(); ///< half of the interval of 1 / p
};

/// The fit of one track under one hypothesis.
struct HypothesisFit {
  int fPDG = 0;
  FitStatus fStatus = FitStatus::kFitted;
  std::string fMessage;         ///< empty when fitted, else one sentence
  std::array<ViewFit, 2> fView; ///< 0: x, 1: y
  int fNDF = 0;                 ///< of both views
  double fProb = 0;             ///< of both views
  double fLogLikelihood = 0;    ///< marginal log-likelihood of the measurements
  /// Log-likelihood of the deposits in their own units; NaN where there are none.
  double fLogLikelihoodCharge = std::numeric_limits<double>::quiet_NaN();
  double fProbHypothesis = 0;  ///< probability of this hypothesis among those that are fitted, from
                               ///< both likelihoods and the fractions of the options
  std::vector<double> fPlaneS; ///< way along the track from its first hit to each scattering
                               ///< plane [cm]
  std::vector<TVector3> fPlanePoint;  ///< the fitted track at the planes, detector frame [cm]
  std::vector<double> fPlaneSigAlpha; ///< widths used, scattering factor included [rad]
  std::vector<HitFit> fHit;
  std::vector<PlaceFit> fPlace;        ///< one for each fAt of the options
  std::vector<CrossedPlane> fCrossing; ///< if the options ask for them
  TVector3 fPosition;                  ///< at the plane of the first hit, detector frame [cm]
  TVector3 fDirection;                 ///< unit vector there
  TVector3 fEnd;                       ///< where the track is taken to end, detector frame [cm]
  /// Covariance of (x, y, ux, uy) at fixed z there: upper triangle, row by row.
  std::array<double, 10> fCov{};
  // Energy and momentum are those from the range, or of the beam; NaN for a track that leaves.
  double fT = 0;         ///< kinetic energy at the first hit [GeV]
  double fP = 0;         ///< momentum there [GeV/c]
  double fSigT = 0;      ///< uncertainty of fT [GeV]
  double fSigP = 0;      ///< uncertainty of fP [GeV/c]
  double fBeta = 0;      ///< velocity there, in units of c
  double fGamma = 0;     ///< Lorentz factor there
  double fLength = 0;    ///< path length from the first hit to the end of the track [cm]
  double fSigLength = 0; ///< its uncertainty [cm]
  double fRadLen = 0;    ///< radiation lengths on that path
  /// Lower limit on the momentum at the first hit of a particle that leaves: it takes that to get
  /// to the last hit [GeV/c]. NaN for a track that stops, and for a beam.
  double fPMin = std::numeric_limits<double>::quiet_NaN();
  MomentumFromScattering fScattering; ///< at the first hit
  /// Probability that a particle that stops scatters as much, or as little, as this track or more
  /// so. NaN without a test: for beams, tracks that leave, and fewer than three hits in each view.
  double fProbScattering = std::numeric_limits<double>::quiet_NaN();
};

/// The fit of one track.
struct TrackFit {
  std::vector<HypothesisFit> fHypothesis; ///< in the order of the options
  int fBest = -1;   ///< index of the most likely hypothesis, -1 where none was fitted
  double fLead = 0; ///< its log-likelihood, with that of the deposits, minus that of the second
                    ///< best [nats]
  bool fHasBest =
      true; ///< false where several hypotheses differ by nothing but their velocity: of
            ///< a beam, or of a track that leaves; fBest is then the first that is fitted
  unsigned int fOutliers = 0; ///< hits that are far from the track and count less than half
  bool fLeaves = false;       ///< fitted as a track that leaves the detector
  /// How far behind the last hit, along z, the track would go on to the boundary of what can
  /// measure it: in cm, and in gaps between planes. NaN for beams, and for a geometry that does not
  /// know its planes.
  double fEndDistance = std::numeric_limits<double>::quiet_NaN();
  double fEndPlanes = std::numeric_limits<double>::quiet_NaN();
  /// Twice the logarithm of the ratio of the likelihoods of a free end and of one where the first
  /// hypothesis stops. NaN for beams, and without momentum from scattering.
  double fStopChi2 = std::numeric_limits<double>::quiet_NaN();

  bool Fitted() const { return fBest >= 0; }
};

} // namespace kelvo
