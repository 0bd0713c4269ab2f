#include "io/FileNames.h"

#include <filesystem>
#include <stdexcept>

namespace kelvo {

namespace {

namespace fs = std::filesystem;

bool AreSame(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code error;
  return fs::equivalent(a, b, error) ||
         fs::weakly_canonical(a, error) == fs::weakly_canonical(b, error);
}

} // namespace

void CheckApart(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs) {
  for (std::size_t i = 0; i < outputs.size(); i++) {
    for (const std::string& input : inputs)
      if (AreSame(input, outputs[i]))
        throw std::invalid_argument(outputs[i] + " is both input and output");
    for (std::size_t k = 0; k < i; k++)
      if (AreSame(outputs[k], outputs[i]))
        throw std::invalid_argument(outputs[i] + " is named twice as output");
  }
}

} // namespace kelvo
