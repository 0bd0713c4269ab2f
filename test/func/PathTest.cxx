// References: the plain integration of PlainPath.h, a fine Runge-Kutta integration in extended
// precision, closed forms for single steps, and the kinematics.

#include "func/Path.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "func/KelvoException.h"
#include "test/support/PlainPath.h"
#include "test/support/SameBits.h"
#include "test/support/TestGeometry.h"

using kelvo::KelvoException;
using kelvo::Path;

namespace {

constexpr double kMuon = 0.105658; // GeV
constexpr double kPion = 0.13957;
constexpr double kProton = 0.938272;
const double kNaN = std::numeric_limits<double>::quiet_NaN();

const std::map<std::string, plain::Table>& Tables() {
  static const auto tables = plain::ReadTables(KELVO_SOURCE_DIR "/func/dEdxTable.cxx");
  return tables;
}

template <class Call>
void ExpectThrow(Call call, unsigned int code, double value) {
  try {
    call();
    FAIL() << "nothing was thrown";
  } catch (const KelvoException& e) {
    EXPECT_STREQ(e.fFile, "func/Path");
    EXPECT_GT(e.fLine, 0u);
    EXPECT_EQ(e.fCode, code);
    EXPECT_TRUE(SameBits(e.fValue, value));
  }
}

Path StraightAlongZ(const geo::GeometryBase& geo, double z0, double z1, double s0 = 0) {
  const double p0[3] = {0, 0, z0};
  const double p1[3] = {0, 0, z1};
  return Path(geo, p0, p1, s0);
}

struct Params {
  double T = 0, p = 0, beta = 0, gamma = 0;
};

Params Muon(const Path& path, double s) {
  Params q{};
  path.MuonParams(s, &q.T, &q.p, &q.beta, &q.gamma);
  return q;
}

/// A detector of ten layers, in which all materials occur.
std::vector<LayeredGeometry::Layer> MixedLayers() {
  return {{5, "Scintillator"}, {0.2, "PVC"},  {2.5, "Steel"}, {0.05, "Glue"}, {25, "Scintillator"},
          {0, "Glue"},         {3, "Vacuum"}, {41, "PVC"},    {2.5, "Steel"}, {8, "Glue"}};
}

TEST(Path, EndsWithOnePercentOfTheMassLeft) {
  const LayeredGeometry geo({{100, "Scintillator"}});
  const Path path = StraightAlongZ(geo, 10, 90, 7);
  const double end = 7 + path.Length();
  const Params mu = Muon(path, end);
  EXPECT_NEAR(mu.T, 0.00105658, 1e-15);
  EXPECT_NEAR(mu.p, 0.0149796, 5e-8);
  EXPECT_NEAR(mu.beta, 0.140371, 5e-7);
  EXPECT_NEAR(mu.gamma, 1.01, 1e-12);
  double T = 0;
  path.PionParams(end, &T, nullptr, nullptr, nullptr);
  EXPECT_NEAR(T, 0.0013957, 1e-15);
  path.ProtonParams(end, &T, nullptr, nullptr, nullptr);
  EXPECT_NEAR(T, 0.00938272, 1e-15);
}

TEST(Path, CountsRadiationLengthsFromItsFirstPoint) {
  const LayeredGeometry geo({{10, "Steel"}, {20, "PVC"}});
  const Path path = StraightAlongZ(geo, 0, 30, -4);
  EXPECT_EQ(path.X0(-4), 0);
  EXPECT_NEAR(path.X0(6), 10 / 1.7584, 1e-12);
  EXPECT_NEAR(path.X0(16), 10 / 1.7584 + 10 / 16.517, 1e-12);
  EXPECT_NEAR(path.X0(26), 10 / 1.7584 + 20 / 16.517, 1e-12);
}

TEST(Path, NeedsMoreEnergyForMoreMaterialAndForMoreMass) {
  const LayeredGeometry geo(MixedLayers());
  double previous = 0;
  for (double z0 : {80., 60., 40., 20., 0.}) {
    const Path path = StraightAlongZ(geo, z0, 87);
    double T[3];
    path.MuonParams(0, &T[0], nullptr, nullptr, nullptr);
    path.PionParams(0, &T[1], nullptr, nullptr, nullptr);
    path.ProtonParams(0, &T[2], nullptr, nullptr, nullptr);
    EXPECT_GT(T[0], previous);
    EXPECT_GT(T[1], T[0]);
    EXPECT_GT(T[2], T[1]);
    previous = T[0];
  }
}

TEST(Path, IntegratesOnceAndAgainAfterAChange) {
  const LayeredGeometry geo(MixedLayers());
  Path path = StraightAlongZ(geo, 0, 50);
  EXPECT_EQ(geo.fCalls, 0);
  const double length = path.Length();
  EXPECT_EQ(path.Length(), length);
  path.X0(3);
  path.Dir(3);
  Muon(path, 3);
  EXPECT_EQ(geo.fCalls, 1);
  const double p1[3] = {0, 0, 60};
  path.SetPoint(1, p1);
  EXPECT_NEAR(path.Length(), 60, 1e-12);
  EXPECT_EQ(geo.fCalls, 2);
}

TEST(Path, MeasuresItsLengthInTheStepsOfTheGeometry) {
  class OneStep : public geo::GeometryBase {
  public:
    void MaterialsBetweenPoints(const double*, const double*, std::vector<double>& ds,
                                std::vector<const TGeoMaterial*>& mats) const override {
      EXPECT_TRUE(ds.empty() && mats.empty());
      ds.push_back(12.5);
      mats.push_back(&fSteel);
    }
    TGeoMaterial fSteel{"Steel", 55.845, 26, 7.87, -1.7584};
  } geo;
  const Path path(geo, {TVector3(0, 0, 0), TVector3(0, 0, 1), TVector3(0, 3, 1)}, 0);
  EXPECT_EQ(path.Length(), 25);
}

TEST(Path, AsksForTheLegsFromTheLastPointBackwards) {
  class Recorder : public geo::GeometryBase {
  public:
    void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>&,
                                std::vector<const TGeoMaterial*>&) const override {
      fSeen.push_back(p0[2]);
      fSeen.push_back(p1[2]);
    }
    mutable std::vector<double> fSeen;
  } geo;
  const Path path(geo, {TVector3(0, 0, 1), TVector3(0, 0, 2), TVector3(0, 0, 5)}, 0);
  path.Integrate();
  EXPECT_EQ(geo.fSeen, (std::vector<double>{5, 2, 2, 1}));
}

