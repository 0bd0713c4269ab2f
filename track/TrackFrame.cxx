#include "track/TrackFrame.h"

#include <cmath>

namespace kelvo {

TrackFrame::TrackFrame(const Vector& origin, const Vector& axis) : fOrigin(origin), fAxis(axis) {
  for (std::size_t v = 0; v < 2; v++) {
    const double norm = std::hypot(axis[2], axis[v]);
    fE[v][v] = axis[2] / norm;
    fE[v][2] = -axis[v] / norm;
  }
  const double g = fE[0][2] * fE[1][2];
  for (std::size_t i = 0; i < 3; i++) {
    fD[0][i] = (fE[0][i] - g * fE[1][i]) / (1 - g * g);
    fD[1][i] = (fE[1][i] - g * fE[0][i]) / (1 - g * g);
  }
}

double TrackFrame::SigTransverse(std::size_t view, double sigu, double sigz) const {
  return std::hypot(fE[view][view] * sigu, fE[view][2] * sigz);
}

double TrackFrame::AxisCoordinate(const Vector& p) const {
  double s = 0;
  for (std::size_t i = 0; i < 3; i++) s += (p[i] - fOrigin[i]) * fAxis[i];
  return s;
}

} // namespace kelvo
