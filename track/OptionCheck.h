#pragma once

#include <string>

namespace kelvo {

/// Refuses an option that is out of range: "NAME is VALUE; it must be RULE".
/// @throws std::invalid_argument where ok is false
void CheckOption(bool ok, const std::string& name, double value, const std::string& rule);

} // namespace kelvo
