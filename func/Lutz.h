#pragma once

#include <TMatrixD.h>
#include <TMatrixDSym.h>
#include <TVectorD.h>

#include <cstddef>

namespace kelvo {

/// Least-squares fit of one detector view with a straight line that bends at scattering planes:
///   x(z) = x0 + b z + sum_j alpha_j max(z - s_j, 0),
/// where each kink alpha_j is a parameter of its own, measured as 0 with the width of the multiple
/// scattering at its plane (G. Lutz, Nucl. Instr. Meth. A 273 (1988) 349).
/// Construct it for n measurements and m planes, load every one with SetMeasurement and
/// SetScatteringPlane in any order, call Fit, then ask X, Chi2XI, Covariance and the others.
/// Lengths share one unit (cm in kelvo), angles are in radians. One object serves one thread.
class Lutz {
public:
  /// Makes an empty problem: all positions, values, weights and results are 0.
  /// @param nmeas number of measurements n
  /// @param nscat number of scattering planes m, below n; 0 fits a plain straight line
  /// Memory grows as n m + m^2. Throws kBadNScat (value 0) unless nmeas > nscat.
  Lutz(unsigned int nmeas, unsigned int nscat);
  Lutz(const Lutz&) = default;
  /// Not assignable: ROOT's vectors and matrices refuse a source of another size.
  Lutz& operator=(const Lutz&) = delete;
  ~Lutz() = default;

  /// Loads measurement i with weight 1 / (sigx sigx); a later call for the same i replaces it.
  /// A measurement that is never loaded has weight 0 and is ignored by the fit.
  /// @param i    index, below n
  /// @param z    position along the detector [cm]
  /// @param x    measured transverse coordinate [cm]
  /// @param sigx standard deviation of x [cm]; infinity gives weight 0
  /// Throws, in this order of checks and leaving the object as it was: kIndexProblem (value 0) for
  /// i >= n, kNaN (value 0) for a NaN among z, x, sigx, kBadSigX (value sigx) for sigx <= 0.
  void SetMeasurement(unsigned int i, double z, double x, double sigx);

  /// Loads scattering plane j with weight 1 / (sigAlpha sigAlpha); a later call replaces it. Planes
  /// need no order. A plane that is never loaded stands at z = 0 with an unconstrained kink.
  /// @param j        index, below m
  /// @param z        position along the detector [cm]
  /// @param sigAlpha expected width of the scattering angle [rad]; infinity leaves the kink free
  /// Throws, in this order of checks and leaving the object as it was: kIndexProblem (value 0) for
  /// j >= m, kNaN (value 0) for a NaN, kBadSigSJ (value sigAlpha) for sigAlpha <= 0.
  void SetScatteringPlane(unsigned int j, double z, double sigAlpha);

  /// Solves the loaded problem. May be called again after inputs were changed.
  /// Throws nothing of its own. If the normal matrix cannot be inverted, one line "func/Lutz:<line>
  /// Matrix inversion failed" goes to the standard error stream (after a message of ROOT's own) and
  /// every result is 0, see Succeeded; chi2 is then the sum of w_i x_i^2.
  /// Time grows as n m^2 + m^3. Limits, which are those of ROOT's inversion: a determinant that
  /// overflows to infinity or is NaN counts as success, one that underflows to 0 as failure; from
  /// m = 5 on a pivot of the normal matrix below 2.2e-16, so very small weights, is failure too.
  /// @param x0    receives the intercept at z = 0 of the segment before all planes [cm]; may be
  /// null
  /// @param dxdz  receives the slope of that segment; may be null
  /// @param alpha receives the m kink angles in plane order [rad]; may be null
  /// @param chi2  receives Chi2XI() + Chi2Beta(); may be null
  void Fit(double* x0, double* dxdz, double* alpha, double* chi2);

  /// Returns the fitted trajectory at z [cm]. A plane bends it strictly beyond its position only.
  double X(double z) const;

  /// Returns (x_i - xfit_i)^2 w_i of measurement i; i must be below n.
  double Chi2XIi(unsigned int i) const;

  /// Returns alpha_j^2 / sigAlpha_j^2 of plane j; j must be below m.
  double Chi2BetaJ(unsigned int j) const;

  /// Returns the sum of Chi2XIi over all measurements, 0 if there are none.
  double Chi2XI() const;

  /// Returns the sum of Chi2BetaJ over all planes, 0 if there are none.
  double Chi2Beta() const;

  /// Sets every fitted quantity to 0; inputs stay. The object then counts as not fitted.
  void NullResult();

  /// Returns whether the last Fit could invert its normal matrix; false before the first.
  bool Succeeded() const { return fSucceeded; }

  /// Returns the number of measurements n.
  unsigned int NMeas() const { return fNmeas; }

  /// Returns the number of scattering planes m.
  unsigned int NScat() const { return fNscat; }

  /// Returns the number of degrees of freedom of chi2 for the loaded inputs: measurements of weight
  /// above 0, minus 2, minus planes whose kink is unconstrained (weight 0). A constrained kink is
  /// one parameter and one measurement, so it does not count. Negative if there is too little
  /// input.
  int NDOF() const;

  /// Returns the covariance matrix of the fitted parameters, (m + 2) x (m + 2), in the order x0
  /// [cm], slope, kinks in plane order [rad]: the inverse of the normal matrix, made exactly
  /// symmetric. Without a successful last fit every element is NaN: 0 would claim exact knowledge.
  TMatrixDSym Covariance() const;

  /// Returns the variance of X(z) [cm^2], h^T C h with C the covariance and h =
  /// dX(z)/d(parameters). NaN without a successful last fit. Time grows as m^2.
  double VarX(double z) const;

private:
  friend struct LutzStages; // test and benchmark look at the steps of Fit one by one

  void CalcZeta();
  void CalcD();
  bool CalcAinv();
  void FillA();
  void FillLine();
  void FillCoupling();
  void FillAngles();
  void SetAngle(std::size_t j, std::size_t k, double sum);
  bool InvertA();
  void Calcq();
  void Calcx();

  unsigned int fNmeas;     ///< n, number of measurements
  unsigned int fNscat;     ///< m, number of scattering planes
  TVectorD fZ;             ///< n: position of each measurement [cm]
  TVectorD fX;             ///< n: measured coordinate [cm]
  TVectorD fW;             ///< n: weight of each measurement, 1 / sigx^2 [cm^-2]
  TVectorD fS;             ///< m: position of each plane [cm]
  TVectorD fWalpha;        ///< m: weight of each kink, 1 / sigAlpha^2 [rad^-2]
  TMatrixD fZeta;          ///< n x m: lever arm of plane j at measurement i [cm]
  TMatrixD fD;             ///< (m + 2) x n: weighted transposed design matrix
  TMatrixDSym fAinv;       ///< (m + 2) x (m + 2): normal matrix, its inverse after a fit
  double fX0 = 0;          ///< fitted intercept at z = 0 [cm]
  double fSlope = 0;       ///< fitted slope
  TVectorD fAlpha;         ///< m: fitted kinks [rad]
  TVectorD fXfit;          ///< n: fitted coordinate at each measurement [cm]
  bool fSucceeded = false; ///< whether the results come from a solved problem
};

} // namespace kelvo
