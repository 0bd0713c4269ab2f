#pragma once

#include "geo/PlaneDetector.h"
#include "util/LengthUnit.h"

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// The columns that a table of hits may have; HitReader says what they mean.
enum HitColumn {
  kHitTrack,
  kHitView,
  kHitU,
  kHitSigU,
  kHitX,
  kHitY,
  kHitSigX,
  kHitSigY,
  kHitZ,
  kHitSigZ,
  kHitT,
  kHitSigT,
  kHitW,
  kHitQ,
  kHitPlane,
  kHitColumns ///< how many there are
};

/// What a table of hits does not say itself.
struct HitConventions {
  /// Columns of other names: from our name, such as "sigu", to the one in the table.
  std::map<std::string, std::string> fColumns;
  std::string fUnit = kCentimetre.fName; ///< of all lengths: cm, mm, m or um
  double fSigma = 0; ///< uncertainty of u, x and y without a column of it, in that unit; 0: none
  /// Gives hits what they lack: the resolution of their plane where no uncertainty is known, and z
  /// by the plane. Null: they lack nothing. Must outlive the columns.
  const geo::PlaneDetector* fPlanes = nullptr;
};

/// Where the columns of hits are in one file, and what their numbers are.
class HitColumns {
public:
  HitColumns() = default;

  /// Finds the columns.
  /// @param place    begins the messages: file, and line or tree
  /// @param inFile   names of all columns of the file
  /// @param numbered whether the track's number is needed, too
  /// @throw FileError for a column that is missing or there twice
  /// @throw std::invalid_argument as CheckHitConventions does
  HitColumns(const std::string& place, const std::vector<std::string>& inFile,
             const HitConventions& conventions, bool numbered = true);

  /// Whether the file has a column that is of use: x and y are not beside a view and u, nor is a
  /// plane beside z.
  bool Has(HitColumn column) const { return fIndex[column] >= 0; }
  /// Returns the position among the columns of the file; only for those it has.
  std::size_t Index(HitColumn column) const { return static_cast<std::size_t>(fIndex[column]); }
  /// Returns the name in the file.
  const std::string& Name(HitColumn column) const { return fNames[column]; }
  /// Whether each hit has x and y, instead of a view and one coordinate.
  bool BothViews() const { return fBothViews; }
  /// Returns what the numbers of lengths are given in.
  const LengthUnit& Unit() const { return fUnit; }

  /// Returns the uncertainty of a hit that has none of its own [cm].
  /// @param view 0: x, 1: y
  double Sigma(unsigned view, double z) const;
  /// Returns the number of the one plane of a name or of a number from 0, -1 where there is none.
  double PlaneNumber(std::string_view text) const;
  /// Whether this is the number of a plane.
  bool IsPlane(double number) const;
  /// Returns where a plane's hits are [cm]; IsPlane must hold.
  double ZOfPlane(double number) const;

private:
  std::array<std::string, kHitColumns> fNames;
  std::array<int, kHitColumns> fIndex{}; // -1: not in the file, or of no use
  bool fBothViews = false;
  LengthUnit fUnit = kCentimetre;
  double fSigma = 0; // [cm]
  const geo::PlaneDetector* fPlanes = nullptr;
};

/// Returns the names, in the order of HitColumn.
const std::vector<std::string>& HitColumnNames();

/// Sees that a mapping is one from names that hits have, and that the unit is known.
/// @throw std::invalid_argument
void CheckHitConventions(const HitConventions& conventions);

} // namespace kelvo
