// Intervals against sums of binomial probabilities, and the table of a run against its hits.

#include "run/PlaneEfficiencies.h"

#include "io/FitReader.h"
#include "io/HitReader.h"
#include "run/FitFile.h"

#include "test/support/BundledDetector.h"
#include "test/support/TempFolder.h"
#include "test/support/TestGeometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kelvo::ClopperPearson;
using kelvo::PlaneEfficiencies;

/// Returns the probability of k or more of n.
double AtLeast(unsigned long long k, unsigned long long n, double p) {
  double sum = 0;
  for (unsigned long long i = k; i <= n; i++) {
    const auto a = static_cast<double>(i), b = static_cast<double>(n - i);
    sum += std::exp(std::lgamma(a + b + 1) - std::lgamma(a + 1) - std::lgamma(b + 1) +
                    a * std::log(p) + b * std::log1p(-p));
  }
  return sum;
}

TEST(PlaneEfficiencies, IntervalsEndWhereTheTailsAreAsProbableAsOutsideOfOneSigma) {
  const double tail = std::erfc(1 / std::sqrt(2.)) / 2;
  for (const unsigned long long n : {1u, 2u, 10u, 137u, 2000u})
    for (unsigned long long k = 0; k <= n; k += 1 + n / 7) {
      const auto [low, high] = ClopperPearson(k, n);
      if (k == 0)
        EXPECT_EQ(low, 0);
      else
        EXPECT_NEAR(AtLeast(k, n, low) / tail, 1, 1e-6) << k << " of " << n;
      if (k == n)
        EXPECT_EQ(high, 1);
      else
        EXPECT_NEAR((1 - AtLeast(k + 1, n, high)) / tail, 1, 1e-6) << k << " of " << n;
    }
  const auto [low, high] = ClopperPearson(0, 0);
  EXPECT_EQ(low, 0);
  EXPECT_EQ(high, 1);
}

kelvo::FitFileOptions Options(const test::TempFolder& folder) {
  kelvo::FitFileOptions options;
  options.fInputs = {KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz"};
  options.fOutput = folder.Path("fits.root");
  options.fEfficiency = folder.Path("planes.csv");
  options.fFit.fHypotheses = {13};
  options.fFit.fScatteringMomentum = false;
  options.fLimit = 150;
  return options;
}

TEST(PlaneEfficiencies, TheTableOfARunCountsTracksThatCrossAndTheirHits) {
  const test::TempFolder folder;
  kelvo::FitFileOptions options = Options(folder);
  options.fFit.fExclude = {"20"};
  options.fThreads = 2;
  FitFile(BundledDetector("fine"), options);

  kelvo::HitReader reader(options.fInputs);
  const auto& planes = BundledDetector("fine").Planes();
  // Tracks that begin before a plane and end behind it, and those of them with a hit there.
  std::vector<int> within(planes.size()), hit(planes.size());
  kelvo::TrackHits track;
  for (int t = 0; t < 150 && reader.Next(track); t++) {
    double first = 1e9, last = -1e9;
    for (const kelvo::Hit3D& h : track.fHits) {
      first = std::min(first, h.fZ);
      last = std::max(last, h.fZ);
    }
    for (std::size_t p = 0; p < planes.size(); p++)
      if (first < planes[p].fZLow && last > planes[p].fZHigh) {
        within[p]++;
        if (std::any_of(track.fHits.begin(), track.fHits.end(),
                        [&](const kelvo::Hit3D& h) { return planes[p].Holds(h.fZ); }))
          hit[p]++;
      }
  }

  std::istringstream lines(folder.Read("planes.csv"));
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "plane,name,view,z,crossed,found,efficiency,low,high");
  for (std::size_t p = 0; p < planes.size(); p++) {
    std::getline(lines, line);
    std::vector<std::string> fields;
    std::istringstream row(line);
    for (std::string field; std::getline(row, field, ',');) fields.push_back(field);
    ASSERT_EQ(fields.size(), 9u) << line;
    EXPECT_EQ(fields[0], std::to_string(p));
    EXPECT_EQ(fields[2], planes[p].View());
    const int crossed = std::stoi(fields[4]), found = std::stoi(fields[5]);
    EXPECT_LE(crossed, within[p]);
    EXPECT_GE(crossed, 0.9 * within[p] - 3); // the others cross near the edge
    EXPECT_LE(found, std::min(crossed, hit[p]));
    EXPECT_LE(crossed - found, within[p] - hit[p] + 1); // and hardly a hit is that far off
    if (crossed == 0) continue;
    EXPECT_NEAR(std::stod(fields[6]), static_cast<double>(found) / crossed, 1e-6);
  }
  EXPECT_FALSE(std::getline(lines, line));
  EXPECT_NE(kelvo::FitReader(options.fOutput).Text("options").find("exclude = [\"20\"]\n"),
            std::string::npos);
}

TEST(PlaneEfficiencies, AGeometryThatDoesNotTellItsPlanesIsRefused) {
  const test::TempFolder folder;
  const LayeredGeometry block({{1000, "Scintillator"}});
  const geo::Detector detector(block, "block");
  try {
    FitFile(detector, Options(folder));
    FAIL() << "no error";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(),
                 "the detector does not tell its planes, so that they have no efficiencies");
  }
  EXPECT_FALSE(std::filesystem::exists(folder.Path("planes.csv")));
}

} // namespace
