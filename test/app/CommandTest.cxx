// The program as a user runs it: what it prints, what it leaves, how it ends.

#include "io/FitReader.h"
#include "io/FitWriter.h"
#include "test/support/Program.h"
#include "test/support/TempFolder.h"

#include <TFile.h>
#include <TKey.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>

namespace {

const std::string kFine = KELVO_SOURCE_DIR "/detectors/fine.toml";
const std::string kTelescope = KELVO_SOURCE_DIR "/detectors/telescope.toml";
const std::string kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";

using test::Outcome;

class Command : public testing::Test {
protected:
  /// Runs the program in the temporary folder.
  Outcome Run(const std::string& arguments, const std::string& before = "") {
    return test::RunIn(fFolder, KELVO_COMMAND, arguments, before);
  }

  Outcome Fit(const std::string& arguments, const std::string& before = "") {
    return Run("fit --detector " + kFine + " -o fits.root " + arguments, before);
  }

  bool Exists(const std::string& name) const { return std::filesystem::exists(fFolder.Path(name)); }

  /// What is there besides the two files with the program's words.
  long Results() const { return fFolder.Files() - Exists(".out") - Exists(".err"); }

  test::TempFolder fFolder;
};

/// The telescope, in a gas that nobody knows.
std::string Mist() {
  const std::string file = KELVO_SOURCE_DIR "/detectors/telescope.toml";
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  return std::regex_replace(text.str(), std::regex("\"Air\""), "\"Mist\"");
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(Command, FitsAFileAndSumsItUp) {
  const Outcome run = Fit(kMuons + " --limit 200 --csv fits.csv");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_EQ(run.fErr, "");
  EXPECT_TRUE(Contains(run.fOut, "  tracks read                                 200\n"))
      << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, "  tracks fitted                               200\n"))
      << run.fOut;
  EXPECT_TRUE(Contains(run.fOut,
                       "\n  hypothesis       fitted       best   median chi-square per "
                       "degree of freedom\n  mu                  200 "))
      << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, " tracks/s; written: fits.root, fits.csv\n")) << run.fOut;
  EXPECT_EQ(kelvo::FitReader(fFolder.Path("fits.root")).Entries(), 600);
  const std::string csv = fFolder.Read("fits.csv");
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 601);
  EXPECT_EQ(csv.find("track,pdg,status,message,best,"), 0u);
}

