#pragma once

#include <stdexcept>

namespace kelvo {

/// A file that cannot be read or written at all. what() is a complete sentence for the user: the
/// file, the line where there is one, what is wrong and what would be right.
class FileError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace kelvo
