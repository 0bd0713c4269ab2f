#include "func/Lutz.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <limits>

#include "func/KelvoException.h"

namespace kelvo {

namespace {

constexpr const char* kFile = "func/Lutz";

/// ROOT's InvertFast looks at the lowest 8 bits of the size when it chooses between its closed
/// formulas for sizes 1 to 6 and the general method.
bool InvertFastMistakesSize(int size) {
  const int seen = size & 0xFF;
  return size > 6 && seen >= 1 && seen <= 6;
}

/// Measurements whose lever arms are turned into columns of the design matrix together.
constexpr std::size_t kBlock = 8;

/// The block of the kinks in the normal matrix is summed in tiles of kTile x kTile elements whose
/// running sums stay in registers, so that every load serves several sums.
constexpr std::size_t kTile = 4;
constexpr std::size_t kLanes = 2;
using Lanes = double __attribute__((vector_size(kLanes * sizeof(double))));

struct Range {
  std::size_t first, last; // last is one beyond
};

/// Returns the measurements from the first to the last beyond any of the kTile planes whose lever
/// arms start at zeta, one row every m. The terms of all others are 0 and change no bit of a sum.
Range NonZero(const double* zeta, std::size_t n, std::size_t m) {
  const auto upstream = [zeta, m](std::size_t i) {
    return std::all_of(zeta + i * m, zeta + i * m + kTile, [](double d) { return d == 0; });
  };
  Range range{0, n};
  while (range.first < range.last && upstream(range.first)) range.first++;
  while (range.first < range.last && upstream(range.last - 1)) range.last--;
  return range;
}

/// tile[r][c] = sum over i of wzeta[r * n + i] * zeta[i * m + c].
void SumTile(const double* wzeta, std::size_t n, const double* zeta, std::size_t m, Range range,
             double (&tile)[kTile][kTile]) {
  Lanes sum[kTile][kTile / kLanes] = {};
  for (std::size_t i = range.first; i < range.last; i++) {
    Lanes columns[kTile / kLanes];
    std::memcpy(columns, zeta + i * m, sizeof columns);
    for (std::size_t r = 0; r < kTile; r++)
      for (std::size_t c = 0; c < kTile / kLanes; c++) sum[r][c] += wzeta[r * n + i] * columns[c];
  }
  std::memcpy(tile, sum, sizeof sum);
}

} // namespace

Lutz::Lutz(unsigned int nmeas, unsigned int nscat)
    : fNmeas(nmeas),
      fNscat(nscat),
      fZ(static_cast<int>(nmeas)),
      fX(static_cast<int>(nmeas)),
      fW(static_cast<int>(nmeas)),
      fS(static_cast<int>(nscat)),
      fWalpha(static_cast<int>(nscat)),
      fZeta(static_cast<int>(nmeas), static_cast<int>(nscat)),
      fD(static_cast<int>(nscat + 2), static_cast<int>(nmeas)),
      fAinv(static_cast<int>(nscat + 2)),
      fAlpha(static_cast<int>(nscat)),
      fXfit(static_cast<int>(nmeas)) {
  if (!(nmeas > nscat)) throw KelvoException(kFile, __LINE__, kBadNScat, 0.0);
}

void Lutz::SetMeasurement(unsigned int i, double z, double x, double sigx) {
  if (i >= fNmeas) throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
  if (std::isnan(z) || std::isnan(x) || std::isnan(sigx))
    throw KelvoException(kFile, __LINE__, kNaN, 0.0);
  if (sigx <= 0) throw KelvoException(kFile, __LINE__, kBadSigX, sigx);
  fZ.GetMatrixArray()[i] = z;
  fX.GetMatrixArray()[i] = x;
  fW.GetMatrixArray()[i] = 1 / (sigx * sigx);
}

void Lutz::SetScatteringPlane(unsigned int j, double z, double sigAlpha) {
  if (j >= fNscat) throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
  if (std::isnan(z) || std::isnan(sigAlpha)) throw KelvoException(kFile, __LINE__, kNaN, 0.0);
  if (sigAlpha <= 0) throw KelvoException(kFile, __LINE__, kBadSigSJ, sigAlpha);
  fS.GetMatrixArray()[j] = z;
  fWalpha.GetMatrixArray()[j] = 1 / (sigAlpha * sigAlpha);
}

void Lutz::Fit(double* x0, double* dxdz, double* alpha, double* chi2) {
  CalcZeta();
  CalcD();
  fSucceeded = CalcAinv();
  if (fSucceeded) {
    Calcq();
    Calcx();
  } else {
    NullResult();
  }
  if (x0) *x0 = fX0;
  if (dxdz) *dxdz = fSlope;
  if (alpha)
    for (std::size_t j = 0; j < fNscat; j++) alpha[j] = fAlpha.GetMatrixArray()[j];
  if (chi2) *chi2 = Chi2XI() + Chi2Beta();
}

double Lutz::X(double z) const {
  const double* s = fS.GetMatrixArray();
  const double* alpha = fAlpha.GetMatrixArray();
  double x = fSlope * z + fX0;
  for (std::size_t j = 0; j < fNscat; j++) {
    const double d = z - s[j];
    if (d > 0) x = d * alpha[j] + x;
  }
  return x;
}

double Lutz::Chi2XIi(unsigned int i) const {
  const double r = fX.GetMatrixArray()[i] - fXfit.GetMatrixArray()[i];
  return r * r * fW.GetMatrixArray()[i];
}

double Lutz::Chi2BetaJ(unsigned int j) const {
  const double r = 0 - fAlpha.GetMatrixArray()[j];
  return r * r * fWalpha.GetMatrixArray()[j];
}

double Lutz::Chi2XI() const {
  double sum = 0;
  for (unsigned int i = 0; i < fNmeas; i++) sum += Chi2XIi(i);
  return sum;
}

double Lutz::Chi2Beta() const {
  double sum = 0;
  for (unsigned int j = 0; j < fNscat; j++) sum += Chi2BetaJ(j);
  return sum;
}

void Lutz::NullResult() {
  fX0 = 0;
  fSlope = 0;
  fXfit.Zero();
  fAlpha.Zero();
  fSucceeded = false;
}

int Lutz::NDOF() const {
  int ndof = -2;
  for (std::size_t i = 0; i < fNmeas; i++)
    if (fW.GetMatrixArray()[i] > 0) ndof++;
  for (std::size_t j = 0; j < fNscat; j++)
    if (!(fWalpha.GetMatrixArray()[j] > 0)) ndof--;
  return ndof;
}

TMatrixDSym Lutz::Covariance() const {
  TMatrixDSym c(fAinv);
  if (!fSucceeded) c = std::numeric_limits<double>::quiet_NaN();
  // The inversion leaves mirrored elements equal to rounding only.
  const std::size_t size = std::size_t{fNscat} + 2;
  double* element = c.GetMatrixArray();
  for (std::size_t p = 0; p < size; p++)
    for (std::size_t q = 0; q < p; q++) {
      const double mean = 0.5 * (element[p * size + q] + element[q * size + p]);
      element[p * size + q] = mean;
      element[q * size + p] = mean;
    }
  return c;
}

/// With h = (1, z, max(z - s_0, 0), ...) and C the covariance: h^T C h = sum_p h_p sum_q C_pq h_q.
double Lutz::VarX(double z) const {
  if (!fSucceeded) return std::numeric_limits<double>::quiet_NaN();
  const double* s = fS.GetMatrixArray();
  const auto h = [z, s](std::size_t p) {
    if (p == 0) return 1.0;
    if (p == 1) return z;
    const double d = z - s[p - 2];
    return d > 0 ? d : 0.0;
  };
  const std::size_t size = std::size_t{fNscat} + 2;
  const double* c = fAinv.GetMatrixArray();
  double variance = 0;
  for (std::size_t p = 0; p < size; p++) {
    double row = 0;
    for (std::size_t q = 0; q < size; q++) row += c[p * size + q] * h(q);
    variance += h(p) * row;
  }
  return variance;
}

/// zeta_ij = max(z_i - s_j, 0), i over measurements, j over planes; a NaN passes through.
void Lutz::CalcZeta() {
  const std::size_t m = fNscat;
  const double* s = fS.GetMatrixArray();
  for (std::size_t i = 0; i < fNmeas; i++) {
    const double z = fZ.GetMatrixArray()[i];
    double* zeta = fZeta.GetMatrixArray() + i * m;
    for (std::size_t j = 0; j < m; j++) {
      const double d = z - s[j];
      zeta[j] = 0 > d ? 0 : d;
    }
  }
}

/// D = H^T W, (m + 2) x n, with rows (1, z_i, zeta_i0, ...) of H and W = diag(w_i).
void Lutz::CalcD() {
  const std::size_t n = fNmeas;
  const std::size_t m = fNscat;
  const double* w = fW.GetMatrixArray();
  const double* z = fZ.GetMatrixArray();
  const double* zeta = fZeta.GetMatrixArray();
  double* d = fD.GetMatrixArray();
  for (std::size_t i = 0; i < n; i++) {
    d[i] = w[i];
    d[n + i] = w[i] * z[i];
  }
  // A few rows of zeta at a time: they stay in the cache while they are read column by column.
  for (std::size_t i0 = 0; i0 < n; i0 += kBlock) {
    const std::size_t i1 = std::min(i0 + kBlock, n);
    for (std::size_t j = 0; j < m; j++)
      for (std::size_t i = i0; i < i1; i++) d[(j + 2) * n + i] = w[i] * zeta[i * m + j];
  }
}

/// A = H^T W H + diag(0, 0, v_0, ..., v_(m-1)). Every element is summed over i in ascending order.
void Lutz::FillA() {
  FillLine();
  FillCoupling();
  FillAngles();
}

/// Block of x0 and slope: sum w_i, sum w_i z_i, sum (w_i z_i) z_i.
void Lutz::FillLine() {
  const double* w = fW.GetMatrixArray();
  const double* z = fZ.GetMatrixArray();
  double sw = 0;
  double swz = 0;
  double swzz = 0;
  for (std::size_t i = 0; i < fNmeas; i++) {
    sw += w[i];
    swz += w[i] * z[i];
    swzz += (w[i] * z[i]) * z[i];
  }
  const std::size_t size = std::size_t{fNscat} + 2;
  double* a = fAinv.GetMatrixArray();
  a[0] = sw;
  a[1] = swz;
  a[size] = swz;
  a[size + 1] = swzz;
}

/// Rows 0 and 1 of the kinks: sum w_i zeta_ij and sum (w_i zeta_ij) z_i, side by side over j.
void Lutz::FillCoupling() {
  const std::size_t m = fNscat;
  const std::size_t size = m + 2;
  const double* w = fW.GetMatrixArray();
  const double* z = fZ.GetMatrixArray();
  double* a = fAinv.GetMatrixArray();
  double* a0 = a + 2;
  double* a1 = a + size + 2;
  std::fill_n(a0, m, 0.0);
  std::fill_n(a1, m, 0.0);
  for (std::size_t i = 0; i < fNmeas; i++) {
    const double* zeta = fZeta.GetMatrixArray() + i * m;
    for (std::size_t j = 0; j < m; j++) {
      const double wzeta = w[i] * zeta[j];
      a0[j] += wzeta;
      a1[j] += wzeta * z[i];
    }
  }
  for (std::size_t j = 0; j < m; j++) {
    a[(j + 2) * size] = a0[j];
    a[(j + 2) * size + 1] = a1[j];
  }
}

/// Block of the kinks: sum (w_i zeta_ij) zeta_ik for j <= k, mirrored, v_j added on the diagonal.
/// Where m is no multiple of the tile the last tile overlaps the one before and finds the same
/// bits.
void Lutz::FillAngles() {
  const std::size_t n = fNmeas;
  const std::size_t m = fNscat;
  const double* zeta = fZeta.GetMatrixArray();
  const double* wzeta = fD.GetMatrixArray() + 2 * n; // m x n: w_i zeta_ij
  if (m < kTile) {
    for (std::size_t j = 0; j < m; j++)
      for (std::size_t k = j; k < m; k++) {
        double sum = 0;
        for (std::size_t i = 0; i < n; i++) sum += wzeta[j * n + i] * zeta[i * m + k];
        SetAngle(j, k, sum);
      }
    return;
  }
  // These sums of terms that are not negative are finite only if every w_i zeta_ij is.
  const double* a0 = fAinv.GetMatrixArray() + 2;
  const bool finite = std::all_of(a0, a0 + m, [](double sum) { return std::isfinite(sum); });
  for (std::size_t kNext = 0; kNext < m; kNext += kTile) {
    const std::size_t k0 = std::min(kNext, m - kTile);
    const Range range = finite ? NonZero(zeta + k0, n, m) : Range{0, n};
    for (std::size_t jNext = 0; jNext < k0 + kTile; jNext += kTile) {
      const std::size_t j0 = std::min(jNext, m - kTile);
      double tile[kTile][kTile];
      SumTile(wzeta + j0 * n, n, zeta + k0, m, range, tile);
      for (std::size_t r = 0; r < kTile; r++)
        for (std::size_t c = 0; c < kTile; c++)
          if (j0 + r <= k0 + c) SetAngle(j0 + r, k0 + c, tile[r][c]);
    }
  }
}

void Lutz::SetAngle(std::size_t j, std::size_t k, double sum) {
  const std::size_t size = std::size_t{fNscat} + 2;
  const double value = j == k ? sum + fWalpha.GetMatrixArray()[j] : sum;
  fAinv.GetMatrixArray()[(j + 2) * size + k + 2] = value;
  fAinv.GetMatrixArray()[(k + 2) * size + j + 2] = value;
}

bool Lutz::CalcAinv() {
  FillA();
  return InvertA();
}

bool Lutz::InvertA() {
  double det = 0;
  try {
    if (InvertFastMistakesSize(fAinv.GetNrows()))
      fAinv.Invert(&det);
    else
      fAinv.InvertFast(&det);
  } catch (...) {
    std::cerr << kFile << ":" << __LINE__ << " Matrix inversion failed" << std::endl;
    return false;
  }
  // A determinant that is not a number passes: its result shows as NaN instead of as zeros.
  if (0 >= det) {
    std::cerr << kFile << ":" << __LINE__ << " Matrix inversion failed" << std::endl;
    return false;
  }
  return true;
}

/// q = A^-1 D x.
void Lutz::Calcq() {
  TVectorD q(fX);
  q *= fD;
  q *= fAinv;
  fX0 = q.GetMatrixArray()[0];
  fSlope = q.GetMatrixArray()[1];
  for (std::size_t j = 0; j < fNscat; j++) fAlpha.GetMatrixArray()[j] = q.GetMatrixArray()[j + 2];
}

/// xfit_i = x(z_i), with the products and their order as in X.
void Lutz::Calcx() {
  const std::size_t m = fNscat;
  const double* alpha = fAlpha.GetMatrixArray();
  for (std::size_t i = 0; i < fNmeas; i++) {
    const double* zeta = fZeta.GetMatrixArray() + i * m;
    double x = fSlope * fZ.GetMatrixArray()[i] + fX0;
    for (std::size_t j = 0; j < m; j++)
      if (zeta[j] > 0) x += alpha[j] * zeta[j];
    fXfit.GetMatrixArray()[i] = x;
  }
}

} // namespace kelvo
