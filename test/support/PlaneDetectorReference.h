#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

/// The two bundled detectors written down a second time, from their drawings and not from their
/// files: what is at a point, and, slowly and obviously, the material steps along a line.
namespace reference {

enum Material { kVacuum, kScintillator, kPVC, kGlue, kSteel };
inline const char* const kNames[] = {"Vacuum", "Scintillator", "PVC", "Glue", "Steel"};

/// Calorimeter of 128 planes of 32 cells. Plane p fills 6 cm from z = 6.05 p on, a sheet the rest.
inline Material FineAt(double x, double y, double z) {
  const int p = static_cast<int>(std::floor(z / 6.05));
  if (p < 0 || p > 127) return kVacuum;
  const double depth = z - 6.05 * p;
  if (depth > 6) return p < 127 && std::abs(x) < 64.825 && std::abs(y) < 64.825 ? kGlue : kVacuum;
  const double across = p % 2 == 0 ? x : y;
  const double along = p % 2 == 0 ? y : x;
  if (std::abs(across) > 64.825 || std::abs(along) > 70) return kVacuum;
  const double cell = std::clamp(std::round((across + 62.775) / 4.05), 0., 31.);
  const double u = std::abs(across - (-62.775 + 4.05 * cell));
  if (u > 2) return kGlue;
  const bool filled = u < 1.8 && std::abs(along) < 69.8 && depth > 0.2 && depth < 5.8;
  return filled ? kScintillator : kPVC;
}

/// Range stack of 60 layers of 4 cm: steel, scintillator, nothing.
inline Material RangeAt(double x, double y, double z) {
  const int k = static_cast<int>(std::floor(z / 4));
  if (k < 0 || k > 59 || std::abs(x) > 150 || std::abs(y) > 150) return kVacuum;
  const double depth = z - 4 * k;
  return depth < 2.5 ? kSteel : depth < 3.5 ? kScintillator : kVacuum;
}

/// One detector: its map, and every coordinate at which something may change.
struct Detector {
  std::string fName;
  Material (*fAt)(double, double, double);
  double fHalf;   ///< half of the transverse size [cm]
  double fLength; ///< along z [cm]
  std::vector<double> fFaces[3];
};

/// What the test's messages show of a detector.
inline void PrintTo(const Detector& d, std::ostream* out) {
  *out << d.fName;
}

inline Detector Fine() {
  Detector d{"fine", FineAt, 70, 774.35, {}};
  for (int p = 0; p < 128; p++)
    for (double depth : {0., 0.2, 5.8, 6.}) d.fFaces[2].push_back(6.05 * p + depth);
  for (int k = 0; k < 2; k++) {
    for (double edge : {70., 69.8, 64.825}) {
      d.fFaces[k].push_back(edge);
      d.fFaces[k].push_back(-edge);
    }
    for (int i = 0; i < 32; i++)
      for (double u : {-2., -1.8, 1.8, 2.}) d.fFaces[k].push_back(-62.775 + 4.05 * i + u);
  }
  return d;
}

inline Detector Range() {
  Detector d{"range", RangeAt, 150, 239.5, {{-150, 150}, {-150, 150}, {}}};
  for (int k = 0; k < 60; k++)
    for (double depth : {0., 2.5, 3.5}) d.fFaces[2].push_back(4 * k + depth);
  return d;
}

struct Step {
  double fLength;
  Material fMaterial;
};

/// All faces that the line crosses, sorted; what is between two of them is asked at its middle.
inline std::vector<Step> Steps(const Detector& d, const double* p0, const double* p1) {
  std::vector<double> t{0, 1};
  for (int k = 0; k < 3; k++)
    for (double face : d.fFaces[k]) {
      const double crossing = (face - p0[k]) / (p1[k] - p0[k]);
      if (crossing > 0 && crossing < 1) t.push_back(crossing);
    }
  std::sort(t.begin(), t.end());
  const double length = std::hypot(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]);
  std::vector<Step> steps;
  for (std::size_t i = 0; i + 1 < t.size(); i++) {
    if ((t[i + 1] - t[i]) * length < 1e-10) continue;
    const double mid = 0.5 * (t[i] + t[i + 1]);
    const Material m = d.fAt(p0[0] + mid * (p1[0] - p0[0]), p0[1] + mid * (p1[1] - p0[1]),
                             p0[2] + mid * (p1[2] - p0[2]));
    if (!steps.empty() && steps.back().fMaterial == m)
      steps.back().fLength += (t[i + 1] - t[i]) * length;
    else
      steps.push_back({(t[i + 1] - t[i]) * length, m});
  }
  return steps;
}

/// Numbers from low to high, the same on every machine.
class Random {
public:
  explicit Random(std::uint64_t seed) : fBits(seed) {}
  double operator()(double low, double high) {
    return low + (high - low) * 0x1p-53 * static_cast<double>(fBits() >> 11);
  }
  std::uint64_t Below(std::uint64_t n) { return fBits() % n; }

private:
  std::mt19937_64 fBits;
};

/// Two points.
struct Line {
  double fFrom[3];
  double fTo[3];
};

/// A way through the detector like that of a track, from face to face.
inline Line TrackThrough(const Detector& d, Random& random) {
  Line line{};
  const double start = random(0, 0.2 * d.fLength);
  const double length = random(0.2, 0.8) * d.fLength;
  for (int k = 0; k < 2; k++) {
    line.fFrom[k] = random(-0.9, 0.9) * d.fHalf;
    line.fTo[k] = line.fFrom[k] + random(-0.3, 0.3) * length;
  }
  line.fFrom[2] = start;
  line.fTo[2] = start + length;
  return line;
}

/// A short way of any direction, in and around the detector.
inline Line AnyWay(const Detector& d, Random& random) {
  Line line{};
  for (int k = 0; k < 3; k++) {
    line.fFrom[k] = k < 2 ? random(-1.1, 1.1) * d.fHalf : random(-0.1, 1.1) * d.fLength;
    line.fTo[k] = line.fFrom[k] + random(-20, 20);
  }
  return line;
}

} // namespace reference
