#include "sim/KinkedLine.h"

#include "util/LinFitTS.h"

#include <algorithm>

namespace kelvo {
namespace {

Vector VectorOf(const TVector3& x) {
  return {x.X(), x.Y(), x.Z()};
}

} // namespace

KinkedLine::KinkedLine(HitList3D hits) : fHits(std::move(hits)) {
  HitList3D completed = fHits;
  completed.CompleteOrtho(&gsDefaultInterp);
  fFrame = FrameAlong(completed);
}

void KinkedLine::AddKink(double s, double width, const std::array<double, 2>& normal) {
  fKinks.push_back({s, {width * normal[0], width * normal[1]}});
}

void KinkedLine::Align(const TVector3& p, const TVector3& q) {
  const double sP = fFrame.AxisCoordinate(VectorOf(p)), sQ = fFrame.AxisCoordinate(VectorOf(q));
  for (std::size_t v = 0; v < 2; v++) {
    const int axis = static_cast<int>(v);
    const double aP = fFrame.Transverse(v, p[axis], p.Z());
    const double aQ = fFrame.Transverse(v, q[axis], q.Z());
    double slope = 0, intercept = 0;
    FindNearest(v, slope, intercept);
    fB0[v] += (aQ - aP) / (sQ - sP) - slope;
    fA0[v] += aP - sP * (aQ - aP) / (sQ - sP) - intercept;
  }
}

bool KinkedLine::Corners(double zBegin, double zEnd, std::vector<TVector3>& corners) const {
  std::vector<double> s;
  for (const Kink& kink : fKinks) s.push_back(kink.fS);
  if (s.empty()) s.push_back(0);
  s.insert(s.begin(), WayTo(zBegin, s.front() - 1, s.front()));
  s.push_back(WayTo(zEnd, s.back(), s.back() + 1));
  corners.clear();
  for (const double at : s) {
    corners.push_back(Point(at));
    const std::size_t n = corners.size();
    if (n > 1 && !(corners[n - 1].Z() > corners[n - 2].Z())) return false;
  }
  return true;
}

/// The straight line nearest to the line at the hits of a view.
void KinkedLine::FindNearest(std::size_t view, double& slope, double& intercept) const {
  std::vector<double> s, a;
  for (const Hit3D& hit : fHits) {
    if (hit.fView != static_cast<int>(view)) continue;
    s.push_back(fFrame.AxisCoordinate({hit.fX, hit.fY, hit.fZ}));
    a.push_back(Position(view, s.back()));
  }
  util::LinFitTS(s, a, s, slope, intercept, 0);
}

double KinkedLine::Position(std::size_t view, double s) const {
  double a = fA0[view] + fB0[view] * s;
  for (const Kink& kink : fKinks) a += kink.fAngle[view] * std::max(s - kink.fS, 0.);
  return a;
}

TVector3 KinkedLine::Point(double s) const {
  const Vector x = fFrame.Point(s, Position(0, s), Position(1, s));
  return {x[0], x[1], x[2]};
}

/// Where the straight line through s0 and s1 crosses z.
double KinkedLine::WayTo(double z, double s0, double s1) const {
  const double z0 = Point(s0).Z(), z1 = Point(s1).Z();
  return s0 + (z - z0) * (s1 - s0) / (z1 - z0);
}

} // namespace kelvo
