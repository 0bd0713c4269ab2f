// Fits of tracks with wild hits: against the fit without these hits, against robust fits of single
// views by KinkSmoother, and against the truth of simulated tracks.

#include "fit/RobustFit.h"
#include "sim/Simulator.h"
#include "track/TrackFitter.h"

#include "test/support/BlockTracks.h"
#include "test/support/BundledDetector.h"
#include "test/support/Geant4Sample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

using kelvo::FitStatus;
using kelvo::Hit3D;
using kelvo::HitFit;
using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::KinkSmoother;
using kelvo::OutlierMode;
using kelvo::RobustWeight;
using kelvo::SimulatedTrack;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;
using kelvo::test::Geant4Track;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStride = 10; // their programs are slow
#else
constexpr std::size_t kStride = 1;
#endif

constexpr double kWild = 0.1;              // fraction of the hits
constexpr double kMuonMass = 0.1056583755; // GeV

TrackFitOptions Robust(OutlierMode mode) {
  TrackFitOptions options;
  options.fRobust = mode;
  return options;
}

TrackFitOptions Reject(double pull) {
  TrackFitOptions options;
  options.fReject = pull;
  return options;
}

double Quantile(std::vector<double> values, double fraction) {
  const auto k = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size()));
  std::nth_element(values.begin(), values.begin() + k, values.end());
  return values[static_cast<std::size_t>(k)];
}

/// Half the width of the interval that holds the central 68% of the values.
double HalfWidth(const std::vector<double>& values) {
  return (Quantile(values, 0.8413) - Quantile(values, 0.1587)) / 2;
}

/// A track through the block, with the hits 4, 9, 14, ... moved by 5 to 50 standard deviations.
HitList3D WithWildHits(int n) {
  return Hits({3, -2, 0.2, -0.1}, n, [](int i) {
    return i % 5 == 4 ? (i % 2 ? -1 : 1) * kSigma * (5 + 3. * (i % 16)) : Wiggle(i);
  });
}

TEST(TrackFitterOutliers, RejectedHitsLeaveTheFitOfTheOthers) {
  const HitList3D hits = WithWildHits(40);
  TrackFitter rejecting(Block(), Reject(4)), plain(Block());
  const TrackFit fit = rejecting.Fit(hits);
  EXPECT_EQ(fit.fOutliers, 8u);
  HitList3D good;
  for (std::size_t i = 0; i < hits.size(); i++)
    if (i % 5 != 4) good.push_back(hits[i]);
  const TrackFit expected = plain.Fit(good);
  for (std::size_t h = 0; h < fit.fHypothesis.size(); h++) {
    const HypothesisFit& a = fit.fHypothesis[h];
    const HypothesisFit& b = expected.fHypothesis[h];
    EXPECT_EQ(a.fP, b.fP);
    EXPECT_EQ(a.fLogLikelihood, b.fLogLikelihood);
    EXPECT_EQ(a.fCov, b.fCov);
    EXPECT_EQ(a.fNDF, b.fNDF);
    EXPECT_EQ(a.fScattering.fP, b.fScattering.fP);
    ASSERT_EQ(a.fHit.size(), hits.size());
    for (std::size_t i = 0, k = 0; i < hits.size(); i++) {
      const HitFit& hit = a.fHit[i];
      EXPECT_EQ(hit.fZ, hits[i].fZ);
      EXPECT_EQ(hit.fWeight, i % 5 == 4 ? 0 : 1);
      if (i % 5 == 4) continue;
      EXPECT_EQ(hit.fFitU, b.fHit[k++].fFitU);
    }
  }
}

