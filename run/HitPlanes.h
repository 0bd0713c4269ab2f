#pragma once

#include "func/HitList3D.h"
#include "geo/PlaneDetector.h"

#include <string>
#include <vector>

namespace kelvo {

/// How hits lie on the planes of a detector, in numbers that add up over tracks.
struct HitPlaneCounts {
  unsigned long long fHits = 0;
  unsigned long long fOffPlane = 0;  ///< hits on no plane at all
  unsigned long long fOtherView = 0; ///< hits on a plane, but on none of their view
  unsigned long long fOutside = 0;   ///< hits on a plane of their view, outside of its cells
  /// Hits on no plane or outside of its cells that a tenth of their coordinates puts into a cell of
  /// their view.
  unsigned long long fTenTimes = 0;
  unsigned long long fCrossings = 0; ///< planes with hits, track by track
  unsigned long long fSeparated = 0; ///< those of them with hits in cells that do not touch

  void Add(const HitPlaneCounts& other);

  /// Returns a sentence with numbers for what cannot be meant: where hits lie that are on no plane,
  /// on none of their view or outside of the cells, whichever is most frequent, with the question
  /// for millimetres if a tenth puts most of them into cells, and several tracks under one number.
  /// A few hits may lie anywhere: more than one in twenty are told, planes with separated hits from
  /// more than one in five.
  std::vector<std::string> Doubts() const;
};

/// Sees how the hits of tracks lie on the planes of a detector. One object serves one thread.
class HitPlanes {
public:
  /// @param detector must outlive the object; null: nothing is counted
  explicit HitPlanes(const geo::PlaneDetector* detector) : fDetector(detector) {}

  /// Counts the hits of one track; their planes' offsets are in them. Which plane a hit
  /// is on, geo::ActivePlane::Holds says.
  void Count(const HitList3D& hits, HitPlaneCounts& counts);

private:
  struct Found { // a hit on a plane of its view
    const geo::CellRow* fCells;
    double fU; // [cm]
  };

  const geo::ActivePlane* PlaneAt(int view, double z) const;
  bool IsInCell(int view, double u, double z) const;
  void CountSeparated(HitPlaneCounts& counts);

  const geo::PlaneDetector* fDetector;
  std::vector<Found> fFound; // of the current track
};

} // namespace kelvo
