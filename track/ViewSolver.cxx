#include "track/ViewSolver.h"

#include "func/Lutz.h"

#include <TMath.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelvo {
namespace {

unsigned int Count(const std::vector<double>& v) {
  return static_cast<unsigned int>(v.size());
}

void Load(const ViewProblem& problem, const PlaneList& planes, Lutz& lutz) {
  for (unsigned int i = 0; i < Count(problem.fS); i++)
    lutz.SetMeasurement(i, problem.fS[i], problem.fA[i], problem.fSig[i]);
  for (unsigned int j = 0; j < Count(planes.fS); j++)
    lutz.SetScatteringPlane(j, planes.fS[j], planes.fSigAlpha[j]);
}

/// Fills the normal matrix A of all parameters: with h_i the derivatives of the line at measurement
/// i by intercept, slope and kinks, A = sum_i h_i h_i^T / sig_i^2 + diag(0, 0, 1 / sigAlpha_j^2).
TMatrixDSym NormalMatrix(const ViewProblem& problem, const PlaneList& planes) {
  const std::size_t m = planes.fS.size();
  const int size = static_cast<int>(m) + 2;
  TMatrixDSym a(size);
  std::vector<double> h(m + 2);
  for (std::size_t i = 0; i < problem.fS.size(); i++) {
    h[0] = 1 / problem.fSig[i];
    h[1] = problem.fS[i] / problem.fSig[i];
    for (std::size_t j = 0; j < m; j++)
      h[j + 2] = std::max(problem.fS[i] - planes.fS[j], 0.) / problem.fSig[i];
    for (int k = 0; k < size; k++)
      for (int l = 0; l < size; l++)
        a(k, l) += h[static_cast<std::size_t>(k)] * h[static_cast<std::size_t>(l)];
  }
  for (std::size_t j = 0; j < m; j++) {
    const int k = static_cast<int>(j) + 2;
    a(k, k) += 1 / (planes.fSigAlpha[j] * planes.fSigAlpha[j]);
  }
  return a;
}

/// Returns ln det of a symmetric matrix by A = L L^T. NaN where A is not safely positive definite:
/// where rounding may make its determinant, relative to the product of the diagonal, vanish.
double LogDeterminant(TMatrixDSym a) {
  constexpr double kSmallestPivot = 1e-12; // relative, of a large matrix
  constexpr int kClosedForm = 6;           // up to this size the inversion divides by a determinant
  const int n = a.GetNrows();
  double sum = 0, relative = 1;
  for (int k = 0; k < n; k++) {
    const double diagonal = a(k, k);
    for (int j = 0; j < k; j++) a(k, k) -= a(k, j) * a(k, j);
    const double pivot = a(k, k) / diagonal;
    relative = n <= kClosedForm ? relative * pivot : pivot;
    if (!(relative > kSmallestPivot)) return std::numeric_limits<double>::quiet_NaN();
    sum += std::log(a(k, k));
    a(k, k) = std::sqrt(a(k, k));
    for (int i = k + 1; i < n; i++) {
      for (int j = 0; j < k; j++) a(i, k) -= a(i, j) * a(k, j);
      a(i, k) /= a(k, k);
    }
  }
  return sum;
}

/// Returns value and covariance of (position, slope) at s: with h and g their derivatives by the
/// parameters, h^T C h, h^T C g and g^T C g.
KinkPoint DenseState(const Lutz& lutz, const TMatrixDSym& cov, const ViewFit& fit,
                     const PlaneList& planes, double s) {
  const int n = cov.GetNrows();
  std::vector<double> h(static_cast<std::size_t>(n)), g(h.size());
  h[0] = 1;
  h[1] = s;
  g[1] = 1;
  double slope = fit.fSlope;
  for (std::size_t j = 0; j < planes.fS.size() && planes.fS[j] < s; j++) {
    h[j + 2] = s - planes.fS[j];
    g[j + 2] = 1;
    slope += fit.fKink[j];
  }
  KinkPoint point{lutz.X(s), slope, 0, 0, 0};
  for (int i = 0; i < n; i++)
    for (int k = 0; k < n; k++) {
      const auto a = static_cast<std::size_t>(i), b = static_cast<std::size_t>(k);
      point.fVarX += h[a] * cov(i, k) * h[b];
      point.fCovXSlope += h[a] * cov(i, k) * g[b];
      point.fVarSlope += g[a] * cov(i, k) * g[b];
    }
  return point;
}

double DenseLogLikelihood(const ViewProblem& problem, const PlaneList& planes,
                          double logDeterminant, double chi2) {
  double sum = chi2 + logDeterminant;
  for (double sig : problem.fSig) sum += 2 * std::log(sig);
  for (double sig : planes.fSigAlpha) sum += 2 * std::log(sig);
  return -(sum + (static_cast<double>(problem.fS.size()) - 2) * std::log(2 * TMath::Pi())) / 2;
}

/// Covariance of intercept and slope: the line before the first plane, carried to s = 0.
void SetUpstreamCovariance(const KinkPoint& before, double s, double (&cov)[3]) {
  cov[2] = before.fVarSlope;
  cov[1] = before.fCovXSlope - s * before.fVarSlope;
  cov[0] = before.fVarX - 2 * s * before.fCovXSlope + s * s * before.fVarSlope;
}

void SetProbability(ViewFit& fit) {
  fit.fNDF = static_cast<int>(fit.fN) - 2; // each kink is a parameter and a measurement
  fit.fProb = fit.fNDF > 0 ? TMath::Prob(fit.fChi2 + fit.fChi2Kink, fit.fNDF) : 1;
}

} // namespace

