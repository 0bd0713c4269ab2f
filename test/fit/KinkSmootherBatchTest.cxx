// The reference is KinkSmoother, one track at a time.
#include "fit/KinkSmootherBatch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "func/KelvoException.h"
#include "test/support/Allocations.h"
#include "test/support/KinkReference.h"

namespace kelvo {
namespace {

using reference::Problem;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Tracks {
  std::vector<Problem> problems;
  std::vector<std::int64_t> measOffset{0}, scatOffset{0};
  std::vector<double> z, x, sigx, s, sigAlpha;

  void Add(const Problem& problem) {
    problems.push_back(problem);
    const auto append = [](std::vector<double>& all, const std::vector<double>& one) {
      all.insert(all.end(), one.begin(), one.end());
    };
    append(z, problem.z);
    append(x, problem.x);
    append(sigx, problem.sigx);
    append(s, problem.s);
    append(sigAlpha, problem.sigAlpha);
    measOffset.push_back(static_cast<std::int64_t>(z.size()));
    scatOffset.push_back(static_cast<std::int64_t>(s.size()));
  }
  KinkBatchInput Input() const {
    return {problems.size(), measOffset.data(), z.data(), x.data(),
            sigx.data(),     scatOffset.data(), s.data(), sigAlpha.data()};
  }
};

struct Results {
  explicit Results(const Tracks& tracks)
      : status(tracks.problems.size()),
        ndof(status.size()),
        perTrack(8, std::vector<double>(status.size(), -7)),
        perPlane(2, std::vector<double>(tracks.s.size(), -7)),
        perMeas(2, std::vector<double>(tracks.z.size(), -7)) {}
  KinkBatchOutput Output() {
    return {status.data(),      perTrack[0].data(), perTrack[1].data(), perTrack[2].data(),
            perTrack[3].data(), perTrack[4].data(), perTrack[5].data(), perTrack[6].data(),
            ndof.data(),        perTrack[7].data(), perPlane[0].data(), perPlane[1].data(),
            perMeas[0].data(),  perMeas[1].data()};
  }
  std::vector<KinkStatus> status;
  std::vector<int> ndof;
  std::vector<std::vector<double>> perTrack, perPlane, perMeas;
};

Tracks RandomTracks() {
  std::mt19937_64 random(3);
  Tracks tracks;
  for (unsigned m = 0; m < 20; m++)
    tracks.Add(reference::RandomProblem(m + 1 + m % 4, m, random)); // m = 0: one measurement
  tracks.Add({{1, 2, 3}, {1, 2, 3}, {1, 1, kInfinity}, {0}, {kInfinity}});
  return tracks;
}

void ExpectSameBits(double a, double b) {
  EXPECT_TRUE((std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0)
      << a << " " << b;
}

TEST(KinkSmootherBatch, GivesTheBitsOfOneTrackAtATime) {
  const Tracks tracks = RandomTracks();
  Results found(tracks);
  KinkSmootherBatch().Fit(tracks.Input(), found.Output());
  for (std::size_t t = 0; t < tracks.problems.size(); t++) {
    SCOPED_TRACE(t);
    const Problem& problem = tracks.problems[t];
    KinkSmoother fit(static_cast<unsigned>(problem.z.size()),
                     static_cast<unsigned>(problem.s.size()));
    reference::Load(problem, fit);
    double x0 = 0, slope = 0;
    fit.Fit(&x0, &slope, nullptr, nullptr);
    EXPECT_EQ(found.status[t], fit.Status());
    EXPECT_EQ(found.ndof[t], fit.NDOF());
    const KinkPoint start = fit.AtStart();
    const double expected[] = {
        x0,           slope,          start.fVarX,        start.fCovXSlope, start.fVarSlope,
        fit.Chi2XI(), fit.Chi2Beta(), fit.LogLikelihood()};
    for (std::size_t i = 0; i < 8; i++) ExpectSameBits(found.perTrack[i][t], expected[i]);
    const std::size_t meas = static_cast<std::size_t>(tracks.measOffset[t]);
    for (unsigned i = 0; i < fit.NMeas(); i++) {
      ExpectSameBits(found.perMeas[0][meas + i], fit.XFit(i));
      ExpectSameBits(found.perMeas[1][meas + i], fit.Residual(i).fPull);
    }
    const std::size_t plane = static_cast<std::size_t>(tracks.scatOffset[t]);
    for (unsigned j = 0; j < fit.NScat(); j++) {
      ExpectSameBits(found.perPlane[0][plane + j], fit.Kink(j));
      ExpectSameBits(found.perPlane[1][plane + j], fit.VarKink(j));
    }
  }
  EXPECT_EQ(found.status.front(), KinkStatus::kOnePosition);
  EXPECT_EQ(found.status.back(), KinkStatus::kFreeKink);
  EXPECT_EQ(found.status[5], KinkStatus::kSucceeded);
}

TEST(KinkSmootherBatch, SecondUseAllocatesNothing) {
  const Tracks tracks = RandomTracks();
  Results results(tracks);
  KinkSmootherBatch batch;
  batch.Fit(tracks.Input(), results.Output());
  const std::size_t before = bench::AllocationCount();
  batch.Fit(tracks.Input(), results.Output());
  const std::size_t after = bench::AllocationCount();
  EXPECT_EQ(after, before);
}

TEST(KinkSmootherBatch, SkipsResultsThatAreNotAskedFor) {
  const Tracks tracks = RandomTracks();
  std::vector<double> slope(tracks.problems.size());
  KinkBatchOutput output;
  KinkSmootherBatch().Fit(tracks.Input(), output);
  output.fSlope = slope.data();
  KinkSmootherBatch().Fit(tracks.Input(), output);
  Results all(tracks);
  KinkSmootherBatch().Fit(tracks.Input(), all.Output());
  EXPECT_EQ(slope, all.perTrack[1]);
}

void ExpectThrow(const Tracks& tracks, unsigned code, double value) {
  Results results(tracks);
  try {
    KinkSmootherBatch().Fit(tracks.Input(), results.Output());
    ADD_FAILURE() << "nothing thrown";
  } catch (const KelvoException& e) {
    EXPECT_EQ(e.fCode, code);
    EXPECT_EQ(e.fValue, value);
  }
  EXPECT_NE(results.perTrack[0][0], -7) << "the good track before the bad one is fitted";
  EXPECT_EQ(results.perTrack[0][1], -7) << "the bad one is not";
}

TEST(KinkSmootherBatch, StopsAtTheFirstTrackWithBadInput) {
  const Problem good{{1, 2, 3}, {1, 2, 3}, {1, 1, 1}, {1.5}, {0.1}};
  Tracks tracks;
  for (int i = 0; i < 3; i++) tracks.Add(good);
  Tracks bad = tracks;
  bad.sigx[4] = -2;
  ExpectThrow(bad, kBadSigX, -2);
  bad = tracks;
  bad.sigAlpha[1] = 0;
  ExpectThrow(bad, kBadSigSJ, 0);
  bad = tracks;
  bad.x[3] = std::numeric_limits<double>::quiet_NaN();
  ExpectThrow(bad, kNaN, 0);
  bad = tracks;
  bad.measOffset[2] = 2;
  ExpectThrow(bad, kIndexProblem, 2);
}

} // namespace
} // namespace kelvo
