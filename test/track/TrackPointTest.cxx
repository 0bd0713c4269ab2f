#include "track/TrackPoint.h"

#include "func/TrackBasis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

// Reference: the crossing of a line with a plane, written out with vectors, and its derivatives by
// finite steps.

namespace {

using kelvo::KinkPoint;
using kelvo::LinePair;
using kelvo::TrackFrame;
using kelvo::TrackPoint;
using kelvo::Vector;

/// A frame and a line in it, as far off the axis as strong scattering takes it.
struct Case {
  TrackFrame fFrame;
  double fState[4]; // a and b of view X, a and b of view Y
  double fS, fZ;
};

Case RandomCase(std::mt19937_64& random) {
  std::uniform_real_distribution<double> u(-1, 1);
  const TVector3 axis = TVector3(u(random), u(random), 1).Unit();
  const Vector origin{10 * u(random), 10 * u(random), 10 * u(random)};
  Case c{TrackFrame(origin, {axis.X(), axis.Y(), axis.Z()}),
         {u(random), 0.3 * u(random), u(random), 0.3 * u(random)},
         20,
         0};
  c.fZ = c.fFrame.Point(c.fS, 0, 0)[2] + u(random);
  return c;
}

/// x, y where the line crosses the plane, then its direction's ux, uy and its slopes dx/dz, dy/dz.
std::array<double, 6> Cross(const Case& c, const double (&state)[4]) {
  const Vector p = c.fFrame.Point(c.fS, state[0], state[2]);
  const Vector q = c.fFrame.Point(c.fS + 1, state[0] + state[1], state[2] + state[3]);
  const TVector3 t(q[0] - p[0], q[1] - p[1], q[2] - p[2]);
  const double way = (c.fZ - p[2]) / t.Z();
  return {p[0] + way * t.X(), p[1] + way * t.Y(), t.Unit().X(),
          t.Unit().Y(),       t.X() / t.Z(),      t.Y() / t.Z()};
}

TEST(TrackPointTest, AViewsDirectionIsAcrossTheTrackAndWhatItsPlaneDoesNotMeasure) {
  std::mt19937_64 random(1);
  for (int k = 0; k < 100; k++) {
    const Case c = RandomCase(random);
    const Vector p = c.fFrame.Point(c.fS, c.fState[0], c.fState[2]);
    EXPECT_NEAR(c.fFrame.Transverse(0, p[0], p[2]), c.fState[0], 1e-12);
    EXPECT_NEAR(c.fFrame.Transverse(1, p[1], p[2]), c.fState[2], 1e-12);
    EXPECT_NEAR(c.fFrame.AxisCoordinate(p), c.fS, 1e-12);
  }
}

TEST(TrackPointTest, FrameRunsDownstreamEvenWhereTheScatterOfTheHitsTurnsTheBasisRound) {
  std::mt19937_64 random(2);
  std::uniform_real_distribution<double> u(-1, 1);
  int turned = 0;
  for (int k = 0; k < 200; k++) {
    kelvo::HitList3D hits;
    std::vector<double> x, y, z, sigma(6, 1), sigz(6, 0);
    for (std::size_t i = 0; i < 6; i++) {
      x.push_back(50 * u(random)); // much wider than the hits are apart in z
      y.push_back(50 * u(random));
      z.push_back(static_cast<double>(i));
      hits.AddHit(geo::kX, x[i], y[i], z[i], 0, 1, 1, 0, 0, 1);
    }
    kelvo::TrackBasis basis;
    basis.MakeBasis(x, y, z, sigma, sigma, sigz, x[0], y[0], z[0]);
    const double sign = basis.ZAxis().Z() < 0 ? -1 : 1;
    if (sign < 0) turned++;
    const TrackFrame frame = kelvo::FrameAlong(hits);
    for (int i = 0; i < 3; i++)
      EXPECT_DOUBLE_EQ(frame.Axis()[static_cast<std::size_t>(i)], sign * basis.ZAxis()[i]);
    EXPECT_EQ(frame.AxisCoordinate({x[0], y[0], z[0]}), 0);
  }
  EXPECT_GT(turned, 10);
}

TEST(TrackPointTest, PositionDirectionAndUncertaintiesFollowTheLine) {
  constexpr double kStep = 1e-5, kAccuracy = 1e-7;
  std::mt19937_64 random(2);
  std::uniform_real_distribution<double> u(0.2, 1);
  for (int k = 0; k < 100; k++) {
    const Case c = RandomCase(random);
    const double varA[2] = {u(random), u(random)}, varB[2] = {u(random), u(random)};
    const double cov[2] = {0.1 * u(random), -0.1 * u(random)};
    const LinePair line{c.fS,
                        {KinkPoint{c.fState[0], c.fState[1], varA[0], cov[0], varB[0]},
                         KinkPoint{c.fState[2], c.fState[3], varA[1], cov[1], varB[1]}}};
    const TrackPoint point = PointAtPlane(c.fFrame, line, c.fZ);
    ASSERT_TRUE(point.fCrosses);
    const std::array<double, 6> expected = Cross(c, c.fState);
    kelvo::HypothesisFit fit;
    FillStart(c.fFrame, point, fit);
    EXPECT_NEAR(fit.fPosition.X(), expected[0], 1e-12);
    EXPECT_NEAR(fit.fPosition.Y(), expected[1], 1e-12);
    EXPECT_NEAR(fit.fPosition.Z(), c.fZ, 1e-12);
    EXPECT_NEAR(fit.fDirection.X(), expected[2], 1e-12);
    EXPECT_NEAR(fit.fDirection.Y(), expected[3], 1e-12);

    double jacobian[6][4];
    for (int j = 0; j < 4; j++) {
      double up[4], down[4];
      std::copy(c.fState, c.fState + 4, up);
      std::copy(c.fState, c.fState + 4, down);
      up[j] += kStep;
      down[j] -= kStep;
      const auto high = Cross(c, up), low = Cross(c, down);
      for (std::size_t i = 0; i < 6; i++) jacobian[i][j] = (high[i] - low[i]) / (2 * kStep);
    }
    const auto covariance = [&](int i, int j) {
      double sum = 0;
      for (int v = 0; v < 2; v++) {
        const double ia = jacobian[i][2 * v], ib = jacobian[i][2 * v + 1];
        const double ja = jacobian[j][2 * v], jb = jacobian[j][2 * v + 1];
        sum += ia * varA[v] * ja + ib * varB[v] * jb + cov[v] * (ia * jb + ib * ja);
      }
      return sum;
    };
    std::size_t element = 0;
    for (int i = 0; i < 4; i++)
      for (int j = i; j < 4; j++)
        EXPECT_NEAR(fit.fCov[element++], covariance(i, j), kAccuracy) << i << ", " << j;

    for (int view = 0; view < 2; view++) {
      kelvo::TrackHit hit{static_cast<std::size_t>(view), c.fZ, 0, 2, 0, 0, 0, 2};
      kelvo::HitFit hitFit;
      FillHit(point, hit, hitFit);
      EXPECT_NEAR(hitFit.fFitU, expected[static_cast<std::size_t>(view)], 1e-12);
      EXPECT_NEAR(hitFit.fFitSigU, std::sqrt(covariance(view, view)), kAccuracy);
      EXPECT_NEAR(hitFit.fFitSlope, expected[static_cast<std::size_t>(view) + 4], 1e-12);
      EXPECT_NEAR(hitFit.fFitSigSlope, std::sqrt(covariance(view + 4, view + 4)), kAccuracy);
    }
  }
}

TEST(TrackPointTest, AHitIsMovedToWhereTheFitIsLinearInIt) {
  // Moving the line by little moves its crossing by as much as the moved hit's transverse position
  // says, and their uncertainties are in the same ratio.
  constexpr double kStep = 1e-4;
  std::mt19937_64 random(3);
  for (int k = 0; k < 100; k++) {
    const Case c = RandomCase(random);
    const LinePair line{c.fS,
                        {KinkPoint{c.fState[0], c.fState[1], 0, 0, 0},
                         KinkPoint{c.fState[2], c.fState[3], 0, 0, 0}}};
    for (std::size_t view : {0u, 1u}) {
      double moved[4];
      std::copy(c.fState, c.fState + 4, moved);
      moved[2 * view] += kStep;
      kelvo::TrackHit hit{view, c.fZ, Cross(c, moved)[view], 0.3, 0, 0, 0, 0};
      MoveToTrack(PointAtPlane(c.fFrame, line, c.fZ), hit);
      const double onLine =
          c.fState[2 * view] + (hit.fS - c.fS) * c.fState[2 * view + 1]; // of the line, unmoved
      EXPECT_NEAR(hit.fA - onLine, kStep, 1e-9);
      const double change = Cross(c, moved)[view] - Cross(c, c.fState)[view];
      EXPECT_NEAR(hit.fSigA / 0.3, kStep / change, 1e-6);
    }
  }
}

} // namespace
