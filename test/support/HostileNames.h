#pragma once

#include "test/support/TempFolder.h"

#include <set>
#include <string>
#include <vector>

namespace test {

/// Returns names that a file system takes as they are, and ROOT does not.
inline std::vector<std::string> HostileNames() {
  return {"hits#1.root", "a?b.root",    "a|b.root",     "$HOME.root",  " lead.root",
          "~.root",      "file:x.root", "http:;x.root", "a b*[1].root"};
}

/// Returns names of folders of that kind, which are made in a folder.
inline std::vector<std::string> HostileFolders(const TempFolder& folder) {
  std::vector<std::string> names;
  for (const char* name : {"plain", "a#b", " x", "$HOME", "a?b", "file:"}) {
    std::filesystem::create_directory(folder.Path(name));
    names.push_back(folder.Path(name));
  }
  return names;
}

/// Returns the names of what lies in a folder and below it.
inline std::set<std::string> Listing(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    names.insert(entry.path().string());
  return names;
}

} // namespace test
