#pragma once

#include "io/HitColumns.h"
#include "io/HitReader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kelvo {

/// What one row of a table of hits in memory is.
enum class HitLayout { kRowIsHit, kRowIsTrack };

/// Tracks of hits that lie in memory as arrays, one per column: those of a data frame, with one hit
/// a row, or jagged ones with one track a row. The same numbers give the same tracks as from a
/// file, and what cannot be used is told in the same way.
///
///     HitArrays hits("hits", columns, HitLayout::kRowIsHit, track, n);
///     hits.SetColumn(kHitZ, z, n);
///     ...
///     for (TrackHits track; hits.Next(track);) ...
///
/// All arrays belong to the caller and must outlive the object.
class HitArrays : public HitSource {
public:
  /// @param name    begins the messages
  /// @param columns those that the table has; each but the track must be set
  /// @param tracks  number of the track of each row; the hits of a track stand together
  /// @param n       number of rows
  HitArrays(std::string name, HitColumns columns, HitLayout layout, const std::int64_t* tracks,
            std::size_t n);
  HitArrays(HitArrays&&) noexcept;
  ~HitArrays() override;

  /// Sets a column where each row is a hit.
  /// @param values one number per row; a view as 0 or 1 or the code of its letter
  /// @param n      how many there are
  /// @throw std::invalid_argument for another number than that of the rows
  void SetColumn(HitColumn column, const double* values, std::size_t n);

  /// Sets a column where each row is a track.
  /// @param values  the numbers of all tracks one after the other
  /// @param n       how many there are
  /// @param offsets where each track begins in them, and where the last one ends: one more than
  ///                there are rows
  /// @throw std::invalid_argument for offsets that fall or leave the values
  void SetVectors(HitColumn column, const double* values, std::size_t n,
                  const std::int64_t* offsets);

  /// As in HitSource. @throw std::invalid_argument for a column that is not set
  bool Next(TrackHits& track) override;
  double Fraction() const override;

private:
  struct Rows; // what is known of them
  void AddRowsOfTrack(TrackHits& track);

  std::unique_ptr<Rows> fRows;
};

} // namespace kelvo
