#include "track/Materials.h"

#include <algorithm>

namespace kelvo {
namespace {

bool Contains(const std::vector<std::string>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

const std::vector<std::string>& MaterialsWithTable() {
  static const std::vector<std::string> names{"Scintillator", "PVC", "Glue", "Steel", "Vacuum"};
  return names;
}

bool HasTable(std::string_view material) {
  return Contains(MaterialsWithTable(), material);
}

std::vector<std::string> MaterialsWithoutTable(const std::vector<std::string>& names) {
  std::vector<std::string> missing;
  for (const std::string& name : names)
    if (!HasTable(name) && !Contains(missing, name)) missing.push_back(name);
  return missing;
}

} // namespace kelvo
