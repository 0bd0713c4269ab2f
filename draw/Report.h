#pragma once

#include "draw/ReportData.h"
#include "io/FitReader.h"

#include <string>

namespace kelvo {

/// Writes a page on all fits of a file: what is suspicious in it, what was run, a summary, plots of
/// pulls, probabilities, momenta, kinks, hypotheses and residuals, each with a verdict from its own
/// entries, a table of the planes, the worst tracks and some others, and the tracks that could not
/// be fitted; with the truth also resolutions, pulls and the confusion of hypotheses.
///
/// One file of HTML with pictures in it, which loads nothing and can be read without its script; it
/// follows the reader's choice of light or dark, and any width. What comes from input files is
/// escaped. Memory does not grow with the number of tracks, but for the truth.
///
/// @param file appears under its name when it is complete
/// @throw FileError          for damaged fits, a page that cannot be written, and a truth that
///                           cannot be used
/// @throw geo::DetectorError where the detector kept in the file cannot be used
void WriteReport(FitReader& fits, const std::string& file, const ReportOptions& options = {});

} // namespace kelvo
