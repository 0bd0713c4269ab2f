#include "track/TrackFrame.h"

#include "func/TrackBasis.h"

#include <cmath>
#include <vector>

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

TrackFrame FrameAlong(const HitList3D& hits) {
  std::vector<double> x, y, z, dx, dy, dz;
  for (std::vector<double>* column : {&x, &y, &z, &dx, &dy, &dz}) column->reserve(hits.size());
  for (const Hit3D& hit : hits) {
    x.push_back(hit.fX);
    y.push_back(hit.fY);
    z.push_back(hit.fZ);
    dx.push_back(hit.fSigX);
    dy.push_back(hit.fSigY);
    dz.push_back(hit.fSigZ);
  }
  TrackBasis basis;
  basis.MakeBasis(x, y, z, dx, dy, dz, x[0], y[0], z[0]);
  const TVector3 axis = basis.ZAxis() * (basis.ZAxis().Z() < 0 ? -1 : 1);
  return TrackFrame({x[0], y[0], z[0]}, {axis.X(), axis.Y(), axis.Z()});
}

} // namespace kelvo
