// What all commands have in common, and those that describe detectors, materials and energy loss.

#include "test/support/CommandRun.h"

namespace {

using test::Command;
using test::Contains;
using test::kFine;
using test::kTelescope;
using test::Mist;
using test::Outcome;

TEST_F(Command, SaysWhatIsMissing) {
  const std::string commands =
      "; there are fit, merge, simulate, detector, report, display, dedx, materials, help "
      "and completion\n"
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
      {"display missing.root --track 1 -o a.csv",
       "\"a.csv\" must end in .svg, .png or .pdf, or in .html for a page"},
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

TEST_F(Command, TellsThatAPictureCannotBeWrittenToItsEnd) {
  for (const std::string format : {"svg", "png", "pdf", "csv"}) {
    const Outcome run = Run("dedx Steel -o a." + format, "ulimit -f 2 &&");
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_TRUE(Contains(run.fErr, "could not be written completely")) << run.fErr;
    EXPECT_EQ(Results(), 0);
  }
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