TEST_F(Command, GivesTheSameResultForAnyNumberOfThreads) {
  EXPECT_EQ(Fit(kMuons + " --limit 300 --csv 1.csv --threads 1").fStatus, 0);
  EXPECT_EQ(Fit(kMuons + " --limit 300 --csv 2.csv --threads 2").fStatus, 0);
  EXPECT_GT(fFolder.Read("1.csv").size(), 100'000u);
  EXPECT_TRUE(fFolder.Read("1.csv") == fFolder.Read("2.csv"));
}

TEST_F(Command, WritesOneHypothesisAndTheScalarsAloneWhenAsked) {
  EXPECT_EQ(Fit(kMuons + " --limit 20 --hypothesis p --scalars").fStatus, 0);
  kelvo::FitReader fits(fFolder.Path("fits.root"));
  EXPECT_EQ(fits.Entries(), 20);
  for (long long i = 0; i < fits.Entries(); i++)
    EXPECT_EQ(fits.Read(i, kelvo::FitPart::kNames).fPDG, 2212);
  EXPECT_FALSE(fits.HasVectors());
}

TEST_F(Command, WritesAnRNTupleWhereThereAreSomeUnlessATreeIsWanted) {
  const auto kind = [this](const std::string& arguments) -> std::string {
    EXPECT_EQ(Fit(kMuons + " --limit 2" + arguments).fStatus, 0);
    TFile file(fFolder.Path("fits.root").c_str());
    return file.GetKey("fits")->GetClassName();
  };
  const bool known = kelvo::DefaultTableFormat() == kelvo::TableFormat::kRNTuple;
  EXPECT_EQ(kind(""), known ? "ROOT::RNTuple" : "TTree");
  EXPECT_EQ(kind(" --format ttree"), "TTree");
}

// To load ROOT's interpreter takes 0.2 s and 200 MB.
TEST_F(Command, ReportsAndDisplaysAnRNTupleWithoutTheInterpreter) {
  if (kelvo::DefaultTableFormat() == kelvo::TableFormat::kTTree) GTEST_SKIP() << "no RNTuple";
  const auto loaded = [this](const std::string& arguments) {
    const Outcome run = Run(arguments, "LD_DEBUG=files");
    EXPECT_EQ(run.fStatus, 0);
    EXPECT_TRUE(Contains(run.fErr, "libCore")) << "the loader tells nothing";
    return Contains(run.fErr, "libCling");
  };
  EXPECT_EQ(Fit(kMuons + " --limit 10").fStatus, 0);
  EXPECT_FALSE(loaded("report fits.root -o fits.html"));
  EXPECT_FALSE(loaded("display fits.root --track 3 -o track.svg"));
  EXPECT_EQ(Fit(kMuons + " --limit 10 --format ttree").fStatus, 0);
  EXPECT_TRUE(loaded("display fits.root --track 3 -o track.svg")) << "the word to look for";
}

const char* const kSomeBad =
    "track,view,u,z,sigu\n"
    "1,X,0,3,0.3\n1,Y,0,9.05,0.3\n1,X,0,15.1,0.3\n1,Y,0,21.15,0.3\n"
    "2,X,0,3,0.3\n2,Y,zero,9.05,0.3\n"
    "3,X,0,3,0.3\n";

TEST_F(Command, TellsWhatCouldNotBeUsedAndEndsWithStatus1) {
  fFolder.Write("hits.csv", kSomeBad);
  const Outcome run = Fit("hits.csv");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_TRUE(Contains(run.fErr,
                       "kelvo: some of the input could not be used:\n"
                       "  hits.csv, line 7, column u: \"zero\" is not a number\n"
                       "  hits.csv, line 8: track 3 is not fitted: "))
      << run.fErr;
  EXPECT_TRUE(Contains(run.fOut, "  not fitted: too few hits in a view            1\n"))
      << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, "  not fitted: a bad line or number              1\n"))
      << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, "  lines that could not be used                  1\n"))
      << run.fOut;
  EXPECT_EQ(kelvo::FitReader(fFolder.Path("fits.root")).Entries(), 9);
}

TEST_F(Command, ShowsTheFirstTenOfManyBadLines) {
  std::string text = "track,view,u,z,sigu\n";
  for (int i = 0; i < 40; i++) text += std::to_string(i) + ",X,?,3,0.3\n";
  fFolder.Write("hits.csv", text);
  const Outcome run = Fit("hits.csv");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_TRUE(Contains(run.fErr, "could not be used; the first 10 cases:\n")) << run.fErr;
  EXPECT_TRUE(Contains(run.fErr, "line 11,")) << run.fErr;
  EXPECT_FALSE(Contains(run.fErr, "line 12,")) << run.fErr;
}

TEST_F(Command, EndsAtTheFirstProblemWhenStrict) {
  fFolder.Write("hits.csv", kSomeBad);
  const Outcome run = Fit("hits.csv --strict");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_EQ(run.fErr,
            "kelvo: stopped at the first problem (--strict), nothing is written: hits.csv, line 7, "
            "column u: \"zero\" is not a number\n");
  EXPECT_EQ(Results(), 1);
}

TEST_F(Command, FitsATableWithoutHits) {
  fFolder.Write("hits.csv", "track,view,u,z,sigu\n");
  const Outcome run = Fit("hits.csv --csv fits.csv");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_TRUE(Contains(run.fOut, "  tracks read                                   0\n"))
      << run.fOut;
  const kelvo::FitReader fits(fFolder.Path("fits.root"));
  EXPECT_EQ(fits.Entries(), 0);
  EXPECT_TRUE(fits.HasVectors());
}

