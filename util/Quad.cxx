#include "util/Quad.h"

namespace util {

bool HasFma() {
#if defined(__x86_64__)
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#elif defined(__ARM_FEATURE_FMA)
  return true;
#else
  return false;
#endif
}

} // namespace util
