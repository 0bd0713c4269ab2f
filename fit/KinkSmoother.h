#pragma once

#include <TMatrixDSym.h>

#include <cmath>
#include <memory>
#include <vector>

namespace kelvo {

/// How the last fit of a KinkSmoother ended.
enum class KinkStatus {
  kNotFitted,     ///< there was none since construction, Reset, Load or NullResult
  kSucceeded,     ///< the results are those of the loaded problem
  kNoMeasurement, ///< no measurement has a weight above 0
  kOnePosition,   ///< all measurements of weight above 0 stand at the same z: no slope
  kFreeKink,      ///< the measurements do not fix a kink that is unconstrained (width infinity)
  kNotFinite      ///< an infinite z or x, or weights near the range of double
};

/// The fitted line at one position: values and their 2 x 2 covariance matrix.
struct KinkPoint {
  double fX;         ///< position [cm]
  double fSlope;     ///< dx/dz
  double fVarX;      ///< variance of the position [cm^2]
  double fCovXSlope; ///< covariance of both [cm]
  double fVarSlope;  ///< variance of the slope
};

/// One measurement beside the fit. "Unbiased" compares it with the fit of all the others.
struct KinkResidual {
  double fBiased;      ///< measured minus fitted [cm]
  double fVarBiased;   ///< its variance [cm^2]
  double fUnbiased;    ///< measured minus the fit without this measurement [cm]
  double fVarUnbiased; ///< its variance [cm^2]; infinity if the others alone fix no track
  double fPull;        ///< residual over its standard deviation; the same for both kinds
  double fLeverage;    ///< derivative of the fitted by the measured value, 0 to 1
  double fChi2;        ///< contribution to chi-square
};

/// The fit of Lutz in time and memory linear in n + m: one detector view, a straight line that
/// bends at scattering planes, each kink measured as 0 with the width of its plane. Same inputs,
/// same answers, plus uncertainties everywhere; and there may be more planes than measurements.
/// Along z the track is a Markov process with state (x, slope); a filter runs downstream, a second
/// one upstream, and both together give the smoothed line between any two planes (D. C. Fraser, J.
/// E. Potter, IEEE Trans. Autom. Control 14 (1969) 387; R. Fruehwirth, Nucl. Instr. Meth. A 262
/// (1987) 444). Load a track from arrays, or construct or Reset the object for n measurements and m
/// planes and set each; call Fit; ask for results; load the next track. Nothing is allocated once
/// the object has done the same with a problem of that size. Lengths share one unit (cm in kelvo),
/// angles are in radians. One object serves one thread at a time, const queries included.
class KinkSmoother {
public:
  /// Makes an empty problem. There may be more planes than measurements.
  /// @param nmeas number of measurements n
  /// @param nscat number of scattering planes m
  KinkSmoother(unsigned int nmeas, unsigned int nscat);

  /// Copies have the inputs and results of the original.
  KinkSmoother(const KinkSmoother& other);
  KinkSmoother& operator=(const KinkSmoother& other);
  ~KinkSmoother();

  /// Makes the object as new, keeping its memory.
  void Reset(unsigned int nmeas, unsigned int nscat);

  /// Resets the object and loads a whole problem from arrays: the same as SetMeasurement and
  /// SetScatteringPlane for each element, in less time. Throws what these throw, for the first
  /// element that is wrong, measurements before planes; the object is then as after Reset.
  /// @param nmeas number of measurements n
  /// @param z     n positions along the detector [cm]
  /// @param x     n measured transverse coordinates [cm]
  /// @param sigx  n standard deviations of x [cm]
  /// @param nscat number of scattering planes m
  /// @param s     m positions of planes [cm]
  /// @param sigAlpha m expected widths of the scattering angle [rad]
  void Load(unsigned int nmeas, const double* z, const double* x, const double* sigx,
            unsigned int nscat, const double* s, const double* sigAlpha);

  /// Loads measurement i with weight 1 / (sigx sigx); a later call for the same i replaces it.
  /// A measurement that is never loaded stands at z = 0 with weight 0 and is ignored by the fit.
  /// @param i    index, below n
  /// @param z    position along the detector [cm]
  /// @param x    measured transverse coordinate [cm]
  /// @param sigx standard deviation of x [cm]; infinity gives weight 0
  /// Throws, in this order of checks and leaving the object as it was: kIndexProblem (value 0) for
  /// i >= n, kNaN (value 0) for a NaN among z, x, sigx, kBadSigX (value sigx) for sigx <= 0.
  void SetMeasurement(unsigned int i, double z, double x, double sigx) {
    if (!(i < fNmeas)) ThrowIndexProblem();
    if (!IsMeasurement(z, x, sigx)) ThrowBadMeasurement(z, x, sigx);
    const double w = 1 / (sigx * sigx);
    fMeas[i].fZ = z;
    fMeas[i].fX = x;
    fMeas[i].fW = w;
    if (!fLoadedW.empty()) fLoadedW[i] = w;
  }

