// 'kelvo fit' as a user runs it: what it prints, what it leaves, how it ends, with any number of
// threads.

#include "io/FitReader.h"
#include "io/FitWriter.h"
#include "test/support/CommandRun.h"

#include <TFile.h>
#include <TKey.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>

namespace {

using test::Contains;
using test::kFine;
using test::kMuons;
using test::kTelescope;
using test::Mist;
using test::Outcome;
using FitCommand = test::Command;

const char* const kSomeBad =
    "track,view,u,z,sigu\n"
    "1,X,0,3,0.3\n1,Y,0,9.05,0.3\n1,X,0,15.1,0.3\n1,Y,0,21.15,0.3\n"
    "2,X,0,3,0.3\n2,Y,zero,9.05,0.3\n"
    "3,X,0,3,0.3\n";

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

TEST_F(FitCommand, FitsAFileAndSumsItUp) {
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

// Of uncertainties that are a million times too small or too large.
TEST_F(FitCommand, PrintsTheMedianOfAnySize) {
  for (const char* sigma : {"1e-6", "1e4"}) {
    std::string hits = "track,view,u,z\n";
    for (int i = 0; i < 25; i++)
      for (int plane = 0; plane < 4; plane++)
        for (const char* view : {"X", "Y"})
          hits += std::to_string(i) + "," + view + "," + std::to_string(i % (plane + 2)) + "," +
                  std::to_string(plane) + "\n";
    fFolder.Write("hits.csv", hits);
    const Outcome run = Run("fit hits.csv -o fits.root --beam-momentum 100 --hypothesis pi -d " +
                            kTelescope + " --sigma " + sigma);
    kelvo::FitReader fits(fFolder.Path("fits.root"));
    std::vector<double> chi2;
    for (long long i = 0; i < fits.Entries(); i++) {
      const kelvo::FitRow& row = fits.Read(i, kelvo::FitPart::kScalars);
      chi2.push_back(row.Chi2() / row.fNDF);
    }
    std::sort(chi2.begin(), chi2.end());
    ASSERT_EQ(chi2.size(), 25u) << run.fErr;
    const std::size_t at = run.fOut.find("  pi  ");
    ASSERT_NE(at, std::string::npos);
    const double printed = std::stod(run.fOut.substr(at + 38));
    EXPECT_NEAR(printed / chi2[12], 1, 0.006) << run.fOut;
  }
}

TEST_F(FitCommand, GivesTheSameResultForAnyNumberOfThreads) {
  EXPECT_EQ(Fit(kMuons + " --limit 300 --csv 1.csv --threads 1").fStatus, 0);
  EXPECT_EQ(Fit(kMuons + " --limit 300 --csv 2.csv --threads 2").fStatus, 0);
  EXPECT_GT(fFolder.Read("1.csv").size(), 100'000u);
  EXPECT_TRUE(fFolder.Read("1.csv") == fFolder.Read("2.csv"));
}

TEST_F(FitCommand, WritesOneHypothesisAndTheScalarsAloneWhenAsked) {
  EXPECT_EQ(Fit(kMuons + " --limit 20 --hypothesis p --scalars").fStatus, 0);
  kelvo::FitReader fits(fFolder.Path("fits.root"));
  EXPECT_EQ(fits.Entries(), 20);
  for (long long i = 0; i < fits.Entries(); i++)
    EXPECT_EQ(fits.Read(i, kelvo::FitPart::kNames).fPDG, 2212);
  EXPECT_FALSE(fits.HasVectors());
}

TEST_F(FitCommand, FitsTracksThatLeaveAsSuch) {
  const auto left = [this](const std::string& arguments) {
    const Outcome run = Fit(kMuons + " --limit 50 --hypothesis mu" + arguments);
    EXPECT_EQ(run.fStatus, 0);
    kelvo::FitReader fits(fFolder.Path("fits.root"));
    long long count = 0;
    for (long long i = 0; i < fits.Entries(); i++) {
      const kelvo::FitRow& row = fits.Read(i, kelvo::FitPart::kScalars);
      EXPECT_EQ(row.fLeaves, std::isnan(row.fP));
      EXPECT_EQ(row.fLeaves, std::isfinite(row.fPMin));
      count += row.fLeaves;
    }
    EXPECT_EQ(Contains(run.fOut, "of these, leave the detector"), count > 0) << run.fOut;
    return count;
  };
  EXPECT_EQ(left(" --end leaves"), 50);
  EXPECT_EQ(left(" --end stops"), 0);
  EXPECT_LT(left(""), 5);
}

TEST_F(FitCommand, LeavesOutTheMomentumFromScatteringWhenAsked) {
  EXPECT_EQ(Fit(kMuons + " --limit 5 --hypothesis mu --end stops --no-scattering-momentum").fStatus,
            0);
  kelvo::FitReader fits(fFolder.Path("fits.root"));
  for (long long i = 0; i < fits.Entries(); i++)
    EXPECT_TRUE(std::isnan(fits.Read(i, kelvo::FitPart::kScalars).fPScattering));
}

TEST_F(FitCommand, FitsABeamAsMuonsUnlessToldOtherwise) {
  EXPECT_EQ(Fit(kMuons + " --limit 5 --beam-momentum 2").fStatus, 0);
  kelvo::FitReader fits(fFolder.Path("fits.root"));
  EXPECT_EQ(fits.Entries(), 5);
  for (long long i = 0; i < fits.Entries(); i++)
    EXPECT_TRUE(fits.Read(i, kelvo::FitPart::kNames).fBest);
}

TEST_F(FitCommand, WritesAnRNTupleWhereThereAreSomeUnlessATreeIsWanted) {
  const auto kind = [this](const std::string& arguments) -> std::string {
    EXPECT_EQ(Fit(kMuons + " --limit 2" + arguments).fStatus, 0);
    TFile file(fFolder.Path("fits.root").c_str());
    return file.GetKey("fits")->GetClassName();
  };
  const bool known = kelvo::DefaultTableFormat() == kelvo::TableFormat::kRNTuple;
  EXPECT_EQ(kind(""), known ? "ROOT::RNTuple" : "TTree");
  EXPECT_EQ(kind(" --format ttree"), "TTree");
}

TEST_F(FitCommand, TellsWhatCouldNotBeUsedAndEndsWithStatus1) {
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

TEST_F(FitCommand, TellsHitsOfAnotherDetectorAndEndsWithStatus1) {
  const std::string arguments = kMuons + " --limit 50 -o fits.root --beam-momentum 1 -d ";
  const Outcome run = Run("fit " + arguments + kTelescope);
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_TRUE(Contains(run.fErr, "kelvo: this cannot be meant: ")) << run.fErr;
  EXPECT_TRUE(
      Contains(run.fErr, " hits lie more than half a plane from any; is this the detector?\n"))
      << run.fErr;
  fFolder.Write("fits.root", "before");
  const Outcome strict = Run("fit --strict " + arguments + kTelescope);
  EXPECT_EQ(strict.fStatus, 1);
  EXPECT_TRUE(Contains(strict.fErr, " hits lie more than half a plane from any;")) << strict.fErr;
  EXPECT_EQ(fFolder.Read("fits.root"), "before");
}

TEST_F(FitCommand, PartsOfTheTracksAreJoinedByMerge) {
  const std::string arguments = kMuons + " -d fine --limit 3 -o ";
  ASSERT_EQ(Run("fit " + arguments + "a.root").fStatus, 0);
  ASSERT_EQ(Run("fit --first 3 " + arguments + "b.root").fStatus, 0);
  for (const std::string format : {"rntuple", "ttree"}) {
    const Outcome run = Run("merge b.root a.root -o all.root --format " + format);
    EXPECT_EQ(run.fStatus, 0) << run.fErr;
    EXPECT_TRUE(Contains(run.fOut, "  tracks                                        6\n"))
        << run.fOut;
    kelvo::FitReader fits(fFolder.Path("all.root"));
    ASSERT_EQ(fits.Entries(), 18);
    for (long long i = 0; i < 18; i++)
      EXPECT_EQ(fits.Read(i, kelvo::FitPart::kNames).fTrack, i / 3) << format;
  }
  const Outcome twice = Run("merge a.root a.root -o twice.root");
  EXPECT_EQ(twice.fStatus, 2);
  EXPECT_TRUE(Contains(twice.fErr, "give each part once")) << twice.fErr;
}

TEST_F(FitCommand, ShowsTheFirstTenOfManyBadLines) {
  std::string text = "track,view,u,z,sigu\n";
  for (int i = 0; i < 40; i++) text += std::to_string(i) + ",X,?,3,0.3\n";
  fFolder.Write("hits.csv", text);
  const Outcome run = Fit("hits.csv");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_TRUE(Contains(run.fErr, "could not be used; the first 10 cases:\n")) << run.fErr;
  EXPECT_TRUE(Contains(run.fErr, "line 11,")) << run.fErr;
  EXPECT_FALSE(Contains(run.fErr, "line 12,")) << run.fErr;
}

TEST_F(FitCommand, EndsAtTheFirstProblemWhenStrict) {
  fFolder.Write("hits.csv", kSomeBad);
  const Outcome run = Fit("hits.csv --strict");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_EQ(run.fErr,
            "kelvo: stopped at the first problem (--strict), nothing is written: hits.csv, line 7, "
            "column u: \"zero\" is not a number\n");
  EXPECT_EQ(Results(), 1);
}

TEST_F(FitCommand, FitsATableWithoutHits) {
  fFolder.Write("hits.csv", "track,view,u,z,sigu\n");
  const Outcome run = Fit("hits.csv --csv fits.csv");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_TRUE(Contains(run.fOut, "  tracks read                                   0\n"))
      << run.fOut;
  const kelvo::FitReader fits(fFolder.Path("fits.root"));
  EXPECT_EQ(fits.Entries(), 0);
  EXPECT_TRUE(fits.HasVectors());
}

TEST_F(FitCommand, SaysWhatIsWrongWithTheUsage) {
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
       "sigy, z, sigz, t, sigt, w, q, plane\n"},
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
      {"--end leaving", "kelvo: --end: \"leaving\" is none of auto, stops and leaves\n"},
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

TEST_F(FitCommand, SaysWhatIsWrongWithFiles) {
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
            "sigu\"; a column of another name needs a mapping, track=NAME; hits have "
            "track,view,u,z,sigu or track,x,y,z,sigx,sigy\n");
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

TEST_F(FitCommand, FitsABeamInAFileWithNamesOfItsOwn) {
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

TEST_F(FitCommand, TellsThatAFileCannotBeWrittenToItsEnd) {
  for (const char* format : {"ttree", "rntuple"}) {
    const Outcome run = Fit(kMuons + " --limit 1000 --format " + format, "ulimit -f 2000 &&");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_EQ(run.fErr, "kelvo: fits.root: cannot be written: File too large\n");
    EXPECT_EQ(Results(), 0);
  }
}

TEST_F(FitCommand, DrawsABarOnATerminalAndRemovesIt) {
  int status = 0;
  const std::string text = OnATerminal(fFolder.Path("fits.root"), status, false);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(Contains(text, "\r[")) << text;
  EXPECT_TRUE(Contains(text, "] 100 %, 3000 tracks") || Contains(text, " %, ")) << text;
  EXPECT_TRUE(Contains(text, "\r\033[K  tracks read")) << text;
}

TEST_F(FitCommand, LeavesNothingWhenItIsInterrupted) {
  int status = 0;
  const std::string text = OnATerminal(fFolder.Path("fits.root"), status, true);
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);
  EXPECT_TRUE(Contains(text, "kelvo: interrupted, nothing is written")) << text;
  EXPECT_EQ(Results(), 0);
}

TEST_F(FitCommand, FindsOutBeforeTheFitThatAReportCannotBeWritten) {
  const Outcome missing = Fit(kMuons + " --report missing/fits.html");
  EXPECT_EQ(missing.fStatus, 2);
  EXPECT_EQ(missing.fErr,
            "kelvo: missing/fits.html: cannot be written: No such file or directory\n");
  EXPECT_EQ(Results(), 0);
}

TEST_F(FitCommand, KeepsTheFitsWhenTheReportCannotBeWrittenToItsEnd) {
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

// Its chi-square per degree of freedom is not a number.
TEST_F(FitCommand, FitsATrackThatHasAsManyHitsAsParameters) {
  fFolder.Write("few.csv", "track,view,u,z,sigu\n1,X,0,3,1\n1,X,1,15,1\n1,Y,0,9,1\n1,Y,0,21,1\n");
  const Outcome run = Fit("few.csv --hypothesis mu");
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_TRUE(Contains(run.fOut, "  mu                    1          1   -\n")) << run.fOut;
}

} // namespace
