// Hits, detectors and options that a fit refuses: status and sentence of each, and that any input
// gives finite numbers or a sentence.

#include "track/TrackFitter.h"

#include "func/KelvoException.h"
#include "geo/OwnMaterial.h"
#include "test/support/BlockTracks.h"
#include "track/ErrorSentence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

namespace {

using kelvo::FitStatus;
using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

/// What the fit says about these hits, which must be the same for all hypotheses.
std::string Message(const HitList3D& hits, FitStatus status, const geo::GeometryBase& geo = Block(),
                    const TrackFitOptions& options = {}) {
  TrackFitter fitter(geo, options);
  const TrackFit fit = fitter.Fit(hits);
  EXPECT_FALSE(fit.Fitted());
  EXPECT_EQ(fit.fHypothesis.size(), options.fHypotheses.size());
  for (const HypothesisFit& h : fit.fHypothesis) {
    EXPECT_EQ(h.fStatus, status);
    EXPECT_EQ(h.fMessage, fit.fHypothesis[0].fMessage);
  }
  return fit.fHypothesis[0].fMessage;
}

TEST(TrackFitterRefusal, FewerThanTwoHitsInAViewAreRefused) {
  HitList3D hits;
  EXPECT_EQ(Message(hits, FitStatus::kTooFewHits),
            "view X has 0 hits; a fit needs two or more in each view");
  AddX(hits, 0, 0);
  EXPECT_EQ(Message(hits, FitStatus::kTooFewHits),
            "view X has 1 hit; a fit needs two or more in each view");
  AddX(hits, 0, 1);
  AddY(hits, 0, 2);
  EXPECT_EQ(Message(hits, FitStatus::kTooFewHits),
            "view Y has 1 hit; a fit needs two or more in each view");
}

TEST(TrackFitterRefusal, AViewWithAllHitsAtOneZIsRefused) {
  HitList3D hits;
  for (int i = 0; i < 3; i++) AddX(hits, i, 12.5);
  for (int i = 0; i < 3; i++) AddY(hits, i, 10 * i);
  EXPECT_EQ(
      Message(hits, FitStatus::kTooFewHits),
      "the 3 hits of view X are all at z = 12.5 cm; a fit needs two different z in each view");
}

TEST(TrackFitterRefusal, ABadHitIsNamedWithItsFault) {
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    std::function<void(kelvo::Hit3D&)> fSpoil;
    const char* fMessage;
  } cases[] = {
      {[](auto& h) { h.fView = static_cast<geo::_plane_proj>(2); },
       "hit 2 (z = 62 cm): the view is 2; it must be 0 (measures x) or 1 (measures y)"},
      {[](auto& h) { h.fZ = kNaN; }, "hit 2 (z = nan cm): z is nan; it must be a finite number"},
      {[=](auto& h) { h.fX = -infinity; },
       "hit 2 (z = 62 cm): x is -inf; it must be a finite number"},
      {[](auto& h) { h.fX = 2e5; },
       "hit 2 (z = 62 cm): x is 200000 cm; it must be within +-100000 cm"},
      {[](auto& h) { h.fSigX = 0; },
       "hit 2 (z = 62 cm): the uncertainty of x is 0 cm; it must be between 1e-07 and 1e+06 cm"},
      {[](auto& h) { h.fSigX = kNaN; },
       "hit 2 (z = 62 cm): the uncertainty of x is nan cm; it must be between 1e-07 and 1e+06 cm"},
      {[](auto& h) { h.fSigZ = -1; },
       "hit 2 (z = 62 cm): the uncertainty of z is -1 cm; it must be between 0 and 1e+06 cm"},
      {[](auto& h) { h.fW = -0.5; },
       "hit 2 (z = 62 cm): the weight is -0.5; it must be between 0 and 1e+12"},
  };
  for (const auto& c : cases) {
    HitList3D hits = Hits({0, 0, 0, 0}, 8);
    c.fSpoil(hits[2]);
    EXPECT_EQ(Message(hits, FitStatus::kBadNumber), c.fMessage);
  }
  HitList3D hits = Hits({0, 0, 0, 0}, 8);
  hits[3].fY = kNaN;
  EXPECT_EQ(Message(hits, FitStatus::kBadNumber),
            "hit 3 (z = 68 cm): y is nan; it must be a finite number");
}

TEST(TrackFitterRefusal, ATrackAlongThePlanesIsRefused) {
  EXPECT_EQ(
      Message(Hits({0, 0, 1000, 0}, 8), FitStatus::kBadGeometry),
      "the hits lie along a line at more than 88.8 degrees to the z axis; a fit needs a track "
      "that crosses the planes");
}

/// A detector that reports what it is told.
struct OneStep : geo::GeometryBase {
  std::vector<double> fDs;
  std::vector<const TGeoMaterial*> fMats;
  void MaterialsBetweenPoints(const double*, const double*, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    ds = fDs;
    mats = fMats;
  }
};

