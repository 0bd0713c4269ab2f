// The program with names that a file system takes as they are and ROOT does not: each command makes
// the files that it was asked for and leaves all others as they were.

#include "test/support/HostileNames.h"
#include "test/support/Program.h"

#include <gtest/gtest.h>

#include <map>

namespace {

const std::string kFine = KELVO_SOURCE_DIR "/detectors/fine.toml";

/// The contents of all files in a folder but the program's words.
std::map<std::string, std::string> Contents(const test::TempFolder& folder) {
  std::map<std::string, std::string> contents;
  for (const auto& entry : std::filesystem::directory_iterator(folder.Path(""))) {
    const std::string name = entry.path().filename().string();
    if (name != ".out" && name != ".err") contents[name] = folder.Read(name);
  }
  return contents;
}

std::string ShellWord(const std::string& text) {
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? "'\\''" : std::string(1, c);
  return word + '\'';
}

/// Names with one beginning and many ends.
class HostileNames : public testing::TestWithParam<std::string> {
protected:
  void SetUp() override {
    std::filesystem::copy_file(kFine, fFolder.Path(Name(".toml")));
    // What is found where a name is taken apart.
    for (const char* name :
         {"hits", "hits.root", "a", "b.root", "lead.root", "x.root", "HOME.root"})
      fFolder.Write(name, "kept");
  }

  std::string Name(const std::string& end) const { return GetParam() + end; }
  std::string Word(const std::string& end) const { return ShellWord(Name(end)); }

  /// Runs a command that makes files of these ends and no others.
  void Expect(const std::string& arguments, const std::vector<std::string>& ends) {
    const auto before = Contents(fFolder);
    const test::Outcome run = test::RunIn(fFolder, KELVO_COMMAND, arguments);
    EXPECT_EQ(run.fStatus, 0) << arguments;
    EXPECT_EQ(run.fErr, "") << arguments;
    auto after = Contents(fFolder);
    for (const std::string& end : ends) {
      EXPECT_GT(after[Name(end)].size(), 200u) << arguments << ": " << end;
      after.erase(Name(end));
    }
    for (const auto& [name, content] : before)
      EXPECT_TRUE(after[name] == content) << arguments << ": " << name;
    EXPECT_EQ(after.size(), before.size()) << arguments;
  }

  void Simulate(const std::string& end, const std::vector<std::string>& ends) {
    Expect("simulate -d " + Word(".toml") + " -o " + Word(end) +
               " --particle mu --kinetic-energy 0.5..1 --tracks 3 --seed 1",
           ends);
  }

  test::TempFolder fFolder;
};

TEST_P(HostileNames, AreTakenAsTheyStandForHitsAndFits) {
  Simulate(".csv.gz", {".csv.gz", ".truth.csv.gz"});
  Simulate(".root", {".root"});
  Expect("fit " + Word(".csv.gz") + " -d " + Word(".toml") + " -o " + Word(".fits.root") +
             " --csv " + Word(".csv") + " --report " + Word(".html"),
         {".fits.root", ".csv", ".html"});
  Expect(
      "fit " + Word(".root") + " -d " + Word(".toml") + " --format ttree -o " + Word(".other.root"),
      {".other.root"});
  Expect("report " + Word(".other.root") + " -o " + Word(".htm"), {".htm"});
  Expect("display " + Word(".fits.root") + " --track 1 -o " + Word(".svg"), {".svg"});
  Expect("display " + Word(".other.root") + " --track 1 -o " + Word(".other.svg"), {".other.svg"});
}

TEST_P(HostileNames, AreTakenAsTheyStandForPictures) {
  for (const char* end : {".svg", ".png", ".pdf"})
    Expect("detector " + Word(".toml") + " -o " + Word(end), {end});
  Expect("dedx Steel -o " + Word(".dedx.svg"), {".dedx.svg"});
  Expect("dedx Steel -o " + Word(".dedx.csv"), {".dedx.csv"});
}

std::vector<std::string> Stems() {
  std::vector<std::string> stems{"quote'\"\\", "line\nend"};
  for (const std::string& name : test::HostileNames())
    stems.push_back(name.substr(0, name.rfind(".root")));
  return stems;
}

TEST(NamesOfHits, AreNoLists) {
  const test::TempFolder folder;
  for (const std::string name : {"[a,b]", "{}", "[]", "a,b", "@hits", "%", "--hits"}) {
    folder.Write(name, "track,view,u,z,sigu\n1,X,0,3,0.3\n");
    const test::Outcome run = test::RunIn(
        folder, KELVO_COMMAND, "fit -d " + kFine + " -o fits.root -- " + ShellWord(name));
    EXPECT_EQ(run.fStatus, 1) << name; // the track has too few hits
    EXPECT_NE(run.fErr.find(name + ", line 2: track 1 is not fitted: "), std::string::npos)
        << run.fErr;
  }
}

TEST(NamesOfHits, MayBeTooLongForAnyFile) {
  const test::TempFolder folder;
  const std::string name = '[' + std::string(5000, 'x') + ']';
  const test::Outcome run =
      test::RunIn(folder, KELVO_COMMAND, "fit -d " + kFine + " -o fits.root " + name);
  EXPECT_EQ(run.fStatus, 2);
  EXPECT_NE(run.fErr.find(": cannot be opened: File name too long\n"), std::string::npos)
      << run.fErr;
}

INSTANTIATE_TEST_SUITE_P(, HostileNames, testing::ValuesIn(Stems()));

} // namespace
