// References: thickness in closed form for uniform material, published widths, and the placement as
// one plain program that integrates and looks up for itself.
#include "func/ScatteringSurfaces.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "func/KelvoException.h"
#include "func/Path.h"
#include "geo/OwnMaterial.h"
#include "test/support/SameBits.h"
#include "test/support/SurfacesReference.h"

namespace {

using kelvo::KelvoException;
using kelvo::Path;
using kelvo::ScatteringSurfaces;
using reference::Slabs;
using Positions = std::vector<double>;

constexpr double kNoLimit = 1e30;
constexpr double kRadLength = 25; // of the uniform material [cm]

const geo::Own<> gPlastic("Scintillator", 11.2, 5.6, 1.0, -kRadLength, -70);
const geo::Own<> gSteel("Steel", 55.8, 26, 7.9, -1.76, -17);
const geo::Own<> gVacuum("Vacuum", 0, 0, 0);

class NoRadLength : public TGeoMaterial {
public:
  NoRadLength() : TGeoMaterial("Glue", 12, 6, 1.0, -40, -80) { geo::KeepFromManager(*this); }
  double GetRadLen() const override { return 0; }
};
const NoRadLength gBroken;

const Slabs gUniform({{1e9, &gPlastic}});
const double kStart[] = {0, 0, 0};
const double kEnd[] = {0, 0, 100};

Path Uniform() {
  return Path(gUniform, kStart, kEnd, 0);
}

ScatteringSurfaces Made(const ScatteringSurfaces& empty, const Positions& s,
                        const geo::GeometryBase& geometry = gUniform) {
  ScatteringSurfaces made = empty;
  made.MakeSurfaces(geometry, kStart, kEnd, s);
  return made;
}

void ExpectPositions(const ScatteringSurfaces& surfaces, const Positions& expected) {
  ASSERT_EQ(surfaces.N(), expected.size());
  for (unsigned j = 0; j < surfaces.N(); j++) EXPECT_DOUBLE_EQ(surfaces.S(j), expected[j]);
}

template <class F>
KelvoException Thrown(F f) {
  try {
    f();
  } catch (const KelvoException& e) {
    return e;
  }
  ADD_FAILURE() << "nothing thrown";
  return {"", 0, 0, 0};
}

// ---- placement ----

TEST(ScatteringSurfaces, BeginsWithoutSurfaces) {
  EXPECT_EQ(ScatteringSurfaces(13, 1, 1, 1).N(), 0u);
  EXPECT_EQ(ScatteringSurfaces(11, -1, -1, -1).N(), 0u); // nothing is checked here
}

TEST(ScatteringSurfaces, WideLimitsGiveOneSurfaceForTheWholeTrack) {
  const ScatteringSurfaces all = Made({13, kNoLimit, kNoLimit, kNoLimit}, {0, 11, 17, 35, 60});
  ExpectPositions(all, {30});
  double p = 0, beta = 0;
  Uniform().MuonParams(30, nullptr, &p, &beta, nullptr);
  EXPECT_DOUBLE_EQ(all.SigAlpha(0), ScatteringSurfaces::Width(60 / kRadLength, beta, p));
}

TEST(ScatteringSurfaces, ALengthLimitOfZeroMakesEachIntervalAStep) {
  ExpectPositions(Made({13, 0, kNoLimit, kNoLimit}, {0, 10, 14, 30, 31}), {5, 12, 22, 30.5});
}

TEST(ScatteringSurfaces, EachOfTheLimitsAloneCutsTheTrack) {
  const Positions s{0, 10, 20, 30, 40};
  ExpectPositions(Made({13, 25, kNoLimit, kNoLimit}, s), {10, 30});
  ExpectPositions(Made({13, kNoLimit, 25 / kRadLength, kNoLimit}, s), {10, 30});
  const Path path = Uniform();
  double dT2 = 0, dT3 = 0;
  const ScatteringSurfaces query(13, 0, 0, 0);
  query.GetStepData(path, s, 0, 2, nullptr, nullptr, nullptr, nullptr, &dT2);
  query.GetStepData(path, s, 0, 3, nullptr, nullptr, nullptr, nullptr, &dT3);
  ASSERT_GT(dT3, dT2);
  EXPECT_EQ(ScatteringSurfaces(13, kNoLimit, kNoLimit, dT2).MakeStep(path, s, 0), 2u); // strict
  EXPECT_EQ(ScatteringSurfaces(13, kNoLimit, kNoLimit, std::nextafter(dT2, 0)).MakeStep(path, s, 0),
            1u);
}

TEST(ScatteringSurfaces, ALengthOfExactlyTheLimitIsWithinIt) {
  ExpectPositions(Made({13, 20, kNoLimit, kNoLimit}, {0, 10, 20, 30, 40}), {10, 30});
  ExpectPositions(Made({13, std::nextafter(20.0, 0.0), kNoLimit, kNoLimit}, {0, 10, 20, 30, 40}),
                  {5, 15, 30});
}

TEST(ScatteringSurfaces, TheLastPositionIsTakenWithoutATest) {
  // Spans of two intervals are admitted, of three not: yet one step covers all three.
  ExpectPositions(Made({13, 25, kNoLimit, kNoLimit}, {0, 10, 20, 30}), {15});
  ExpectPositions(Made({13, 25, kNoLimit, kNoLimit}, {0, 10, 20, 90}), {45});
}

TEST(ScatteringSurfaces, AStepCoversAtLeastOneInterval) {
  ExpectPositions(Made({13, 5, kNoLimit, kNoLimit}, {0, 10, 12}), {5, 11});
}

TEST(ScatteringSurfaces, StepsOfZeroLengthMakeNoSurface) {
  ExpectPositions(Made({13, 0, kNoLimit, kNoLimit}, {0, 10, 10, 20}), {5, 15});
  ScatteringSurfaces none(13, kNoLimit, kNoLimit, kNoLimit);
  none.MakeSteps(Uniform(), {10, 10, 10});
  EXPECT_EQ(none.N(), 0u);
}

TEST(ScatteringSurfaces, EqualPositionsGiveOneSurfaceOfMinimumWidth) {
  const ScatteringSurfaces equal = Made({13, 5, 5, 5}, {10, 10, 10});
  ExpectPositions(equal, {10});
  EXPECT_EQ(equal.SigAlpha(0), 1e-6);
}

TEST(ScatteringSurfaces, ASinglePositionGivesOneSurfaceOfMinimumWidth) {
  const ScatteringSurfaces single = Made({211, 5, 5, 5}, {7});
  ExpectPositions(single, {7});
  EXPECT_EQ(single.SigAlpha(0), 1e-6);
}

TEST(ScatteringSurfaces, AnEmptyListIsRefusedBeforeAnythingIsTouched) {
  ScatteringSurfaces surfaces = Made({13, 0, 0, 0}, {0, 10, 20});
  for (int which = 0; which < 2; which++) {
    const KelvoException e = Thrown([&] {
      which ? surfaces.ForceOnePlane(Uniform(), {})
            : surfaces.MakeSurfaces(gUniform, kStart, kEnd, {});
    });
    EXPECT_STREQ(e.fFile, "func/ScatteringSurfaces");
    EXPECT_EQ(e.fCode, kelvo::kIndexProblem);
    EXPECT_EQ(e.fValue, 0);
    ExpectPositions(surfaces, {5, 15});
  }
  // Not even the hypothesis, which would end the process.
  ScatteringSurfaces electron(11, 0, 0, 0);
  EXPECT_THROW(electron.MakeSurfaces(gUniform, kStart, kEnd, {}), KelvoException);
}

TEST(ScatteringSurfaces, MakeStepsOfFewerThanTwoPositionsAddsNothing) {
  ScatteringSurfaces surfaces(13, 0, 0, 0);
  surfaces.MakeSteps(Uniform(), {});
  surfaces.MakeSteps(Uniform(), {5});
  EXPECT_EQ(surfaces.N(), 0u);
}

TEST(ScatteringSurfaces, MakeSurfacesStartsAfreshAndTheOthersAppend) {
  ScatteringSurfaces surfaces(13, 0, kNoLimit, kNoLimit);
  surfaces.MakeSurfaces(gUniform, kStart, kEnd, {0, 10, 20});
  surfaces.MakeSteps(Uniform(), {0, 30});
  surfaces.ForceOnePlane(Uniform(), {0, 10, 50});
  ExpectPositions(surfaces, {5, 15, 15, 25});
  surfaces.MakeSurfaces(gUniform, kStart, kEnd, {0, 2});
  ExpectPositions(surfaces, {1});
}

TEST(ScatteringSurfaces, ForceOnePlaneStandsForTheWholeSpanWhateverTheLimits) {
  const Path path = Uniform();
  for (const int pdg : {13, 211, 2212}) {
    ScatteringSurfaces forced(pdg, 0, 0, 0);
    forced.ForceOnePlane(path, {10, 20, 30, 60});
    ExpectPositions(forced, {35});
    EXPECT_TRUE(
        SameBits(forced.SigAlpha(0),
                 reference::StepBetween(reference::Integrate(gUniform, kStart, kEnd), pdg, 10, 60)
                     .sigAlpha));
  }
}

TEST(ScatteringSurfaces, PositionsKeepTheCallersCoordinate) {
  const ScatteringSurfaces here = Made({13, 25, kNoLimit, kNoLimit}, {0, 10, 20, 30, 40});
  const ScatteringSurfaces there =
      Made({13, 25, kNoLimit, kNoLimit}, {1024, 1034, 1044, 1054, 1064});
  ExpectPositions(there, {1034, 1054});
  for (unsigned j = 0; j < 2; j++) EXPECT_NEAR(there.SigAlpha(j) / here.SigAlpha(j), 1, 1e-12);
}

TEST(ScatteringSurfaces, GoodStepIsTheStrictTestOfAllThreeLimits) {
  const ScatteringSurfaces s(13, 1, 2, 3);
  EXPECT_TRUE(s.GoodStep(1, 2, 3));
  EXPECT_FALSE(s.GoodStep(std::nextafter(1.0, 2.0), 2, 3));
  EXPECT_FALSE(s.GoodStep(1, std::nextafter(2.0, 3.0), 3));
  EXPECT_FALSE(s.GoodStep(1, 2, std::nextafter(3.0, 4.0)));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(s.GoodStep(nan, nan, nan));
  EXPECT_FALSE(s.GoodStep(nan, 2.5, nan));
}

TEST(ScatteringSurfaces, AllOutputsOfAStepMayBeNull) {
  const Path path = Uniform();
  const Positions s{0, 10, 30};
  const ScatteringSurfaces surfaces(13, 0, 0, 0);
  const reference::Step plain =
      reference::StepBetween(reference::Integrate(gUniform, kStart, kEnd), 13, 0, 30);
  const double expected[] = {plain.ds, plain.sMid, plain.dX0, plain.sigAlpha, plain.dT};
  for (int only = 0; only < 5; only++) {
    double value = -99;
    double* out[5] = {};
    out[only] = &value;
    surfaces.GetStepData(path, s, 0, 2, out[0], out[1], out[2], out[3], out[4]);
    EXPECT_TRUE(SameBits(value, expected[only])) << only;
  }
  surfaces.GetStepData(path, s, 0, 2, nullptr, nullptr, nullptr, nullptr, nullptr);
}

// ---- widths ----

TEST(ScatteringWidth, IsTheKnownFormulaAboveTheMinimumThickness) {
  // One radiation length, p = 1 GeV/c at the velocity of light: 13.6 mrad / sqrt(3).
  EXPECT_NEAR(ScatteringSurfaces::Width(1, 1, 1), 0.0136 / std::sqrt(3.0), 1e-18);
  // The logarithm at 1/e^10 radiation lengths: 1 - 0.38.
  EXPECT_NEAR(ScatteringSurfaces::Width(std::exp(-10.0), 0.5, 2),
              0.0136 / std::sqrt(3.0) * std::exp(-5.0) * 0.62, 1e-15);
}

TEST(ScatteringWidth, FallsWithMomentumAndVelocityAndGrowsWithThickness) {
  double before = 0;
  for (double x = 2e-6; x < 100; x *= 1.5) {
    const double width = ScatteringSurfaces::Width(x, 0.9, 1);
    EXPECT_GT(width, before);
    EXPECT_NEAR(ScatteringSurfaces::Width(x, 0.9, 2), width / 2, 1e-15 * width);
    EXPECT_NEAR(ScatteringSurfaces::Width(x, 0.45, 1), width * 2, 1e-15 * width);
    before = width;
  }
}

TEST(ScatteringWidth, IsTheMinimumWidthUpToTheMinimumThickness) {
  for (const double x : {-3.0, 0.0, 1e-9, 1e-6, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(ScatteringSurfaces::Width(x, 1e-6, 1e-5), 1e-6);
  const double above = std::nextafter(1e-6, 1.0);
  const double formula =
      std::sqrt(above) * (0.0136 / std::sqrt(3.0)) * (1 + 0.038 * std::log(above));
  EXPECT_NEAR(ScatteringSurfaces::Width(above, 1, 1), formula, 1e-20);
  EXPECT_NE(ScatteringSurfaces::Width(above, 1, 1), 1e-6);
}

TEST(ScatteringWidth, ANegativeOneIsReportedAndReturned) {
  testing::internal::CaptureStdout();
  const double width = ScatteringSurfaces::Width(1, 0.5, -0.25);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n beta: 0.5\n    p: -0.25\n   dx: 1\n");
  EXPECT_NEAR(width, -8 * 0.0136 / std::sqrt(3.0), 1e-16);
}

TEST(ScatteringWidth, OfAnyValidTrackIsPositiveAndSilent) {
  testing::internal::CaptureStdout();
  const ScatteringSurfaces s = Made({2212, 0, 0, 0}, {0, 1e-5, 1e-4, 1e-3, 1, 50, 99.99999, 100});
  for (unsigned j = 0; j < s.N(); j++) EXPECT_GT(s.SigAlpha(j), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ScatteringWidth, VacuumScattersAtTheMinimumWidth) {
  const Slabs gap({{40, &gPlastic}, {60, &gVacuum}, {1e9, &gPlastic}});
  const ScatteringSurfaces s = Made({13, 0, kNoLimit, kNoLimit}, {0, 42, 58, 100}, gap);
  EXPECT_EQ(s.SigAlpha(1), 1e-6);
  EXPECT_GT(s.SigAlpha(0), 1e-3);
}

TEST(ScatteringSurfaces, TheSignOfTheHypothesisDoesNotMatter) {
  for (const int pdg : {13, 211, 2212}) {
    const Positions s{0, 10, 25, 45, 70};
    const ScatteringSurfaces plus = Made({pdg, 22, kNoLimit, kNoLimit}, s);
    const ScatteringSurfaces minus = Made({-pdg, 22, kNoLimit, kNoLimit}, s);
    ASSERT_EQ(plus.N(), minus.N());
    for (unsigned j = 0; j < plus.N(); j++) EXPECT_EQ(plus.SigAlpha(j), minus.SigAlpha(j));
  }
}

TEST(ScatteringSurfaces, TheHypothesesDiffer) {
  // Of the same range, a heavier particle has more momentum: it scatters less.
  const Positions s{0, 60};
  const double mu = Made({13, 1, 1, 1}, s).SigAlpha(0), pi = Made({211, 1, 1, 1}, s).SigAlpha(0),
               p = Made({2212, 1, 1, 1}, s).SigAlpha(0);
  EXPECT_GT(mu, pi);
  EXPECT_GT(pi, p);
}

TEST(ScatteringSurfaces, EqualsThePlainProgramBitForBit) {
  std::mt19937 random(41);
  std::uniform_real_distribution<double> unit(0, 1);
  const TGeoMaterial* materials[] = {&gPlastic, &gSteel, &gVacuum};
  const int codes[] = {13, 211, 2212};
  unsigned total = 0;
  for (int round = 0; round < 4000; round++) {
    std::vector<reference::Slab> slabs;
    double z = 0;
    for (std::size_t k = 0, n = 1 + random() % 6; k < n; k++)
      slabs.push_back({z += 20 * unit(random), materials[random() % 3]});
    const Slabs geometry(slabs);
    const double p0[] = {unit(random), unit(random), unit(random)};
    const double p1[] = {30 * unit(random), 30 * unit(random), 20 + 60 * unit(random)};
    const double length = std::hypot(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]);
    const double s0 = 100 * unit(random) - 50;
    Positions s{s0};
    for (std::size_t k = 0, n = random() % 20; k < n; k++) s.push_back(s0 + length * unit(random));
    if (random() % 2 && s.size() > 1) s.back() = s[random() % s.size()];
    std::sort(s.begin(), s.end());
    const double limits[] = {round % 2 ? kNoLimit : 40 * unit(random),
                             round % 3 ? kNoLimit : 2 * unit(random),
                             round % 5 ? kNoLimit : unit(random)};
    const int pdg = codes[random() % 3];
    ScatteringSurfaces made(pdg, limits[0], limits[1], limits[2]);
    made.MakeSurfaces(geometry, p0, p1, s);
    Positions where, width;
    reference::Surfaces(geometry, p0, p1, pdg, limits[0], limits[1], limits[2], s, where, width);
    ASSERT_EQ(made.N(), where.size()) << "round " << round;
    total += made.N();
    for (unsigned j = 0; j < made.N(); j++) {
      ASSERT_TRUE(SameBits(made.S(j), where[j])) << "round " << round;
      ASSERT_TRUE(SameBits(made.SigAlpha(j), width[j])) << "round " << round;
    }
  }
  EXPECT_GT(total, 10000u);
}

// ---- limits of momentum and velocity, failures ----

KelvoException Checked(double beta, double p) {
  return Thrown([&] { ScatteringSurfaces::CheckLimits(&beta, &p); });
}

TEST(CheckLimits, RaisesSmallMomentaAndRefusesTheRest) {
  for (const double p : {0.0, -0.0, 9.9e-6, -9.9e-6}) {
    double value = p, beta = 1;
    ScatteringSurfaces::CheckLimits(&beta, &value);
    EXPECT_EQ(value, 1e-5) << p;
    EXPECT_EQ(beta, 1);
  }
  for (const double p : {1e-5, -1e-5, -0.3}) {
    const KelvoException e = Checked(1, p);
    EXPECT_STREQ(e.fFile, "func/ScatteringSurfaces");
    EXPECT_EQ(e.fLine, 90u);
    EXPECT_EQ(e.fCode, kelvo::kBadP);
    EXPECT_EQ(e.fValue, p);
  }
  double p = std::nextafter(1e-5, 1.0), beta = 1;
  const double kept = p;
  ScatteringSurfaces::CheckLimits(&beta, &p);
  EXPECT_EQ(p, kept);
}

TEST(CheckLimits, RaisesSmallVelocitiesAndRefusesNegativeOnes) {
  for (const double beta : {0.0, -0.0, 9.9e-7, -9.9e-7, 1e-6}) {
    double value = beta, p = 1;
    ScatteringSurfaces::CheckLimits(&value, &p);
    EXPECT_EQ(value, 1e-6) << beta;
    EXPECT_EQ(p, 1);
  }
  for (const double beta : {-1e-6, -0.5}) {
    const KelvoException e = Checked(beta, 1);
    EXPECT_STREQ(e.fFile, "func/ScatteringSurfaces");
    EXPECT_EQ(e.fLine, 95u);
    EXPECT_EQ(e.fCode, kelvo::kBadP);
    EXPECT_EQ(e.fValue, beta);
  }
}

TEST(CheckLimits, LooksAtTheMomentumFirst) {
  EXPECT_EQ(Checked(-1, -2).fLine, 90u);
  EXPECT_EQ(Checked(-1, -2).fValue, -2);
  double beta = -1, p = 0; // the momentum is raised before the velocity throws
  EXPECT_THROW(ScatteringSurfaces::CheckLimits(&beta, &p), KelvoException);
  EXPECT_EQ(p, 1e-5);
}

TEST(CheckLimits, LetsNaNThroughAndSkipsNull) {
  double nan = std::numeric_limits<double>::quiet_NaN(), other = nan;
  ScatteringSurfaces::CheckLimits(&nan, &other);
  EXPECT_TRUE(std::isnan(nan) && std::isnan(other));
  double one = 0;
  ScatteringSurfaces::CheckLimits(nullptr, &one);
  EXPECT_EQ(one, 1e-5);
  one = 0;
  ScatteringSurfaces::CheckLimits(&one, nullptr);
  EXPECT_EQ(one, 1e-6);
  ScatteringSurfaces::CheckLimits(nullptr, nullptr);
}

TEST(ScatteringSurfaces, AParticleAtRestScattersAtTheMinimumMomentumAndVelocity) {
  // Beyond the end the energy is extrapolated below zero and read as zero.
  const Path path = Uniform();
  double p = -1, beta = -1;
  path.MuonParams(103, nullptr, &p, &beta, nullptr);
  ASSERT_EQ(p, 0);
  ASSERT_EQ(beta, 0);
  double dX0 = 0, sigAlpha = 0;
  ScatteringSurfaces(13, 1, 1, 1)
      .GetStepData(path, {102, 104}, 0, 1, nullptr, nullptr, &dX0, &sigAlpha, nullptr);
  EXPECT_TRUE(SameBits(sigAlpha, ScatteringSurfaces::Width(dX0, 1e-6, 1e-5)));
  EXPECT_GT(sigAlpha, 1e7);
}

TEST(ScatteringSurfaces, WhatThePathThrowsPassesThroughAndThePartialListStays) {
  const Slabs broken({{1e9, &gBroken}});
  ScatteringSurfaces former = Made({13, 0, 0, 0}, {0, 10, 20});
  const KelvoException noLength = Thrown([&] {
    former.MakeSurfaces(broken, kStart, kEnd, {0, 10});
  });
  EXPECT_EQ(noLength.fCode, kelvo::kBadRadLength);
  EXPECT_EQ(former.N(), 0u); // the former track's list is gone
  // The last position lies so far beyond the end that the energy cannot be extrapolated.
  ScatteringSurfaces s(13, 0, kNoLimit, kNoLimit);
  const KelvoException e = Thrown([&] {
    s.MakeSurfaces(gUniform, kStart, kEnd, {0, 10, 30, 1000});
  });
  EXPECT_EQ(e.fCode, kelvo::kBadKE);
  EXPECT_STREQ(e.fFile, "func/Path");
  ExpectPositions(s, {5, 20});
}

/// What the process has written to the standard output arrives unbuffered where the death test
/// reads, so that nothing is lost in the abort.
void ShowStandardOutput() {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  setvbuf(stdout, nullptr, _IONBF, 0);
}

std::string Farewell(const std::string& pdg) {
  return "\n\n\nERROR: Kelvo is unable to fit under the assumption PDG = " + pdg +
         ".  Aborting...\n\n\n";
}

TEST(ScatteringSurfacesDeath, EndsTheProcessForAnUnknownHypothesis) {
  const auto make = [](int pdg, const Positions& s) {
    ShowStandardOutput();
    ScatteringSurfaces(pdg, 1, 1, 1).MakeSurfaces(gUniform, kStart, kEnd, s);
  };
  const auto aborted = testing::KilledBySignal(SIGABRT);
  EXPECT_EXIT(make(11, {0, 10, 20}), aborted, testing::Eq(Farewell("11")));
  EXPECT_EXIT(make(-11, {0, 10, 20}), aborted, testing::Eq(Farewell("11")));
  EXPECT_EXIT(make(0, {0, 10}), aborted, testing::Eq(Farewell("0")));
  EXPECT_EXIT(make(22, {5}), aborted, testing::Eq(Farewell("22")));
  EXPECT_EXIT(make(std::numeric_limits<int>::min(), {5, 5}), aborted,
              testing::Eq(Farewell("2147483648")));
}

TEST(ScatteringSurfacesDeath, EveryStepAsksForTheHypothesis) {
  const auto aborted = testing::KilledBySignal(SIGABRT);
  const Positions s{0, 10, 20};
  ScatteringSurfaces electron(11, 1, 1, 1);
  EXPECT_EXIT((ShowStandardOutput(), electron.ForceOnePlane(Uniform(), s)), aborted,
              testing::Eq(Farewell("11")));
  EXPECT_EXIT((ShowStandardOutput(), electron.MakeStep(Uniform(), s, 0)), aborted,
              testing::Eq(Farewell("11")));
  EXPECT_EXIT((ShowStandardOutput(), electron.GetStepData(Uniform(), s, 0, 1, nullptr, nullptr,
                                                          nullptr, nullptr, nullptr)),
              aborted, testing::Eq(Farewell("11")));
  // Up to the last position nothing is calculated.
  EXPECT_EQ(electron.MakeStep(Uniform(), s, 1), 2u);
}

} // namespace
