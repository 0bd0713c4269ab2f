// From the hits of one track to its fit with the library's classes alone, step by step: hits, track
// frame, path, scattering planes, one fit per view. The hits are those of a particle that stops.
//
//   03-seven-classes detectors/fine.toml examples/data/stopping-muon.txt [PDG code]

#include "func/HitList3D.h"
#include "func/KelvoException.h"
#include "func/Lutz.h"
#include "func/Path.h"
#include "func/ScatteringSurfaces.h"
#include "func/TrackBasis.h"
#include "func/dEdxTable.h"
#include "geo/PlaneDetector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Limits of one step between scattering planes: length [cm], thickness [radiation lengths], product
// of scattering width and length [rad cm].
constexpr double kMaxDs = 30, kMaxDX0 = 3, kMaxDT = 0.5;

/// One hit in the track frame [cm]: position along the track, and across it in the hit's own view.
struct Measurement {
  geo::_plane_proj fView;
  double fZ, fU, fSigU;
};

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what);
}

//! [hits]
// Step 1: the hits, each with the coordinate that its plane measured.
kelvo::HitList3D ReadHits(const std::string& file) {
  std::ifstream in(file);
  if (!in) Fail(file + ": cannot be opened for reading");
  kelvo::HitList3D hits;
  std::string text;
  for (int line = 1; std::getline(in, text); line++) {
    if (text.empty() || text[0] == '#') continue;
    std::istringstream words(text);
    std::string view;
    double z = 0, u = 0, sigu = 0, sigz = 0;
    if (!(words >> view >> z >> u >> sigu >> sigz) || (view != "x" && view != "y"))
      Fail(file + ":" + std::to_string(line) +
           ": a hit is 'x' or 'y' and four numbers in cm: z, coordinate, and the sigma of the "
           "coordinate and of z");
    if (view == "x")
      hits.AddHit(geo::kX, u, 0, z, 0, sigu, 0, sigz, 0, 1);
    else
      hits.AddHit(geo::kY, 0, u, z, 0, 0, sigu, sigz, 0, 1);
  }
  if (hits.size() < 4) Fail(file + ": a track needs at least four hits");
  return hits;
}

//! [hits]

//! [frame]
// Step 2: the frame along the track, with its origin at the first hit.
kelvo::TrackBasis MakeFrame(const kelvo::HitList3D& hits) {
  std::vector<double> x, y, z, dx, dy, dz;
  for (const kelvo::Hit3D& h : hits) {
    x.push_back(h.fX);
    y.push_back(h.fY);
    z.push_back(h.fZ);
    dx.push_back(h.fSigX);
    dy.push_back(h.fSigY);
    dz.push_back(h.fSigZ);
  }
  kelvo::TrackBasis frame;
  frame.MakeBasis(x, y, z, dx, dy, dz, x[0], y[0], z[0]);
  return frame;
}

std::vector<Measurement> InFrame(const kelvo::HitList3D& hits, const kelvo::TrackBasis& frame) {
  std::vector<Measurement> measurements;
  for (const kelvo::Hit3D& h : hits) {
    double x = 0, y = 0, z = 0, sigx = 0, sigy = 0;
    frame.DetToTrk(h.fX, h.fY, h.fZ, h.fSigX, h.fSigY, h.fSigZ, &x, &y, &z, &sigx, &sigy, nullptr);
    const bool isX = h.fView == geo::kX;
    measurements.push_back({h.fView, z, isX ? x : y, isX ? sigx : sigy});
  }
  std::sort(measurements.begin(), measurements.end(),
            [](const Measurement& a, const Measurement& b) { return a.fZ < b.fZ; });
  return measurements;
}

//! [frame]

/// The fitted track before its first scattering plane, in one view of the track frame.
struct Line {
  double fX0 = 0, fSlope = 0; // at the frame's origin [cm]
};

//! [view]
// Step 4: the straight line that bends at the surfaces, through the hits of one view.
Line FitView(geo::_plane_proj view, const std::vector<Measurement>& all,
             const kelvo::ScatteringSurfaces& surfaces) {
  std::vector<Measurement> hits;
  for (const Measurement& m : all)
    if (m.fView == view) hits.push_back(m);
  const auto n = static_cast<unsigned int>(hits.size());
  kelvo::Lutz fit(n, surfaces.N());
  for (unsigned int i = 0; i < n; i++) fit.SetMeasurement(i, hits[i].fZ, hits[i].fU, hits[i].fSigU);
  for (unsigned int j = 0; j < surfaces.N(); j++)
    fit.SetScatteringPlane(j, surfaces.S(j), surfaces.SigAlpha(j));

  Line line;
  double chi2 = 0;
  std::vector<double> kinks(surfaces.N());
  fit.Fit(&line.fX0, &line.fSlope, kinks.data(), &chi2);
  if (!fit.Succeeded()) Fail("the hits of one view do not fix a line; two different z are needed");
  double largest = 0;
  for (const double kink : kinks) largest = std::max(largest, std::fabs(kink));
  std::printf("%4s %5u %9.3f +- %.3f %9.4f +- %.4f %14.1f %9.1f %5d\n", view == geo::kX ? "x" : "y",
              n, line.fX0, std::sqrt(fit.VarX(0)), line.fSlope, std::sqrt(fit.Covariance()(1, 1)),
              1e3 * largest, chi2, fit.NDOF());
  return line;
}
//! [view]

