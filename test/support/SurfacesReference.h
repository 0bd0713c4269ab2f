#pragma once

#include "func/dEdxTable.h"
#include "geo/GeometryBase.h"

#include <TGeoMaterial.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

/// Scattering surfaces as one plain program: tables along the straight track, then steps, with a
/// scan from the start of the table for every value. Nothing is kept from one step to the next.
namespace reference {

struct Slab {
  double fEnd; // [cm]
  const TGeoMaterial* fMaterial;
};

/// Slabs one behind the other along z; beyond either end the outer slab goes on.
class Slabs : public geo::GeometryBase {
public:
  explicit Slabs(std::vector<Slab> slabs) : fSlabs(std::move(slabs)) {}

  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    const double length = std::hypot(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]);
    const double low = std::min(p0[2], p1[2]), high = std::max(p0[2], p1[2]);
    double z = low;
    for (std::size_t i = 0; i < fSlabs.size(); i++) {
      const bool last = i + 1 == fSlabs.size();
      const double end = last ? high : std::min(high, fSlabs[i].fEnd);
      if (end <= z && !(last && mats.empty())) continue;
      ds.push_back(high > low ? length * (end - z) / (high - low) : length);
      mats.push_back(fSlabs[i].fMaterial);
      z = std::max(z, end);
    }
    if (p1[2] < p0[2]) {
      std::reverse(ds.begin(), ds.end());
      std::reverse(mats.begin(), mats.end());
    }
  }

private:
  std::vector<Slab> fSlabs;
};

struct Tables {
  std::vector<double> s, x0, T[3]; // muon, pion, proton
};

inline constexpr double kMass[3] = {0.105658, 0.13957, 0.938272};

inline Tables Integrate(const geo::GeometryBase& geometry, const double* p0, const double* p1) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  geometry.MaterialsBetweenPoints(p1, p0, ds, mats);
  const std::size_t n = ds.size();
  Tables t;
  t.s.assign(n + 1, 0);
  t.x0.assign(n + 1, 0);
  const double end[3] = {0.00105658, 0.0013957, 0.00938272};
  for (int h = 0; h < 3; h++) t.T[h].assign(n + 1, end[h]);
  for (std::size_t k = 0; k < n; k++) { // entry n is the end of the track, entry 0 its start
    const std::size_t from = n - k, to = from - 1;
    const bool vacuum = std::strcmp(mats[k]->GetName(), "Vacuum") == 0;
    t.s[to] = t.s[from] + ds[k];
    t.x0[to] = t.x0[from] + ds[k] / (vacuum ? 1e30 : mats[k]->GetRadLen());
    int parts = 1;
    while (ds[k] / parts > 10.0) parts *= 2;
    const double step = ds[k] / parts;
    for (int h = 0; h < 3; h++) {
      const kelvo::dEdxTable table(mats[k]->GetName());
      double T = t.T[h][from];
      for (int i = 0; i < parts; i++) {
        const double middle = T + (step / 2) * table(T, kMass[h]);
        T = T + step * table(middle, kMass[h]);
      }
      t.T[h][to] = T;
    }
  }
  const double length = t.s[0], thickness = t.x0[0];
  for (std::size_t k = 0; k <= n; k++) {
    t.s[k] = length - t.s[k];
    t.x0[k] = thickness - t.x0[k];
  }
  return t;
}

inline double Lookup(double s, const std::vector<double>& xs, const std::vector<double>& ys) {
  const std::size_t last = xs.size() - 1;
  std::size_t i = 0;
  if (s >= xs[last])
    i = last - 1;
  else if (s >= xs[0])
    while (!(xs[i] <= s && s < xs[i + 1])) i++;
  const double y = ys[i] + (ys[i + 1] - ys[i]) * (s - xs[i]) / (xs[i + 1] - xs[i]);
  return y < 0 ? 0 : y;
}

struct Step {
  double ds, sMid, dX0, sigAlpha, dT;
};

/// The step between two path coordinates; origin is the one of the first point.
inline Step StepBetween(const Tables& t, int pdg, double s0, double s1, double origin = 0) {
  Step step{};
  step.sMid = (s0 + s1) * 0.5;
  const int h = pdg == 13 ? 0 : pdg == 211 ? 1 : 2;
  const double E = Lookup(step.sMid - origin, t.s, t.T[h]) + kMass[h];
  double p = E * std::sqrt(1 - (kMass[h] / E) * (kMass[h] / E));
  double beta = p / E;
  if (p <= 1e-5) p = 1e-5; // no case has a negative one
  if (beta < 1e-6) beta = 1e-6;
  step.ds = s1 - s0;
  step.dX0 = Lookup(s1 - origin, t.s, t.x0) - Lookup(s0 - origin, t.s, t.x0);
  step.sigAlpha = 1e-6;
  if (step.dX0 > 1e-6) {
    const double c = 0.00785196366097891 / beta / p;
    step.sigAlpha = std::sqrt(step.dX0) * c * (std::log(step.dX0) * 0.038 + 1.0);
  }
  step.dT = step.sigAlpha * step.ds;
  return step;
}

inline void Surfaces(const geo::GeometryBase& geometry, const double* p0, const double* p1, int pdg,
                     double maxDs, double maxDX0, double maxDT, const std::vector<double>& s,
                     std::vector<double>& where, std::vector<double>& width) {
  const Tables tables = Integrate(geometry, p0, p1);
  const std::size_t n = s.size();
  std::size_t i = 0;
  while (i + 1 < n) {
    std::size_t j = i + 1;
    while (j + 1 < n) {
      const Step span = StepBetween(tables, pdg, s[i], s[j], s[0]);
      if (span.ds > maxDs || span.dX0 > maxDX0 || span.dT > maxDT) {
        if (j > i + 1) --j;
        break;
      }
      j++;
    }
    const Step step = StepBetween(tables, pdg, s[i], s[j], s[0]);
    if (step.ds != 0) {
      where.push_back(step.sMid);
      width.push_back(step.sigAlpha);
    }
    i = j;
  }
  if (where.empty()) {
    const Step step = StepBetween(tables, pdg, s.front(), s.back(), s[0]);
    where.push_back(step.sMid);
    width.push_back(step.sigAlpha);
  }
}

} // namespace reference
