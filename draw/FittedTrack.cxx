#include "draw/FittedTrack.h"

#include <cmath>

namespace kelvo {

namespace {

// The frame that the track was fitted in: from the same hits, in the same way.
TrackFrame FrameOf(const FitRow& row) {
  HitList3D hits;
  for (std::size_t i = 0; i < row.fHitZ.size(); ++i) {
    const double u = row.fHitU[i];
    const double sig = HitUncertainty(row, i);
    hits.AddHit(static_cast<geo::_plane_proj>(row.fHitView[i]), u, u, row.fHitZ[i], 0, sig, sig, 0,
                0, 1);
  }
  hits.CompleteOrtho(&gsDefaultInterp); // given by name, it does not sort again
  return FrameAlong(hits);
}

} // namespace

FittedTrack::FittedTrack(const FitRow& row) {
  const TrackFrame frame = FrameOf(row);
  const double p[] = {row.fX, row.fY, row.fZ};
  const double u[] = {row.fUX, row.fUY, row.fUZ};
  const Vector& w = frame.Axis();
  double s = frame.AxisCoordinate({p[0], p[1], p[2]});
  double a[2];
  double b[2];
  for (std::size_t v = 0; v < 2; ++v) {
    a[v] = frame.Transverse(v, p[v], p[2]);
    const double across = frame.Transverse(v, p[v] + u[v], p[2] + u[2]) - a[v];
    b[v] = across / (u[0] * w[0] + u[1] * w[1] + u[2] * w[2]);
  }
  fPoints.push_back({p[0], p[1], p[2]});
  for (std::size_t j = 0; j < row.fPlaneS.size(); ++j) {
    const double step = row.fPlaneS[j] - s;
    fPlanes.push_back(frame.Point(s + step, a[0] + b[0] * step, a[1] + b[1] * step));
    // The direction at the first hit is behind a plane that lies before it.
    if (step <= 0) continue;
    s += step;
    for (std::size_t v = 0; v < 2; ++v) {
      a[v] += b[v] * step;
      b[v] += (v == 0 ? row.fKinkX : row.fKinkY)[j];
    }
    fPoints.push_back(fPlanes.back());
  }
  const Vector last = frame.Point(s, a[0], a[1]);
  const Vector tangent = frame.Tangent(b[0], b[1]);
  const double step = (row.fHitZ.back() - last[2]) / tangent[2];
  fPoints.push_back(
      {last[0] + step * tangent[0], last[1] + step * tangent[1], last[2] + step * tangent[2]});
}

double FittedTrack::At(std::size_t view, double z) const {
  std::size_t i = 1;
  while (i + 1 < fPoints.size() && fPoints[i][2] < z) ++i;
  const Vector& p = fPoints[i - 1];
  const Vector& q = fPoints[i];
  const double length = q[2] - p[2];
  if (length == 0) return p[view];
  return p[view] + (z - p[2]) / length * (q[view] - p[view]);
}

double HitUncertainty(const FitRow& row, std::size_t i) {
  const double fitted = row.fFitSigU[i];
  if (row.fPull[i] == 0) return fitted;
  return std::hypot(static_cast<double>(row.fResidual[i]) / static_cast<double>(row.fPull[i]),
                    fitted);
}

} // namespace kelvo