bool ViewSolver::Solve(const ViewProblem& problem, const PlaneList& planes,
                       const std::vector<double>& at, ViewFit& fit, std::vector<KinkPoint>& state,
                       double& logLikelihood) {
  fit.fN = Count(problem.fS);
  fit.fKink.resize(planes.fS.size());
  fit.fSigKink.resize(planes.fS.size());
  state.clear();
  const bool solved = fSolver == Solver::kDense
                          ? SolveDense(problem, planes, at, fit, state, logLikelihood)
                          : SolveLinear(problem, planes, at, fit, state, logLikelihood);
  if (solved) SetProbability(fit);
  return solved;
}

bool ViewSolver::SolveDense(const ViewProblem& problem, const PlaneList& planes,
                            const std::vector<double>& at, ViewFit& fit,
                            std::vector<KinkPoint>& state, double& logLikelihood) const {
  // Lutz tells of a singular matrix on the error stream; this looks before.
  const double logDeterminant = LogDeterminant(NormalMatrix(problem, planes));
  if (std::isnan(logDeterminant)) return false;
  Lutz lutz(fit.fN, Count(planes.fS));
  Load(problem, planes, lutz);
  lutz.Fit(&fit.fIntercept, &fit.fSlope, fit.fKink.data(), nullptr);
  if (!lutz.Succeeded()) return false;
  const TMatrixDSym cov = lutz.Covariance();
  fit.fCov[0] = cov(0, 0);
  fit.fCov[1] = cov(0, 1);
  fit.fCov[2] = cov(1, 1);
  for (std::size_t j = 0; j < planes.fS.size(); j++) {
    const int k = static_cast<int>(j) + 2;
    fit.fSigKink[j] = std::sqrt(cov(k, k));
  }
  fit.fChi2 = lutz.Chi2XI();
  fit.fChi2Kink = lutz.Chi2Beta();
  for (double s : at) state.push_back(DenseState(lutz, cov, fit, planes, s));
  logLikelihood = DenseLogLikelihood(problem, planes, logDeterminant, fit.fChi2 + fit.fChi2Kink);
  return std::isfinite(logLikelihood);
}

bool ViewSolver::SolveLinear(const ViewProblem& problem, const PlaneList& planes,
                             const std::vector<double>& at, ViewFit& fit,
                             std::vector<KinkPoint>& state, double& logLikelihood) {
  fSmoother.Load(fit.fN, problem.fS.data(), problem.fA.data(), problem.fSig.data(),
                 Count(planes.fS), planes.fS.data(), planes.fSigAlpha.data());
  fSmoother.Fit(&fit.fIntercept, &fit.fSlope, fit.fKink.data(), nullptr);
  if (!fSmoother.Succeeded()) return false;
  const double upstream = planes.fS.empty() ? 0 : std::min(planes.fS.front(), 0.);
  SetUpstreamCovariance(fSmoother.At(upstream), upstream, fit.fCov);
  for (unsigned int j = 0; j < Count(planes.fS); j++)
    fit.fSigKink[j] = std::sqrt(fSmoother.VarKink(j));
  fit.fChi2 = fSmoother.Chi2XI();
  fit.fChi2Kink = fSmoother.Chi2Beta();
  for (double s : at) state.push_back(fSmoother.At(s));
  logLikelihood = fSmoother.LogLikelihood();
  return std::isfinite(logLikelihood);
}

} // namespace kelvo
