#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <string>

namespace kelvo::app {

/// Returns a check of a number from low to high whose message says the rule in words.
CLI::Validator NumberWithin(double low, double high, const std::string& rule);

/// Returns the particles' codes by their names on the command line: mu, pi and p.
const std::map<std::string, int>& Particles();

/// From now on, an interrupted run ends by itself, so that it can remove what it has written.
void CatchSignals();

/// Returns the number of the signal that has come since then, 0 for none.
int CaughtSignal();

} // namespace kelvo::app
