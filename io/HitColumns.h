#pragma once

#include "util/LengthUnit.h"

#include <array>
#include <map>
#include <string>
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
  kHitColumns ///< how many there are
};

/// What a table of hits does not say itself.
struct HitConventions {
  /// Columns of other names: from our name, such as "sigu", to the one in the table.
  std::map<std::string, std::string> fColumns;
  std::string fUnit = kCentimetre.fName; ///< of all lengths: cm, mm, m or um
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

  /// Whether the file has a column that is of use: x and y are not beside a view and u.
  bool Has(HitColumn column) const { return fIndex[column] >= 0; }
  /// Returns the position among the columns of the file; only for those it has.
  std::size_t Index(HitColumn column) const { return static_cast<std::size_t>(fIndex[column]); }
  /// Returns the name in the file.
  const std::string& Name(HitColumn column) const { return fNames[column]; }
  /// Whether each hit has x and y, instead of a view and one coordinate.
  bool BothViews() const { return fBothViews; }
  /// Returns what the numbers of lengths are given in.
  const LengthUnit& Unit() const { return fUnit; }

private:
  std::array<std::string, kHitColumns> fNames;
  std::array<int, kHitColumns> fIndex{}; // -1: not in the file, or of no use
  bool fBothViews = false;
  LengthUnit fUnit = kCentimetre;
};

/// Returns the names, in the order of HitColumn.
const std::vector<std::string>& HitColumnNames();

/// Sees that a mapping is one from names that hits have, and that the unit is known.
/// @throw std::invalid_argument
void CheckHitConventions(const HitConventions& conventions);

} // namespace kelvo