TEST(TrackFitterRefusal, AMaterialThatNothingIsKnownOfIsRefusedByName) {
  const geo::Own<> secret("Secret", 0, 0, 2, -10);
  OneStep geo;
  geo.fDs = {1};
  geo.fMats = {&secret};
  EXPECT_EQ(Message(Hits({0, 0, 0, 0}, 8), FitStatus::kBadGeometry, geo),
            "the track crosses the material \"Secret\", of which neither the name nor the "
            "elements are known; give it a composition or fit the track as a beam of known "
            "momentum");
}

TEST(TrackFitterRefusal, ADetectorThatReportsNonsenseIsRefused) {
  const HitList3D hits = Hits({0, 0, 0, 0}, 8);
  const geo::Own<> steel("Steel", 55.8, 26, 7.87, -1.7584, -17.);
  OneStep geo;
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the detector reports no material along the track; check that the hits lie in it");
  geo.fDs = {1};
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the detector reports 1 lengths for 0 materials on the track");
  geo.fMats = {nullptr};
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the detector reports a step without material on the track");
  geo.fMats = {&steel};
  geo.fDs = {-1};
  EXPECT_EQ(
      Message(hits, FitStatus::kBadGeometry, geo),
      "the detector reports a step of -1 cm on the track; it must be finite and not negative");
  struct : TGeoMaterial {
    using TGeoMaterial::TGeoMaterial;
    double GetRadLen() const override { return 0; }
  } bad("Glue", 12, 6, 1.34);
  geo.fDs = {1};
  geo.fMats = {&bad};
  EXPECT_EQ(Message(hits, FitStatus::kBadGeometry, geo),
            "the track crosses the material \"Glue\", whose radiation length is 0 cm; it must be "
            "above 0");
}

TEST(TrackFitterRefusal, AnExceptionOfTheDetectorBecomesAMessage) {
  struct : geo::GeometryBase {
    void MaterialsBetweenPoints(const double*, const double*, std::vector<double>&,
                                std::vector<const TGeoMaterial*>&) const override {
      throw std::runtime_error("no map for this region");
    }
  } geo;
  EXPECT_EQ(Message(Hits({0, 0, 0, 0}, 8), FitStatus::kLibraryError, geo),
            "the fit stopped with: no map for this region");
}

TEST(TrackFitterRefusal, EveryErrorOfTheLibraryHasItsSentence) {
  using kelvo::ErrorSentence;
  EXPECT_EQ(ErrorSentence(kelvo::kBadKE, -0.25),
            "a kinetic energy or thickness along the track comes out at -0.25, below 0; check that "
            "the hits lie in this detector");
  EXPECT_EQ(ErrorSentence(kelvo::kBadRadLength, 0),
            "a material on the track has a radiation length of 0 cm; give it one above 0 in the "
            "detector's description");
  EXPECT_EQ(ErrorSentence(kelvo::kBadNScat, 0),
            "a view has no more measurements than scattering planes");
  EXPECT_EQ(ErrorSentence(kelvo::kIndexProblem, 0),
            "the detector reports no material along the track; check that the hits lie in it");
  EXPECT_EQ(ErrorSentence(kelvo::kNaN, 0),
            "a quantity of the fit is not a number; check hits and detector for extreme values");
  EXPECT_EQ(ErrorSentence(kelvo::kBadSigX, -1),
            "the uncertainty of a measurement is -1 cm; it must be above 0");
  EXPECT_EQ(ErrorSentence(kelvo::kBadSigSJ, -1),
            "the width of a scattering angle is -1 rad; it must be above 0");
  for (unsigned int code : {kelvo::kBadP, kelvo::kBadBeta})
    EXPECT_EQ(ErrorSentence(code, 1e-5),
              "the momentum or velocity at a scattering plane comes out at 1e-05, out of range; "
              "check that the hits lie in this detector");
  for (unsigned int code : {kelvo::kNDOFTooSmall, kelvo::kTooFewPlanes})
    EXPECT_EQ(ErrorSentence(code, 0), "a view has too few hits for a fit");
  EXPECT_EQ(ErrorSentence(kelvo::kTrackingFailure, 0),
            "the track has no direction at one of its points, since two of them coincide");
  EXPECT_EQ(ErrorSentence(13, 1.5), "the fit library raised the unknown error 13 with value 1.5");
}

