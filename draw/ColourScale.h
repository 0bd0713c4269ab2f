#pragma once

#include <string>

namespace kelvo {

/// Steps of colour from blue through none to vermillion: few, since those are told apart better
/// than many, and keep pages small.
constexpr int kColourSteps = 5; ///< to each side

/// Returns the colour of a step, -kColourSteps to kColourSteps, on a white ground.
std::string StepColour(int step);

/// Returns what takes its place on a dark ground.
std::string StepColourInDark(int step);

} // namespace kelvo
