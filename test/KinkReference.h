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
  for (unsigned i = 0; i < problem.z.size(); ++i)
    fitter.SetMeasurement(i, problem.z[i], problem.x[i], problem.sigx[i]);
  for (unsigned j = 0; j < problem.s.size(); ++j)
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
    for (std::size_t k = 0; k < fSize; ++k)
      for (std::size_t i = k + 1; i < fSize; ++i) {
        const Real factor = At(i, k) / At(k, k);
        for (std::size_t j = k + 1; j <= i; ++j) At(i, j) -= factor * At(j, k);
        // The column keeps L D until the rows below have used it.
      }
  }
  std::vector<Real> Solve(std::vector<Real> y) const {
    for (std::size_t i = 0; i < fSize; ++i)
      for (std::size_t k = 0; k < i; ++k) y[i] -= At(i, k) / At(k, k) * y[k];
    for (std::size_t i = fSize; i-- > 0;) {
      y[i] /= At(i, i);
      for (std::size_t k = i + 1; k < fSize; ++k) y[i] -= At(k, i) / At(i, i) * y[k];
    }
    return y;
  }
  double LogDeterminant() const {
    double sum = 0;
    for (std::size_t k = 0; k < fSize; ++k) sum += Log(At(k, k));
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
  explicit DenseFit(const Problem& problem) : fProblem(problem), fSize(problem.s.size() + 2) {
    std::vector<Real> a(fSize * fSize);
    std::vector<Real> y(fSize);
    for (std::size_t i = 0; i < problem.z.size(); ++i) {
      const std::vector<Real> h = Row(problem.z[i]);
      const Real w = Weight(problem.sigx[i]);
      for (std::size_t p = 0; p < fSize; ++p) {
        y[p] += w * h[p] * static_cast<Real>(problem.x[i]);
        for (std::size_t q = 0; q < fSize; ++q) a[p * fSize + q] += w * h[p] * h[q];
      }
    }
    for (std::size_t j = 0; j < problem.s.size(); ++j)
      a[(j + 2) * fSize + j + 2] += Weight(problem.sigAlpha[j]);
    const Cholesky factor(a, fSize);
    fLogDeterminant = factor.LogDeterminant();
    fParameters = factor.Solve(y);
    for (std::size_t p = 0; p < fSize; ++p) {
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
    for (std::size_t p = 0; p < fSize; ++p) sum += h[p] * fParameters[p];
    return sum;
  }
  Real Covariance(const std::vector<Real>& g, const std::vector<Real>& h) const {
    Real sum = 0;
    for (std::size_t p = 0; p < fSize; ++p)
      for (std::size_t q = 0; q < fSize; ++q) sum += g[p] * h[q] * fCovariance[p * fSize + q];
    return sum;
  }
  Real Parameter(std::size_t p) const { return fParameters[p]; }
  Real Covariance(std::size_t p, std::size_t q) const { return fCovariance[p * fSize + q]; }
  std::size_t Size() const { return fSize; }
  double LogDeterminant() const { return fLogDeterminant; }
  Real Chi2() const {
    Real sum = 0;
    for (std::size_t i = 0; i < fProblem.z.size(); ++i) {
      const Real r = static_cast<Real>(fProblem.x[i]) - Value(Row(fProblem.z[i]));
      sum += r * r * Weight(fProblem.sigx[i]);
    }
    for (std::size_t j = 0; j < fProblem.s.size(); ++j)
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
    for (std::size_t j = 0; j < kinks.size(); ++j)
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
  for (std::size_t i = 0; i < problem.z.size(); ++i)
    problem.x[i] = truth.X(problem, problem.z[i]) +
                   gauss(random) * (std::isinf(problem.sigx[i]) ? 1 : problem.sigx[i]);
  return truth;
}

/// A random problem on 0 to 1000 cm, planes up to 100 cm outside, in no order.
inline Problem RandomProblem(std::size_t n, std::size_t m, std::mt19937_64& random) {
  std::uniform_real_distribution<double> where(0, 1000), wide(-100, 1100), decade(-3, 0);
  Problem problem;
  for (std::size_t i = 0; i < n; ++i) {
    problem.z.push_back(where(random));
    problem.sigx.push_back(std::pow(10, decade(random)));
  }
  for (std::size_t j = 0; j < m; ++j) {
    problem.s.push_back(wide(random));
    problem.sigAlpha.push_back(RandomWidth(random));
  }
  Draw(problem, random);
  return problem;
}

} // namespace reference
