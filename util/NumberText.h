#pragma once

#include <charconv>
#include <string>

namespace kelvo {

/// Appends a number with as few digits as give the same number when read again.
template <typename T>
void AppendNumber(std::string& text, T value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  text.append(digits, end);
}

} // namespace kelvo
