#pragma once

#include "test/support/TempFolder.h"

#include <sys/wait.h>

#include <cstdlib>
#include <string>

namespace test {

/// How a program ended and what it printed.
struct Outcome {
  int fStatus;
  std::string fOut;
  std::string fErr;
};

/// Runs a program in a folder, where it leaves its words in ".out" and ".err".
/// @param program   path of the program
/// @param arguments as in a shell
/// @param before    words of the shell in front of the program
inline Outcome RunIn(const TempFolder& folder, const std::string& program,
                     const std::string& arguments, const std::string& before = "") {
  const std::string line = "( cd '" + folder.Path("") + "' && " + before + " '" + program + "' " +
                           arguments + " >.out 2>.err </dev/null )";
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, folder.Read(".out"), folder.Read(".err")};
}

} // namespace test
