// The scale of deposits, found from the first tracks of a run: with deposits drawn collision by
// collision along simulated tracks.

#include "run/ChargeScale.h"

#include "run/FitFile.h"
#include "sim/Simulator.h"
#include "test/support/BundledDetector.h"
#include "test/support/CollisionDeposits.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

constexpr double kScale = 250; // counts per GeV

/// Hits of muons and protons in the fine detector, with their deposits.
std::string Hits() {
  const geo::PlaneDetector& detector = BundledDetector("fine");
  std::mt19937_64 random(21);
  std::ostringstream text;
  text << "track,view,u,z,sigu,q\n";
  for (const auto& [pdg, mass] : {std::pair{13, 0.105658}, {2212, 0.938272}}) {
    kelvo::SimulationOptions options;
    options.fPDG = pdg;
    kelvo::Simulator simulator(detector, options);
    for (long long i = 0; i < 40; i++) {
      const kelvo::SimulatedTrack track = simulator.Make(i);
      const auto deposits = kelvo::test::DrawDeposits(detector, track, mass, 4e-4, random);
      for (std::size_t k = 0; k < track.fHits.size(); k++)
        text << i + 1000LL * pdg << ',' << track.fHits[k].fView << ',' << track.fHits[k].fU << ','
             << track.fHits[k].fZ << ',' << track.fHits[k].fSigU << ',' << kScale * deposits[k]
             << '\n';
    }
  }
  return text.str();
}

kelvo::FitFileOptions Options(const test::TempFolder& folder) {
  kelvo::FitFileOptions options;
  options.fInputs = {folder.Path("hits.csv")};
  options.fOutput = folder.Path("fits.root");
  options.fCsv = folder.Path("fits.csv");
  options.fScalarsOnly = true;
  options.fFit.fChargeResolution = 0.2;
  return options;
}

TEST(ChargeScale, IsFoundFromTheRunForAnyNumberOfThreads) {
  const test::TempFolder folder;
  folder.Write("hits.csv", Hits());
  kelvo::FitFileOptions options = Options(folder);
  const kelvo::FitSummary one = kelvo::FitFile(BundledDetector("fine"), options);
  EXPECT_NEAR(one.fChargeScale, kScale, 0.02 * kScale);
  EXPECT_EQ(one.fTracks, 80u);
  const std::string fits = folder.Read("fits.csv");
  options.fThreads = 3;
  EXPECT_EQ(kelvo::FitFile(BundledDetector("fine"), options).fChargeScale, one.fChargeScale);
  EXPECT_EQ(folder.Read("fits.csv"), fits);
  options.fFit.fChargeScale = one.fChargeScale; // given, it does the same
  kelvo::FitFile(BundledDetector("fine"), options);
  EXPECT_EQ(folder.Read("fits.csv"), fits);
}

TEST(ChargeScale, HitsWithoutDepositsAreRefused) {
  const test::TempFolder folder;
  std::string hits = Hits();
  hits.replace(hits.find(",q"), 2, ",r");
  folder.Write("hits.csv", hits);
  try {
    kelvo::FitFile(BundledDetector("fine"), Options(folder));
    FAIL() << "nothing is thrown";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(
        e.what(),
        "a charge resolution is given, but the first tracks have no deposits above 0; name "
        "their column if it is not q, give the scale, or leave out the resolution");
  }
  EXPECT_FALSE(std::filesystem::exists(folder.Path("fits.root")));
}

} // namespace
