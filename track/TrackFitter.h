#pragma once

#include "func/HitList3D.h"
#include "geo/GeometryBase.h"
#include "geo/PlaneDetector.h" // so that one header is all a user needs
#include "track/TrackFit.h"

#include <memory>

namespace kelvo {

/// From the hits of one track to the fitted track under each hypothesis.
///
///     geo::PlaneDetector detector = geo::PlaneDetector::FromFile("detectors/fine.toml");
///     kelvo::TrackFitter fitter(detector);
///     kelvo::TrackFit fit = fitter.Fit(hits);
///
/// The detector is any geometry; it must outlive the fitter. An object is used by one thread at a
/// time; it keeps scratch memory from track to track. Copies share the detector.
class TrackFitter {
public:
  /// @throws std::invalid_argument where an option is out of range; the text says which, its value
  ///         and what is allowed
  explicit TrackFitter(const geo::GeometryBase& detector, const TrackFitOptions& options = {});
  TrackFitter(const TrackFitter& other);
  TrackFitter(TrackFitter&&) noexcept;
  ~TrackFitter();

  /// Fits one track. Throws nothing for bad hits: status and message of the result say what is
  /// wrong.
  /// @param hits in any order; each has its view, the coordinate of that view and z, with
  ///             uncertainties [cm]. The unmeasured coordinate is not read.
  TrackFit Fit(const HitList3D& hits);

  /// As above, into a result whose memory is used again.
  void Fit(const HitList3D& hits, TrackFit& out);

  const TrackFitOptions& Options() const;

private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

} // namespace kelvo
