#include "test/support/LutzPrecise.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelvo::test {

namespace {

using Matrix = std::vector<std::vector<double>>;

constexpr std::size_t kCofactorSize = 6; // up to it ROOT inverts by closed formulas
constexpr double kEpsilon = std::numeric_limits<double>::epsilon();

double Weight(double sigma) {
  return std::isnan(sigma) ? 0 : 1 / (sigma * sigma);
}

Matrix Minor(Matrix a, std::size_t row, std::size_t column) {
  a.erase(a.begin() + static_cast<std::ptrdiff_t>(row));
  for (auto& r : a) r.erase(r.begin() + static_cast<std::ptrdiff_t>(column));
  return a;
}

double Permanent(const Matrix& a) {
  if (a.empty()) return 1;
  double sum = 0;
  for (std::size_t c = 0; c < a.size(); c++) sum += a[0][c] * Permanent(Minor(a, 0, c));
  return sum;
}

} // namespace

LutzPrecise::LutzPrecise(const LutzProblem& p) : fProblem(p), fSize(p.fS.size() + 2) {
  Triangularise();
  SolveTriangle();
  BoundErrors();
}

std::vector<long double> LutzPrecise::Levers(long double z) const {
  std::vector<long double> h{1, z};
  for (const double s : fProblem.fS) h.push_back(z > s ? z - s : 0);
  return h;
}

long double LutzPrecise::Covariance(std::size_t p, std::size_t q) const {
  long double sum = 0;
  for (const auto& row : fInverse) sum += row[Column(p)] * row[Column(q)];
  return sum;
}

long double LutzPrecise::X(long double z) const {
  const std::vector<long double> h = Levers(z);
  long double x = 0;
  for (std::size_t p = 0; p < fSize; p++) x += h[p] * fParameters[p];
  return x;
}

long double LutzPrecise::VarX(long double z) const {
  const std::vector<long double> h = Levers(z);
  long double variance = 0;
  for (const auto& row : fInverse) {
    long double sum = 0;
    for (std::size_t p = 0; p < fSize; p++) sum += row[Column(p)] * h[p];
    variance += sum * sum;
  }
  return variance;
}

long double LutzPrecise::Chi2() const {
  long double chi2 = 0;
  for (std::size_t i = 0; i < fProblem.fZ.size(); i++) {
    const long double r = fProblem.fX[i] - X(fProblem.fZ[i]);
    chi2 += r * r * Weight(fProblem.fSigX[i]);
  }
  for (std::size_t j = 0; j + 2 < fSize; j++)
    chi2 += fParameters[j + 2] * fParameters[j + 2] * Weight(fProblem.fSigAlpha[j]);
  return chi2;
}

double LutzPrecise::CovarianceUlp(std::size_t p, std::size_t q) const {
  return kEpsilon * (fSize <= kCofactorSize ? fCofactorError[p][q]
                                            : std::max(fRow[p] * fColumn[q], fRow[q] * fColumn[p]));
}

double LutzPrecise::ParameterUlp(std::size_t p) const {
  double ulp = 0;
  for (std::size_t q = 0; q < fSize; q++)
    ulp += (CovarianceUlp(p, q) + kEpsilon * fC[p][q]) * fY[q];
  return ulp;
}

/// Columns are reduced in reverse order of the parameters, kinks of downstream planes first: for a
/// sorted track every reflection then meets only the measurements beyond its plane.
std::size_t LutzPrecise::Column(std::size_t p) const {
  return fSize - 1 - p;
}

/// A row per measurement, a last column for the measured values. A kink's own measurement is a row
/// with one element, taken in when its column is reduced.
void LutzPrecise::Triangularise() {
  const std::size_t n = fProblem.fZ.size();
  const std::size_t m = fProblem.fS.size();
  std::vector<std::vector<long double>> column(fSize + 1, std::vector<long double>(n));
  for (std::size_t i = 0; i < n; i++) {
    const long double root = std::sqrt(static_cast<long double>(Weight(fProblem.fSigX[i])));
    const std::vector<long double> h = Levers(fProblem.fZ[i]);
    for (std::size_t p = 0; p < fSize; p++) column[Column(p)][i] = root * h[p];
    column[fSize][i] = root * fProblem.fX[i];
  }
  fTriangle.assign(fSize, std::vector<long double>(fSize + 1));
  for (std::size_t c = 0; c < fSize; c++) {
    const bool kink = c < m;
    const long double pivot =
        kink ? std::sqrt(static_cast<long double>(Weight(fProblem.fSigAlpha[m - 1 - c])))
             : column[c][c - m];
    std::size_t rest = kink ? 0 : c - m + 1;
    while (rest < n && column[c][rest] == 0) rest++;
    long double norm2 = pivot * pivot;
    for (std::size_t i = rest; i < n; i++) norm2 += column[c][i] * column[c][i];
    const long double norm = std::sqrt(norm2);
    const long double first = pivot + std::copysign(norm, pivot);
    const long double factor = 1 / (norm * std::abs(first));
    fTriangle[c][c] = -std::copysign(norm, pivot);
    for (std::size_t q = c + 1; q <= fSize; q++) {
      const long double top = kink ? 0 : column[q][c - m];
      long double dot = first * top;
      for (std::size_t i = rest; i < n; i++) dot += column[c][i] * column[q][i];
      dot *= factor;
      for (std::size_t i = rest; i < n; i++) column[q][i] -= dot * column[c][i];
      fTriangle[c][q] = top - dot * first;
    }
  }
}

