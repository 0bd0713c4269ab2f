// References: frames worked out by hand, orthonormality in long double, and the transformations as
// plain programs over arrays.
#include "func/TrackBasis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "func/KelvoException.h"
#include "test/support/Allocations.h"
#include "test/support/HitsReference.h"
#include "test/support/SameBits.h"
#include "util/LinFitTS.h"

namespace {

using kelvo::TrackBasis;
using Numbers = std::vector<double>;

struct Hits {
  Numbers x, y, z, dx, dy, dz;

  void Add(double X, double Y, double Z, double dX = 1, double dY = 1, double dZ = 1) {
    x.push_back(X);
    y.push_back(Y);
    z.push_back(Z);
    dx.push_back(dX);
    dy.push_back(dY);
    dz.push_back(dZ);
  }
};

void Make(TrackBasis& basis, const Hits& h, double ox = 0, double oy = 0, double oz = 0) {
  basis.MakeBasis(h.x, h.y, h.z, h.dx, h.dy, h.dz, ox, oy, oz);
}

TVector3 Axis(const Hits& h) {
  TVector3 axis;
  TrackBasis::FindAxis(h.x, h.y, h.z, h.dx, h.dy, h.dz, axis);
  return axis;
}

/// Hits every 10 cm along (sx, sy, 1) through the origin.
Hits Straight(double sx, double sy, int first = 0, int last = 9) {
  Hits h;
  for (int i = first; i <= last; i++) h.Add(10 * sx * i, 10 * sy * i, 10 * i);
  return h;
}

void ExpectAxes(const TrackBasis& b, const TVector3& x, const TVector3& y, const TVector3& z) {
  EXPECT_EQ(b.XAxis(), x);
  EXPECT_EQ(b.YAxis(), y);
  EXPECT_EQ(b.ZAxis(), z);
}

struct Point {
  double v[6];
};

Point ToTrk(const TrackBasis& b, const Point& p) {
  Point q{};
  b.DetToTrk(p.v[0], p.v[1], p.v[2], p.v[3], p.v[4], p.v[5], q.v, q.v + 1, q.v + 2, q.v + 3,
             q.v + 4, q.v + 5);
  return q;
}

Point ToDet(const TrackBasis& b, const Point& p) {
  Point q{};
  b.TrkToDet(p.v[0], p.v[1], p.v[2], p.v[3], p.v[4], p.v[5], q.v, q.v + 1, q.v + 2, q.v + 3,
             q.v + 4, q.v + 5);
  return q;
}

/// Rows of the rotation, read through the transformation back: it multiplies by 1 and adds zeros.
void ReadRotation(const TrackBasis& basis, double r[3][3]) {
  TrackBasis unshifted = basis;
  unshifted.SetOrigin(0, 0, 0);
  for (int i = 0; i < 3; i++) {
    Point unit{};
    unit.v[i] = 1;
    const Point back = ToDet(unshifted, unit);
    for (int j = 0; j < 3; j++) r[i][j] = back.v[j];
  }
}

TEST(TrackBasis, BeginsWithZeroVectorsAndTheIdentity) {
  const TrackBasis b;
  EXPECT_EQ(b.Origin(), TVector3(0, 0, 0));
  ExpectAxes(b, {0, 0, 0}, {0, 0, 0}, {0, 0, 0});
  const Point p{{1, -2, 3, 0.5, 0.25, 0.125}};
  for (int i = 0; i < 6; i++) {
    EXPECT_EQ(ToTrk(b, p).v[i], p.v[i]);
    EXPECT_EQ(ToDet(b, p).v[i], p.v[i]);
  }
}

TEST(TrackBasis, ATrackAlongZHasTheAxesOfTheDetector) {
  Hits h;
  for (int i = 0; i < 8; i++) h.Add(3.7, -1.3, 10 + i, 0.5, 0.7, 0.3);
  TrackBasis b;
  Make(b, h, 3, -1, 2);
  ExpectAxes(b, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
  EXPECT_EQ(b.Origin(), TVector3(3, -1, 2));
  const Point q = ToTrk(b, {{3.7, -1.3, 14, 0.5, 0.7, 0.3}});
  const double expected[] = {3.7 - 3, -1.3 + 1, 12, 0.5, 0.7, 0.3};
  for (int i = 0; i < 6; i++) EXPECT_EQ(q.v[i], expected[i]);
}

TEST(TrackBasis, AnOriginBehindTheHitsTurnsTheFrame) {
  Hits h;
  for (int i = 0; i < 8; i++) h.Add(3.7, -1.3, 10 + i);
  TrackBasis b;
  Make(b, h, 0, 0, 100);
  ExpectAxes(b, {1, 0, 0}, {0, -1, 0}, {0, 0, -1});
  const Point q = ToTrk(b, {{1, 2, 90, 1, 2, 3}});
  const double expected[] = {1, -2, 10, 1, 2, 3};
  for (int i = 0; i < 6; i++) EXPECT_EQ(q.v[i], expected[i]);
  const Point p = ToDet(b, q);
  EXPECT_EQ(p.v[0], 1);
  EXPECT_EQ(p.v[1], 2);
  EXPECT_EQ(p.v[2], 90);
}

TEST(TrackBasis, AMeanOfExactlyZeroLeavesTheFrame) {
  Hits h;
  h.Add(0, 0, -5);
  h.Add(0, 0, 5);
  TrackBasis b;
  Make(b, h);
  ExpectAxes(b, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
  Make(b, h, 0, 0, 1e-9);
  ExpectAxes(b, {1, 0, 0}, {0, -1, 0}, {0, 0, -1});
}

TEST(TrackBasis, WithoutHitsTheFrameIsTheDetectors) {
  TrackBasis b;
  Make(b, {}, 1, 2, 3);
  ExpectAxes(b, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
  b.AdjustBasisDir({}, {}, {}, {}, {}, {});
  ExpectAxes(b, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
}

TEST(TrackBasis, TheDetectorAxisMostAcrossTheTrackMakesTheTransverseAxis) {
  TrackBasis b;
  // y least along the track: x axis from y cross w.
  Make(b, Straight(0.5, 0.25));
  EXPECT_EQ(b.XAxis().Y(), 0);
  EXPECT_GT(b.XAxis().X(), 0);
  // x least: y axis from x cross w, which points down.
  Make(b, Straight(0.25, 0.5));
  EXPECT_EQ(b.YAxis().X(), 0);
  EXPECT_LT(b.YAxis().Y(), 0);
  // z least: x axis from z cross w.
  Make(b, Straight(2, 1.5));
  EXPECT_EQ(b.XAxis().Z(), 0);
  EXPECT_LT(b.XAxis().X(), 0);
  EXPECT_GT(b.XAxis().Y(), 0);
}

TEST(TrackBasis, OnATieYGoesBeforeXBeforeZ) {
  TrackBasis b;
  // All three equal, and x equal to y: the y product.
  for (const double s : {0.5, 1.0}) {
    Make(b, Straight(s, s));
    EXPECT_EQ(b.XAxis().Y(), 0) << s;
  }
  // y equal to z, both most across: the y product.
  Make(b, Straight(2, 1));
  ASSERT_EQ(b.ZAxis().Y(), b.ZAxis().Z());
  EXPECT_EQ(b.XAxis().Y(), 0);
  EXPECT_GT(b.XAxis().X(), 0);
  // x equal to z, both most across: the x product.
  Make(b, Straight(1, 2));
  ASSERT_EQ(b.ZAxis().X(), b.ZAxis().Z());
  EXPECT_EQ(b.YAxis().X(), 0);
}

void ExpectOrthonormal(const TrackBasis& b) {
  const TVector3 axes[] = {b.XAxis(), b.YAxis(), b.ZAxis()};
  const auto dot = [](const TVector3& a, const TVector3& c) {
    return static_cast<long double>(a.X()) * c.X() + static_cast<long double>(a.Y()) * c.Y() +
           static_cast<long double>(a.Z()) * c.Z();
  };
  for (int i = 0; i < 3; i++)
    for (int j = 0; j <= i; j++)
      ASSERT_LT(std::fabs(static_cast<double>(dot(axes[i], axes[j]) - (i == j))), 1e-15)
          << i << ' ' << j << " for slopes " << axes[2].X() / axes[2].Z() << ", "
          << axes[2].Y() / axes[2].Z();
  ASSERT_LT((axes[0].Cross(axes[1]) - axes[2]).Mag(), 2e-15);
}

TEST(TrackBasis, IsOrthonormalAndRightHandedForEveryDirection) {
  std::mt19937 random(52);
  std::normal_distribution<double> normal;
  TrackBasis b;
  for (int i = 0; i < 100000; i++) {
    double d[] = {normal(random), normal(random), normal(random)};
    if (i % 10 == 1) d[i % 3] *= 1e-9;                // near a coordinate plane
    if (i % 10 == 2) d[0] = d[1] = 1e-7 * d[0];       // near the pole along z
    if (i % 10 == 3) d[2] *= 1e-7;                    // far from it
    if (i % 10 == 4) d[1] = d[0];                     // ties
    if (i % 10 == 5) d[1] = d[2];                     //
    if (i % 10 == 6) d[0] = -d[2];                    //
    if (i % 10 == 7) d[0] = d[1] = d[2];              //
    if (i % 10 == 8) d[(i / 10) % 2] = 0;             //
    if (i % 10 == 9 && i % 100 == 9) d[0] = d[1] = 0; // the pole
    Hits h;
    for (const double t : {1.0, 2.0}) h.Add(t * d[0], t * d[1], t * d[2]);
    Make(b, h);
    ExpectOrthonormal(b);
    if (HasFatalFailure()) return;
    // The track runs away from the origin, along d.
    const TVector3 along = TVector3(d[0], d[1], d[2]).Unit();
    ASSERT_NEAR(b.ZAxis().Dot(along), 1, 1e-7);
  }
}

TEST(TrackBasis, AShallowDirectionGoesByTheSlopesOfTheTwoViews) {
  const TVector3 axis = Axis(Straight(0.75, 0));
  EXPECT_NEAR(axis.X(), 0.6, 1e-15);
  EXPECT_EQ(axis.Y(), 0);
  EXPECT_NEAR(axis.Z(), 0.8, 1e-15);
}

TEST(TrackBasis, FindsTheAxisWithTheVariancesOfAMixedRule) {
  std::mt19937 random(53);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int round = 0; round < 1000; round++) {
    Hits h;
    Numbers wx, wy;
    for (int i = 0; i < 12; i++) {
      h.Add(10 * unit(random), 10 * unit(random), 100 * unit(random), unit(random), unit(random),
            unit(random));
      wx.push_back(h.dx.back() * h.dx.back() + h.dz.back() + h.dz.back());
      wy.push_back(h.dy.back() * h.dy.back() + h.dz.back() + h.dz.back());
    }
    double mx = 0, my = 0, c = 0;
    util::LinFitTS(h.z, h.x, wx, mx, c, 2);
    util::LinFitTS(h.z, h.y, wy, my, c, 2);
    const double length = std::sqrt(mx * mx + my * my + 1);
    const TVector3 axis = Axis(h);
    ASSERT_TRUE(SameBits(axis.X(), mx / length));
    ASSERT_TRUE(SameBits(axis.Y(), my / length));
    ASSERT_TRUE(SameBits(axis.Z(), 1 / length));
  }
}

TEST(TrackBasis, ThrowsForVectorsOfUnequalLengthAndLeavesTheAxis) {
  const Hits good = Straight(0.1, 0.2);
  for (Numbers Hits::*member : {&Hits::x, &Hits::y, &Hits::dx, &Hits::dy, &Hits::dz})
    for (const bool longer : {false, true}) {
      Hits bad = good;
      longer ? (bad.*member).push_back(1) : (bad.*member).pop_back();
      TVector3 axis(7, 8, 9);
      try {
        TrackBasis::FindAxis(bad.x, bad.y, bad.z, bad.dx, bad.dy, bad.dz, axis);
        FAIL() << "nothing thrown";
      } catch (const kelvo::KelvoException& e) {
        EXPECT_STREQ(e.fFile, "func/TrackBasis");
        EXPECT_EQ(e.fCode, kelvo::kIndexProblem);
        EXPECT_EQ(e.fValue, 0);
      }
      EXPECT_EQ(axis, TVector3(7, 8, 9));
    }
}

TEST(TrackBasis, AFailureLeavesTheNewOriginAndTheOldAxes) {
  TrackBasis b;
  Make(b, Straight(0.3, 0.4), 1, 2, 3);
  const TVector3 x = b.XAxis(), y = b.YAxis(), z = b.ZAxis();
  double before[3][3], after[3][3];
  ReadRotation(b, before);
  Hits bad = Straight(-0.7, 0.1);
  bad.dy.pop_back();
  EXPECT_THROW(Make(b, bad, 4, 5, 6), kelvo::KelvoException);
  EXPECT_EQ(b.Origin(), TVector3(4, 5, 6));
  ExpectAxes(b, x, y, z);
  ReadRotation(b, after);
  for (int i = 0; i < 3; i++)
    for (int j = 0; j < 3; j++) EXPECT_TRUE(SameBits(after[i][j], before[i][j]));
}

TEST(TrackBasis, ReadsZUncertaintiesBelowTheFloorAsTheFloor) {
  // Two hits on either side of the origin at -1 and 1.5. With equal weights the mean is positive;
  // the nearer one, when it weighs twice as much or more, makes it negative.
  const auto turned = [](double sigmaBehind, double sigmaAhead) {
    Hits h;
    h.Add(0, 0, -1, 1, 1, sigmaBehind);
    h.Add(0, 0, 1.5, 1, 1, sigmaAhead);
    TrackBasis b;
    Make(b, h);
    return b.ZAxis().Z() < 0;
  };
  EXPECT_FALSE(turned(0.1, 0.1));
  EXPECT_FALSE(turned(0.05, 0.1));
  EXPECT_FALSE(turned(0.001, 0.05));
  EXPECT_FALSE(turned(0.05, 0.12));
  EXPECT_TRUE(turned(0.05, 0.125)); // (0.125 / 0.1)^2 = 1.5625 is above 1.5
  EXPECT_TRUE(turned(0.1, 0.125));
  EXPECT_FALSE(turned(0.11, 0.125)); // (0.125 / 0.11)^2 is below 1.5
  EXPECT_TRUE(turned(0.2, 0.25));
  EXPECT_FALSE(turned(0.2, 0.24));
}

TEST(TrackBasis, SetOriginMovesTheOriginAlone) {
  TrackBasis b;
  Make(b, Straight(0.3, 0.4));
  const TVector3 x = b.XAxis(), y = b.YAxis(), z = b.ZAxis();
  b.SetOrigin(1, 2, 3000); // the hits are now behind, and the frame stays
  EXPECT_EQ(b.Origin(), TVector3(1, 2, 3000));
  ExpectAxes(b, x, y, z);
  for (int i = 0; i < 3; i++) EXPECT_EQ(ToTrk(b, {{1, 2, 3000, 0, 0, 0}}).v[i], 0);
}

TEST(TrackBasis, ACopyIsABasisOfItsOwn) {
  TrackBasis b;
  Make(b, Straight(0.3, 0.4));
  TrackBasis copy = b;
  b.SetOrigin(100, 100, 100);
  EXPECT_EQ(copy.Origin(), TVector3(0, 0, 0));
  ExpectAxes(copy, b.XAxis(), b.YAxis(), b.ZAxis());
  copy = b;
  EXPECT_EQ(copy.Origin(), TVector3(100, 100, 100));
}

TEST(TrackBasis, HitsOfTheTrackLieOnTheThirdAxis) {
  const Hits h = Straight(0.3, -0.8, 1, 9);
  TrackBasis b;
  Make(b, h);
  for (std::size_t i = 0; i < h.x.size(); i++) {
    const Point q = ToTrk(b, {{h.x[i], h.y[i], h.z[i], 0, 0, 0}});
    EXPECT_NEAR(q.v[0], 0, 1e-12);
    EXPECT_NEAR(q.v[1], 0, 1e-12);
    EXPECT_NEAR(q.v[2], std::hypot(h.x[i], h.y[i], h.z[i]), 1e-12);
  }
}

TEST(TrackBasis, SkipsNullOutputs) {
  TrackBasis b;
  Make(b, Straight(0.3, 0.4), 1, 2, 3);
  const Point p{{4, 5, 6, 0.1, 0.2, 0.3}};
  const Point trk = ToTrk(b, p), det = ToDet(b, p);
  for (int only = 0; only < 6; only++) {
    double value = -99;
    double* out[6] = {};
    out[only] = &value;
    b.DetToTrk(4, 5, 6, 0.1, 0.2, 0.3, out[0], out[1], out[2], out[3], out[4], out[5]);
    EXPECT_EQ(value, trk.v[only]);
    b.TrkToDet(4, 5, 6, 0.1, 0.2, 0.3, out[0], out[1], out[2], out[3], out[4], out[5]);
    EXPECT_EQ(value, det.v[only]);
  }
  b.DetToTrk(4, 5, 6, 0.1, 0.2, 0.3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  b.TrkToDet(4, 5, 6, 0.1, 0.2, 0.3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(TrackBasis, ThereAndBackIsWhereItBegan) {
  std::mt19937 random(54);
  std::uniform_real_distribution<double> place(-500, 500), slope(-3, 3);
  TrackBasis b;
  for (int i = 0; i < 2000; i++) {
    Make(b, Straight(slope(random), slope(random)), place(random), place(random), place(random));
    const Point p{{place(random), place(random), place(random), 0, 0, 0}};
    const Point q = ToDet(b, ToTrk(b, p));
    for (int j = 0; j < 3; j++) ASSERT_NEAR(q.v[j], p.v[j], 2e-12);
  }
}

TEST(TrackBasis, TransformsAsThePlainProgramBitForBit) {
  std::mt19937 random(55);
  std::uniform_real_distribution<double> place(-500, 500), sigma(0, 4), slope(-3, 3);
  TrackBasis b;
  for (int i = 0; i < 5000; i++) {
    const double o[] = {place(random), place(random), place(random)};
    Make(b, Straight(slope(random), slope(random)), o[0], o[1], o[2]);
    double r[3][3];
    for (int k = 0; k < 3; k++) {
      const TVector3 axis[] = {b.XAxis(), b.YAxis(), b.ZAxis()};
      r[k][0] = axis[k].X();
      r[k][1] = axis[k].Y();
      r[k][2] = axis[k].Z();
    }
    const Point p{
        {place(random), place(random), place(random), sigma(random), sigma(random), sigma(random)}};
    const Point trk = ToTrk(b, p), det = ToDet(b, p);
    const double shifted[] = {p.v[0] - o[0], p.v[1] - o[1], p.v[2] - o[2]};
    for (int k = 0; k < 3; k++) {
      double value = 0, uncertainty = 0;
      reference::Rotate(r[k], shifted, p.v + 3, &value, &uncertainty);
      ASSERT_TRUE(SameBits(trk.v[k], value));
      ASSERT_TRUE(SameBits(trk.v[k + 3], uncertainty));
      const double column[] = {r[0][k], r[1][k], r[2][k]};
      reference::Rotate(column, p.v, p.v + 3, &value, &uncertainty);
      ASSERT_TRUE(SameBits(det.v[k], value + o[k]));
      ASSERT_TRUE(SameBits(det.v[k + 3], uncertainty));
    }
  }
}

TEST(TrackBasis, BuildsTheFrameOfThePlainProgramBitForBit) {
  std::mt19937 random(56);
  std::uniform_real_distribution<double> place(-500, 500), sigma(0, 4), slope(-3, 3), noise(-1, 1);
  for (int i = 0; i < 5000; i++) {
    Hits h = Straight(slope(random), slope(random), -5, 6);
    for (std::size_t k = 0; k < h.x.size(); k++) {
      h.x[k] += noise(random);
      h.y[k] += noise(random);
      h.dx[k] = sigma(random);
      h.dy[k] = sigma(random);
      h.dz[k] = i % 2 ? 0.05 * sigma(random) : sigma(random);
    }
    const double o[] = {0.2 * place(random), 0.2 * place(random), 0.2 * place(random)};
    const TVector3 axis = Axis(h);
    const double w[] = {axis.X(), axis.Y(), axis.Z()};
    double f[3][3];
    reference::Frame(w, o, h.x, h.y, h.z, h.dx, h.dy, h.dz, f);
    TrackBasis b;
    Make(b, h, o[0], o[1], o[2]);
    const TVector3 axes[] = {b.XAxis(), b.YAxis(), b.ZAxis()};
    for (int k = 0; k < 3; k++)
      for (int l = 0; l < 3; l++) ASSERT_EQ(axes[k](l), f[k][l]) << "case " << i << ' ' << k << l;
  }
}

TEST(TrackBasis, TransformationsAllocateNothingAndTheAxisOneVector) {
  const Hits h = Straight(0.3, 0.4);
  TrackBasis b;
  Make(b, h);
  std::size_t before = bench::AllocationCount();
  const Point there = ToTrk(b, {{1, 2, 3, 4, 5, 6}});
  const Point back = ToDet(b, there);
  EXPECT_EQ(bench::AllocationCount(), before);
  EXPECT_NEAR(back.v[0], 1, 1e-14);
  before = bench::AllocationCount();
  Make(b, h);
  EXPECT_EQ(bench::AllocationCount(), before + 1);
}

TEST(TrackBasis, NaNGoesThrough) {
  Hits h = Straight(0.3, 0.4);
  h.x[3] = std::numeric_limits<double>::quiet_NaN();
  TrackBasis b;
  Make(b, h);
  EXPECT_TRUE(std::isnan(b.ZAxis().X()));
}

} // namespace
