#pragma once

#include "io/FitRow.h"
#include "io/PendingFile.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvo {

/// The two kinds of table that a ROOT file can hold.
enum class TableFormat { kTTree, kRNTuple };

/// Returns the one that is written unless another is asked for: RNTuple, which is smaller and
/// faster and read without ROOT's interpreter, or TTree where ROOT is older than 6.36.
TableFormat DefaultTableFormat();

/// How fits are kept in a ROOT file.
struct FitWriterOptions {
  TableFormat fFormat = DefaultTableFormat();
  bool fWithVectors = true; ///< else only the columns of one number or text
  bool fWithPlaces = false; ///< beside the vectors, those of the places that were asked for
  /// Texts that are kept beside the table, by their names, which have no dots: in a TTree's file
  /// each as a TObjString, in an RNTuple's as the columns of a second one, "about", of one entry.
  std::map<std::string, std::string> fTexts;
};

/// Writes the table "fits" into a new ROOT file.
class FitWriter {
public:
  /// @param file is filled and left to the caller to commit
  /// @throw FileError where the file cannot be written, as on a full disk; as all functions
  explicit FitWriter(const PendingFile& file, const FitWriterOptions& options = {});
  ~FitWriter();
  FitWriter(const FitWriter&) = delete;
  FitWriter& operator=(const FitWriter&) = delete;

  /// Writes one entry per row.
  void Write(const std::vector<FitRow>& rows);

  /// Keeps one more text beside the table.
  void KeepText(const std::string& name, const std::string& text);

  /// Completes the file.
  void Close();

private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

/// Writes the columns of one number or text as CSV. Numbers are written with as few digits as give
/// the same number when read again.
class FitCsvWriter {
public:
  /// Writes the line with the names.
  /// @param file is filled and left to the caller to commit
  /// @throw FileError where the file cannot be written, as all functions
  explicit FitCsvWriter(const PendingFile& file);
  ~FitCsvWriter();
  FitCsvWriter(const FitCsvWriter&) = delete;
  FitCsvWriter& operator=(const FitCsvWriter&) = delete;

  /// Writes one line per row.
  void Write(const std::vector<FitRow>& rows);

  /// Completes the file.
  void Close();

private:
  void Put(const std::string& text);

  std::string fName;
  std::FILE* fFile;
  std::string fText; // of one call
};

} // namespace kelvo
