#include "track/TrackFrame.h"

#include <cmath>

namespace kelvo {

TrackFrame::TrackFrame(const TVector3& origin, const TVector3& axis)
    : fOrigin(origin), fAxis(axis) {
  fE[0] = TVector3(axis.Z(), 0, -axis.X()).Unit();
  fE[1] = TVector3(0, axis.Z(), -axis.Y()).Unit();
  const double g = fE[0].Dot(fE[1]);
  fD[0] = (fE[0] - g * fE[1]) * (1 / (1 - g * g));
  fD[1] = (fE[1] - g * fE[0]) * (1 / (1 - g * g));
}

double TrackFrame::Transverse(int view, double u, double z) const {
  if (view == 0) return (u - fOrigin.X()) * fE[0].X() + (z - fOrigin.Z()) * fE[0].Z();
  return (u - fOrigin.Y()) * fE[1].Y() + (z - fOrigin.Z()) * fE[1].Z();
}

double TrackFrame::SigTransverse(int view, double sigu, double sigz) const {
  const TVector3& e = fE[static_cast<unsigned>(view)];
  return std::hypot((view == 0 ? e.X() : e.Y()) * sigu, e.Z() * sigz);
}

} // namespace kelvo
