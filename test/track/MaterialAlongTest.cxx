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

void ExpectSameMaterial(MaterialAlong& a, MaterialAlong& b) {
  ASSERT_EQ(a.Gaps().size(), b.Gaps().size());
  for (std::size_t i = 0; i < a.Gaps().size(); i++) {
    const Gap &f = a.Gaps()[i], &g = b.Gaps()[i];
    EXPECT_NEAR(f.fRadLen, g.fRadLen, kRounding * g.fRadLen);
    EXPECT_NEAR(f.fMipLoss, g.fMipLoss, kRounding * g.fMipLoss);
    EXPECT_NEAR(f.fXi, g.fXi, kRounding * g.fXi);
    EXPECT_NEAR(std::sqrt(f.fVarMipLoss), std::sqrt(g.fVarMipLoss), kRounding * g.fMipLoss);
    ASSERT_EQ(f.fNPlanes, g.fNPlanes);
    for (std::size_t k = 0; k < f.fNPlanes; k++) {
      EXPECT_NEAR(f.fPlane[k].fZ, g.fPlane[k].fZ, kRounding * (g.fEnd - g.fBegin));
      EXPECT_NEAR(f.fPlane[k].fRadLen / g.fPlane[k].fRadLen, 1, kRounding);
    }
  }
  EXPECT_NEAR(a.End().fEnd, b.End().fEnd, kRounding);
  EXPECT_NEAR(a.End().fMipLoss, b.End().fMipLoss, kRounding * b.End().fMipLoss);
  EXPECT_NEAR(a.EndMipLoss(), b.EndMipLoss(), kRounding * b.EndMipLoss());
  EXPECT_NEAR(a.EndSigma(), b.EndSigma(), kRounding * b.EndSigma());
}

TEST(MaterialAlong, WithoutWallsTheMeanIsWhatEachLineCrosses) {
  for (const char* name : {"range", "telescope"}) {
    const auto detector =
        geo::PlaneDetector::FromFile(std::string(KELVO_SOURCE_DIR "/detectors/") + name + ".toml");
    const LineByLine plain(detector);
    MaterialAlong mean = Along(detector), lines = Along(plain);
    for (double slope : {0., 1e-7, 0.03, -0.4, 1.7})
      for (double sig : {0.001, 0.4, 1.2}) {
        SCOPED_TRACE(testing::Message() << name << ", slope " << slope << ", sigma " << sig);
        const auto points = Through(detector, {0.3, -0.9}, {slope, -slope / 2}, sig);
        for (MaterialAlong* along : {&mean, &lines}) {
          along->Trace(points);
          along->TraceEnd(points.back(), {slope, -slope / 2}, 5, 0.5);
        }
        ExpectSameMaterial(mean, lines);
      }
  }
}

/// What many lines cross between two points, shifted evenly within an interval that has the
/// standard deviation of the points.
struct ManyLines {
  double fRadLen = 0, fMipLoss = 0, fVariance = 0; // means, and variance of the loss

  ManyLines(const geo::PlaneDetector& detector, DetectorMaterials materials, const WayPoint& from,
            const WayPoint& to) {
    constexpr int kLines = 1000;
    double squares = 0;
    for (int i = 0; i < kLines; i++) {
      const double place[] = {(i + 0.5) / kLines, std::fmod(i * 0.6180339887, 1)};
      double p0[3] = {0, 0, from.fX[2]}, p1[3] = {0, 0, to.fX[2]};
      for (std::size_t v = 0; v < 2; v++) {
        const double shift = (place[v] - 0.5) * std::sqrt(12.);
        p0[v] = from.fX[v] + shift * from.fSig[v];
        p1[v] = to.fX[v] + shift * to.fSig[v];
      }
      const double perLength =
          (p1[2] - p0[2]) / std::hypot(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]);
      double loss = 0;
      for (const auto& part : geo::ThicknessBetweenPoints(detector, p0, p1)) {
        fRadLen += part.fRadLengths * perLength / kLines;
        loss += part.fLength * perLength * materials[materials.Index(part.fMaterial)].fMipLoss;
      }
      fMipLoss += loss / kLines;
      squares += loss * loss / kLines;
    }
    fVariance = squares - fMipLoss * fMipLoss;
  }
};

