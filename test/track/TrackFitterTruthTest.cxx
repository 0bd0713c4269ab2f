#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "test/support/BundledDetector.h"
#include "test/support/Geant4Sample.h"
#include "test/support/TestGeometry.h"
#include "track/TrackFitter.h"

// Statistics of fits against simulated truth: tracks bent by the fit's own model, for which pulls
// have width 1 and probabilities are flat, and tracks made by Geant4 (the folder of the shared
// data, see Geant4Folder; skipped where it is absent), for which bounds are stated.

namespace {

using kelvo::HitFit;
using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;
using kelvo::test::Geant4Track;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStride = 10; // their programs are slow
#else
constexpr std::size_t kStride = 1;
#endif

/// Mean and width of numbers that should have mean 0 and width 1.
struct Pulls {
  double fSum = 0, fSum2 = 0;
  int fN = 0;

  void Add(double pull) {
    fSum += pull;
    fSum2 += pull * pull;
    fN++;
  }
  double Mean() const { return fSum / fN; }
  double Width() const { return std::sqrt(fSum2 / fN - Mean() * Mean()); }
};

void ExpectStandard(const Pulls& pulls, const std::string& name) {
  constexpr double kDeviations = 4.5; // a hundred such checks are made
  EXPECT_NEAR(pulls.Mean(), 0, kDeviations / std::sqrt(pulls.fN)) << name;
  EXPECT_NEAR(pulls.Width(), 1, kDeviations / std::sqrt(2. * pulls.fN)) << name;
}

/// Tracks through a block of scintillator whose bends and hits follow the fit's own model.
class OwnModel {
public:
  OwnModel() : fFitter(fBlock, Options()) {
    // A straight track shows where the fit has its planes, and how wide.
    HitList3D hits;
    for (int i = 0; i < kHits; i++)
      AddHit(i, kPoint + (Z(i) - kPoint.Z()) / kAxis.Z() * kAxis, 0, hits);
    fModel = fFitter.Fit(hits).fHypothesis.at(0);
  }

  /// Makes a track and fits it; At then tells the truth at a hit.
  HypothesisFit Next(std::mt19937_64& random) {
    std::normal_distribution<double> gauss;
    const TVector3 e1 = kAxis.Orthogonal().Unit(), e2 = kAxis.Cross(e1);
    fLine = {{0, kPoint, kAxis}};
    for (std::size_t j = 0; j < fModel.fPlaneS.size(); j++) {
      Piece piece = fLine.back();
      piece.fPoint += (fModel.fPlaneS[j] - piece.fS) * piece.fTangent;
      piece.fS = fModel.fPlaneS[j];
      piece.fTangent += fModel.fPlaneSigAlpha[j] * (gauss(random) * e1 + gauss(random) * e2);
      fLine.push_back(piece);
    }
    HitList3D hits;
    for (int i = 0; i < kHits; i++) AddHit(i, At(Z(i)), kSigma * gauss(random), hits);
    return fFitter.Fit(hits).fHypothesis.at(0);
  }

  /// Returns the true point at z [cm].
  TVector3 At(double z) const {
    std::size_t k = fLine.size() - 1;
    while (k > 0 && fLine[k].fPoint.Z() >= z) k--;
    return fLine[k].fPoint + (z - fLine[k].fPoint.Z()) / fLine[k].fTangent.Z() * fLine[k].fTangent;
  }

  static TVector3 StartDirection() { return kAxis; }

  static constexpr int kHits = 40;

private:
  struct Piece {
    double fS;
    TVector3 fPoint, fTangent;
  };

  static constexpr double kSigma = 0.3; // cm
  static double Z(int i) { return 50 + 6. * i; }

  static TrackFitOptions Options() {
    TrackFitOptions options;
    options.fWithPlanes = true;
    options.fHypotheses = {13};
    options.fBeyondLastHit = 20; // slow particles bend so much that the model is not linear
    return options;
  }

