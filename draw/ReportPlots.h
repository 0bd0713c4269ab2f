#pragma once

#include "draw/GaussianFit.h"
#include "draw/Picture.h"
#include "draw/ReportData.h"
#include "geo/PlaneDetector.h"

#include <array>
#include <optional>
#include <string>

namespace kelvo {

/// Draws histograms of both views with their Gaussians.
Picture DrawViews(const std::array<Histogram, 2>& views, const std::array<Gaussian, 2>& gaussians,
                  const std::string& title, const std::string& quantity);

/// Draws the probability of chi-square, with the line on which a flat one would lie.
Picture DrawProbability(const Histogram& probability);

/// What DrawByHypothesis shows of each hypothesis.
using HistogramOf = const std::optional<Histogram>& (*)(const HypothesisReport&);

/// Draws one histogram per hypothesis into one plot.
Picture DrawByHypothesis(const ReportData& report, HistogramOf histogram, const std::string& title,
                         const std::string& quantity);

/// Draws one histogram.
Picture DrawHistogram(const Histogram& histogram, const Gaussian& gaussian,
                      const std::string& title, const std::string& quantity);

/// Draws middle and width of the momentum's deviation against the true momentum.
Picture DrawMomentumResolution(const TruthComparison& truth);

/// Draws how often each hypothesis is the best one.
Picture DrawBestFractions(const ReportData& report);

/// Draws mean and width of the residuals of one view against the position of the plane.
Picture DrawResidualsByPlane(const ReportData& report, const geo::PlaneDetector& detector,
                             std::size_t view);

/// Draws the mean residual of one view over its error in parts of each plane, as a map.
Picture DrawResidualMap(const ReportData& report, const geo::PlaneDetector& detector,
                        std::size_t view);

} // namespace kelvo
