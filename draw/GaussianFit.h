#pragma once

#include "draw/Histogram.h"

namespace kelvo {

/// A Gaussian that was fitted to a histogram.
struct Gaussian {
  bool fFitted = false; ///< false: too few entries, or none whose middle and width show
  double fHeight = 0;
  double fMean = 0;
  double fMeanError = 0;
  double fWidth = 0;
  double fWidthError = 0;
};

/// Fits by maximum likelihood; at least 20 entries are needed, with the mean within the histogram
/// and a width of no more than half of it.
Gaussian FitGaussian(const Histogram& histogram);

} // namespace kelvo
