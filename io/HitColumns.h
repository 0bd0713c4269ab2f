#pragma once

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
  kHitColumns ///< how many there are
};

/// Where the columns of hits are in one file.
class HitColumns {
public:
  HitColumns() = default;

  /// Finds the columns.
  /// @param place    begins the messages: file, and line or tree
  /// @param inFile   names of all columns of the file
  /// @param mapping  from our names to those in the file, for columns of other names
  /// @param numbered whether the track's number is needed, too
  /// @throw FileError for a column that is missing or there twice
  HitColumns(const std::string& place, const std::vector<std::string>& inFile,
             const std::map<std::string, std::string>& mapping, bool numbered = true);

  /// Whether the file has a column that is of use: x and y are not beside a view and u.
  bool Has(HitColumn column) const { return fIndex[column] >= 0; }
  /// Returns the position among the columns of the file; only for those it has.
  std::size_t Index(HitColumn column) const { return static_cast<std::size_t>(fIndex[column]); }
  /// Returns the name in the file.
  const std::string& Name(HitColumn column) const { return fNames[column]; }
  /// Whether each hit has x and y, instead of a view and one coordinate.
  bool BothViews() const { return fBothViews; }

private:
  std::array<std::string, kHitColumns> fNames;
  std::array<int, kHitColumns> fIndex{}; // -1: not in the file, or of no use
  bool fBothViews = false;
};

/// Returns the names, in the order of HitColumn.
const std::vector<std::string>& HitColumnNames();

/// Sees that a mapping is one from names that hits have.
/// @throw std::invalid_argument
void CheckHitColumnNames(const std::map<std::string, std::string>& mapping);

} // namespace kelvo
