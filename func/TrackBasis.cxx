#include "func/TrackBasis.h"

#include <cmath>
#include <cstddef>

#include "func/KelvoException.h"
#include "util/LinFitTS.h"

namespace kelvo {

namespace {

/// The fits take variances.
constexpr int kVariances = 2;
/// Smallest uncertainty along the track in the test of its direction [cm]: no single hit may
/// outweigh all others. A choice.
constexpr double kMinSigZ = 0.1;

TVector3 Unit(const TVector3& v) {
  const double length = std::sqrt(v.X() * v.X() + v.Y() * v.Y() + v.Z() * v.Z());
  return {v.X() / length, v.Y() / length, v.Z() / length};
}

double Rotated(const double (&row)[3], double x, double y, double z) {
  return row[0] * x + row[1] * y + row[2] * z;
}

double RotatedSigma(const double (&row)[3], double dx, double dy, double dz) {
  const double a = row[0] * dx;
  const double b = row[1] * dy;
  const double c = row[2] * dz;
  return std::sqrt(a * a + b * b + c * c);
}

void Store(double* to, double value) {
  if (to) *to = value;
}

} // namespace

void TrackBasis::MakeBasis(const std::vector<double>& x, const std::vector<double>& y,
                           const std::vector<double>& z, const std::vector<double>& dx,
                           const std::vector<double>& dy, const std::vector<double>& dz, double ox,
                           double oy, double oz) {
  static const TVector3 x0(1, 0, 0);
  static const TVector3 y0(0, 1, 0);
  static const TVector3 z0(0, 0, 1);

  SetOrigin(ox, oy, oz);
  FindAxis(x, y, z, dx, dy, dz, fZtrk);

  const TVector3 c1 = x0.Cross(fZtrk);
  const TVector3 c2 = y0.Cross(fZtrk);
  const TVector3 c3 = z0.Cross(fZtrk);
  const double m1 = c1.Mag2();
  const double m2 = c2.Mag2();
  const double m3 = c3.Mag2();
  if (m2 >= m1 && m2 >= m3) {
    fXtrk = Unit(c2);
    fYtrk = fZtrk.Cross(fXtrk);
  } else if (m1 >= m2 && m1 >= m3) {
    fYtrk = Unit(c1);
    fXtrk = fYtrk.Cross(fZtrk);
  } else {
    fXtrk = Unit(c3);
    fYtrk = fZtrk.Cross(fXtrk);
  }

  const TVector3* trk[] = {&fXtrk, &fYtrk, &fZtrk};
  const TVector3* det[] = {&x0, &y0, &z0};
  for (int i = 0; i < 3; i++)
    for (int j = 0; j < 3; j++) {
      fDetToTrk[i][j] = trk[i]->Dot(*det[j]);
      fTrkToDet[j][i] = fDetToTrk[i][j];
    }
  AdjustBasisDir(x, y, z, dx, dy, dz);
}

void TrackBasis::FindAxis(const std::vector<double>& x, const std::vector<double>& y,
                          const std::vector<double>& z, const std::vector<double>& dx,
                          const std::vector<double>& dy, const std::vector<double>& dz,
                          TVector3& axis) {
  const std::size_t n = z.size();
  for (const auto* v : {&x, &y, &dx, &dy, &dz})
    if (v->size() != n) throw KelvoException("func/TrackBasis", __LINE__, kIndexProblem, 0);

  std::vector<double> w(n);
  double mx = 0, cx = 0, my = 0, cy = 0;
  for (std::size_t i = 0; i < n; i++) w[i] = dx[i] * dx[i] + dz[i] + dz[i];
  util::LinFitTS(z, x, w, mx, cx, kVariances);
  for (std::size_t i = 0; i < n; i++) w[i] = dy[i] * dy[i] + dz[i] + dz[i];
  util::LinFitTS(z, y, w, my, cy, kVariances);
  axis = Unit({mx, my, 1});
}

void TrackBasis::AdjustBasisDir(const std::vector<double>& x, const std::vector<double>& y,
                                const std::vector<double>& z, const std::vector<double>& dx,
                                const std::vector<double>& dy, const std::vector<double>& dz) {
  if (x.empty()) return;
  double sum = 0, sumZ = 0;
  for (std::size_t i = 0; i < x.size(); i++) {
    const double Z =
        Rotated(fDetToTrk[2], x[i] - fOrigin.X(), y[i] - fOrigin.Y(), z[i] - fOrigin.Z());
    const double sigma = RotatedSigma(fDetToTrk[2], dx[i], dy[i], dz[i]);
    const double w = sigma >= kMinSigZ ? 1 / (sigma * sigma) : 1 / (kMinSigZ * kMinSigZ);
    sum += w;
    sumZ += w * Z;
  }
  if (!(sumZ / sum < 0)) return;

  fYtrk = -fYtrk;
  fZtrk = -fZtrk;
  for (int i = 1; i < 3; i++)
    for (int j = 0; j < 3; j++) {
      fDetToTrk[i][j] = -fDetToTrk[i][j];
      fTrkToDet[j][i] = -fTrkToDet[j][i];
    }
}

void TrackBasis::SetOrigin(double x, double y, double z) {
  fOrigin.SetXYZ(x, y, z);
}

void TrackBasis::DetToTrk(double x, double y, double z, double dx, double dy, double dz, double* X,
                          double* Y, double* Z, double* dX, double* dY, double* dZ) const {
  const auto& r = fDetToTrk;
  const double px = x - fOrigin.X();
  const double py = y - fOrigin.Y();
  const double pz = z - fOrigin.Z();
  Store(X, Rotated(r[0], px, py, pz));
  Store(Y, Rotated(r[1], px, py, pz));
  Store(Z, Rotated(r[2], px, py, pz));
  Store(dX, RotatedSigma(r[0], dx, dy, dz));
  Store(dY, RotatedSigma(r[1], dx, dy, dz));
  Store(dZ, RotatedSigma(r[2], dx, dy, dz));
}

void TrackBasis::TrkToDet(double X, double Y, double Z, double dX, double dY, double dZ, double* x,
                          double* y, double* z, double* dx, double* dy, double* dz) const {
  const auto& s = fTrkToDet;
  Store(x, Rotated(s[0], X, Y, Z) + fOrigin.X());
  Store(y, Rotated(s[1], X, Y, Z) + fOrigin.Y());
  Store(z, Rotated(s[2], X, Y, Z) + fOrigin.Z());
  Store(dx, RotatedSigma(s[0], dX, dY, dZ));
  Store(dy, RotatedSigma(s[1], dX, dY, dZ));
  Store(dz, RotatedSigma(s[2], dX, dY, dZ));
}

} // namespace kelvo
