// From a file of hits to a file of fits, on the bundled muons: reading beside a plain reader with
// string streams, writing beside plain calls of TTree::Fill, and the whole with the fraction of
// each stage. Times are per track.
#include "io/FitWriter.h"
#include "io/HitReader.h"
#include "run/FitFile.h"
#include "run/FittedBlocks.h"

#include "test/support/Allocations.h"
#include "test/support/TempFolder.h"
#include "test/support/TrackChainStages.h"

#include <TFile.h>
#include <TTree.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <sstream>

namespace {

const char* const kHits = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return detector;
}

const test::TempFolder& Folder() {
  static const test::TempFolder folder;
  return folder;
}

std::vector<kelvo::TrackHits> ReadAll(const std::string& file) {
  kelvo::HitReader reader({file});
  std::vector<kelvo::TrackHits> tracks;
  for (kelvo::TrackHits track; reader.Next(track);) tracks.push_back(track);
  return tracks;
}

const std::vector<kelvo::TrackHits>& Tracks() {
  static const std::vector<kelvo::TrackHits> tracks = ReadAll(kHits);
  return tracks;
}

const std::string& PlainText() {
  static const std::string file = [] {
    std::string text;
    gzFile in = gzopen(kHits, "rb");
    char buffer[1 << 16];
    for (int n = 0; (n = gzread(in, buffer, sizeof buffer)) > 0;)
      text.append(buffer, static_cast<std::size_t>(n));
    gzclose(in);
    return Folder().Write("hits.csv", text);
  }();
  return file;
}

/// The reference: what a first program would do.
double SumWithStreams(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  double sum = 0;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string track, view, u, z, sigu;
    std::getline(fields, track, ',');
    std::getline(fields, view, ',');
    std::getline(fields, u, ',');
    std::getline(fields, z, ',');
    std::getline(fields, sigu, ',');
    sum += std::stod(track) + std::stod(u) + std::stod(z) + std::stod(sigu);
  }
  return sum;
}

double SumWithReader(const std::string& file) {
  kelvo::HitReader reader({file});
  double sum = 0;
  for (kelvo::TrackHits track; reader.Next(track);)
    for (const kelvo::Hit3D& hit : track.fHits)
      sum += static_cast<double>(track.fTrack) + hit.fX + hit.fY + hit.fZ + hit.fSigX + hit.fSigY;
  return sum;
}

template <typename F>
void Measure(benchmark::State& state, F work) {
  const std::size_t before = bench::AllocationCount();
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) work();
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  const auto tracks =
      static_cast<double>(state.iterations()) * static_cast<double>(Tracks().size());
  state.counters["us/track"] = time.count() * 1e6 / tracks;
  state.counters["tracks/s"] = tracks / time.count();
  state.counters["alloc/track"] = static_cast<double>(bench::AllocationCount() - before) / tracks;
  state.counters["peak MiB"] = bench::PeakMemoryMiB();
}

void Fit(benchmark::State& state) {
  kelvo::TrackFitter fitter(Detector());
  kelvo::TrackFit fit;
  Measure(state, [&] {
    for (const kelvo::TrackHits& track : Tracks()) fitter.Fit(track.fHits, fit);
  });
}

/// What the stages of a fit take, in microseconds per track.
void Stages(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  const kelvo::TrackFitOptions options;
  kelvo::TrackChain chain(Detector(), options);
  kelvo::TrackFit fit;
  fit.fHypothesis.resize(options.fHypotheses.size());
  double time[kelvo::TrackChainStages::kCount] = {};
  Measure(state, [&] {
    for (const kelvo::TrackHits& track : Tracks()) {
      fit.fBest = -1;
      for (std::size_t h = 0; h < fit.fHypothesis.size(); h++)
        ClearFit(options.fHypotheses[h], fit.fHypothesis[h]);
      Clock::time_point last = Clock::now();
      kelvo::TrackChainStages::Fit(chain, track.fHits, fit, [&](int stage) {
        const Clock::time_point now = Clock::now();
        time[stage] += std::chrono::duration<double>(now - last).count();
        last = now;
      });
    }
  });
  const auto tracks =
      static_cast<double>(state.iterations()) * static_cast<double>(Tracks().size());
  for (int stage = 0; stage < kelvo::TrackChainStages::kCount; stage++)
    state.counters[std::string(kelvo::TrackChainStages::kNames[stage]) + "_us"] =
        time[stage] / tracks * 1e6;
}

