#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

/// The fit with kinks solved the slow and obvious way in extended precision, and problems for it.
namespace reference {

#ifdef __SIZEOF_FLOAT128__
using Real = __float128; // 34 digits
#else
using Real = long double;
#endif

struct Problem {
  std::vector<double> z, x, sigx;  // measurements
  std::vector<double> s, sigAlpha; // planes
};

/// Loads a Lutz or whatever has its setters.
template <class Fitter>
void Load(const Problem& problem, Fitter& fitter) {
  for (unsigned i = 0; i < problem.z.size(); i++)
    fitter.SetMeasurement(i, problem.z[i], problem.x[i], problem.sigx[i]);
  for (unsigned j = 0; j < problem.s.size(); j++)
    fitter.SetScatteringPlane(j, problem.s[j], problem.sigAlpha[j]);
}

inline double Log(Real x) {
  const double high = static_cast<double>(x);
  return std::log(high) + static_cast<double>(x / static_cast<Real>(high) - 1);
}

/// Factor A = L D L^T of a symmetric positive definite matrix, stored row by row.
class Cholesky {
public:
  Cholesky(std::vector<Real> a, std::size_t size) : fA(std::move(a)), fSize(size) {
    for (std::size_t k = 0; k < fSize; k++)
      for (std::size_t i = k + 1; i < fSize; i++) {
        const Real factor = At(i, k) / At(k, k);
        for (std::size_t j = k + 1; j <= i; j++) At(i, j) -= factor * At(j, k);
        // The column keeps L D until the rows below have used it.
      }
  }
  std::vector<Real> Solve(std::vector<Real> y) const {
    for (std::size_t i = 0; i < fSize; i++)
      for (std::size_t k = 0; k < i; k++) y[i] -= At(i, k) / At(k, k) * y[k];
    for (std::size_t i = fSize; i-- > 0;) {
      y[i] /= At(i, i);
      for (std::size_t k = i + 1; k < fSize; k++) y[i] -= At(k, i) / At(i, i) * y[k];
    }
    return y;
  }
  double LogDeterminant() const {
    double sum = 0;
    for (std::size_t k = 0; k < fSize; k++) sum += Log(At(k, k));
    return sum;
  }

private:
  Real& At(std::size_t i, std::size_t j) { return fA[i * fSize + j]; }
  const Real& At(std::size_t i, std::size_t j) const { return fA[i * fSize + j]; }
  std::vector<Real> fA;
  std::size_t fSize;
};

/// Dense normal equations in the parameters (x0, slope, kinks). Infinite widths are allowed.
class DenseFit {
public:
  explicit DenseFit(const Problem& problem, bool withCovariance = true)
      : fProblem(problem), fSize(problem.s.size() + 2) {
    std::vector<Real> a(fSize * fSize);
    std::vector<Real> y(fSize);
    for (std::size_t i = 0; i < problem.z.size(); i++) {
      const std::vector<Real> h = Row(problem.z[i]);
      const Real w = Weight(problem.sigx[i]);
      for (std::size_t p = 0; p < fSize; p++) {
        y[p] += w * h[p] * static_cast<Real>(problem.x[i]);
        for (std::size_t q = 0; q < fSize; q++) a[p * fSize + q] += w * h[p] * h[q];
      }
    }
    for (std::size_t j = 0; j < problem.s.size(); j++)
      a[(j + 2) * fSize + j + 2] += Weight(problem.sigAlpha[j]);
    const Cholesky factor(a, fSize);
    fLogDeterminant = factor.LogDeterminant();
    fParameters = factor.Solve(y);
    if (!withCovariance) return;
    for (std::size_t p = 0; p < fSize; p++) {
      std::vector<Real> unit(fSize);
      unit[p] = 1;
      const std::vector<Real> column = factor.Solve(unit);
      fCovariance.insert(fCovariance.end(), column.begin(), column.end());
    }
  }