TEST_F(Command, SaysWhatIsWrongWithTheUsage) {
  struct Case {
    const char* fArguments;
    const char* fMessage;
  };
  const Case cases[] = {
      {"--hypothesis mu,e", "kelvo: --hypothesis: \"e\" is none of mu, pi and p\n"},
      {"--column event",
       "kelvo: --column: \"event\" is not of the form NAME=OTHER, such as track=event\n"},
      {"--column energy=E",
       "kelvo: column \"energy\" is none of those that hits have: track, view, u, sigu, x, y, "
       "sigx, "
       "sigy, z, sigz, t, sigt, w\n"},
      {"--scattering-factor nan",
       "kelvo: --scattering-factor: \"nan\" is not a number above 0 and at most 100\n"},
      {"--beyond-last-hit -0.1",
       "kelvo: --beyond-last-hit: \"-0.1\" is not a number from 0 to 100\n"},
      {"--beam-momentum 0",
       "kelvo: --beam-momentum: \"0\" is not a number from 0.001 to 1000000\n"},
      {"--threads 0", "kelvo: --threads: \"0\" is not a whole number from 1 to 1024\n"},
      {"--threads 1.5", "kelvo: --threads: \"1.5\" is not a whole number from 1 to 1024\n"},
      {"--limit -3",
       "kelvo: --limit: \"-3\" is not a whole number from 0 to 18446744073709551615\n"},
      {"--scattering-factor 101",
       "kelvo: --scattering-factor: \"101\" is not a number above 0 and at most 100\n"},
      {"--hypothesis mu,mu", "kelvo: --hypothesis: \"mu\" is named more than once\n"},
      {"--format hdf", "kelvo: --format: \"hdf\" is none of rntuple and ttree\n"},
      {"--csv fits.txt", "kelvo: --csv: \"fits.txt\" must end in .csv\n"},
      {"--report fits.root", "kelvo: --report: \"fits.root\" must end in .html or .htm\n"},
      {"--bogus",
       "kelvo: the following argument was not expected: --bogus\n'kelvo fit --help' shows how it "
       "is "
       "used\n"},
  };
  fFolder.Write("hits.csv", kSomeBad);
  for (const Case& c : cases) {
    const Outcome run = Fit(std::string("hits.csv ") + c.fArguments);
    EXPECT_EQ(run.fStatus, 2) << c.fArguments;
    EXPECT_EQ(run.fErr.find(c.fMessage), 0u) << run.fErr;
    EXPECT_EQ(Results(), 1) << c.fArguments;
  }
}

TEST_F(Command, SaysWhatIsMissing) {
  const std::string commands =
      "; there are fit, simulate, detector, report, display, dedx and materials\n"
      "'kelvo --help' explains them\n";
  const std::pair<const char*, std::string> cases[] = {
      {"", "kelvo: a command is missing" + commands},
      {"fits", "kelvo: \"fits\" is not a command" + commands},
      {"fit", "kelvo: hits is missing\n'kelvo fit --help' shows how it is used\n"},
      {"fit hits.csv", "kelvo: --detector is missing\n'kelvo fit --help' shows how it is used\n"},
      {"display fits.root --track 1 -o",
       "kelvo: --output: 1 required FILE missing\n'kelvo display --help' shows how it is used\n"},
  };
  for (const auto& [arguments, message] : cases) {
    const Outcome run = Run(arguments);
    EXPECT_EQ(run.fStatus, 2) << arguments;
    EXPECT_EQ(run.fErr, message);
    EXPECT_EQ(run.fOut, "");
  }
}

// An ending that says another format is a mistake, and might be the name of an input.
TEST_F(Command, RefusesFilesOfAnotherFormatBeforeAnyWork) {
  const std::pair<std::string, std::string> cases[] = {
      {"fit missing.csv --detector missing.toml -o fits.csv", "\"fits.csv\" must end in .root"},
      {"report missing.root -o missing.root", "\"missing.root\" must end in .html or .htm"},
      {"display missing.root --track 1 -o a.html", "\"a.html\" must end in .svg, .png or .pdf"},
      {"detector missing.toml -o a", "\"a\" must end in .svg, .png or .pdf"},
      {"dedx Steel -o a.html", "\"a.html\" must end in .csv, .svg, .png or .pdf"},
  };
  for (const auto& [arguments, message] : cases) {
    const Outcome run = Run(arguments);
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_EQ(run.fErr.find("kelvo: --output: " + message + '\n'), 0u) << run.fErr;
  }
  EXPECT_EQ(Results(), 0);
}

