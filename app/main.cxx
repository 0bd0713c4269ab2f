// The program kelvo: a list of subcommands, each in a source of its own.

#include "app/Command.h"
#include "app/CommandParts.h"
#include "app/RootMessages.h"
#include "app/StandardStreams.h"
#include "util/Text.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <string>
#include <vector>

namespace {

/// The words for the parser, the last one first. It would take the name "[a,b]" for a list of two.
std::vector<std::string> Words(int argc, char** argv) {
  std::vector<std::string> words;
  for (int i = argc - 1; i > 0; i--) {
    const std::string word = argv[i];
    std::error_code unknown;
    const bool isFile = word[0] == '[' && std::filesystem::exists(word, unknown);
    words.push_back(isFile ? "./" + word : word);
  }
  return words;
}

/// Runs the command that the words name.
int Run(int argc, char** argv) {
  CLI::App program{
      "kelvo fits the tracks of particles in detectors made of planes.\n"
      "'kelvo COMMAND --help' or 'kelvo help COMMAND' explains a command and shows how it is used.",
      "kelvo"};
  program.set_version_flag("-V,--version", "kelvo " KELVO_VERSION);
  program.require_subcommand(1);
  const std::string commandLine = kelvo::app::CommandLine(argc, argv);
  const std::vector<kelvo::app::Command> commands{
      kelvo::app::MakeFitCommand(program, commandLine),
      kelvo::app::MakeMergeCommand(program, commandLine),
      kelvo::app::MakeSimulateCommand(program),
      kelvo::app::MakeDetectorCommand(program),
      kelvo::app::MakeReportCommand(program),
      kelvo::app::MakeDisplayCommand(program),
      kelvo::app::MakeDedxCommand(program),
      kelvo::app::MakeMaterialsCommand(program),
      kelvo::app::MakeHelpCommand(program),
      kelvo::app::MakeCompletionCommand(program),
  };
  try {
    program.parse(Words(argc, argv));
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return program.exit(e); // --help, --version
    std::cerr << kelvo::Printable(kelvo::app::UsageMessage(program, e, argc, argv));
    return kelvo::app::kUsageOrFiles;
  }
  for (const auto& command : commands)
    if (command.fOptions->parsed()) return command.fRun();
  return kelvo::app::kUsageOrFiles;
}

/// Whether all that was printed has arrived, which a full disk may have prevented.
bool IsPrinted() {
  std::cout.flush();
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 && std::cout;
}

/// Whether the standard output is a pipe that nobody reads any more.
bool IsPipeClosed() {
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&out, 1, 0) > 0 && (out.revents & POLLERR);
}

} // namespace

int main(int argc, char** argv) {
  // A file that becomes too large gives an error to be told, not the end.
  std::signal(SIGXFSZ, SIG_IGN);
  // As does a pipe that is closed, so that no partial file is left.
  std::signal(SIGPIPE, SIG_IGN);
  const kelvo::app::StandardStreams words;
  const kelvo::app::RootMessages messages;
  try {
    const int status = Run(argc, argv);
    if (IsPrinted()) return status;
  } catch (const std::bad_alloc&) {
    std::cerr << "kelvo: too little memory; give this process more, or --threads less\n";
    return kelvo::app::kUsageOrFiles;
  } catch (const std::exception& e) {
    if (IsPrinted()) {
      std::cerr << "kelvo: " << kelvo::Printable(e.what()) << '\n';
      return kelvo::app::kUsageOrFiles;
    }
  }
  if (IsPipeClosed()) return 128 + SIGPIPE; // as 'head' closes it, which is no mistake
  std::cerr << "kelvo: not all could be printed; is the disk of the standard output full?\n";
  return kelvo::app::kUsageOrFiles;
}
