#include "func/Lutz.h"

#include <cmath>
#include <cstddef>
#include <iostream>
#include <limits>

#include "func/KelvoException.h"

namespace kelvo {

namespace {

constexpr const char* kFile = "func/Lutz";

// ROOT's InvertFast looks at the lowest 8 bits of the size when it chooses between its closed
// formulas for sizes 1 to 6 and the general method.
bool InvertFastMistakesSize(int size) {
  const int seen = size & 0xFF;
  return size > 6 && seen >= 1 && seen <= 6;
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
    for (std::size_t j = 0; j < fNscat; ++j) alpha[j] = fAlpha.GetMatrixArray()[j];
  if (chi2) *chi2 = Chi2XI() + Chi2Beta();
}

double Lutz::X(double z) const {
  const double* s = fS.GetMatrixArray();
  const double* alpha = fAlpha.GetMatrixArray();
  double x = fSlope * z + fX0;
  for (std::size_t j = 0; j < fNscat; ++j) {
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
  for (unsigned int i = 0; i < fNmeas; ++i) sum += Chi2XIi(i);
  return sum;
}

double Lutz::Chi2Beta() const {
  double sum = 0;
  for (unsigned int j = 0; j < fNscat; ++j) sum += Chi2BetaJ(j);
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
  for (std::size_t i = 0; i < fNmeas; ++i)
    if (fW.GetMatrixArray()[i] > 0) ++ndof;
  for (std::size_t j = 0; j < fNscat; ++j)
    if (!(fWalpha.GetMatrixArray()[j] > 0)) --ndof;
  return ndof;
}

TMatrixDSym Lutz::Covariance() const {
  TMatrixDSym c(fAinv);
  if (!fSucceeded) c = std::numeric_limits<double>::quiet_NaN();
  return c;
}

// With h = (1, z, max(z - s_0, 0), ...) and C the covariance: h^T C h = sum_p h_p sum_q C_pq h_q.
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
  for (std::size_t p = 0; p < size; ++p) {
    double row = 0;
    for (std::size_t q = 0; q < size; ++q) row += c[p * size + q] * h(q);
    variance += h(p) * row;
  }
  return variance;
}

// zeta_ij = max(z_i - s_j, 0), i over measurements, j over planes; a NaN passes through.
void Lutz::CalcZeta() {
  const std::size_t m = fNscat;
  const double* s = fS.GetMatrixArray();
  for (std::size_t i = 0; i < fNmeas; ++i) {
    const double z = fZ.GetMatrixArray()[i];
    double* zeta = fZeta.GetMatrixArray() + i * m;
    for (std::size_t j = 0; j < m; ++j) {
      const double d = z - s[j];
      zeta[j] = 0 > d ? 0 : d;
    }
  }
}

// D = H^T W, (m + 2) x n, with rows (1, z_i, zeta_i0, ...) of H and W = diag(w_i).
void Lutz::CalcD() {
  const std::size_t n = fNmeas;
  const std::size_t m = fNscat;
  const double* w = fW.GetMatrixArray();
  const double* z = fZ.GetMatrixArray();
  const double* zeta = fZeta.GetMatrixArray();
  double* d = fD.GetMatrixArray();
  for (std::size_t i = 0; i < n; ++i) {
    d[i] = w[i];
    d[n + i] = w[i] * z[i];
    for (std::size_t j = 0; j < m; ++j) d[(j + 2) * n + i] = w[i] * zeta[i * m + j];
  }
}

// A = H^T W H + diag(0, 0, v_0, ..., v_(m-1)). Every element is summed over i in ascending order.
void Lutz::FillA() {
  const std::size_t n = fNmeas;
  const std::size_t m = fNscat;
  const std::size_t size = m + 2;
  const double* w = fW.GetMatrixArray();
  const double* z = fZ.GetMatrixArray();
  const double* zeta = fZeta.GetMatrixArray();
  double* a = fAinv.GetMatrixArray();
  const auto set = [a, size](std::size_t p, std::size_t q, double sum) {
    a[p * size + q] = sum;
    a[q * size + p] = sum;
  };

  double sw = 0;
  double swz = 0;
  double swzz = 0;
  for (std::size_t i = 0; i < n; ++i) {
    sw += w[i];
    swz += w[i] * z[i];
    swzz += (w[i] * z[i]) * z[i];
  }
  set(0, 0, sw);
  set(0, 1, swz);
  set(1, 1, swzz);

  for (std::size_t j = 0; j < m; ++j) {
    double sum0 = 0;
    double sum1 = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const double wzeta = w[i] * zeta[i * m + j];
      sum0 += wzeta;
      sum1 += wzeta * z[i];
    }
    set(0, j + 2, sum0);
    set(1, j + 2, sum1);
  }

  for (std::size_t j = 0; j < m; ++j)
    for (std::size_t k = j; k < m; ++k) {
      double sum = 0;
      for (std::size_t i = 0; i < n; ++i) sum += (w[i] * zeta[i * m + j]) * zeta[i * m + k];
      if (j == k) sum += fWalpha.GetMatrixArray()[j];
      set(j + 2, k + 2, sum);
    }
}

bool Lutz::CalcAinv() {
  FillA();
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

// q = A^-1 D x.
void Lutz::Calcq() {
  TVectorD q(fX);
  q *= fD;
  q *= fAinv;
  fX0 = q.GetMatrixArray()[0];
  fSlope = q.GetMatrixArray()[1];
  for (std::size_t j = 0; j < fNscat; ++j) fAlpha.GetMatrixArray()[j] = q.GetMatrixArray()[j + 2];
}

// xfit_i = x(z_i), with the products and their order as in X.
void Lutz::Calcx() {
  const std::size_t m = fNscat;
  const double* alpha = fAlpha.GetMatrixArray();
  for (std::size_t i = 0; i < fNmeas; ++i) {
    const double* zeta = fZeta.GetMatrixArray() + i * m;
    double x = fSlope * fZ.GetMatrixArray()[i] + fX0;
    for (std::size_t j = 0; j < m; ++j)
      if (zeta[j] > 0) x += alpha[j] * zeta[j];
    fXfit.GetMatrixArray()[i] = x;
  }
}

} // namespace kelvo