TEST_F(Command, SaysWhatIsWrongWithFiles) {
  fFolder.Write("hits.csv", kSomeBad);
  fFolder.Write("other.csv", "event,view,u,z,sigu\n");
  const auto error = [this](const std::string& arguments) {
    const Outcome run = Run("fit " + arguments);
    EXPECT_EQ(run.fStatus, 2) << arguments;
    return run.fErr;
  };
  const std::string fine = " --detector " + kFine;
  EXPECT_EQ(error("missing.csv -o fits.root" + fine),
            "kelvo: missing.csv: cannot be opened: No such file or directory\n");
  EXPECT_EQ(error("other.csv -o fits.root" + fine),
            "kelvo: other.csv, line 1: there is no column \"track\" but \"event, view, u, z, "
            "sigu\"; a column of another name needs a mapping, track=NAME\n");
  EXPECT_EQ(error("hits.csv -o folder/fits.root" + fine),
            "kelvo: folder/fits.root: cannot be written: No such file or directory\n");
  EXPECT_EQ(error("hits.csv -o fits.root --csv hits.csv" + fine),
            "kelvo: hits.csv is both input and output\n");
  fFolder.Write("hall.root", "");
  EXPECT_EQ(error("hits.csv -o ./hall.root --detector hall.root"),
            "kelvo: ./hall.root is both input and output\n");
  EXPECT_TRUE(Contains(error("hits.csv -o fits.root --detector missing.toml"), "missing.toml"));
  fFolder.Write("mist.toml", Mist());
  EXPECT_TRUE(Contains(error("hits.csv -o fits.root --detector mist.toml"),
                       "has Mist, of which neither the name nor the composition is known"));
  EXPECT_EQ(Results(), 4);
}

TEST_F(Command, FitsABeamInAFileWithNamesOfItsOwn) {
  std::string text = "event,plane,z,x,y,sigma_x,sigma_y\n";
  for (int event = 0; event < 5; event++)
    for (int plane = 0; plane < 4; plane++)
      text += std::to_string(event) + "," + std::to_string(plane) + "," + std::to_string(plane) +
              ",1.0,0.9,0.0072,0.0014\n";
  fFolder.Write("beam.csv", text);
  const Outcome run =
      Run("fit beam.csv --detector " + kTelescope +
          " -o fits.root --hypothesis pi --beam-momentum 120 --column track=event --column "
          "sigx=sigma_x --column sigy=sigma_y");
  EXPECT_EQ(run.fStatus, 0) << run.fErr;
  EXPECT_TRUE(Contains(run.fOut, "  hits read                                    40\n"))
      << run.fOut;
}

const std::string kSimulate =
    "simulate --detector " + kFine + " --particle mu --kinetic-energy 0.3..1 --tracks 20 --seed 1 ";

TEST_F(Command, SimulatesTracksThatItCanFit) {
  for (const char* model : {"full", "fit"}) {
    const Outcome run = Run(kSimulate + "--hit-truth -o hits.csv.gz --model " + model);
    EXPECT_EQ(run.fStatus, 0);
    EXPECT_EQ(run.fErr, "");
    EXPECT_EQ(run.fOut.find("  20 tracks, "), 0u) << run.fOut;
    EXPECT_TRUE(Contains(run.fOut,
                         "; written: hits.csv.gz hits.truth.csv.gz "
                         "hits.hittruth.csv.gz\n"))
        << run.fOut;
    const Outcome fit = Fit("hits.csv.gz");
    EXPECT_EQ(fit.fStatus, 0);
    EXPECT_TRUE(Contains(fit.fOut, "  tracks fitted                                20\n"))
        << fit.fOut;
  }
}

