#pragma once

#include "io/CsvFields.h"
#include "io/HitColumns.h"
#include "io/HitNumbers.h"
#include "io/HitReader.h"
#include "io/TextLines.h"

#include <map>
#include <memory>
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
  /// @param bytes of the file, from the beginning; not null
  /// @throw FileError for a file that lacks a column
  CsvHits(std::unique_ptr<InputBytes> bytes, const HitReaderOptions& options);

  bool Next(TrackHits& track) override;
  double Fraction() const override { return fLines.Fraction(); }

private:
  struct Line {
    unsigned long long fNumber = 0;
    std::optional<long long> fTrack; // none: not readable
    std::string fProblem;            // empty: the values below are good
    HitValues fValues = AbsentHitValues();
  };

  void ReadHeader(const HitConventions& conventions);
  void Begin(TrackHits& track);
  void AddLine(TrackHits& track);
  void TakeStrays(TrackHits& track);
  bool ReadLine();
  void ParseLine(std::string_view text);
  bool ParseTrack();
  bool ParseHit();
  bool ParseValue(HitColumn column, double& value);
  bool ParseNumber(HitColumn column, double& value);
  bool Fail(HitColumn column, const std::string& reason);
  std::string_view Field(HitColumn column) const { return fFields[fColumns.Index(column)]; }
  std::string NoHits() const;
  std::string Place() const;

  std::string fFile;
  bool fInAnyOrder; // a track may come in several pieces
  TextLines fLines;
  HitColumns fColumns;
  std::size_t fWidth = 0; // number of columns of the file
  CsvFields fFields;      // of the current line
  Line fLine;
  bool fHasLine = false; // fLine has not been used yet
  SeenNumbers fSeen;
  TrackHits fStrays;  // problems of the lines without readable track number that come before fLine
  std::string fDoubt; // one of those between two tracks, which count for the first of these
};

} // namespace kelvo
