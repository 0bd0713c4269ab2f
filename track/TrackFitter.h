#pragma once

#include "func/HitList3D.h"
#include "geo/GeometryBase.h"
#include "geo/PlaneDetector.h" // so that one header is all a user needs
#include "track/TrackFit.h"

#include <memory>
#include <vector>

namespace kelvo {

/// From the hits of one track to the fitted track under each hypothesis.
///
///     geo::PlaneDetector detector = geo::PlaneDetector::FromFile("detectors/fine.toml");
///     kelvo::TrackFitter fitter(detector);
///     kelvo::TrackFit fit = fitter.Fit(hits);
///
/// Hits that are far from the track count as the others do unless the options say otherwise.
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

  /// As above, with the energy deposited in the cell of each hit.
  /// @param charges in the order of the hits, in units of GeV times the scale of the options;
  ///                infinity for a hit without, empty where no hit has one. Not used unless the
  ///                options have a resolution.
  void Fit(const HitList3D& hits, const std::vector<double>& charges, TrackFit& out);

  const TrackFitOptions& Options() const;

  /// Changes the measured deposit per GeV of the options.
  /// @throws std::invalid_argument as the constructor
  void SetChargeScale(double scale);

  /// Returns the mean deposit of a minimum-ionising particle that crosses the detector's first
  /// plane at right angles [GeV]; 0 where deposits are not used.
  double MipDeposit() const;

private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

} // namespace kelvo
