#pragma once

#include "geo/Detector.h"
#include "io/HitReader.h"
#include "run/FitRunOptions.h"
#include "run/FitSummary.h"
#include "track/TrackFitter.h"

#include <Rtypes.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kelvo {

/// One column of a table of fits in memory, as other programs know it: its numbers one after the
/// other, in the byte order of the machine.
struct FitColumn {
  std::string fName;
  std::string fType; ///< int32, int64, float32, float64, bool (one byte), or text (UTF-8)
  std::vector<unsigned char> fData;
  /// Vectors and texts: where those of each row begin, and where the last ones end, counted in
  /// numbers and characters. Empty for a column of one number.
  std::vector<Long64_t> fOffsets;
};

struct FitRow;

/// The columns of a table of fits: names, types and order are those of a file of fits.
class FitColumns {
public:
  /// @param withVectors whether there are columns of vectors
  /// @param withPlaces  whether there are those of places that were asked for
  FitColumns(bool withVectors, bool withPlaces);

  /// Appends rows in their order; what their vectors hold is left out without columns for it.
  void Append(const std::vector<FitRow>& rows);

  /// Returns the number of rows: one per track and hypothesis.
  std::size_t Rows() const { return fRows; }
  /// Returns the number of columns.
  std::size_t Size() const { return fColumns.size(); }
  /// Returns column i, which must be below Size().
  const FitColumn& Column(std::size_t i) const { return fColumns[i]; }

private:
  std::vector<FitColumn> fColumns;
  template <typename Visit>
  void VisitColumns(Visit visit) const;

  bool fWithVectors;
  bool fWithPlaces;
  std::size_t fRows = 0;
};

/// Fits one track and returns the result as the rows of a table, one per hypothesis.
/// @param charges as for the fitter
FitColumns FitOneTrack(TrackFitter& fitter, const HitList3D& hits,
                       const std::vector<double>& charges = {});

/// From hits of any source to all fits in memory, with the same content as a file of fits.
///
///     FitTable table(detector, hits, options);
///     while (table.Fit(0.1)) {}
///     table.Columns().Column(0) ...
class FitTable {
public:
  /// @param detector is copied; a geometry that it refers to must outlive the object
  /// @param hits     must outlive the fit
  /// @throw std::invalid_argument for options out of range, and for an unknown material
  ///                              where particles are to stop
  FitTable(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options);
  ~FitTable();

  /// Fits for about so many seconds, in pieces so that the caller can show progress or stop;
  /// a block of tracks at least.
  /// @return false once all is fitted
  /// @throw whatever the source throws
  bool Fit(double seconds);

  /// Returns which fraction of the hits has been read, 0 to 1.
  double Fraction() const;

  /// Returns the fits up to here; it is valid as long as the object.
  const FitColumns& Columns() const;

  /// Returns what came out up to here.
  FitSummary Summary() const;

private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

} // namespace kelvo
