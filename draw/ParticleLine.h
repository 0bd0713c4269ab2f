#pragma once

#include "draw/Picture.h"

namespace kelvo {

/// Returns the line that stands for a particle in every plot; its dashes tell it without colour,
/// too.
/// @param pdg code of either sign; unknown ones have a line of their own
LineStyle ParticleLine(int pdg);

} // namespace kelvo
