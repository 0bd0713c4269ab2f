#pragma once

#include "track/MaterialAlong.h"
#include "util/Lanes.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace kelvo {

/// A thin plane that scatters on the way of a track.
struct ScatteringPlane {
  double fZ;                            ///< [cm]
  std::size_t fGap;                     ///< gap of the track where it is
  double fPart;                         ///< of the gap before it
  double fScale;                        ///< width of the angle times beta p [rad GeV]
  std::array<double, 2> fSlopePerAngle; ///< change of a view's slope per angle
};

/// A momentum from scattering, with an interval that holds the truth in 68 % of tracks. Infinite
/// values: the line bends no more than its hits make it. NaN: there are no kinks to be seen.
struct ScatteringMomentumFit {
  double fP = std::numeric_limits<double>::quiet_NaN();   ///< most likely, at the first hit [GeV/c]
  double fLow = std::numeric_limits<double>::quiet_NaN(); ///< lower end of the interval [GeV/c]
  double fHigh = std::numeric_limits<double>::quiet_NaN(); ///< its upper end [GeV/c]
  /// A finite momentum that the track may have: fP, or where that is infinite the one whose score
  /// is one standard deviation away from there.
  double fLikely = std::numeric_limits<double>::quiet_NaN();
  double fLogLikelihood = std::numeric_limits<double>::quiet_NaN(); ///< of fP, up to a constant of
                                                                    ///< the track

  /// Returns the uncertainty of 1 / fP [c/GeV]: half of the interval of 1 / p.
  double SigInverse() const { return std::isinf(fP) ? 1 / fLikely : (1 / fLow - 1 / fHigh) / 2; }
};

/// The momentum of a track from the scattering of its hits alone, the energy loss included.
///
/// The second differences of the hits of a view know nothing of the straight line; they have mean 0
/// and the covariance matrix
///   V(p) = W + sum_j sigma_j^2(p) a_j a_j',
/// W of the measurements, a_j what a kink of 1 at plane j makes of them. A kink reaches only the
/// two differences at whose ends it lies, so that V has two diagonals beside the main one, and an
/// evaluation takes time linear in the number of hits. Its likelihood is the marginal likelihood of
/// the line with kinks (KinkSmoother::LogLikelihood) up to a constant.
///
/// The interval inverts a test of the score: with M = V^-1 dV / d ln p, the score of ln p,
///   S = 1/2 (y' V^-1 V' V^-1 y - tr M),
/// has mean 0, variance tr M^2 / 2 and third cumulant tr M^3 if p is true, whatever the number of
/// hits, and nearly the distribution of a chi-square of the same three moments (E. B. Wilson, M. M.
/// Hilferty, Proc. Natl. Acad. Sci. 17 (1931) 684).
///
/// Nothing is allocated once the object has served a track of that size.
class ScatteringMomentum {
public:
  static constexpr double kMinP = 0.05;             ///< [GeV/c]
  static constexpr double kMaxP = 100;              ///< [GeV/c]
  static constexpr std::size_t kMaxEvaluations = 6; ///< of the likelihood, per track

  /// What a likelihood and its score are at one momentum.
  struct Point {
    double fX;             ///< ln p
    double fLogLikelihood; ///< up to a constant of the track
    double fScore;         ///< derivative by ln p
    double fInformation;   ///< variance of the score if p is true
    double fSkew;          ///< its third cumulant
  };

  /// @param material must outlive the object
  /// @param particle index of the tables of the particle
  /// @param mass     of the particle [GeV]
  ScatteringMomentum(const MaterialAlong& material, std::size_t particle, double mass)
      : fMaterial(material), fParticle(particle), fMass(mass) {}

  /// Forgets the track before.
  void Clear();

  /// Adds a hit of a view; of each by increasing z.
  /// @param view 0: x, 1: y
  /// @param sig  uncertainty [cm]
  void AddHit(std::size_t view, double z, double u, double sig);

  /// To be called behind the last hit of a track whose material has been traced.
  /// @param planes  by increasing z; must live as long as the track at hand
  /// @param stretch see EnergyAlong; must live as long as the track at hand
  /// @param cells   whether the hits are centres of cells, whose errors are not Gaussian
  void Load(const std::vector<ScatteringPlane>& planes, const std::vector<double>& stretch,
            bool cells);

  /// Finds momentum and interval.
  /// @param least momentum that gets the particle to the last hit [GeV/c]; 0 without energy loss
  ScatteringMomentumFit Fit(double least);

  /// Returns likelihood and score at a momentum [GeV/c].
  Point At(double p);

  /// Returns the same of a common factor on all momenta along the track.
  /// @param T    kinetic energy at each hit [GeV]
  /// @param mass of the particle [GeV]
  Point AtScale(const double* T, double mass);

  /// Returns the score at a point as a standard normal deviate.
  double Deviate(const Point& point) const;

private:
  using WithSlope = Lanes::Pair; ///< a number and its derivative by ln p

  /// The second differences of a view.
  struct View {
    std::vector<double> fZ, fU, fVar;      // hits at different z
    std::size_t fN = 0;                    // number of second differences
    std::vector<double> fY;                // these
    std::vector<std::array<double, 3>> fW; // row i: covariance with i, i - 1, i - 2
    /// Of each plane that bends the line: where, and what it makes of the differences.
    struct Reach {
      std::size_t fPlane, fGap;
      // Squares and product of that with the difference that ends with the gap, and that begins
      // with it.
      double fBefore2, fBehind2, fBoth;
    };
    std::vector<Reach> fReach;
    /// Covariances of a difference with itself and with the one before, from kinks.
    struct Kinks {
      WithSlope fOwn{}, fWithLast{};
    };
    std::vector<Kinks> fK;
  };

  /// What a minimum-ionising particle loses in a material along the track [GeV].
  struct Loss {
    const MaterialData* fIn;
    double fLoss;
  };

  /// A likelihood as a function of x, the logarithm of the momentum without what is lost on the
  /// way: scattering changes with x as with ln p of a particle that loses nothing.
  struct Tried {
    Point fPoint;
    double fDeviate;
  };

  void FindPeak(double x);
  void Try(double x);
  double Peak() const;
  std::size_t Nearest(double target) const;
  double Miss(double target) const;
  double Spread(const Point& point) const;
  double Guess(double target) const;
  double End(double target) const;
  double Between(double a, double b, double part, double power) const;
  void SetUp(View& view, std::size_t index);
  void FindWay();
  void FindEnergies(double p);
  void FindWidths();
  Point Evaluate(double x);
  void AddKinks(View& view);

  const MaterialAlong& fMaterial;
  std::size_t fParticle;
  double fMass;
  const std::vector<double>* fStretch = nullptr;
  std::array<View, 2> fView;
  const std::vector<ScatteringPlane>* fPlanes = nullptr;
  const MaterialData* fMain = nullptr; // of the materials on the way; null: none takes energy
  std::vector<Loss> fLosses;
  std::vector<double> fWay;            // to each hit, if all were that material [cm]
  std::vector<double> fT, fByLog;      // energy at each hit [GeV], and its derivative by ln p
  std::vector<double> fBetaP2, fSlope; // at each hit, and its derivative by ln p
  std::vector<WithSlope> fVariance;    // of each plane's angle
  bool fCells = false;
  double fLost = 0;                            // p = fLost + exp(x) [GeV/c]
  double fMinX = 0, fMaxX = 0;                 // what is tried
  std::array<Tried, kMaxEvaluations> fTried{}; // by ascending momentum
  std::size_t fTries = 0;
};

} // namespace kelvo