  static void AddHit(int i, const TVector3& p, double noise, HitList3D& hits) {
    const bool isX = i % 2 == 0;
    hits.AddHit(isX ? geo::kX : geo::kY, p.X() + noise, p.Y() + noise, p.Z(), 0, kSigma, kSigma, 0,
                0, 1);
  }

  inline static const TVector3 kPoint{3, -2, 50};
  inline static const TVector3 kAxis = TVector3(0.2, -0.1, 1).Unit();

  LayeredGeometry fBlock{{{1000, "Scintillator"}}};
  TrackFitter fFitter;
  HypothesisFit fModel;
  std::vector<Piece> fLine;
};

/// Largest distance between the distribution of numbers and a flat one from 0 to 1, times the
/// square root of how many there are.
double Kolmogorov(std::vector<double> p) {
  std::sort(p.begin(), p.end());
  const double n = static_cast<double>(p.size());
  double distance = 0;
  for (std::size_t i = 0; i < p.size(); i++) {
    const double k = static_cast<double>(i);
    distance = std::max({distance, p[i] - k / n, (k + 1) / n - p[i]});
  }
  return distance * std::sqrt(n);
}

TEST(TrackFitterTruthTest, PullsAreStandardAndProbabilitiesFlatForTheFitsOwnModel) {
  constexpr int kTracks = 20000 / static_cast<int>(kStride);
  OwnModel model;
  std::mt19937_64 random(3);
  Pulls x, y, ux, uy, residuals, positions[OwnModel::kHits], slopeFirst;
  std::vector<double> probabilities;
  for (int t = 0; t < kTracks; t++) {
    const HypothesisFit fit = model.Next(random);
    ASSERT_EQ(fit.fStatus, kelvo::FitStatus::kFitted) << fit.fMessage;
    const TVector3 start = model.At(fit.fPosition.Z()), direction = OwnModel::StartDirection();
    x.Add((fit.fPosition.X() - start.X()) / std::sqrt(fit.fCov[0]));
    y.Add((fit.fPosition.Y() - start.Y()) / std::sqrt(fit.fCov[4]));
    ux.Add((fit.fDirection.X() - direction.X()) / std::sqrt(fit.fCov[7]));
    uy.Add((fit.fDirection.Y() - direction.Y()) / std::sqrt(fit.fCov[9]));
    for (std::size_t i = 0; i < fit.fHit.size(); i++) {
      const HitFit& hit = fit.fHit[i];
      const TVector3 truth = model.At(hit.fZ);
      positions[i].Add((hit.fFitU - (hit.fView == 0 ? truth.X() : truth.Y())) / hit.fFitSigU);
      residuals.Add(hit.fPull);
    }
    const HitFit& first = fit.fHit.front();
    slopeFirst.Add((first.fFitSlope - direction.X() / direction.Z()) / first.fFitSigSlope);
    probabilities.push_back(fit.fProb);
  }
  ExpectStandard(x, "x");
  ExpectStandard(y, "y");
  ExpectStandard(ux, "ux");
  ExpectStandard(uy, "uy");
  ExpectStandard(slopeFirst, "slope at the first hit");
  for (std::size_t i = 0; i < OwnModel::kHits; i++)
    ExpectStandard(positions[i], "position at hit " + std::to_string(i));
  // The residuals of a track are correlated, so only roughly.
  EXPECT_NEAR(residuals.Mean(), 0, 0.02);
  EXPECT_NEAR(residuals.Width(), 1, 0.02);
  EXPECT_LT(Kolmogorov(probabilities), 1.95); // exceeded by one experiment in a thousand
}

TEST(TrackFitterTruthTest, CovariancesOfTheStartDescribeCorrelatedErrors) {
  // The sum of a position and a multiple of its direction's component must have a standard pull,
  // too: it is the track extrapolated by that length.
  constexpr int kTracks = 1500;
  OwnModel model;
  std::mt19937_64 random(4);
  Pulls ahead, behind;
  for (int t = 0; t < kTracks; t++) {
    const HypothesisFit fit = model.Next(random);
    const double dx = fit.fPosition.X() - model.At(fit.fPosition.Z()).X();
    const double du = fit.fDirection.X() - OwnModel::StartDirection().X();
    const auto variance = [&](double l) {
      return fit.fCov[0] + 2 * l * fit.fCov[2] + l * l * fit.fCov[7];
    };
    ahead.Add((dx + 20 * du) / std::sqrt(variance(20)));
    behind.Add((dx - 20 * du) / std::sqrt(variance(-20)));
  }
  ExpectStandard(ahead, "20 cm ahead");
  ExpectStandard(behind, "20 cm behind");
}

/// Pions of a beam through a stack of layers with hits of both views in some planes. The particle
/// scatters in slices, with a variance in proportion to their thickness.
class Beam {
public:
  struct Layer {
    double fThickness; // cm
    const char* fMaterial;
    double fRadLen; // cm
    bool fHasHit;   // in its middle
  };

