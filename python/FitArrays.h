#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace kelvo {

/// Fits that lie in memory as arrays, one per column, such as those of a data frame that was made
/// from FitColumns: the way back from there into a file.
///
///     FitArrays fits(rows);
///     fits.SetColumn("track", track, nullptr);
///     ...
///     fits.Write("fits.root", {{"detector", text}});
///
/// All arrays belong to the caller and must outlive the object.
class FitArrays {
public:
  explicit FitArrays(std::size_t rows) : fRows(rows) {}

  /// Sets a column; all columns of numbers and texts must be set, and all of vectors or none.
  /// @param name    as in FitColumns
  /// @param values  the numbers of all rows one after the other, of the type that FitColumns has
  /// @param offsets where those of each row begin in them, and where the last ones end: one more
  ///                than there are rows; null for a column of one number a row
  void SetColumn(const std::string& name, const unsigned char* values, const std::int64_t* offsets);

  /// Writes a file of fits.
  /// @param texts what is kept beside the table, see FitWriterOptions
  /// @throw std::invalid_argument for a column that is not set
  /// @throw FileError for a file that cannot be written
  void Write(const std::string& file, const std::map<std::string, std::string>& texts) const;

private:
  struct Column {
    const unsigned char* fValues;
    const std::int64_t* fOffsets;
  };
  const Column& Find(const char* name) const;

  std::size_t fRows;
  std::map<std::string, Column> fColumns;
};

} // namespace kelvo
