#include "track/TrackPoint.h"

#include <algorithm>
#include <cmath>

namespace kelvo {
namespace {

constexpr double kForward = 0.1; // of a tangent along z; below, a plane is hardly crossed

KinkPoint Moved(const KinkPoint& p, double ds) {
  return {p.fX + ds * p.fSlope, p.fSlope, p.fVarX + ds * (2 * p.fCovXSlope + ds * p.fVarSlope),
          p.fCovXSlope + ds * p.fVarSlope, p.fVarSlope};
}

} // namespace

TrackPoint PointAtPlane(const TrackFrame& frame, const LinePair& line, double z) {
  const auto& [x, y] = line.fState;
  TrackPoint p{line, frame.Point(line.fS, x.fX, y.fX), frame.Tangent(x.fSlope, y.fSlope), {}, true};
  p.fCrosses = p.fTangent[2] >= kForward;
  // A line along its plane has no position at fixed z; this keeps the numbers of such a hit finite.
  p.fTangent[2] = std::max(p.fTangent[2], kForward);
  if (p.fCrosses) {
    const double ds = (z - p.fPoint[2]) / p.fTangent[2];
    p.fLine = {line.fS + ds, {Moved(x, ds), Moved(y, ds)}};
    for (std::size_t i = 0; i < 3; i++) p.fPoint[i] += ds * p.fTangent[i];
  }
  for (std::size_t u = 0; u < 2; u++)
    for (std::size_t v = 0; v < 2; v++)
      p.fByView[u][v] = frame.Dual(v)[u] - p.fTangent[u] / p.fTangent[2] * frame.Dual(v)[2];
  return p;
}

void MoveToTrack(const TrackPoint& point, TrackHit& hit) {
  const std::size_t v = hit.fView;
  const double scale = point.fByView[v][v];
  if (!point.fCrosses || scale < kForward) return;
  const double slope = point.fTangent[v] / point.fTangent[2];
  hit.fS = point.fLine.fS;
  hit.fA = point.fLine.fState[v].fX + (hit.fU - point.fPoint[v]) / scale;
  hit.fSigA = std::hypot(hit.fSigU, slope * hit.fSigZ) / scale;
}

void FillHit(const TrackPoint& point, const TrackHit& hit, HitFit& fit) {
  const std::size_t v = hit.fView;
  const KinkPoint& own = point.fLine.fState[v];
  const KinkPoint& other = point.fLine.fState[1 - v];
  const double own2 = point.fByView[v][v] * point.fByView[v][v];
  const double other2 = point.fByView[v][1 - v] * point.fByView[v][1 - v];
  fit.fView = static_cast<int>(v);
  fit.fZ = hit.fZ;
  fit.fU = hit.fU;
  fit.fSigU = hit.fSigU;
  fit.fFitU = point.fPoint[v];
  fit.fFitSigU = std::sqrt(own2 * own.fVarX + other2 * other.fVarX);
  fit.fResidual = fit.fU - fit.fFitU;
  // A fitted coordinate is correlated with the hit itself, by its own variance.
  const double variance = own2 * (hit.fSigA * hit.fSigA - own.fVarX) + other2 * other.fVarX;
  // A hit that the track goes through by necessity has no residual to compare.
  const bool free = variance > 1e-9 * hit.fSigU * hit.fSigU;
  fit.fPull = free ? fit.fResidual / std::sqrt(variance) : 0;
  fit.fFitSlope = point.fTangent[v] / point.fTangent[2];
  fit.fFitSigSlope = std::sqrt(own2 * own.fVarSlope + other2 * other.fVarSlope) / point.fTangent[2];
}

void FillStart(const TrackFrame& frame, const TrackPoint& point, HypothesisFit& fit) {
  const auto& [tx, ty, tz] = point.fTangent;
  const double norm = std::sqrt(tx * tx + ty * ty + tz * tz);
  fit.fPosition.SetXYZ(point.fPoint[0], point.fPoint[1], point.fPoint[2]);
  fit.fDirection.SetXYZ(tx / norm, ty / norm, tz / norm);
  // x, y, ux, uy: derivatives by a view's position and by its slope,
  //   d u_i / d b = (d_i - u_i (u d)) / |t|  for the direction u = t / |t|.
  double byA[2][4] = {}, byB[2][4] = {};
  for (std::size_t v = 0; v < 2; v++) {
    const Vector& d = frame.Dual(v);
    const double along = (tx * d[0] + ty * d[1] + tz * d[2]) / norm;
    for (std::size_t u = 0; u < 2; u++) {
      byA[v][u] = point.fByView[u][v];
      byB[v][u + 2] = (d[u] - point.fTangent[u] / norm * along) / norm;
    }
  }
  std::size_t k = 0;
  for (std::size_t i = 0; i < 4; i++)
    for (std::size_t j = i; j < 4; j++, k++) {
      fit.fCov[k] = 0;
      for (std::size_t v = 0; v < 2; v++) {
        const KinkPoint& c = point.fLine.fState[v];
        fit.fCov[k] += byA[v][i] * c.fVarX * byA[v][j] + byB[v][i] * c.fVarSlope * byB[v][j] +
                       c.fCovXSlope * (byA[v][i] * byB[v][j] + byB[v][i] * byA[v][j]);
      }
    }
}

} // namespace kelvo
