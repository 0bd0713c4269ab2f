#pragma once

#include "func/HitList3D.h"
#include "test/support/TestGeometry.h"
#include "track/TrackFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

// Tracks of straight lines in a block of plastic, and how their fits are compared.

constexpr double kSigma = 0.3;     // cm, of a hit
constexpr double kSpacing = 6;     // cm, between planes
constexpr double kRounding = 1e-9; // of lengths [cm] and angles after a few thousand operations
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

inline const LayeredGeometry& Block() {
  static const LayeredGeometry block({{1000, "Scintillator"}});
  return block;
}

/// A line in space.
struct Line {
  double fX, fY, fDxDz, fDyDz; // at z = 0
  double X(double z) const { return fX + fDxDz * z; }
  double Y(double z) const { return fY + fDyDz * z; }
};

inline void AddX(kelvo::HitList3D& hits, double x, double z, double sigma = kSigma) {
  hits.AddHit(geo::kX, x, kNaN, z, 0, sigma, 0, 0, 0, 1);
}

inline void AddY(kelvo::HitList3D& hits, double y, double z, double sigma = kSigma) {
  hits.AddHit(geo::kY, kNaN, y, z, 0, 0, sigma, 0, 0, 1);
}

/// Hits in n planes of alternating views, the first one at z0, moved off a line by noise(i).
inline kelvo::HitList3D Hits(
    const Line& line, int n, const std::function<double(int)>& noise = [](int) { return 0.; },
    double z0 = 50) {
  kelvo::HitList3D hits;
  for (int i = 0; i < n; i++) {
    const double z = z0 + kSpacing * i;
    if (i % 2 == 0)
      AddX(hits, line.X(z) + noise(i), z);
    else
      AddY(hits, line.Y(z) + noise(i), z);
  }
  return hits;
}

inline double Wiggle(int i) {
  return kSigma * std::sin(1.7 * i * i);
}

inline const kelvo::HypothesisFit& Best(const kelvo::TrackFit& fit) {
  return fit.fHypothesis.at(static_cast<std::size_t>(fit.fBest));
}

inline void ExpectNear(const TVector3& a, const TVector3& b, double tolerance) {
  for (int i = 0; i < 3; i++) EXPECT_NEAR(a[i], b[i], tolerance) << "component " << i;
}

inline void ExpectSameNumbers(const kelvo::HypothesisFit& a, const kelvo::HypothesisFit& b) {
  ASSERT_EQ(a.fStatus, b.fStatus);
  EXPECT_EQ(a.fProb, b.fProb);
  EXPECT_EQ(a.fLogLikelihood, b.fLogLikelihood);
  EXPECT_EQ(a.fP, b.fP);
  EXPECT_EQ(a.fCov, b.fCov);
  EXPECT_EQ(a.fPosition, b.fPosition);
  EXPECT_EQ(a.fDirection, b.fDirection);
  ASSERT_EQ(a.fHit.size(), b.fHit.size());
  for (std::size_t i = 0; i < a.fHit.size(); i++) EXPECT_EQ(a.fHit[i].fFitU, b.fHit[i].fFitU);
}
