// Hits that cannot be meant as they are, counted in the bundled muons after what people do to
// theirs; the counts are compared with a loop over all planes for each hit.

#include "io/HitReader.h"
#include "run/FitFile.h"
#include "run/HitPlanes.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

namespace {

using kelvo::Hit3D;
using kelvo::HitList3D;

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";

geo::PlaneDetector Bundled(const std::string& name) {
  return geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/" + name + ".toml");
}

const geo::PlaneDetector& Fine() {
  static const auto detector = Bundled("fine");
  return detector;
}

std::vector<HitList3D> Muons() {
  kelvo::HitReader reader({kMuons});
  std::vector<HitList3D> tracks;
  for (kelvo::TrackHits track; tracks.size() < 300 && reader.Next(track);)
    tracks.push_back(track.fHits);
  return tracks;
}

std::vector<HitList3D> Changed(const std::function<void(Hit3D&)>& change) {
  std::vector<HitList3D> tracks = Muons();
  for (HitList3D& hits : tracks)
    for (Hit3D& hit : hits) change(hit);
  return tracks;
}

kelvo::HitPlaneCounts CountsOf(const std::vector<HitList3D>& tracks,
                               const geo::PlaneDetector& detector = Fine()) {
  kelvo::HitPlanes planes(&detector);
  kelvo::HitPlaneCounts counts;
  for (const HitList3D& hits : tracks) planes.Count(hits, counts);
  return counts;
}

/// The same by looking at all planes for each hit.
kelvo::HitPlaneCounts PlainCountsOf(const std::vector<HitList3D>& tracks) {
  kelvo::HitPlaneCounts counts;
  for (const HitList3D& hits : tracks) {
    std::map<std::size_t, std::vector<double>> onPlane;
    for (const Hit3D& hit : hits) {
      const unsigned view = hit.fView == geo::kX ? 0 : 1;
      const double u = view == 0 ? hit.fX : hit.fY;
      bool own = false, other = false;
      for (std::size_t i = 0; i < Fine().Planes().size(); i++) {
        const geo::ActivePlane& plane = Fine().Planes()[i];
        if (hit.fZ < plane.fZLow - 0.004 || hit.fZ > plane.fZHigh + 0.004) continue;
        other = other || plane.Measures(1 - view);
        if (!plane.Measures(view)) continue;
        own = true;
        onPlane[i].push_back(u);
        // 32 cells of 4 cm and 31 gaps of 0.05 cm, half a gap more on either side
        if (std::abs(u) > 16 * 4.05) counts.fOutside++;
      }
      counts.fHits++;
      if (!own) (other ? counts.fOtherView : counts.fOffPlane)++;
    }
    for (auto& [plane, u] : onPlane) {
      counts.fCrossings++;
      std::sort(u.begin(), u.end());
      bool separated = false;
      for (std::size_t i = 1; i < u.size(); i++) separated = separated || u[i] - u[i - 1] > 8.1;
      if (separated) counts.fSeparated++;
    }
  }
  return counts;
}

void ExpectPlain(const std::vector<HitList3D>& tracks) {
  const auto counts = CountsOf(tracks);
  const auto plain = PlainCountsOf(tracks);
  EXPECT_EQ(counts.fHits, plain.fHits);
  EXPECT_EQ(counts.fOffPlane, plain.fOffPlane);
  EXPECT_EQ(counts.fOtherView, plain.fOtherView);
  EXPECT_EQ(counts.fOutside, plain.fOutside);
  EXPECT_EQ(counts.fCrossings, plain.fCrossings);
  EXPECT_EQ(counts.fSeparated, plain.fSeparated);
}

bool Tells(const kelvo::HitPlaneCounts& counts, const std::string& words) {
  for (const std::string& doubt : counts.Doubts())
    if (doubt.find(words) != std::string::npos) return true;
  return false;
}

TEST(HitPlanes, AreNotInDoubtForGoodHits) {
  ExpectPlain(Muons());
  EXPECT_TRUE(CountsOf(Muons()).Doubts().empty());
}

TEST(HitPlanes, TellLengthsInMillimetres) {
  const auto tracks = Changed([](Hit3D& hit) {
    for (double* length : {&hit.fX, &hit.fY, &hit.fZ}) *length *= 10;
  });
  ExpectPlain(tracks);
  EXPECT_TRUE(Tells(CountsOf(tracks), "are lengths in mm?"));
}

TEST(HitPlanes, TellExchangedViews) {
  const auto tracks = Changed([](Hit3D& hit) {
    hit.fView = hit.fView == geo::kX ? geo::kY : geo::kX;
    std::swap(hit.fX, hit.fY);
  });
  ExpectPlain(tracks);
  const auto counts = CountsOf(tracks);
  EXPECT_EQ(counts.fOtherView, counts.fHits);
  ASSERT_EQ(counts.Doubts().size(), 1u);
  EXPECT_TRUE(Tells(counts, "are the views exchanged?"));
}

TEST(HitPlanes, DoNotAskForMillimetresWhereATenthDoesNotFit) {
  for (const double factor : {2.54, 100.}) {
    const auto counts = CountsOf(Changed([factor](Hit3D& hit) {
      for (double* length : {&hit.fX, &hit.fY, &hit.fZ}) *length *= factor;
    }));
    EXPECT_FALSE(counts.Doubts().empty());
    EXPECT_FALSE(Tells(counts, "mm")) << factor;
    EXPECT_TRUE(Tells(counts, "is this the detector?")) << factor;
  }
  EXPECT_FALSE(Tells(CountsOf(Changed([](Hit3D& hit) { hit.fZ += 1000; })), "mm"));
  EXPECT_FALSE(Tells(CountsOf(Muons(), Bundled("range")), "mm"));
}

TEST(HitPlanes, TellAnotherDetector) {
  EXPECT_TRUE(Tells(CountsOf(Muons(), Bundled("telescope")), "is this the detector?"));
  EXPECT_TRUE(Tells(CountsOf(Muons(), Bundled("range")), "is this the detector?"));
}

TEST(HitPlanes, TellHitsOutsideOfTheCells) {
  const auto tracks = Changed([](Hit3D& hit) { hit.fX += 200; });
  ExpectPlain(tracks);
  EXPECT_TRUE(Tells(CountsOf(tracks), "outside of the cells"));
}

TEST(HitPlanes, TellSeveralTracksUnderOneNumber) {
  const std::vector<HitList3D> tracks = Muons();
  std::vector<HitList3D> events;
  for (std::size_t i = 0; i + 1 < tracks.size(); i += 2) {
    events.push_back(tracks[i]);
    for (const Hit3D& hit : tracks[i + 1]) events.back().push_back(hit);
  }
  ExpectPlain(events);
  const auto doubts = CountsOf(events).Doubts();
  ASSERT_EQ(doubts.size(), 1u);
  EXPECT_NE(doubts[0].find("are several tracks under one number?"), std::string::npos);
}

TEST(HitPlanes, TakeAThinPlanesHitsWithinAMillimetre) {
  const auto telescope = Bundled("telescope");
  for (const double shift : {0.0, 0.09, -0.09, 0.11, -0.11}) {
    HitList3D hits;
    hits.AddHit(geo::kX, 0, 0, telescope.Planes()[1].ZMid() + shift, 0, 0.001, 0, 0, 0, 1);
    EXPECT_EQ(CountsOf({hits}, telescope).fOffPlane, std::abs(shift) > 0.1 ? 1u : 0u) << shift;
  }
}

TEST(HitPlanes, SayTheNumbersInGroupsOfThreeDigits) {
  kelvo::HitPlaneCounts counts;
  counts.fHits = 3000;
  counts.fOffPlane = 2911;
  EXPECT_EQ(counts.Doubts(),
            std::vector<std::string>{"2,911 of 3,000 hits lie more than half a plane from any; is "
                                     "this the detector?"});
  counts.fTenTimes = 2700;
  EXPECT_EQ(counts.Doubts(),
            std::vector<std::string>{"2,911 of 3,000 hits lie more than half a plane from any; are "
                                     "lengths in mm? is this the detector?"});
  counts.fTenTimes = 2600; // hardly nine in ten
  EXPECT_EQ(counts.Doubts()[0].find("mm"), std::string::npos);
  counts.fHits = 1234567;
  counts.fOffPlane = 999;
  EXPECT_TRUE(counts.Doubts().empty());
  counts.fOffPlane = 100200;
  EXPECT_EQ(counts.Doubts()[0].find("100,200 of 1,234,567 hits"), 0u);
}

TEST(HitPlanes, CountNothingInAGeometryWithoutPlanes) {
  kelvo::HitPlanes planes(nullptr);
  kelvo::HitPlaneCounts counts;
  for (const HitList3D& hits : Muons()) planes.Count(hits, counts);
  EXPECT_EQ(counts.fHits, 0u);
  EXPECT_TRUE(counts.Doubts().empty());
}

/// Hits in mm: the muons of the example with the numbers of other lengths.
std::string InMillimetres(const test::TempFolder& folder) {
  std::string text = "track,view,u,z,sigu\n";
  int number = 0;
  for (const HitList3D& hits : Muons()) {
    number++;
    for (const Hit3D& hit : hits) {
      const bool isX = hit.fView == geo::kX;
      text += std::to_string(number) + (isX ? ",X," : ",Y,");
      text += std::to_string(10 * (isX ? hit.fX : hit.fY)) + "," + std::to_string(10 * hit.fZ) +
              "," + std::to_string(10 * (isX ? hit.fSigX : hit.fSigY)) + "\n";
    }
  }
  return folder.Write("mm.csv", text);
}

TEST(HitPlanes, AreToldByARunTheSameForAnyNumberOfThreadsAndEndAStrictOne) {
  const test::TempFolder folder;
  kelvo::FitFileOptions options;
  options.fInputs = {InMillimetres(folder)};
  options.fOutput = folder.Path("fits.root");
  options.fFit.fHypotheses = {13};
  const auto one = kelvo::FitFile(Fine(), options);
  options.fThreads = 3;
  const auto three = kelvo::FitFile(Fine(), options);
  ASSERT_FALSE(one.fDoubts.empty());
  EXPECT_EQ(one.fDoubts, three.fDoubts);
  EXPECT_FALSE(one.Good());

  options.fStrict = true;
  options.fOutput = folder.Path("strict.root");
  try {
    kelvo::FitFile(Fine(), options);
    ADD_FAILURE() << "no error";
  } catch (const kelvo::StrictStop& e) {
    EXPECT_NE(std::string(e.what()).find("are lengths in mm?"), std::string::npos) << e.what();
  }
  EXPECT_EQ(folder.Files(), 2); // the hits, and the fits of the first run
}

} // namespace
