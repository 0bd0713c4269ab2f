#pragma once

#include <string>

namespace kelvo {

/// Returns what an error of the fit library means for a track, as one sentence without full stop.
/// @param code  of the KelvoException; unknown ones are named as such
/// @param value of the KelvoException, in the unit that its code implies
std::string ErrorSentence(unsigned int code, double value);

} // namespace kelvo
