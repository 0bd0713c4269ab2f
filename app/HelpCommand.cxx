#include "app/Command.h"
#include "app/CommandParts.h"

#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace kelvo::app {

namespace {

/// A line of a manual page that is shown as it stands.
std::string Roff(const std::string& line) {
  std::string text;
  for (const char c : line) text += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
  // A line that begins with one of these is an instruction.
  return !line.empty() && (line[0] == '.' || line[0] == '\'') ? "\\&" + text : text;
}

std::string RoffLines(const std::string& text) {
  std::string lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines += Roff(line) + "\n";
  return lines;
}

/// What the program says about itself: asked by help(), it would tell about the command that runs.
std::string ProgramHelp(const CLI::App& program) {
  return program.get_formatter()->make_help(&program, program.get_name(),
                                            CLI::AppFormatMode::Normal);
}

/// The manual page of the program, whose texts are those that --help prints.
std::string ManualPage(const CLI::App& program) {
  std::string page = fmt::format(FMT_STRING(".TH KELVO 1 \"\" \"kelvo {}\"\n"
                                            ".SH NAME\n"
                                            "kelvo \\- track fitting for segmented particle "
                                            "detectors\n"
                                            ".SH DESCRIPTION\n.nf\n{}.fi\n.SH COMMANDS\n"),
                                 KELVO_VERSION, RoffLines(ProgramHelp(program)));
  for (const CLI::App* command : Commands(program))
    page += fmt::format(FMT_STRING(".SS kelvo {}\n.nf\n{}.fi\n"), command->get_name(),
                        RoffLines(command->help("kelvo")));
  return page;
}

struct HelpArguments {
  std::string fCommand;
  bool fManual = false;
};

int Run(const CLI::App& program, const HelpArguments& a) {
  if (a.fManual)
    fmt::print(FMT_STRING("{}"), ManualPage(program));
  else if (a.fCommand.empty())
    fmt::print(FMT_STRING("{}"), ProgramHelp(program));
  else
    fmt::print(FMT_STRING("{}"), program.get_subcommand(a.fCommand)->help("kelvo"));
  return 0;
}

} // namespace

Command MakeHelpCommand(CLI::App& program) {
  CLI::App* help = program.add_subcommand("help", "Explains a command.");
  auto arguments = std::make_shared<HelpArguments>();
  const auto check = [&program](std::string& name) -> std::string {
    return OneOf(CommandNames(program))(name);
  };
  help->add_option("command", arguments->fCommand, "The command to explain; without it, all")
      ->check(CLI::Validator(check, ""))
      ->type_name("COMMAND");
  help->add_flag("--manual", arguments->fManual, "Print the manual page, for man -l");
  return {help, [&program, arguments] { return Run(program, *arguments); }};
}

} // namespace kelvo::app
