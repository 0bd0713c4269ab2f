#pragma once

#include "geo/PlaneDetector.h"

#include <map>
#include <string>

/// Returns a detector that comes with the project, read once: "fine" is detectors/fine.toml.
inline const geo::PlaneDetector& BundledDetector(const std::string& name) {
  static std::map<std::string, geo::PlaneDetector> read;
  const auto found = read.find(name);
  if (found != read.end()) return found->second;
  const std::string file = KELVO_SOURCE_DIR "/detectors/" + name + ".toml";
  return read.emplace(name, geo::PlaneDetector::FromFile(file)).first->second;
}
