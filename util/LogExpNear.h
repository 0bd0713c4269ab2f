#pragma once

#include <cmath>
#include <cstdint>

#include "util/Quad.h"

namespace util {

/// What LogNear and ExpNear look up.
struct LogExpTables {
  /// Returns whether both give the bits of the mathematics library here: its errors must be known,
  /// and a long double must calculate with digits enough to make the tables.
  static bool Known();

  /// Numbers that have the sign, the exponent and the first six bits of the fraction in common.
  struct Bin {
    double fInverse; ///< about 1/x
    double fLog;     ///< -ln(fInverse), rounded
    double fLogRest; ///< what fLog lacks
    double fMargin;  ///< error bound with that of the library's log; infinity where fLog is small
  };
  static constexpr int kBinShift = 46;
  static constexpr std::uint64_t kFirstBin = std::uint64_t{1023 - 17} << 6; // of 2^-17
  static constexpr std::uint64_t kBins = 31 << 6;                           // up to 2^14

  /// 2^(j/128).
  struct Power {
    std::uint64_t fBits; ///< its bits
    double fRest;        ///< what they lack, relatively
  };
  static constexpr std::uint64_t kPowers = 128;

  /// Returns the tables, made at the first call; any number of threads may call.
  static const LogExpTables& Get();

  static constexpr double kMin = 0x1p-17; ///< smallest number that has a bin
  static constexpr double kEnd = 0x1p14;  ///< numbers that have a bin are below

  /// Returns the index of the bin of x, which is from kMin to below kEnd.
  static std::uint64_t BinOf(double x) { return (ToBits(x) >> kBinShift) - kFirstBin; }
  [[KELVO_FMA, gnu::always_inline]] static QuadBits BinOf(Quad x) {
    return (ToBits(x) >> kBinShift) - kFirstBin;
  }

  /// Returns the smallest number of a bin.
  static double LowerEdge(std::uint64_t bin);

  Bin fBins[kBins];
  Power fPowers[kPowers];

private:
  LogExpTables();
};

/// std::log of an argument that becomes known late in a chain of calculations, while one close to
/// it is known early: all but the last few operations are done on that, beside the chain. The
/// result is the very double that the mathematics library gives: value and error bound of a sum of
/// two doubles tell in 19 of 20 cases to which double it rounds, else the library is asked. That
/// holds for a library that errs by 0.521 units in the last place at most; those of Linux err by
/// 0.520. The method is that of P. T. P. Tang, ACM Trans. Math. Softw. 16 (1990) 378.
/// Real is double, or Quad for four at once. To be used where LogExpTables::Known() and HasFma()
/// are true; arguments are not checked.
template <class Real>
class LogNear {
public:
  /// @param tables LogExpTables::Get()
  /// @param near   from LogExpTables::kMin to below LogExpTables::kEnd
  /// @param bin    LogExpTables::BinOf(near)
  [[KELVO_FMA, gnu::always_inline]] LogNear(const LogExpTables& tables, Real near, BitsOf<Real> bin)
      : fNear(near) {
    using Bin = LogExpTables::Bin;
    const Real binInverse = Each(tables.fBins, bin, &Bin::fInverse);
    const Real log = Each(tables.fBins, bin, &Bin::fLog);
    fMargin = Each(tables.fBins, bin, &Bin::fMargin);
    const Real r = Fma(near, binInverse, All<Real>(-1));
    const Real r2 = r * r;
    const Real a = Fma(r, All<Real>(1.0 / 3), All<Real>(-1.0 / 2));
    const Real b = Fma(r, All<Real>(1.0 / 5), All<Real>(-1.0 / 4));
    const Real c = Fma(r, All<Real>(1.0 / 7), All<Real>(-1.0 / 6));
    const Real d = Fma(r2, All<Real>(-1.0 / 8), c);
    fHigh = log + r;
    fLow = Fma(r2, Fma(r2 * r2, d, Fma(r2, b, a)),
               ((log - fHigh) + r) + Each(tables.fBins, bin, &Bin::fLogRest));
    const Real inverse = Fma(-r, binInverse, binInverse);
    fInverse = Fma(r2, inverse, inverse);
  }

  /// Returns the logarithm of the argument that was given, but for rounding.
  [[KELVO_FMA, gnu::always_inline]] Real Value() const { return fHigh + fLow; }

  /// Returns std::log(x).
  /// @param x within 1e-11 of the argument that was given, relatively
  [[KELVO_FMA, gnu::always_inline]] Real At(Real x) const {
    const Real low = Fma(x - fNear, fInverse, fLow);
    return IfEqual(fHigh + (low + fMargin), fHigh + (low - fMargin), x,
                   [](double one) { return std::log(one); });
  }

private:
  Real fNear;
  Real fHigh, fLow; ///< their sum is its logarithm
  Real fInverse;    ///< 1/fNear, to 8 digits
  Real fMargin;     ///< error bound
};

/// The same for std::exp and a library that errs by 0.5115 units in the last place at most; those
/// of Linux err by 0.511. P. T. P. Tang, ACM Trans. Math. Softw. 15 (1989) 144.
template <class Real>
class ExpNear {
public:
  /// @param tables LogExpTables::Get()
  /// @param near   from -700 to 700
  [[KELVO_FMA, gnu::always_inline]] ExpNear(const LogExpTables& tables, Real near) : fNear(near) {
    using Power = LogExpTables::Power;
    constexpr double kPerUnit = LogExpTables::kPowers / 0.693147180559945309;
    constexpr double kStep = 0x1.62e42fefa39efp-8;      // 1 / kPerUnit
    constexpr double kStepRest = 0x1.abc9e3b39803fp-63; // what kStep lacks
    constexpr double kToInteger = 0x1.8p52; // leaves an integer in the last bits of a sum
    const Real sum = Fma(near, All<Real>(kPerUnit), All<Real>(kToInteger));
    const BitsOf<Real> n = ToBits(sum);
    const BitsOf<Real> j = n % LogExpTables::kPowers;
    fHigh = FromBits(Each(tables.fPowers, j, &Power::fBits) + (n / LogExpTables::kPowers << 52));
    const Real steps = sum - kToInteger;
    const Real r =
        Fma(steps, All<Real>(-kStepRest), Fma(steps, All<Real>(-kStep), near)); // |r| < 2^-8.5
    const Real r2 = r * r;
    const Real a = Fma(r, All<Real>(1.0 / 6), All<Real>(1.0 / 2));
    const Real b = Fma(r, All<Real>(1.0 / 120), All<Real>(1.0 / 24));
    const Real c = Fma(r2, All<Real>(1.0 / 720), b);
    fLow = fHigh * Fma(r2, Fma(r2, c, a), r + Each(tables.fPowers, j, &Power::fRest));
  }

  /// Returns std::exp(y).
  /// @param y within 1e-11 of the argument that was given
  [[KELVO_FMA, gnu::always_inline]] Real At(Real y) const {
    constexpr double kMargin = 0.019 * 0x1p-52; // 0.0115 for the library, 0.0075 for this
    const Real low = Fma(fHigh + fLow, y - fNear, fLow);
    const Real margin = fHigh * kMargin;
    return IfEqual(fHigh + (low + margin), fHigh + (low - margin), y,
                   [](double one) { return std::exp(one); });
  }

private:
  Real fNear;
  Real fHigh, fLow; ///< their sum is its exponential
};

} // namespace util
