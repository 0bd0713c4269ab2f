// The fit of one view gives the bits of the plain program, or an exception.
#include "func/KelvoException.h"
#include "func/Lutz.h"
#include "test/fuzz/FuzzInput.h"
#include "test/support/LutzPlain.h"

#include <TError.h>

#include <iostream>

namespace {

[[maybe_unused]] const bool gSilent = [] {
  std::cerr.setstate(std::ios::failbit); // says so of each fit that cannot be solved
  gErrorIgnoreLevel = kFatal;
  return true;
}();

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  kelvo::test::LutzProblem problem;
  const unsigned n = values.Count(12), m = values.Count(12);
  for (unsigned i = 0; i < n; i++) {
    problem.fZ.push_back(values.Number());
    problem.fX.push_back(values.Number());
    problem.fSigX.push_back(values.Number());
  }
  for (unsigned j = 0; j < m; j++) {
    problem.fS.push_back(values.Number());
    problem.fSigAlpha.push_back(values.Number());
  }
  try {
    kelvo::Lutz fit(n, m);
    for (unsigned i = 0; i < n; i++)
      fit.SetMeasurement(i, problem.fZ[i], problem.fX[i], problem.fSigX[i]);
    for (unsigned j = 0; j < m; j++) fit.SetScatteringPlane(j, problem.fS[j], problem.fSigAlpha[j]);
    double x0 = 0, slope = 0, chi2 = 0;
    std::vector<double> alpha(m + 1);
    fit.Fit(&x0, &slope, alpha.data(), &chi2);
    const kelvo::test::LutzSolution plain = kelvo::test::PlainSolution(problem);
    fuzz::Expect(fit.Succeeded() == plain.fSucceeded, "success");
    if (!fit.Succeeded()) return 0;
    fuzz::Expect(fuzz::IsSame(x0, plain.fX0) && fuzz::IsSame(slope, plain.fSlope), "the line");
    fuzz::Expect(fuzz::IsSame(chi2, plain.fChi2), "chi-square");
    for (unsigned j = 0; j < m; j++)
      fuzz::Expect(fuzz::IsSame(alpha[j], plain.fAlpha[j]), "a kink");
  } catch (const kelvo::KelvoException&) {
  }
  return 0;
}
