#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// Returns the names of the materials for which the library has a table of stopping powers of its
/// own; that of all others is calculated.
const std::vector<std::string>& MaterialsWithTable();

/// Returns whether a material is one of them.
bool HasTable(std::string_view material);

} // namespace kelvo
