// All fits in memory against the rows of a plain loop over the same tracks.

#include "io/FileError.h"
#include "io/FitRow.h"
#include "run/FitTable.h"
#include "run/RowFitter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

namespace {

using kelvo::FitColumn;
using kelvo::FitRow;
using kelvo::FitTable;

const char* const kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";
constexpr unsigned long long kTracks = 150;

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

/// Tracks of a file, every 30th of which is made a bad one.
class SomeBad : public kelvo::HitSource {
public:
  bool Next(kelvo::TrackHits& track) override {
    if (!fReader.Next(track)) return false;
    if (++fN % 30 == 0) track.AddProblem(track.Place() + ": nonsense");
    return true;
  }
  double Fraction() const override { return fReader.Fraction(); }

private:
  kelvo::HitReader fReader{{kMuons}};
  unsigned fN = 0;
};

const std::vector<FitRow>& Rows() {
  static const std::vector<FitRow> all = [] {
    std::vector<FitRow> rows;
    SomeBad source;
    kelvo::RowFitter fitter(kelvo::TrackFitter(Detector()), nullptr);
    kelvo::TrackHits track;
    for (unsigned long long i = 0; i < kTracks && source.Next(track); i++)
      for (const FitRow& row : kelvo::FitRows(track, fitter.Fit(track), true)) rows.push_back(row);
    return rows;
  }();
  return all;
}

kelvo::FitRunOptions Options() {
  kelvo::FitRunOptions options;
  options.fLimit = kTracks;
  return options;
}

template <typename T>
bool Holds(const FitColumn& column, std::size_t at, const T& value) {
  if constexpr (std::is_arithmetic_v<T>) {
    return std::memcmp(column.fData.data() + at * sizeof value, &value, sizeof value) == 0;
  } else {
    constexpr std::size_t size = sizeof(typename T::value_type);
    const auto begin = static_cast<std::size_t>(column.fOffsets[at]);
    if (column.fOffsets[at + 1] - column.fOffsets[at] != static_cast<long>(value.size()))
      return false;
    // An empty vector may have no address.
    return value.empty() ||
           std::memcmp(column.fData.data() + begin * size, value.data(), value.size() * size) == 0;
  }
}

void ExpectRows(const kelvo::FitColumns& columns, const std::vector<FitRow>& rows,
                bool withVectors) {
  ASSERT_EQ(columns.Rows(), rows.size());
  for (std::size_t i = 0; i < rows.size(); i++) {
    std::size_t c = 0;
    const auto compare = [&](const char* name, auto member) {
      ASSERT_LT(c, columns.Size());
      EXPECT_EQ(columns.Column(c).fName, name);
      EXPECT_TRUE(Holds(columns.Column(c), i, rows[i].*member)) << name << ", row " << i;
      c++;
    };
    kelvo::VisitScalars(compare);
    if (withVectors) kelvo::VisitVectors(compare);
    ASSERT_EQ(c, columns.Size());
  }
}

TEST(FitTable, HoldsTheRowsOfALoopForAnyNumberOfThreads) {
  ASSERT_EQ(Rows().size(), 3 * kTracks);
  for (const unsigned threads : {1u, 2u, 5u}) {
    SomeBad source;
    auto options = Options();
    options.fThreads = threads;
    FitTable table(Detector(), source, options);
    int pieces = 1;
    while (table.Fit(0)) pieces++;
    EXPECT_GT(pieces, 2);
    ExpectRows(table.Columns(), Rows(), true);
    EXPECT_FALSE(table.Fit(0)) << "a fit that is over stays so";
    EXPECT_EQ(table.Fraction(), 1);
  }
}

TEST(FitTable, LeavesOutTheVectors) {
  SomeBad source;
  auto options = Options();
  options.fScalarsOnly = true;
  FitTable table(Detector(), source, options);
  table.Fit(1000);
  ExpectRows(table.Columns(), Rows(), false);
}

TEST(FitTable, NamesTheTypesOfItsColumns) {
  const kelvo::FitColumns columns(true, false);
  const auto typeOf = [&](const std::string& name) {
    for (std::size_t i = 0; i < columns.Size(); i++)
      if (columns.Column(i).fName == name) return columns.Column(i).fType;
    return std::string();
  };
  EXPECT_EQ(typeOf("track"), "int64");
  EXPECT_EQ(typeOf("pdg"), "int32");
  EXPECT_EQ(typeOf("message"), "text");
  EXPECT_EQ(typeOf("best"), "bool");
  EXPECT_EQ(typeOf("p"), "float64");
  EXPECT_EQ(typeOf("hit_view"), "int32");
  EXPECT_EQ(typeOf("hit_u"), "float64");
  EXPECT_EQ(typeOf("residual"), "float32");
}

TEST(FitTable, CountsTracksAndTellsTheFirstProblems) {
  SomeBad source;
  FitTable table(Detector(), source, Options());
  while (table.Fit(0.01)) {
  }
  const kelvo::FitSummary summary = table.Summary();
  EXPECT_EQ(summary.fTracks, kTracks);
  EXPECT_EQ(summary.fBadLines, 5u);
  EXPECT_EQ(summary.fFitted, kTracks - 5);
  EXPECT_EQ(summary.fByStatus[2], 5u);
  ASSERT_EQ(summary.fProblems.size(), 5u);
  EXPECT_NE(summary.fProblems[0].find(": nonsense"), std::string::npos);
  EXPECT_FALSE(summary.AllUsed());
  ASSERT_EQ(summary.fHypotheses.size(), 3u);
  EXPECT_EQ(summary.fHypotheses[0].fFitted, kTracks - 5);
}

TEST(FitTable, OfOneTrackHasItsRows) {
  SomeBad source;
  kelvo::TrackHits track;
  source.Next(track);
  kelvo::TrackFitter fitter(Detector());
  track.fTrack = 0;
  ExpectRows(kelvo::FitOneTrack(fitter, track.fHits),
             kelvo::FitRows(track, fitter.Fit(track.fHits), true), true);
}

TEST(FitTable, RefusesOptionsOutOfRange) {
  SomeBad source;
  auto options = Options();
  options.fFit.fScatteringFactor = -1;
  EXPECT_THROW(FitTable(Detector(), source, options), std::invalid_argument);
}

TEST(FitTable, PassesOnErrorsOfTheInput) {
  class Broken : public kelvo::HitSource {
  public:
    bool Next(kelvo::TrackHits&) override { throw kelvo::FileError("the file ends too early"); }
    double Fraction() const override { return 0; }
  } source;
  FitTable table(Detector(), source, Options());
  EXPECT_THROW(table.Fit(1000), kelvo::FileError);
}

} // namespace
