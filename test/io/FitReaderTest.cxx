// Files of fits read back: the same rows, bit by bit, from both kinds of table; and what is told of
// files that are something else.

#include "io/FileError.h"
#include "io/FitReader.h"
#include "test/support/FitsFiles.h"
#include "test/support/TempFolder.h"

#ifdef KELVO_HAS_RNTUPLE
#include <ROOT/RNTupleModel.hxx>
#include <ROOT/RNTupleWriter.hxx>
#endif
#include <TFile.h>
#include <TTree.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

using kelvo::FitPart;
using kelvo::FitReader;
using kelvo::FitRow;
using kelvo::FitWriterOptions;
using kelvo::TableFormat;

/// Rows as fits make them, with numbers that mean nothing; every fifth is of a failed fit.
std::vector<FitRow> SomeRows(std::size_t n) {
  std::mt19937 random(5);
  const auto number = [&random] { return std::uniform_real_distribution<double>(-1, 1)(random); };
  std::vector<FitRow> rows(n);
  for (std::size_t i = 0; i < n; i++) {
    FitRow& row = rows[i];
    kelvo::VisitScalars([&](const char*, auto member) {
      using T = std::decay_t<decltype(row.*member)>;
      if constexpr (std::is_same_v<T, std::string>)
        row.*member = random() % 2 ? "" : "a message, \"quoted\"";
      else if constexpr (std::is_same_v<T, double>)
        row.*member = number();
      else
        row.*member = static_cast<T>(random() % 2000);
    });
    row.fStatus = i % 5 == 4;
    if (row.fStatus != 0) continue;
    const std::size_t hits = 4 + random() % 60;
    const std::size_t planes = random() % 30;
    kelvo::VisitVectors([&](const char* name, auto member) {
      const std::string column = name;
      const bool perPlane = column.rfind("plane", 0) == 0 || column.rfind("kink", 0) == 0;
      (row.*member).resize(column == "cov" ? 10 : perPlane ? planes : hits);
      for (auto& value : row.*member)
        value = static_cast<std::decay_t<decltype(value)>>(
            column == "hit_view" ? static_cast<double>(random() % 2) : number());
    });
  }
  return rows;
}

/// The members' bytes; a text's own.
template <typename T>
void Append(std::string& bytes, const T& value) {
  if constexpr (std::is_same_v<T, std::string>)
    bytes += value;
  else
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}
template <typename T>
void Append(std::string& bytes, const ROOT::RVec<T>& values) {
  Append(bytes, values.size());
  for (const T& value : values) Append(bytes, value);
}

std::string Bytes(const FitRow& row, bool withVectors) {
  std::string bytes;
  const auto add = [&](const char*, auto member) { Append(bytes, row.*member); };
  kelvo::VisitScalars(add);
  if (withVectors) kelvo::VisitVectors(add);
  return bytes;
}

std::string ErrorOf(const std::string& file) {
  try {
    FitReader reader(file);
    for (long long i = 0; i < reader.Entries(); i++) reader.Read(i, FitPart::kAll);
  } catch (const kelvo::FileError& e) {
    return e.what();
  }
  return "no error";
}

TEST(FitReader, GivesBackTheSameRowsBitByBit) {
  const test::TempFolder folder;
  const std::vector<FitRow> rows = SomeRows(300);
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    FitReader reader(test::WriteRows(folder.Path("fits.root"), rows, options));
    ASSERT_EQ(reader.Entries(), 300);
    EXPECT_TRUE(reader.HasVectors());
    for (const std::size_t i : {0u, 299u, 4u, 5u, 5u, 123u})
      EXPECT_EQ(Bytes(reader.Read(static_cast<long long>(i), FitPart::kAll), true),
                Bytes(rows[i], true))
          << i;
  }
}

TEST(FitReader, ReadsNoMoreThanIsWanted) {
  const test::TempFolder folder;
  const std::vector<FitRow> rows = SomeRows(3);
  FitReader reader(test::WriteRows(folder.Path("fits.root"), rows));
  const FitRow names = reader.Read(1, FitPart::kNames);
  EXPECT_EQ(names.fTrack, rows[1].fTrack);
  EXPECT_EQ(names.fPDG, rows[1].fPDG);
  EXPECT_EQ(names.fBest, rows[1].fBest);
  EXPECT_EQ(names.fP, 0);
  const FitRow scalars = reader.Read(1, FitPart::kScalars);
  EXPECT_EQ(Bytes(scalars, false), Bytes(rows[1], false));
  EXPECT_TRUE(scalars.fHitZ.empty());
}

TEST(FitReader, ReadsFilesWithoutVectors) {
  const test::TempFolder folder;
  const std::vector<FitRow> rows = SomeRows(20);
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    options.fWithVectors = false;
    FitReader reader(test::WriteRows(folder.Path("fits.root"), rows, options));
    EXPECT_FALSE(reader.HasVectors());
    EXPECT_EQ(Bytes(reader.Read(7, FitPart::kAll), false), Bytes(rows[7], false));
  }
}

