#pragma once

#include "fit/LaneSmoother.h"
#include "func/HitList3D.h"
#include "geo/GeometryBase.h"
#include "track/ChargeLikelihood.h"
#include "track/EnergyAlong.h"
#include "track/HitCheck.h"
#include "track/MaterialAlong.h"
#include "track/ScatteringMomentum.h"
#include "track/TrackFitter.h"

#include <array>
#include <cstddef>
#include <vector>

namespace kelvo {

/// The measurements of one view, by increasing z.
struct ViewHits {
  std::vector<double> fZ;   ///< [cm]
  std::vector<double> fU;   ///< [cm]
  std::vector<double> fSig; ///< uncertainties of fU at fZ [cm]
  std::vector<double> fW;   ///< how much they count, above 0 up to 1

  void Clear() {
    fZ.clear();
    fU.clear();
    fSig.clear();
    fW.clear();
  }
  void Add(double z, double u, double sig, double w) {
    fZ.push_back(z);
    fU.push_back(u);
    fSig.push_back(sig);
    fW.push_back(w);
  }
};

/// The steps of a track fit, one after the other, with the memory they share from track to track.
///
/// Each view is a line against z, x(z) or y(z), that bends at thin planes: two between any two
/// consecutive hits, of whichever views, that scatter like the material there (MaterialAlong). The
/// detector is asked for the material once, along the hits; through it, all hypotheses are ranged
/// out together. Each has the widths of its kinks from its energies, and from its own fitted track
/// the length of the way and so its momentum. What is calculated under several hypotheses is
/// calculated side by side, in lanes.
class TrackChain {
public:
  /// All arguments must outlive the object.
  /// @param charge the likelihood of deposits; null: they are not used
  TrackChain(const geo::GeometryBase& detector, const TrackFitOptions& options,
             const ChargeLikelihood* charge = nullptr);
  TrackChain(const TrackChain&) = delete;
  TrackChain& operator=(const TrackChain&) = delete;

  /// Fits checked hits. `out` holds one cleared fit per hypothesis. A reason that concerns the
  /// whole track is returned, one that concerns a hypothesis is left in its fit.
  /// @param charges deposits of the hits, in their order, in units of the options' charge scale;
  ///                infinity: none; empty: the hits have none
  /// @throws GeometryRefusal, KelvoException and what the detector throws
  Refusal Fit(const HitList3D& hits, const std::vector<double>& charges, TrackFit& out);

private:
  friend struct TrackChainStages; // the benchmark times the stages one by one

  /// One hit on its way through the fit.
  struct TrackHit {
    std::size_t fView = 0; // 0: x, 1: y
    double fZ = 0, fU = 0; // as measured [cm]
    double fSigU = 0, fSigZ = 0;
    double fSig = 0; // of the position at the measured z, larger for a smaller weight [cm]
    double fQ = 0;   // deposit [GeV]; infinity: none
    double fWeight = 1;
    bool fIsExcluded = false; // by its plane
  };

  /// A hit beside a fit, as KinkResidual.
  struct HitResidual {
    Lanes fResidual, fPull, fUnbiased, fSigUnbiased;
  };

  /// The fits of hypotheses that are calculated side by side.
  struct LaneFits {
    std::size_t fFirst; // hypothesis
    std::size_t fN;     // of them; further lanes do what the last one does
    HypothesisFit* fFit;
  };

  /// How a track runs, as far as path lengths and scattering widths depend on it.
  struct Course {
    std::array<std::vector<double>, 2> fSlope; // by view, at each hit
    std::vector<double> fStretch;              // of each gap, and of the end behind the last hit
  };

