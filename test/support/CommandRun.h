#pragma once

#include "test/support/Program.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

namespace test {

const std::string kFine = KELVO_SOURCE_DIR "/detectors/fine.toml";
const std::string kTelescope = KELVO_SOURCE_DIR "/detectors/telescope.toml";
const std::string kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";

/// The program as a user runs it, in a folder of the test's own.
class Command : public testing::Test {
protected:
  /// Runs the program in the temporary folder.
  Outcome Run(const std::string& arguments, const std::string& before = "") {
    return test::RunIn(fFolder, KELVO_COMMAND, arguments, before);
  }

  Outcome Fit(const std::string& arguments, const std::string& before = "") {
    return Run("fit --detector " + kFine + " -o fits.root " + arguments, before);
  }

  bool Exists(const std::string& name) const { return std::filesystem::exists(fFolder.Path(name)); }

  /// What is there besides the two files with the program's words.
  long Results() const { return fFolder.Files() - Exists(".out") - Exists(".err"); }

  test::TempFolder fFolder;
};

/// The telescope, in a gas that nobody knows.
inline std::string Mist() {
  std::stringstream text;
  text << std::ifstream(kTelescope).rdbuf();
  return std::regex_replace(text.str(), std::regex("\"Air\""), "\"Mist\"");
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

} // namespace test
