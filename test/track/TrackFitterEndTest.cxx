// Tracks that stop and tracks that leave, and their momentum from scattering: the modes of the fit,
// and statistics against simulated truth, of the library's own simulation and of Geant4's (see
// Geant4Folder; skipped where it is absent).

#include "sim/Simulator.h"
#include "test/support/BundledDetector.h"
#include "test/support/Geant4Sample.h"
#include "test/support/TestGeometry.h"
#include "track/TrackFitter.h"
#include "util/Particles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackEndMode;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;
using kelvo::test::Geant4Track;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStride = 10; // their programs are slow
#else
constexpr std::size_t kStride = 1;
#endif

/// Hits of a bent line in detectors/fine.toml, in planes first to last.
HitList3D InFine(int first, int last) {
  HitList3D hits;
  for (int i = first; i <= last; i++) {
    const double z = 3 + 6.05 * i, s = z - 3 - 6.05 * first;
    const double x = -30 + 0.05 * s + 4e-5 * s * s + 0.3 * std::sin(13. * i);
    const double y = 20 - 0.04 * s + 0.3 * std::cos(7. * i);
    const bool isX = i % 2 == 0;
    hits.AddHit(isX ? geo::kX : geo::kY, isX ? x : 0, isX ? 0 : y, z, 0, isX ? 0.3 : 0,
                isX ? 0 : 0.3, 0, 0, 1);
  }
  return hits;
}

TrackFitOptions Ending(TrackEndMode end) {
  TrackFitOptions options;
  options.fEnd = end;
  return options;
}

TrackFit FitInFine(const TrackFitOptions& options, int first, int last) {
  return TrackFitter(BundledDetector("fine"), options).Fit(InFine(first, last));
}

TEST(TrackFitterEnd, ATrackThatEndsInsideStops) {
  const TrackFit fit = FitInFine({}, 20, 80);
  EXPECT_FALSE(fit.fLeaves);
  EXPECT_NEAR(fit.fEndPlanes, 47.5, 0.05);
  EXPECT_TRUE(fit.fHasBest);
  for (const HypothesisFit& hypothesis : fit.fHypothesis) {
    EXPECT_GT(hypothesis.fP, 0.5);
    EXPECT_TRUE(std::isnan(hypothesis.fPMin));
    EXPECT_GE(hypothesis.fProbScattering, 0);
    EXPECT_LE(hypothesis.fProbScattering, 1);
  }
  EXPECT_GE(fit.fStopChi2, 0);
}

TEST(TrackFitterEnd, ATrackThatLeavesHasALowerLimitInPlaceOfAMomentum) {
  const TrackFit fit = FitInFine({}, 60, 127);
  const TrackFit stopping = FitInFine(Ending(TrackEndMode::kStops), 60, 127);
  ASSERT_TRUE(fit.fLeaves);
  EXPECT_FALSE(stopping.fLeaves);
  EXPECT_EQ(fit.fEndDistance, stopping.fEndDistance);
  EXPECT_TRUE(fit.Fitted());
  EXPECT_FALSE(fit.fHasBest); // they differ by nothing but their velocity
  EXPECT_EQ(fit.fBest, 0);
  for (std::size_t h = 0; h < 3; h++) {
    const HypothesisFit& hypothesis = fit.fHypothesis[h];
    for (double value : {hypothesis.fT, hypothesis.fP, hypothesis.fSigT, hypothesis.fSigP,
                         hypothesis.fBeta, hypothesis.fGamma, hypothesis.fProbScattering})
      EXPECT_TRUE(std::isnan(value));
    // To stop half a gap behind the last hit takes a little more than to get there.
    EXPECT_LT(hypothesis.fPMin, stopping.fHypothesis[h].fP);
    EXPECT_GT(hypothesis.fPMin, 0.98 * stopping.fHypothesis[h].fP);
    EXPECT_GT(hypothesis.fScattering.fHigh, hypothesis.fScattering.fLow);
    EXPECT_EQ(hypothesis.fEnd.Z(), 3 + 6.05 * 127);
  }
}

