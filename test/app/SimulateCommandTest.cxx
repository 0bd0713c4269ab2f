// 'kelvo simulate' as a user runs it; it uses threads.

#include "test/support/CommandRun.h"

namespace {

using test::Contains;
using test::kFine;
using test::kTelescope;
using test::Outcome;
using SimulateCommand = test::Command;

const std::string kSimulate =
    "simulate --detector " + kFine + " --particle mu --kinetic-energy 0.3..1 --tracks 20 --seed 1 ";

TEST_F(SimulateCommand, SimulatesTracksThatItCanFit) {
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

// The command that the help and docs/simulation.md show, and the fit of what it makes.
TEST_F(SimulateCommand, SimulatesABeamThatItCanFit) {
  const Outcome run = Run("simulate --detector " + kTelescope +
                          " --particle pi --beam-momentum 120 --tracks 1000 --seed 4 -o beam.csv "
                          "--hits gauss --sigma 0.0015 --spot 0.2");
  EXPECT_EQ(run.fStatus, 0) << run.fErr;
  EXPECT_EQ(run.fOut.find("  1000 tracks, 8000 hits, mean kinetic energy at the first hit 119.9 "
                          "GeV\n"),
            0u)
      << run.fOut;
  const Outcome fit = Run("fit beam.csv --detector " + kTelescope +
                          " -o fits.root --hypothesis pi --beam-momentum 120");
  EXPECT_EQ(fit.fStatus, 0) << fit.fErr;
  EXPECT_TRUE(Contains(fit.fOut, "  tracks fitted                              1000\n"))
      << fit.fOut;
}

TEST_F(SimulateCommand, SaysWhatIsWrongWithASimulation) {
  struct Case {
    std::string fArguments;
    const char* fMessage;
  };
  const std::string begin = "simulate --detector " + kFine;
  const std::string other = begin + " --particle p --tracks 5 --seed 1 -o hits.csv ";
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
       "energy loss, tracks that leave and beams need the full scattering\n"},
      {other, "kelvo: give either --kinetic-energy, of particles that stop, or --beam-momentum\n"},
      {other + "--kinetic-energy 1 --beam-momentum 1",
       "kelvo: give either --kinetic-energy, of particles that stop, or --beam-momentum\n"},
      {other + "--kinetic-energy 1 --sig-beam-momentum 1",
       "kelvo: --sig-beam-momentum has no effect without --beam-momentum\n"},
      {other + "--beam-momentum 9 --leaving",
       "kelvo: --leaving has no effect without --kinetic-energy\n"},
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
  };
  for (const Case& c : cases) {
    const Outcome run = Run(c.fArguments);
    EXPECT_EQ(run.fStatus, 2) << c.fArguments;
    EXPECT_EQ(run.fErr.find(c.fMessage), 0u) << run.fErr;
    EXPECT_EQ(Results(), 0) << c.fArguments;
  }
}

TEST_F(SimulateCommand, TellsThatASimulationCannotBeWrittenToItsEnd) {
  for (const std::string name : {"hits.csv", "hits.csv.gz", "hits.root"}) {
    const Outcome run = Run(kSimulate + "--hit-truth -o " + name, "ulimit -f 4 &&");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_EQ(run.fErr.find("kelvo: hits."), 0u) << run.fErr;
    EXPECT_EQ(Results(), 0);
  }
}

} // namespace
