// Fits with the energy deposited in each hit's cell: what they change and what not, and how well
// they tell particles apart. Deposits are drawn collision by collision along simulated tracks, or
// are those of Geant4 (the folder of the shared data; skipped where it is absent).

#include "track/TrackFitter.h"

#include "sim/Simulator.h"
#include "test/support/BundledDetector.h"
#include "test/support/CollisionDeposits.h"
#include "test/support/Geant4Sample.h"
#include "test/support/TestGeometry.h"
#include "track/ChargeLikelihood.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TrackFitOptions WithResolution(double resolution) {
  TrackFitOptions options;
  options.fChargeResolution = resolution;
  options.fEnd = kelvo::TrackEndMode::kStops;
  return options;
}

/// A simulated muon in the fine detector with its deposits.
struct Muon {
  HitList3D fHits;
  std::vector<double> fCharges; // GeV
};

Muon MakeMuon(long long number) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  static kelvo::Simulator simulator(detector, {});
  std::mt19937_64 random(static_cast<unsigned long long>(number));
  const kelvo::SimulatedTrack track = simulator.Make(number);
  return {track.Hits(), kelvo::test::DrawDeposits(detector, track, 0.105658, 4e-4, random)};
}

TrackFit FitOf(const Muon& muon, const TrackFitOptions& options) {
  TrackFit fit;
  TrackFitter(BundledDetector("fine"), options).Fit(muon.fHits, muon.fCharges, fit);
  return fit;
}

/// With a resolution of 20 %.
TrackFit FitOf(const Muon& muon) {
  static TrackFitter fitter(BundledDetector("fine"), WithResolution(0.2));
  TrackFit fit;
  fitter.Fit(muon.fHits, muon.fCharges, fit);
  return fit;
}

TEST(TrackFitterCharge, DepositsAreNotUsedWithoutResolution) {
  const Muon muon = MakeMuon(0);
  const TrackFit with = FitOf(muon, WithResolution(0)), without = FitOf({muon.fHits, {}});
  for (std::size_t h = 0; h < with.fHypothesis.size(); h++) {
    EXPECT_EQ(with.fHypothesis[h].fLogLikelihood, without.fHypothesis[h].fLogLikelihood);
    EXPECT_TRUE(std::isnan(with.fHypothesis[h].fLogLikelihoodCharge));
    EXPECT_TRUE(std::isnan(without.fHypothesis[h].fLogLikelihoodCharge));
  }
  EXPECT_EQ(with.fBest, without.fBest);
  EXPECT_EQ(with.fLead, without.fLead);
}

TEST(TrackFitterCharge, BestAndLeadUseBothLikelihoods) {
  for (long long i = 0; i < 20; i++) {
    const TrackFit fit = FitOf(MakeMuon(i));
    std::vector<double> sums;
    for (const HypothesisFit& h : fit.fHypothesis)
      sums.push_back(h.fLogLikelihood + h.fLogLikelihoodCharge);
    EXPECT_EQ(fit.fBest, std::max_element(sums.begin(), sums.end()) - sums.begin());
    std::sort(sums.begin(), sums.end());
    EXPECT_NEAR(fit.fLead, sums[2] - sums[1], 1e-9);
  }
}

TEST(TrackFitterCharge, TheScaleIsOnlyAUnit) {
  constexpr double kScale = 1024;
  Muon muon = MakeMuon(3);
  TrackFitOptions options = WithResolution(0.2);
  const TrackFit in1 = FitOf(muon, options);
  options.fChargeScale = kScale;
  for (double& charge : muon.fCharges) charge *= kScale;
  const TrackFit in1024 = FitOf(muon, options);
  const double units = static_cast<double>(muon.fCharges.size() - 2) * std::log(kScale);
  for (std::size_t h = 0; h < 3; h++)
    EXPECT_NEAR(in1.fHypothesis[h].fLogLikelihoodCharge - units,
                in1024.fHypothesis[h].fLogLikelihoodCharge, 1e-9);
}

TEST(TrackFitterCharge, TheOrderOfHitsDoesNotMatter) {
  Muon muon = MakeMuon(4);
  const TrackFit forward = FitOf(muon);
  std::reverse(muon.fHits.begin(), muon.fHits.end());
  std::reverse(muon.fCharges.begin(), muon.fCharges.end());
  const TrackFit backward = FitOf(muon);
  for (std::size_t h = 0; h < 3; h++)
    EXPECT_EQ(forward.fHypothesis[h].fLogLikelihoodCharge,
              backward.fHypothesis[h].fLogLikelihoodCharge);
}

