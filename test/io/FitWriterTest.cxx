// The files of fits: what is written is read back with ROOT's own readers and, for CSV, by a few
// lines of parsing, and must be the same bits. The names of the columns are fixed, since others
// read them: they are written down here.

#include "io/FileError.h"
#include "io/FitReader.h"
#include "test/support/FitsFiles.h"
#include "test/support/HostileNames.h"
#include "test/support/SameColumn.h"
#include "test/support/TempFolder.h"

#ifdef KELVO_HAS_RNTUPLE
#include <ROOT/RNTupleDescriptor.hxx>
#include <ROOT/RNTupleReader.hxx>
#endif
#include <TFile.h>
#include <TObjString.h>
#include <TTree.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <ROOT/RDataFrame.hxx>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>

namespace {

using kelvo::FitRow;
using kelvo::FitWriterOptions;
using kelvo::PendingFile;
using kelvo::TableFormat;

const std::vector<std::string> kScalars{"track",
                                        "pdg",
                                        "status",
                                        "message",
                                        "best",
                                        "n_x",
                                        "n_y",
                                        "n_outliers",
                                        "chi2_x",
                                        "chi2_y",
                                        "chi2_kink_x",
                                        "chi2_kink_y",
                                        "ndf",
                                        "prob",
                                        "log_likelihood",
                                        "log_likelihood_charge",
                                        "prob_hypothesis",
                                        "x",
                                        "y",
                                        "z",
                                        "ux",
                                        "uy",
                                        "uz",
                                        "T",
                                        "p",
                                        "beta",
                                        "gamma",
                                        "length",
                                        "radlen",
                                        "sig_T",
                                        "sig_p",
                                        "sig_length",
                                        "leaves",
                                        "end_distance",
                                        "end_planes",
                                        "stop_chi2",
                                        "p_min",
                                        "p_scattering",
                                        "p_scattering_low",
                                        "p_scattering_high",
                                        "inv_p_scattering",
                                        "sig_inv_p_scattering",
                                        "prob_scattering"};
const std::vector<std::string> kVectors{"cov",
                                        "hit_view",
                                        "hit_z",
                                        "hit_u",
                                        "hit_sigu",
                                        "fit_u",
                                        "fit_sigu",
                                        "residual",
                                        "pull",
                                        "residual_unbiased",
                                        "sig_residual_unbiased",
                                        "hit_weight",
                                        "plane_s",
                                        "plane_x",
                                        "plane_y",
                                        "plane_z",
                                        "plane_sigalpha",
                                        "kink_x",
                                        "kink_y"};

/// Rows of numbers without a pattern, some of them as of a fit that failed.
class RandomRows {
public:
  std::vector<FitRow> Make(int n) {
    std::vector<FitRow> rows(static_cast<std::size_t>(n));
    for (FitRow& row : rows) {
      kelvo::VisitScalars([&](const char*, auto member) { Set(row.*member); });
      if (row.fBest)
        kelvo::VisitVectors([&](const char*, auto member) {
          (row.*member).resize(fRandom() % 40);
          for (auto& value : row.*member) Set(value);
        });
    }
    return rows;
  }

private:
  void Set(double& value) { value = fRandom() % 9 ? std::ldexp(Real(), Exponent()) : kNaN; }
  void Set(float& value) { value = static_cast<float>(Real()); }
  void Set(int& value) { value = static_cast<int>(fRandom()); }
  void Set(long long& value) { value = static_cast<long long>(fRandom()) << 31; }
  void Set(bool& value) { value = fRandom() % 3 != 0; }
  void Set(std::string& value) {
    const char* const texts[] = {"", "", "plain", "with, comma", "with \"quotes\"", "two\nlines"};
    value = texts[fRandom() % 6];
  }
  double Real() { return std::uniform_real_distribution<double>(-1, 1)(fRandom); }
  int Exponent() { return static_cast<int>(fRandom() % 200) - 100; }

