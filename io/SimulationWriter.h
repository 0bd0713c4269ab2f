#pragma once

#include "sim/Simulator.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvo {

/// Writes simulated tracks: their hits as HitReader reads them, and their truth.
///
/// | table | columns | one line per |
/// |---|---|---|
/// | hits | track,view,u,z,sigu | hit, as measured |
/// | truth | track,pdg,x0,y0,z0,px,py,pz,T,xe,ye,ze,length | track: where it crossed the middle of
/// the
///   plane of its first hit, momentum and kinetic energy there, end, path length to the end |
/// | hittruth | track,z,x,y,dxdz,dydz,T | hit, in the same order: where the particle crossed the
///   middle of the plane, its slopes and kinetic energy there |
///
/// Lengths in cm, energies in GeV, momenta in GeV/c. A file whose name ends in .csv or .csv.gz
/// holds the hits, and files of the same name with .truth and .hittruth before this end the others.
/// A file whose name ends in .root holds all tables as TTrees, one entry a track.
class SimulationWriter {
public:
  virtual ~SimulationWriter() = default;
  virtual void Write(const SimulatedTrack& track) = 0;
  /// Completes the files and gives them their names.
  virtual void Commit() = 0;
};

/// Opens the files.
/// @param file     its name tells the format
/// @param hitTruth whether the truth of the hits is written, too
/// @param texts    kept in a ROOT file by their names
/// @throw FileError for a name of no format, and where a file cannot be written, as all functions
std::unique_ptr<SimulationWriter> MakeSimulationWriter(
    const std::string& file, bool hitTruth, const std::map<std::string, std::string>& texts);

/// Returns the names of the files that such a writer makes.
/// @throw FileError for a name of no format
std::vector<std::string> SimulationFiles(const std::string& file, bool hitTruth);

} // namespace kelvo
