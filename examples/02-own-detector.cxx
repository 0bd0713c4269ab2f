// A detector of one's own: a drum of liquid scintillator, which no file of planes and slabs can
// describe. Lists what a particle crosses on a straight way to the point where it stops, and how
// fast it must have been at the start to get there.
//
//   02-own-detector [x y z  x y z]     start and stop [cm]

#include "func/KelvoException.h"
#include "func/Path.h"
#include "geo/GeometryBase.h"

#include <TGeoMaterial.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace {

/// One cylinder around the z axis, without the ones inside of it.
struct Shell {
  double fRadius; // outer [cm]
  const TGeoMaterial* fMaterial;
};

//! [geometry]
// Scintillator in a drum of PVC and steel that stands on z = 0, with vacuum around. Nothing changes
// after construction, so any number of threads may share one.
class Drum : public geo::GeometryBase {
public:
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override {
    const double length = std::hypot(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]);
    if (length == 0) return;
    const std::vector<double> cuts = Cuts(p0, p1);
    for (std::size_t i = 0; i + 1 < cuts.size(); i++) {
      ds.push_back(length * (cuts[i + 1] - cuts[i]));
      const double middle = 0.5 * (cuts[i] + cuts[i + 1]);
      double p[3];
      for (int k = 0; k < 3; k++) p[k] = p0[k] + middle * (p1[k] - p0[k]);
      mats.push_back(Material(p));
    }
  }

  //! [geometry]

private:
  /// Where the line from p0 (0) to p1 (1) meets a surface, in order, with both ends.
  std::vector<double> Cuts(const double* p0, const double* p1) const {
    std::vector<double> cuts{0, 1};
    const auto add = [&cuts](double t) {
      if (t > 0 && t < 1) cuts.push_back(t);
    };
    const double dx = p1[0] - p0[0], dy = p1[1] - p0[1], dz = p1[2] - p0[2];
    // |p0 + t (p1 - p0)| = radius across the axis: a t^2 + 2 b t + c = 0
    const double a = dx * dx + dy * dy;
    const double b = p0[0] * dx + p0[1] * dy;
    for (const Shell& shell : fShells) {
      const double c = p0[0] * p0[0] + p0[1] * p0[1] - shell.fRadius * shell.fRadius;
      const double root = b * b - a * c;
      if (a == 0 || root <= 0) continue; // along the axis, or past the shell
      add((-b - std::sqrt(root)) / a);
      add((-b + std::sqrt(root)) / a);
    }
    for (const double z : {0., fHeight})
      if (dz != 0) add((z - p0[2]) / dz);
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    return cuts;
  }

  const TGeoMaterial* Material(const double* p) const {
    if (p[2] < 0 || p[2] > fHeight) return fVacuum;
    const double radius = std::hypot(p[0], p[1]);
    for (const Shell& shell : fShells)
      if (radius < shell.fRadius) return shell.fMaterial;
    return fVacuum;
  }

  //! [materials]
  // The name picks the stopping power: Scintillator, PVC, Glue, Steel or Vacuum. Then atomic mass
  // and number, density [g/cm3], and minus the radiation and nuclear interaction lengths [cm]:
  // without either ROOT would compute it, by a geometry that is not there. Never deleted here:
  // ROOT's geometry package, where it is there, does so at the end of the program.
  const TGeoMaterial* fScintillator =
      new TGeoMaterial("Scintillator", 11.2, 5.6, 0.859, -51.447, -91.2);
  const TGeoMaterial* fPVC = new TGeoMaterial("PVC", 20, 10, 1.49, -16.517, -63.8);
  const TGeoMaterial* fSteel = new TGeoMaterial("Steel", 55.845, 26, 7.87, -1.7584, -17);
  const TGeoMaterial* fVacuum = new TGeoMaterial("Vacuum", 0, 0, 0);
  //! [materials]
  const std::vector<Shell> fShells{{30, fScintillator}, {31, fPVC}, {31.5, fSteel}}; // outwards
  const double fHeight = 100;                                                        // cm
};

void PrintSteps(const Drum& drum, const kelvo::Path& path, const double* start,
                const double* stop) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  drum.MaterialsBetweenPoints(start, stop, ds, mats);
  std::printf("material      length [cm]   to here [radiation lengths]\n");
  double s = 0;
  for (std::size_t i = 0; i < ds.size(); i++) {
    s += ds[i];
    std::printf("%-12s %12.2f %29.3f\n", mats[i]->GetName(), ds[i], path.X0(s));
  }
  std::printf("together     %12.2f %29.3f\n", path.Length(), path.X0(path.Length()));
}

void PrintStart(const kelvo::Path& path) {
  double T = 0, p = 0, beta = 0;
  const auto print = [&](const char* particle) {
    std::printf("%-12s %12.4f %10.4f %10.4f\n", particle, T, p, beta);
  };
  std::printf("\nat the start      T [GeV]  p [GeV/c]       beta\n");
  path.MuonParams(0, &T, &p, &beta, nullptr);
  print("muon");
  path.PionParams(0, &T, &p, &beta, nullptr);
  print("charged pion");
  path.ProtonParams(0, &T, &p, &beta, nullptr);
  print("proton");
}

bool ReadNumber(const char* text, double* number) {
  char* end = nullptr;
  *number = std::strtod(text, &end);
  return end != text && *end == '\0' && std::isfinite(*number);
}

} // namespace

int main(int argc, char** argv) {
  double points[6] = {-40, 10, 20, 12, -5, 70};
  bool good = argc == 1 || argc == 7;
  for (int i = 1; good && i < argc; i++) good = ReadNumber(argv[i], &points[i - 1]);
  if (!good) {
    std::cerr << "usage: " << argv[0] << " [x y z  x y z], where it starts and stops in cm\n";
    return 2;
  }
  const double* start = points;
  const double* stop = points + 3;
  if (std::equal(start, stop, stop)) {
    std::cerr << "start and stop are the same point; there is no way between them\n";
    return 2;
  }
  //! [path]
  static const Drum drum; // lives as long as its materials
  try {
    const kelvo::Path path(drum, start, stop, 0);
    PrintSteps(drum, path, start, stop);
    PrintStart(path);
    //! [path]
  } catch (kelvo::KelvoException& e) {
    e.Print();
    return 1;
  }
  return 0;
}
