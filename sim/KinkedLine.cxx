#include "sim/KinkedLine.h"

#include "util/LinFitTS.h"

#include <algorithm>

namespace kelvo {

void KinkedLine::Align(const TVector3& p, const TVector3& q) {
  for (int v = 0; v < 2; v++) {
    const double wanted = (q[v] - p[v]) / (q.Z() - p.Z());
    double slope = 0, intercept = 0;
    FindNearest(v, slope, intercept);
    fT0[v] += wanted - slope;
    fU0[v] += p[v] - p.Z() * wanted - intercept;
  }
}

void KinkedLine::Corners(double zBegin, double zEnd, std::vector<TVector3>& corners) const {
  corners.clear();
  const auto add = [&](double z) { corners.emplace_back(Position(0, z), Position(1, z), z); };
  add(zBegin);
  for (const Kink& kink : fKinks)
    if (kink.fZ > corners.back().Z() && kink.fZ < zEnd) add(kink.fZ);
  add(zEnd);
}

/// The straight line nearest to the line at the hits of a view.
void KinkedLine::FindNearest(int view, double& slope, double& intercept) const {
  std::vector<double> z, u;
  for (const Hit3D& hit : fHits) {
    if (hit.fView != view) continue;
    z.push_back(hit.fZ);
    u.push_back(Position(view, hit.fZ));
  }
  util::LinFitTS(z, u, z, slope, intercept, 0);
}

double KinkedLine::Position(int view, double z) const {
  double u = fU0[view] + fT0[view] * z;
  for (const Kink& kink : fKinks) u += kink.fSlope[view] * std::max(z - kink.fZ, 0.);
  return u;
}

} // namespace kelvo
