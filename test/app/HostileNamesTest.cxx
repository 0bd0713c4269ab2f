// Names that a file system takes as they are and ROOT does not: files are made under them, and all
// others stay as they were. Each name goes to the functions behind the commands; the program itself
// is run with two that have in them what shells, parsers and ROOT take apart.

#include "draw/DetectorDrawing.h"
#include "draw/Report.h"
#include "draw/TrackDisplay.h"
#include "run/FitFile.h"
#include "run/SimulationFile.h"
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

/// Names with one beginning and many ends, in a current folder of their own.
class HostileNames : public testing::TestWithParam<std::string> {
protected:
  void SetUp() override {
    std::filesystem::current_path(fFolder.Path(""));
    std::filesystem::copy_file(kFine, Name(".toml"));
    // What is found where a name is taken apart.
    for (const char* name :
         {"hits", "hits.root", "a", "b.root", "lead.root", "x.root", "HOME.root"})
      fFolder.Write(name, "kept");
  }
  void TearDown() override { std::filesystem::current_path(fBefore); }

  std::string Name(const std::string& end) const { return GetParam() + end; }
  std::string Word(const std::string& end) const { return ShellWord(Name(end)); }

  /// Does work that makes files of these ends and no others.
  template <typename Work>
  void Expect(const std::vector<std::string>& ends, Work work) {
    const auto before = Contents(fFolder);
    testing::internal::CaptureStderr(); // where ROOT complains
    work();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << Name(ends[0]);
    auto after = Contents(fFolder);
    for (const std::string& end : ends) {
      EXPECT_GT(after[Name(end)].size(), 200u) << Name(end);
      after.erase(Name(end));
    }
    for (const auto& [name, content] : before)
      EXPECT_TRUE(after[name] == content) << Name(ends[0]) << ": " << name;
    EXPECT_EQ(after.size(), before.size()) << Name(ends[0]);
  }

  /// Runs the program for files of these ends.
  void ExpectOfCommand(const std::string& arguments, const std::vector<std::string>& ends) {
    Expect(ends, [&] {
      const test::Outcome run = test::RunIn(fFolder, KELVO_COMMAND, arguments);
      EXPECT_EQ(run.fStatus, 0) << arguments;
      EXPECT_EQ(run.fErr, "") << arguments;
    });
  }

  geo::Detector Detector() const { return geo::Detector::FromFile(Name(".toml")); }

  void Simulate(const std::string& end, const std::vector<std::string>& ends) {
    kelvo::SimulationFileOptions options;
    options.fOutput = Name(end);
    options.fTracks = 3;
    Expect(ends, [&] { kelvo::SimulateFile(*Detector().Planes(), options); });
  }

  void Fit(const std::string& hits, const std::string& fits, const std::string& csv,
           kelvo::TableFormat format) {
    kelvo::FitFileOptions options;
    options.fInputs = {Name(hits)};
    options.fOutput = Name(fits);
    options.fCsv = Name(csv);
    options.fFormat = format;
    Expect({fits, csv}, [&] { kelvo::FitFile(Detector(), options); });
  }

  void Report(const std::string& fits, const std::string& end) {
    Expect({end}, [&] {
      kelvo::FitReader reader(Name(fits));
      kelvo::WriteReport(reader, Name(end));
    });
  }

  void Display(const std::string& fits, const std::string& end) {
    Expect({end}, [&] {
      kelvo::FitReader reader(Name(fits));
      const auto planes = geo::Detector::PlanesOfText(reader.Text("detector"), "the text");
      kelvo::DrawTrack(planes.get(), reader.Read(0, kelvo::FitPart::kAll)).Save(Name(end));
    });
  }

  test::TempFolder fFolder;

private:
  std::filesystem::path fBefore = std::filesystem::current_path();
};

TEST_P(HostileNames, AreTakenAsTheyStandForHitsAndFits) {
  Simulate(".csv.gz", {".csv.gz", ".truth.csv.gz"});
  Simulate(".root", {".root"});
  Fit(".csv.gz", ".fits.root", ".csv", kelvo::DefaultTableFormat());
  Fit(".root", ".other.root", ".other.csv", kelvo::TableFormat::kTTree);
  Report(".fits.root", ".html");
  Report(".other.root", ".htm");
  Display(".fits.root", ".svg");
  Display(".other.root", ".other.svg");
}

TEST_P(HostileNames, AreTakenAsTheyStandForPictures) {
  for (const char* end : {".png", ".pdf"})
    Expect({end}, [&] { kelvo::DrawDetector(*Detector().Planes()).Save(Name(end)); });
}

std::vector<std::string> Stems() {
  std::vector<std::string> stems{"quote'\"\\", "line\nend"};
  for (const std::string& name : test::HostileNames())
    stems.push_back(name.substr(0, name.rfind(".root")));
  return stems;
}

INSTANTIATE_TEST_SUITE_P(, HostileNames, testing::ValuesIn(Stems()));

class HostileNamesOfCommands : public HostileNames {};

TEST_P(HostileNamesOfCommands, AreTakenAsTheyStand) {
  const std::string detector = " -d " + Word(".toml");
  const std::string simulate =
      "simulate --particle mu --kinetic-energy 0.5..1 --tracks 3 --seed 1" + detector;
  ExpectOfCommand(simulate + " -o " + Word(".csv.gz"), {".csv.gz", ".truth.csv.gz"});
  ExpectOfCommand(simulate + " -o " + Word(".root"), {".root"});
  ExpectOfCommand("fit " + Word(".csv.gz") + detector + " -o " + Word(".fits.root") + " --csv " +
                      Word(".csv") + " --report " + Word(".html"),
                  {".fits.root", ".csv", ".html"});
  ExpectOfCommand("fit " + Word(".root") + detector + " --format ttree -o " + Word(".other.root"),
                  {".other.root"});
  ExpectOfCommand("report " + Word(".other.root") + " -o " + Word(".htm"), {".htm"});
  ExpectOfCommand("display " + Word(".fits.root") + " --track 1 -o " + Word(".svg"), {".svg"});
  ExpectOfCommand("detector " + Word(".toml") + " -o " + Word(".png"), {".png"});
  ExpectOfCommand("dedx Steel -o " + Word(".dedx.svg"), {".dedx.svg"});
  ExpectOfCommand("dedx Steel -o " + Word(".dedx.csv"), {".dedx.csv"});
}

INSTANTIATE_TEST_SUITE_P(, HostileNamesOfCommands,
                         testing::Values(" a#?b|$HOME`x`*[1]", "~file:x'\"\\\n%;{}"));

TEST(NamesOfHits, AreNoLists) {
  const test::TempFolder folder;
  const std::vector<std::string> names{"[a,b]", "{}", "[]", "a,b", "@hits", "%", "--hits"};
  for (const std::string& name : names) folder.Write(name, "track,view,u,z,sigu\n1,X,0,3,0.3\n");
  const auto expectRead = [&](const std::vector<std::string>& hits) {
    std::string words;
    for (const std::string& name : hits) words += ' ' + ShellWord(name);
    const test::Outcome run =
        test::RunIn(folder, KELVO_COMMAND, "fit -d " + kFine + " -o fits.root --" + words);
    EXPECT_EQ(run.fStatus, 1) << words; // the tracks have too few hits
    for (const std::string& name : hits)
      EXPECT_NE(run.fErr.find(name + ", line 2: track 1 is not fitted: "), std::string::npos)
          << run.fErr;
  };
  // The first three alone are what a parser might take for a list.
  for (const std::string& name : {names[0], names[1], names[2]}) expectRead({name});
  expectRead(names);
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

} // namespace
