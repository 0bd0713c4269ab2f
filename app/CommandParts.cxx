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

const std::map<std::string, int>& Particles() {
  static const std::map<std::string, int> codes{{"mu", 13}, {"pi", 211}, {"p", 2212}};
  return codes;
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