TEST(FitReader, GivesTheTextsBesideTheTable) {
  const test::TempFolder folder;
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    options.fTexts = {{"detector", "name = \"x\"\n"}, {"command", "kelvo fit"}};
    const FitReader reader(test::WriteRows(folder.Path("fits.root"), SomeRows(2), options));
    EXPECT_EQ(reader.Text("detector"), "name = \"x\"\n");
    EXPECT_EQ(reader.Text("command"), "kelvo fit");
    EXPECT_EQ(reader.Text("options"), "");
  }
}

TEST(FitReader, SaysWhatIsNoFileOfFits) {
  const test::TempFolder folder;
  const std::string expected = "; a file of fits is expected, as 'kelvo fit' writes it";
  const std::string missing = folder.Path("missing.root");
  EXPECT_EQ(ErrorOf(missing), missing + ": cannot be opened: No such file or directory");
  const std::string text = folder.Write("text.root", "track,view\n");
  EXPECT_EQ(ErrorOf(text), text + ": is not a ROOT file" + expected);
  EXPECT_EQ(ErrorOf(folder.Path("")), folder.Path("") + ": is a folder" + expected);
  const std::string other = folder.Path("other.root");
  TFile(other.c_str(), "RECREATE").Close();
  EXPECT_EQ(ErrorOf(other), other + ": has no table \"fits\"" + expected);
}

TEST(FitReader, NamesAColumnThatIsMissing) {
  const test::TempFolder folder;
  const std::string name = folder.Path("fits.root");
  {
    TFile file(name.c_str(), "RECREATE");
    long long track = 3;
    auto* tree = new TTree("fits", ""); // the file's
    tree->Branch("track", &track);
    tree->Fill();
    tree->Write();
  }
  EXPECT_EQ(
      ErrorOf(name),
      name + ", fits: has no column pdg, as a file of an older kelvo may; fit the hits again");
}

TEST(FitReader, RefusesVectorsThatDoNotBelongTogether) {
  const test::TempFolder folder;
  const std::string name = folder.Path("fits.root");
  const auto errorWith = [&](const auto& damage) {
    std::vector<FitRow> rows = SomeRows(3);
    damage(rows[1]);
    return ErrorOf(test::WriteRows(name, rows));
  };
  const std::string expected =
      name + ", fits, entry 1: the vectors do not belong together; is the file damaged?";
  EXPECT_EQ(errorWith([](FitRow&) {}), "no error");
  EXPECT_EQ(errorWith([](FitRow& row) { row.fPull.resize(1); }), expected);
  EXPECT_EQ(errorWith([](FitRow& row) { row.fHitView[0] = 2; }), expected);
  EXPECT_EQ(errorWith([](FitRow& row) { row.fKinkY.resize(99); }), expected);
  EXPECT_EQ(errorWith([](FitRow& row) {
              kelvo::VisitVectors([&row](const char*, auto member) { (row.*member).clear(); });
            }),
            expected);
}

// What is left of a file that was cut short.
TEST(FitReader, TellsOfADamagedFile) {
  const test::TempFolder folder;
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    test::WriteRows(folder.Path("fits.root"), SomeRows(2000), options);
    const std::string content = folder.Read("fits.root");
    for (const std::size_t bytes : {std::size_t(50), content.size() / 2, content.size() - 200}) {
      const std::string cut = folder.Write("cut.root", content.substr(0, bytes));
      EXPECT_NE(ErrorOf(cut), "no error");
      EXPECT_EQ(ErrorOf(cut).rfind(cut, 0), 0u);
    }
  }
}

#ifdef KELVO_HAS_RNTUPLE
/// The bytes that the process has read from files up to here.
long long BytesRead() {
  std::ifstream counts("/proc/self/io");
  std::string name;
  long long bytes = -1;
  counts >> name >> bytes; // "rchar: N"
  return bytes;
}

TEST(FitReader, LooksForAnEntryWithoutReadingTheWholeRNTuple) {
  const test::TempFolder folder;
  FitWriterOptions options;
  options.fFormat = TableFormat::kRNTuple;
  const std::string name = test::WriteRows(folder.Path("fits.root"), SomeRows(2000), options);
  const long long before = BytesRead();
  FitReader reader(name);
  for (long long i = 0; i < reader.Entries(); i++) reader.Read(i, FitPart::kNames);
  EXPECT_LT(BytesRead() - before, static_cast<long long>(std::filesystem::file_size(name)) / 20);
}

TEST(FitReader, TellsOfAnRNTupleThatIsNoTableOfFits) {
  const test::TempFolder folder;
  const std::string name = folder.Path("fits.root");
  const auto write = [&name](auto value) {
    auto model = ROOT::RNTupleModel::Create();
    model->MakeField<decltype(value)>("track");
    ROOT::RNTupleWriter::Recreate(std::move(model), "fits", name);
  };
  write(0LL);
  EXPECT_EQ(
      ErrorOf(name),
      name + ", fits: has no column pdg, as a file of an older kelvo may; fit the hits again");
  write(std::string());
  EXPECT_EQ(ErrorOf(name), name + ", fits: is damaged, or not of 'kelvo fit'");
}
#endif

} // namespace
