// The fit's uncertainties on simulated tracks with known truth. Where the tracks scatter as the fit
// assumes, pulls must be 1 wide and chi-square probabilities flat within their statistical errors;
// with the full multiple scattering, docs/simulation.md tells what comes out, and bounds hold it.

#include "sim/Simulator.h"
#include "test/support/BundledDetector.h"
#include "track/TrackFitter.h"

#include <TMath.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using kelvo::HypothesisFit;
using kelvo::SimulatedTrack;
using kelvo::SimulationOptions;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kExactTracks = 1000, kTracks = 500;
#else
constexpr int kExactTracks = 20'000, kTracks = 3000;
#endif
constexpr double kErrors = 4; // standard errors that a mean or a width may be off; fixed seeds
constexpr double kMinProbability = 1e-3; // of a Kolmogorov-Smirnov test

/// Mean and width of pulls, with their statistical errors. The pulls of one track depend on each
/// other, so tracks are what is counted: for a ratio of sums, the error of A/N follows from the
/// scatter of A - N (A/N) from track to track (W. G. Cochran, Sampling Techniques, section 6.4).
class Pulls {
public:
  void AddTrack(const std::vector<double>& pulls) {
    Sums sums{static_cast<double>(pulls.size()), 0, 0};
    for (const double pull : pulls) {
      sums.fX += pull;
      sums.fX2 += pull * pull;
    }
    fTracks.push_back(sums);
  }

  double Mean() const { return Sum(&Sums::fX) / Sum(&Sums::fN); }
  double Width() const { return std::sqrt(Square() - Mean() * Mean()); }
  double MeanError() const { return Error(&Sums::fX, Mean()); }
  double WidthError() const { return Error(&Sums::fX2, Square()) / (2 * Width()); }

  void ExpectUnit(const char* name) const {
    EXPECT_NEAR(Mean(), 0, kErrors * MeanError()) << name;
    EXPECT_NEAR(Width(), 1, kErrors * WidthError()) << name;
  }

private:
  struct Sums {
    double fN, fX, fX2;
  };

  double Square() const { return Sum(&Sums::fX2) / Sum(&Sums::fN); }

  double Sum(double Sums::*member) const {
    double sum = 0;
    for (const Sums& track : fTracks) sum += track.*member;
    return sum;
  }

  double Error(double Sums::*member, double ratio) const {
    double sum = 0;
    for (const Sums& track : fTracks) {
      const double off = track.*member - ratio * track.fN;
      sum += off * off;
    }
    return std::sqrt(sum) / Sum(&Sums::fN);
  }

  std::vector<Sums> fTracks;
};

/// What is looked at in the fits of a sample.
struct Sample {
  Pulls fX, fY, fUX, fUY; // at the first hit
  Pulls fP;               // momentum there
  Pulls fMiddle, fLast;   // positions at these hits
  Pulls fHits;            // positions at all hits
  Pulls fResiduals;
  std::vector<double> fProb, fProbX, fProbY;
  std::vector<double> fMomentum; // fitted over true
  int fLost = 0;

  void Add(const SimulatedTrack& track, const HypothesisFit& fit) {
    if (fit.fStatus != kelvo::FitStatus::kFitted) {
      fLost++;
      return;
    }
    const TVector3 direction = track.fMomentum.Unit();
    fX.AddTrack({(fit.fPosition.X() - track.fStart.X()) / std::sqrt(fit.fCov[0])});
    fY.AddTrack({(fit.fPosition.Y() - track.fStart.Y()) / std::sqrt(fit.fCov[4])});
    fUX.AddTrack({(fit.fDirection.X() - direction.X()) / std::sqrt(fit.fCov[7])});
    fUY.AddTrack({(fit.fDirection.Y() - direction.Y()) / std::sqrt(fit.fCov[9])});
    fP.AddTrack({(fit.fP - track.fMomentum.Mag()) / fit.fSigP});
    std::vector<double> positions, residuals;
    for (std::size_t i = 0; i < fit.fHit.size(); i++) {
      const kelvo::HitFit& hit = fit.fHit[i];
      positions.push_back((hit.fFitU - track.fHits[i].fTrue[hit.fView]) / hit.fFitSigU);
      residuals.push_back(hit.fPull);
    }
    fMiddle.AddTrack({positions[positions.size() / 2]});
    fLast.AddTrack({positions.back()});
    fHits.AddTrack(positions);
    fResiduals.AddTrack(residuals);
    fProb.push_back(fit.fProb);
    fProbX.push_back(fit.fView[0].fProb);
    fProbY.push_back(fit.fView[1].fProb);
    fMomentum.push_back(fit.fP / track.fMomentum.Mag());
  }
};

