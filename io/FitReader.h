#pragma once

#include "io/FitRow.h"

#include <map>
#include <memory>
#include <string>

namespace kelvo {

/// Which columns of an entry are wanted: the fewer, the faster.
enum class FitPart {
  kNames,   ///< track, pdg, status and best: enough to look for an entry
  kScalars, ///< all columns of one number or text
  kAll      ///< the vectors as well, where the file has them
};

/// A table of fits in a file, read entry by entry into one row. TTree and RNTuple look the same
/// from here.
class FitEntries {
public:
  virtual ~FitEntries() = default;
  virtual long long Entries() const = 0;
  virtual bool HasVectors() const = 0;
  virtual bool HasPlaces() const = 0;
  virtual std::map<std::string, std::string> Texts() const = 0;
  virtual const FitRow& Read(long long entry, FitPart columns) = 0;
};

/// Reads what FitFile wrote, in memory that does not grow with the number of entries.
///
///     FitReader reader("fits.root");
///     for (long long i = 0; i < reader.Entries(); i++)
///       if (reader.Read(i, FitPart::kScalars).fBest) ...
class FitReader {
public:
  /// Opens the file.
  /// @throw FileError for a file that cannot be read or does not hold a table of fits
  explicit FitReader(const std::string& file);
  ~FitReader();

  const std::string& File() const { return fFile; }
  long long Entries() const { return fTable->Entries(); }
  /// Whether the file has the columns of vectors, which a run may leave out.
  bool HasVectors() const { return fTable->HasVectors(); }
  /// Whether the file has those of the track at places that were asked for.
  bool HasPlaces() const { return fTable->HasPlaces(); }

  /// Returns a text that is kept beside the table, such as "detector"; empty if there is none.
  const std::string& Text(const std::string& name) const;

  /// Reads an entry. Members of columns that are not wanted keep what an earlier call left there.
  /// @param entry below Entries()
  /// @return the row, valid until the next call
  /// @throw FileError for damaged data
  const FitRow& Read(long long entry, FitPart columns) { return fTable->Read(entry, columns); }

private:
  std::string fFile;
  std::unique_ptr<FitEntries> fTable;
  std::map<std::string, std::string> fTexts;
};

} // namespace kelvo
