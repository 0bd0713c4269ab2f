#include "func/HitList3D.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>

namespace {

/// Half-width of the first window [cm]; two more follow, each twice as wide. A choice: some tens of
/// planes of the detectors in mind, over which a track is straight enough for a line.
constexpr double kFirstWindow = 100.0;
constexpr int kAttempts = 3;
/// Hits of the other view from which on a window is not widened any more. A choice.
constexpr unsigned int kEnoughHits = 6;
/// Uncertainty of a coordinate that no hit of the other view constrains [cm]: wider than a
/// detector.
constexpr double kUnknown = 1000.0;

/// Sums over the hits of the other view within one window.
struct Sums {
  unsigned int fN = 0;
  double fS = 0;
  double fSz = 0;
  double fSzz = 0;
  double fSc = 0;
  double fSzc = 0;

  void Add(const kelvo::Hit3D& h, double c) {
    const double w = h.fW;
    const double wz = w * h.fZ;
    fS += w;
    fSz += wz;
    fSzz += wz * h.fZ;
    fSc += w * c;
    fSzc += wz * c;
    fN++;
  }
};

double Measured(const kelvo::Hit3D& h) {
  if (h.fView == geo::kX) return h.fX;
  if (h.fView == geo::kY) return h.fY;
  std::abort();
}

/// Sums over list[first...] up to the first hit beyond the window around the hit.
Sums SumWindow(const kelvo::Hit3D& hit, const kelvo::HitList3D& list, std::size_t first,
               std::size_t k, double window) {
  Sums sums;
  for (std::size_t i = first; i < list.size(); i++) {
    const kelvo::Hit3D& other = list[i];
    const double distance = std::fabs(other.fZ - hit.fZ);
    if (i > k && !(distance <= window)) break;
    if (other.fView != hit.fView && distance < window) sums.Add(other, Measured(other));
  }
  return sums;
}

void SetUnknown(kelvo::Hit3D& hit) {
  if (hit.fView == geo::kX) {
    hit.fY = 0;
    hit.fSigY = kUnknown;
  } else if (hit.fView == geo::kY) {
    hit.fX = 0;
    hit.fSigX = kUnknown;
  }
}

} // namespace

namespace kelvo {

HitList3D::HitList3D(unsigned int n) : std::vector<Hit3D>(n) {}

void HitList3D::AddHit(geo::_plane_proj view, double x, double y, double z, double t, double sigx,
                       double sigy, double sigz, double sigt, double w) {
  push_back({view, x, y, z, t, sigx, sigy, sigz, sigt, w});
}

void HitList3D::SetHit(unsigned int i, geo::_plane_proj view, double x, double y, double z,
                       double t, double sigx, double sigy, double sigz, double /*sigt*/, double w) {
  Hit3D& hit = (*this)[i];
  hit = {view, x, y, z, t, sigx, sigy, sigz, hit.fSigT, w};
}

void HitList3D::SortByZ() {
  std::sort(begin(), end(), gsSortHit3DByZ);
}

void HitList3D::SortByY() {
  std::sort(begin(), end(), gsSortHit3DByY);
}

void HitList3D::CompleteOrtho(void (*interp)(Hit3D& hit, HitList3D& list)) {
  if (!interp) {
    SortByZ();
    interp = gsDefaultInterp;
  }
  for (std::size_t i = 0; i < size(); i++) interp((*this)[i], *this);
}

} // namespace kelvo

bool gsSortHit3DByZ(const kelvo::Hit3D& a, const kelvo::Hit3D& b) {
  return a.fZ < b.fZ;
}

bool gsSortHit3DByY(const kelvo::Hit3D& a, const kelvo::Hit3D& b) {
  return a.fY > b.fY;
}

void gsDefaultInterp(kelvo::Hit3D& hit, kelvo::HitList3D& list) {
  const std::size_t k = static_cast<std::size_t>(&hit - list.data());
  std::size_t first = k;
  double window = kFirstWindow;
  Sums s;
  for (int attempt = 0; attempt < kAttempts; attempt++, window *= 2) {
    while (first > 0 && std::fabs(list[first - 1].fZ - hit.fZ) <= window) first--;
    s = SumWindow(hit, list, first, k, window);
    if (s.fN >= kEnoughHits) break;
  }

  const double d = s.fS * s.fSzz - s.fSz * s.fSz;
  if (d == 0) return SetUnknown(hit);

  const double b = (s.fS * s.fSzc - s.fSz * s.fSc) / d;
  const double a = -(s.fSz * s.fSzc - s.fSzz * s.fSc) / d;
  const double fromZ = b * b * hit.fSigZ * hit.fSigZ;
  if (hit.fView == geo::kX) {
    hit.fY = a + hit.fZ * b;
    hit.fSigY = std::sqrt(fromZ + hit.fSigX * hit.fSigX);
  } else if (hit.fView == geo::kY) {
    hit.fX = a + hit.fZ * b;
    hit.fSigX = std::sqrt(fromZ + hit.fSigY * hit.fSigY);
  } else {
    std::abort();
  }
}
