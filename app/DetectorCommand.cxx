#include "app/Command.h"
#include "app/CommandParts.h"
#include "draw/DetectorDrawing.h"
#include "geo/Detector.h"
#include "geo/DetectorFiles.h"
#include "geo/MaterialBudget.h"
#include "geo/PlaneDetector.h"
#include "io/FileNames.h"
#include "util/Text.h"

#include <TGeoMaterial.h>
#include <fmt/format.h>

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo detector detectors/fine.toml
      checks the file, and tells planes and materials
  kelvo detector detectors/fine.toml --ray 1,2,0,10,20,100
      lists the materials on the way from (1, 2, 0) to (10, 20, 100) cm
  kelvo detector detectors/fine.toml -o fine.svg
      draws side views, one cell with its materials, and the radiation lengths along z
  kelvo detector
      lists the installed detectors, which go by their names: --detector fine)";

struct DetectorArguments {
  std::string fFile;
  std::vector<double> fRay;
  std::string fOutput;
};

/// Equal planes, of which a detector has many.
struct PlaneKind {
  const geo::ActivePlane* fFirst;
  const geo::ActivePlane* fLast;
  unsigned fCount;
};

std::vector<PlaneKind> Kinds(const std::vector<geo::ActivePlane>& planes) {
  std::vector<PlaneKind> kinds;
  std::map<std::string, std::size_t> known;
  for (const geo::ActivePlane& plane : planes) {
    const auto [at, isNew] = known.emplace(plane.fName + '\n' + plane.View(), kinds.size());
    if (isNew) kinds.push_back({&plane, &plane, 0});
    kinds[at->second].fLast = &plane;
    kinds[at->second].fCount++;
  }
  return kinds;
}

void PrintPlanes(const geo::PlaneDetector& detector) {
  std::printf("\n%-20s %4s %6s %10s %10s %6s %9s %11s\n", "planes", "view", "number", "first z",
              "last z", "cells", "width", "resolution");
  for (const PlaneKind& kind : Kinds(detector.Planes()))
    for (unsigned view = 0; view < 2; view++) {
      if (!kind.fFirst->Measures(view)) continue;
      const geo::CellRow& cells = kind.fFirst->fCells[view];
      std::printf("%-20s %4s %6u %10.4g %10.4g %6u %9.4g %11.4g\n", kind.fFirst->fName.c_str(),
                  view == 0 ? "X" : "Y", kind.fCount, kind.fFirst->ZMid(), kind.fLast->ZMid(),
                  cells.fCount, cells.fWidth, cells.fResolution);
    }
  std::printf("z of the middle of a plane, width of a cell and resolution in cm\n");
}

void PrintOffsets(const geo::PlaneDetector& detector) {
  bool any = false;
  for (const geo::ActivePlane& plane : detector.Planes()) {
    const double* offset = plane.fOffset;
    if (offset[0] == 0 && offset[1] == 0 && offset[2] == 0) continue;
    if (!any) std::printf("\n%-20s %10s %10s %10s %10s\n", "offsets [cm]", "z", "x", "y", "z");
    any = true;
    std::printf("%-20s %10.4g %10.5f %10.5f %10.5f\n", plane.fName.c_str(), plane.ZMid(), offset[0],
                offset[1], offset[2]);
  }
}

std::string Fraction(double part, double all) {
  return fmt::format(FMT_STRING("{:.2f} %"), all > 0 ? 100 * part / all : 0);
}

std::string RadLenText(const TGeoMaterial& material) {
  constexpr double kNone = 1e10; // cm; a vacuum's, which stands for an infinite one
  if (material.GetRadLen() <= 0 || material.GetRadLen() >= kNone) return "-";
  return fmt::format(FMT_STRING("{:.5g}"), material.GetRadLen());
}

void PrintMaterials(const geo::PlaneDetector& detector) {
  const geo::MaterialBudget budget = geo::FindMaterialBudget(detector, 1);
  std::printf("\n%-20s %10s %10s %10s %10s\n", "materials along z", "X0 [cm]", "cm", "fraction",
              "rad. len.");
  double length = 0;
  double radLengths = 0;
  for (const TGeoMaterial* material : detector.Materials()) {
    const double cm = budget.fLength.at(material);
    const double x0 = budget.RadLengths(material);
    length += cm;
    radLengths += x0;
    std::printf("%-20s %10s %10.3f %10s %10.4f\n", material->GetName(),
                RadLenText(*material).c_str(), cm, Fraction(cm, budget.fHigh - budget.fLow).c_str(),
                x0);
  }
  std::printf("%-20s %10s %10.3f %10s %10.4f\n", "all", "", length, "", radLengths);
  std::printf("mean over the face that all planes measure\n");
}

