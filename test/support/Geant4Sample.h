#pragma once

#include "func/HitList3D.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::test {

/// A track simulated with Geant4: its hits and the truth about it.
struct Geant4Track {
  /// Truth at the plane of a hit.
  struct Point {
    double fZ, fX, fY;   ///< [cm]
    double fDxDz, fDyDz; ///< slopes
    double fT;           ///< kinetic energy [GeV]
  };
  HitList3D fHits;           ///< sorted by z
  std::vector<Point> fTruth; ///< one per hit, in the same order
  int fPDG = 0;              ///< -13, 13, ...
  double fP = 0;             ///< momentum at the first hit [GeV/c]
  double fLength = 0;        ///< path length from there to the end [cm]
};

/// Returns the folder of the simulated samples: in the shared folder named in KELVO_SHARED_DATA, or
/// else the one beside the source tree.
inline std::filesystem::path Geant4Folder() {
  const char* shared = std::getenv("KELVO_SHARED_DATA");
  const std::filesystem::path folder =
      shared ? std::filesystem::path(shared)
             : std::filesystem::path(KELVO_SOURCE_DIR) / ".." / "shared";
  return folder / "data" / "geant4";
}

/// Returns the folder of the samples with muons that leave the detector.
inline std::filesystem::path LeavingFolder() {
  return Geant4Folder().replace_filename("geant4-leaving");
}

/// A gzipped text file, read line by line; its first line is skipped.
class GzipLines {
public:
  explicit GzipLines(const std::filesystem::path& file)
      : fPipe(popen(("gzip -dc '" + file.string() + "'").c_str(), "r")) {
    Next();
  }
  GzipLines(const GzipLines&) = delete;
  GzipLines& operator=(const GzipLines&) = delete;
  ~GzipLines() { pclose(fPipe); }

  bool Next() { return std::fgets(fLine, sizeof fLine, fPipe) != nullptr; }
  const char* Line() const { return fLine; }

  /// Splits the line at commas; a letter becomes the number 0 (X) or 1 (Y).
  std::vector<double> Numbers() const {
    std::vector<double> numbers;
    for (const char* p = fLine; *p;) {
      char* end = nullptr;
      double value = std::strtod(p, &end);
      if (end == p) value = *p == 'Y' ? 1 : 0;
      numbers.push_back(value);
      while (*p && *p != ',') p++;
      if (*p) p++;
    }
    return numbers;
  }

private:
  FILE* fPipe;
  char fLine[512] = {};
};

/// Reads a sample such as "fine_mu".
/// @param hits "cell" or "smeared"
inline std::vector<Geant4Track> ReadGeant4(const std::string& sample, const std::string& hits,
                                           const std::filesystem::path& folder = Geant4Folder()) {
  std::vector<Geant4Track> tracks;
  GzipLines truth(folder / (sample + "_truth.csv.gz"));
  while (truth.Next()) {
    const std::vector<double> v = truth.Numbers(); // track,pdg,x0,y0,z0,px,py,pz,T,xe,ye,ze,length
    Geant4Track track;
    track.fPDG = static_cast<int>(v.at(1));
    track.fP = std::hypot(v.at(5), v.at(6), v.at(7));
    track.fLength = v.at(12);
    tracks.push_back(track);
  }
  GzipLines lines(folder / (sample + "_hits_" + hits + ".csv.gz"));
  while (lines.Next()) {
    const std::vector<double> v = lines.Numbers(); // track,view,u,z,sigu
    const bool isY = v.at(1) != 0;
    tracks.at(static_cast<std::size_t>(v.at(0)))
        .fHits.AddHit(isY ? geo::kY : geo::kX, isY ? 0 : v.at(2), isY ? v.at(2) : 0, v.at(3), 0,
                      isY ? 0 : v.at(4), isY ? v.at(4) : 0, 0, 0, 1);
  }
  GzipLines points(folder / (sample + "_hittruth.csv.gz"));
  while (points.Next()) {
    const std::vector<double> v = points.Numbers(); // track,z,x,y,dxdz,dydz,T
    tracks.at(static_cast<std::size_t>(v.at(0)))
        .fTruth.push_back({v.at(1), v.at(2), v.at(3), v.at(4), v.at(5), v.at(6)});
  }
  return tracks;
}

} // namespace kelvo::test
