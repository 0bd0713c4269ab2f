#pragma once

#include <stdexcept>

namespace geo {

/// A detector file that cannot be used. what() is a complete sentence for the user: file, line,
/// column, field, what was expected there and what was found.
class DetectorError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace geo
