#include "geo/DetectorFiles.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

namespace geo {

namespace {

std::filesystem::path Folder() {
  static const char gsInside = 0;
  Dl_info library;
  if (dladdr(&gsInside, &library) == 0) return {};
  std::error_code error;
  const auto file = std::filesystem::canonical(library.dli_fname, error);
  return (file.parent_path() / KELVO_DETECTORS).lexically_normal();
}

} // namespace

std::vector<std::string> InstalledDetectors() {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(Folder(), error))
    if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string DetectorFileOf(const std::string& name) {
  std::error_code error;
  if (std::filesystem::exists(name, error)) return name;
  const auto names = InstalledDetectors();
  if (std::find(names.begin(), names.end(), name) == names.end()) return name;
  return (Folder() / (name + ".toml")).string();
}

} // namespace geo
