#include "app/CommandParts.h"

#include <charconv>
#include <csignal>

namespace kelvo::app {

namespace {

volatile std::sig_atomic_t gSignal = 0;
void NoteSignal(int number) {
  gSignal = number;
}

} // namespace

CLI::Validator NumberWithin(double low, double high, const std::string& rule) {
  const auto check = [=](std::string& text) -> std::string {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc() && stop == end && value >= low && value <= high) return "";
    return "\"" + text + "\" is not a number " + rule;
  };
  return {check, ""};
}

CLI::Validator WholeNumberWithin(unsigned long long low, unsigned long long high) {
  const auto check = [=](std::string& text) -> std::string {
    unsigned long long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc() && stop == end && value >= low && value <= high) return "";
    return "\"" + text + "\" is not a whole number from " + std::to_string(low) + " to " +
           std::to_string(high);
  };
  return {check, ""};
}

std::string CommandLine(int argc, char** argv) {
  std::string line = "kelvo";
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    if (word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                               "-_=+./,:@%") != std::string::npos ||
        word.empty()) {
      for (std::size_t at = word.find('\''); at != std::string::npos; at = word.find('\'', at + 4))
        word.replace(at, 1, "'\\''");
      word = "'" + word + "'";
    }
    line += " " + word;
  }
  return line;
}

void CatchSignals() {
  std::signal(SIGINT, NoteSignal);
  std::signal(SIGTERM, NoteSignal);
  // A file that becomes too large gives an error to be told, not the end.
  std::signal(SIGXFSZ, SIG_IGN);
}

int CaughtSignal() {
  return gSignal;
}

} // namespace kelvo::app
