// The material along a track against sums by hand: what scatters like it, how much of it a shifted
// way crosses, and where half of an energy loss is spent.

#include "track/MaterialAlong.h"

#include "geo/PlaneDetector.h"
#include "test/support/TestGeometry.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using kelvo::DetectorMaterials;
using kelvo::Gap;
using kelvo::MaterialAlong;
using kelvo::WayPoint;

constexpr double kRounding = 1e-9;
constexpr double kScintillator = 51.447, kSteel = 1.7584; // cm, radiation lengths

MaterialAlong Along(const geo::GeometryBase& detector) {
  return MaterialAlong(DetectorMaterials(detector, {13}, true));
}

WayPoint At(double z, double x = 0) {
  return {{x, 0, z}, {0, 0}};
}

/// Integrals over the thickness of a stack of layers from its start, by small steps.
struct Moments {
  double f[4] = {};
  explicit Moments(const std::vector<std::pair<double, double>>& layers) { // thickness, rad. length
    constexpr int kSteps = 20000;
    double z = 0;
    for (const auto& [thickness, radLen] : layers)
      for (int i = 0; i < kSteps; i++) {
        const double middle = z + thickness / kSteps / 2;
        for (int k = 0; k < 4; k++) f[k] += thickness / kSteps / radLen * std::pow(middle, k);
        z += thickness / kSteps;
      }
  }
};

void ExpectMoments(const Gap& gap, const Moments& moments) {
  ASSERT_EQ(gap.fNPlanes, 2u);
  for (int k = 0; k < 4; k++) {
    double sum = 0;
    for (const kelvo::ThinPlane& plane : gap.fPlane)
      sum += plane.fRadLen * std::pow(plane.fZ - gap.fBegin, k);
    EXPECT_NEAR(sum / moments.f[k], 1, 1e-6) << "moment " << k;
  }
  for (const kelvo::ThinPlane& plane : gap.fPlane) {
    EXPECT_GE(plane.fZ, gap.fBegin);
    EXPECT_LE(plane.fZ, gap.fEnd);
    EXPECT_GT(plane.fRadLen, 0);
  }
}

TEST(MaterialAlong, AUniformGapIsTwoPlanesAt21And79Percent) {
  const LayeredGeometry block({{100, "Scintillator"}});
  MaterialAlong along = Along(block);
  along.Trace({At(10), At(20), At(26)});
  ASSERT_EQ(along.Gaps().size(), 2u);
  const Gap& gap = along.Gaps()[0];
  EXPECT_NEAR(gap.fPlane[0].fZ, 15 - 10 * std::sqrt(1. / 12), kRounding);
  EXPECT_NEAR(gap.fPlane[1].fZ, 15 + 10 * std::sqrt(1. / 12), kRounding);
  for (const kelvo::ThinPlane& plane : gap.fPlane)
    EXPECT_NEAR(plane.fRadLen, 5 / kScintillator, kRounding);
  ExpectMoments(gap, Moments({{10, kScintillator}}));
}

TEST(MaterialAlong, TwoPlanesHaveTheMomentsOfAnyStack) {
  const LayeredGeometry stack(
      {{10, "Vacuum"}, {0.5, "Scintillator"}, {2, "Steel"}, {3, "Vacuum"}, {4, "Scintillator"}});
  MaterialAlong along = Along(stack);
  along.Trace({At(10), At(19.5)});
  ExpectMoments(along.Gaps()[0],
                Moments({{0.5, kScintillator}, {2, kSteel}, {3, 1e30}, {4, kScintillator}}));
}

TEST(MaterialAlong, AFilmIsOnePlaneAndVacuumNone) {
  const LayeredGeometry stack({{10, "Vacuum"}, {1e-5, "Steel"}, {20, "Vacuum"}});
  MaterialAlong along = Along(stack);
  along.Trace({At(8), At(13), At(15)});
  ASSERT_EQ(along.Gaps()[0].fNPlanes, 1u);
  EXPECT_NEAR(along.Gaps()[0].fPlane[0].fZ, 10, 1e-4);
  EXPECT_NEAR(along.Gaps()[0].fPlane[0].fRadLen, 1e-5 / kSteel, kRounding);
  EXPECT_EQ(along.Gaps()[1].fNPlanes, 0u);
}