TEST_F(Command, SaysWhatIsWrongWithASimulation) {
  struct Case {
    std::string fArguments;
    const char* fMessage;
  };
  const std::string begin = "simulate --detector " + kFine;
  const std::string other = begin + " --particle p --tracks 5 --seed 1 -o hits.csv ";
  const std::string telescope = "simulate --detector " + kTelescope;
  const Case cases[] = {
      {other + "--kinetic-energy 2..1",
       "kelvo: --kinetic-energy: \"2..1\" is not a number or an interval MIN..MAX from 0.001 to "
       "10000 "
       "GeV, the smaller number first\n"},
      {other + "--kinetic-energy 1 --sigma 0.1",
       "kelvo: --sigma has no effect without --hits gauss\n"},
      {other + "--kinetic-energy 1 --scattering-factor 1",
       "kelvo: --scattering-factor has no effect without --model fit\n"},
      {other + "--kinetic-energy 1 --model fit --step 1",
       "kelvo: --step has no effect without --model full\n"},
      {other + "--kinetic-energy 1 --model fit --leaving",
       "kelvo: with the scattering of the fit, tracks stop after their mean range: a fluctuating "
       "energy loss and tracks that leave need the full scattering\n"},
      {other + "--kinetic-energy 1 --efficiency 0",
       "kelvo: --efficiency: \"0\" is not a number from 0.01 to 1\n"},
      {other + "--kinetic-energy 1 --start-x 5..4",
       "kelvo: --start-x: \"5..4\" is not a number or an interval MIN..MAX from -100000 to 100000, "
       "the "
       "smaller number first\n"},
      {begin + " --particle p --kinetic-energy 1 --tracks 0 --seed 1 -o hits.csv",
       "kelvo: --tracks: \"0\" is not a whole number from 1 to 1000000000000\n"},
      {begin + " --particle p --kinetic-energy 1 --tracks 5 --seed -1 -o hits.csv",
       "kelvo: --seed: \"-1\" is not a whole number from 0 to 18446744073709551615\n"},
      {begin + " --particle p --kinetic-energy 1 --tracks 5 --seed 1 -o hits.txt",
       "kelvo: hits.txt: the name tells the format of simulated hits and must end in .csv, .csv.gz "
       "or .root\n"},
      {telescope + " --particle p --kinetic-energy 1 --tracks 5 --seed 1 -o hits.csv",
       "kelvo: the detector \"telescope\" has Air, Silicon, for which there is no stopping-power "
       "table, so that particles cannot be followed; the known materials are Scintillator, PVC, "
       "Glue, Steel, Vacuum\n"},
  };
  for (const Case& c : cases) {
    const Outcome run = Run(c.fArguments);
    EXPECT_EQ(run.fStatus, 2) << c.fArguments;
    EXPECT_EQ(run.fErr.find(c.fMessage), 0u) << run.fErr;
    EXPECT_EQ(Results(), 0) << c.fArguments;
  }
}

TEST_F(Command, TellsThatASimulationCannotBeWrittenToItsEnd) {
  for (const std::string name : {"hits.csv", "hits.csv.gz", "hits.root"}) {
    const Outcome run = Run(kSimulate + "--hit-truth -o " + name, "ulimit -f 4 &&");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_EQ(run.fErr.find("kelvo: hits."), 0u) << run.fErr;
    EXPECT_EQ(Results(), 0);
  }
}

TEST_F(Command, TellsThatAFileCannotBeWrittenToItsEnd) {
  for (const char* format : {"ttree", "rntuple"}) {
    const Outcome run = Fit(kMuons + " --limit 1000 --format " + format, "ulimit -f 2000 &&");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_EQ(run.fErr, "kelvo: fits.root: cannot be written: File too large\n");
    EXPECT_EQ(Results(), 0);
  }
}

/// Starts the program with a terminal as its standard error stream; returns what it writes there.
std::string OnATerminal(const std::string& output, int& status, bool interrupt) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    execl(KELVO_COMMAND, "kelvo", "fit", kMuons.c_str(), "-d", kFine.c_str(), "-o", output.c_str(),
          "--threads", "1", nullptr);
    std::_Exit(127);
  }
  std::string text;
  char buffer[1024];
  for (ssize_t n = 0; (n = read(terminal, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(n));
    if (interrupt && text.find("tracks") != std::string::npos) kill(child, SIGINT);
  }
  waitpid(child, &status, 0);
  close(terminal);
  return text;
}

TEST_F(Command, DrawsABarOnATerminalAndRemovesIt) {
  int status = 0;
  const std::string text = OnATerminal(fFolder.Path("fits.root"), status, false);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(Contains(text, "\r[")) << text;
  EXPECT_TRUE(Contains(text, "] 100 %, 3000 tracks") || Contains(text, " %, ")) << text;
  EXPECT_TRUE(Contains(text, "\r\033[K  tracks read")) << text;
}

TEST_F(Command, LeavesNothingWhenItIsInterrupted) {
  int status = 0;
  const std::string text = OnATerminal(fFolder.Path("fits.root"), status, true);
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);
  EXPECT_TRUE(Contains(text, "kelvo: interrupted, nothing is written")) << text;
  EXPECT_EQ(Results(), 0);
}

