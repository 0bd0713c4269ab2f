// A detector file of any content is read or refused with a DetectorError: libFuzzer looks for one
// that is neither. Start it in a folder with copies of detectors/*.toml as its first inputs.
#include "geo/PlaneDetector.h"
#include "test/fuzz/FuzzInput.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    geo::PlaneDetector::FromText(std::string(reinterpret_cast<const char*>(data), size), "fuzz");
  } catch (const geo::DetectorError&) {
  }
  return 0;
}
