// Simulated tracks: what is promised of each of them, and their ranges against Geant4's.

#include "sim/Simulator.h"
#include "test/support/BundledDetector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <regex>

namespace {

using kelvo::SimulatedTrack;
using kelvo::SimulationOptions;
using kelvo::Simulator;

SimulationOptions Options(kelvo::ScatteringModel model) {
  SimulationOptions options;
  options.fScattering = model;
  return options;
}

const kelvo::ScatteringModel kModels[] = {kelvo::ScatteringModel::kFull,
                                          kelvo::ScatteringModel::kFit};

void ExpectSame(const SimulatedTrack& a, const SimulatedTrack& b) {
  EXPECT_EQ(a.fTrack, b.fTrack);
  EXPECT_EQ(a.fT, b.fT);
  EXPECT_EQ(a.fLength, b.fLength);
  EXPECT_EQ(a.fEnd, b.fEnd);
  EXPECT_EQ(a.fMomentum, b.fMomentum);
  ASSERT_EQ(a.fHits.size(), b.fHits.size());
  for (std::size_t i = 0; i < a.fHits.size(); i++) {
    EXPECT_EQ(a.fHits[i].fU, b.fHits[i].fU);
    EXPECT_EQ(a.fHits[i].fTrue, b.fHits[i].fTrue);
    EXPECT_EQ(a.fHits[i].fT, b.fHits[i].fT);
  }
}

TEST(Simulator, TrackDependsOnSeedAndNumberOnly) {
  for (const auto model : kModels) {
    Simulator one(BundledDetector("fine"), Options(model));
    const SimulatedTrack seventh = one.Make(7);
    Simulator other(BundledDetector("fine"), Options(model));
    for (int i = 0; i < 5; i++) other.Make(i);
    ExpectSame(seventh, other.Make(7));
    Simulator copy(other);
    ExpectSame(seventh, copy.Make(7));
    EXPECT_NE(one.Make(8).fT, seventh.fT);
    SimulationOptions options = Options(model);
    options.fSeed = 2;
    EXPECT_NE(Simulator(BundledDetector("fine"), options).Make(7).fT, seventh.fT);
  }
}

TEST(Simulator, TracksStopInsideAndAreSeenInBothViews) {
  for (const auto model : kModels) {
    Simulator simulator(BundledDetector("fine"), Options(model));
    for (int i = 0; i < 100; i++) {
      const SimulatedTrack track = simulator.Make(i);
      EXPECT_LE(std::abs(track.fEnd.X()), 70);
      EXPECT_LE(std::abs(track.fEnd.Y()), 70);
      EXPECT_GT(track.fEnd.Z(), track.fStart.Z());
      EXPECT_LT(track.fEnd.Z(), 774.35);
      int hits[2] = {0, 0};
      for (const auto& hit : track.fHits) hits[hit.fView]++;
      EXPECT_GE(hits[0], 4);
      EXPECT_GE(hits[1], 4);
    }
  }
}

TEST(Simulator, TruthFitsTogether) {
  for (const auto model : kModels) {
    Simulator simulator(BundledDetector("fine"), Options(model));
    for (int i = 0; i < 100; i++) {
      const SimulatedTrack track = simulator.Make(i);
      const auto& first = track.fHits.front();
      EXPECT_EQ(track.fTrack, i);
      EXPECT_EQ(track.fPDG, 13);
      EXPECT_EQ(track.fT, first.fT);
      EXPECT_EQ(track.fStart, first.fTrue);
      const double mass = 0.1056583755;
      EXPECT_NEAR(std::hypot(track.fMomentum.Mag(), mass), track.fT + mass, 1e-12);
      EXPECT_NEAR(track.fMomentum.X() / track.fMomentum.Z(), first.fSlope.X(), 1e-12);
      EXPECT_GE(track.fLength, (track.fEnd - track.fStart).Mag() - 1e-9);
      EXPECT_LT(track.fT, model == kelvo::ScatteringModel::kFull ? 1.6 : 1.8);
      for (std::size_t k = 0; k < track.fHits.size(); k++) {
        const auto& hit = track.fHits[k];
        const double plane = (hit.fTrue.Z() - 3) / 6.05;
        EXPECT_NEAR(plane, std::round(plane), 1e-9);
        EXPECT_EQ(std::lround(plane) % 2, hit.fView);
        EXPECT_NEAR(hit.fZ, hit.fTrue.Z(), 1e-9);
        if (k == 0) continue;
        EXPECT_LT(hit.fT, track.fHits[k - 1].fT);
        EXPECT_GT(hit.fZ, track.fHits[k - 1].fZ);
      }
    }
  }
}

TEST(Simulator, CellHitsAreTheCentreOfTheCellThatIsCrossed) {
  Simulator simulator(BundledDetector("fine"), Options(kelvo::ScatteringModel::kFull));
  for (int i = 0; i < 50; i++)
    for (const auto& hit : simulator.Make(i).fHits) {
      const double cell = (hit.fU + 62.775) / 4.05;
      EXPECT_NEAR(cell, std::round(cell), 1e-9);
      EXPECT_LE(std::abs(hit.fU - hit.fTrue[hit.fView]), 2);
      EXPECT_NEAR(hit.fSigU, 4 / std::sqrt(12.), 1e-12);
    }
}

TEST(Simulator, GaussianHitsAreSmearedAroundTheTruth) {
  SimulationOptions options = Options(kelvo::ScatteringModel::kFull);
  options.fHits = kelvo::HitModel::kGaussian;
  options.fSigma = 0.5;
  Simulator simulator(BundledDetector("fine"), options);
  double n = 0, sum = 0, sum2 = 0;
  for (int i = 0; i < 200; i++)
    for (const auto& hit : simulator.Make(i).fHits) {
      const double pull = (hit.fU - hit.fTrue[hit.fView]) / 0.5;
      EXPECT_EQ(hit.fSigU, 0.5);
      n++;
      sum += pull;
      sum2 += pull * pull;
    }
  EXPECT_NEAR(sum / n, 0, 4 / std::sqrt(n));
  EXPECT_NEAR(sum2 / n, 1, 4 * std::sqrt(2 / n));
}

TEST(Simulator, PlanesMissHitsWithTheirInefficiency) {
  SimulationOptions options = Options(kelvo::ScatteringModel::kFit); // whose tracks see no gaps
  options.fEfficiency = 0.8;
  Simulator simulator(BundledDetector("fine"), options);
  double planes = 0, hits = 0;
  for (int i = 0; i < 100; i++) {
    const SimulatedTrack track = simulator.Make(i);
    // Between the first and the last hit, which are there by definition.
    planes += std::round((track.fHits.back().fZ - track.fHits.front().fZ) / 6.05) - 1;
    hits += static_cast<double>(track.fHits.size()) - 2;
  }
  EXPECT_NEAR(hits / planes, 0.8, 4 * std::sqrt(0.8 * 0.2 / planes));
}

TEST(Simulator, HitsAreMeasuredWhereAPlaneIsAssumedToBe) {
  const std::string text = R"(
name = "shifted"
world = "Vacuum"
[[material]]
name = "Steel"
density = 7.87
radiation_length = 1.7584
[[material]]
name = "Vacuum"
density = 1e-25
[[plane]]
name = "x"
view = "X"
count = 200
cell = { width = 1, length = 200, depth = 2 }
filling = "Steel"
[[plane]]
name = "y"
view = "Y"
count = 200
cell = { width = 1, length = 200, depth = 2 }
filling = "Steel"
[[stack]]
repeat = 30
parts = ["x", "y"]
offset = [0.25, -0.5, 0.125]
)";
  const auto detector = geo::PlaneDetector::FromText(text, "shifted.toml");
  SimulationOptions options = Options(kelvo::ScatteringModel::kFull);
  options.fHits = kelvo::HitModel::kGaussian;
  options.fSigma = 1e-6;
  const SimulatedTrack track = Simulator(detector, options).Make(0);
  const kelvo::HitList3D forFit = track.Hits();
  for (std::size_t i = 0; i < track.fHits.size(); i++) {
    const auto& hit = track.fHits[i];
    EXPECT_NEAR(hit.fU, hit.fTrue[hit.fView] - (hit.fView == 0 ? 0.25 : -0.5), 1e-5);
    EXPECT_NEAR(hit.fZ, hit.fTrue.Z() - 0.125, 1e-12);
    EXPECT_NEAR(hit.fView == 0 ? forFit[i].fX : forFit[i].fY, hit.fTrue[hit.fView], 1e-5);
    EXPECT_EQ(forFit[i].fZ, hit.fTrue.Z());
  }
}

