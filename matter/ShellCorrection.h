#pragma once

#include "matter/Element.h"

namespace matter {

/// Returns the shell correction C/Z of one element, to be taken twice from the braces of the Bethe
/// formula: inner electrons, whose velocity is not small against the particle's, lose their part.
///
/// K and L shells from the calculations of Walske and of Khandelwal with hydrogen-like wave
/// functions, all outer shells by scaling the L shell (H. Bichsel, Phys. Rev. A 46 (1992) 5761).
/// @param beta velocity in units of c, above 0
double ShellCorrection(const Element& element, double beta);

} // namespace matter
