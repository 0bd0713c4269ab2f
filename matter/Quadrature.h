#pragma once

// Gauss' rule, for the sources of this folder: not installed.

namespace matter {

/// Returns the integral of a function from low to high by the rule of Gauss and Legendre with eight
/// points (M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, table 25.4).
template <class Function>
double Gauss8(const Function& function, double low, double high) {
  constexpr double kX[] = {0.183434642495650, 0.525532409916329, 0.796666477413627,
                           0.960289856497536};
  constexpr double kW[] = {0.362683783378362, 0.313706645877887, 0.222381034453374,
                           0.101228536290376};
  const double middle = (low + high) / 2, half = (high - low) / 2;
  double sum = 0;
  for (int k = 0; k < 4; k++)
    sum += kW[k] * (function(middle - half * kX[k]) + function(middle + half * kX[k]));
  return sum * half;
}

} // namespace matter