/// Planes of the fine detector from face to face, met at many places in a cell.
class MeanOverCells : public testing::TestWithParam<std::pair<double, double>> {};

TEST_P(MeanOverCells, IsThatOfManyLines) {
  const auto [slope, sig] = GetParam();
  const auto detector = geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  MaterialAlong along = Along(detector);
  constexpr int kPlaces = 40;
  double radLen[2] = {}, mipLoss[2] = {}, variance[2] = {};
  for (int i = 0; i < kPlaces; i++) {
    const geo::ActivePlane& plane = detector.Planes()[10u + static_cast<unsigned>(i) % 2];
    const double x = 4.05 * i / kPlaces, depth = plane.fZHigh - plane.fZLow;
    const WayPoint from = {{x, -x, plane.fZLow}, {sig, sig}};
    const WayPoint to = {{x + slope * depth, -x - slope * depth, plane.fZHigh}, {sig, sig}};
    along.Trace({from, to});
    const ManyLines lines(detector, along.Materials(), from, to);
    const Gap& gap = along.Gaps()[0];
    EXPECT_NEAR(gap.fMipLoss / lines.fMipLoss, 1, 1e-3);
    radLen[0] += gap.fRadLen, radLen[1] += lines.fRadLen;
    mipLoss[0] += gap.fMipLoss, mipLoss[1] += lines.fMipLoss;
    variance[0] += gap.fVarMipLoss, variance[1] += lines.fVariance;
  }
  EXPECT_NEAR(radLen[0] / radLen[1], 1, 2e-3);
  EXPECT_NEAR(mipLoss[0] / mipLoss[1], 1, 1e-3);
  EXPECT_NEAR(std::sqrt(variance[0] / variance[1]), 1, 0.15);
}

INSTANTIATE_TEST_SUITE_P(MaterialAlong, MeanOverCells,
                         testing::Values(std::pair{0., 0.3}, std::pair{0.02, 0.3},
                                         std::pair{0.1, 0.3}, std::pair{-0.3, 0.3},
                                         std::pair{0., 1.17}, std::pair{-0.02, 1.17},
                                         std::pair{0.1, 1.17}, std::pair{0.3, 1.17}));

TEST(MaterialAlong, PartsOfAPlaneHaveAllOfItsVarianceTogether) {
  // A line that is in a wall in one half of a cell is in it in the other.
  const auto detector = geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  MaterialAlong along = Along(detector);
  const geo::ActivePlane& plane = detector.Planes()[4];
  const auto at = [](double z) { return WayPoint{{1, 0, z}, {1, 1}}; };
  along.Trace({at(plane.fZLow), at(plane.fZHigh)});
  const double all = along.Gaps()[0].fVarMipLoss;
  EXPECT_GT(all, 0);
  along.Trace({at(plane.fZLow), at(plane.ZMid() - 1), at(plane.fZHigh)});
  EXPECT_NEAR((along.Gaps()[0].fVarMipLoss + along.Gaps()[1].fVarMipLoss) / all, 1, kRounding);
}

TEST(MaterialAlong, NearTheEndOfCellsLinesAreFollowedOneByOne) {
  const auto detector = geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  const LineByLine plain(detector);
  MaterialAlong mean = Along(detector), lines = Along(plain);
  const auto points = Through(detector, {69.9, 0}, {0, 0}, 0.3); // 70 is the end of cells along x
  for (MaterialAlong* along : {&mean, &lines}) {
    along->Trace(points);
    along->TraceEnd(points.back(), {0, 0}, 5, 0.5);
  }
  ExpectSameMaterial(mean, lines);
}

} // namespace
