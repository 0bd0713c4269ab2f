#pragma once

#include <string>
#include <vector>

namespace geo {

/// Returns the names of the detectors that come with the library, such as "fine", in alphabetical
/// order. Their files lie at a fixed place as seen from the library; empty where it has none.
std::vector<std::string> InstalledDetectors();

/// Returns the file that a name stands for: that of an installed detector, unless there is a file
/// of this name. Any other name is returned as it is.
std::string DetectorFileOf(const std::string& name);

} // namespace geo