  Beam(std::vector<Layer> layers, double p, double sigma)
      : fLayers(std::move(layers)),
        fP(p),
        fSigma(sigma),
        fGeometry(Stack(fLayers)),
        fFitter(fGeometry, Options(p)) {}

  HypothesisFit Next(std::mt19937_64& random) {
    std::normal_distribution<double> gauss;
    double x[2] = {0.3, -0.2}, t[2] = {0.02 * gauss(random), 0.02 * gauss(random)};
    HitList3D hits;
    double z = 0;
    std::vector<Slice> gap;
    for (const Layer& layer : fLayers) {
      if (layer.fHasHit) {
        gap.push_back({z, layer.fThickness / 2, layer.fRadLen});
        z += layer.fThickness / 2;
        Cross(gap, z, x, t, random);
        hits.AddHit(geo::kX, x[0] + fSigma * gauss(random), 0, z, 0, fSigma, 0, 0, 0, 1);
        hits.AddHit(geo::kY, 0, x[1] + fSigma * gauss(random), z, 0, 0, fSigma, 0, 0, 1);
        gap = {{z, layer.fThickness / 2, layer.fRadLen}};
        z += layer.fThickness / 2;
      } else {
        gap.push_back({z, layer.fThickness, layer.fRadLen});
        z += layer.fThickness;
      }
    }
    return fFitter.Fit(hits).fHypothesis.at(0);
  }

private:
  struct Slice {
    double fZ, fThickness, fRadLen; // cm
  };

  static LayeredGeometry Stack(const std::vector<Layer>& layers) {
    std::vector<LayeredGeometry::Layer> stack;
    for (const Layer& layer : layers) stack.push_back({layer.fThickness, layer.fMaterial});
    return LayeredGeometry(stack);
  }

  static TrackFitOptions Options(double p) {
    TrackFitOptions options;
    options.fWithPlanes = true;
    options.fHypotheses = {211};
    options.fBeamMomentum = p;
    return options;
  }

  /// Carries the particle to z, through the layers since the last hit.
  void Cross(const std::vector<Slice>& gap, double z, double* x, double* t,
             std::mt19937_64& random) const {
    constexpr int kSlices = 40; // of a layer
    std::normal_distribution<double> gauss;
    double all = 0;
    for (const Slice& layer : gap) all += layer.fThickness / layer.fRadLen;
    const double betaP = fP * fP / std::hypot(fP, 0.13957);
    const double theta = 0.0136 / betaP * (1 + 0.038 * std::log(all)); // per root of rad. lengths
    double at = gap.front().fZ;
    for (const Slice& layer : gap)
      for (int i = 0; i < kSlices; i++) {
        const double next = layer.fZ + (i + 0.5) * layer.fThickness / kSlices;
        for (int v = 0; v < 2; v++) {
          x[v] += (next - at) * t[v];
          t[v] += theta * std::sqrt(layer.fThickness / kSlices / layer.fRadLen) * gauss(random);
        }
        at = next;
      }
    for (int v = 0; v < 2; v++) x[v] += (z - at) * t[v];
  }

