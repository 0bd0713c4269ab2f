#include "track/Materials.h"

#include <algorithm>

namespace kelvo {

const std::vector<std::string>& MaterialsWithTable() {
  static const std::vector<std::string> names{"Scintillator", "PVC", "Glue", "Steel", "Vacuum"};
  return names;
}

bool HasTable(std::string_view material) {
  const std::vector<std::string>& names = MaterialsWithTable();
  return std::find(names.begin(), names.end(), material) != names.end();
}

} // namespace kelvo
