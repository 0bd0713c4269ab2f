#include "func/ScatteringSurfaces.h"

#include <cmath>
#include <cstdlib>
#include <iostream>

#include "func/KelvoException.h"
#include "func/Path.h"

namespace kelvo {

namespace {

constexpr char kFile[] = "func/ScatteringSurfaces";
/// Where these two checks are reported. Callers tell momentum from velocity by the line, since both
/// carry the same code: the numbers stay when this file changes.
constexpr unsigned int kMomentumLine = 90;
constexpr unsigned int kVelocityLine = 95;

/// Smallest momentum [GeV/c] and velocity [c]: choices, far below any particle that a plane
/// detects.
constexpr double kMinMomentum = 1e-5;
constexpr double kMinVelocity = 1e-6;

/// 0.0136 GeV / sqrt(3): Lynch and Dahl's constant, for the angle of the chord in one plane.
constexpr double kScattering = 0.00785196366097891;
/// Lynch and Dahl's logarithmic correction.
constexpr double kLogarithm = 0.038;
/// Thickness up to which the formula is not used [radiation lengths], and the width given instead
/// [rad]: choices, so that the fit finds a positive width at every plane.
constexpr double kMinThickness = 1e-6;
constexpr double kMinWidth = 1e-6;

void Store(double* to, double value) {
  if (to) *to = value;
}

} // namespace

ScatteringSurfaces::ScatteringSurfaces(int pdg, double maxDs, double maxDX0, double maxDT)
    : fPDG(pdg < 0 ? 0u - static_cast<unsigned int>(pdg) : static_cast<unsigned int>(pdg)),
      fMaxDs(maxDs),
      fMaxDX0(maxDX0),
      fMaxDT(maxDT) {}

void ScatteringSurfaces::MakeSurfaces(const geo::GeometryBase& geo, const double* p0,
                                      const double* p1, const std::vector<double>& s) {
  if (s.empty()) throw KelvoException(kFile, __LINE__, kIndexProblem, 0);
  fS.clear();
  fSigAlpha.clear();
  const Path path(geo, p0, p1, s[0]);
  MakeSteps(path, s);
  if (N() > 0) return;

  double sMid = 0, sigAlpha = 0;
  const auto last = static_cast<unsigned int>(s.size() - 1);
  GetStepData(path, s, 0, last, nullptr, &sMid, nullptr, &sigAlpha, nullptr);
  AddSurface(sMid, sigAlpha);
}

void ScatteringSurfaces::MakeSteps(const Path& path, const std::vector<double>& s) {
  if (fS.empty()) {
    fS.reserve(s.size());
    fSigAlpha.reserve(s.size());
  }
  for (unsigned int i0 = 0; i0 + 1 < s.size();) {
    const unsigned int i1 = MakeStep(path, s, i0);
    double ds = 0, sMid = 0, sigAlpha = 0;
    GetStepData(path, s, i0, i1, &ds, &sMid, nullptr, &sigAlpha, nullptr);
    if (ds != 0) AddSurface(sMid, sigAlpha);
    i0 = i1;
  }
}

unsigned int ScatteringSurfaces::MakeStep(const Path& path, const std::vector<double>& s,
                                          unsigned int i0) const {
  unsigned int j = i0 + 1;
  double x0 = 0; // thickness before the step; one lookup serves every span from i0
  for (; j + 1 < s.size(); j++) {
    double beta = 0, p = 0;
    GetState(path, (s[i0] + s[j]) * 0.5, &beta, &p);
    const double ds = s[j] - s[i0];
    const double x1 = path.X0(s[j]);
    if (j == i0 + 1) x0 = path.X0(s[i0]);
    const double dX0 = x1 - x0;
    if (!GoodStep(ds, dX0, Width(dX0, beta, p) * ds)) return j - i0 >= 2 ? j - 1 : j;
  }
  return j;
}

void ScatteringSurfaces::GetStepData(const Path& path, const std::vector<double>& s,
                                     unsigned int i0, unsigned int i1, double* ds, double* sMid,
                                     double* dX0, double* sigAlpha, double* dT) const {
  const double middle = (s[i0] + s[i1]) * 0.5;
  Store(sMid, middle);
  double beta = 0, p = 0;
  GetState(path, middle, &beta, &p);
  const double length = s[i1] - s[i0];
  Store(ds, length);
  const double x1 = path.X0(s[i1]);
  const double thickness = x1 - path.X0(s[i0]);
  Store(dX0, thickness);
  const double width = Width(thickness, beta, p);
  Store(sigAlpha, width);
  Store(dT, width * length);
}

void ScatteringSurfaces::ForceOnePlane(const Path& path, const std::vector<double>& s) {
  if (s.empty()) throw KelvoException(kFile, __LINE__, kIndexProblem, 0);
  double sMid = 0, sigAlpha = 0;
  const auto last = static_cast<unsigned int>(s.size() - 1);
  GetStepData(path, s, 0, last, nullptr, &sMid, nullptr, &sigAlpha, nullptr);
  AddSurface(sMid, sigAlpha);
}

bool ScatteringSurfaces::GoodStep(double ds, double dX0, double dT) const {
  return !(ds > fMaxDs || dX0 > fMaxDX0 || dT > fMaxDT);
}

void ScatteringSurfaces::CheckLimits(double* beta, double* p) {
  if (p && *p <= kMinMomentum) {
    // Exactly the smallest momentum is refused as well: callers rely on it.
    if (std::fabs(*p) >= kMinMomentum) throw KelvoException(kFile, kMomentumLine, kBadP, *p);
    *p = kMinMomentum;
  }
  if (beta && *beta < kMinVelocity) {
    if (std::fabs(*beta) >= kMinVelocity) throw KelvoException(kFile, kVelocityLine, kBadP, *beta);
    *beta = kMinVelocity;
  }
}

double ScatteringSurfaces::Width(double dX0, double beta, double p) {
  if (!(dX0 > kMinThickness)) return kMinWidth;
  const double c = kScattering / beta / p;
  const double width = std::sqrt(dX0) * c * (std::log(dX0) * kLogarithm + 1.0);
  if (width < 0)
    std::cout << "\n beta: " << beta << "\n    p: " << p << "\n   dx: " << dX0 << std::endl;
  return width;
}

void ScatteringSurfaces::AddSurface(double s, double sigAlpha) {
  fS.push_back(s);
  fSigAlpha.push_back(sigAlpha);
}

/// Velocity and momentum at s under the hypothesis, within their limits.
void ScatteringSurfaces::GetState(const Path& path, double s, double* beta, double* p) const {
  *p = 0;
  *beta = 0;
  if (fPDG == 13) {
    path.MuonParams(s, nullptr, p, beta, nullptr);
  } else if (fPDG == 211) {
    path.PionParams(s, nullptr, p, beta, nullptr);
  } else if (fPDG == 2212) {
    path.ProtonParams(s, nullptr, p, beta, nullptr);
  } else {
    std::cout << "\n\n\nERROR: Kelvo is unable to fit under the assumption PDG = " << fPDG
              << ".  Aborting...\n\n\n";
    std::abort();
  }
  CheckLimits(beta, p);
}

} // namespace kelvo
