#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// Returns the names of the materials for which there is a stopping-power table: the only ones that
/// the range-out of a stopping particle can cross.
const std::vector<std::string>& MaterialsWithTable();

/// Returns whether a material is one of them.
bool HasTable(std::string_view material);

/// Returns those of the names, in their order and each once, for which there is none.
std::vector<std::string> MaterialsWithoutTable(const std::vector<std::string>& names);

} // namespace kelvo
