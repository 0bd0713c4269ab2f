// Fits one view of one track and prints the result as a table.
//
//   01-fit-one-view examples/data/one-view-track.txt [fit.csv]

#include "func/KelvoException.h"
#include "func/Lutz.h"

#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Measurement {
  int fLine;
  double fZ, fX, fSigX;
};

struct Plane {
  int fLine;
  double fZ, fSigAlpha;
};

struct View {
  std::string fFile;
  std::vector<Measurement> fMeasurements;
  std::vector<Plane> fPlanes;
};

[[noreturn]] void Fail(const View& view, int line, const std::string& what) {
  throw std::runtime_error(view.fFile + ":" + std::to_string(line) + ": " + what);
}

void ReadLine(View& view, int line, const std::string& text) {
  std::istringstream words(text);
  std::string kind;
  words >> kind;
  if (kind == "measurement") {
    Measurement m{line, 0, 0, 0};
    if (!(words >> m.fZ >> m.fX >> m.fSigX))
      Fail(view, line, "a measurement needs three numbers: z, x and the sigma of x, in cm");
    view.fMeasurements.push_back(m);
  } else if (kind == "plane") {
    Plane p{line, 0, 0};
    if (!(words >> p.fZ >> p.fSigAlpha))
      Fail(view, line, "a plane needs two numbers: z in cm and the width of the angle in rad");
    view.fPlanes.push_back(p);
  } else {
    Fail(view, line, "a line begins with 'measurement', 'plane' or '#', not '" + kind + "'");
  }
  if (words >> kind)
    Fail(view, line, "nothing may follow the last number, but '" + kind + "' does");
}

View ReadView(const std::string& file) {
  View view{file, {}, {}};
  std::ifstream in(file);
  if (!in) throw std::runtime_error(file + ": cannot be opened for reading");
  std::string text;
  for (int line = 1; std::getline(in, text); line++)
    if (!text.empty() && text[0] != '#') ReadLine(view, line, text);
  return view;
}

//! [load]
kelvo::Lutz Load(const View& view) {
  const auto n = static_cast<unsigned int>(view.fMeasurements.size());
  const auto m = static_cast<unsigned int>(view.fPlanes.size());
  if (n <= m)
    throw std::runtime_error(view.fFile + ": " + std::to_string(n) + " measurements cannot fix " +
                             std::to_string(m) + " kinks; give more measurements than planes");
  kelvo::Lutz fit(n, m);
  for (unsigned int i = 0; i < n; i++) {
    const Measurement& meas = view.fMeasurements[i];
    try {
      fit.SetMeasurement(i, meas.fZ, meas.fX, meas.fSigX);
    } catch (const kelvo::KelvoException&) {
      Fail(view, meas.fLine,
           "measurement " + std::to_string(i) + " needs numbers and a sigma above 0, not " +
               std::to_string(meas.fSigX));
    }
  }
  for (unsigned int j = 0; j < m; j++) {
    const Plane& plane = view.fPlanes[j];
    try {
      fit.SetScatteringPlane(j, plane.fZ, plane.fSigAlpha);
    } catch (const kelvo::KelvoException&) {
      Fail(view, plane.fLine,
           "plane " + std::to_string(j) + " needs numbers and a width above 0, not " +
               std::to_string(plane.fSigAlpha));
    }
  }
  return fit;
}
//! [load]

//! [results]
void PrintTable(const View& view, const kelvo::Lutz& fit, double x0, double slope,
                const std::vector<double>& kinks) {
  std::printf("intercept %9.4f +- %.4f cm\n", x0, std::sqrt(fit.VarX(0)));
  std::printf("slope     %9.5f +- %.5f\n", slope, std::sqrt(fit.Covariance()(1, 1)));
  std::printf("chi2 %.2f (measurements %.2f, kinks %.2f) for %d degrees of freedom\n\n",
              fit.Chi2XI() + fit.Chi2Beta(), fit.Chi2XI(), fit.Chi2Beta(), fit.NDOF());
  std::printf("    z [cm]    x [cm]  fit [cm]  +- [cm]  chi2\n");
  for (unsigned int i = 0; i < fit.NMeas(); i++) {
    const Measurement& m = view.fMeasurements[i];
    std::printf("%10.2f %9.3f %9.3f %8.3f %5.2f\n", m.fZ, m.fX, fit.X(m.fZ),
                std::sqrt(fit.VarX(m.fZ)), fit.Chi2XIi(i));
  }
  std::printf("\n  plane z [cm]  kink [mrad]  expected width [mrad]\n");
  for (unsigned int j = 0; j < fit.NScat(); j++)
    std::printf("%14.2f %12.2f %22.2f\n", view.fPlanes[j].fZ, 1e3 * kinks[j],
                1e3 * view.fPlanes[j].fSigAlpha);
}
//! [results]

void WriteCSV(const std::string& file, const View& view, const kelvo::Lutz& fit) {
  std::ofstream out(file);
  out << "z,x,sigx,fit,sigfit\n";
  for (const Measurement& m : view.fMeasurements)
    out << m.fZ << ',' << m.fX << ',' << m.fSigX << ',' << fit.X(m.fZ) << ','
        << std::sqrt(fit.VarX(m.fZ)) << '\n';
  out.close();
  if (!out) throw std::runtime_error(file + ": cannot be written");
  std::printf("\nwritten: the fitted track at the measurements, to %s\n", file.c_str());
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::cerr << "usage: " << argv[0] << " TRACK.txt [FIT.csv]\n";
    return 2;
  }
  try {
    //! [fit]
    const View view = ReadView(argv[1]);
    kelvo::Lutz fit = Load(view);
    double x0 = 0;
    double slope = 0;
    std::vector<double> kinks(fit.NScat());
    fit.Fit(&x0, &slope, kinks.data(), nullptr);
    if (!fit.Succeeded())
      throw std::runtime_error(view.fFile +
                               ": the measurements do not fix a line; "
                               "at least two different z are needed");
    PrintTable(view, fit, x0, slope, kinks);
    //! [fit]
    if (argc == 3) WriteCSV(argv[2], view, fit);
  } catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
  }
  return 0;
}