/// Simulates and fits under the true hypothesis. Two threads make the tracks, in turn.
Sample Fitted(const geo::PlaneDetector& detector, const SimulationOptions& options, int tracks,
              double factor) {
  kelvo::TrackFitOptions fitting = options.fFit;
  fitting.fHypotheses = {options.fPDG};
  fitting.fScatteringFactor = factor;
  fitting.fBeamMomentum = options.fBeamMomentum;
  fitting.fSigBeamMomentum = options.fSigBeamMomentum;
  fitting.fEnd = kelvo::TrackEndMode::kStops;
  const auto count = static_cast<std::size_t>(tracks);
  std::vector<SimulatedTrack> truth(count);
  std::vector<HypothesisFit> fits(count);
  const auto work = [&](std::size_t first) {
    kelvo::Simulator simulator(detector, options);
    kelvo::TrackFitter fitter(detector, fitting);
    for (std::size_t i = first; i < count; i += 2) {
      truth[i] = simulator.Make(static_cast<long long>(i));
      fits[i] = fitter.Fit(truth[i].Hits()).fHypothesis.front();
    }
  };
  std::thread other(work, 1);
  work(0);
  other.join();
  Sample sample;
  for (std::size_t i = 0; i < count; i++) sample.Add(truth[i], fits[i]);
  return sample;
}

SimulationOptions Muons(kelvo::ScatteringModel model, double maxT) {
  SimulationOptions options;
  options.fKineticEnergy = {0.3, maxT};
  options.fScattering = model;
  options.fHits = kelvo::HitModel::kGaussian;
  return options;
}

double KolmogorovProbability(std::vector<double> x) {
  std::sort(x.begin(), x.end());
  const double n = static_cast<double>(x.size());
  double distance = 0;
  for (std::size_t i = 0; i < x.size(); i++) {
    const double below = static_cast<double>(i) / n;
    distance = std::max({distance, std::abs(x[i] - below), std::abs(x[i] - below - 1 / n)});
  }
  return TMath::KolmogorovProb(distance * std::sqrt(n));
}

double Median(std::vector<double> x) {
  const auto middle = x.begin() + static_cast<std::ptrdiff_t>(x.size() / 2);
  std::nth_element(x.begin(), middle, x.end());
  return *middle;
}

void ExpectFlat(const Sample& sample) {
  EXPECT_GT(KolmogorovProbability(sample.fProb), kMinProbability);
  EXPECT_GT(KolmogorovProbability(sample.fProbX), kMinProbability);
  EXPECT_GT(KolmogorovProbability(sample.fProbY), kMinProbability);
}

void ExpectUnitAtFirstHit(const Sample& sample) {
  sample.fX.ExpectUnit("x");
  sample.fY.ExpectUnit("y");
  sample.fUX.ExpectUnit("ux");
  sample.fUY.ExpectUnit("uy");
}

void ExpectMomentum(const Sample& sample, double tolerance) {
  EXPECT_EQ(sample.fLost, 0);
  EXPECT_NEAR(Median(sample.fMomentum), 1, tolerance);
  double sum = 0;
  for (const double ratio : sample.fMomentum) sum += ratio;
  EXPECT_NEAR(sum / static_cast<double>(sample.fMomentum.size()), 1, tolerance);
}

// Here nothing stands between the fit and its assumptions: layers without cell walls, so that the
// material does not depend on a track's place, and tracks that do not get to the sides, where those
// with small kinks would be preferred.
TEST(SimulatedFit, IsExactWhereTracksAreWhatItAssumes) {
  const auto& detector = BundledDetector("range");
  SimulationOptions options = Muons(kelvo::ScatteringModel::kFit, 2);
  options.fSlope = 0.1;
  options.fStart[0] = options.fStart[1] = {{-50, 50}};
  const Sample sample = Fitted(detector, options, kExactTracks, options.fFit.fScatteringFactor);
  ExpectUnitAtFirstHit(sample);
  sample.fMiddle.ExpectUnit("middle hit");
  sample.fLast.ExpectUnit("last hit");
  sample.fHits.ExpectUnit("all hits");
  sample.fResiduals.ExpectUnit("residuals");
  ExpectFlat(sample);
  ExpectMomentum(sample, 0.01);
}

// With oblique tracks through cell walls, the fit of a measured track finds more or less wall than
// that of the true one.
// The positions of hits feel it by half a percent of their uncertainty.
TEST(SimulatedFit, HoldsWithItsDefaultsInBothDetectors) {
  for (const std::string name : {"fine", "range"}) {
    SCOPED_TRACE(name);
    const auto& detector = BundledDetector(name);
    const SimulationOptions options =
        Muons(kelvo::ScatteringModel::kFit, name == "fine" ? 1.6 : 2.);
    const Sample sample = Fitted(detector, options, kTracks, options.fFit.fScatteringFactor);
    ExpectUnitAtFirstHit(sample);
    ExpectFlat(sample);
    EXPECT_NEAR(sample.fHits.Mean(), 0, kErrors * sample.fHits.MeanError());
    EXPECT_NEAR(sample.fHits.Width(), 1, 0.005 + kErrors * sample.fHits.WidthError());
    ExpectMomentum(sample, 0.01);
  }
}

