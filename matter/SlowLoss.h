#pragma once

#include "matter/Element.h"

namespace matter {

/// Returns the mean mass stopping power of slow protons [MeV cm2/g] as fitted to measurements:
/// 1/S = 1/S_low + 1/S_high with S_low = A2 T^0.45 and S_high = (A3/T) ln(1 + A4/T + A5 T) (C.
/// Varelas, J. P. Biersack, Nucl. Instr. Meth. 79 (1970) 213). The coefficients are those of H. H.
/// Andersen, J. F. Ziegler, Hydrogen Stopping Powers and Ranges in All Elements, 1977, as revised
/// in ICRU Report 49. Beyond uranium it is proportional to Z.
/// @param T kinetic energy [GeV], from 1e-5 to 1e-3
double SlowProtonLoss(const Element& element, double T);

} // namespace matter