/// The fitted track where it begins, in the detector again.
void PrintBegin(const kelvo::TrackBasis& frame, const Line& x, const Line& y) {
  double at[3], next[3];
  frame.TrkToDet(x.fX0, y.fX0, 0, 0, 0, 0, &at[0], &at[1], &at[2], nullptr, nullptr, nullptr);
  frame.TrkToDet(x.fX0 + x.fSlope, y.fX0 + y.fSlope, 1, 0, 0, 0, &next[0], &next[1], &next[2],
                 nullptr, nullptr, nullptr);
  const double length = std::hypot(next[0] - at[0], next[1] - at[1], next[2] - at[2]);
  std::printf("\nbegins at (%.2f, %.2f, %.2f) cm in the direction (%.4f, %.4f, %.4f)\n", at[0],
              at[1], at[2], (next[0] - at[0]) / length, (next[1] - at[1]) / length,
              (next[2] - at[2]) / length);
}

//! [momenta]
void PrintMomenta(const kelvo::Path& path, double s) {
  std::printf(
      "\nat the first hit, by range        T [GeV]  p [GeV/c]    beta  dE/dx in scintillator\n");
  const char* names[] = {"muon", "charged pion", "proton"};
  const double masses[] = {0.105658, 0.13957, 0.938272}; // [GeV]
  double T[3], p[3], beta[3];
  path.MuonParams(s, &T[0], &p[0], &beta[0], nullptr);
  path.PionParams(s, &T[1], &p[1], &beta[1], nullptr);
  path.ProtonParams(s, &T[2], &p[2], &beta[2], nullptr);
  const kelvo::dEdxTable scintillator("Scintillator");
  for (int i = 0; i < 3; i++)
    std::printf("%31s %9.3f %10.3f %7.4f %10.3f MeV/cm\n", names[i], T[i], p[i], beta[i],
                1e3 * scintillator(T[i], masses[i]));
}
//! [momenta]

void FitTrack(const geo::PlaneDetector& detector, kelvo::HitList3D hits, int pdg) {
  hits.CompleteOrtho(); // sorts by z and fills in what the planes did not measure
  const kelvo::TrackBasis frame = MakeFrame(hits);
  const TVector3& axis = frame.ZAxis();
  std::printf("%zu hits along (%.4f, %.4f, %.4f)\n", hits.size(), axis.X(), axis.Y(), axis.Z());

  //! [planes]
  // Step 3: the scattering planes. The particle stops somewhere before the next plane that it would
  // have hit: halfway there.
  const std::vector<Measurement> measurements = InFrame(hits, frame);
  std::vector<double> s;
  s.reserve(measurements.size());
  for (const Measurement& m : measurements) s.push_back(m.fZ);
  const double end = s.back() + 0.5 * (s.back() - s[s.size() - 2]);
  double p0[3], p1[3];
  frame.TrkToDet(0, 0, s.front(), 0, 0, 0, &p0[0], &p0[1], &p0[2], nullptr, nullptr, nullptr);
  frame.TrkToDet(0, 0, end, 0, 0, 0, &p1[0], &p1[1], &p1[2], nullptr, nullptr, nullptr);
  kelvo::ScatteringSurfaces surfaces(pdg, kMaxDs, kMaxDX0, kMaxDT);
  surfaces.MakeSurfaces(detector, p0, p1, s);
  //! [planes]

  std::printf("\n%u scattering planes     s [cm]  width [mrad]\n", surfaces.N());
  for (unsigned int j = 0; j < surfaces.N(); j++)
    std::printf("%32.2f %13.2f\n", surfaces.S(j), 1e3 * surfaces.SigAlpha(j));

  std::printf(
      "\nview  hits   intercept [cm]            slope   largest kink [mrad]   chi2   NDF\n");
  const Line x = FitView(geo::kX, measurements, surfaces);
  const Line y = FitView(geo::kY, measurements, surfaces);
  PrintBegin(frame, x, y);
  PrintMomenta(kelvo::Path(detector, p0, p1, s.front()), s.front());
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::cerr << "usage: " << argv[0] << " DETECTOR.toml HITS.txt [PDG code]\n";
    return 2;
  }
  const int pdg = argc == 4 ? std::atoi(argv[3]) : 13;
  if (pdg != 13 && pdg != 211 && pdg != 2212) {
    std::cerr << "the PDG code is 13 (muon), 211 (charged pion) or 2212 (proton), not " << argv[3]
              << '\n';
    return 2;
  }
  try {
    FitTrack(geo::PlaneDetector::FromFile(argv[1]), ReadHits(argv[2]), pdg);
  } catch (kelvo::KelvoException& e) {
    e.Print();
    return 1;
  } catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
  }
  return 0;
}
