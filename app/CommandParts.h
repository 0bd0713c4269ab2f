#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace kelvo::app {

/// Returns a check of a number from low to high whose message says the rule in words.
CLI::Validator NumberWithin(double low, double high, const std::string& rule);

/// Returns a check of a whole number from low to high whose message says so.
CLI::Validator WholeNumberWithin(unsigned long long low, unsigned long long high);

/// Returns the command line as it can be given to a shell again, without the program's folder.
std::string CommandLine(int argc, char** argv);

/// From now on, an interrupted run ends by itself, so that it can remove what it has written.
void CatchSignals();

/// Returns the number of the signal that has come since then, 0 for none.
int CaughtSignal();

} // namespace kelvo::app
