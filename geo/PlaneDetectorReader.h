#pragma once

#include "matter/Material.h"

#include <optional>
#include <string>
#include <vector>

namespace geo {

/// What a detector file says, checked and with every length in cm: the step between the text and a
/// PlaneDetector. Materials and parts are named by their index.
struct DetectorDescription {
  struct Material {
    std::string fName;
    double fDensity = 0;                     ///< [g/cm3]
    double fRadLength = 0;                   ///< [cm]; 0: none given, "Vacuum" only
    double fA = 0;                           ///< [g/mole]; 0: none given
    double fZ = 0;                           ///< 0: none given
    std::optional<matter::Material> fMatter; ///< as dense, with this radiation length; if known
  };

  /// A slab, or a plane with cells along x, y or both.
  struct Part {
    std::string fName;
    double fSize[3] = {};           ///< x, y, z [cm]
    double fCentre[2] = {};         ///< x, y [cm]
    unsigned fMaterial = 0;         ///< of a slab, or of a cell's filling
    unsigned fCount[2] = {0, 0};    ///< cells along x, y; 0: this coordinate is not measured
    double fWidth[2] = {0, 0};      ///< of a cell, along x, y [cm]
    double fResolution[2] = {0, 0}; ///< along x, y [cm]
    double fWall = 0;               ///< thickness [cm], 0: none
    unsigned fWallMaterial = 0;
    double fGap = 0; ///< width [cm], 0: none
    unsigned fGapMaterial = 0;
  };

  /// A part in its place.
  struct Placed {
    unsigned fPart = 0;
    double fCentre[2] = {}; ///< x, y of the part's middle, all shifts included [cm]
    double fZLow = 0;       ///< [cm]
    double fZHigh = 0;      ///< [cm]
    double fOffset[3] = {}; ///< x, y, z [cm]
  };

  std::string fName;
  std::string fText; ///< the file, byte for byte
  unsigned fWorld = 0;
  std::vector<Material> fMaterials;
  std::vector<Part> fParts;
  std::vector<Placed> fPlaced; ///< by increasing z, without overlap; touching ones share the number
};

/// Reads and checks the text of a detector file.
/// @param text what the file holds
/// @param file name of the file for the messages
/// @throw DetectorError
DetectorDescription ReadDetectorText(const std::string& text, const std::string& file);

/// Reads and checks a detector file, or the installed one of a name.
/// @throw DetectorError
DetectorDescription ReadDetectorFile(const std::string& file);

} // namespace geo
