// The program kelvo: a list of subcommands, each in a source of its own.

#include "app/Command.h"
#include "app/CommandParts.h"
#include "app/RootMessages.h"

#include <exception>
#include <iostream>
#include <vector>

namespace {

int Run(const kelvo::app::Command& command) {
  const kelvo::app::RootMessages messages;
  try {
    return command.fRun();
  } catch (const std::exception& e) {
    std::cerr << "kelvo: " << e.what() << '\n';
    return kelvo::app::kUsageOrFiles;
  }
}

} // namespace

int main(int argc, char** argv) {
  CLI::App program{
      "kelvo fits the tracks of particles in detectors made of planes.\n"
      "'kelvo COMMAND --help' explains a command and shows how it is used."};
  program.set_version_flag("--version", "kelvo " KELVO_VERSION);
  program.require_subcommand(1);
  const std::vector<kelvo::app::Command> commands{
      kelvo::app::MakeFitCommand(program, kelvo::app::CommandLine(argc, argv)),
      kelvo::app::MakeSimulateCommand(program),
      kelvo::app::MakeDetectorCommand(program),
      kelvo::app::MakeReportCommand(program),
      kelvo::app::MakeDisplayCommand(program),
      kelvo::app::MakeDedxCommand(program),
  };
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return program.exit(e) == 0 ? 0 : kelvo::app::kUsageOrFiles;
  }
  for (const auto& command : commands)
    if (command.fOptions->parsed()) return Run(command);
  return kelvo::app::kUsageOrFiles;
}