TEST(TrackFitterCharge, FirstAndLastHitDoNotCount) {
  Muon muon = MakeMuon(5);
  const TrackFit before = FitOf(muon);
  muon.fCharges.front() = 1;
  muon.fCharges.back() = kInfinity;
  const TrackFit after = FitOf(muon);
  for (std::size_t h = 0; h < 3; h++)
    EXPECT_EQ(before.fHypothesis[h].fLogLikelihoodCharge,
              after.fHypothesis[h].fLogLikelihoodCharge);
}

TEST(TrackFitterCharge, ProbabilitiesAreThoseOfBayes) {
  TrackFitOptions options = WithResolution(0.5);
  options.fFractions = {0.2, 0.7, 0.1};
  const TrackFit fit = FitOf(MakeMuon(6), options);
  double sum = 0;
  for (const HypothesisFit& h : fit.fHypothesis) sum += h.fProbHypothesis;
  EXPECT_NEAR(sum, 1, 1e-12);
  const HypothesisFit &mu = fit.fHypothesis[0], &pi = fit.fHypothesis[1];
  EXPECT_NEAR(std::log(mu.fProbHypothesis / pi.fProbHypothesis),
              std::log(2. / 7) + mu.fLogLikelihood + mu.fLogLikelihoodCharge - pi.fLogLikelihood -
                  pi.fLogLikelihoodCharge,
              1e-9);
}

TEST(TrackFitterCharge, DepositsThatDoNotBelongToTheHitsAreRefused) {
  Muon muon = MakeMuon(7);
  muon.fCharges[2] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(FitOf(muon).fHypothesis[0].fMessage,
            "the deposit of hit 2 is nan; it must be a number, or infinity where there is none");
  muon.fCharges = {1, 2};
  const std::string n = std::to_string(muon.fHits.size());
  EXPECT_EQ(FitOf(muon).fHypothesis[0].fMessage,
            "there are 2 deposits for " + n + " hits; there must be one for each, or none");
}

TEST(TrackFitterCharge, OptionsThatCannotBeUsedAreRefused) {
  const auto message = [](const geo::GeometryBase& detector, const TrackFitOptions& options) {
    try {
      TrackFitter fitter(detector, options);
    } catch (const std::invalid_argument& e) {
      return std::string(e.what());
    }
    return std::string("none");
  };
  const geo::PlaneDetector& fine = BundledDetector("fine");
  EXPECT_EQ(message(fine, WithResolution(0.001)),
            "fChargeResolution is 0.001; it must be 0 (not used) or between 0.02 and 2");
  TrackFitOptions options;
  options.fChargeScale = -1;
  EXPECT_EQ(message(fine, options),
            "fChargeScale is -1; it must be 0 (not known) or between 1e-12 and 1e+12");
  options.fChargeScale = 0;
  options.fFractions = {1, 2};
  EXPECT_EQ(message(fine, options),
            "fFractions has 2 numbers; it must have one for each of the 3 hypotheses, or none");
  options.fFractions = {1, 2, 0};
  EXPECT_EQ(message(fine, options),
            "a number in fFractions is 0; it must be above 0 and at most 1e+06");
  EXPECT_EQ(message(LayeredGeometry({{100, "Scintillator"}}), WithResolution(0.2)),
            "fChargeResolution is set, but the detector does not tell its planes and cells, so "
            "that no path in a cell is known; leave it 0, or describe the detector in a TOML file");
}

/// The path is compared with what the geometry says of straight lines.
TEST(ChargeLikelihood, PathsEndAtTheWallsOfTheCell) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  const kelvo::ChargeLikelihood likelihood(detector, {13}, 0.2);
  std::mt19937_64 random(17);
  std::uniform_real_distribution<double> place(-50, 50), slope(-1.2, 1.2);
  for (int i = 0; i < 1000; i++) {
    const std::size_t p = 10 + static_cast<std::size_t>(i % 20), view = p % 2;
    const TVector3 point(place(random), place(random), detector.Planes()[p].ZMid());
    const TVector3 direction(slope(random), slope(random), 1);
    const double along[2] = {direction.X(), direction.Y()};
    std::vector<kelvo::ChargeLikelihood::Path> paths;
    likelihood.FindPaths(
        {{1, view, point.Z(), view == 0 ? point.X() : point.Y(), 1e-9, {along[0], along[1]}, 0.01}},
        3, paths);
    const double expected = kelvo::test::PathInCell(detector, point, direction);
    if (expected == 0) continue; // in a wall
    ASSERT_EQ(paths.size(), 1u);
    EXPECT_NEAR(paths[0].fLength[0], expected, 1e-5) << "track " << i;
  }
}