TEST(TrackFitterRefusal, OptionsOutOfRangeAreRefusedWithTheRule) {
  const auto message = [](const std::function<void(TrackFitOptions&)>& spoil) -> std::string {
    TrackFitOptions options;
    spoil(options);
    try {
      TrackFitter fitter(Block(), options);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "accepted";
  };
  EXPECT_EQ(message([](auto&) {}), "accepted");
  EXPECT_EQ(message([](auto& o) { o.fHypotheses.clear(); }),
            "fHypotheses is empty; name one or more of 13 (muon), 211 (pion) or 2212 (proton)");
  EXPECT_EQ(message([](auto& o) {
              o.fHypotheses = {13, 11};
            }),
            "a code in fHypotheses is 11; it must be 13 (muon), 211 (pion) or 2212 (proton), of "
            "either sign");
  EXPECT_EQ(message([](auto& o) { o.fSigBeamMomentum = kNaN; }),
            "fSigBeamMomentum is nan; it must be between 0 and 1e+06 GeV/c");
  EXPECT_EQ(message([](auto& o) { o.fScatteringFactor = 0; }),
            "fScatteringFactor is 0; it must be above 0 and at most 100");
  EXPECT_EQ(message([](auto& o) { o.fBeyondLastHit = -0.1; }),
            "fBeyondLastHit is -0.1; it must be between 0 and 100");
  EXPECT_EQ(message([](auto& o) { o.fBeamMomentum = -1; }),
            "fBeamMomentum is -1; it must be 0 (stopping particles) or between 0.001 and 1e+06 "
            "GeV/c");
}

/// A detector that can be asked a number of times before it fails.
struct FailsLater : geo::GeometryBase {
  mutable int fLeft = 0;
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    if (fLeft-- <= 0) throw std::runtime_error("out of the map");
    Block().MaterialsBetweenPoints(p0, p1, ds, mats);
  }
};

TEST(TrackFitterRefusal, ATrackThatFailsLateLeavesNoHalfResult) {
  FailsLater geo;
  TrackFitter fitter(geo);
  TrackFit fit;
  int refused = 0;
  for (int calls = 0; calls < 60; calls++) {
    geo.fLeft = calls;
    fitter.Fit(Hits({0, 0, 0, 0}, 20, Wiggle), fit);
    if (fit.Fitted()) continue;
    refused++;
    for (const HypothesisFit& h : fit.fHypothesis) {
      EXPECT_EQ(h.fStatus, FitStatus::kLibraryError);
      EXPECT_EQ(h.fMessage, "the fit stopped with: out of the map");
      EXPECT_EQ(h.fHit.size() + h.fPlaneS.size() + h.fPlanePoint.size(), 0u);
      EXPECT_EQ(h.fP, 0);
    }
  }
  EXPECT_GT(refused, 20);
  EXPECT_LT(refused, 60);
}

TEST(TrackFitterRefusal, AnyHitsGiveAFitOfFiniteNumbersOrASentence) {
  const double values[] = {0,    -0.,  1,     -1,   12.5, 12.5, 50,    1e-300, 1e-7, 1e-3,
                           1e-4, 1e3,  1e5,   -1e5, 1e6,  -1e6, 1e300, kNaN,   3.2,  17,
                           100,  99.9, 200.1, 400,  5e-8, 40,   41,    42,     43,   44};
  std::mt19937_64 random(2);
  const auto pick = [&] { return values[random() % std::size(values)]; };
  TrackFitOptions options;
  TrackFitter stopping(Block(), options);
  options.fBeamMomentum = 1;
  TrackFitter beam(Block(), options);
  int fitted = 0;
  for (int k = 0; k < 1000; k++) {
    HitList3D hits;
    const int n = static_cast<int>(random() % 12);
    const bool tame = random() % 4 != 0; // uncertainties that are not refused
    for (int i = 0; i < n; i++) {
      const double sigma = tame ? std::clamp(std::abs(pick()), 1e-6, 1e6) : pick();
      hits.AddHit(static_cast<geo::_plane_proj>(random() % (tame ? 2 : 3)), pick(), pick(), pick(),
                  0, sigma, sigma, tame ? 0 : pick(), 0, tame ? 1 : pick());
      if (tame)
        for (double* u : {&hits.back().fX, &hits.back().fY, &hits.back().fZ})
          *u = *u == *u ? std::clamp(*u, -1e5, 1e5) : 0;
    }
    for (TrackFitter* fitter : {&stopping, &beam}) {
      const TrackFit fit = fitter->Fit(hits);
      for (const HypothesisFit& h : fit.fHypothesis) {
        EXPECT_EQ(h.fMessage.empty(), h.fStatus == FitStatus::kFitted);
        if (h.fStatus != FitStatus::kFitted) continue;
        fitted++;
        EXPECT_TRUE(std::isfinite(h.fP + h.fLength + h.fLogLikelihood + h.fProb));
        EXPECT_TRUE(std::isfinite(h.fSigT + h.fSigP + h.fSigLength));
        EXPECT_TRUE(std::isfinite(h.fPosition.Mag() + h.fDirection.Mag() + h.fEnd.Mag()));
        for (const kelvo::HitFit& hit : h.fHit)
          EXPECT_TRUE(std::isfinite(hit.fFitU + hit.fFitSigU + hit.fPull + hit.fFitSigSlope));
      }
    }
  }
  EXPECT_GT(fitted, 300);
}

} // namespace
