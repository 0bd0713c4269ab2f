// Files of ROOT under any name that the file system takes, and on a disk that is full: what lies in
// the folder is listed before and after.

#include "io/RootFile.h"

#include "io/FileError.h"
#include "test/support/HostileNames.h"

#ifdef KELVO_HAS_RNTUPLE
#include <ROOT/RNTuple.hxx>
#include <ROOT/RNTupleModel.hxx>
#include <ROOT/RNTupleReader.hxx>
#include <ROOT/RNTupleWriter.hxx>
#endif
#include <TDirectory.h>
#include <TObjString.h>
#include <TTree.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <random>

namespace {

using kelvo::PendingFile;
using kelvo::RootOutput;

constexpr int kEntries = 1000;

void FillTree(RootOutput& output) {
  const TDirectory::TContext into(&output.File());
  auto* tree = new TTree("numbers", ""); // the file's
  int number = 0;
  tree->Branch("number", &number);
  for (number = 0; number < kEntries; number++) tree->Fill();
  tree->Write();
}

void Write(const std::string& name) {
  PendingFile file(name);
  RootOutput output(file);
  FillTree(output);
  output.Close({{"text", "beside"}});
  file.Commit();
}

void ExpectContent(const std::string& name) {
  const auto file = kelvo::OpenRootFile(name);
  auto* tree = file->Get<TTree>("numbers");
  ASSERT_TRUE(tree) << name;
  EXPECT_EQ(tree->GetEntries(), kEntries) << name;
  EXPECT_EQ(tree->GetMaximum("number"), kEntries - 1) << name;
  const std::unique_ptr<TObjString> text(file->Get<TObjString>("text"));
  ASSERT_TRUE(text) << name;
  EXPECT_EQ(text->GetString(), "beside") << name;
}

TEST(RootFile, IsWrittenAndReadUnderTheNameAsItStands) {
  const test::TempFolder folder;
  for (const std::string& inside : test::HostileFolders(folder))
    for (const std::string& name : test::HostileNames()) {
      std::set<std::string> expected = test::Listing(folder.Path(""));
      expected.insert(inside + "/" + name);
      Write(inside + "/" + name);
      EXPECT_EQ(test::Listing(folder.Path("")), expected) << name;
      ExpectContent(inside + "/" + name);
    }
}

TEST(RootFile, IsReadUnderANameRelativeToTheCurrentFolder) {
  const test::TempFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path(""));
  for (const std::string& name : test::HostileNames()) {
    Write(name);
    EXPECT_TRUE(std::filesystem::exists(name)) << name;
    ExpectContent(name);
  }
  EXPECT_EQ(folder.Files(), static_cast<long>(test::HostileNames().size()));
  std::filesystem::current_path(before);
}

#ifdef KELVO_HAS_RNTUPLE
TEST(RootFile, HoldsAnRNTupleUnderAnyName) {
  const test::TempFolder folder;
  for (const std::string& name : test::HostileNames()) {
    PendingFile file(folder.Path(name));
    RootOutput output(file);
    {
      auto model = ROOT::RNTupleModel::Create();
      const auto number = model->MakeField<int>("number");
      const auto table = ROOT::RNTupleWriter::Append(std::move(model), "numbers", output.File());
      for (*number = 0; *number < kEntries; ++*number) table->Fill();
    }
    output.Close({});
    file.Commit();
    const auto input = kelvo::OpenRootFile(folder.Path(name));
    const std::unique_ptr<ROOT::RNTuple> anchor(input->Get<ROOT::RNTuple>("numbers"));
    const auto table = ROOT::RNTupleReader::Open(*anchor);
    EXPECT_EQ(table->GetNEntries(), kEntries) << name;
    EXPECT_EQ(table->GetView<int>("number")(kEntries - 1), kEntries - 1) << name;
  }
}
#endif

std::string ErrorOf(const std::string& name) {
  try {
    kelvo::OpenRootFile(name);
  } catch (const kelvo::FileError& e) {
    return e.what();
  }
  return "no error";
}

TEST(RootFile, SaysWhyItCannotBeRead) {
  const test::TempFolder folder;
  const std::string missing = folder.Path("missing.root");
  EXPECT_EQ(ErrorOf(missing), missing + ": cannot be opened: No such file or directory");
  const std::string text = folder.Write("text.root", "track,view\n");
  testing::internal::CaptureStderr(); // ROOT tells, too
  EXPECT_EQ(ErrorOf(text), text + ": is damaged and cannot be read");
  testing::internal::GetCapturedStderr();
}

void LimitFiles(rlim_t bytes) {
  const rlimit limit{bytes, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
}

/// A limit on the size of files acts as a full disk does.
[[noreturn]] void WriteWithin(rlim_t bytes, const std::string& name) {
  std::signal(SIGXFSZ, SIG_IGN);
  LimitFiles(bytes);
  try {
    Write(name);
  } catch (const kelvo::FileError& e) {
    LimitFiles(RLIM_INFINITY); // what is said goes into a file as well
    std::fprintf(stderr, "said: %s.", e.what());
    std::_Exit(0);
  }
  std::_Exit(1);
}

TEST(RootFileDeathTest, LeavesTheEarlierFileWhereTheDiskTakesNoMore) {
  const test::TempFolder folder;
  const std::string name = folder.Path("numbers.root");
  Write(name);
  const std::string before = folder.Read("numbers.root");
  // From the first header to the last word that is written.
  for (const std::size_t bytes : {std::size_t(10), std::size_t(300), before.size() / 2,
                                  before.size() - 100, before.size() - 1}) {
    EXPECT_EXIT(WriteWithin(bytes, name), testing::ExitedWithCode(0),
                "^said: .*numbers.root: cannot be written: File too large.$")
        << bytes;
    EXPECT_EQ(folder.Read("numbers.root"), before);
    EXPECT_EQ(folder.Files(), 1);
  }
}

} // namespace