TEST(SimulatedFit, FullScatteringHasTheWidthThatTheDefaultFactorAssumes) {
  for (const std::string name : {"fine", "range"}) {
    SCOPED_TRACE(name);
    const auto& detector = BundledDetector(name);
    const SimulationOptions options =
        Muons(kelvo::ScatteringModel::kFull, name == "fine" ? 1.6 : 2.);
    const Sample sample = Fitted(detector, options, kTracks / 4, std::sqrt(3.));
    for (const Pulls* pulls : {&sample.fX, &sample.fY, &sample.fUX, &sample.fUY})
      EXPECT_NEAR(pulls->Width(), 1, 0.02 + kErrors * pulls->WidthError());
    ExpectMomentum(sample, 0.01);
  }
}

/// A beam that scatters in small steps, measured with a Gaussian error.
SimulationOptions Beam(int pdg, double momentum, double sigma) {
  SimulationOptions options;
  options.fPDG = pdg;
  options.fBeamMomentum = momentum;
  options.fSigma = sigma;
  options.fHits = kelvo::HitModel::kGaussian;
  options.fSpot = 0.1;
  return options;
}

/// All that can be compared has pulls of width 1, and chi-square is what it should be.
void ExpectRightUncertainties(const Sample& sample) {
  EXPECT_EQ(sample.fLost, 0);
  ExpectUnitAtFirstHit(sample);
  sample.fMiddle.ExpectUnit("middle hit");
  sample.fLast.ExpectUnit("last hit");
  sample.fHits.ExpectUnit("all hits");
  sample.fResiduals.ExpectUnit("residuals");
  ExpectFlat(sample);
}

// From where scattering in a sensor is ten times its resolution to where it is next to nothing.
TEST(SimulatedFit, BeamsThroughATelescopeHaveRightUncertainties) {
  for (const double momentum : {0.5, 3., 120.}) {
    SCOPED_TRACE(momentum);
    SimulationOptions options = Beam(211, momentum, 0.0015);
    options.fSlope = 0.01;
    options.fSigBeamMomentum = 0.02 * momentum;
    const Sample sample =
        Fitted(BundledDetector("telescope"), options, kTracks, options.fFit.fScatteringFactor);
    ExpectRightUncertainties(sample);
    sample.fP.ExpectUnit("p");
  }
}

/// Planes of pixels with scatterers between them, in air.
geo::PlaneDetector Stack(const std::string& sensor, double depth, const std::string& parts) {
  std::ostringstream text;
  text << R"(
name = "stack"
world = "Air"
[[material]]
name = "Air"
like = "Air"
[[material]]
name = "Steel"
like = "Fe"
[[material]]
name = "sensor"
)" << sensor
       << R"(
[[plane]]
name = "plane"
view = "XY"
count = [100, 100]
filling = "sensor"
cell = { width = [0.1, 0.1], depth = )"
       << depth << R"( }
[[slab]]
name = "block"
material = "Steel"
size = [10, 10]
thickness = 2
[[slab]]
name = "plate"
material = "Steel"
size = [10, 10]
thickness = 0.1
[[stack]]
)" << parts;
  return geo::PlaneDetector::FromText(text.str(), "stack.toml");
}

// More than a radiation length in one gap, which scatters a hundred times the resolution away.
TEST(SimulatedFit, HoldsForTwoCentimetresOfSteelBetweenSiliconPlanes) {
  const auto detector =
      Stack("like = \"Si\"", 0.03,
            "parts = [\"plane\", 2, \"plane\", 2, \"plane\", 2, \"block\", 2, \"plane\", 2, "
            "\"plane\", 2, \"plane\"]");
  for (const double momentum : {1., 5.}) {
    SCOPED_TRACE(momentum);
    SimulationOptions options = Beam(13, momentum, 0.001);
    options.fStep = 0.2; // one turn per step is no Gaussian shift
    ExpectRightUncertainties(Fitted(detector, options, kTracks, options.fFit.fScatteringFactor));
  }
}

TEST(SimulatedFit, HoldsForFilmsOfAThirdOfAMicrometreBetweenMillimetresOfSteel) {
  const auto detector = Stack("formula = \"AgBr\"\ndensity = 2.4", 0.03,
                              "repeat = 30\nparts = [\"plane\", \"plate\"]");
  for (const double momentum : {1., 5.}) {
    SCOPED_TRACE(momentum);
    SimulationOptions options = Beam(211, momentum, 3e-5);
    options.fStep = 0.02;
    ExpectRightUncertainties(Fitted(detector, options, kTracks, options.fFit.fScatteringFactor));
  }
}

TEST(SimulatedFit, FactorOneIsTooNarrowForTheFullScattering) {
  const auto& detector = BundledDetector("range");
  const SimulationOptions options = Muons(kelvo::ScatteringModel::kFull, 2);
  const Sample sample = Fitted(detector, options, kTracks / 4, 1);
  EXPECT_NEAR(sample.fUX.Width(), 1.56, 0.02 + kErrors * sample.fUX.WidthError());
  EXPECT_NEAR(sample.fX.Width(), 1.18, 0.02 + kErrors * sample.fX.WidthError());
  ExpectMomentum(sample, 0.01);
}

} // namespace