/// Parameters by back substitution, and the inverted triangle: its element (b, c) is
/// fInverse[c][b].
void LutzPrecise::SolveTriangle() {
  std::vector<long double> solution(fSize);
  for (std::size_t c = fSize; c-- > 0;) {
    long double sum = fTriangle[c][fSize];
    for (std::size_t q = c + 1; q < fSize; q++) sum -= fTriangle[c][q] * solution[q];
    solution[c] = sum / fTriangle[c][c];
  }
  fParameters.assign(solution.rbegin(), solution.rend());
  fInverse.assign(fSize, std::vector<long double>(fSize));
  for (std::size_t c = 0; c < fSize; c++)
    for (std::size_t b = c + 1; b-- > 0;) {
      long double sum = b == c ? 1 : 0;
      for (std::size_t q = b + 1; q <= c; q++) sum -= fTriangle[b][q] * fInverse[c][q];
      fInverse[c][b] = sum / fTriangle[b][b];
    }
}

/// Elimination that picks its pivots among rows scaled by their largest element s_r has errors of
/// about s_r t_c in an element of A, with t_c the largest A_rc / s_r, so its inverse C has errors
/// of
/// (|C| s)(t^T |C|). The closed formulas for small sizes sum products of elements: their errors
/// are the same sums with all signs positive.
void LutzPrecise::BoundErrors() {
  fC.assign(fSize, std::vector<double>(fSize));
  fY.assign(fSize, 0);
  Matrix a = fC;
  for (std::size_t c = 0; c < fSize; c++) {
    const std::vector<double> row(fInverse[c].rbegin(), fInverse[c].rend()); // by parameters
    for (std::size_t p = Column(c); p < fSize; p++)
      for (std::size_t q = Column(c); q < fSize; q++) fC[p][q] += row[p] * row[q];
  }
  for (auto& row : fC)
    for (double& c : row) c = std::abs(c);
  for (std::size_t i = 0; i < fProblem.fZ.size(); i++) {
    const double w = Weight(fProblem.fSigX[i]);
    const std::vector<long double> levers = Levers(fProblem.fZ[i]);
    std::vector<double> h;
    h.reserve(levers.size());
    for (const long double lever : levers) h.push_back(static_cast<double>(std::abs(lever)));
    for (std::size_t p = 0; p < fSize; p++) {
      fY[p] += w * h[p] * std::abs(fProblem.fX[i]);
      for (std::size_t q = 0; q < fSize; q++) a[p][q] += w * h[p] * h[q];
    }
  }
  for (std::size_t j = 0; j + 2 < fSize; j++) a[j + 2][j + 2] += Weight(fProblem.fSigAlpha[j]);
  std::vector<double> s(fSize), t(fSize);
  for (std::size_t p = 0; p < fSize; p++) s[p] = *std::max_element(a[p].begin(), a[p].end());
  for (std::size_t p = 0; p < fSize; p++)
    for (std::size_t q = 0; q < fSize; q++) t[q] = std::max(t[q], a[p][q] / s[p]);
  fRow.assign(fSize, 0);
  fColumn.assign(fSize, 0);
  for (std::size_t p = 0; p < fSize; p++)
    for (std::size_t q = 0; q < fSize; q++) {
      fRow[p] += fC[p][q] * s[q];
      fColumn[p] += fC[p][q] * t[q];
    }
  if (fSize > kCofactorSize) return;
  long double det = 1;
  for (std::size_t p = 0; p < fSize; p++) det *= fTriangle[p][p] * fTriangle[p][p];
  const double overDet = static_cast<double>(1 / det);
  fCofactorError = fC;
  for (std::size_t p = 0; p < fSize; p++)
    for (std::size_t q = 0; q < fSize; q++)
      fCofactorError[p][q] = (Permanent(Minor(a, p, q)) + fC[p][q] * Permanent(a)) * overDet;
}

} // namespace kelvo::test
