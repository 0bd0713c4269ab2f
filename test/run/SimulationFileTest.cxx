// Files of simulated tracks: read back, they are the simulator's tracks, whatever the number of
// threads; what cannot be written leaves nothing behind.

#include "io/FileError.h"
#include "io/HitReader.h"
#include "io/SimulationWriter.h"
#include "io/TextLines.h"
#include "run/SimulationFile.h"
#include "test/support/TempFolder.h"

#include <TFile.h>
#include <TObjString.h>
#include <TTree.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

namespace {

kelvo::TextLines Lines(const std::string& file) {
  return kelvo::TextLines(std::make_unique<kelvo::InputBytes>(file));
}

using kelvo::SimulatedTrack;
using kelvo::SimulateFile;
using kelvo::SimulationFileOptions;

constexpr int kTracks = 150; // more than two threads' first blocks

const geo::PlaneDetector& Detector() {
  static const auto detector =
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/range.toml");
  return detector;
}

SimulationFileOptions Options(const std::string& file) {
  SimulationFileOptions options;
  options.fSimulation.fKineticEnergy = {0.3, 0.8};
  options.fSimulation.fSeed = 12;
  options.fTracks = kTracks;
  options.fOutput = file;
  options.fHitTruth = true;
  return options;
}

std::vector<SimulatedTrack> Tracks() {
  kelvo::Simulator simulator(Detector(), Options("").fSimulation);
  std::vector<SimulatedTrack> tracks;
  for (int i = 0; i < kTracks; i++) tracks.push_back(simulator.Make(i));
  return tracks;
}

void ExpectHits(const std::string& file) {
  kelvo::HitReader reader({file});
  kelvo::TrackHits read;
  for (const SimulatedTrack& track : Tracks()) {
    ASSERT_TRUE(reader.Next(read));
    ASSERT_TRUE(read.Good());
    EXPECT_EQ(read.fTrack, track.fTrack);
    ASSERT_EQ(read.fHits.size(), track.fHits.size());
    for (std::size_t i = 0; i < read.fHits.size(); i++) {
      const kelvo::Hit3D& hit = read.fHits[i];
      EXPECT_EQ(hit.fView, track.fHits[i].fView);
      EXPECT_EQ(hit.fView == geo::kX ? hit.fX : hit.fY, track.fHits[i].fU);
      EXPECT_EQ(hit.fView == geo::kX ? hit.fSigX : hit.fSigY, track.fHits[i].fSigU);
      EXPECT_EQ(hit.fZ, track.fHits[i].fZ);
    }
  }
  EXPECT_FALSE(reader.Next(read));
}

/// The numbers of a line.
std::vector<double> Numbers(std::string_view line) {
  std::vector<double> numbers;
  for (std::size_t begin = 0; begin <= line.size();) {
    const std::size_t end = std::min(line.find(',', begin), line.size());
    numbers.push_back(std::stod(std::string(line.substr(begin, end - begin))));
    begin = end + 1;
  }
  return numbers;
}

std::vector<double> TruthOf(const SimulatedTrack& t) {
  return {static_cast<double>(t.fTrack),
          static_cast<double>(t.fPDG),
          t.fStart.X(),
          t.fStart.Y(),
          t.fStart.Z(),
          t.fMomentum.X(),
          t.fMomentum.Y(),
          t.fMomentum.Z(),
          t.fT,
          t.fEnd.X(),
          t.fEnd.Y(),
          t.fEnd.Z(),
          t.fLength};
}

TEST(SimulationFile, CsvHoldsTheTracksAndTheirTruth) {
  const test::TempFolder folder;
  for (const std::string end : {".csv", ".csv.gz"}) {
    const auto summary = SimulateFile(Detector(), Options(folder.Path("hits" + end)));
    EXPECT_EQ(summary.fTracks, static_cast<unsigned>(kTracks));
    EXPECT_EQ(summary.fFiles,
              (std::vector<std::string>{folder.Path("hits" + end), folder.Path("hits.truth" + end),
                                        folder.Path("hits.hittruth" + end)}));
    ExpectHits(folder.Path("hits" + end));
    kelvo::TextLines truth = Lines(folder.Path("hits.truth" + end));
    kelvo::TextLines hits = Lines(folder.Path("hits.hittruth" + end));
    std::string_view line;
    ASSERT_TRUE(truth.Next(line));
    EXPECT_EQ(line, "track,pdg,x0,y0,z0,px,py,pz,T,xe,ye,ze,length");
    ASSERT_TRUE(hits.Next(line));
    EXPECT_EQ(line, "track,z,x,y,dxdz,dydz,T");
    for (const SimulatedTrack& track : Tracks()) {
      ASSERT_TRUE(truth.Next(line));
      EXPECT_EQ(Numbers(line), TruthOf(track));
      for (const auto& hit : track.fHits) {
        ASSERT_TRUE(hits.Next(line));
        EXPECT_EQ(Numbers(line), (std::vector<double>{static_cast<double>(track.fTrack),
                                                      hit.fTrue.Z(), hit.fTrue.X(), hit.fTrue.Y(),
                                                      hit.fSlope.X(), hit.fSlope.Y(), hit.fT}));
      }
    }
    EXPECT_FALSE(truth.Next(line));
    EXPECT_FALSE(hits.Next(line));
  }
  EXPECT_EQ(folder.Files(), 6);
}

TEST(SimulationFile, RootFileHoldsAllTables) {
  const test::TempFolder folder;
  const std::string name = folder.Path("hits.root");
  SimulateFile(Detector(), Options(name));
  ExpectHits(name);
  const std::unique_ptr<TFile> file(TFile::Open(name.c_str()));
  auto* truth = file->Get<TTree>("truth");
  ASSERT_NE(truth, nullptr);
  ASSERT_EQ(truth->GetEntries(), kTracks);
  auto* hits = file->Get<TTree>("hittruth");
  ASSERT_NE(hits, nullptr);
  ASSERT_EQ(hits->GetEntries(), kTracks);
  const char* const columns[] = {"x0", "y0", "z0", "px", "py",    "pz",
                                 "T",  "xe", "ye", "ze", "length"};
  double values[std::size(columns)] = {};
  for (std::size_t i = 0; i < std::size(columns); i++)
    truth->SetBranchAddress(columns[i], &values[i]);
  long long track = 0;
  int pdg = 0;
  truth->SetBranchAddress("track", &track);
  truth->SetBranchAddress("pdg", &pdg);
  std::vector<double>* x = nullptr;
  hits->SetBranchAddress("x", &x);
  const auto tracks = Tracks();
  for (int i = 0; i < kTracks; i++) {
    truth->GetEntry(i);
    std::vector<double> read{static_cast<double>(track), static_cast<double>(pdg)};
    read.insert(read.end(), std::begin(values), std::end(values));
    EXPECT_EQ(read, TruthOf(tracks[static_cast<std::size_t>(i)]));
    hits->GetEntry(i);
    const auto& trueHits = tracks[static_cast<std::size_t>(i)].fHits;
    ASSERT_EQ(x->size(), trueHits.size());
    for (std::size_t k = 0; k < x->size(); k++) EXPECT_EQ((*x)[k], trueHits[k].fTrue.X());
  }
  hits->ResetBranchAddresses();
  delete x;
  const std::unique_ptr<TObjString> text(file->Get<TObjString>("detector"));
  EXPECT_EQ(text->GetString().Data(), Detector().Text());
  const std::unique_ptr<TObjString> kept(file->Get<TObjString>("options"));
  const std::string options = kept->GetString().Data();
  EXPECT_NE(options.find("kinetic_energy = [0.3, 0.8]\n"), std::string::npos) << options;
  EXPECT_NE(options.find("seed = 12\n"), std::string::npos) << options;
  EXPECT_NE(options.find("start_x = [-150, 150]\n"), std::string::npos) << options;
}

TEST(SimulationFile, LeavesThreadsThatReadTheFileSomeClustersToShare) {
  const test::TempFolder folder;
  const std::string name = folder.Path("hits.root");
  const auto writer = kelvo::MakeSimulationWriter(name, true, {});
  const auto tracks = Tracks();
  for (std::size_t i = 0; i < 3500; i++) writer->Write(tracks[i % tracks.size()]);
  writer->Commit();
  TFile file(name.c_str());
  for (const char* table : {"hits", "truth", "hittruth"}) {
    auto* tree = file.Get<TTree>(table);
    std::vector<Long64_t> begins;
    auto next = tree->GetClusterIterator(0);
    for (Long64_t begin = next(); begin < tree->GetEntries(); begin = next())
      begins.push_back(begin);
    EXPECT_EQ(begins, (std::vector<Long64_t>{0, 1000, 2000, 3000})) << table;
  }
}

TEST(SimulationFile, BytesDoNotDependOnTheNumberOfThreads) {
  const test::TempFolder folder;
  for (const auto model : {kelvo::ScatteringModel::kFull, kelvo::ScatteringModel::kFit})
    for (const std::string end : {".csv", ".csv.gz"}) {
      std::vector<std::string> contents;
      for (const unsigned threads : {1u, 2u, 5u}) {
        SimulationFileOptions options = Options(folder.Path("hits" + end));
        options.fSimulation.fScattering = model;
        options.fThreads = threads;
        SimulateFile(Detector(), options);
        contents.push_back(folder.Read("hits" + end) + folder.Read("hits.truth" + end) +
                           folder.Read("hits.hittruth" + end));
      }
      EXPECT_GT(contents[0].size(), 10'000u);
      EXPECT_TRUE(contents[0] == contents[1]);
      EXPECT_TRUE(contents[0] == contents[2]);
    }
}

TEST(SimulationFile, StoppedRunLeavesNothing) {
  const test::TempFolder folder;
  for (const std::string name : {"hits.csv", "hits.csv.gz", "hits.root"})
    EXPECT_THROW(SimulateFile(Detector(), Options(folder.Path(name)),
                              [](const kelvo::Progress&) { return false; }),
                 kelvo::RunStopped);
  EXPECT_EQ(folder.Files(), 0);
}

TEST(SimulationFile, TrackThatCannotBeMadeEndsTheRun) {
  const test::TempFolder folder;
  SimulationFileOptions options = Options(folder.Path("hits.csv"));
  options.fSimulation.fKineticEnergy = {5, 5};
  options.fTracks = 1;
  options.fThreads = 2;
  EXPECT_THROW(SimulateFile(Detector(), options), std::runtime_error);
  EXPECT_EQ(folder.Files(), 0);
}

TEST(SimulationFile, NameWithoutFormatIsRefused) {
  try {
    SimulateFile(Detector(), Options("hits.txt"));
    FAIL();
  } catch (const kelvo::FileError& e) {
    EXPECT_STREQ(e.what(),
                 "hits.txt: the name tells the format of simulated hits and must end in .csv, "
                 ".csv.gz or .root");
  }
}

TEST(SimulationFile, FolderThatIsNotThereIsTold) {
  const test::TempFolder folder;
  const std::string name = folder.Path("none/hits.csv");
  try {
    SimulateFile(Detector(), Options(name));
    FAIL();
  } catch (const kelvo::FileError& e) {
    EXPECT_EQ(std::string(e.what()), name + ": cannot be written: No such file or directory");
  }
}

} // namespace