TEST(TrackFitterEnd, TheModeSaysSoForAllTracks) {
  EXPECT_TRUE(FitInFine(Ending(TrackEndMode::kLeaves), 20, 80).fLeaves);
  EXPECT_FALSE(FitInFine(Ending(TrackEndMode::kStops), 60, 127).fLeaves);
}

TEST(TrackFitterEnd, AnOnlyHypothesisIsTheBest) {
  TrackFitOptions options;
  options.fHypotheses = {kelvo::kMuonPDG};
  EXPECT_TRUE(FitInFine(options, 60, 127).fHasBest);
}

TEST(TrackFitterEnd, HypothesesOfABeamDifferByTheirVelocityAlone) {
  TrackFitOptions options;
  options.fBeamMomentum = 5;
  const TrackFit fit = FitInFine(options, 20, 80);
  EXPECT_EQ(fit.fBest, 0);
  EXPECT_FALSE(fit.fHasBest);
  EXPECT_EQ(fit.fLead, 0);
  EXPECT_FALSE(fit.fLeaves);
  EXPECT_TRUE(std::isnan(fit.fEndDistance));
  EXPECT_TRUE(std::isfinite(fit.fHypothesis[0].fScattering.fLow));
}

TEST(TrackFitterEnd, MomentaOfAllHypothesesHaveOneVelocityTimesMomentum) {
  const TrackFit fit = FitInFine({}, 60, 127);
  const auto betaP = [&](std::size_t h) {
    const double p = fit.fHypothesis[h].fScattering.fLow;
    return p * p / std::hypot(p, kelvo::FindParticle(fit.fHypothesis[h].fPDG)->fMass);
  };
  EXPECT_NEAR(betaP(1), betaP(0), 1e-9);
  EXPECT_NEAR(betaP(2), betaP(0), 1e-9);
}

TEST(TrackFitterEnd, TheMomentumFromScatteringCanBeLeftOutOfTracksThatStop) {
  TrackFitOptions options;
  options.fScatteringMomentum = false;
  const TrackFit stops = FitInFine(options, 20, 80), usual = FitInFine({}, 20, 80);
  EXPECT_TRUE(std::isnan(stops.fHypothesis[0].fScattering.fP));
  EXPECT_TRUE(std::isnan(stops.fStopChi2));
  EXPECT_EQ(stops.fHypothesis[0].fP, usual.fHypothesis[0].fP);
  EXPECT_FALSE(std::isnan(FitInFine(options, 60, 127).fHypothesis[0].fScattering.fLow));
}

TEST(TrackFitterEnd, TwoHitsInEachViewHaveNoMomentumFromScattering) {
  const TrackFit stops = FitInFine({}, 20, 23), leaves = FitInFine({}, 124, 127);
  EXPECT_TRUE(std::isnan(stops.fHypothesis[0].fScattering.fP));
  EXPECT_TRUE(std::isnan(stops.fHypothesis[0].fProbScattering));
  EXPECT_TRUE(std::isnan(stops.fStopChi2));
  EXPECT_TRUE(leaves.Fitted());
  EXPECT_TRUE(leaves.fLeaves);
  EXPECT_TRUE(std::isnan(leaves.fHypothesis[0].fScattering.fSigInverse));
}

TEST(TrackFitterEnd, WhereNoPlanesAreKnownTracksStop) {
  const LayeredGeometry block({{700, "Scintillator"}});
  const TrackFit fit = TrackFitter(block).Fit(InFine(60, 114));
  EXPECT_TRUE(fit.Fitted());
  EXPECT_FALSE(fit.fLeaves);
  EXPECT_TRUE(std::isnan(fit.fEndDistance));
  EXPECT_FALSE(std::isnan(fit.fStopChi2));
  EXPECT_TRUE(TrackFitter(block, Ending(TrackEndMode::kLeaves)).Fit(InFine(60, 114)).fLeaves);
}