TEST(Path, DividesAStepIntoAPowerOfTwoOfSubSteps) {
  const LayeredGeometry geo({{1, "Steel"}});
  const Path path = StraightAlongZ(geo, 0, 1);
  const plain::Table& steel = Tables().at("Steel");
  // With one sub-step the result is one midpoint rule; each case says how many there are.
  const struct {
    double fLength;
    int fSteps;
  } cases[] = {{10, 1}, {10.5, 2}, {40, 4}, {40.01, 8}, {0.3, 1}};
  for (const auto& c : cases) {
    double T = 0.02;
    const double h = c.fLength / c.fSteps;
    for (int i = 0; i < c.fSteps; i++)
      T = T + h * plain::dEdx(steel, T + (h / 2) * plain::dEdx(steel, T, kMuon), kMuon);
    EXPECT_TRUE(SameBits(path.IntegrateT(c.fLength, "Steel", kMuon, 0.02), T)) << c.fLength;
  }
  EXPECT_EQ(path.IntegrateT(0, "Steel", kMuon, 0.02), 0.02);
}

/// The exact range-out: classical Runge-Kutta of fourth order in long double with sub-steps so
/// small that only the tables matter.
long double Exact(const plain::Table& table, double length, double m, double T0, int steps) {
  const auto f = [&](long double T) {
    const long double r = T / m;
    const long double x = (std::sqrt((2 + r) * r + 1) - 1) * 0.1056583568L;
    std::size_t i = 0;
    while (i + 2 < table.fT.size() && table.fT[i + 1] <= x) i++;
    const long double slope = std::log((long double)table.fdEdx[i + 1] / table.fdEdx[i]) /
                              std::log((long double)table.fT[i + 1] / table.fT[i]);
    return table.fdEdx[i] * std::pow(x / table.fT[i], slope) * 0.001L * table.fDensity;
  };
  long double T = T0;
  const long double h = (long double)length / steps;
  for (int i = 0; i < steps; i++) {
    const long double k1 = f(T);
    const long double k2 = f(T + h / 2 * k1);
    const long double k3 = f(T + h / 2 * k2);
    const long double k4 = f(T + h * k3);
    T += h / 6 * (k1 + 2 * k2 + 2 * k3 + k4);
  }
  return T;
}

