#include "app/ProgressLine.h"

#include "app/StandardStreams.h"

#include <fmt/format.h>

#include <cmath>
#include <iostream>

namespace kelvo::app {

namespace {

constexpr double kBetweenBars = 0.2;   // s
constexpr double kBetweenLines = 10;   // s
constexpr unsigned kBarWidth = 30;     // characters
constexpr double kFirstForecast = 0.5; // s; earlier the rate says little

std::string Figures(const Progress& progress) {
  std::string text = fmt::format(FMT_STRING("{} tracks"), progress.fTracks);
  if (progress.fSeconds < kFirstForecast) return text;
  const double rate = static_cast<double>(progress.fTracks) / progress.fSeconds;
  text += fmt::format(FMT_STRING(", {}/s"), std::llround(rate));
  if (progress.fFraction > 0)
    text += fmt::format(FMT_STRING(", {} left"),
                        TimeText(progress.fSeconds * (1 / progress.fFraction - 1)));
  return text;
}

} // namespace

std::string TimeText(double seconds) {
  const long long all = std::llround(seconds);
  if (all < 60) return fmt::format(FMT_STRING("{} s"), all);
  if (all < 3600) return fmt::format(FMT_STRING("{} min {} s"), all / 60, all % 60);
  return fmt::format(FMT_STRING("{} h {} min"), all / 3600, all % 3600 / 60);
}

ProgressLine::ProgressLine()
    : fTerminal(StandardStreams::IsTerminal()), fNext(fTerminal ? 0 : kBetweenLines) {}

void ProgressLine::Show(const Progress& progress) {
  if (progress.fSeconds < fNext) return;
  fNext = progress.fSeconds + (fTerminal ? kBetweenBars : kBetweenLines);
  const auto percent = std::lround(100 * progress.fFraction);
  if (!fTerminal) {
    std::cerr << "kelvo: " << percent << " %, " << Figures(progress) << std::endl;
    return;
  }
  const auto filled = static_cast<unsigned>(progress.fFraction * kBarWidth);
  std::cerr << "\r[" << std::string(filled, '=') << std::string(kBarWidth - filled, ' ') << "] "
            << percent << " %, " << Figures(progress) << "\033[K" << std::flush;
  fDrawn = true;
}

void ProgressLine::Clear() {
  if (fDrawn) std::cerr << "\r\033[K" << std::flush;
  fDrawn = false;
}

} // namespace kelvo::app
