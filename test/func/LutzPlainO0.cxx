#include "test/support/LutzPlain.h"

namespace kelvo::test {

LutzSolution PlainSolutionO0(const LutzProblem& p) {
  return PlainSolution(p);
}

} // namespace kelvo::test
