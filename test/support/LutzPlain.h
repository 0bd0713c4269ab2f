#pragma once

#include <TMatrixD.h>
#include <TMatrixDSym.h>
#include <TVectorD.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include "func/Lutz.h"

// The fit of one view as a plain scalar program: every sum one loop over matrix elements. Tests and
// the benchmark hold kelvo::Lutz against it bit for bit.

namespace kelvo::test {

/// Inputs of a fit. A sigma that is not a number stands for a slot that is never loaded.
struct LutzProblem {
  std::vector<double> fZ, fX, fSigX, fS, fSigAlpha;

  unsigned int NMeas() const { return static_cast<unsigned int>(fZ.size()); }
  unsigned int NScat() const { return static_cast<unsigned int>(fS.size()); }
};

/// What a fit gives: parameters, chi2, fitted values, normal matrix and its inverse (row by row).
struct LutzSolution {
  bool fSucceeded = false;
  double fX0 = 0, fSlope = 0, fChi2 = 0;
  std::vector<double> fAlpha, fXfit, fChi2XI, fA, fAinv;
};

/// Returns all elements of a matrix row by row.
inline std::vector<double> Elements(const TMatrixDSym& a) {
  return {a.GetMatrixArray(), a.GetMatrixArray() + a.GetNoElements()};
}

/// Loads the problem into a fit of its size.
inline void Load(const LutzProblem& p, Lutz& fit) {
  for (unsigned int i = 0; i < p.NMeas(); i++)
    if (!std::isnan(p.fSigX[i])) fit.SetMeasurement(i, p.fZ[i], p.fX[i], p.fSigX[i]);
  for (unsigned int j = 0; j < p.NScat(); j++)
    if (!std::isnan(p.fSigAlpha[j])) fit.SetScatteringPlane(j, p.fS[j], p.fSigAlpha[j]);
}

/// A track through n measurements in order of z, 5 cm apart, and m planes spread among them.
inline LutzProblem TrackProblem(unsigned int n, unsigned int m, unsigned int seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> gauss;
  LutzProblem p;
  const double length = 5.0 * n;
  for (unsigned int j = 0; j < m; j++) {
    p.fS.push_back((j + 0.4) * length / m);
    p.fSigAlpha.push_back(1e-3);
  }
  std::vector<double> kink;
  for (unsigned int j = 0; j < m; j++) kink.push_back(p.fSigAlpha[j] * gauss(random));
  for (unsigned int i = 0; i < n; i++) {
    const double z = 5.0 * i;
    double x = 3 + 0.1 * z;
    for (unsigned int j = 0; j < m; j++)
      if (z > p.fS[j]) x += kink[j] * (z - p.fS[j]);
    p.fZ.push_back(z);
    p.fX.push_back(x + 0.3 * gauss(random));
    p.fSigX.push_back(0.3);
  }
  return p;
}

/// The plain program compiled without and with optimisation.
LutzSolution PlainSolutionO0(const LutzProblem& p);
LutzSolution PlainSolutionO3(const LutzProblem& p);

// Compiled anew in every source that includes it, at that source's optimisation.
namespace {

/// The plain program, one function per step so that the steps can be timed.
class PlainLutz {
public:
  PlainLutz(unsigned int n, unsigned int m)
      : fN(static_cast<int>(n)),
        fM(static_cast<int>(m)),
        fZ(fN),
        fX(fN),
        fW(fN),
        fS(fM),
        fV(fM),
        fZeta(fN, fM),
        fD(fM + 2, fN),
        fA(fM + 2),
        fAlpha(fM),
        fXfit(fN) {}

  void Load(const LutzProblem& p) {
    for (int i = 0; i < fN; i++) {
      const std::size_t k = static_cast<std::size_t>(i);
      if (std::isnan(p.fSigX[k])) continue;
      fZ(i) = p.fZ[k];
      fX(i) = p.fX[k];
      fW(i) = 1 / (p.fSigX[k] * p.fSigX[k]);
    }
    for (int j = 0; j < fM; j++) {
      const std::size_t k = static_cast<std::size_t>(j);
      if (std::isnan(p.fSigAlpha[k])) continue;
      fS(j) = p.fS[k];
      fV(j) = 1 / (p.fSigAlpha[k] * p.fSigAlpha[k]);
    }
  }

  void Prepare() {
    for (int i = 0; i < fN; i++)
      for (int j = 0; j < fM; j++) {
        fZeta(i, j) = fZ(i) - fS(j);
        if (0 > fZeta(i, j)) fZeta(i, j) = 0;
      }
    for (int i = 0; i < fN; i++) {
      fD(0, i) = fW(i);
      fD(1, i) = fW(i) * fZ(i);
      for (int j = 0; j < fM; j++) fD(j + 2, i) = fW(i) * fZeta(i, j);
    }
  }

