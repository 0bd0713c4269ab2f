#pragma once

#include <cstring>
#include <string>
#include <type_traits>

namespace test {

/// Whether what two rows have in one column, a number, a text or a vector of numbers, is the same
/// to the last bit.
template <typename T>
bool SameColumn(const T& a, const T& b) {
  if constexpr (std::is_arithmetic_v<T>) {
    return std::memcmp(&a, &b, sizeof a) == 0;
  } else if constexpr (std::is_same_v<T, std::string>) {
    return a == b;
  } else {
    // An empty vector may have no address.
    return a.size() == b.size() &&
           (a.empty() ||
            std::memcmp(a.data(), b.data(), a.size() * sizeof(typename T::value_type)) == 0);
  }
}

} // namespace test
