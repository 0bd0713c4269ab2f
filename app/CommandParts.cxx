#include "app/CommandParts.h"

#include "draw/Picture.h"
#include "io/InputBytes.h"
#include "run/FitFile.h"
#include "util/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <iostream>

namespace kelvo::app {

namespace {

volatile std::sig_atomic_t gSignal = 0;
void NoteSignal(int number) {
  gSignal = number;
  InputBytes::StopWaiting();
}

/// "a, b and c".
std::string Listed(const std::vector<std::string>& words, const std::string& last) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); i++)
    text += (i == 0 ? "" : i + 1 == words.size() ? last : ", ") + words[i];
  return text;
}

void CatchSignals() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP})
    if (std::signal(number, NoteSignal) == SIG_IGN) std::signal(number, SIG_IGN); // nohup
}

/// The parser's words, without its way to begin and to end them.
std::string Reason(const CLI::Error& error) {
  std::string reason = error.what();
  const std::string required = " is required";
  if (EndsWith(reason, required))
    return reason.substr(0, reason.size() - required.size()) + " is missing";
  if (!reason.empty() && reason[0] >= 'A' && reason[0] <= 'Z')
    reason[0] = static_cast<char>(reason[0] - 'A' + 'a');
  return reason;
}

} // namespace

CLI::Validator NumberWithin(double low, double high, const std::string& rule) {
  const auto check = [=](std::string& text) -> std::string {
    const auto value = NumberFrom<double>(text);
    if (value && *value >= low && *value <= high) return "";
    return Quoted(text) + " is not a number " + rule;
  };
  return {check, ""};
}

CLI::Validator WholeNumberWithin(unsigned long long low, unsigned long long high) {
  const auto check = [=](std::string& text) -> std::string {
    const auto value = NumberFrom<unsigned long long>(text);
    if (value && *value >= low && *value <= high) return "";
    return fmt::format(FMT_STRING("{} is not a whole number from {} to {}"), Quoted(text), low,
                       high);
  };
  return {check, ""};
}

CLI::Validator WholeNumber() {
  const auto check = [](std::string& text) -> std::string {
    if (NumberFrom<long long>(text)) return "";
    return Quoted(text) + " is not a whole number of at most 64 bits";
  };
  return {check, ""};
}

CLI::Validator OneOf(const std::vector<std::string>& words) {
  const auto check = [words](std::string& text) -> std::string {
    if (std::find(words.begin(), words.end(), text) != words.end()) return "";
    return fmt::format(FMT_STRING("{} is none of {}"), Quoted(text), Listed(words, " and "));
  };
  return {check, ""};
}

CLI::Validator EndsIn(const std::vector<std::string>& endings) {
  const auto check = [endings](std::string& text) -> std::string {
    const std::string small = CLI::detail::to_lower(text);
    for (const std::string& ending : endings)
      if (EndsWith(small, ending)) return "";
    return fmt::format(FMT_STRING("{} must end in {}"), Quoted(text), Listed(endings, " or "));
  };
  return {check, ""};
}

CLI::Validator PictureName() {
  const auto check = [](std::string& text) -> std::string {
    try {
      Picture::CheckName(text);
      return "";
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
  };
  return {check, ""};
}

CLI::Option* AddTableFormat(CLI::App& command, TableFormat& format) {
  const auto set = [&format](const std::string& name) {
    format = name == "rntuple" ? TableFormat::kRNTuple : TableFormat::kTTree;
  };
  return command
      .add_option_function<std::string>(
          "--format", set, "Table in the ROOT file: rntuple (ROOT 6.36 or newer) or ttree")
      ->check(OneOf({"rntuple", "ttree"}))
      ->type_name("NAME")
      ->default_str(format == TableFormat::kRNTuple ? "rntuple" : "ttree");
}

std::string CommandLine(int argc, char** argv) {
  std::string line = "kelvo";
  for (int i = 1; i < argc; i++) {
    std::string word = argv[i];
    if (word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                               "-_=+./,:@%") != std::string::npos ||
        word.empty()) {
      for (std::size_t at = word.find('\''); at != std::string::npos; at = word.find('\'', at + 4))
        word.replace(at, 1, "'\\''");
      word = fmt::format(FMT_STRING("'{}'"), word);
    }
    line += " " + word;
  }
  return line;
}

std::vector<const CLI::App*> Commands(const CLI::App& program) {
  return program.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> CommandNames(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : Commands(program)) names.push_back(command->get_name());
  return names;
}

std::string UsageMessage(const CLI::App& program, const CLI::Error& error, int argc, char** argv) {
  const auto chosen = program.get_subcommands();
  if (!chosen.empty())
    return fmt::format(FMT_STRING("kelvo: {}\n'kelvo {} --help' shows how it is used\n"),
                       Reason(error), chosen[0]->get_name());
  const std::string reason =
      argc < 2 ? "a command is missing" : Quoted(argv[1]) + " is not a command";
  return fmt::format(FMT_STRING("kelvo: {}; there are {}\n'kelvo --help' explains them\n"), reason,
                     Listed(CommandNames(program), " and "));
}

int RunWithProgress(const std::function<int(ProgressLine&)>& work) {
  CatchSignals();
  ProgressLine line;
  try {
    return work(line);
  } catch (...) {
    line.Clear();
    if (CaughtSignal() == 0) throw;
    std::cerr << "kelvo: interrupted, nothing is written\n";
    return 128 + CaughtSignal();
  }
}

int CaughtSignal() {
  return gSignal;
}

} // namespace kelvo::app
