#pragma once

#include "func/HitList3D.h"
#include "func/Path.h"
#include "geo/GeometryBase.h"
#include "track/CheckedGeometry.h"
#include "track/HitCheck.h"
#include "track/PlanePlacement.h"
#include "track/RangeOutGeometry.h"
#include "track/TrackFit.h"
#include "track/TrackFrame.h"
#include "track/TrackPoint.h"
#include "track/ViewSolver.h"

#include <TVector3.h>

#include <array>
#include <optional>
#include <vector>

namespace kelvo {

/// The steps of a track fit, one after the other, with the memory they share from track to track.
class TrackChain {
public:
  /// Both arguments must outlive the object.
  TrackChain(const geo::GeometryBase& detector, const TrackFitOptions& options);

  /// Fits checked hits. `out` holds one cleared fit per hypothesis. A reason that concerns the
  /// whole track is returned, one that concerns a hypothesis is left in its fit.
  /// @throws GeometryRefusal, KelvoException and what the detector throws
  Refusal Fit(const HitList3D& hits, TrackFit& out);

private:
  friend struct TrackChainStages; // the benchmark times the stages one by one

  bool IsBeam() const { return fOptions.fBeamMomentum > 0; }
  void SortAndComplete(const HitList3D& hits);
  Refusal MakeFrame();
  void MakeHits();
  void FindGap();
  void LoadViews();
  void LayPath();
  void Refine();
  Refusal FitHypothesis(HypothesisFit& fit);
  void PlacePlanes(int pdg);
  bool SolveViews(HypothesisFit& fit);
  TrackPoint HitPoint(std::size_t i) const;
  void FillHypothesis(HypothesisFit& fit) const;
  void FillPlanes(HypothesisFit& fit) const;
  void FillEnd(HypothesisFit& fit) const;
  void FillKinematics(TrackFit& out) const;
  void FillBeam(double length, HypothesisFit& fit) const;

  const TrackFitOptions& fOptions;
  CheckedGeometry fGeometry;
  LumpedGeometry fLumped; // of fGeometry
  ViewSolver fSolver;

  // What belongs to the track at hand.
  HitList3D fHits; // sorted by z, completed
  TrackFrame fFrame;
  std::vector<TrackHit> fTrackHits; // same order as fHits
  double fGap = 0;                  // typical distance in z between hits [cm]
  std::vector<double> fS;           // path coordinates of all hits, ascending [cm]
  std::vector<double> fAt;          // just before each of fHits, in their order [cm]
  std::array<ViewProblem, 2> fView;
  std::vector<TVector3> fPathPoints;
  std::optional<Path> fPath;                    // along the axis; none for beams
  double fPathBegin = 0, fPathEnd = 0;          // its path coordinates [cm]
  std::vector<Slab> fSlabs;                     // beams only
  PlaneList fPlanes;                            // of the hypothesis at hand
  std::array<std::vector<KinkPoint>, 2> fState; // its line by view, at fAt
  HypothesisFit fFirstPass;
};

/// Makes a fit as new under a hypothesis, keeping its memory.
void ClearFit(int pdg, HypothesisFit& fit);

/// Clears a fit and leaves the reason in it.
void RefuseFit(const Refusal& refusal, HypothesisFit& fit);

/// Sets index and lead of the most likely hypothesis among those that are fitted, of equals the
/// first.
void FindBest(TrackFit& fit);

} // namespace kelvo
