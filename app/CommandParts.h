#pragma once

#include "app/ProgressLine.h"
#include "io/FitWriter.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelvo::app {

/// Returns the number that is all of a text, if it is one.
template <typename T>
std::optional<T> NumberFrom(const std::string& text) {
  T value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

/// Checks an option's number, of which nothing else may stand in the argument.
/// @param rule what the message says the number must be, such as "above 0"
CLI::Validator NumberWithin(double low, double high, const std::string& rule);

/// Checks an option that is a whole number from low to high.
CLI::Validator WholeNumberWithin(unsigned long long low, unsigned long long high);

/// Checks an option that is a whole number of 64 bits, which may be negative.
CLI::Validator WholeNumber();

/// Checks an option, or each element of a list, that is one of some words.
CLI::Validator OneOf(const std::vector<std::string>& words);

/// Checks the name of a file to be written: its ending, in small or capital letters, says the
/// format.
CLI::Validator EndsIn(const std::vector<std::string>& endings);

/// The name of a picture that can be written.
CLI::Validator PictureName();

/// Adds the option --format, which sets the kind of table in a ROOT file; its default is what is
/// set.
/// @param format must outlive the command
CLI::Option* AddTableFormat(CLI::App& command, TableFormat& format);

/// Returns the command as it can be given to a shell again.
std::string CommandLine(int argc, char** argv);

/// Returns the commands of the program, in the order in which they were made.
std::vector<const CLI::App*> Commands(const CLI::App& program);

/// Returns their names.
std::vector<std::string> CommandNames(const CLI::App& program);

/// Returns what to tell of a usage that cannot be parsed.
std::string UsageMessage(const CLI::App& program, const CLI::Error& error, int argc, char** argv);

/// Runs work that takes a while with a line that shows its progress. SIGINT and SIGTERM no longer
/// end the process but make CaughtSignal() tell them; work that then throws RunStopped is told as
/// interrupted.
/// @return the work's exit status, or that of an interrupted process
int RunWithProgress(const std::function<int(ProgressLine&)>& work);

/// Returns the signal that was caught, 0 if none was.
int CaughtSignal();

} // namespace kelvo::app
