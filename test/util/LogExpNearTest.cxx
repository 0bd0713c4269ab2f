// Reference: std::log and std::exp.

#include "util/LogExpNear.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using util::LogExpTables;
using util::Quad;

struct Case {
  double near, x;
};

[[KELVO_FMA]] double LogAt(Case c) {
  return util::LogNear<double>(LogExpTables::Get(), c.near, LogExpTables::BinOf(c.near)).At(c.x);
}
[[KELVO_FMA]] double ExpAt(Case c) {
  return util::ExpNear<double>(LogExpTables::Get(), c.near).At(c.x);
}
[[KELVO_FMA]] void FourLogsAt(const Case* c, double* result) {
  const Quad near = {c[0].near, c[1].near, c[2].near, c[3].near};
  const Quad x = {c[0].x, c[1].x, c[2].x, c[3].x};
  const Quad all = util::LogNear<Quad>(LogExpTables::Get(), near, LogExpTables::BinOf(near)).At(x);
  for (int k = 0; k < 4; ++k) result[k] = all[k];
}
[[KELVO_FMA]] void FourExpsAt(const Case* c, double* result) {
  const Quad near = {c[0].near, c[1].near, c[2].near, c[3].near};
  const Quad x = {c[0].x, c[1].x, c[2].x, c[3].x};
  const Quad all = util::ExpNear<Quad>(LogExpTables::Get(), near).At(x);
  for (int k = 0; k < 4; ++k) result[k] = all[k];
}

class LogExpNear : public testing::Test {
protected:
  void SetUp() override {
    if (!LogExpTables::Known() || !util::HasFma()) GTEST_SKIP() << "not for this machine";
  }

  // Every case alone and in a group of four.
  template <class Four>
  void Expect(double (*one)(Case), const Four& four, double (*exact)(double),
              const std::vector<Case>& cases) {
    for (std::size_t i = 0; i + 4 <= cases.size(); i += 4) {
      double together[4];
      four(&cases[i], together);
      for (std::size_t k = 0; k < 4; ++k) {
        const Case& c = cases[i + k];
        ASSERT_EQ(one(c), exact(c.x)) << c.x << " from " << c.near;
        ASSERT_EQ(together[k], exact(c.x)) << c.x << " from " << c.near;
      }
    }
  }
  void ExpectLogs(const std::vector<Case>& cases) {
    Expect(
        LogAt, FourLogsAt, [](double x) { return std::log(x); }, cases);
  }
  void ExpectExps(const std::vector<Case>& cases) {
    Expect(
        ExpAt, FourExpsAt, [](double x) { return std::exp(x); }, cases);
  }

  // Arguments that make(u) gives for u from 0 to 1, and others up to 1e-11 from them.
  template <class Make>
  std::vector<Case> Random(std::size_t n, bool relative, const Make& make) {
    std::uniform_real_distribution<double> uniform(0, 1);
    std::vector<Case> cases;
    for (std::size_t i = 0; i < n; ++i) {
      const double near = make(uniform(fRandom));
      const double off = 1e-11 * (2 * uniform(fRandom) - 1);
      cases.push_back({near, relative ? near + near * off : near + off});
    }
    return cases;
  }

  std::mt19937_64 fRandom{21};
};

TEST_F(LogExpNear, LogarithmsAreThoseOfTheMathematicsLibrary) {
  ExpectLogs(Random(2'000'000, true, [](double u) { return std::exp2(-17 + 30.999 * u); }));
}

TEST_F(LogExpNear, LogarithmsBesideOneAreThoseOfTheMathematicsLibrary) {
  ExpectLogs(Random(200'000, true, [](double u) { return 0.9 + 0.2 * u; }));
}

TEST_F(LogExpNear, LogarithmsAtTheEdgesOfTheBinsAreThoseOfTheMathematicsLibrary) {
  std::vector<Case> cases;
  for (std::uint64_t bin = 0; bin < LogExpTables::kBins; ++bin) {
    const double edge = LogExpTables::LowerEdge(bin);
    const double last = std::nextafter(LogExpTables::LowerEdge(bin + 1), 0);
    cases.insert(
        cases.end(),
        {{edge, edge}, {last, last}, {edge, edge * (1 - 1e-11)}, {last, last * (1 + 1e-11)}});
  }
  ExpectLogs(cases);
}

TEST_F(LogExpNear, ExponentialsAreThoseOfTheMathematicsLibrary) {
  ExpectExps(Random(2'000'000, false, [](double u) { return -40 + 60 * u; }));
}

TEST_F(LogExpNear, ExponentialsInTheWholeRangeAreThoseOfTheMathematicsLibrary) {
  ExpectExps(Random(200'000, false, [](double u) { return -700 + 1400 * u; }));
}

} // namespace
