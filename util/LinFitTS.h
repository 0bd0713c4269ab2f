#pragma once

#include <vector>

namespace util {

/// Fits the straight line y = m x + c by weighted least squares.
///
/// With weight W_j of point j and the weighted means <x>, <y>, the line is
///   m = sum W_j (x_j - <x>)(y_j - <y>) / sum W_j (x_j - <x>)^2,   c = <y> - m <x>
/// (P. R. Bevington, D. K. Robinson, Data Reduction and Error Analysis for the Physical Sciences,
/// 3rd ed., section 6.3, in the centred form, which keeps its digits when the abscissae lie far
/// from zero). Finite input never gives NaN; a NaN among the input gives NaN. A result beyond the
/// range of a double is infinite. Nothing is allocated.
///
/// Special cases:
/// - mode 2, some variances zero: the line through those exact points alone, weighted equally; with
///   all variances zero that is the unweighted line. A negative variance counts as zero.
/// - mode 1, weights zero or negative: such points do not count.
/// - all counting abscissae equal, or fewer than two counting points: m = 0 and c the weighted mean
///   of y, 0 without any point.
///
/// @param x    abscissae
/// @param y    ordinates, as many as x
/// @param w    one number per point, as many as x in every mode; what it means is told by mode
/// @param m    slope, out
/// @param c    intercept at x = 0, out
/// @param mode 0: unweighted, w is not read; 1: w are the weights W_j; 2: w are variances in the
///             units of y squared, W_j = 1 / w_j
/// @throws std::invalid_argument for vectors of unequal length and for any other mode, saying
///         which; m and c are then untouched
void LinFitTS(const std::vector<double>& x, const std::vector<double>& y,
              const std::vector<double>& w, double& m, double& c, int mode);

} // namespace util