/// Area under the curve of efficiency against contamination where a cut on x moves.
double Area(const std::vector<double>& signal, std::vector<double> other) {
  std::sort(other.begin(), other.end());
  double sum = 0;
  for (const double x : signal)
    sum += static_cast<double>(std::lower_bound(other.begin(), other.end(), x) - other.begin());
  return sum / static_cast<double>(signal.size() * other.size());
}

TEST(TrackFitterCharge, TellsSimulatedProtonsFromMuons) {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  TrackFitter fitter(detector, WithResolution(0.2));
  std::vector<double> leads[2];
  std::mt19937_64 random(18);
  for (const auto& [pdg, mass] : {std::pair{13, 0.105658}, {2212, 0.938272}}) {
    kelvo::SimulationOptions options;
    options.fPDG = pdg;
    kelvo::Simulator simulator(detector, options);
    for (long long i = 0; i < 30; i++) {
      const kelvo::SimulatedTrack track = simulator.Make(i);
      TrackFit fit;
      fitter.Fit(track.Hits(), kelvo::test::DrawDeposits(detector, track, mass, 4e-4, random), fit);
      leads[pdg == 13 ? 0 : 1].push_back(fit.fHypothesis[0].fLogLikelihoodCharge -
                                         fit.fHypothesis[2].fLogLikelihoodCharge);
    }
  }
  EXPECT_GE(Area(leads[0], leads[1]), 0.99);
}

/// Deposits of a sample of Geant4, in the order of its hits, measured to 20 %.
std::vector<std::vector<double>> ReadDeposits(const std::string& sample, double mip) {
  std::mt19937_64 random(19);
  std::normal_distribution<double> gauss;
  std::vector<std::vector<double>> deposits;
  kelvo::test::GzipLines lines(kelvo::test::Geant4Folder().parent_path() / "geant4-leaving" /
                               (sample + "_hittruth.csv.gz"));
  while (lines.Next()) {
    const std::vector<double> v =
        lines.Numbers(); // track,z,x,y,dxdz,dydz,T,edep,pathcell,edepplane
    deposits.resize(std::max(deposits.size(), static_cast<std::size_t>(v.at(0)) + 1));
    deposits.back().push_back(v.at(7) + 0.2 * std::sqrt(mip * v.at(7)) * gauss(random));
  }
  return deposits;
}

struct Areas {
  double fProton, fPion;
};

Areas AreasIn(const std::string& detector, double mip) {
  TrackFitter fitter(BundledDetector(detector), WithResolution(0.2));
  std::vector<double> overPion[2], overProton[2];
  for (const std::string particle : {"mu", "pi", "p"}) {
    const std::string sample = detector + "_" + particle + "_stop";
    const auto tracks = kelvo::test::ReadGeant4("../geant4-leaving/" + sample, "cell");
    const auto deposits = ReadDeposits(sample, mip);
    for (std::size_t i = 0; i < tracks.size(); i++) {
      TrackFit fit;
      fitter.Fit(tracks[i].fHits, deposits[i], fit);
      if (!fit.Fitted()) continue;
      std::vector<double> total;
      for (const HypothesisFit& h : fit.fHypothesis)
        total.push_back(h.fLogLikelihood + h.fLogLikelihoodCharge);
      if (particle != "p") overPion[particle == "mu" ? 0 : 1].push_back(total[0] - total[1]);
      if (particle != "pi") overProton[particle == "mu" ? 0 : 1].push_back(total[0] - total[2]);
    }
  }
  return {Area(overProton[0], overProton[1]), Area(overPion[0], overPion[1])};
}

TEST(TrackFitterCharge, TellsGeant4sParticlesApart) {
  if (!exists(kelvo::test::Geant4Folder().parent_path() / "geant4-leaving"))
    GTEST_SKIP() << "the samples of Geant4 are not there";
  const Areas fine = AreasIn("fine", 9.9e-3), range = AreasIn("range", 1.76e-3);
  EXPECT_GE(fine.fProton, 0.99);
  EXPECT_GE(range.fProton, 0.99);
  EXPECT_GE(fine.fPion, 0.70);
  EXPECT_GE(range.fPion, 0.59);
}

} // namespace
