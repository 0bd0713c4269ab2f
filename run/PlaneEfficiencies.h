#pragma once

#include "geo/PlaneDetector.h"
#include "io/PendingFile.h"
#include "track/TrackFit.h"

#include <cstddef>
#include <map>
#include <utility>

namespace kelvo {

/// An interval of an efficiency.
struct EfficiencyInterval {
  double fLow, fHigh;
};

/// Returns the interval that holds the efficiency with a probability of 68.3 % or more, of which k
/// in n tell; 0 to 1 for n = 0 (C. J. Clopper, E. S. Pearson, Biometrika 26 (1934) 404).
EfficiencyInterval ClopperPearson(unsigned long long k, unsigned long long n);

/// How often planes had a hit where tracks crossed them, in numbers that add up.
class PlaneEfficiencies {
public:
  struct Counts {
    unsigned long long fCrossed = 0;
    unsigned long long fFound = 0;
  };

  /// Counts the planes that a track crosses under its best hypothesis, or the first one that is
  /// fitted.
  void Count(const TrackFit& fit);
  void Add(const PlaneEfficiencies& other);

  /// Returns the counts of a plane, for what measures a view of it.
  Counts Of(unsigned int plane, unsigned int view) const;

private:
  std::map<std::pair<unsigned int, unsigned int>, Counts> fCounts; // by plane and view
};

/// Writes a line for each plane and view: number, name, view, z [cm], tracks that crossed, those
/// with a hit there, efficiency (empty without tracks) and the ends of its interval.
/// @param file is filled and left to the caller to commit
/// @throw FileError
void WriteEfficiencies(const geo::PlaneDetector& detector, const PlaneEfficiencies& efficiencies,
                       const PendingFile& file);

} // namespace kelvo