/// A hit of hardly any weight is as good as left out, so its fit tells where the others have it.
TEST(TrackFitterOutliers, RejectedHitsAreComparedWithTheFitOfTheOthers) {
  HitList3D hits = WithWildHits(40);
  TrackFitOptions options = Reject(4);
  options.fBeamMomentum = 20; // material and widths do not depend on the hits
  options.fHypotheses = {13};
  const HypothesisFit rejecting = TrackFitter(Block(), options).Fit(hits).fHypothesis[0];
  options.fReject = 0;
  for (std::size_t i = 4; i < hits.size(); i += 5) {
    hits[i].fX = hits[i].fSigX > 0 ? rejecting.fHit[i].fFitU : kNaN;
    hits[i].fY = hits[i].fSigY > 0 ? rejecting.fHit[i].fFitU : kNaN;
    (hits[i].fSigX > 0 ? hits[i].fSigX : hits[i].fSigY) = 1e3;
  }
  const HypothesisFit faint = TrackFitter(Block(), options).Fit(hits).fHypothesis[0];
  for (std::size_t i = 4; i < hits.size(); i += 5) {
    const HitFit& hit = rejecting.fHit[i];
    const double sig = std::hypot(kSigma, hit.fFitSigU);
    EXPECT_NEAR(faint.fHit[i].fFitU, hit.fFitU, 0.01 * hit.fFitSigU);
    EXPECT_NEAR(faint.fHit[i].fFitSigU / hit.fFitSigU, 1, 0.02);
    EXPECT_NEAR(faint.fHit[i].fFitSlope, hit.fFitSlope, 0.03 * hit.fFitSigSlope);
    EXPECT_NEAR(hit.fResidual, hit.fU - hit.fFitU, kRounding);
    EXPECT_NEAR(hit.fPull, hit.fResidual / sig, kRounding);
    EXPECT_EQ(hit.fUnbiased, hit.fResidual);
    EXPECT_NEAR(hit.fSigUnbiased, sig, kRounding);
  }
}

/// Returns the robust fit of one view with the planes of another fit.
KinkSmoother FittedView(const HypothesisFit& fit, int view, RobustWeight weight) {
  std::vector<double> z, u, sig, s, width;
  for (const HitFit& hit : fit.fHit) {
    if (hit.fView != view) continue;
    z.push_back(hit.fZ);
    u.push_back(hit.fU);
    sig.push_back(hit.fSigU);
  }
  for (std::size_t j = 0; j < fit.fPlaneS.size(); j++) {
    s.push_back(fit.fPlanePoint[j].Z());
    width.push_back(fit.fPlaneSigAlpha[j]);
  }
  KinkSmoother smoother(1, 0);
  smoother.Load(static_cast<unsigned>(z.size()), z.data(), u.data(), sig.data(),
                static_cast<unsigned>(s.size()), s.data(), width.data());
  kelvo::RobustOptions options;
  options.fWeight = weight;
  EXPECT_TRUE(FitRobustly(smoother, options).fConverged);
  return smoother;
}

TEST(TrackFitterOutliers, WeightsOfABeamAreThoseOfRobustFitsOfItsViews) {
  constexpr double kSame = 0.01; // weights change by less than 0.001 in the last step of either
  for (const auto& [mode, weight] : {std::pair(OutlierMode::kHuber, RobustWeight::kHuber),
                                     std::pair(OutlierMode::kTukey, RobustWeight::kTukey),
                                     std::pair(OutlierMode::kCauchy, RobustWeight::kCauchy)}) {
    TrackFitOptions options = Robust(mode);
    options.fBeamMomentum = 20;
    options.fHypotheses = {13};
    options.fWithPlanes = true;
    // Along z, so that the angle of a kink is the change of the slope.
    const HitList3D hits =
        Hits({3, -2, 0, 0}, 30, [](int i) { return i % 7 == 3 ? 9 * kSigma : Wiggle(i); });
    const TrackFit track = TrackFitter(Block(), options).Fit(hits);
    const HypothesisFit& fit = track.fHypothesis[0];
    ASSERT_EQ(fit.fStatus, FitStatus::kFitted) << fit.fMessage;
    EXPECT_EQ(track.fOutliers, 4u);
    for (int view : {0, 1}) {
      const KinkSmoother reference = FittedView(fit, view, weight);
      unsigned int i = 0;
      for (const HitFit& hit : fit.fHit) {
        if (hit.fView != view) continue;
        EXPECT_NEAR(hit.fWeight, reference.WeightFactor(i), kSame);
        EXPECT_NEAR(hit.fPull, reference.Residual(i).fPull, 0.02);
        EXPECT_NEAR(hit.fUnbiased, reference.Residual(i).fUnbiased, 0.02 * kSigma);
        EXPECT_NEAR(hit.fSigUnbiased, std::sqrt(reference.Residual(i).fVarUnbiased), 0.02 * kSigma);
        EXPECT_NEAR(hit.fFitSigU, std::sqrt(reference.At(hit.fZ).fVarX), 0.02 * kSigma);
        i++;
      }
    }
  }
}

