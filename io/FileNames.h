#pragma once

#include <string>
#include <vector>

namespace kelvo {

/// Makes sure that no output takes the place of an input or of another output, under whatever name.
/// Empty names are left aside.
/// @throw std::invalid_argument that names the file
void CheckApart(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs);

} // namespace kelvo