/// All fits, as blocks of rows.
const std::vector<std::vector<kelvo::FitRow>>& Rows() {
  static const auto rows = [] {
    std::vector<std::vector<kelvo::FitRow>> all;
    std::size_t i = 0;
    kelvo::FittedBlocks blocks(
        [&i](kelvo::TrackHits& track) {
          if (i == Tracks().size()) return false;
          track = Tracks()[i++];
          return true;
        },
        {kelvo::TrackFitter(Detector()), nullptr}, 2, true);
    for (kelvo::FittedBlock block; blocks.Next(block);) all.push_back(block.fRows);
    return all;
  }();
  return rows;
}

void Write(benchmark::State& state, const kelvo::FitWriterOptions& options) {
  Measure(state, [&] {
    kelvo::PendingFile file(Folder().Path("fits.root"));
    kelvo::FitWriter writer(file, options);
    for (const auto& rows : Rows()) writer.Write(rows);
    writer.Close();
    file.Commit();
  });
  state.counters["kB/track"] =
      static_cast<double>(std::filesystem::file_size(Folder().Path("fits.root"))) * 1e-3 /
      static_cast<double>(Tracks().size());
}

/// The reference: the same columns by the calls of a first program.
void WriteWithFill(benchmark::State& state) {
  Measure(state, [] {
    TFile file(Folder().Path("filled.root").c_str(), "RECREATE", "", 401);
    auto* tree = new TTree("fits", "");
    tree->SetAutoFlush(-8'000'000);
    kelvo::FitRow row;
    const auto add = [&](const char* name, auto member) { tree->Branch(name, &(row.*member)); };
    kelvo::VisitScalars(add);
    kelvo::VisitVectors(add);
    for (const auto& rows : Rows())
      for (const kelvo::FitRow& one : rows) {
        row = one;
        tree->Fill();
      }
    file.Write();
  });
}

void WriteCsv(benchmark::State& state) {
  Measure(state, [] {
    kelvo::PendingFile file(Folder().Path("fits.csv"));
    kelvo::FitCsvWriter writer(file);
    for (const auto& rows : Rows()) writer.Write(rows);
    writer.Close();
  });
}

void Whole(benchmark::State& state, unsigned threads, bool scalars) {
  Tracks();
  kelvo::FitFileOptions options;
  options.fInputs = {kHits};
  options.fOutput = Folder().Path("whole.root");
  options.fThreads = threads;
  options.fScalarsOnly = scalars;
  Measure(state, [&] { kelvo::FitFile(Detector(), options); });
}

bool ReadersAgree() {
  const double a = SumWithReader(PlainText());
  const double b = SumWithStreams(PlainText());
  return std::abs(a - b) < 1e-6 * std::abs(a) && SumWithReader(kHits) == a;
}

int Run(int argc, char** argv) {
  if (!ReadersAgree()) {
    std::fprintf(stderr, "the readers do not give the same hits\n");
    return 1;
  }
  Rows();
  // ROOT's dictionaries are read at the first use.
  kelvo::FitWriter(kelvo::PendingFile(Folder().Path("first.root"))).Close();
  const auto add = [](const char* name, auto function) {
    benchmark::RegisterBenchmark(name, function)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->MeasureProcessCPUTime();
  };
  add("read, string streams", [](benchmark::State& state) {
    Measure(state, [] { benchmark::DoNotOptimize(SumWithStreams(PlainText())); });
  });
  add("read, plain", [](benchmark::State& state) {
    Measure(state, [] { benchmark::DoNotOptimize(SumWithReader(PlainText())); });
  });
  add("read, gzip", [](benchmark::State& state) {
    Measure(state, [] { benchmark::DoNotOptimize(SumWithReader(kHits)); });
  });
  add("fit", Fit);
  add("fit, stages", Stages);
  add("write, TTree::Fill", WriteWithFill);
  const auto addWrite = [&](const char* name, kelvo::TableFormat format, bool withVectors) {
    kelvo::FitWriterOptions options;
    options.fFormat = format;
    options.fWithVectors = withVectors;
    add(name, [=](benchmark::State& state) { Write(state, options); });
  };
  addWrite("write, TTree", kelvo::TableFormat::kTTree, true);
  addWrite("write, TTree, scalars", kelvo::TableFormat::kTTree, false);
  addWrite("write, RNTuple", kelvo::TableFormat::kRNTuple, true);
  addWrite("write, RNTuple, scalars", kelvo::TableFormat::kRNTuple, false);
  add("write, CSV", WriteCsv);
  add("all, 1 thread", [](benchmark::State& state) { Whole(state, 1, false); });
  add("all, 2 threads", [](benchmark::State& state) { Whole(state, 2, false); });
  add("all, 1 thread, scalars", [](benchmark::State& state) { Whole(state, 1, true); });
  add("all, 2 threads, scalars", [](benchmark::State& state) { Whole(state, 2, true); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