  void FillA() {
    double sum = 0.0;
    for (int i = 0; i < fN; i++) sum += fW(i);
    fA(0, 0) = sum;
    sum = 0.0;
    for (int i = 0; i < fN; i++) sum += fW(i) * fZ(i);
    fA(0, 1) = sum;
    fA(1, 0) = sum;
    sum = 0.0;
    for (int i = 0; i < fN; i++) sum += (fW(i) * fZ(i)) * fZ(i);
    fA(1, 1) = sum;
    for (int j = 0; j < fM; j++) {
      sum = 0.0;
      for (int i = 0; i < fN; i++) sum += fW(i) * fZeta(i, j);
      fA(0, j + 2) = sum;
      fA(j + 2, 0) = sum;
      sum = 0.0;
      for (int i = 0; i < fN; i++) sum += (fW(i) * fZeta(i, j)) * fZ(i);
      fA(1, j + 2) = sum;
      fA(j + 2, 1) = sum;
    }
    for (int j = 0; j < fM; j++)
      for (int k = j; k < fM; k++) {
        sum = 0.0;
        for (int i = 0; i < fN; i++) sum += (fW(i) * fZeta(i, j)) * fZeta(i, k);
        if (j == k) sum += fV(j);
        fA(j + 2, k + 2) = sum;
        fA(k + 2, j + 2) = sum;
      }
  }

  /// With the inversion that is right at the size: above size 6 InvertFast and Invert are the same
  /// method, and only Invert takes it at every size.
  void InvertA() {
    double det = 0;
    if (fM + 2 > 6)
      fA.Invert(&det);
    else
      fA.InvertFast(&det);
    fSucceeded = !(0 >= det);
  }

  void Solve() {
    fX0 = 0;
    fSlope = 0;
    for (int j = 0; j < fM; j++) fAlpha(j) = 0;
    for (int i = 0; i < fN; i++) fXfit(i) = 0;
    if (!fSucceeded) return;
    std::vector<double> y(static_cast<std::size_t>(fM) + 2), q(y.size());
    for (int p = 0; p < fM + 2; p++) {
      double sum = 0.0;
      for (int i = 0; i < fN; i++) sum += fD(p, i) * fX(i);
      y[static_cast<std::size_t>(p)] = sum;
    }
    for (int p = 0; p < fM + 2; p++) {
      double sum = 0.0;
      for (int r = 0; r < fM + 2; r++) sum += fA(p, r) * y[static_cast<std::size_t>(r)];
      q[static_cast<std::size_t>(p)] = sum;
    }
    fX0 = q[0];
    fSlope = q[1];
    for (int j = 0; j < fM; j++) fAlpha(j) = q[static_cast<std::size_t>(j) + 2];
    for (int i = 0; i < fN; i++) {
      fXfit(i) = fSlope * fZ(i) + fX0;
      for (int j = 0; j < fM; j++)
        if (fZeta(i, j) > 0) fXfit(i) += fAlpha(j) * fZeta(i, j);
    }
  }

  void Fit() {
    Prepare();
    FillA();
    InvertA();
    Solve();
  }

  double Chi2() const {
    double sumX = 0.0;
    for (int i = 0; i < fN; i++) sumX += (fX(i) - fXfit(i)) * (fX(i) - fXfit(i)) * fW(i);
    double sumAlpha = 0.0;
    for (int j = 0; j < fM; j++) sumAlpha += (0 - fAlpha(j)) * (0 - fAlpha(j)) * fV(j);
    return sumX + sumAlpha;
  }

  LutzSolution Solution() const {
    LutzSolution solution;
    solution.fSucceeded = fSucceeded;
    solution.fX0 = fX0;
    solution.fSlope = fSlope;
    solution.fChi2 = Chi2();
    for (int j = 0; j < fM; j++) solution.fAlpha.push_back(fAlpha(j));
    for (int i = 0; i < fN; i++) {
      solution.fXfit.push_back(fXfit(i));
      solution.fChi2XI.push_back((fX(i) - fXfit(i)) * (fX(i) - fXfit(i)) * fW(i));
    }
    solution.fAinv = Elements(fA);
    return solution;
  }

  /// Returns the normal matrix after FillA, its inverse after InvertA.
  const TMatrixDSym& A() const { return fA; }

private:
  int fN, fM;
  TVectorD fZ, fX, fW, fS, fV;
  TMatrixD fZeta, fD;
  TMatrixDSym fA;
  TVectorD fAlpha, fXfit;
  double fX0 = 0, fSlope = 0;
  bool fSucceeded = false;
};

inline LutzSolution PlainSolution(const LutzProblem& p) {
  PlainLutz fit(p.NMeas(), p.NScat());
  fit.Load(p);
  fit.Prepare();
  fit.FillA();
  const std::vector<double> a = Elements(fit.A());
  fit.InvertA();
  fit.Solve();
  LutzSolution solution = fit.Solution();
  solution.fA = a;
  return solution;
}

} // namespace

} // namespace kelvo::test
