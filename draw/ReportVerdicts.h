#pragma once

#include "draw/ReportData.h"
#include "geo/PlaneDetector.h"

#include <array>
#include <string>
#include <vector>

namespace kelvo {

/// What the entries of one plot say, each with the numbers that it follows from.
struct Verdict {
  bool fIsSuspicious = false;
  std::string fText; ///< one or a few sentences
};

/// Returns a value and its error with as many digits as the error gives.
/// @param factor from their unit to the shown one
std::string WithError(double value, double error, double factor);

/// Whether the central 68 % of pulls lie within 0.8 to 1.25 around 0: what uncertainties of the
/// right size give, Gaussian ones as well as those of cells.
/// @param name begins the sentence; may be empty
Verdict JudgePull(const Histogram& pulls, const std::string& name);

/// The same of both views.
Verdict JudgePulls(const std::array<Histogram, 2>& views);

/// Whether kinks are not wider than expected, and around 0.
Verdict JudgeKinks(const std::array<Histogram, 2>& views);

/// Whether small and large probabilities are about as frequent as they should be.
Verdict JudgeProbability(const Histogram& probability);

/// Whether the median chi-square per degree of freedom of the shown fits is near 1.
Verdict JudgeChi2(const LogHistogram& chi2);

/// Whether a bin sticks out of its neighbours.
/// @param histograms of one range, whose counts are added up
Verdict JudgeSpikes(const std::vector<const Histogram*>& histograms, const char* unit);

/// How clear the choice between hypotheses is.
Verdict JudgeLead(const ReportData& report);

/// Which planes are displaced, or have other widths than their neighbours.
Verdict JudgeMeans(const ReportData& report, std::size_t view);

/// Which planes are turned, or have another pitch than described.
Verdict JudgeSlopes(const ReportData& report, std::size_t view);

/// Whether a mean residual is more than 5 errors and a tenth of the width from 0.
bool IsDisplaced(const PlaneResiduals& plane);

/// Whether a slope is more than 6 errors from 0 and moves residuals by more than a fifth of their
/// width between the sides of the hits.
bool IsSloped(const SlopeSum& slope, const PlaneResiduals& plane);

/// How fitted values lie around the true ones, and whether around 0.
/// @param name   of the quantity, to begin a sentence
/// @param factor from the values' unit to the shown one
Verdict JudgeTruth(const Deviations& deviations, const char* name, double factor, const char* unit);

} // namespace kelvo