TEST(TrackFitterOutliers, HitsThatTheTrackCannotDoWithoutStay) {
  HitList3D hits;
  for (int i : {0, 1}) {
    AddX(hits, 10. * i, 50 + 50. * i);
    AddY(hits, -20. * i, 56 + 50. * i);
  }
  TrackFitter rejecting(Block(), Reject(2)), plain(Block());
  const TrackFit fit = rejecting.Fit(hits);
  EXPECT_EQ(fit.fOutliers, 0u);
  ExpectSameNumbers(fit.fHypothesis[0], plain.Fit(hits).fHypothesis[0]);
  const HitFit& hit = fit.fHypothesis[0].fHit[0];
  EXPECT_EQ(hit.fUnbiased, 0);
  EXPECT_TRUE(std::isinf(hit.fSigUnbiased));
}

TEST(TrackFitterOutliers, AFitThatCannotTellWhichHitsAreRightSaysHowManyItLeftOut) {
  HitList3D hits;
  for (int i = 0; i < 4; i++) AddX(hits, i % 2 ? 40 : -40, 50 + 20. * i);
  for (int i = 0; i < 4; i++) AddY(hits, 1, 56 + 20. * i);
  const HypothesisFit fit =
      TrackFitter(Block(), Robust(OutlierMode::kTukey)).Fit(hits).fHypothesis[0];
  EXPECT_EQ(fit.fStatus, FitStatus::kTooFewHits);
  EXPECT_EQ(fit.fMessage,
            "view X has 0 hits; a fit needs two or more in each view (4 are left out)");
}

