#include "app/Command.h"
#include "app/CommandParts.h"
#include "draw/EnergyLoss.h"
#include "geo/Matter.h"
#include "io/FileError.h"
#include "io/PendingFile.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo dedx Steel
      energy loss and range of muons, pions and protons in steel, as a table
  kelvo dedx Scintillator Steel --particle mu -o muons.svg
      draws those of muons in two materials
  kelvo dedx Lead LiquidArgon --particle p
      any material that 'kelvo materials' lists
  kelvo dedx PVC -o pvc.csv
      a finer table for other programs: kinetic energy T [GeV], momentum p [GeV/c], beta_gamma,
      dedx [MeV/cm], range [cm], and min, which is 1 at the point of minimum loss
The numbers are those that 'kelvo fit' ranges stopping particles out with.)";

struct DedxArguments {
  std::vector<std::string> fMaterials;
  std::vector<std::string> fParticles = ParticleNames();
  std::string fOutput;
};

std::vector<double> Energies(const std::vector<double>& perDecade) {
  std::vector<double> energies;
  for (int power = -3; power < 4; power++)
    for (const double factor : perDecade) energies.push_back(factor * std::pow(10, power));
  energies.push_back(1e4);
  return energies;
}

void Check(const DedxArguments& a) {
  for (const std::string& material : a.fMaterials)
    if (material == geo::kVacuum)
      throw std::invalid_argument("nothing is lost in \"Vacuum\"; name a material");
}

std::vector<EnergyLossCurve> Curves(const DedxArguments& a, const std::vector<double>& energies) {
  std::vector<EnergyLossCurve> curves;
  for (const std::string& material : a.fMaterials)
    for (const std::string& particle : a.fParticles)
      curves.push_back(FindEnergyLoss(material, *FindParticle(particle), energies));
  return curves;
}

std::vector<double> Fine() {
  std::vector<double> factors;
  factors.reserve(20);
  for (int i = 0; i < 20; i++) factors.push_back(std::pow(10, i / 20.));
  return factors;
}

void Print(const std::vector<EnergyLossCurve>& curves) {
  for (const EnergyLossCurve& curve : curves) {
    std::printf("%s%s in %s\n%12s %12s %12s %14s %12s\n", &curve == &curves[0] ? "" : "\n",
                curve.fParticle.fWord, curve.fMaterial.c_str(), "T [GeV]", "p [GeV/c]",
                "beta gamma", "dE/dx [MeV/cm]", "range [cm]");
    for (std::size_t i = 0; i < curve.fPoints.size(); i++) {
      const EnergyLossPoint& point = curve.fPoints[i];
      std::printf("%12.5g %12.5g %12.5g %14.5g %12.5g%s\n", point.fT, point.fP, point.fBetaGamma,
                  point.fLoss, point.fRange, i == curve.fMinimum ? "  minimum loss" : "");
    }
  }
}

/// Some chemical names have a comma.
std::string CsvField(const std::string& name) {
  return name.find(',') == std::string::npos ? name : Quoted(name);
}

void WriteCsv(const std::vector<EnergyLossCurve>& curves, const std::string& name) {
  PendingFile file(name);
  std::ofstream out(file.Partial());
  out << "material,particle,T,p,beta_gamma,dedx,range,min\n";
  out.precision(8);
  for (const EnergyLossCurve& curve : curves)
    for (std::size_t i = 0; i < curve.fPoints.size(); i++) {
      const EnergyLossPoint& point = curve.fPoints[i];
      out << CsvField(curve.fMaterial) << ',' << curve.fParticle.fName << ',' << point.fT << ','
          << point.fP << ',' << point.fBetaGamma << ',' << point.fLoss << ',' << point.fRange << ','
          << (i == curve.fMinimum) << '\n';
    }
  out.close();
  if (!out) throw FileError(name + ": could not be written completely; is the disk full?");
  file.Commit();
}

bool IsCsv(const std::string& name) {
  return EndsWith(CLI::detail::to_lower(name), ".csv");
}

int Run(const DedxArguments& a) {
  Check(a);
  if (a.fOutput.empty()) {
    Print(Curves(a, Energies({1, 2, 5})));
    return 0;
  }
  const std::vector<EnergyLossCurve> curves = Curves(a, Energies(Fine()));
  if (IsCsv(a.fOutput))
    WriteCsv(curves, a.fOutput);
  else
    DrawEnergyLoss(curves).Save(a.fOutput);
  std::printf("written: %s\n", Printable(a.fOutput).c_str());
  return 0;
}

} // namespace

Command MakeDedxCommand(CLI::App& program) {
  CLI::App* dedx =
      program.add_subcommand("dedx", "Shows energy loss and range of particles in materials.");
  dedx->footer(kExamples);
  auto arguments = std::make_shared<DedxArguments>();
  dedx->add_option("materials", arguments->fMaterials, "Names that 'kelvo materials' lists")
      ->required()
      ->type_name("MATERIAL");
  dedx->add_option("--particle", arguments->fParticles, "Particles: mu, pi, p")
      ->delimiter(',')
      ->check(OneOf(ParticleNames()))
      ->type_name("LIST")
      ->capture_default_str();
  dedx->add_option("-o,--output", arguments->fOutput,
                   "Picture (.svg, .png, .pdf) or finer table (.csv) to be written instead")
      ->check(EndsIn({".csv", ".svg", ".png", ".pdf"}))
      ->type_name("FILE");
  return {dedx, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
