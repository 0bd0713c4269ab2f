#pragma once

#include <cstddef>
#include <vector>

#include "test/support/LutzPlain.h"

// The fit of one view solved another way: the weighted design matrix is brought to triangular form
// by Householder reflections in long double, so that the normal equations, which square the
// condition, never appear. Tolerances for the fit in double follow from the same solution.

namespace kelvo::test {

/// Solution of a problem with parameters in the order x0, slope, kinks.
class LutzPrecise {
public:
  explicit LutzPrecise(const LutzProblem& p);

  /// Returns the lever arms (1, z, max(z - s_0, 0), ...) of the parameters at z.
  std::vector<long double> Levers(long double z) const;

  long double Parameter(std::size_t p) const { return fParameters[p]; }
  long double Covariance(std::size_t p, std::size_t q) const;
  long double X(long double z) const;
  long double VarX(long double z) const;
  long double Chi2() const;

  /// Returns the rounding error of a covariance element in double that one unit in the last place
  /// leads to. It follows the conditioning, whatever the units of the parameters.
  double CovarianceUlp(std::size_t p, std::size_t q) const;

  /// Returns the same for a parameter, a covariance row times H^T W x.
  double ParameterUlp(std::size_t p) const;

private:
  using Matrix = std::vector<std::vector<double>>;

  std::size_t Column(std::size_t p) const;
  void Triangularise();
  void SolveTriangle();
  void BoundErrors();

  LutzProblem fProblem;
  std::size_t fSize;
  std::vector<std::vector<long double>> fTriangle, fInverse;
  std::vector<long double> fParameters;
  Matrix fC, fCofactorError;
  std::vector<double> fY, fRow, fColumn;
};

} // namespace kelvo::test
