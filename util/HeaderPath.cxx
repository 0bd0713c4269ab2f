// Tells ROOT's interpreter where the headers of the library's dictionary are: at a fixed place as
// seen from the library, wherever both are moved to.

#include <TInterpreter.h>
#include <TROOT.h>

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

std::filesystem::path HeaderFolder() {
  static const char gsInside = 0;
  Dl_info library;
  if (dladdr(&gsInside, &library) == 0) return {};
  std::error_code error;
  const auto file = std::filesystem::canonical(library.dli_fname, error);
  const auto folder = (file.parent_path() / KELVO_HEADERS).lexically_normal();
  return std::filesystem::exists(folder / "func/Lutz.h", error) ? folder : "";
}

/// Runs before the dictionary makes itself known, which looks for the headers.
[[gnu::constructor(101)]] void AddHeaderFolder() {
  const std::string folder = HeaderFolder();
  if (folder.empty()) return;
  // The dictionaries' own includes begin with the folder's name, users' with one inside of it.
  const std::string above = std::filesystem::path(folder).parent_path().string();
  const std::string material = folder + "/geo/material";
  if (TROOT::Initialized()) {
    for (const std::string& path : {above, folder, material})
      gInterpreter->AddIncludePath(path.c_str());
    return;
  }
  // A compiled program may come to need the interpreter. Starting it takes a second, so it is not
  // started here; it reads this variable when it starts.
  const char* others = std::getenv("ROOT_INCLUDE_PATH");
  const std::string all =
      above + ":" + folder + ":" + material + (others ? std::string(":") + others : "");
  setenv("ROOT_INCLUDE_PATH", all.c_str(), 1);
}

} // namespace
