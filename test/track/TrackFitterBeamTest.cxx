// Fits of beams of known momentum against Highland's widths and straight lines in closed form.

#include "track/TrackFitter.h"

#include "test/support/BlockTracks.h"

#include <TGeoMaterial.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

using kelvo::FitStatus;
using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

/// Four thin plates in air, 10 cm apart, each with a hit in both views at its middle.
struct Telescope {
  LayeredGeometry fGeometry{{{0.1, "Glue"},
                             {9.9, "Vacuum"},
                             {0.1, "Glue"},
                             {9.9, "Vacuum"},
                             {0.1, "Glue"},
                             {9.9, "Vacuum"},
                             {0.1, "Glue"}}};
  static HitList3D Hits(const Line& line, const std::function<double(int)>& noise) {
    HitList3D hits;
    for (int i = 0; i < 4; i++) {
      const double z = 0.05 + 10 * i;
      AddX(hits, line.X(z) + noise(2 * i), z, 0.01);
      AddY(hits, line.Y(z) + noise(2 * i + 1), z, 0.01);
    }
    return hits;
  }
};

TEST(TrackFitterBeam, ABeamScattersAtBothEndsOfEachGapAsMuchAsItsHalvesOfThePlates) {
  const Telescope telescope;
  TrackFitOptions options;
  options.fWithPlanes = true;
  options.fBeamMomentum = 3;
  options.fHypotheses = {211, 2212};
  TrackFitter fitter(telescope.fGeometry, options);
  const TrackFit fit = fitter.Fit(Telescope::Hits({1, 2, 0.01, 0}, [](int) { return 0.; }));
  ASSERT_TRUE(fit.Fitted());
  const double masses[] = {0.13957, 0.938272}; // GeV
  for (std::size_t h = 0; h < 2; h++) {
    const HypothesisFit& f = fit.fHypothesis[h];
    const double e = std::hypot(3, masses[h]);
    ASSERT_EQ(f.fPlaneS.size(), 6u);
    for (std::size_t j = 0; j < 6; j++) {
      // Half plates of 0.05 cm, with their middles 4.975 cm from that of the gap.
      const std::size_t gap = j / 2; // two planes in each
      const double middle = 5.05 + 10 * static_cast<double>(gap);
      const double away = std::sqrt(4.975 * 4.975 + 0.05 * 0.05 / 12);
      EXPECT_NEAR(f.fPlanePoint[j].Z(), middle + (j % 2 == 0 ? -away : away), 1e-6);
      const double x = 0.1 * std::hypot(1, 0.01) / 31.864;
      const double width = 0.0136 / (3 * 3 / e) * std::sqrt(x / 2) * (1 + 0.038 * std::log(x));
      EXPECT_NEAR(f.fPlaneSigAlpha[j] / width, 1, 1e-3); // the beam loses 0.8 MeV on its way
    }
    EXPECT_NEAR(f.fP, 3, kRounding);
    EXPECT_NEAR(f.fT, e - masses[h], kRounding);
    EXPECT_NEAR(f.fBeta, 3 / e, kRounding);
    EXPECT_NEAR(f.fGamma, e / masses[h], kRounding);
    EXPECT_NEAR(f.fLength, 30 * std::hypot(1, 0.01), 1e-5); // unfitted bends make it longer
    EXPECT_NEAR(f.fRadLen, 0.3 * std::hypot(1, 0.01) / 31.864, 1e-6);
    ExpectNear(f.fPosition, TVector3(1 + 0.0005, 2, 0.05), kRounding);
  }
}

TEST(TrackFitterBeam, AFastBeamIsFittedWithAStraightLine) {
  const Telescope telescope;
  TrackFitOptions options;
  options.fBeamMomentum = 1e5;
  TrackFitter fitter(telescope.fGeometry, options);
  const auto noise = [](int i) { return 0.01 * std::sin(3. * i); };
  // Unweighted line through four equidistant points at t = -3, -1, 1, 3 (in units of 5 cm).
  double mean = 0, slope = 0;
  for (int i = 0; i < 4; i++) {
    mean += noise(2 * i) / 4;
    slope += (2 * i - 3) * noise(2 * i) / 20;
  }
  const TrackFit fit = fitter.Fit(Telescope::Hits({1, 2, 0, 0}, noise));
  ASSERT_TRUE(fit.Fitted());
  for (const kelvo::HitFit& hit : Best(fit).fHit) {
    if (hit.fView != 0) continue;
    EXPECT_NEAR(hit.fFitU, 1 + mean + slope * ((hit.fZ - 0.05) / 5 - 3), 1e-6);
  }
}

TEST(TrackFitterBeam, ABeamCrossesMaterialsOfWhichNothingIsKnown) {
  struct : geo::GeometryBase {
    TGeoMaterial fSecret{"Secret", 0, 0, 2, -10};
    void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                                std::vector<const TGeoMaterial*>& mats) const override {
      ds = {std::hypot(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2])};
      mats = {&fSecret};
    }
  } block;
  TrackFitOptions options;
  options.fBeamMomentum = 10;
  TrackFitter fitter(block, options);
  EXPECT_TRUE(fitter.Fit(Hits({0, 0, 0.1, 0}, 20, Wiggle)).Fitted());
}

} // namespace
