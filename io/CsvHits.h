#pragma once

#include "io/CsvFields.h"
#include "io/HitColumns.h"
#include "io/HitNumbers.h"
#include "io/HitReader.h"
#include "io/TextLines.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kelvo {

/// Whole numbers that were seen, held as intervals: numbers that follow each other need no memory.
class SeenNumbers {
public:
  /// @return false if the number had been added before
  bool Add(long long number);

private:
  std::map<long long, long long> fIntervals; // first to last, both included
};

/// The tracks of one CSV file of hits; HitReader describes the format.
class CsvHits : public HitSource {
public:
  /// Reads the line that names the columns.
  /// @throw FileError for a file that cannot be opened or lacks a column
  CsvHits(const std::string& file, const std::map<std::string, std::string>& columns);

  bool Next(TrackHits& track) override;
  double Fraction() const override { return fLines.Fraction(); }

private:
  struct Line {
    unsigned long long fNumber = 0;
    std::optional<long long> fTrack; // none: not readable
    std::string fProblem;            // empty: the values below are good
    HitValues fValues = AbsentHitValues();
  };

  void ReadHeader(const std::map<std::string, std::string>& columns);
  bool ReadLine();
  void ParseLine(std::string_view text);
  bool ParseTrack();
  bool ParseHit();
  bool ParseValue(HitColumn column, double& value);
  bool ParseNumber(HitColumn column, double& value);
  bool Fail(HitColumn column, const std::string& reason);
  std::string_view Field(HitColumn column) const { return fFields[fColumns.Index(column)]; }
  std::string Place() const;

  std::string fFile;
  TextLines fLines;
  HitColumns fColumns;
  std::size_t fWidth = 0; // number of columns of the file
  CsvFields fFields;      // of the current line
  Line fLine;
  bool fHasLine = false; // fLine has not been used yet
  SeenNumbers fSeen;
};

} // namespace kelvo