  /// Loads scattering plane j with weight 1 / (sigAlpha sigAlpha); a later call replaces it. Planes
  /// need no order. A plane that is never loaded stands at z = 0 with an unconstrained kink.
  /// @param j        index, below m
  /// @param z        position along the detector [cm]
  /// @param sigAlpha expected width of the scattering angle [rad]; infinity leaves the kink free
  /// Throws, in this order of checks and leaving the object as it was: kIndexProblem (value 0) for
  /// j >= m, kNaN (value 0) for a NaN, kBadSigSJ (value sigAlpha) for sigAlpha <= 0.
  void SetScatteringPlane(unsigned int j, double z, double sigAlpha) {
    if (!(j < fNscat)) ThrowIndexProblem();
    if (!IsPlane(z, sigAlpha)) ThrowBadPlane(z, sigAlpha);
    fPlanes[j].fS = z;
    fPlanes[j].fV = 1 / (sigAlpha * sigAlpha);
  }

  /// Multiplies the loaded weight of measurement i for the next Fit: 0 leaves it out, 1 restores
  /// it. SetMeasurement, Reset and Load restore it too. Uncertainties and pulls of the measurement
  /// itself keep the loaded sigx. Throws kIndexProblem (value 0) for i >= n or a factor outside 0
  /// to 1.
  void SetWeightFactor(unsigned int i, double factor);

  /// Returns the factor that measurement i has now, 1 for one of infinite sigx; i must be below n.
  double WeightFactor(unsigned int i) const {
    return LoadedW(i) > 0 ? fMeas[i].fW / LoadedW(i) : 1;
  }

  /// Solves the loaded problem, with the same meaning of the arguments as Lutz::Fit. May be called
  /// again after inputs were changed. Throws and prints nothing: a singular problem gives the null
  /// result (all parameters 0, chi2 the sum of w_i x_i^2), and Status() says why.
  /// Time and memory grow as n + m, plus a sort if measurements or planes are not in order of z.
  /// @param x0    receives the intercept at z = 0 of the segment before all planes [cm]; may be
  /// null
  /// @param dxdz  receives the slope of that segment; may be null
  /// @param alpha receives the m kink angles in the order of the planes' indices [rad]; may be null
  /// @param chi2  receives Chi2XI() + Chi2Beta(); may be null
  void Fit(double* x0, double* dxdz, double* alpha, double* chi2);

  /// Returns how the last Fit ended.
  KinkStatus Status() const { return fStatus; }

  /// Returns whether the last Fit solved its problem; false before the first.
  bool Succeeded() const { return fStatus == KinkStatus::kSucceeded; }

  /// Sets every fitted quantity to 0; inputs stay. The object then counts as not fitted.
  void NullResult();

  /// Returns the number of measurements n.
  unsigned int NMeas() const { return fNmeas; }

  /// Returns the number of scattering planes m.
  unsigned int NScat() const { return fNscat; }

  /// Returns the number of degrees of freedom of chi2 for the loaded inputs: measurements of weight
  /// above 0, minus 2, minus planes whose kink is unconstrained (weight 0). Negative if there is
  /// too little input. A weight factor of 0 takes its measurement out.
  int NDOF() const;

  /// Returns the fitted trajectory at z [cm]. A plane bends it strictly beyond its position only.
  /// Time grows as log m.
  double X(double z) const;

  /// Returns the slope at z; at a plane, the slope before it. Time grows as log m.
  double Slope(double z) const;

  /// Returns position, slope and their covariance at z, between planes as well as outside; at a
  /// plane, the line before it. Variances are NaN without a successful last fit. Time grows as
  /// log m.
  KinkPoint At(double z) const;

  /// Returns the same in constant time for the line between two planes, continued to z: the line
  /// that has k planes before it, in order of their position.
  /// @param k m or less
  KinkPoint Between(unsigned int k, double z) const;

  /// Returns intercept and slope of the segment before all planes and their covariance at z = 0,
  /// wherever the planes are: what Fit gives as x0 and dxdz.
  KinkPoint AtStart() const;

  /// Returns the fitted coordinate at measurement i [cm]; i must be below n.
  double XFit(unsigned int i) const { return fMeas[i].fXfit; }

  /// Returns the kink at plane j [rad]; j must be below m.
  double Kink(unsigned int j) const { return fPlanes[j].fAlpha; }

