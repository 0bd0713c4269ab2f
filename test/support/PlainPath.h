#pragma once

#include <TGeoMaterial.h>
#include <TVector3.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "geo/GeometryBase.h"

/// The slow and obvious energy loss and range-out that the library must equal to the last bit:
/// scans from the start of every table, logarithms at every lookup, one hypothesis after the other.
namespace plain {

struct Table {
  std::vector<double> fT;    // GeV
  std::vector<double> fdEdx; // MeV cm2/g
  double fDensity = 0;       // g/cm3
};

inline std::vector<double> Numbers(std::string text) {
  std::replace(text.begin(), text.end(), ',', ' ');
  std::vector<double> numbers;
  std::istringstream in(text);
  for (double x = 0; in >> x;) numbers.push_back(x);
  return numbers;
}

/// Reads the tables from the library's source text, so that nothing but the numbers is shared.
inline std::map<std::string, Table> ReadTables(const std::string& source) {
  std::ifstream in(source);
  if (!in) throw std::runtime_error(source + " cannot be read");
  const std::string text(std::istreambuf_iterator<char>(in), {});
  std::map<std::string, Table> tables;
  const std::pair<const char*, double> materials[] = {
      {"Scintillator", 0.859}, {"PVC", 1.49}, {"Glue", 1.34}, {"Steel", 7.87}};
  const auto array = [&](const std::string& name) {
    const std::size_t open = text.find('{', text.find("double k" + name + "[")) + 1;
    return Numbers(text.substr(open, text.find('}', open) - open));
  };
  for (const auto& [name, density] : materials)
    tables[name] = {array("Grid"), array(name), density};
  tables["Vacuum"] = {{0.01, 800}, {1e-6, 1e-6}, 1e-6};
  return tables;
}

inline double Interp(double T, double M, const std::vector<double>& t,
                     const std::vector<double>& dedx) {
  const std::size_t n = t.size();
  const double r = T / M;
  const double bg = std::sqrt((2 + r) * r);
  const double x = (std::sqrt(bg * bg + 1) - 1) * 0.1056583568;
  std::size_t i = 0;
  if (t[0] >= x)
    i = 0;
  else if (x >= t[n - 1])
    i = n - 2;
  else
    for (i = 0; i + 2 < n; i++)
      if (t[i] <= x && t[i + 1] > x) break;
  const double value =
      std::exp((std::log(x) - std::log(t[i])) * (std::log(dedx[i + 1]) - std::log(dedx[i])) /
                   (std::log(t[i + 1]) - std::log(t[i])) +
               std::log(dedx[i]));
  return value * 0.001;
}

inline double dEdx(const Table& table, double T, double M) {
  return Interp(T, M, table.fT, table.fdEdx) * table.fDensity;
}

inline double IntegrateT(const Table& table, double ds, double m, double T) {
  unsigned int n = 1;
  double h = ds;
  while (h > 10.0) {
    n *= 2;
    h = ds / n;
  }
  for (unsigned int k = 0; k < n; k++) {
    const double mid = T + (h / 2) * dEdx(table, T, m);
    T = T + h * dEdx(table, mid, m);
  }
  return T;
}

inline double Lookup(double x, const std::vector<double>& xs, const std::vector<double>& ys) {
  const std::size_t last = xs.size() - 1;
  std::size_t i = 0;
  if (xs[0] > x) {
    i = 0;
  } else if (x >= xs[last]) {
    i = last - 1;
  } else {
    for (i = 0; i < last; i++)
      if (xs[i] <= x && x < xs[i + 1]) break;
  }
  const double y = ys[i] + (ys[i + 1] - ys[i]) * (x - xs[i]) / (xs[i + 1] - xs[i]);
  if (y >= 0) return y;
  if (y > -0.05) return 0;
  return y;
}

/// The five tables of a path.
struct Path {
  std::vector<double> fS, fX0, fT[3];

  Path(const geo::GeometryBase& geo, const std::map<std::string, Table>& tables,
       const std::vector<TVector3>& points) {
    const double mass[3] = {0.105658, 0.13957, 0.938272};
    double s = 0;
    double x0 = 0;
    double T[3] = {0.00105658, 0.0013957, 0.00938272};
    Append(s, x0, T);
    for (std::size_t leg = points.size() - 1; leg >= 1; --leg) {
      const double from[3] = {points[leg].X(), points[leg].Y(), points[leg].Z()};
      const double to[3] = {points[leg - 1].X(), points[leg - 1].Y(), points[leg - 1].Z()};
      std::vector<double> ds;
      std::vector<const TGeoMaterial*> mats;
      geo.MaterialsBetweenPoints(from, to, ds, mats);
      for (std::size_t k = 0; k < ds.size(); k++) {
        const std::string name = mats[k]->GetName();
        s += ds[k];
        x0 += ds[k] / (name == "Vacuum" ? 1e30 : mats[k]->GetRadLen());
        for (int h = 0; h < 3; h++) T[h] = IntegrateT(tables.at(name), ds[k], mass[h], T[h]);
        Append(s, x0, T);
      }
    }
    for (auto* table : {&fS, &fX0, &fT[0], &fT[1], &fT[2]})
      std::reverse(table->begin(), table->end());
    for (double& entry : fS) entry = s - entry;
    for (double& entry : fX0) entry = x0 - entry;
  }

  void Append(double s, double x0, const double* T) {
    fS.push_back(s);
    fX0.push_back(x0);
    for (int h = 0; h < 3; h++) fT[h].push_back(T[h]);
  }
};

} // namespace plain