  double ChargePerGeV() const { return fOptions.fChargeScale > 0 ? fOptions.fChargeScale : 1; }
  bool IsBeam() const { return fOptions.fBeamMomentum > 0; }
  bool Stops() const { return !IsBeam() && !fLeaves; }
  void SortHits(const HitList3D& hits, const std::vector<double>& charges);
  static bool IsUpstream(const TrackHit& a, const TrackHit& b);
  bool Selects() const;
  Refusal SelectHits(TrackFit& out);
  bool IsExcluded(const TrackHit& hit) const;
  Refusal FindOutliers();
  Refusal UseHits();
  Refusal FindPulls();
  double Reweigh(double scale);
  bool RejectWorst();
  Refusal FindEnergies(bool withScattering, TrackFit& out);
  Refusal LayCourse();
  void FindPoints();
  void TraceMaterial();
  void FindEnd(TrackFit& out);
  void PlacePlanes();
  void MeasureScattering(TrackFit& out);
  void CompareWithStopping(double freeEnd, TrackFit& out);
  bool AreCells() const;
  void Leave(TrackFit& out);
  void AddCharges(TrackFit& out);
  void FindWidths(const LaneFits& lanes);
  void FindNoise();
  void SolveViews();
  void FindCourse();
  void Fill(const LaneFits& lanes);
  bool IsSolved(std::size_t lane) const;
  void FillViews(std::size_t lane, HypothesisFit& fit) const;
  void FillHits(const LaneFits& lanes) const;
  void FillLeftOut(const LaneFits& lanes);
  static void AddHit(const TrackHit& hit, const LanePoint& line, const LaneFits& lanes);
  static HitResidual Compare(const TrackHit& hit, const LanePoint& line);
  LanePoint LineWithout(std::size_t view, double z, std::size_t first, std::size_t end);
  LanePoint LineAtHit(const TrackHit& leftOut);
  bool NeedsLines() const;
  bool IsAt(double z, const TrackHit& hit) const;
  LanePoint LineOfOthers(std::size_t view, double z);
  void FillPlaces(const LaneFits& lanes);
  void FillCrossings(const LaneFits& lanes);
  void CrossPlane(unsigned int plane, std::size_t view, const LaneFits& lanes);
  void FillStart(HypothesisFit& fit) const;
  void FillPlanes(const LaneFits& lanes) const;
  void FillPlane(const LaneKink& x, const LaneKink& y, std::size_t j, const LaneFits& lanes) const;
  void FillPath(const LaneFits& lanes) const;
  double SigLength(std::size_t lane, const HypothesisFit& fit) const;
  double OwnEnergy(std::size_t h, std::size_t lane);
  void FillKinematics(std::size_t h, std::size_t lane, HypothesisFit& fit);

  const TrackFitOptions& fOptions;
  const geo::PlaneDetector* fPlaneDetector; // null: the detector's planes are not known
  const ChargeLikelihood* fCharge;          // null: not used
  std::vector<double> fPlaces;              // where the track is wanted, by z [cm]
  std::vector<unsigned int> fExcluded;      // planes
  std::vector<double> fMasses;              // of the hypotheses [GeV]
  std::vector<double> fMomenta; // of the hypotheses at the first hit, where they go on [GeV/c]
  MaterialAlong fMaterial;
  EnergyAlong fEnergy;            // of all hypotheses along fCourse
  EnergyAlong fOwnEnergy;         // where fOwnCourse differs much
  ScatteringMomentum fScattering; // of the first hypothesis

  // What belongs to the track at hand.
  std::vector<TrackHit> fHits;    // those that the fit uses, sorted by z
  std::vector<TrackHit> fAllHits; // with their weights; only where some may be left out
  std::vector<TrackHit> fLeftOut; // those of weight 0
  std::vector<double> fPulls;     // of all hits: the smallest one of any hypothesis
  TrackFit fTrial;                // what is found out on the way to the weights
  std::array<ViewHits, 2> fViewHits;
  std::vector<WayPoint> fPoints; // one per hit
  Course fCourse;                // of lines through neighbouring hits
  double fUsualGap = 0;          // median of those between hits, along z [cm]
  bool fLeaves = false;
  std::vector<ScatteringPlane> fPlanes;   // by increasing z
  std::vector<std::size_t> fPlanesBefore; // number of planes before each hit
  std::vector<ChargedHit> fChargedHits;
  std::vector<ChargeLikelihood::Path> fChargePaths;

  std::vector<LaneMeasurement> fMeasurements; // fHits

  // What belongs to the hypotheses at hand.
  std::vector<Lanes> fBetaP2;              // square of velocity times momentum at each hit [GeV^2]
  std::vector<Lanes> fVarAlpha;            // of the angles at the planes [rad^2]
  std::vector<LaneSmoother::Noise> fNoise; // of the gaps
  LaneSmoother fSmoother;
  std::vector<LanePlane> fCrossed; // scratch of LineWithout
  Lanes fStraggling{};             // variances of the energy at the first hit [GeV^2]
  std::vector<Lanes> fStretch;     // as that of a Course, of the fitted tracks
  std::vector<double> fScratch;    // by gap
};

/// Makes a fit as new under a hypothesis, keeping its memory.
void ClearFit(int pdg, HypothesisFit& fit);

/// Returns why a fit has no result where its equations have none.
Refusal NoSolution();

/// Clears a fit and leaves the reason in it.
void RefuseFit(const Refusal& refusal, HypothesisFit& fit);

/// Sets index and lead of the most likely hypothesis among those that are fitted, of equals the
/// first; and the probability of each.
/// @param fractions of the hypotheses; empty: all equal
void FindBest(const std::vector<double>& fractions, TrackFit& out);

/// Leaves the first hypothesis that is fitted in place of the most likely one, of several that
/// differ by nothing but their velocity.
void ForgetBest(TrackFit& out);

} // namespace kelvo