TEST_F(Command, ExplainsItself) {
  const Outcome all = Run("--help");
  EXPECT_EQ(all.fStatus, 0);
  for (const char* name : {"  fit ", "  simulate ", "  detector "})
    EXPECT_TRUE(Contains(all.fOut, name));
  const Outcome fit = Run("fit --help");
  EXPECT_EQ(fit.fStatus, 0);
  EXPECT_TRUE(Contains(fit.fOut, "Examples:\n  kelvo fit hits.csv.gz --detector"));
  EXPECT_TRUE(Contains(Run("detector --help").fOut, "Examples:\n  kelvo detector "));
  EXPECT_TRUE(Contains(Run("simulate --help").fOut, "Examples:\n  kelvo simulate "));
  EXPECT_EQ(Run("--version").fOut, "kelvo " KELVO_VERSION "\n");
}

TEST_F(Command, DescribesADetector) {
  const Outcome run = Run("detector " + kFine);
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_EQ(run.fErr, "");
  EXPECT_EQ(run.fOut.find("fine (" + kFine + "): 128 planes, "), 0u) << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, "z 0 to 774.35 cm\n")) << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, "   X     64          3      765.3     32         4 "))
      << run.fOut;
  EXPECT_TRUE(Contains(run.fOut, "   Y     64       9.05      771.4     32         4 "))
      << run.fOut;
  fFolder.Write("mist.toml", Mist());
  EXPECT_TRUE(Contains(Run("detector mist.toml").fOut, "no energy loss known: Mist; only beams"));
}

TEST_F(Command, ListsTheMaterialsAlongARay) {
  // Along z through the middle of a cell: 0.2 cm of wall, 5.6 cm of filling, 0.2 cm of wall.
  const Outcome run = Run("detector " + kFine + " --ray 2.025,2.025,0,2.025,2.025,6");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_TRUE(
      Contains(run.fOut,
               "material                X0 [cm] thickness [cm]    length [cm] rad. lengths\n"
               "PVC                      16.517        0.20000        0.20000     0.012109\n"
               "Scintillator             51.447        5.60000        5.80000     0.120959\n"
               "PVC                      16.517        0.20000        6.00000     0.133067\n"))
      << run.fOut;
  EXPECT_EQ(Run("detector " + kFine + " --ray 1,2,3").fStatus, 2);
  EXPECT_TRUE(Contains(Run("detector " + kFine + " --ray 1,2,3,1,2,3").fOut, "nothing"));
}

TEST_F(Command, DrawsATrackUnderItsBestHypothesisOrAnother) {
  ASSERT_EQ(Fit(kMuons + " --limit 30 --hypothesis mu,p").fStatus, 0);
  const Outcome best = Run("display fits.root --track 17 -o best.svg");
  EXPECT_EQ(best.fStatus, 0);
  EXPECT_EQ(best.fOut, "written: best.svg\n");
  EXPECT_EQ(best.fErr, "");
  EXPECT_TRUE(Contains(fFolder.Read("best.svg"), ", the best hypothesis"));
  EXPECT_EQ(Run("display fits.root --track 17 --hypothesis p -o p.png").fStatus, 0);
  EXPECT_EQ(fFolder.Read("p.png").substr(1, 3), "PNG");
}

TEST_F(Command, SaysWhichTrackItCannotDraw) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n77,X,1,3,1\n77,X,1,9,1\n77,Y,1,15,1\n");
  ASSERT_EQ(Fit(kMuons + " few.csv " + kMuons + " --limit 3002 --hypothesis mu,pi").fStatus, 1);
  const auto display = [this](const std::string& arguments) {
    return Run("display " + arguments + " -o a.svg");
  };
  const Outcome unknown = display("fits.root --track 5000");
  EXPECT_EQ(unknown.fStatus, 2);
  EXPECT_EQ(unknown.fErr, "kelvo: fits.root: has no track 5000\n");
  const Outcome other = display("fits.root --track 5 --hypothesis p");
  EXPECT_EQ(other.fStatus, 2);
  EXPECT_EQ(other.fErr, "kelvo: fits.root: track 5 is not there as p, only as mu, pi\n");
  const Outcome none = display("fits.root --track 5 --hypothesis electron");
  EXPECT_EQ(none.fStatus, 2);
  EXPECT_EQ(none.fErr,
            "kelvo: --hypothesis: \"electron\" is none of mu, pi and p\n"
            "'kelvo display --help' shows how it is used\n");
  const Outcome huge = display("fits.root --track 99999999999999999999");
  EXPECT_EQ(huge.fStatus, 2);
  EXPECT_EQ(huge.fErr.find("kelvo: --track: \"99999999999999999999\" is not a whole number of at "
                           "most 64 bits\n"),
            0u);
  EXPECT_FALSE(Exists("a.svg"));
  const Outcome twice = display("fits.root --track 0");
  EXPECT_EQ(twice.fStatus, 0);
  EXPECT_EQ(twice.fErr, "kelvo: fits.root has 2 tracks of the number 0; the first is drawn\n");
}