  /// dX(z) / d(parameters).
  std::vector<Real> Row(double z) const {
    std::vector<Real> h = {1, static_cast<Real>(z)};
    for (const double s : fProblem.s)
      h.push_back(z > s ? static_cast<Real>(z) - static_cast<Real>(s) : 0);
    return h;
  }
  /// d(slope before z) / d(parameters).
  std::vector<Real> SlopeRow(double z) const {
    std::vector<Real> h = {0, 1};
    for (const double s : fProblem.s) h.push_back(z > s ? 1 : 0);
    return h;
  }
  Real Value(const std::vector<Real>& h) const {
    Real sum = 0;
    for (std::size_t p = 0; p < fSize; p++) sum += h[p] * fParameters[p];
    return sum;
  }
  Real Covariance(const std::vector<Real>& g, const std::vector<Real>& h) const {
    Real sum = 0;
    for (std::size_t p = 0; p < fSize; p++)
      for (std::size_t q = 0; q < fSize; q++) sum += g[p] * h[q] * fCovariance[p * fSize + q];
    return sum;
  }
  Real Parameter(std::size_t p) const { return fParameters[p]; }
  Real Covariance(std::size_t p, std::size_t q) const { return fCovariance[p * fSize + q]; }
  std::size_t Size() const { return fSize; }
  double LogDeterminant() const { return fLogDeterminant; }
  Real Chi2() const {
    Real sum = 0;
    for (std::size_t i = 0; i < fProblem.z.size(); i++) {
      const Real r = static_cast<Real>(fProblem.x[i]) - Value(Row(fProblem.z[i]));
      sum += r * r * Weight(fProblem.sigx[i]);
    }
    for (std::size_t j = 0; j < fProblem.s.size(); j++)
      sum += fParameters[j + 2] * fParameters[j + 2] * Weight(fProblem.sigAlpha[j]);
    return sum;
  }
  static Real Weight(double sigma) {
    return std::isinf(sigma) ? 0 : 1 / (static_cast<Real>(sigma) * static_cast<Real>(sigma));
  }

private:
  Problem fProblem;
  std::size_t fSize;
  std::vector<Real> fParameters;
  std::vector<Real> fCovariance;
  double fLogDeterminant = 0;
};

/// The fit for many planes, all at different positions: the parameters are the values of the track
/// at the planes and at one point before and one after everything, a kink is a second difference of
/// them, and the normal matrix has two diagonals on each side of its main one.
class BandedFit {
public:
  explicit BandedFit(const Problem& problem) {
    std::vector<std::size_t> plane(problem.s.size());
    for (std::size_t j = 0; j < plane.size(); j++) plane[j] = j;
    std::sort(plane.begin(), plane.end(),
              [&problem](std::size_t a, std::size_t b) { return problem.s[a] < problem.s[b]; });
    const auto ends = std::minmax_element(problem.z.begin(), problem.z.end());
    std::vector<Real> knot;
    knot.reserve(plane.size() + 2);
    for (const std::size_t j : plane) knot.push_back(static_cast<Real>(problem.s[j]));
    const Real low = static_cast<Real>(*ends.first), high = static_cast<Real>(*ends.second);
    knot.insert(knot.begin(), (knot.empty() ? low : std::min(low, knot.front())) - 1);
    knot.push_back(std::max(high, knot.back()) + 1);

    const std::size_t size = knot.size();
    Band a(size);
    for (std::size_t i = 0; i < problem.z.size(); i++) {
      const Real z = static_cast<Real>(problem.z[i]);
      const std::size_t right = static_cast<std::size_t>(
          std::lower_bound(knot.begin() + 1, knot.end() - 1, z) - knot.begin());
      const Real fraction = (z - knot[right - 1]) / (knot[right] - knot[right - 1]);
      a.Add({1 - fraction, fraction}, right - 1, DenseFit::Weight(problem.sigx[i]),
            static_cast<Real>(problem.x[i]));
    }
    for (std::size_t k = 1; k + 1 < size; k++) {
      const Real before = knot[k] - knot[k - 1], after = knot[k + 1] - knot[k];
      a.Add({1 / before, -1 / before - 1 / after, 1 / after}, k - 1,
            DenseFit::Weight(problem.sigAlpha[plane[k - 1]]), 0);
    }
    const std::vector<Real> y = a.Solve();
    slope = (y[1] - y[0]) / (knot[1] - knot[0]);
    x0 = y[0] - slope * knot[0];
    kinks.resize(plane.size());
    for (std::size_t k = 1; k + 1 < size; k++)
      kinks[plane[k - 1]] =
          (y[k + 1] - y[k]) / (knot[k + 1] - knot[k]) - (y[k] - y[k - 1]) / (knot[k] - knot[k - 1]);
  }
  Real x0, slope;
  std::vector<Real> kinks;

private:
  struct Band {
    explicit Band(std::size_t size) : fA(3 * size), fY(size) {}
    // Adds weight (sum_i row_i y_(first + i) - value)^2.
    void Add(const std::vector<Real>& row, std::size_t first, Real weight, Real value) {
      for (std::size_t i = 0; i < row.size(); i++) {
        fY[first + i] += weight * row[i] * value;
        for (std::size_t k = i; k < row.size(); k++)
          fA[3 * (first + i) + k - i] += weight * row[i] * row[k];
      }
    }
    std::vector<Real> Solve() {
      const std::size_t size = fY.size();
      for (std::size_t i = 0; i < size; i++)
        for (std::size_t k = 1; k < 3 && i + k < size; k++) {
          const Real factor = fA[3 * i + k] / fA[3 * i];
          for (std::size_t l = k; l < 3; l++) fA[3 * (i + k) + l - k] -= factor * fA[3 * i + l];
          fY[i + k] -= factor * fY[i];
        }
      for (std::size_t i = size; i-- > 0;) {
        for (std::size_t k = 1; k < 3 && i + k < size; k++) fY[i] -= fA[3 * i + k] * fY[i + k];
        fY[i] /= fA[3 * i];
      }
      return fY;
    }
    std::vector<Real> fA; // row by row: diagonal and the two elements right of it
    std::vector<Real> fY;
  };
};

/// Five random decades between 1e-6 and 0.1.
inline double RandomWidth(std::mt19937_64& random) {
  return std::pow(10, std::uniform_real_distribution<double>(-6, -1)(random));
}

/// The true track of a problem: x0, slope and kinks, with the measurements drawn from them.
struct Truth {
  double x0, slope;
  std::vector<double> kinks;
  double X(const Problem& problem, double z) const {
    double x = x0 + slope * z;
    for (std::size_t j = 0; j < kinks.size(); j++)
      if (z > problem.s[j]) x += kinks[j] * (z - problem.s[j]);
    return x;
  }
};

/// Draws kinks and measurements for positions and widths that are set.
inline Truth Draw(Problem& problem, std::mt19937_64& random) {
  std::normal_distribution<double> gauss;
  Truth truth{10 * gauss(random), 0.3 * gauss(random), {}};
  for (const double width : problem.sigAlpha)
    truth.kinks.push_back(gauss(random) * (std::isinf(width) ? 0.01 : width));
  problem.x.resize(problem.z.size());
  for (std::size_t i = 0; i < problem.z.size(); i++)
    problem.x[i] = truth.X(problem, problem.z[i]) +
                   gauss(random) * (std::isinf(problem.sigx[i]) ? 1 : problem.sigx[i]);
  return truth;
}

/// A random problem on 0 to 1000 cm, planes up to 100 cm outside, in no order.
inline Problem RandomProblem(std::size_t n, std::size_t m, std::mt19937_64& random) {
  std::uniform_real_distribution<double> where(0, 1000), wide(-100, 1100), decade(-3, 0);
  Problem problem;
  for (std::size_t i = 0; i < n; i++) {
    problem.z.push_back(where(random));
    problem.sigx.push_back(std::pow(10, decade(random)));
  }
  for (std::size_t j = 0; j < m; j++) {
    problem.s.push_back(wide(random));
    problem.sigAlpha.push_back(RandomWidth(random));
  }
  Draw(problem, random);
  return problem;
}

} // namespace reference
