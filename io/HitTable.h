#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

class TFile;

namespace kelvo {

/// A table in a ROOT file with numbers and vectors of numbers as columns, read entry by entry.
/// TTree and RNTuple look the same from here. All functions throw FileError where a column has a
/// type that is none of these, and where data are damaged.
class HitTable {
public:
  virtual ~HitTable() = default;

  virtual long long Entries() const = 0;
  virtual std::vector<std::string> Columns() const = 0;

  /// Makes a column known before the first entry is read: a whole number.
  /// @param value receives the number of the current entry; must outlive the table
  virtual void BindNumber(const std::string& column, long long& value) = 0;

  /// Makes a column known before the first entry is read: numbers of any type.
  /// @param values receives those of the current entry; must outlive the table
  virtual void BindNumbers(const std::string& column, std::vector<double>& values) = 0;

  /// As above, but for numbers or texts, which come as the code of their one character, -1 for
  /// others.
  virtual void BindViews(const std::string& column, std::vector<double>& values) = 0;

  /// Reads an entry into all that is bound.
  virtual void Read(long long entry) = 0;
};

/// @param file  has the tree, and must outlive the table
/// @param place begins the messages
std::unique_ptr<HitTable> MakeTreeTable(TFile& file, const std::string& tree,
                                        const std::string& place);
/// As above, for an RNTuple.
std::unique_ptr<HitTable> MakeNTupleTable(TFile& file, const std::string& ntuple,
                                          const std::string& place);

} // namespace kelvo
