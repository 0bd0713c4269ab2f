#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

namespace kelvo {

/// What a simulated particle was at the middle of the plane of its first hit.
struct TrueTrack {
  int fPDG;
  double fX, fY, fZ;    ///< [cm]
  double fPX, fPY, fPZ; ///< [GeV/c]
};

/// The true tracks of a file of hits, by their numbers: what SimulationWriter has written, as CSV,
/// plain or compressed, with columns in any order, or as the TTree "truth" of a ROOT file. Takes
/// 100 bytes of memory a track.
class TrueTracks {
public:
  /// Reads the file.
  /// @throw FileError for a file that cannot be read, that lacks a column, or that has a track
  /// twice
  explicit TrueTracks(const std::string& file);

  const std::string& File() const { return fFile; }
  std::size_t Size() const { return fTracks.size(); }

  /// Returns a track, null if the file has none of that number.
  const TrueTrack* Find(long long track) const;

private:
  void ReadCsv();
  void ReadTree();
  void Add(long long number, const TrueTrack& track, const std::string& place);

  std::string fFile;
  std::unordered_map<long long, TrueTrack> fTracks;
};

} // namespace kelvo
