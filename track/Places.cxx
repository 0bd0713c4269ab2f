#include "track/Places.h"

#include "util/Text.h"

#include <charconv>
#include <cmath>
#include <stdexcept>

namespace kelvo {

namespace {

unsigned int FindPlane(const std::string& text, const geo::PlaneDetector* detector) {
  if (!detector)
    throw std::invalid_argument("the plane " + Shown(text) +
                                " is asked for, but the detector does not tell its planes; give a "
                                "place along z, such as z=12.5");
  const int plane = detector->FindPlane(text);
  if (plane < 0)
    throw std::invalid_argument(
        Shown(text) + " is not the number, from 0 to " +
        std::to_string(detector->Planes().size() - 1) +
        ", or name of one plane of the detector; planes that share a name go by their numbers");
  return static_cast<unsigned int>(plane);
}

} // namespace

std::vector<unsigned int> FindPlanes(const std::vector<std::string>& texts,
                                     const geo::PlaneDetector* detector) {
  std::vector<unsigned int> planes;
  for (const std::string& text : texts) planes.push_back(FindPlane(text, detector));
  return planes;
}

std::vector<double> FindPlaces(const std::vector<std::string>& texts,
                               const geo::PlaneDetector* detector) {
  constexpr double kLargest = 1e5; // cm
  std::vector<double> places;
  for (const std::string& text : texts) {
    if (text.rfind("z=", 0) != 0) {
      const unsigned int plane = FindPlane(text, detector);
      places.push_back(detector->Planes()[plane].ZMid());
      continue;
    }
    double z = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + 2, end, z);
    if (error != std::errc() || stop != end || !(std::abs(z) <= kLargest))
      throw std::invalid_argument(Shown(text) + " is no place along z [cm], such as z=12.5");
    places.push_back(z);
  }
  return places;
}

} // namespace kelvo
