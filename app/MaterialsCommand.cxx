#include "app/Command.h"
#include "matter/Material.h"
#include "track/Materials.h"
#include "util/Text.h"

#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <string>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo materials
      lists all materials with their density, radiation length and mean excitation energy
  kelvo materials Kapton
      what it is made of, and all numbers that energy loss and scattering need
A detector's file takes them with like = "Kapton"; 'kelvo dedx Kapton' shows the energy loss.)";

std::string NameText(const std::string& name) {
  const std::vector<std::string> everyday = matter::EverydayNames(name);
  return everyday.empty() ? name : fmt::format(FMT_STRING("{} ({})"), name, Joined(everyday));
}

std::vector<std::string> AllNames() {
  std::vector<std::string> names = MaterialsWithTable();
  for (const std::string& name : matter::MaterialNames()) names.push_back(name);
  return names;
}

void List() {
  fmt::print(FMT_STRING("{:<44} {:>12} {:>10} {:>12} {:>8}\n"), "name", "density", "X0", "X0", "I");
  fmt::print(FMT_STRING("{:<44} {:>12} {:>10} {:>12} {:>8}\n"), "", "[g/cm3]", "[g/cm2]", "[cm]",
             "[eV]");
  for (const std::string& name : AllNames()) {
    const matter::Material m = matter::Material::Named(name);
    fmt::print(FMT_STRING("{:<44} {:>12.6g} {:>10.5g} {:>12.5g} {:>8.4g}\n"), NameText(name),
               m.Density(), m.RadLength(), m.RadLength() / m.Density(), m.Excitation());
  }
}

void Show(const std::string& name) {
  const matter::Material m = matter::Material::Named(name);
  const matter::DensityEffect& effect = m.GetDensityEffect();
  fmt::print(FMT_STRING("{}\n\n"), NameText(name));
  fmt::print(FMT_STRING("density                 {:.6g} g/cm3\n"), m.Density());
  fmt::print(FMT_STRING("radiation length        {:.5g} g/cm2, {:.5g} cm\n"), m.RadLength(),
             m.RadLength() / m.Density());
  fmt::print(FMT_STRING("mean excitation energy  {:.4g} eV\n"), m.Excitation());
  fmt::print(FMT_STRING("plasma energy           {:.4g} eV\n"), m.PlasmaEnergy());
  fmt::print(FMT_STRING("density effect          C {:.5g}, x0 {:.4g}, x1 {:.4g}, a {:.5g}, m "
                        "{:.4g}, delta0 {:.3g}\n"),
             effect.fC, effect.fX0, effect.fX1, effect.fA, effect.fM, effect.fDelta0);
  if (HasTable(name)) fmt::print(FMT_STRING("energy loss             the library's own table\n"));
  fmt::print(FMT_STRING("\nelement         Z   by mass\n"));
  for (const auto& [element, fraction] : m.Parts())
    fmt::print(FMT_STRING("{:<12} {:>4} {:>9.6f}\n"), element->fName, element->fZ, fraction);
}

int Run(const std::string& name) {
  if (name.empty())
    List();
  else
    Show(name);
  return 0;
}

} // namespace

Command MakeMaterialsCommand(CLI::App& program) {
  CLI::App* materials =
      program.add_subcommand("materials", "Lists materials and what they are made of.");
  materials->footer(kExamples);
  auto name = std::make_shared<std::string>();
  materials->add_option("name", *name, "The material to show; without it, all are listed")
      ->type_name("NAME");
  return {materials, [name] { return Run(*name); }};
}

} // namespace kelvo::app