TEST(Path, AgreesWithAFineIntegrationOfTheSameTables) {
  // Steps as thin as a detector's; the bound is the midpoint rule's error in the first steps, where
  // the particle is slowest.
  for (const char* name : {"Scintillator", "PVC", "Glue", "Steel"}) {
    const std::vector<LayeredGeometry::Layer> layers(800, {0.25, name});
    const LayeredGeometry geo(layers);
    const Path path = StraightAlongZ(geo, 0, 200);
    const double exact =
        static_cast<double>(Exact(Tables().at(name), 200, kMuon, 0.00105658, 80000));
    EXPECT_NEAR(Muon(path, 0).T / exact, 1, 1e-2) << name;
  }
}

TEST(Path, IsOfSecondOrderInTheStepLength) {
  const LayeredGeometry geo({{1, "Steel"}});
  const Path path = StraightAlongZ(geo, 0, 1);
  const double exact = static_cast<double>(Exact(Tables().at("Steel"), 80, kProton, 0.3, 200000));
  const auto error = [&](int steps) {
    double T = 0.3;
    for (int i = 0; i < steps; i++) T = path.IntegrateT(80. / steps, "Steel", kProton, T);
    return std::abs(T - exact);
  };
  // Halving the step divides the error by four, up to the kinks of the interpolated tables.
  for (int steps : {16, 32, 64}) EXPECT_NEAR(error(steps) / error(2 * steps), 4, 1.2) << steps;
}

TEST(Path, EqualsThePlainIntegrationOnRandomPaths) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> xy(-40, 40);
  std::uniform_real_distribution<double> z(-10, 100);
  std::uniform_int_distribution<int> points(2, 6);
  const LayeredGeometry geo(MixedLayers());
  for (int trial = 0; trial < 1000; trial++) {
    std::vector<TVector3> x(static_cast<std::size_t>(points(rng)));
    for (TVector3& point : x) point.SetXYZ(xy(rng), xy(rng), z(rng));
    const double s0 = xy(rng);
    const Path path(geo, x, s0);
    const plain::Path reference(geo, Tables(), x);
    ASSERT_TRUE(SameBits(path.Length(), reference.fS.back()));
    std::uniform_real_distribution<double> s(-0.001, 1);
    for (int query = 0; query < 30; query++) {
      // Sorted queries, then scattered ones: where a lookup starts must not matter.
      const double fraction = query < 15 ? query / 14. : s(rng);
      const double at = s0 + fraction * path.Length();
      ASSERT_TRUE(SameBits(path.X0(at), plain::Lookup(at - s0, reference.fS, reference.fX0)));
      double T[3];
      path.MuonParams(at, &T[0], nullptr, nullptr, nullptr);
      path.PionParams(at, &T[1], nullptr, nullptr, nullptr);
      path.ProtonParams(at, &T[2], nullptr, nullptr, nullptr);
      for (int h = 0; h < 3; h++)
        ASSERT_TRUE(SameBits(T[h], plain::Lookup(at - s0, reference.fS, reference.fT[h])));
    }
  }
}