void PrintUnknownMaterials(const geo::Detector& detector) {
  const auto& unknown = detector.UnknownMaterials();
  if (unknown.empty()) return;
  std::printf("\nno energy loss known: %s; only beams of known momentum can be fitted\n",
              Joined(unknown).c_str());
}

void PrintRay(const geo::GeometryBase& detector, const std::vector<double>& ray) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> materials;
  detector.MaterialsBetweenPoints(&ray[0], &ray[3], ds, materials);
  std::printf("\nfrom (%g, %g, %g) to (%g, %g, %g) cm\n", ray[0], ray[1], ray[2], ray[3], ray[4],
              ray[5]);
  std::printf("%-20s %10s %14s %14s %12s\n", "material", "X0 [cm]", "thickness [cm]", "length [cm]",
              "rad. lengths");
  double length = 0;
  double radLengths = 0;
  for (std::size_t i = 0; i < ds.size(); i++) {
    const double x0 = materials[i]->GetRadLen();
    length += ds[i];
    if (x0 > 0) radLengths += ds[i] / x0;
    std::printf("%-20s %10s %14.5f %14.5f %12.6f\n", materials[i]->GetName(),
                RadLenText(*materials[i]).c_str(), ds[i], length, radLengths);
  }
  if (ds.empty()) std::printf("nothing: the points are the same\n");
}

void PrintExtent(const geo::PlaneDetector& planes) {
  const geo::Box& box = planes.Extent();
  std::printf(": %zu planes, x %g to %g, y %g to %g, z %g to %g cm\n", planes.Planes().size(),
              box.fLow[0], box.fHigh[0], box.fLow[1], box.fHigh[1], box.fLow[2], box.fHigh[2]);
}

void PrintParts(const geo::Detector& detector) {
  if (detector.Planes()) {
    PrintPlanes(*detector.Planes());
    PrintOffsets(*detector.Planes());
    PrintMaterials(*detector.Planes());
  } else {
    std::printf("\nmaterials: %s\n", Joined(detector.MaterialNames()).c_str());
    std::printf("a geometry of ROOT's knows no planes; --ray lists the materials on a way\n");
  }
  PrintUnknownMaterials(detector);
}

void Draw(const geo::Detector& detector, const std::string& output) {
  if (!detector.Planes())
    throw std::invalid_argument(
        "a geometry of ROOT's cannot be drawn: it knows no planes and cells");
  DrawDetector(*detector.Planes()).Save(output);
  std::printf("\nwritten: %s\n", Printable(output).c_str());
}

int List(const DetectorArguments& arguments) {
  if (!arguments.fRay.empty() || !arguments.fOutput.empty())
    throw std::invalid_argument("the detector is missing; installed are " +
                                Joined(geo::InstalledDetectors()));
  for (const std::string& name : geo::InstalledDetectors())
    std::printf("%-12s %s\n", name.c_str(), geo::DetectorFileOf(name).c_str());
  return 0;
}

int Run(const DetectorArguments& arguments) {
  if (arguments.fFile.empty()) return List(arguments);
  CheckApart({arguments.fFile}, {arguments.fOutput});
  const geo::Detector detector = geo::Detector::FromFile(arguments.fFile);
  std::printf("%s (%s)", detector.Name().c_str(), Printable(arguments.fFile).c_str());
  if (detector.Planes())
    PrintExtent(*detector.Planes());
  else
    std::printf("\n");
  if (arguments.fRay.empty())
    PrintParts(detector);
  else
    PrintRay(detector.Geometry(), arguments.fRay);
  if (!arguments.fOutput.empty()) Draw(detector, arguments.fOutput);
  return 0;
}

} // namespace

Command MakeDetectorCommand(CLI::App& program) {
  CLI::App* detector =
      program.add_subcommand("detector", "Checks, describes and draws a detector's file.");
  detector->footer(kExamples);
  auto arguments = std::make_shared<DetectorArguments>();
  detector
      ->add_option(
          "file", arguments->fFile,
          "The detector: a TOML file, or a geometry of ROOT's in a .gdml or .root file, or "
          "the name of an installed one; without it these are listed")
      ->type_name("FILE");
  detector
      ->add_option("--ray", arguments->fRay,
                   "Two points, x,y,z of the first and of the second [cm]: list the materials "
                   "between them")
      ->delimiter(',')
      ->expected(6)
      ->type_name("X,Y,Z,X,Y,Z");
  detector
      ->add_option("-o,--output", arguments->fOutput,
                   "Picture to be drawn; its ending says how: .svg, .png or .pdf")
      ->check(PictureName())
      ->type_name("FILE");
  return {detector, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
