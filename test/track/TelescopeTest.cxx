#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "test/support/BundledDetector.h"
#include "test/support/Geant4Sample.h"
#include "track/PlaneOffsets.h"
#include "track/TrackFitter.h"

// Real tracks in a telescope of four pixel planes that measure both coordinates. The reference is a
// plain straight line through the four points of each view.

namespace {

using kelvo::HitList3D;
using kelvo::HypothesisFit;
using kelvo::TrackFitOptions;
using kelvo::TrackFitter;

/// Reads lines of event,plane,z,x,y,sigma_x,sigma_y in cm; each becomes one hit per view.
std::map<int, HitList3D> ReadTelescope(const std::filesystem::path& file) {
  std::map<int, HitList3D> tracks;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    int event = 0, plane = 0;
    double z = 0, x = 0, y = 0, sx = 0, sy = 0;
    if (std::sscanf(line.c_str(), "%d,%d,%lf,%lf,%lf,%lf,%lf", &event, &plane, &z, &x, &y, &sx,
                    &sy) != 7)
      continue; // a comment, or the names of the columns
    tracks[event].AddHit(geo::kX, x, 0, z, 0, sx, 0, 0, 0, 1);
    tracks[event].AddHit(geo::kY, 0, y, z, 0, 0, sy, 0, 0, 1);
  }
  return tracks;
}

/// Residuals [cm] by plane and view.
using Residuals = std::map<std::pair<int, int>, std::vector<double>>;

/// Half the width of the interval that holds the central 68% of the values: some tracks scatter in
/// a nucleus, or have a hit of another particle, and would rule a root mean square.
double HalfWidth(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const double last = static_cast<double>(values.size()) - 1;
  const auto at = [&](double f) { return values[static_cast<std::size_t>(f * last)]; };
  return (at(0.8413) - at(0.1587)) / 2;
}

int Plane(double z) {
  return static_cast<int>(std::lround(z));
}

void AddStraightLine(const HitList3D& hits, int view, Residuals& residuals) {
  double s = 0, sz = 0, szz = 0, su = 0, szu = 0;
  const auto each = [&](auto&& work) {
    for (const kelvo::Hit3D& hit : hits)
      if (hit.fView == view) work(hit.fZ, view == 0 ? hit.fX : hit.fY);
  };
  each([&](double z, double u) {
    s += 1;
    sz += z;
    szz += z * z;
    su += u;
    szu += z * u;
  });
  const double slope = (s * szu - sz * su) / (s * szz - sz * sz);
  const double intercept = (su - slope * sz) / s;
  each([&](double z, double u) {
    residuals[{Plane(z), view}].push_back(u - intercept - slope * z);
  });
}

TEST(TelescopeTest, NoTrackIsLostAndResidualsAreNoWiderThanThoseOfStraightLines) {
  const auto file = kelvo::test::Geant4Folder().parent_path() / "telescope" / "telescope_fei4.csv";
  if (!std::filesystem::exists(file))
    GTEST_SKIP() << "no telescope data at " << file
                 << "; set KELVO_SHARED_DATA to the shared folder";
  const geo::PlaneDetector& detector = BundledDetector("telescope");
  TrackFitOptions options;
  options.fWithPlanes = true;
  options.fHypotheses = {211};
  options.fBeamMomentum = 4; // GeV/c; not recorded, a usual one
  TrackFitter fitter(detector, options);
  std::map<int, HitList3D> tracks = ReadTelescope(file);
  EXPECT_EQ(tracks.size(), 1980u);
  Residuals fitted, straight;
  for (auto& [event, hits] : tracks) {
    AddPlaneOffsets(detector, hits);
    const kelvo::TrackFit result = fitter.Fit(hits);
    const HypothesisFit& fit = result.fHypothesis[0];
    ASSERT_EQ(fit.fStatus, kelvo::FitStatus::kFitted) << "event " << event << ": " << fit.fMessage;
    EXPECT_GE(fit.fPlaneS.size(), 2u) << "event " << event; // the planes between first and last
    for (const kelvo::HitFit& hit : fit.fHit)
      fitted[{Plane(hit.fZ), hit.fView}].push_back(hit.fResidual);
    for (int view : {0, 1}) AddStraightLine(hits, view, straight);
  }
  for (const auto& [key, residuals] : straight)
    EXPECT_LT(HalfWidth(fitted[key]), HalfWidth(residuals))
        << "plane " << key.first << ", view " << key.second << " [cm]";
}

} // namespace
