#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iomanip>

/// Compares two numbers bit by bit: zeros of either sign differ, equal NaNs agree.
inline testing::AssertionResult SameBits(double value, double reference) {
  std::uint64_t a = 0, b = 0;
  std::memcpy(&a, &value, sizeof a);
  std::memcpy(&b, &reference, sizeof b);
  if (a == b) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << std::setprecision(17) << value << " is not " << reference << " to the last bit";
}