TEST_F(Command, SaysWhyATrackThatIsNotFittedIsNotDrawn) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n77,X,1,3,1\n77,X,1,9,1\n77,Y,1,15,1\n");
  ASSERT_EQ(Fit("few.csv").fStatus, 1);
  const Outcome run = Run("display fits.root --track 77 -o a.svg");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_EQ(
      run.fErr,
      "kelvo: track 77 is not fitted: view Y has 1 hit; a fit needs two or more in each view\n");
  EXPECT_FALSE(Exists("a.svg"));
}

TEST_F(Command, DrawsOnlyWhatAFileHolds) {
  ASSERT_EQ(Fit(kMuons + " --limit 10 --scalars").fStatus, 0);
  const Outcome display = Run("display fits.root --track 1 -o a.svg");
  EXPECT_EQ(display.fStatus, 2);
  EXPECT_EQ(display.fErr,
            "kelvo: fits.root: has no hits and planes to draw; fit again without --scalars\n");
  EXPECT_EQ(Run("report fits.root -o fits.html").fStatus, 0);
  const Outcome wrong = Run("display " + kMuons + " --track 1 -o a.svg");
  EXPECT_EQ(wrong.fStatus, 2);
  EXPECT_EQ(wrong.fErr, "kelvo: " + kMuons +
                            ": is not a ROOT file; a file of fits is expected, as "
                            "'kelvo fit' writes it\n");
}

TEST_F(Command, ReportsOnARunDirectlyOrLater) {
  ASSERT_EQ(Fit(kMuons + " --limit 40 --report direct.html").fStatus, 0);
  const Outcome later = Run("report fits.root -o later.html");
  EXPECT_EQ(later.fStatus, 0);
  EXPECT_EQ(later.fOut, "written: later.html\n");
  const std::string page = fFolder.Read("direct.html");
  EXPECT_EQ(page, fFolder.Read("later.html"));
  EXPECT_TRUE(Contains(page, "<dt>command</dt><dd><code>kelvo fit --detector " + kFine +
                                 " -o fits.root " + kMuons + " --limit 40 --report direct.html<"));
  EXPECT_EQ(Results(), 3);
}

TEST_F(Command, FindsOutBeforeTheFitThatAReportCannotBeWritten) {
  const Outcome missing = Fit(kMuons + " --report missing/fits.html");
  EXPECT_EQ(missing.fStatus, 2);
  EXPECT_EQ(missing.fErr,
            "kelvo: missing/fits.html: cannot be written: No such file or directory\n");
  EXPECT_EQ(Results(), 0);
}

TEST_F(Command, KeepsTheFitsWhenTheReportCannotBeWrittenToItsEnd) {
  const Outcome run =
      Fit(kMuons + " --limit 8 --hypothesis mu --report fits.html", "ulimit -f 256 &&");
  EXPECT_EQ(run.fStatus, 2);
  EXPECT_TRUE(Contains(run.fOut, "  tracks fitted                                 8\n"));
  EXPECT_EQ(
      run.fErr,
      "kelvo: fits.html: could not be written completely; is the disk full?\nkelvo: fits.root is "
      "complete, and 'kelvo report' makes the page from it\n");
  EXPECT_EQ(Results(), 1);
  EXPECT_EQ(Run("report fits.root -o fits.html").fStatus, 0);
}

TEST_F(Command, TellsThatAPictureCannotBeWrittenToItsEnd) {
  for (const std::string format : {"svg", "png", "pdf", "csv"}) {
    const Outcome run = Run("dedx Steel -o a." + format, "ulimit -f 2 &&");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_TRUE(Contains(run.fErr, "could not be written completely")) << run.fErr;
    EXPECT_EQ(Results(), 0);
  }
}

