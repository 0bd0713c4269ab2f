#include "track/OptionCheck.h"

#include "util/Text.h"

#include <stdexcept>

namespace kelvo {

void CheckOption(bool ok, const std::string& name, double value, const std::string& rule) {
  if (!ok) throw std::invalid_argument(name + " is " + NumberText(value) + "; it must be " + rule);
}

} // namespace kelvo