TEST(TrackFitterOutliers, OptionsOutOfRangeAreRefused) {
  const auto text = [](const TrackFitOptions& options) -> std::string {
    try {
      const TrackFitter fitter(Block(), options);
      return "no error";
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
  };
  EXPECT_EQ(text(Reject(1.5)),
            "fReject is 1.5; it must be 0 (no hit is taken out) or between 2 and 1e+06");
  EXPECT_EQ(text(Reject(kNaN)),
            "fReject is nan; it must be 0 (no hit is taken out) or between 2 and 1e+06");
  TrackFitOptions both = Reject(4);
  both.fRobust = OutlierMode::kHuber;
  EXPECT_EQ(text(both),
            "fRobust and fReject are both set; outliers either count less or are taken out");
  EXPECT_THROW(kelvo::OutlierModeOf("median"), std::invalid_argument);
  for (const OutlierMode mode :
       {OutlierMode::kKeep, OutlierMode::kHuber, OutlierMode::kTukey, OutlierMode::kCauchy})
    EXPECT_EQ(kelvo::OutlierModeOf(kelvo::OutlierModeName(mode)), mode);
}

/// What fits of tracks with wild hits have in common.
struct Outcome {
  std::size_t fTracks = 0, fLost = 0, fWild = 0, fFound = 0, fGood = 0, fTaken = 0;
  std::vector<double> fMomenta; // fitted over true, at the first hit in use
  std::vector<double> fPullU;   // of the fitted coordinates at all hits
  std::vector<double> fPullSlope;

  double Found() const { return static_cast<double>(fFound) / static_cast<double>(fWild); }
  double Mistaken() const { return static_cast<double>(fTaken) / static_cast<double>(fGood); }
};

/// Puts a tenth of the hits somewhere on the face of the detector.
std::vector<bool> MakeWild(std::mt19937_64& random, HitList3D& hits) {
  std::uniform_real_distribution<double> uniform;
  std::vector<bool> isWild;
  for (Hit3D& hit : hits) {
    isWild.push_back(uniform(random) < kWild);
    if (isWild.back()) (hit.fView == geo::kX ? hit.fX : hit.fY) = 140 * uniform(random) - 70;
  }
  return isWild;
}

/// The truth at a hit.
struct Truth {
  double fU, fSlope, fP;
};

double Momentum(double T) {
  return std::sqrt(T * (T + 2 * kMuonMass));
}

/// @param truthAt gives the Truth at hit i
template <class TruthAt>
void AddOutcome(const std::vector<bool>& isWild, const HypothesisFit& fit, TruthAt truthAt,
                Outcome& out) {
  out.fTracks++;
  if (fit.fStatus != FitStatus::kFitted) {
    out.fLost++;
    return;
  }
  bool atStart = true;
  for (std::size_t i = 0; i < fit.fHit.size(); i++) {
    const HitFit& hit = fit.fHit[i];
    const Truth truth = truthAt(i);
    out.fPullU.push_back((hit.fFitU - truth.fU) / hit.fFitSigU);
    out.fPullSlope.push_back((hit.fFitSlope - truth.fSlope) / hit.fFitSigSlope);
    if (atStart && hit.fZ == fit.fPosition.Z()) {
      out.fMomenta.push_back(fit.fP / truth.fP);
      atStart = false;
    }
    (isWild[i] ? out.fWild : out.fGood)++;
    if (hit.fWeight < 0.5) (isWild[i] ? out.fFound : out.fTaken)++;
  }
}

void ExpectRight(const Outcome& outcome, double bias) {
  EXPECT_LE(outcome.fLost, outcome.fTracks / 500); // too few hits remain of a short track
  EXPECT_NEAR(Quantile(outcome.fMomenta, 0.5), 1, bias);
  EXPECT_NEAR(HalfWidth(outcome.fPullU), 1, 0.05);
  EXPECT_NEAR(HalfWidth(outcome.fPullSlope), 1, 0.05);
  EXPECT_GT(outcome.Found(), 0.95); // some lie on the track
  EXPECT_LT(outcome.Mistaken(), 0.02);
}

TEST(TrackFitterOutliers, TheTruthOfSimulatedTracksIsFoundAmongWildHits) {
  kelvo::SimulationOptions simulation;
  simulation.fKineticEnergy = {0.4, 1.2};
  simulation.fHits = kelvo::HitModel::kGaussian;
  simulation.fSigma = 0.5;
  simulation.fScattering = kelvo::ScatteringModel::kFit;
  const geo::PlaneDetector& detector = BundledDetector("fine");
  kelvo::Simulator simulator(detector, simulation);
  for (TrackFitOptions options :
       {Robust(OutlierMode::kTukey), Robust(OutlierMode::kCauchy), Reject(4)}) {
    SCOPED_TRACE(kelvo::OutlierModeName(options.fRobust));
    options.fEnd = kelvo::TrackEndMode::kStops;
    options.fScatteringFactor = simulation.fFit.fScatteringFactor;
    options.fScatteringMomentum = false;
    TrackFitter fitter(detector, options);
    std::mt19937_64 random(5);
    Outcome outcome;
    for (std::size_t t = 0; t < 400; t += kStride) {
      const SimulatedTrack track = simulator.Make(static_cast<long long>(t));
      HitList3D hits = track.Hits();
      const std::vector<bool> isWild = MakeWild(random, hits);
      const TrackFit fit = fitter.Fit(hits);
      const auto truthAt = [&track](std::size_t i) {
        const kelvo::SimulatedHit& hit = track.fHits[i];
        return Truth{hit.fTrue[hit.fView], hit.fSlope[hit.fView], Momentum(hit.fT)};
      };
      AddOutcome(isWild, fit.fHypothesis[0], truthAt, outcome);
    }
    ExpectRight(outcome, 0.01);
  }
}

TEST(TrackFitterOutliers, TheTruthOfGeant4sTracksIsFoundAmongWildHits) {
  if (!std::filesystem::exists(kelvo::test::Geant4Folder()))
    GTEST_SKIP() << "no simulated tracks in " << kelvo::test::Geant4Folder()
                 << "; set KELVO_SHARED_DATA to the shared folder";
  const geo::PlaneDetector& detector = BundledDetector("fine");
  const std::vector<Geant4Track> tracks = kelvo::test::ReadGeant4("fine_mu", "smeared");
  for (TrackFitOptions options :
       {Robust(OutlierMode::kTukey), Robust(OutlierMode::kCauchy), Reject(4)}) {
    SCOPED_TRACE(kelvo::OutlierModeName(options.fRobust));
    options.fEnd = kelvo::TrackEndMode::kStops;
    options.fScatteringMomentum = false;
    TrackFitter fitter(detector, options);
    std::mt19937_64 random(1);
    Outcome outcome;
    for (std::size_t t = 0; t < tracks.size(); t += 3 * kStride) {
      HitList3D hits = tracks[t].fHits;
      const std::vector<bool> isWild = MakeWild(random, hits);
      const HypothesisFit fit = fitter.Fit(hits).fHypothesis[0];
      const auto truthAt = [&](std::size_t i) {
        const Geant4Track::Point& truth = tracks[t].fTruth[i];
        const bool isX = fit.fHit[i].fView == 0;
        return Truth{isX ? truth.fX : truth.fY, isX ? truth.fDxDz : truth.fDyDz,
                     Momentum(truth.fT)};
      };
      AddOutcome(isWild, fit, truthAt, outcome);
    }
    ExpectRight(outcome, 0.01);
  }
}

} // namespace