// Its chi-square per degree of freedom is not a number.
TEST_F(Command, FitsATrackThatHasAsManyHitsAsParameters) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n1,X,0,3,1\n1,X,1,15,1\n1,Y,0,9,1\n1,Y,0,21,1\n");
  const Outcome run = Fit("few.csv --hypothesis mu");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_TRUE(Contains(run.fOut, "  mu                    1          1   -\n")) << run.fOut;
}

TEST_F(Command, TellsThatNoFontIsInstalled) {
  fFolder.Write("fonts.conf", "<?xml version=\"1.0\"?>\n<fontconfig><dir>" + fFolder.Path("none") +
                                  "</dir></fontconfig>\n");
  for (const std::string name : {"a.png", "a.pdf"}) {
    const Outcome run = Run("dedx Steel -o " + name, "FONTCONFIG_FILE=$PWD/fonts.conf");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_EQ(run.fErr, "kelvo: " + name +
                            ": cannot be drawn: its texts need a font, and none is installed "
                            "(Debian: fonts-dejavu-core)\n");
    EXPECT_FALSE(Exists(name));
  }
  EXPECT_EQ(Run("dedx Steel -o a.svg", "FONTCONFIG_FILE=$PWD/fonts.conf").fStatus, 0);
}

TEST_F(Command, ShowsEnergyLossAsTableCsvAndPicture) {
  const Outcome table = Run("dedx Steel --particle mu");
  EXPECT_EQ(table.fStatus, 0);
  EXPECT_TRUE(Contains(table.fOut, "muon in Steel\n"));
  EXPECT_TRUE(Contains(table.fOut, "  minimum loss\n"));
  EXPECT_EQ(Run("dedx Steel PVC -o loss.csv").fStatus, 0);
  const std::string csv = fFolder.Read("loss.csv");
  EXPECT_EQ(csv.rfind("material,particle,T,p,beta_gamma,dedx,range,min\nSteel,mu,0.001,", 0), 0u);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 2 * 3 * (7 * 20 + 1 + 1));
  EXPECT_EQ(Run("dedx Steel PVC -o loss.svg").fStatus, 0);
  EXPECT_TRUE(Contains(Run("dedx Lead Water --particle p").fOut, "proton in Water\n"));
  const Outcome unknown = Run("dedx Leed");
  EXPECT_EQ(unknown.fStatus, 2);
  EXPECT_EQ(unknown.fErr,
            "kelvo: expected a published material, such as \"Lead\", \"lXe\" or \"Neon\", found "
            "\"Leed\"\n");
  EXPECT_EQ(Run("dedx Vacuum").fErr, "kelvo: nothing is lost in \"Vacuum\"; name a material\n");
  EXPECT_EQ(Run("dedx 1,2-DICHLOROETHANE --particle mu -o comma.csv").fStatus, 0);
  EXPECT_TRUE(Contains(fFolder.Read("comma.csv"), "\n\"1,2-DICHLOROETHANE\",mu,0.001,"));
}

TEST_F(Command, ListsAndShowsMaterials) {
  const Outcome list = Run("materials");
  EXPECT_EQ(list.fStatus, 0);
  EXPECT_EQ(std::count(list.fOut.begin(), list.fOut.end(), '\n'), 2 + 5 + 309);
  EXPECT_TRUE(Contains(list.fOut, "\nFe (Iron) "));
  const Outcome kapton = Run("materials Kapton");
  EXPECT_EQ(kapton.fStatus, 0);
  EXPECT_TRUE(Contains(kapton.fOut, "radiation length        40.576 g/cm2, 28.575 cm\n"))
      << kapton.fOut;
  EXPECT_TRUE(Contains(kapton.fOut, "Oxygen          8  0.209237\n")) << kapton.fOut;
  EXPECT_EQ(Run("materials Kaptn").fErr,
            "kelvo: expected a published material, such as \"Kapton\", \"KAPTON\" or \"Krypton\", "
            "found \"Kaptn\"\n");
}

TEST_F(Command, DrawsADetector) {
  const Outcome run = Run("detector " + kTelescope + " -o telescope.svg");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_TRUE(Contains(run.fOut, "\nwritten: telescope.svg\n"));
  EXPECT_TRUE(Contains(fFolder.Read("telescope.svg"), ">telescope</text>"));
}

} // namespace