// Geant4 11.4.1, muons of 0.95 to 1.05 GeV at the first hit in this detector: 491.5 cm on average;
// the mean range from published muon stopping powers is 492.9 cm. The stopping powers themselves
// are known to about 1 %. The mean energy of the sample is not exactly 1 GeV.
TEST(Simulator, MuonsTravelAsFarAsGeant4s) {
  SimulationOptions options = Options(kelvo::ScatteringModel::kFull);
  options.fKineticEnergy = {0.95, 1.05};
  options.fStart[2] = {{-1., -0.5}};
  Simulator simulator(BundledDetector("fine"), options);
  double n = 0, length = 0, T = 0;
  for (int i = 0; i < 100; i++) {
    const SimulatedTrack track = simulator.Make(i);
    n++;
    length += track.fLength;
    T += track.fT;
  }
  constexpr double kPerGeV = 500; // cm; range against energy
  EXPECT_NEAR(length / n + kPerGeV * (1 - T / n), 491.5, 0.012 * 491.5);
}

TEST(Simulator, TracksMayLeaveWhereThatIsWanted) {
  SimulationOptions options = Options(kelvo::ScatteringModel::kFull);
  options.fKineticEnergy = {10, 10};
  options.fLeaving = true;
  options.fSlope = 0.1;
  const SimulatedTrack track = Simulator(BundledDetector("fine"), options).Make(0);
  EXPECT_GT(track.fT, 5);
  EXPECT_GT(track.fHits.back().fT, 1);
}