  std::vector<Layer> fLayers;
  double fP, fSigma;
  LayeredGeometry fGeometry;
  TrackFitter fFitter;
};

void ExpectFlatProbability(Beam& beam) {
  constexpr int kTracks = 4000;
  std::mt19937_64 random(6);
  std::vector<double> probabilities;
  for (int i = 0; i < kTracks / static_cast<int>(kStride); i++) {
    const HypothesisFit fit = beam.Next(random);
    ASSERT_EQ(fit.fStatus, kelvo::FitStatus::kFitted) << fit.fMessage;
    probabilities.push_back(fit.fProb);
  }
  EXPECT_LT(Kolmogorov(probabilities), 1.95); // exceeded by one experiment in a thousand
}

TEST(TrackFitterTruthTest, ProbabilitiesAreFlatWithAThickScattererBetweenThinPlanes) {
  const Beam::Layer plane{0.03, "Glue", 31.864, true}, gap{5, "Vacuum", 1e30, false},
      steel{2, "Steel", 1.7584, false};
  Beam beam({plane, gap, plane, gap, plane, gap, steel, gap, plane, gap, plane, gap, plane}, 5,
            0.001);
  ExpectFlatProbability(beam);
}

TEST(TrackFitterTruthTest, ProbabilitiesAreFlatInAStackOfSteelAndFilm) {
  std::vector<Beam::Layer> layers;
  for (int i = 0; i < 20; i++) {
    layers.push_back({0.03, "Glue", 31.864, true});
    layers.push_back({0.1, "Steel", 1.7584, false});
  }
  Beam beam(layers, 10, 3e-5);
  ExpectFlatProbability(beam);
}

/// A sample made by Geant4, and what is expected of it.
struct Sample {
  const char* fName;
  int fPDG;
};

double Quantile(std::vector<double> values, double fraction) {
  const auto k = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size()));
  std::nth_element(values.begin(), values.begin() + k, values.end());
  return values[static_cast<std::size_t>(k)];
}

/// Half the width of the interval that holds the central 68% of the values.
double HalfWidth(const std::vector<double>& values) {
  return (Quantile(values, 0.8413) - Quantile(values, 0.1587)) / 2;
}

/// What fits of a sample have in common.
struct Summary {
  std::size_t fLost = 0;
  std::vector<std::pair<double, double>> fMomenta; ///< true one, fitted over true one
  std::vector<double> fPullP, fPullLength;
  std::vector<double> fPullU[3], fPullSlope[3]; ///< at the first, middle and last hit
};

Summary FitSample(const Sample& sample, const std::string& hits, TrackFitOptions options) {
  options.fEnd = kelvo::TrackEndMode::kStops;
  const std::string name = sample.fName;
  const geo::PlaneDetector detector = geo::PlaneDetector::FromFile(
      KELVO_SOURCE_DIR "/detectors/" + name.substr(0, name.find('_')) + ".toml");
  TrackFitter fitter(detector, options);
  Summary summary;
  TrackFit fit;
  const std::vector<Geant4Track> tracks = kelvo::test::ReadGeant4(name, hits);
  // The smaller samples are fitted whole: a tenth of them would tell nothing of their thirds.
  const std::size_t stride = tracks.size() > 1000 ? kStride : 1;
  for (std::size_t t = 0; t < tracks.size(); t += stride) {
    const Geant4Track& track = tracks[t];
    fitter.Fit(track.fHits, fit);
    const auto right = std::find_if(fit.fHypothesis.begin(), fit.fHypothesis.end(),
                                    [&](const HypothesisFit& h) { return h.fPDG == sample.fPDG; });
    if (!fit.Fitted() || right->fStatus != kelvo::FitStatus::kFitted) {
      summary.fLost++;
      continue;
    }
    summary.fMomenta.emplace_back(track.fP, right->fP / track.fP);
    summary.fPullP.push_back((right->fP - track.fP) / right->fSigP);
    summary.fPullLength.push_back((right->fLength - track.fLength) / right->fSigLength);
    const std::size_t last = right->fHit.size() - 1, places[] = {0, last / 2, last};
    for (std::size_t k = 0; k < 3; k++) {
      const HitFit& hit = right->fHit[places[k]];
      const Geant4Track::Point& truth = track.fTruth[places[k]];
      const bool isX = hit.fView == 0;
      summary.fPullU[k].push_back((hit.fFitU - (isX ? truth.fX : truth.fY)) / hit.fFitSigU);
      summary.fPullSlope[k].push_back((hit.fFitSlope - (isX ? truth.fDxDz : truth.fDyDz)) /
                                      hit.fFitSigSlope);
    }
  }
  return summary;
}