TEST(TrackFitterEnd, ModesHaveNames) {
  for (TrackEndMode mode : {TrackEndMode::kAuto, TrackEndMode::kStops, TrackEndMode::kLeaves})
    EXPECT_EQ(kelvo::EndMode(kelvo::EndModeName(mode)), mode);
  EXPECT_THROW(kelvo::EndMode("Leaves"), std::invalid_argument);
}

/// What came out for tracks whose momentum is known.
struct Sample {
  std::size_t fTracks = 0, fLeft = 0, fHeld = 0, fFree = 0, fUnlikely = 0;
  std::vector<double> fRatio, fPull; // of 1 / p

  void Add(const TrackFit& fit, std::size_t h, double p) {
    const HypothesisFit& hypothesis = fit.fHypothesis[h];
    ASSERT_EQ(hypothesis.fStatus, kelvo::FitStatus::kFitted) << hypothesis.fMessage;
    fTracks++;
    fLeft += fit.fLeaves;
    fFree += fit.fStopChi2 > 3.84;
    fUnlikely += hypothesis.fProbScattering < 0.5;
    const kelvo::MomentumFromScattering& found = hypothesis.fScattering;
    fHeld += found.fLow < p && p < found.fHigh;
    fRatio.push_back(p * found.fInverse);
    fPull.push_back((found.fInverse - 1 / p) / found.fSigInverse);
  }
  double Fraction(std::size_t count) const {
    return static_cast<double>(count) / static_cast<double>(fTracks);
  }
};

double Quantile(std::vector<double> values, double fraction) {
  const auto k = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size()));
  std::nth_element(values.begin(), values.begin() + k, values.end());
  return values[static_cast<std::size_t>(k)];
}

double HalfWidth(const std::vector<double>& values) {
  return (Quantile(values, 0.8413) - Quantile(values, 0.1587)) / 2;
}

TEST(TrackFitterEnd, SimulatedMuonsThatLeaveAreFlaggedAndMeasured) {
  const geo::PlaneDetector& fine = BundledDetector("fine");
  kelvo::SimulationOptions options;
  options.fKineticEnergy = {2.4, 5};
  options.fHits = kelvo::HitModel::kGaussian;
  options.fLeaving = true;
  options.fSlope = 0.03; // so that they leave behind
  options.fEfficiency = 0.95;
  options.fStart[0] = options.fStart[1] = kelvo::SimulationRange{-30, 30};
  options.fStart[2] = kelvo::SimulationRange{250, 350};
  kelvo::Simulator simulator(fine, options);
  TrackFitter fitter(fine);
  Sample sample;
  for (long long track = 0; track < 400; track += kStride) {
    const kelvo::SimulatedTrack made = simulator.Make(track);
    sample.Add(fitter.Fit(made.Hits()), 0, made.fMomentum.Mag());
  }
  const double more = std::sqrt(static_cast<double>(kStride));
  EXPECT_GE(sample.Fraction(sample.fLeft), 0.98);
  EXPECT_NEAR(sample.Fraction(sample.fHeld), 0.69, 0.1 * more);
  EXPECT_NEAR(Quantile(sample.fRatio, 0.5), 1, 0.06 * more);
  EXPECT_NEAR(HalfWidth(sample.fPull), 1, 0.2 * more);
}

/// Samples of Geant4's of a detector, long tracks alone.
Sample Fit(const std::string& detector, const std::vector<std::string>& names,
           const std::string& hits, std::size_t least, std::size_t h = 0) {
  TrackFitter fitter(BundledDetector(detector));
  Sample sample;
  for (const std::string& name : names) {
    const std::vector<Geant4Track> tracks =
        kelvo::test::ReadGeant4(detector + "_" + name, hits, kelvo::test::LeavingFolder());
    for (std::size_t i = 0; i < tracks.size(); i += kStride)
      if (tracks[i].fTruth.size() >= least)
        sample.Add(fitter.Fit(tracks[i].fHits), h, tracks[i].fP);
  }
  return sample;
}

bool HasSamples() {
  return std::filesystem::exists(kelvo::test::LeavingFolder());
}

