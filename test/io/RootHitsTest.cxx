// Hits in ROOT files, TTree and RNTuple, with columns of the types that programs and uproot write.

#include "io/FileError.h"
#include "io/HitReader.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <TFile.h>
#include <TObjString.h>
#include <TTree.h>
#include <ROOT/RVec.hxx>
#ifdef KELVO_HAS_RNTUPLE
#include <ROOT/RNTupleModel.hxx>
#include <ROOT/RNTupleWriter.hxx>
#endif

#include <functional>
#include <limits>

namespace {

using kelvo::HitReader;
using kelvo::TrackHits;

std::vector<TrackHits> ReadAll(const std::string& file,
                               const kelvo::HitReaderOptions& options = {}) {
  HitReader reader({file}, options);
  std::vector<TrackHits> tracks;
  for (TrackHits track; reader.Next(track);) tracks.push_back(track);
  return tracks;
}

std::string ErrorOf(const std::string& file, const kelvo::HitReaderOptions& options = {}) {
  try {
    ReadAll(file, options);
  } catch (const kelvo::FileError& e) {
    return e.what();
  }
  return "no error";
}

/// Three tracks with 2, 0 and 3 hits. All numbers are exact in single precision.
struct Table {
  std::vector<long long> fTrack{4, 5, 1LL << 40};
  std::vector<std::vector<double>> fU{{1.5, -2.25}, {}, {3, 4, 5}};
  std::vector<std::vector<double>> fZ{{3, 9}, {}, {3, 9, 15}};
  std::vector<std::vector<int>> fView{{0, 1}, {}, {1, 0, 1}};
};

void ExpectTable(const std::vector<TrackHits>& tracks) {
  const Table table;
  ASSERT_EQ(tracks.size(), 3u);
  for (std::size_t i = 0; i < 3; i++) {
    EXPECT_EQ(tracks[i].fTrack, table.fTrack[i]);
    EXPECT_TRUE(tracks[i].Good());
    EXPECT_EQ(tracks[i].fPlace, i);
    ASSERT_EQ(tracks[i].fHits.size(), table.fU[i].size());
    for (std::size_t j = 0; j < table.fU[i].size(); j++) {
      const kelvo::Hit3D& hit = tracks[i].fHits[j];
      const bool isX = table.fView[i][j] == 0;
      EXPECT_EQ(hit.fView, isX ? geo::kX : geo::kY);
      EXPECT_EQ(isX ? hit.fX : hit.fY, table.fU[i][j]);
      EXPECT_EQ(isX ? hit.fSigX : hit.fSigY, 0.25);
      EXPECT_EQ(hit.fZ, table.fZ[i][j]);
      EXPECT_EQ(hit.fW, 1);
    }
  }
}

/// Writes the table with vectors of these types.
template <typename Vector, typename Views, typename Track>
std::string WriteTree(const std::string& file, const std::function<void(int, Views&)>& addView,
                      const char* name = "hits") {
  TFile out(file.c_str(), "RECREATE");
  auto* tree = new TTree(name, "");
  Track track{};
  Vector u, z, sigu;
  Views view;
  tree->Branch("track", &track);
  tree->Branch("u", &u);
  tree->Branch("z", &z);
  tree->Branch("sigu", &sigu);
  tree->Branch("view", &view);
  const Table table;
  for (std::size_t i = 0; i < 3; i++) {
    track = static_cast<Track>(table.fTrack[i]);
    u.clear();
    z.clear();
    sigu.clear();
    view.clear();
    for (std::size_t j = 0; j < table.fU[i].size(); j++) {
      using T = typename Vector::value_type;
      u.push_back(static_cast<T>(table.fU[i][j]));
      z.push_back(static_cast<T>(table.fZ[i][j]));
      sigu.push_back(static_cast<T>(0.25));
      addView(table.fView[i][j], view);
    }
    tree->Fill();
  }
  out.Write();
  return file;
}

template <typename Views>
void AddNumber(int view, Views& views) {
  views.push_back(static_cast<typename Views::value_type>(view));
}
void AddLetter(int view, std::vector<char>& views) {
  views.push_back(view == 0 ? 'X' : 'Y');
}
void AddText(int view, std::vector<std::string>& views) {
  views.push_back(view == 0 ? "X" : "y");
}

TEST(RootHits, ReadsTreesOfVectorsOfAnyNumberType) {
  const test::TempFolder folder;
  const std::string file = folder.Path("hits.root");
  using Ints = std::vector<int>;
  using Shorts = std::vector<short>;
  ExpectTable(ReadAll(WriteTree<std::vector<double>, Ints, Long64_t>(file, AddNumber<Ints>)));
  ExpectTable(ReadAll(WriteTree<std::vector<float>, Shorts, ULong64_t>(file, AddNumber<Shorts>)));
  ExpectTable(ReadAll(WriteTree<ROOT::RVecD, ROOT::RVecI, Long64_t>(file, AddNumber<ROOT::RVecI>)));
  ExpectTable(ReadAll(WriteTree<ROOT::RVecF, std::vector<char>, Long64_t>(file, AddLetter)));
  ExpectTable(
      ReadAll(WriteTree<std::vector<double>, std::vector<std::string>, Long64_t>(file, AddText)));
}

TEST(RootHits, ReadsTreesOfArraysWithALengthOfTheirOwn) {
  const test::TempFolder folder;
  const std::string file = folder.Path("hits.root");
  {
    TFile out(file.c_str(), "RECREATE");
    auto* tree = new TTree("hits", "");
    Long64_t track = 0;
    Int_t n = 0;
    Double_t u[3], z[3];
    Float_t sigu[3] = {0.25f, 0.25f, 0.25f};
    Char_t view[3];
    tree->Branch("track", &track, "track/L");
    tree->Branch("n", &n, "n/I");
    tree->Branch("u", u, "u[n]/D");
    tree->Branch("z", z, "z[n]/D");
    tree->Branch("sigu", sigu, "sigu[n]/F");
    tree->Branch("view", view, "view[n]/B");
    const Table table;
    for (std::size_t i = 0; i < 3; i++) {
      track = table.fTrack[i];
      n = static_cast<Int_t>(table.fU[i].size());
      for (std::size_t j = 0; j < table.fU[i].size(); j++) {
        u[j] = table.fU[i][j];
        z[j] = table.fZ[i][j];
        view[j] = static_cast<Char_t>(table.fView[i][j]);
      }
      tree->Fill();
    }
    out.Write();
  }
  ExpectTable(ReadAll(file));
}

TEST(RootHits, FindsTheTable) {
  const test::TempFolder folder;
  using Ints = std::vector<int>;
  using Doubles = std::vector<double>;
  const std::string other = folder.Path("other.root");
  WriteTree<Doubles, Ints, Long64_t>(other, AddNumber<Ints>, "events");
  ExpectTable(ReadAll(other)); // the only one

  {
    TFile file(other.c_str(), "UPDATE");
    TTree("pedestals", "").Write();
  }
  EXPECT_EQ(ErrorOf(other), other + ": holds events, pedestals; tell which of them has the hits");
  kelvo::HitReaderOptions options;
  options.fTree = "events";
  ExpectTable(ReadAll(other, options));
  options.fTree = "hits";
  EXPECT_EQ(ErrorOf(other, options), other + ": holds events, pedestals, no hits");
}

TEST(RootHits, RefusesFilesWithoutTheColumnsOfHits) {
  const test::TempFolder folder;
  const std::string file = folder.Path("hits.root");
  {
    TFile out(file.c_str(), "RECREATE");
    const TObjString text("no table");
    text.Write("text");
  }
  EXPECT_EQ(ErrorOf(file), file + ": holds no TTree and no RNTuple");

  const auto write = [&file](const std::string& track, const std::string& u) {
    TFile out(file.c_str(), "RECREATE");
    auto* tree = new TTree("hits", "");
    Long64_t number = 0;
    Double_t real = 0;
    std::vector<double> vector{1};
    if (track == "whole")
      tree->Branch("track", &number);
    else if (track == "real")
      tree->Branch("track", &real);
    if (u == "vector")
      tree->Branch("u", &vector);
    else
      tree->Branch("u", &real);
    for (const char* name : {"z", "sigu", "view"}) tree->Branch(name, &vector);
    tree->Fill();
    out.Write();
  };
  write("", "vector");
  EXPECT_EQ(ErrorOf(file),
            file +
                ", hits: there is no column \"track\" but \"u, z, sigu, view\"; a column of "
                "another name needs a mapping, track=NAME; hits have track,view,u,z,sigu or "
                "track,x,y,z,sigx,sigy");
  write("real", "vector");
  EXPECT_EQ(ErrorOf(file), file + ", hits, column track: is not a whole number");
  write("whole", "real");
  EXPECT_EQ(ErrorOf(file), file + ", hits, column u: is not a vector of numbers");
}

TEST(RootHits, SaysWhatIsWrongWithAnEntry) {
  const test::TempFolder folder;
  const std::string file = folder.Path("hits.root");
  std::vector<double> u, z, sigu;
  std::vector<int> view;
  {
    TFile out(file.c_str(), "RECREATE");
    auto* tree = new TTree("hits", "");
    Long64_t track = 0;
    tree->Branch("track", &track);
    tree->Branch("u", &u);
    tree->Branch("z", &z);
    tree->Branch("sigu", &sigu);
    tree->Branch("view", &view);
    const auto fill = [&](const std::vector<double>& uu, const std::vector<double>& zz,
                          const std::vector<double>& ss, const std::vector<int>& vv) {
      u = uu;
      z = zz;
      sigu = ss;
      view = vv;
      track++;
      tree->Fill();
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    fill({1, 2}, {3}, {0.1}, {0});
    fill({1, nan}, {3, 9}, {0.1, 0.1}, {0, 1});
    fill({1, 2}, {3, 9}, {0.1, 0}, {0, 1});
    fill({1, 2}, {3, 9}, {0.1, 0.1}, {2, 1});
    fill({1, 2}, {3, 9}, {0.1, 0.1}, {0, 1});
    out.Write();
  }
  const auto tracks = ReadAll(file);
  ASSERT_EQ(tracks.size(), 5u);
  const auto problem = [&tracks](std::size_t i) { return tracks[i].fProblems.at(0); };
  EXPECT_EQ(problem(0), file + ", entry 0, column u: has 2 values where column z has 1");
  EXPECT_EQ(problem(1), file + ", entry 1, hit 1, column u: is not a finite number");
  EXPECT_EQ(problem(2), file + ", entry 2, hit 1, column sigu: is not above 0");
  EXPECT_EQ(problem(3), file +
                            ", entry 3, hit 0, column view: is not a view, which is X or Y, 0 "
                            "or 1");
  EXPECT_EQ(tracks[1].fHits.size(), 1u);
  EXPECT_TRUE(tracks[4].Good());
}

/// Writes one entry, whose column u is what the caller makes of it.
std::string WriteEntry(const std::string& file, const std::function<void(TTree&)>& addU,
                       unsigned long long track = 7) {
  TFile out(file.c_str(), "RECREATE");
  auto* tree = new TTree("hits", "");
  std::vector<double> z{1, 2}, sigu{0.25, 0.25};
  std::vector<int> view{0, 1};
  tree->Branch("track", &track);
  tree->Branch("z", &z);
  tree->Branch("sigu", &sigu);
  tree->Branch("view", &view);
  addU(*tree);
  out.Write();
  return file;
}

TEST(RootHits, RefusesTextsWhereNumbersBelong) {
  const test::TempFolder folder;
  const std::string file = WriteEntry(folder.Path("texts.root"), [](TTree& tree) {
    std::vector<std::string> u{"1", "2"};
    tree.Branch("u", &u);
    tree.Fill();
  });
  EXPECT_EQ(ErrorOf(file), file + ", hits, column u: is not a vector of numbers");
}

TEST(RootHits, RefusesArraysOfTwoDimensions) {
  const test::TempFolder folder;
  const std::string fixed = WriteEntry(folder.Path("fixed.root"), [](TTree& tree) {
    double u[2][1] = {{1}, {2}};
    tree.Branch("u", u, "u[2][1]/D");
    tree.Fill();
  });
  EXPECT_EQ(ErrorOf(fixed), fixed + ", hits, column u: is not a vector of numbers");
  const std::string counted = WriteEntry(folder.Path("counted.root"), [](TTree& tree) {
    int n = 1;
    double u[1][2] = {{1, 2}};
    tree.Branch("n", &n);
    tree.Branch("u", u, "u[n][2]/D");
    tree.Fill();
  });
  EXPECT_EQ(ErrorOf(counted), counted + ", hits, column u: is not a vector of numbers");
}

TEST(RootHits, RefusesTrackNumbersThatAreTooLarge) {
  const test::TempFolder folder;
  const auto addU = [](TTree& tree) {
    std::vector<double> u{1, 2};
    tree.Branch("u", &u);
    tree.Fill();
  };
  const auto max = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
  EXPECT_EQ(ReadAll(WriteEntry(folder.Path("max.root"), addU, max)).at(0).fTrack,
            std::numeric_limits<long long>::max());
  const std::string file = WriteEntry(folder.Path("more.root"), addU, max + 1);
  EXPECT_EQ(ErrorOf(file), file +
                               ", hits, column track, entry 0: 9223372036854775808 is not a whole "
                               "number of 64 bits with sign");
}

TEST(RootHits, RefusesAFileThatWasNeverClosed) {
  const test::TempFolder folder;
  const std::string file = folder.Path("open.root");
  TFile out(file.c_str(), "RECREATE");
  auto* tree = new TTree("hits", "");
  int track = 1;
  tree->Branch("track", &track);
  for (int i = 0; i < 10; i++) tree->Fill();
  tree->AutoSave("SaveSelf");
  for (int i = 0; i < 10; i++) tree->Fill();
  tree->FlushBaskets();
  out.Flush();
  const std::string copy = folder.Write("copy.root", folder.Read("open.root"));
  const std::string error = ErrorOf(copy);
  EXPECT_EQ(error.find(copy + ": was not closed by the program that wrote it"), 0u) << error;
}

TEST(RootHits, RefusesADamagedFile) {
  const test::TempFolder folder;
  const std::string file = folder.Write("hits.root", "root" + std::string(1000, '\0'));
  EXPECT_EQ(ErrorOf(file), file + ": is damaged and cannot be read");
}

#ifdef KELVO_HAS_RNTUPLE
template <typename Real, typename View, typename Track>
std::string WriteNTuple(const std::string& file, const std::function<View(int)>& viewOf) {
  auto model = ROOT::RNTupleModel::Create();
  auto track = model->MakeField<Track>("track");
  auto u = model->MakeField<std::vector<Real>>("u");
  auto z = model->MakeField<std::vector<Real>>("z");
  auto sigu = model->MakeField<std::vector<Real>>("sigu");
  auto view = model->MakeField<std::vector<View>>("view");
  const auto writer = ROOT::RNTupleWriter::Recreate(std::move(model), "hits", file);
  const Table table;
  for (std::size_t i = 0; i < 3; i++) {
    *track = static_cast<Track>(table.fTrack[i]);
    u->assign(table.fU[i].begin(), table.fU[i].end());
    z->assign(table.fZ[i].begin(), table.fZ[i].end());
    sigu->assign(table.fU[i].size(), static_cast<Real>(0.25));
    view->clear();
    for (const int v : table.fView[i]) view->push_back(viewOf(v));
    writer->Fill();
  }
  return file;
}

TEST(RootHits, ReadsNTuplesOfVectorsOfAnyNumberType) {
  const test::TempFolder folder;
  const std::string file = folder.Path("hits.root");
  ExpectTable(ReadAll(WriteNTuple<double, int, std::int64_t>(file, [](int v) { return v; })));
  ExpectTable(ReadAll(WriteNTuple<float, std::uint8_t, std::uint64_t>(
      file, [](int v) { return static_cast<std::uint8_t>(v); })));
  ExpectTable(ReadAll(
      WriteNTuple<double, char, std::int64_t>(file, [](int v) { return v == 0 ? 'X' : 'Y'; })));
  ExpectTable(ReadAll(WriteNTuple<double, std::string, std::int64_t>(
      file, [](int v) { return std::string(v == 0 ? "X" : "Y"); })));
}

TEST(RootHits, RefusesNTuplesWithColumnsOfOtherTypes) {
  const test::TempFolder folder;
  const std::string file = folder.Path("hits.root");
  WriteNTuple<double, int, double>(file, [](int v) { return v; });
  EXPECT_EQ(ErrorOf(file), file + ", hits, column track: is not a whole number");
}
#endif

} // namespace
