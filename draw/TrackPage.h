#pragma once

#include "geo/PlaneDetector.h"
#include "io/FitReader.h"

#include <string>
#include <vector>

namespace kelvo {

/// Writes a page with the displays of some tracks, which can be enlarged and moved; it follows the
/// reader's choice of light or dark, loads nothing, and has what comes from input files escaped.
/// @param entries of the file; fitted ones, in the order in which they are shown
/// @param file    appears under its name when it is complete
/// @throw FileError for damaged fits and a page that cannot be written
void WriteTrackPage(FitReader& fits, const geo::PlaneDetector* detector,
                    const std::vector<long long>& entries, const std::string& file);

} // namespace kelvo