  /// Returns the variance of the kink at plane j [rad^2], NaN without a successful last fit; j must
  /// be below m.
  double VarKink(unsigned int j) const;

  /// Returns (x_i - xfit_i)^2 w_i of measurement i; i must be below n.
  double Chi2XIi(unsigned int i) const {
    const double r = fMeas[i].fX - fMeas[i].fXfit;
    return r * r * fMeas[i].fW;
  }

  /// Returns alpha_j^2 / sigAlpha_j^2 of plane j; j must be below m.
  double Chi2BetaJ(unsigned int j) const {
    return fPlanes[j].fAlpha * fPlanes[j].fAlpha * fPlanes[j].fV;
  }

  /// Returns the measurements' part of chi-square of the last Fit, 0 before the first.
  double Chi2XI() const { return fChi2XI; }

  /// Returns the kinks' part of chi-square of the last Fit, 0 before the first.
  double Chi2Beta() const { return fChi2Beta; }

  /// Returns residuals, leverage and chi-square contribution of measurement i (i below n). The
  /// variances are those of the loaded sigx. A measurement without which the others fix no track
  /// has unbiased residual and pull 0. Without a successful last fit all is NaN.
  /// The first call after a Fit takes time that grows as n + m and fills a cache for the others.
  /// It belongs to that Fit: where a measurement or plane was loaded since, fit again first. A
  /// change of weight factors leaves the unbiased residual and the pull as they are.
  KinkResidual Residual(unsigned int i) const;

  /// Returns the logarithm of the likelihood of the measurements with the kinks, intercept and
  /// slope integrated out, for a flat prior on intercept, slope and each unconstrained kink:
  ///   -1/2 [chi2 + log det A - sum_i log w_i - sum_j log v_j + NDOF log(2 pi)],
  /// A the normal matrix of Lutz, sums over weights above 0; the innovations' likelihood of a
  /// Kalman filter with diffuse start (A. C. Harvey, Forecasting, Structural Time Series Models and
  /// the Kalman Filter (1989), 3.4). Compare hypotheses on the same measurements by its difference.
  /// Unit: log of cm^-NDOF. NaN without a successful last fit. Time grows as n + m.
  double LogLikelihood() const;

  /// Returns the covariance matrix of the fitted parameters, (m + 2) x (m + 2), in the order x0
  /// [cm], slope, kinks in plane order [rad]. Every element is NaN without a successful last fit.
  /// Allocates its result and a work space; time grows as m^2.
  TMatrixDSym Covariance() const;

private:
  class Filter;

  struct Measurement {
    double fZ;             ///< position [cm]
    double fX;             ///< measured coordinate [cm]
    double fW;             ///< weight in the fit [cm^-2]
    double fXfit;          ///< fitted coordinate [cm]
    unsigned int fSegment; ///< the segment it lies in
  };

  struct Plane {
    double fS;        ///< position [cm]
    double fV;        ///< weight of the kink, 1 / sigAlpha^2 [rad^-2]
    double fAlpha;    ///< fitted kink [rad]
    double fVarAlpha; ///< its variance [rad^2]
  };

  static bool IsMeasurement(double z, double x, double sigx) {
    return !std::isunordered(z, x) && sigx > 0;
  }
  static bool IsPlane(double z, double sigAlpha) { return z == z && sigAlpha > 0; }
  [[noreturn]] void ThrowIndexProblem() const;
  [[noreturn]] void ThrowBadMeasurement(double z, double x, double sigx) const;
  [[noreturn]] void ThrowBadPlane(double z, double sigAlpha) const;
  void Resize(unsigned int nmeas, unsigned int nscat);
  double LoadedW(unsigned int i) const { return fLoadedW.empty() ? fMeas[i].fW : fLoadedW[i]; }
  void FitMeasurements();
  KinkStatus WhySingular() const;

  unsigned int fNmeas = 0;        ///< n, number of measurements
  unsigned int fNscat = 0;        ///< m, number of scattering planes
  std::vector<Measurement> fMeas; ///< n
  std::vector<Plane> fPlanes;     ///< m

  /// n: weights before any weight factor, 1 / sigx^2 [cm^-2]; empty without such factors.
  std::vector<double> fLoadedW;

  std::unique_ptr<Filter> fFilter; ///< what the fit works with; never null

  double fX0 = 0;                              ///< fitted intercept at z = 0 [cm]
  double fSlope = 0;                           ///< fitted slope of the first segment
  double fChi2XI = 0;                          ///< measurements' part of chi-square
  double fChi2Beta = 0;                        ///< kinks' part of chi-square
  KinkStatus fStatus = KinkStatus::kNotFitted; ///< how the last fit ended
};

} // namespace kelvo
