#pragma once

#include <string>
#include <vector>

namespace kelvo {

/// Returns the names of the materials for which there is a stopping-power table.
const std::vector<std::string>& MaterialsWithTable();

/// Returns those of the names, in their order and each once, for which there is none: the range-out
/// of a stopping particle cannot cross such a material.
std::vector<std::string> MaterialsWithoutTable(const std::vector<std::string>& names);

} // namespace kelvo
