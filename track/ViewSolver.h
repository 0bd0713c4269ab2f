#pragma once

#include "fit/KinkSmoother.h"
#include "track/TrackFit.h"

#include <vector>

namespace kelvo {

/// The measurements of one view in the track frame.
struct ViewProblem {
  std::vector<double> fS;   ///< n: path coordinates [cm]
  std::vector<double> fA;   ///< n: transverse positions [cm]
  std::vector<double> fSig; ///< n: their standard deviations [cm], above 0

  void Clear() {
    fS.clear();
    fA.clear();
    fSig.clear();
  }
  void Add(double s, double a, double sig) {
    fS.push_back(s);
    fA.push_back(a);
    fSig.push_back(sig);
  }
};

/// Scattering planes of a track under one hypothesis, and the step limits that gave them.
struct PlaneList {
  std::vector<double> fS;        ///< m: path coordinates [cm], ascending
  std::vector<double> fSigAlpha; ///< m: widths of the scattering angle [rad], above 0
  double fMaxDs = 0;             ///< [cm]
  double fMaxDX0 = 0;            ///< [radiation lengths]
  double fMaxDT = 0;             ///< [rad cm]
};

/// Fits single views, keeping its memory from one to the next.
class ViewSolver {
public:
  explicit ViewSolver(Solver solver) : fSolver(solver) {}

  /// Fits one view, with fewer planes than measurements.
  /// @param at    path coordinates at which the fitted line is wanted [cm]
  /// @param fit   receives the results
  /// @param state receives the line at each of them; at a plane, the line before it
  /// @param logLikelihood receives the marginal log-likelihood of the measurements: kinks,
  ///              intercept and slope integrated out, the latter two with a flat prior,
  ///   -1/2 [chi2 + ln det A + sum_i ln sig_i^2 + sum_j ln sigAlpha_j^2 + (n - 2) ln 2 pi],
  ///              A the normal matrix of all m + 2 parameters
  /// @return whether the normal equations have a solution; where not, the outputs are undefined
  bool Solve(const ViewProblem& problem, const PlaneList& planes, const std::vector<double>& at,
             ViewFit& fit, std::vector<KinkPoint>& state, double& logLikelihood);

private:
  bool SolveDense(const ViewProblem& problem, const PlaneList& planes,
                  const std::vector<double>& at, ViewFit& fit, std::vector<KinkPoint>& state,
                  double& logLikelihood) const;
  bool SolveLinear(const ViewProblem& problem, const PlaneList& planes,
                   const std::vector<double>& at, ViewFit& fit, std::vector<KinkPoint>& state,
                   double& logLikelihood);

  Solver fSolver;
  KinkSmoother fSmoother{1, 0};
};

} // namespace kelvo
