#pragma once

#include <cstdio>
#include <string>

namespace kelvo {

/// Returns a text as std::printf would print it, at most 300 bytes of it.
template <typename... Values>
std::string Text(const char* format, Values... values) {
  char text[301];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

} // namespace kelvo