TEST(Simulator, ABeamHasItsMomentumSpotAndSlopesAndCrossesAllPlanes) {
  SimulationOptions options = Options(kelvo::ScatteringModel::kFull);
  options.fPDG = 211;
  options.fBeamMomentum = 120;
  options.fSigBeamMomentum = 6;
  options.fSpot = 0.2;
  options.fSlope = 0.002;
  const auto& telescope = BundledDetector("telescope");
  Simulator simulator(telescope, options);
  constexpr int kTracks = 2000;
  double sum[5] = {}, sum2[5] = {};
  for (int i = 0; i < kTracks; i++) {
    const SimulatedTrack track = simulator.Make(i);
    ASSERT_EQ(track.fHits.size(), 8u); // both views of four planes
    EXPECT_GT(track.fEnd.Z(), telescope.Extent().fHigh[2]);
    const TVector3& p = track.fMomentum;
    const double value[] = {p.Mag(), track.fStart.X(), track.fStart.Y(), p.X() / p.Z(),
                            p.Y() / p.Z()};
    for (int k = 0; k < 5; k++) {
      sum[k] += value[k];
      sum2[k] += value[k] * value[k];
    }
  }
  // The spot lies in the middle of the face, which is that of the planes.
  const double mean[] = {120, 0.975, 0.94, 0, 0}, width[] = {6, 0.2, 0.2, 0.002, 0.002};
  for (int k = 0; k < 5; k++) {
    const double found = sum[k] / kTracks;
    EXPECT_NEAR(found, mean[k], 4 * width[k] / std::sqrt(kTracks)) << k;
    EXPECT_NEAR(std::sqrt(sum2[k] / kTracks - found * found) / width[k], 1,
                4 / std::sqrt(2. * kTracks))
        << k;
  }
}

template <typename Change>
std::string Refusal(Change change) {
  SimulationOptions options;
  change(options);
  try {
    Simulator(BundledDetector("fine"), options).Make(3);
  } catch (const std::exception& e) {
    return e.what();
  }
  return "";
}

