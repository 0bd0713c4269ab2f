// The fit in linear time ends with a status or an exception, its chi-square is no less than 0, and
// a batch of tracks gives the bits of one at a time.
#include "fit/KinkSmoother.h"
#include "fit/KinkSmootherBatch.h"
#include "func/KelvoException.h"
#include "test/fuzz/FuzzInput.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  const unsigned n = values.Count(20), m = values.Count(20);
  std::vector<double> z, x, sigma, s, width;
  for (unsigned i = 0; i < n; i++) {
    z.push_back(values.Number());
    x.push_back(values.Number());
    sigma.push_back(values.Number());
  }
  for (unsigned j = 0; j < m; j++) {
    s.push_back(values.Number());
    width.push_back(values.Number());
  }
  try {
    kelvo::KinkSmoother fit(1, 0);
    fit.Load(n, z.data(), x.data(), sigma.data(), m, s.data(), width.data());
    double x0 = 0, slope = 0, chi2 = 0;
    std::vector<double> alpha(m + 1);
    fit.Fit(&x0, &slope, alpha.data(), &chi2);
    const kelvo::KinkPoint start = fit.AtStart();
    const auto areUsual = [](const std::vector<double>& numbers) {
      return std::all_of(numbers.begin(), numbers.end(),
                         [](double v) { return v == 0 || fuzz::IsUsual(v); });
    };
    if (fit.Succeeded() && areUsual(z) && areUsual(x) && areUsual(sigma) && areUsual(s) &&
        areUsual(width)) {
      fuzz::Expect(std::isfinite(x0) && std::isfinite(slope), "a line that is finite");
      fuzz::Expect(chi2 >= 0, "chi-square");
      fuzz::Expect(start.fVarX >= 0 && start.fVarSlope >= 0, "the variances");
    }
    const std::int64_t measurements[] = {0, n, n + std::int64_t{n}},
                       planes[] = {0, m, m + std::int64_t{m}};
    const auto twice = [](std::vector<double>& v) {
      const std::vector<double> once = v;
      v.insert(v.end(), once.begin(), once.end());
      return v.data();
    };
    const kelvo::KinkBatchInput tracks{2,      measurements, twice(z),    twice(x), twice(sigma),
                                       planes, twice(s),     twice(width)};
    double x0s[2], slopes[2], chi2s[2], beta[2];
    std::vector<double> alphas(2 * m + 1);
    kelvo::KinkBatchOutput results;
    results.fX0 = x0s;
    results.fSlope = slopes;
    results.fChi2XI = chi2s;
    results.fChi2Beta = beta;
    results.fAlpha = alphas.data();
    kelvo::KinkSmootherBatch().Fit(tracks, results);
    for (const int t : {0, 1}) {
      fuzz::Expect(fuzz::IsSame(x0s[t], x0) && fuzz::IsSame(slopes[t], slope), "the line");
      fuzz::Expect(fuzz::IsSame(chi2s[t], fit.Chi2XI()), "chi-square of the measurements");
      fuzz::Expect(fuzz::IsSame(beta[t], fit.Chi2Beta()), "chi-square of the kinks");
    }
  } catch (const kelvo::KelvoException&) {
  }
  return 0;
}