  static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  std::mt19937 fRandom{11};
};

/// Type is the frame's name for a column of this type of member.
template <typename Type, typename T>
void ExpectColumn(ROOT::RDataFrame& table, const char* name, const std::vector<FitRow>& rows,
                  T FitRow::*member) {
  const std::vector<Type> values = *table.Take<Type>(name);
  ASSERT_EQ(values.size(), rows.size()) << name;
  for (std::size_t i = 0; i < rows.size(); i++) {
    const T& value = values[i];
    EXPECT_TRUE(test::SameColumn(value, rows[i].*member)) << name << ", row " << i;
  }
}

void ExpectRows(const std::string& name, const std::vector<FitRow>& rows, bool withVectors) {
  ROOT::RDataFrame table("fits", name);
  const auto compare = [&](const char* column, auto member) {
    using T = std::decay_t<decltype(rows[0].*member)>;
    using Type = std::conditional_t<std::is_same_v<T, long long>, Long64_t, T>;
    ExpectColumn<Type>(table, column, rows, member);
  };
  kelvo::VisitScalars(compare);
  if (withVectors) kelvo::VisitVectors(compare);
}

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> ColumnsOf(const std::string& name) {
  return Sorted(ROOT::RDataFrame("fits", name).GetColumnNames());
}

TEST(FitWriter, WritesTheRowsInTheirOrder) {
  const test::TempFolder folder;
  const auto rows = RandomRows().Make(300);
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    test::WriteRows(folder.Path("fits.root"), rows, options);
    ExpectRows(folder.Path("fits.root"), rows, true);
  }
}

TEST(FitWriter, NamesTheColumnsAsOthersReadThem) {
  const test::TempFolder folder;
  auto all = kScalars;
  all.insert(all.end(), kVectors.begin(), kVectors.end());
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    test::WriteRows(folder.Path("fits.root"), {}, options);
    EXPECT_EQ(ColumnsOf(folder.Path("fits.root")), Sorted(all));
    options.fWithVectors = false;
    test::WriteRows(folder.Path("fits.root"), {}, options);
    EXPECT_EQ(ColumnsOf(folder.Path("fits.root")), Sorted(kScalars));
  }
}

/// The names in the first cells of a table of the document, whose header begins with this word.
std::vector<std::string> DocumentedColumns(const std::string& header) {
  std::ifstream document(KELVO_SOURCE_DIR "/docs/files.md");
  std::string line;
  while (std::getline(document, line) && line != "## Fits out") {
  }
  while (std::getline(document, line) && line.rfind("| " + header + " |", 0) != 0) {
  }
  std::vector<std::string> names;
  while (std::getline(document, line) && line.rfind('|', 0) == 0) {
    std::istringstream cell(line.substr(0, line.find(" | ")));
    std::string text;
    // Names stand between backquotes.
    while (std::getline(cell, text, '`') && std::getline(cell, text, '`')) names.push_back(text);
  }
  return names;
}

TEST(FitWriter, HasTheColumnsOfTheDocument) {
  std::vector<std::string> scalars;
  std::vector<std::string> vectors;
  kelvo::VisitScalars([&](const char* name, auto) { scalars.emplace_back(name); });
  kelvo::VisitVectors([&](const char* name, auto) { vectors.emplace_back(name); });
  EXPECT_EQ(DocumentedColumns("column"), scalars);
  EXPECT_EQ(DocumentedColumns("vector"), vectors);
  std::vector<std::string> places;
  kelvo::VisitPlaces([&](const char* name, auto) { places.emplace_back(name); });
  EXPECT_EQ(DocumentedColumns("place"), places);
  EXPECT_EQ(scalars, kScalars);
  EXPECT_EQ(vectors, kVectors);
}

TEST(FitWriter, WritesTheScalarsAloneWhenAsked) {
  const test::TempFolder folder;
  const auto rows = RandomRows().Make(50);
  FitWriterOptions options;
  options.fWithVectors = false;
  test::WriteRows(folder.Path("fits.root"), rows, options);
  ExpectRows(folder.Path("fits.root"), rows, false);
}

TEST(FitWriter, WritesATableWithoutRows) {
  const test::TempFolder folder;
  FitWriterOptions options;
  options.fFormat = TableFormat::kTTree;
  test::WriteRows(folder.Path("fits.root"), {}, options);
  EXPECT_EQ(*ROOT::RDataFrame("fits", folder.Path("fits.root")).Count(), 0u);
#ifdef KELVO_HAS_RNTUPLE
  options.fFormat = TableFormat::kRNTuple;
  test::WriteRows(folder.Path("fits.root"), {}, options);
  EXPECT_EQ(ROOT::RNTupleReader::Open("fits", folder.Path("fits.root"))->GetNEntries(), 0u);
#endif
}