TEST(MaterialAlong, ThicknessesAreAlongZWhateverTheSlope) {
  const LayeredGeometry stack({{10, "Steel"}, {10, "Scintillator"}});
  MaterialAlong along = Along(stack);
  along.Trace({At(1, 0), At(14, 26)});
  const Gap& gap = along.Gaps()[0];
  EXPECT_NEAR(gap.fRadLen, 9 / kSteel + 4 / kScintillator, kRounding);
  ASSERT_EQ(gap.fN, 2u);
  EXPECT_NEAR(along.Layers(gap)[0].fThickness, 9, kRounding);
  EXPECT_NEAR(along.Layers(gap)[1].fThickness, 4, kRounding);
  EXPECT_NEAR(gap.fVarMipLoss, 0, 1e-15);
}

/// Steel where x is above 0, scintillator elsewhere.
struct TwoHalves : geo::GeometryBase {
  LayeredGeometry fSteel{{{1000, "Steel"}}}, fScintillator{{{1000, "Scintillator"}}};
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    (p0[0] + p1[0] > 0 ? fSteel : fScintillator).MaterialsBetweenPoints(p0, p1, ds, mats);
  }
};

TEST(MaterialAlong, AWallIsAveragedOverTheUncertaintyOfItsPlace) {
  // Half of the ways on each side; a uniform distribution of width sqrt(12) sigma around 0.5 has
  // 0.5 + 0.5 / sqrt(12) of it above 0.
  const TwoHalves halves;
  MaterialAlong along = Along(halves);
  std::vector<WayPoint> points;
  for (int i = 0; i <= 400; i++) points.push_back({{0.5, 0, 10. + i}, {1, 1}});
  along.Trace(points);
  double steel = 0, all = 0, variance = 0;
  for (const Gap& gap : along.Gaps()) {
    variance += gap.fVarMipLoss;
    for (std::size_t k = 0; k < gap.fN; k++) {
      const kelvo::Layer& layer = along.Layers(gap)[k];
      all += layer.fThickness;
      if (along.Materials()[layer.fMaterial].fRadLen > 0.1) steel += layer.fThickness;
    }
  }
  EXPECT_NEAR(all, 400, 1e-6);
  EXPECT_NEAR(steel / all, 0.5 + 0.5 / std::sqrt(12.), 0.01);
  EXPECT_GT(variance, 0);
}

TEST(MaterialAlong, TheEndLiesWhereAFractionOfTheEnergyLossIsSpent) {
  const LayeredGeometry stack({{12, "Scintillator"}, {1, "Vacuum"}, {2, "Steel"}, {3, "Vacuum"}});
  MaterialAlong along = Along(stack);
  along.Trace({At(8), At(10)});
  along.TraceEnd(At(10), {0, 0}, 8, 0.5);
  const Gap& gap = along.Gaps()[0];
  const double perScintillator = gap.fMipLoss / 2;
  const double steel = along.EndMipLoss() - 2 * perScintillator;
  EXPECT_GT(steel, 10 * perScintillator);
  const double depth = (along.EndMipLoss() / 2 - 2 * perScintillator) / (steel / 2);
  EXPECT_NEAR(along.End().fEnd, 13 + depth, 1e-6);
  EXPECT_NEAR(along.End().fMipLoss, along.EndMipLoss() / 2, kRounding);
  const double part = std::sqrt(MaterialAlong::kEndVariance);
  const auto place = [&](double loss) {
    return loss < 2 * perScintillator ? 10 + loss / perScintillator
                                      : 13 + (loss - 2 * perScintillator) / (steel / 2);
  };
  const double begin = place((0.5 - part) * along.EndMipLoss());
  const double end = place((0.5 + part) * along.EndMipLoss());
  EXPECT_NEAR(along.EndSigma(), (end - begin) / 2, 1e-6);
}

TEST(MaterialAlong, InVacuumTheEndIsAFractionOfTheWay) {
  const LayeredGeometry stack({{12, "Scintillator"}, {30, "Vacuum"}});
  MaterialAlong along = Along(stack);
  along.Trace({At(8), At(12)});
  along.TraceEnd(At(12), {0, 0}, 8, 0.25);
  EXPECT_NEAR(along.End().fEnd, 14, kRounding);
  EXPECT_NEAR(along.EndSigma(), 8 * std::sqrt(MaterialAlong::kEndVariance), kRounding);
}

/// A detector of planes that is asked for one line after the other.
struct LineByLine : geo::GeometryBase {
  const geo::PlaneDetector& fPlanes;
  explicit LineByLine(const geo::PlaneDetector& planes) : fPlanes(planes) {}
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    fPlanes.MaterialsBetweenPoints(p0, p1, ds, mats);
  }
};