TEST(Simulator, MessagesSayWhatIsAllowed) {
  EXPECT_EQ(
      Refusal([](auto& o) { o.fPDG = 11; }),
      "the particle's code is 11; it must be 13 (muon), 211 (pion) or 2212 (proton), of either "
      "sign");
  EXPECT_EQ(Refusal([](auto& o) {
              o.fKineticEnergy = {0, 1};
            }),
            "the kinetic energy is 0; it must be from 0.001 to 10000 GeV");
  EXPECT_EQ(Refusal([](auto& o) {
              o.fKineticEnergy = {2, 1};
            }),
            "the kinetic energy goes from 2 down to 1; give the smaller number first");
  EXPECT_EQ(Refusal([](auto& o) { o.fSigma = 0; }),
            "the error of the hits is 0; it must be above 0 and at most 1000 cm");
  EXPECT_EQ(Refusal([](auto& o) { o.fEfficiency = 1.5; }),
            "the efficiency is 1.5; it must be above 0 and at most 1");
  EXPECT_EQ(Refusal([](auto& o) { o.fStep = 0; }),
            "the largest step is 0; it must be from 0.001 to 100 cm");
  EXPECT_EQ(Refusal([](auto& o) { o.fSlope = -1; }),
            "the width of the slopes is -1; it must be from 0 to 1");
  EXPECT_EQ(Refusal([](auto& o) {
              o.fStart[0] = {{0, 1e9}};
            }),
            "x at the start is 1e+09; it must be from -100000 to 100000 cm");
  EXPECT_EQ(Refusal([](auto& o) {
              o.fScattering = kelvo::ScatteringModel::kFit;
              o.fLeaving = true;
            }),
            "with the scattering of the fit, tracks stop after their mean range: a fluctuating "
            "energy loss, tracks that leave and beams need the full scattering");
  EXPECT_EQ(Refusal([](auto& o) { o.fFit.fBeamMomentum = 3; }),
            "the fit's scattering is that of particles that stop; a beam is simulated with "
            "fBeamMomentum of SimulationOptions");
  EXPECT_EQ(Refusal([](auto& o) { o.fBeamMomentum = -1; }),
            "the beam momentum is -1; it must be 0 (particles stop) or from 0.001 to 10000 GeV/c");
  EXPECT_EQ(Refusal([](auto& o) {
              o.fBeamMomentum = 3;
              o.fSigBeamMomentum = 2;
            }),
            "the spread of the beam momentum is 2; it must be from 0 to a third of the beam "
            "momentum");
  EXPECT_EQ(Refusal([](auto& o) {
              o.fBeamMomentum = 3;
              o.fLeaving = true;
            }),
            "all tracks of a beam leave the detector; drop fLeaving");
  EXPECT_EQ(Refusal([](auto& o) { o.fSpot = -1; }),
            "the width of the spot is -1; it must be from 0 to 10000 cm");
}

TEST(Simulator, TracksThatCannotStopInsideAreTold) {
  EXPECT_EQ(Refusal([](auto& o) {
              o.fKineticEnergy = {5, 5};
            }),
            "track 3: in 30000 attempts no particle stopped inside the detector and was seen by 4 "
            "planes of each view; choose another kinetic energy or start");
  EXPECT_EQ(Refusal([](auto& o) { o.fBeamMomentum = 0.2; }),
            "track 3: in 30000 attempts no particle crossed the detector and was seen by 3 planes "
            "of each view; choose another momentum or start");
}

TEST(Simulator, DetectorWithAMaterialOfWhichNothingIsKnownIsRefused) {
  const auto mist = geo::PlaneDetector::FromText(
      std::regex_replace(BundledDetector("telescope").Text(), std::regex("\"Air\""), "\"Mist\""),
      "telescope.toml");
  try {
    const Simulator made(mist, {});
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(
        e.what(),
        "the detector \"telescope\" has Mist, of which neither the name nor the elements "
        "are known, so that particles cannot be followed; give a formula or a composition");
  }
}

} // namespace