/// The clusters of a table, which are the unit of work of threads that read it.
std::vector<long long> Clusters(const std::string& name, TableFormat format) {
  std::vector<long long> sizes;
#ifdef KELVO_HAS_RNTUPLE
  if (format == TableFormat::kRNTuple) {
    const auto table = ROOT::RNTupleReader::Open("fits", name);
    for (const auto& cluster : table->GetDescriptor().GetClusterIterable())
      sizes.push_back(static_cast<long long>(cluster.GetNEntries()));
    return sizes;
  }
#endif
  EXPECT_EQ(format, TableFormat::kTTree);
  TFile file(name.c_str());
  auto* tree = file.Get<TTree>("fits");
  auto next = tree->GetClusterIterator(0);
  for (Long64_t begin = next(); begin < tree->GetEntries(); begin = next())
    sizes.push_back(next.GetNextEntry() - begin);
  return sizes;
}

TEST(FitWriter, LeavesThreadsThatReadTheFileSomeClustersToShare) {
  const test::TempFolder folder;
  const auto rows = RandomRows().Make(25'000);
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    test::WriteRows(folder.Path("fits.root"), rows, options);
    const auto clusters = Clusters(folder.Path("fits.root"), format);
    EXPECT_GE(clusters.size(), 4u);
    EXPECT_LE(*std::max_element(clusters.begin(), clusters.end()), 25'000 / 3);
    EXPECT_EQ(std::accumulate(clusters.begin(), clusters.end(), 0LL), 25'000);
  }
}

/// A text beside the table.
std::string TextIn(const std::string& file, TableFormat format, const char* name) {
#ifdef KELVO_HAS_RNTUPLE
  if (format == TableFormat::kRNTuple)
    return ROOT::RNTupleReader::Open("about", file)->GetView<std::string>(name)(0);
#endif
  EXPECT_EQ(format, TableFormat::kTTree);
  TFile in(file.c_str());
  const std::unique_ptr<TObjString> text(in.Get<TObjString>(name));
  return text ? text->GetString().Data() : "none";
}

TEST(FitWriter, KeepsTextsBesideTheTable) {
  const test::TempFolder folder;
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    options.fTexts = {{"detector", "name = \"fine\"\n[world]\n"}, {"options", ""}};
    const auto file = test::WriteRows(folder.Path("fits.root"), RandomRows().Make(3), options);
    EXPECT_EQ(TextIn(file, format, "detector"), "name = \"fine\"\n[world]\n");
    EXPECT_EQ(TextIn(file, format, "options"), "");
  }
}

TEST(FitWriter, WritesUnderTheNameAsItStands) {
  const test::TempFolder folder;
  const auto rows = RandomRows().Make(5);
  for (const std::string& inside : test::HostileFolders(folder))
    for (const std::string& name : test::HostileNames())
      for (const TableFormat format : test::Formats()) {
        FitWriterOptions options;
        options.fFormat = format;
        auto expected = test::Listing(folder.Path(""));
        expected.insert(inside + "/" + name);
        test::WriteRows(inside + "/" + name, rows, options);
        EXPECT_EQ(test::Listing(folder.Path("")), expected) << name;
        const kelvo::FitReader reader(inside + "/" + name);
        EXPECT_EQ(reader.Entries(), 5) << name;
      }
}

TEST(FitWriter, LeavesNothingOfAFileThatIsNotClosed) {
  const test::TempFolder folder;
  const std::string name = folder.Write("fits.root", "earlier");
  for (const TableFormat format : test::Formats()) {
    FitWriterOptions options;
    options.fFormat = format;
    {
      const PendingFile file(name);
      kelvo::FitWriter writer(file, options);
      writer.Write(RandomRows().Make(500));
    }
    EXPECT_EQ(folder.Read("fits.root"), "earlier");
    EXPECT_EQ(folder.Files(), 1);
  }
}

void WriteAsCsv(const std::string& name) {
  PendingFile file(name);
  kelvo::FitCsvWriter writer(file);
  writer.Write(RandomRows().Make(3000));
  writer.Close();
  file.Commit();
}

void WriteAs(TableFormat format, const std::string& name) {
  FitWriterOptions options;
  options.fFormat = format;
  test::WriteRows(name, RandomRows().Make(3000), options);
}

/// A limit on the size of files acts as a full disk or a quota does. The process ends with status 0
/// if it has caught the error.
template <typename Work>
[[noreturn]] void RunWithin(rlim_t bytes, Work work) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, RLIM_INFINITY};
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
  try {
    work();
  } catch (const kelvo::FileError& e) {
    setrlimit(RLIMIT_FSIZE, &none); // what is said goes into a file as well
    std::fprintf(stderr, "said: %s.", e.what());
    std::_Exit(0);
  }
  std::_Exit(1);
}

