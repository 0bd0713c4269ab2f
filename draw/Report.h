#pragma once

#include "io/FitReader.h"

#include <string>

namespace kelvo {

/// Writes a page on all fits of a file: what was run, a summary, pulls, probabilities, momenta,
/// kinks, hypotheses and residuals as plots with a sentence on what a good one looks like, a dozen
/// tracks, and the tracks that could not be fitted.
///
/// One file of HTML with pictures in it, which needs no script and loads nothing; it follows the
/// reader's choice of light or dark, and any width. What comes from input files is escaped. Memory
/// does not grow with the number of tracks.
///
/// @param file appears under its name when it is complete
/// @throw FileError          for damaged fits and a page that cannot be written
/// @throw geo::DetectorError where the detector kept in the file cannot be used
void WriteReport(FitReader& fits, const std::string& file);

} // namespace kelvo
