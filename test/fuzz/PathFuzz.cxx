// A path between any points gives energies that fall towards its end, or an exception, and planes
// in order along it.
#include "func/KelvoException.h"
#include "func/Path.h"
#include "func/ScatteringSurfaces.h"
#include "geo/PlaneDetector.h"
#include "test/fuzz/FuzzInput.h"

#include <iostream>
#include <stdexcept>
#include <vector>

namespace {

const geo::PlaneDetector& Fine() {
  std::cerr.setstate(std::ios::failbit);
  static const auto fine = geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return fine;
}

// Time and memory grow with the length of a path and the number of steps, which the layers above
// limit.
double Near(double coordinate) {
  return std::abs(coordinate) > 1e4 ? std::copysign(1e4, coordinate) : coordinate;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  double p0[3], p1[3];
  for (double& c : p0) c = Near(values.Number());
  for (double& c : p1) c = Near(values.Number());
  const double s0 = Near(values.Number());
  std::vector<double> s;
  for (unsigned i = values.Count(10); i > 0; i--) s.push_back(Near(values.Number()));
  const double limits[] = {values.Number(), values.Number(), values.Number()};
  try {
    const kelvo::Path path(Fine(), p0, p1, s0);
    path.Integrate();
    double last = HUGE_VAL;
    for (const double fraction : {0., 0.3, 0.6, 1.}) {
      double T = 0, p = 0, beta = 0, gamma = 0;
      path.MuonParams(s0 + fraction * path.Length(), &T, &p, &beta, &gamma);
      fuzz::Expect(T >= 0 && T <= last * (1 + 1e-9) && std::isfinite(p), "the energy of a muon");
      fuzz::Expect(beta >= 0 && beta <= 1 && gamma >= 1, "its velocity");
      last = T;
    }
    std::sort(s.begin(), s.end());
    kelvo::ScatteringSurfaces surfaces(13, limits[0], limits[1], limits[2]);
    surfaces.MakeSteps(path, s);
    for (unsigned j = 0; j < surfaces.N(); j++) {
      fuzz::Expect(j == 0 || surfaces.S(j) >= surfaces.S(j - 1), "the order of the planes");
      fuzz::Expect(surfaces.SigAlpha(j) > 0, "their widths");
    }
  } catch (const kelvo::KelvoException&) {
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