TEST(FitWriterDeathTest, SaysWhyAFileCannotBeWrittenToItsEnd) {
  const test::TempFolder folder;
  const char* const said = "^said: .*fits.root: cannot be written: File too large.$";
  for (const TableFormat format : test::Formats()) {
    const std::string name = folder.Path("fits.root");
    WriteAs(format, name);
    const std::string before = folder.Read("fits.root");
    for (const std::size_t bytes : {std::size_t(50), std::size_t(200'000), before.size() - 1}) {
      EXPECT_EXIT(RunWithin(bytes, [&] { WriteAs(format, name); }), testing::ExitedWithCode(0),
                  said);
      EXPECT_EQ(folder.Read("fits.root"), before);
      EXPECT_EQ(folder.Files(), 1);
    }
  }
}

TEST(FitCsvWriterDeathTest, SaysWhyAFileCannotBeWrittenToItsEnd) {
  const test::TempFolder folder;
  const std::string name = folder.Write("fits.csv", "earlier");
  EXPECT_EXIT(RunWithin(200'000, [&] { WriteAsCsv(name); }), testing::ExitedWithCode(0),
              "^said: .*fits.csv: cannot be written: File too large.$");
  EXPECT_EQ(folder.Read("fits.csv"), "earlier");
  EXPECT_EQ(folder.Files(), 1);
}

TEST(FitCsvWriter, WritesUnderTheNameAsItStands) {
  const test::TempFolder folder;
  for (const std::string& inside : test::HostileFolders(folder))
    for (const std::string& name : test::HostileNames()) {
      auto expected = test::Listing(folder.Path(""));
      expected.insert(inside + "/" + name);
      WriteAsCsv(inside + "/" + name);
      EXPECT_EQ(test::Listing(folder.Path("")), expected) << name;
    }
}

/// Splits CSV with quoted fields, as RFC 4180 has it.
std::vector<std::vector<std::string>> ParseCsv(const std::string& text) {
  std::vector<std::vector<std::string>> lines(1, {""});
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); i++) {
    std::string& field = lines.back().back();
    if (quoted && text[i] == '"' && i + 1 < text.size() && text[i + 1] == '"')
      field += text[i++];
    else if (text[i] == '"')
      quoted = !quoted;
    else if (!quoted && text[i] == ',')
      lines.back().emplace_back();
    else if (!quoted && text[i] == '\n')
      lines.push_back({""});
    else
      field += text[i];
  }
  lines.pop_back();
  return lines;
}

struct FieldCheck {
  const std::vector<std::string>& fFields;
  std::size_t fAt = 0;

  void operator()(const char* name, const std::string& expected) {
    EXPECT_EQ(fFields.at(fAt++), expected) << name;
  }
  void operator()(const char* name, bool expected) {
    EXPECT_EQ(fFields.at(fAt++), expected ? "1" : "0") << name;
  }
  void operator()(const char* name, double expected) {
    const std::string& field = fFields.at(fAt++);
    double value = 0;
    const char* end = field.data() + field.size();
    EXPECT_EQ(std::from_chars(field.data(), end, value).ptr, end) << name << ": " << field;
    EXPECT_TRUE(test::SameColumn(value, expected) || (std::isnan(value) && std::isnan(expected)))
        << name;
  }
  template <typename T>
  void operator()(const char* name, T expected) {
    EXPECT_EQ(fFields.at(fAt++), std::to_string(expected)) << name;
  }
};

TEST(FitCsvWriter, WritesTheSameNumbersUnderTheSameNames) {
  const test::TempFolder folder;
  const auto rows = RandomRows().Make(200);
  {
    PendingFile file(folder.Path("fits.csv"));
    kelvo::FitCsvWriter writer(file);
    writer.Write({rows.begin(), rows.begin() + 120});
    writer.Write({});
    writer.Write({rows.begin() + 120, rows.end()});
    writer.Close();
    file.Commit();
  }
  const auto lines = ParseCsv(folder.Read("fits.csv"));
  ASSERT_EQ(lines.size(), rows.size() + 1);
  EXPECT_EQ(lines[0], kScalars);
  for (std::size_t i = 0; i < rows.size(); i++) {
    ASSERT_EQ(lines[i + 1].size(), kScalars.size());
    FieldCheck check{lines[i + 1]};
    kelvo::VisitScalars([&](const char* name, auto member) { check(name, rows[i].*member); });
  }
}

TEST(PendingFile, GetsItsNameOnlyWhenComplete) {
  const test::TempFolder folder;
  folder.Write("result", "old");
  {
    const PendingFile file(folder.Path("result"));
    EXPECT_NE(file.Partial(), file.Name());
    std::ofstream(file.Partial()) << "half";
    EXPECT_EQ(folder.Read("result"), "old");
  }
  EXPECT_EQ(folder.Read("result"), "old");
  EXPECT_EQ(folder.Files(), 1);
  {
    PendingFile file(folder.Path("result"));
    std::ofstream(file.Partial()) << "new";
    file.Commit();
  }
  EXPECT_EQ(folder.Read("result"), "new");
  EXPECT_EQ(folder.Files(), 1);
}

std::string PendingError(const std::string& name) {
  try {
    const PendingFile file(name);
  } catch (const kelvo::FileError& e) {
    return e.what();
  }
  return "no error";
}

TEST(PendingFile, ReplacesTheFileThatALinkPointsTo) {
  namespace fs = std::filesystem;
  const test::TempFolder folder;
  fs::create_directory(folder.Path("far"));
  fs::create_symlink("far/result", folder.Path("link"));
  for (const std::string text : {"first", "second"}) {
    PendingFile file(folder.Path("link"));
    std::ofstream(file.Partial()) << text;
    file.Commit();
    EXPECT_TRUE(fs::is_symlink(folder.Path("link")));
    EXPECT_EQ(folder.Read("far/result"), text);
  }
}

TEST(PendingFile, KeepsTheModeOfTheEarlierFile) {
  namespace fs = std::filesystem;
  const test::TempFolder folder;
  const std::string name = folder.Write("result", "old");
  const auto mode = fs::perms::owner_all | fs::perms::group_read;
  fs::permissions(name, mode);
  {
    PendingFile file(name);
    file.Commit();
  }
  EXPECT_EQ(fs::status(name).permissions(), mode);
}

TEST(PendingFile, RemovesWhatAKilledProcessLeftAndNothingElse) {
  const test::TempFolder folder;
  const std::string name = folder.Path("result");
  const pid_t child = fork();
  if (child == 0) {
    const PendingFile file(name);
    _exit(0); // without a chance to clear up
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_EQ(folder.Files(), 1);
  folder.Write("result.mine.partial", "");
  folder.Write("other.01234567.partial", "");
  {
    const PendingFile first(name);
    EXPECT_EQ(folder.Files(), 3);
    const PendingFile second(name); // of a living owner
    EXPECT_EQ(folder.Files(), 4);
  }
  EXPECT_EQ(folder.Files(), 2);
}

TEST(PendingFile, TellsOfAPartialFileThatWasRemoved) {
  const test::TempFolder folder;
  PendingFile file(folder.Path("result"));
  std::filesystem::remove(file.Partial());
  EXPECT_THROW(file.Commit(), kelvo::FileError);
  EXPECT_EQ(folder.Files(), 0);
}

TEST(PendingFile, SaysWhyAFileCannotBeMade) {
  const test::TempFolder folder;
  EXPECT_EQ(PendingError("/dev/null"),
            "/dev/null: cannot be written: something else than a file has this name");
  EXPECT_EQ(PendingError(folder.Path("")),
            folder.Path("") + ": cannot be written: a folder has this name");
  const std::string lost = folder.Path("missing/result");
  EXPECT_EQ(PendingError(lost), lost + ": cannot be written: No such file or directory");
}

} // namespace