/// Points in all planes of a detector, around a straight line.
std::vector<WayPoint> Through(const geo::PlaneDetector& detector, const double (&from)[2],
                              const double (&slope)[2], double sig) {
  std::vector<WayPoint> points;
  for (const geo::ActivePlane& plane : detector.Planes()) {
    if (points.size() == 20) break;
    const double z = plane.ZMid();
    points.push_back({{from[0] + slope[0] * z, from[1] + slope[1] * z, z}, {sig, sig}});
  }
  return points;
}

/// @param cells whether walls divide the detector: where along z a line crosses them, and whether
/// it
///              meets a front wall between cells, only the one knows that follows it by itself
void ExpectSameMaterial(MaterialAlong& a, MaterialAlong& b, bool cells) {
  const double kGap = cells ? 0.03 : kRounding, kTrack = cells ? 2e-3 : kRounding;
  const double kPlaces = cells ? 0.06 : kRounding; // of a gap
  Gap sumA{}, sumB{};
  ASSERT_EQ(a.Gaps().size(), b.Gaps().size());
  for (std::size_t i = 0; i < a.Gaps().size(); i++) {
    const Gap &f = a.Gaps()[i], &g = b.Gaps()[i];
    EXPECT_NEAR(f.fRadLen, g.fRadLen, kGap * g.fRadLen);
    EXPECT_NEAR(f.fMipLoss, g.fMipLoss, kGap / 5 * g.fMipLoss);
    EXPECT_NEAR(std::sqrt(f.fVarMipLoss), std::sqrt(g.fVarMipLoss), kGap / 5 * g.fMipLoss);
    ASSERT_EQ(f.fNPlanes, g.fNPlanes);
    for (std::size_t k = 0; k < f.fNPlanes; k++) {
      EXPECT_NEAR(f.fPlane[k].fZ, g.fPlane[k].fZ, kPlaces * (g.fEnd - g.fBegin));
      EXPECT_NEAR(f.fPlane[k].fRadLen / g.fPlane[k].fRadLen, 1, 5 * kPlaces);
    }
    for (const auto& [sum, gap] : {std::pair{&sumA, &f}, std::pair{&sumB, &g}}) {
      sum->fRadLen += gap->fRadLen;
      sum->fMipLoss += gap->fMipLoss;
      sum->fXi += gap->fXi;
      sum->fVarMipLoss += gap->fVarMipLoss;
    }
  }
  EXPECT_NEAR(sumA.fRadLen, sumB.fRadLen, kTrack * sumB.fRadLen);
  EXPECT_NEAR(sumA.fMipLoss, sumB.fMipLoss, kTrack / 4 * sumB.fMipLoss);
  EXPECT_NEAR(sumA.fXi, sumB.fXi, kTrack / 4 * sumB.fXi);
  EXPECT_NEAR(std::sqrt(sumA.fVarMipLoss), std::sqrt(sumB.fVarMipLoss),
              10 * kTrack * std::sqrt(sumB.fVarMipLoss));
  EXPECT_NEAR(a.End().fEnd, b.End().fEnd, cells ? 0.05 : kRounding);
  EXPECT_NEAR(a.End().fMipLoss, b.End().fMipLoss, kGap * b.End().fMipLoss);
}

TEST(MaterialAlong, LinesSideBySideCrossWhatTheyCrossOneByOne) {
  for (const char* name : {"fine", "range", "telescope"}) {
    const auto detector =
        geo::PlaneDetector::FromFile(std::string(KELVO_SOURCE_DIR "/detectors/") + name + ".toml");
    const LineByLine plain(detector);
    MaterialAlong lanes = Along(detector), lines = Along(plain);
    const bool cells = std::string(name) == "fine";
    for (double slope : {0., 1e-7, 0.03, -0.4, 1.7})
      for (double sig : {0.001, 0.4, 1.2}) {
        SCOPED_TRACE(testing::Message() << name << ", slope " << slope << ", sigma " << sig);
        const auto points = Through(detector, {0.3, -0.9}, {slope, -slope / 2}, sig);
        for (MaterialAlong* along : {&lanes, &lines}) {
          along->Trace(points);
          along->TraceEnd(points.back(), {slope, -slope / 2}, 5, 0.5);
        }
        ExpectSameMaterial(lanes, lines, cells);
      }
  }
}

} // namespace
