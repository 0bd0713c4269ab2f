#pragma once

#include "func/HitList3D.h"
#include "io/HitColumns.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvo {

/// The hits of one track as they were found in a file.
struct TrackHits {
  long long fTrack = 0;         ///< number of the track in its file
  HitList3D fHits;              ///< in the order of the file; those that could be read
  std::vector<double> fCharges; ///< measured deposits of the hits, in their order, infinity for
                                ///< none; empty where the file has no column of them
  std::string fFile;            ///< the file that the track is from
  unsigned long long fPlace =
      0; ///< line of its first hit, from 1; in a ROOT file its entry, in memory its row, from 0
  const char* fPlaceWord = "line"; ///< what fPlace counts

  unsigned long long fBadLines = 0;   ///< lines (or entries) that could not be used
  std::vector<std::string> fProblems; ///< what is wrong with the first ten: file, line and reason

  /// Whether a line just before the first one may belong to the track: its number is not readable.
  bool fMayLackHits = false;

  bool Good() const { return fBadLines == 0 && !fMayLackHits; }

  /// Returns where the track is found, such as "hits.csv, line 12" or "hits.root, entry 3".
  std::string Place() const;
  /// Counts one bad line and keeps the sentence that says what is wrong with it, unless it has ten.
  void AddProblem(const std::string& sentence);
};

/// How the files of hits are to be read.
struct HitReaderOptions : HitConventions {
  HitReaderOptions(); // else Python takes it for an aggregate, which it cannot fill with its base

  /// Name of the TTree or RNTuple in ROOT files. Empty: "hits", or else the only one in the file.
  std::string fTree;
  /// Lines of text may come in any order. All hits of a file are held in memory, and its tracks
  /// come in the order of their first lines.
  bool fSort = false;
};

/// Where tracks of hits come from: files of any format, or memory.
class HitSource {
public:
  virtual ~HitSource() = default;
  /// Gives the next track. @return false at the end. @throw FileError
  virtual bool Next(TrackHits& track) = 0;
  /// Leaves out the next tracks, good or bad, or those that there are if fewer. @return how many.
  /// @throw FileError
  virtual unsigned long long Skip(unsigned long long tracks);
  /// Returns which fraction of all has been read, 0 to 1.
  virtual double Fraction() const = 0;
};

/// Reads the hits of one track after the other from a list of files, in memory that does not grow
/// with their number. Text may also come through a pipe or, under the name "-", from the standard
/// input.
///
///     HitReader reader({"run1.csv.gz", "run2.root"});
///     for (TrackHits track; reader.Next(track);) ...
///
/// A CSV file, plain or compressed by gzip, has one hit a line below a line that names the columns:
///
/// | column | meaning |
/// |---|---|
/// | track | whole number; the lines of a track stand together unless the options say otherwise |
/// | view, u, sigu | X or Y (or 0, 1), measured coordinate and its uncertainty |
/// | x, y, sigx, sigy | instead of these, for planes that measure both: gives two hits |
/// | z | position of the plane |
/// | sigz, t, sigt, w | optional: uncertainty of z, time, its uncertainty, weight (1) |
/// | q | optional: energy deposited in the hit's cell, in any unit; of planes that measure both, in
/// the cell that measures x |
///
/// Semicolons or tabs may stand in place of the commas.
///
/// Lengths are in cm unless the options name another unit. Other columns are skipped, as are empty
/// lines and those that begin with "#". A ROOT file has a TTree or an RNTuple with one entry a
/// track: track as a number, the others as vectors.
///
/// A line that cannot be used makes its track a bad one, which is still given, with the reason. A
/// line without a readable track number counts for the track in which it stands; between two tracks
/// it may belong to either, so both are bad.
class HitReader : public HitSource {
public:
  /// Opens nothing yet, except to see that the files are there.
  /// @throw FileError          for a file that cannot be opened
  /// @throw std::invalid_argument as CheckHitConventions does
  explicit HitReader(std::vector<std::string> files, HitReaderOptions options = {});
  ~HitReader() override;

  /// Gives the next track, good or bad.
  /// @param track is overwritten
  /// @return false when there are no more
  /// @throw FileError for a file that is no table of hits or that cannot be read to its end
  bool Next(TrackHits& track) override;

  /// Leaves out tracks; of a ROOT file without reading them.
  unsigned long long Skip(unsigned long long tracks) override;

  /// Returns which fraction of all files has been read, 0 to 1; files count by their sizes.
  double Fraction() const override;

  const std::vector<std::string>& Files() const { return fFiles; }

private:
  bool OpenNext();

  std::vector<std::string> fFiles;
  HitReaderOptions fOptions;
  std::vector<double> fSizes; // of the files [bytes]
  std::size_t fNext = 0;      // index of the file to be opened next
  std::unique_ptr<HitSource> fSource;
};

} // namespace kelvo