TEST(Path, EqualsThePlainIntegrationOnRandomSteps) {
  std::mt19937 rng(12);
  std::uniform_real_distribution<double> lnT(std::log(1e-6), std::log(1e5));
  std::uniform_real_distribution<double> length(0, 60);
  std::uniform_real_distribution<double> mass(0.0005, 2);
  const char* names[] = {"Scintillator", "PVC", "Glue", "Steel", "Vacuum"};
  const LayeredGeometry geo({{1, "Steel"}});
  const Path path = StraightAlongZ(geo, 0, 1);
  for (int i = 0; i < 10000; i++) {
    const char* name = names[i % 5];
    const double T = std::exp(lnT(rng));
    const double ds = length(rng);
    const double m = mass(rng);
    ASSERT_TRUE(
        SameBits(path.IntegrateT(ds, name, m, T), plain::IntegrateT(Tables().at(name), ds, m, T)))
        << name << ' ' << T << ' ' << ds << ' ' << m;
  }
}

/// Energies at s under the three hypotheses.
std::vector<double> Energies(const Path& path, double s) {
  std::vector<double> T(3);
  path.MuonParams(s, &T[0], nullptr, nullptr, nullptr);
  path.PionParams(s, &T[1], nullptr, nullptr, nullptr);
  path.ProtonParams(s, &T[2], nullptr, nullptr, nullptr);
  return T;
}

TEST(Path, ServesManyThreadsOnceItIsIntegrated) {
  const LayeredGeometry geo(MixedLayers());
  const Path path = StraightAlongZ(geo, 0, 87);
  path.Integrate();
  // Up and down the path at the same time, so that each thread leaves the other a bad start.
  std::vector<double> up;
  std::vector<double> down;
  std::thread other([&] {
    for (int i = 87; i >= 0; --i) down.push_back(path.X0(i));
  });
  for (int i = 0; i <= 87; i++) up.push_back(path.X0(i));
  other.join();
  for (std::size_t i = 0; i <= 87; i++) {
    const Path fresh = StraightAlongZ(geo, 0, 87);
    const double expected = fresh.X0(static_cast<double>(i));
    ASSERT_TRUE(SameBits(up[i], expected)) << i;
    ASSERT_TRUE(SameBits(down[87 - i], expected)) << i;
  }
}

TEST(Path, CopiesWithItsTables) {
  const LayeredGeometry geo(MixedLayers());
  const Path path = StraightAlongZ(geo, 0, 87);
  const std::vector<double> T = Energies(path, 60);
  const int calls = geo.fCalls;
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is tested
  const Path copy = path;
  EXPECT_EQ(Energies(copy, 60), T);
  EXPECT_EQ(geo.fCalls, calls);
}

TEST(Path, TakesAnInfiniteStepInOne) {
  const LayeredGeometry geo({{1, "Steel"}});
  const double infinity = std::numeric_limits<double>::infinity();
  const double T = StraightAlongZ(geo, 0, 1).IntegrateT(infinity, "Steel", kMuon, 0.1);
  EXPECT_FALSE(std::isfinite(T));
}

TEST(Path, HasNoDirectionWithoutASecondPoint) {
  const LayeredGeometry geo({{10, "Steel"}});
  Path path(geo, 1, 0.);
  path.Length();
  const double p0[3] = {0, 0, 9};
  const double p1[3] = {0, 0, 2};
  double s = 0;
  double nx0 = 0;
  double T[3] = {0.1, 0.1, 0.1};
  path.IntegrateLeg(p0, p1, &s, &nx0, &T[0], &T[1], &T[2]);
  EXPECT_EQ(path.Dir(3), TVector3(0, 0, 1));
}

TEST(Path, AdvancesTheRunningTotalsOfALeg) {
  const LayeredGeometry geo({{10, "Steel"}});
  const Path path = StraightAlongZ(geo, 0, 10);
  const double p0[3] = {0, 0, 9};
  const double p1[3] = {0, 0, 2};
  double s = 1;
  double nx0 = 2;
  double T[3] = {0.1, 0.2, 0.3};
  path.IntegrateLeg(p0, p1, &s, &nx0, &T[0], &T[1], &T[2]);
  EXPECT_EQ(s, 8);
  EXPECT_NEAR(nx0, 2 + 7 / 1.7584, 1e-14);
  EXPECT_TRUE(SameBits(T[0], path.IntegrateT(7, "Steel", kMuon, 0.1)));
  EXPECT_TRUE(SameBits(T[1], path.IntegrateT(7, "Steel", kPion, 0.2)));
  EXPECT_TRUE(SameBits(T[2], path.IntegrateT(7, "Steel", kProton, 0.3)));
}