struct Detector {
  const char* fName;
  std::vector<std::string> fLeaving;
  std::size_t fLong; // hits
};
const Detector kDetectors[] = {
    {"fine", {"mu_leave_0.7", "mu_leave_1.5", "mu_leave_3", "mu_leave_6"}, 50},
    {"range", {"mu_leave_1.5", "mu_leave_2.5", "mu_leave_4", "mu_leave_8"}, 36}};

TEST(TrackFitterEnd, MuonsOfGeant4ThatLeaveAreFlaggedAndFewOthers) {
  if (!HasSamples()) GTEST_SKIP();
  for (const Detector& detector : kDetectors)
    for (const char* hits : {"cell", "smeared"}) {
      const Sample leaving = Fit(detector.fName, detector.fLeaving, hits, 0);
      const Sample stopping = Fit(detector.fName, {"mu_stop"}, hits, 0);
      EXPECT_GE(leaving.Fraction(leaving.fLeft), 0.98) << detector.fName << ' ' << hits;
      EXPECT_LE(stopping.Fraction(stopping.fLeft), kStride > 1 ? 0.08 : 0.03)
          << detector.fName << ' ' << hits;
    }
}

TEST(TrackFitterEnd, MomentaFromScatteringOfGeant4sLongTracksAreRight) {
  if (!HasSamples()) GTEST_SKIP();
  for (const Detector& detector : kDetectors) {
    const Sample sample = Fit(detector.fName, detector.fLeaving, "smeared", detector.fLong);
    const double more = std::sqrt(static_cast<double>(kStride));
    EXPECT_NEAR(Quantile(sample.fRatio, 0.5), 1, 0.05 * more) << detector.fName;
    EXPECT_NEAR(HalfWidth(sample.fPull), 0.92, 0.13 * more) << detector.fName;
    EXPECT_NEAR(sample.Fraction(sample.fHeld), 0.67, 0.07 * more) << detector.fName;
  }
}

TEST(TrackFitterEnd, IntervalsOfCellsHoldTheTruthAsOften) {
  if (!HasSamples()) GTEST_SKIP();
  for (const Detector& detector : kDetectors) {
    const Sample sample = Fit(detector.fName, detector.fLeaving, "cell", 14);
    EXPECT_NEAR(sample.Fraction(sample.fHeld), 0.67, 0.05 * std::sqrt(static_cast<double>(kStride)))
        << detector.fName;
  }
}

TEST(TrackFitterEnd, TheEndTellsLeavingFromStoppingWithoutTheDistance) {
  if (!HasSamples()) GTEST_SKIP();
  const double more = kStride > 1 ? 0.1 : 0;
  for (const Detector& detector : kDetectors) {
    const Sample fast = Fit(detector.fName, {detector.fLeaving.back()}, "smeared", 0);
    const Sample stopping = Fit(detector.fName, {"mu_stop"}, "smeared", 0);
    EXPECT_GE(fast.Fraction(fast.fFree), 0.97 - more) << detector.fName;
    EXPECT_LE(stopping.Fraction(stopping.fFree), 0.08 + more) << detector.fName;
  }
}

TEST(TrackFitterEnd, TheProbabilityOfTheScatteringIsFlatForTheRightParticle) {
  if (!HasSamples()) GTEST_SKIP();
  const double more = std::sqrt(static_cast<double>(kStride));
  const char* const particles[] = {"mu_stop", "pi_stop", "p_stop"};
  for (const Detector& detector : kDetectors)
    for (std::size_t h = 0; h < 3; h++) {
      const Sample sample = Fit(detector.fName, {particles[h]}, "smeared", 0, h);
      EXPECT_NEAR(sample.Fraction(sample.fUnlikely), 0.49, 0.07 * more)
          << detector.fName << ' ' << particles[h];
    }
  const Sample protons = Fit("fine", {"p_stop"}, "smeared", 0, 0);
  EXPECT_GE(protons.Fraction(protons.fUnlikely), 0.85); // as muons
}

} // namespace