class Geant4 : public testing::TestWithParam<Sample> {
protected:
  void SetUp() override {
    const auto folder = kelvo::test::Geant4Folder();
    if (!std::filesystem::exists(folder))
      GTEST_SKIP() << "no simulated tracks in " << folder
                   << "; set KELVO_SHARED_DATA to the shared folder";
  }
};

TEST_P(Geant4, NoTrackIsLostAndMomentaFromRangeAreRight) {
  constexpr double kWhole = 0.004, kBin = 0.009; // of the median over the truth
  for (const char* hits : {"smeared", "cell"}) {
    Summary summary = FitSample(GetParam(), hits, {});
    EXPECT_EQ(summary.fLost, 0u);
    auto& momenta = summary.fMomenta;
    std::sort(momenta.begin(), momenta.end());
    std::vector<double> all, bins[3];
    for (std::size_t i = 0; i < momenta.size(); i++) {
      all.push_back(momenta[i].second);
      bins[3 * i / momenta.size()].push_back(momenta[i].second);
    }
    EXPECT_NEAR(Quantile(all, 0.5), 1, kStride == 1 ? kWhole : 2 * kWhole) << hits;
    for (const auto& bin : bins)
      EXPECT_NEAR(Quantile(bin, 0.5), 1, kStride == 1 ? kBin : 2 * kBin) << hits;
  }
}

TEST_P(Geant4, PullsHaveACoreOfWidthOneAllAlongTheTrack) {
  if (kStride > 1) GTEST_SKIP() << "too few tracks for a width";
  constexpr double kCore = 0.15; // 500 tracks give a width to 4 %
  for (const char* hits : {"smeared", "cell"}) {
    const Summary summary = FitSample(GetParam(), hits, {});
    for (std::size_t k = 0; k < 3; k++) {
      EXPECT_NEAR(HalfWidth(summary.fPullSlope[k]), 1, kCore) << hits << ", place " << k;
      // Errors of cells repeat from plane to plane, so that positions are off.
      const double core = hits == std::string("cell") ? 0.2 : kCore;
      EXPECT_NEAR(HalfWidth(summary.fPullU[k]), 1, core) << hits << ", place " << k;
    }
    EXPECT_NEAR(HalfWidth(summary.fPullP), 1, 0.1) << hits;
    EXPECT_NEAR(HalfWidth(summary.fPullLength), 1, 0.1) << hits;
  }
}

TEST_P(Geant4, TheLibrarysOwnWidthsAreTooSmall) {
  if (kStride > 1) GTEST_SKIP() << "too few tracks for a width";
  TrackFitOptions options;
  options.fScatteringFactor = 1;
  const Summary narrow = FitSample(GetParam(), "smeared", options);
  EXPECT_GT(HalfWidth(narrow.fPullSlope[0]), 1.35);
}

INSTANTIATE_TEST_SUITE_P(Samples, Geant4,
                         testing::Values(Sample{"fine_mu", 13}, Sample{"fine_pi", 211},
                                         Sample{"fine_p", 2212}, Sample{"range_mu", 13},
                                         Sample{"range_pi", 211}, Sample{"range_p", 2212}),
                         [](const auto& sample) { return std::string(sample.param.fName); });

} // namespace