/// One layer whose radiation length the test chooses.
class OneMaterial : public geo::GeometryBase {
public:
  OneMaterial(const char* name, double radLength) : fMaterial(name, radLength) {}
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    ds.push_back(std::abs(p1[2] - p0[2]));
    mats.push_back(&fMaterial);
  }

private:
  struct Material : TGeoMaterial {
    Material(const char* name, double radLength)
        : TGeoMaterial(name, 12, 6, 1, -40, -80), fGiven(radLength) {
      geo::KeepFromManager(*this);
    }
    Double_t GetRadLen() const override { return fGiven; }
    double fGiven;
  } fMaterial;
};

// Three tables are looked for per step of an unknown material: four steps need twelve, of which the
// process reports ten and gives them vacuum. The last two, those of the pion and the proton in the
// step furthest upstream, are empty. In a process of its own, where no name was reported before.
TEST(Path, ReportsAnUnknownMaterialForEachStepAndHypothesis) {
  EXPECT_EXIT(
      {
        std::ostringstream caught;
        std::streambuf* const original = std::cerr.rdbuf(caught.rdbuf());
        const OneMaterial geo("Butter", 40);
        const Path path(geo,
                        {TVector3(0, 0, 0), TVector3(0, 0, 10), TVector3(0, 0, 20),
                         TVector3(0, 0, 30), TVector3(0, 0, 40)},
                        0);
        path.Integrate();
        std::cerr.rdbuf(original);
        std::string expected;
        for (int i = 0; i < 10; i++)
          expected += "func/dEdxTable:50 Have no table for material Butter Defaulting to Vacuum." +
                      std::string(i == 9 ? " Last warning.\n" : "\n");
        const std::vector<double> T0 = Energies(path, 0);
        const std::vector<double> T1 = Energies(path, 10);
        const std::vector<double> T2 = Energies(path, 20);
        const bool good = caught.str() == expected && T0[0] > T1[0] && T0[1] == T1[1] &&
                          T0[2] == T1[2] && T1[1] > T2[1] && T1[2] > T2[2];
        std::exit(good ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(Path, RefusesMaterialWithoutAPositiveRadiationLength) {
  for (double radLength : {0., -3.}) {
    const OneMaterial geo("Steel", radLength);
    Path path = StraightAlongZ(geo, 0, 5);
    for (int again = 0; again < 2; again++) {
      ExpectThrow([&] { path.Length(); }, kelvo::kBadRadLength, radLength);
      ExpectThrow([&] { path.X0(0); }, kelvo::kBadRadLength, radLength);
      ExpectThrow([&] { path.Dir(0); }, kelvo::kBadRadLength, radLength);
      ExpectThrow([&] { Muon(path, 0); }, kelvo::kBadRadLength, radLength);
    }
  }
  const OneMaterial notANumber("Steel", kNaN);
  EXPECT_TRUE(std::isnan(StraightAlongZ(notANumber, 0, 5).X0(1)));
}

TEST(Path, NeverRefusesVacuum) {
  for (double radLength : {0., -3., 7.}) {
    const OneMaterial geo("Vacuum", radLength);
    EXPECT_NEAR(StraightAlongZ(geo, 0, 5).X0(5) / (5 / 1e30), 1, 1e-14) << radLength;
  }
  const OneMaterial geo("vacuum", 0);
  ExpectThrow([&] { StraightAlongZ(geo, 0, 5).Length(); }, kelvo::kBadRadLength, 0);
}

TEST(Path, ThrowsWhereExtrapolationLeavesThePhysicalRange) {
  const LayeredGeometry geo({{400, "Steel"}});
  const Path path = StraightAlongZ(geo, 0, 300);
  double T = -1;
  path.MuonParams(300.3, &T, nullptr, nullptr, nullptr); // a little beyond the end: below 0
  EXPECT_EQ(T, 0);
  EXPECT_THROW(Muon(path, 400), KelvoException);
  EXPECT_THROW(path.X0(-10), KelvoException);
}

TEST(Path, InterpolatesExtrapolatesAndClamps) {
  const std::vector<double> xs{0, 1, 1, 3};
  const std::vector<double> ys{10, 12, 20, 30};
  EXPECT_EQ(Path::Interp(0.5, xs, ys), 11);
  EXPECT_EQ(Path::Interp(1, xs, ys), 20); // the interval that starts at 1, not the empty one
  EXPECT_EQ(Path::Interp(3, xs, ys), 30);
  EXPECT_EQ(Path::Interp(5, xs, ys), 40);
  EXPECT_EQ(Path::Interp(-2, xs, ys), 6);
  const std::vector<double> unit{0, 1};
  EXPECT_EQ(Path::Interp(-0.04, unit, unit), 0);
  EXPECT_EQ(Path::Interp(-0.0499999, unit, unit), 0);
  ExpectThrow([&] { Path::Interp(-0.05, unit, unit); }, kelvo::kBadKE, -0.05);
  ExpectThrow([&] { Path::Interp(-2, unit, unit); }, kelvo::kBadKE, -2);
  EXPECT_TRUE(std::isnan(Path::Interp(0.5, unit, {0, kNaN})));
}

TEST(Path, RefusesToInterpolateAtNaNAndInAShortTable) {
  const std::vector<double> unit{0, 1};
  ExpectThrow([&] { Path::Interp(kNaN, unit, unit); }, kelvo::kNaN, kNaN);
  ExpectThrow([&] { Path::Interp(1, {0}, {0}); }, kelvo::kIndexProblem, 0);
  ExpectThrow([&] { Path::Interp(1, {}, {}); }, kelvo::kIndexProblem, 0);
}

TEST(Path, HasNoQueriesWithoutASegmentOfMaterial) {
  class Nothing : public geo::GeometryBase {
    void MaterialsBetweenPoints(const double*, const double*, std::vector<double>&,
                                std::vector<const TGeoMaterial*>&) const override {}
  } nothing;
  const LayeredGeometry layers({{1, "Steel"}});
  Path paths[] = {Path(layers, 0, 0.), Path(layers, 1, 0.), Path(nothing, 2, 0.)};
  for (Path& path : paths) {
    EXPECT_EQ(path.Length(), 0);
    EXPECT_EQ(path.Dir(0), TVector3(0, 0, 1));
    ExpectThrow([&] { path.X0(0); }, kelvo::kIndexProblem, 0);
    ExpectThrow([&] { path.MuonParams(0, nullptr, nullptr, nullptr, nullptr); },
                kelvo::kIndexProblem, 0);
    ExpectThrow([&] { path.PionParams(0, nullptr, nullptr, nullptr, nullptr); },
                kelvo::kIndexProblem, 0);
    ExpectThrow([&] { path.ProtonParams(0, nullptr, nullptr, nullptr, nullptr); },
                kelvo::kIndexProblem, 0);
  }
}

TEST(Path, GivesKinematicsInClosedForm) {
  double T = 0, p = 0, beta = 0, gamma = 0;
  Path::TPBG(3, 1, &T, &p, &beta, &gamma);
  EXPECT_EQ(T, 3);
  EXPECT_NEAR(p, std::sqrt(15.), 1e-15);
  EXPECT_NEAR(beta, std::sqrt(15.) / 4, 1e-15);
  EXPECT_EQ(gamma, 4);
  Path::TPBG(-5e-6, 1, &T, &p, &beta, &gamma);
  EXPECT_EQ(T, 0);
  EXPECT_EQ(p, 0);
  EXPECT_EQ(beta, 0);
  EXPECT_EQ(gamma, 1);
  ExpectThrow([] { Path::TPBG(-1e-5, 1, nullptr, nullptr, nullptr, nullptr); }, kelvo::kBadKE,
              -1e-5);
  ExpectThrow([] { Path::TPBG(-2, 1, nullptr, nullptr, nullptr, nullptr); }, kelvo::kBadKE, -2);
  Path::TPBG(1, 1, nullptr, nullptr, nullptr, nullptr);
}

TEST(Path, PointsAlongItsLegs) {
  const LayeredGeometry geo({{100, "Scintillator"}});
  Path path(geo, {TVector3(0, 0, 0), TVector3(0, 0, 10), TVector3(0, 3, 14)}, 2);
  EXPECT_EQ(path.Dir(2), TVector3(0, 0, 1));
  EXPECT_EQ(path.Dir(12), TVector3(0, 0, 1)); // both ends belong to an interval: the first wins
  const TVector3 second = path.Dir(13);
  EXPECT_NEAR(second.Y(), 0.6, 1e-15);
  EXPECT_NEAR(second.Z(), 0.8, 1e-15);
  EXPECT_EQ(path.Dir(1.9), TVector3(0, 0, 1));
  EXPECT_EQ(path.Dir(17.1), TVector3(0, 0, 1));
  EXPECT_EQ(path.Dir(kNaN), TVector3(0, 0, 1));
}

TEST(Path, TakesTheLastLegWhereThereAreMoreStepsThanLegs) {
  const LayeredGeometry geo({{1, "Steel"}, {1, "PVC"}, {1, "Glue"}});
  Path path(geo, {TVector3(0, 0, 0), TVector3(3, 0, 3)}, 0);
  const TVector3 direction = path.Dir(path.Length());
  EXPECT_NEAR(direction.X(), std::sqrt(0.5), 1e-15);
  EXPECT_NEAR(direction.Z(), std::sqrt(0.5), 1e-15);
}

TEST(Path, HasNoDirectionOnALegWithoutLength) {
  const LayeredGeometry geo({{10, "Steel"}});
  Path path(geo, {TVector3(0, 0, 1), TVector3(0, 0, 1), TVector3(0, 0, 4)}, 0);
  ExpectThrow([&] { path.Dir(1); }, kelvo::kTrackingFailure, 0);
  EXPECT_EQ(path.Scrub(1e-6), 1u);
  EXPECT_EQ(path.Dir(1), TVector3(0, 0, 1));
}

TEST(Path, ScrubsPointsByTheirSquaredDistance) {
  const LayeredGeometry geo({{10, "Steel"}});
  Path crowded(geo, {TVector3(0, 0, 0), TVector3(0, 0, 0.5), TVector3(0, 0, 3)}, 0);
  EXPECT_TRUE(crowded.ScrubOne(1));
  EXPECT_FALSE(crowded.ScrubOne(1));
  EXPECT_NEAR(crowded.Length(), 3, 1e-15);
  Path spaced(geo, {TVector3(0, 0, 0), TVector3(0, 0, 2), TVector3(0, 0, 3)}, 0);
  EXPECT_FALSE(spaced.ScrubOne(1));
  Path last(geo, {TVector3(0, 0, 0), TVector3(0, 0, 2), TVector3(0, 0, 2.5)}, 0);
  EXPECT_EQ(last.Scrub(1), 1u);
  EXPECT_NEAR(last.Length(), 2, 1e-15);
  Path together(geo, 4, 0);
  EXPECT_EQ(together.Scrub(1), 2u);
  Path none(geo, 4, 0);
  EXPECT_EQ(none.Scrub(0), 0u);
  EXPECT_EQ(none.Scrub(-1), 0u);
}

TEST(Path, ScrubbingMakesTheNextQueryIntegrateAgain) {
  const LayeredGeometry geo({{10, "Steel"}});
  Path path(geo, {TVector3(0, 0, 0), TVector3(0, 0, 0.1), TVector3(0, 0, 3)}, 0);
  path.Length();
  const int calls = geo.fCalls;
  path.Scrub(1);
  path.Length();
  EXPECT_EQ(geo.fCalls, calls + 1);
}

} // namespace
