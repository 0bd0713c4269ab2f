#pragma once

#include "func/HitList3D.h"

#include <cmath>
#include <cstddef>
#include <vector>

/// Completion of hits and track frame as plain programs over arrays.
namespace reference {

/// The hits of a list that is sorted by z.
struct HitArrays {
  std::vector<int> view;
  std::vector<double> x, y, z, w, sigx, sigy, sigz;

  explicit HitArrays(const kelvo::HitList3D& list) {
    for (const kelvo::Hit3D& h : list) {
      view.push_back(h.fView);
      x.push_back(h.fX);
      y.push_back(h.fY);
      z.push_back(h.fZ);
      w.push_back(h.fW);
      sigx.push_back(h.fSigX);
      sigy.push_back(h.fSigY);
      sigz.push_back(h.fSigZ);
    }
  }
};

/// Gives the unmeasured coordinate of hit k and its uncertainty. Tests every hit in every window.
inline void Complete(const HitArrays& h, std::size_t k, double* coordinate, double* sigma) {
  double s = 0, sz = 0, szz = 0, sc = 0, szc = 0;
  for (double window = 100; window <= 400; window *= 2) {
    s = sz = szz = sc = szc = 0;
    int count = 0;
    for (std::size_t i = 0; i < h.z.size(); i++) {
      if (h.view[i] == h.view[k] || std::fabs(h.z[i] - h.z[k]) >= window) continue;
      const double c = h.view[i] == 0 ? h.x[i] : h.y[i];
      s += h.w[i];
      sz += h.w[i] * h.z[i];
      szz += h.w[i] * h.z[i] * h.z[i];
      sc += h.w[i] * c;
      szc += h.w[i] * h.z[i] * c;
      count++;
    }
    if (count > 5) break;
  }
  const double d = s * szz - sz * sz;
  *coordinate = 0;
  *sigma = 1000;
  if (d == 0) return;
  const double b = (s * szc - sz * sc) / d;
  const double a = -(sz * szc - szz * sc) / d;
  const double own = h.view[k] == 0 ? h.sigx[k] : h.sigy[k];
  *coordinate = a + h.z[k] * b;
  *sigma = std::sqrt(b * b * h.sigz[k] * h.sigz[k] + own * own);
}

/// Gives one coordinate and its uncertainty, rotated by a row of a matrix.
inline void Rotate(const double* row, const double* p, const double* sigma, double* out,
                   double* sigmaOut) {
  *out = row[0] * p[0] + row[1] * p[1] + row[2] * p[2];
  *sigmaOut = std::sqrt((row[0] * sigma[0]) * (row[0] * sigma[0]) +
                        (row[1] * sigma[1]) * (row[1] * sigma[1]) +
                        (row[2] * sigma[2]) * (row[2] * sigma[2]));
}

/// Builds the frame f (rows: axes) with origin o around the direction w, turned by the hits.
inline void Frame(const double w[3], const double o[3], const std::vector<double>& x,
                  const std::vector<double>& y, const std::vector<double>& z,
                  const std::vector<double>& dx, const std::vector<double>& dy,
                  const std::vector<double>& dz, double f[3][3]) {
  // The products of the detector axes with w, written out.
  const double c1[] = {0, -w[2], w[1]}, c2[] = {w[2], 0, -w[0]}, c3[] = {-w[1], w[0], 0};
  const double m1 = w[2] * w[2] + w[1] * w[1];
  const double m2 = w[2] * w[2] + w[0] * w[0];
  const double m3 = w[1] * w[1] + w[0] * w[0];
  const bool fromY = m2 >= m1 && m2 >= m3;
  const bool fromX = !fromY && m1 >= m2 && m1 >= m3;
  const double* c = fromY ? c2 : fromX ? c1 : c3;
  const double length = std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]);
  double* a = f[fromX ? 1 : 0];
  for (int k = 0; k < 3; k++) {
    a[k] = c[k] / length;
    f[2][k] = w[k];
  }
  const double* left = fromX ? a : w;
  const double* right = fromX ? w : a;
  for (int k = 0; k < 3; k++) {
    const int k1 = (k + 1) % 3, k2 = (k + 2) % 3;
    f[fromX ? 0 : 1][k] = left[k1] * right[k2] - left[k2] * right[k1];
  }

  double sum = 0, sumZ = 0;
  for (std::size_t k = 0; k < x.size(); k++) {
    const double p[] = {x[k] - o[0], y[k] - o[1], z[k] - o[2]};
    const double sigma[] = {dx[k], dy[k], dz[k]};
    double Z = 0, sigmaZ = 0;
    Rotate(f[2], p, sigma, &Z, &sigmaZ);
    const double weight = sigmaZ < 0.1 ? 1 / (0.1 * 0.1) : 1 / (sigmaZ * sigmaZ);
    sum += weight;
    sumZ += weight * Z;
  }
  if (sumZ / sum < 0)
    for (int k = 0; k < 3; k++) {
      f[1][k] = -f[1][k];
      f[2][k] = -f[2][k];
    }
}

/// Gives the slope of y(x) with variances, all above zero, by centred sums.
inline double Slope(const std::vector<double>& x, const std::vector<double>& y,
                    const std::vector<double>& variance) {
  double s = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (std::size_t i = 0; i < x.size(); i++) {
    s += 1 / variance[i];
    sx += x[i] / variance[i];
    sy += y[i] / variance[i];
  }
  for (std::size_t i = 0; i < x.size(); i++) {
    const double u = x[i] - sx / s;
    sxx += u * u / variance[i];
    sxy += u * (y[i] - sy / s) / variance[i];
  }
  return sxy / sxx;
}

/// Builds the frame from the hits alone.
inline void Frame(const double o[3], const std::vector<double>& x, const std::vector<double>& y,
                  const std::vector<double>& z, const std::vector<double>& dx,
                  const std::vector<double>& dy, const std::vector<double>& dz, double f[3][3]) {
  std::vector<double> variance(z.size());
  for (std::size_t i = 0; i < z.size(); i++) variance[i] = dx[i] * dx[i] + dz[i] + dz[i];
  const double mx = Slope(z, x, variance);
  for (std::size_t i = 0; i < z.size(); i++) variance[i] = dy[i] * dy[i] + dz[i] + dz[i];
  const double my = Slope(z, y, variance);
  const double length = std::sqrt(mx * mx + my * my + 1);
  const double w[] = {mx / length, my / length, 1 / length};
  Frame(w, o, x, y, z, dx, dy, dz, f);
}

} // namespace reference
