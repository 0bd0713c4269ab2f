// What the program does to files and streams that are not as it would like to have them.

#include "test/support/TempFolder.h"
#include "util/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

const std::string kFine = KELVO_SOURCE_DIR "/detectors/fine.toml";
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

const std::string kMuons = KELVO_SOURCE_DIR "/examples/data/fine_mu_hits_smeared.csv.gz";

class FileSafety : public testing::Test {
protected:
  FileSafety() {
    setenv("KELVO", KELVO_COMMAND, 1);
    setenv("HITS", kMuons.c_str(), 1);
    std::filesystem::copy_file(kFine, fFolder.Path("fine.toml"));
  }

  /// Runs lines of the shell in the temporary folder and returns what was printed, errors included.
  std::string Shell(const std::string& lines) {
    const std::string script = fFolder.Write(".script", lines);
    const int status =
        std::system(("cd '" + fFolder.Path("") + "' && sh .script >.out 2>&1").c_str());
    EXPECT_NE(status, -1);
    return fFolder.Read(".out");
  }

  bool Exists(const std::string& name) const { return std::filesystem::exists(fFolder.Path(name)); }

  test::TempFolder fFolder;
};

TEST_F(FileSafety, NoOutputTakesThePlaceOfAnInput) {
  const std::string detector = fFolder.Read("fine.toml");
  for (const std::string line : {
           "cp fine.toml d.csv; $KELVO fit $HITS -d d.csv -o o.root --csv d.csv",
           "cp fine.toml d.html; $KELVO fit $HITS -d d.html -o o.root --report d.html",
           "cp fine.toml d.root; ln -s d.root l.root; $KELVO fit $HITS -d d.root -o l.root",
           "cp fine.toml d.html; $KELVO report d.html -o ./d.html",
           "cp fine.toml d.svg; $KELVO detector d.svg -o d.svg",
           "cp fine.toml d.svg; $KELVO display d.svg --track 1 -o ./d.svg",
           "cp fine.toml d.csv; $KELVO simulate -d d.csv -o d.csv --tracks 1 --particle mu "
           "--kinetic-energy 1 --seed 1",
           "cp fine.toml h.truth.csv; $KELVO simulate -d h.truth.csv -o h.csv --tracks 1 "
           "--particle mu --kinetic-energy 1 --seed 1",
       }) {
    const std::string printed = Shell(line + "; echo $?");
    EXPECT_NE(printed.find("is both input and output\n2\n"), std::string::npos) << line << '\n'
                                                                                << printed;
    EXPECT_FALSE(Exists("o.root")) << line;
    for (const char* name : {"d.csv", "d.html", "d.root", "d.svg", "h.truth.csv"})
      if (Exists(name)) {
        EXPECT_EQ(fFolder.Read(name), detector) << line;
        std::filesystem::remove(fFolder.Path(name));
      }
    EXPECT_FALSE(Exists("h.csv"));
  }
}

TEST_F(FileSafety, HitsMayComeThroughPipes) {
  const char* const kSame = "cmp expected.csv fits.csv && echo same";
  Shell("$KELVO fit $HITS -d fine.toml -o fits.root --limit 30 --csv expected.csv");
  for (const std::string line : {
           "cat $HITS | $KELVO fit - -d fine.toml -o fits.root --limit 30 --csv fits.csv",
           "zcat $HITS | $KELVO fit - -d fine.toml -o fits.root --limit 30 --csv fits.csv",
           "zcat $HITS | $KELVO fit /dev/stdin -d fine.toml -o fits.root --limit 30 --csv fits.csv",
           "mkfifo pipe; cat $HITS >pipe & "
           "$KELVO fit pipe -d fine.toml -o fits.root --limit 30 --csv fits.csv",
       }) {
    const std::string printed = Shell("rm -f fits.csv; " + line + "; " + kSame);
    EXPECT_NE(printed.find("same\n"), std::string::npos) << line << '\n' << printed;
  }
}

TEST_F(FileSafety, SignalsEndAWaitForAPipe) {
  for (const std::string signal : {"TERM", "HUP"}) {
    const std::string printed = Shell(
        "rm -f pipe; mkfifo pipe; $KELVO fit pipe -d fine.toml -o fits.root & "
        "until ls | grep -q partial; do :; done; kill -" +
        signal + " $!; wait $!; echo $?; ls | grep fits");
    EXPECT_EQ(printed, std::string("kelvo: interrupted, nothing is written\n") +
                           (signal == "TERM" ? "143\n" : "129\n"));
  }
}

TEST_F(FileSafety, ARunClearsWhatAKilledOneLeft) {
  const std::string printed = Shell(
      "mkfifo pipe; $KELVO fit pipe -d fine.toml -o fits.root & "
      "until ls | grep -q partial; do :; done; kill -KILL $!; wait $!; ls | grep -c partial; "
      "$KELVO fit $HITS -d fine.toml -o fits.root --limit 2 >/dev/null; ls | grep fits");
  EXPECT_NE(printed.find("1\nfits.root\n"), std::string::npos) << printed;
  EXPECT_EQ(printed.find("partial\n"), std::string::npos) << printed;
}

TEST_F(FileSafety, WhatCannotBePrintedIsAnError) {
  for (const std::string command : {"dedx Iron", "materials", "detector fine.toml", "--help",
                                    "--version", "fit $HITS -d fine.toml -o fits.root --limit 2"}) {
    const std::string printed = Shell("$KELVO " + command + " >/dev/full; echo $?");
    EXPECT_EQ(printed,
              "kelvo: not all could be printed; is the disk of the standard output full?\n2\n")
        << command;
  }
}

TEST_F(FileSafety, TooLittleAddressSpaceIsToldInOneSentence) {
  if (kIsSanitized) GTEST_SKIP() << "a sanitizer takes more address space than any limit leaves";
  Shell(
      "$KELVO simulate -d fine.toml -o hits.root --tracks 2 --particle mu --kinetic-energy 0.5 "
      "--seed 1");
  for (const std::string megabytes : {"300", "450", "600"})
    for (const std::string command :
         {"fit $HITS -d fine.toml -o fits.root", "fit hits.root -d fine.toml -o fits.root",
          "simulate -d fine.toml -o fits.root --tracks 2 --particle mu --kinetic-energy 1 --seed "
          "1"})
      EXPECT_EQ(
          Shell("ulimit -v " + megabytes + "000; $KELVO " + command + "; echo $?; ls | grep fits"),
          "kelvo: ROOT needs 700 MB of address space, and this process may have " +
              std::to_string(std::stoi(megabytes) * 1024 / 1000) +
              "; raise its limit (ulimit -v)\n2\n")
          << command;
}

TEST_F(FileSafety, AFaultInALibraryIsToldInOneSentence) {
  if (kIsSanitized) GTEST_SKIP() << "a sanitizer reports faults itself";
  // A signal from outside takes the way of one that a damaged file causes inside of ROOT.
  const std::string printed = Shell(
      "mkfifo pipe; $KELVO fit pipe -d fine.toml -o fits.root & "
      "until ls | grep -q partial; do :; done; kill -SEGV $!; wait $!; echo $?");
  EXPECT_EQ(printed,
            "kelvo: a fault in a library ended the work, and nothing more is written; is an input "
            "file damaged, or too little memory left?\n2\n");
  EXPECT_FALSE(Exists("fits.root"));
}

TEST_F(FileSafety, WhatLibrariesPrintIsToldInOneLine) {
  if (kIsSanitized) GTEST_SKIP() << "a sanitizer reports through the same stream";
  // Compressed bytes that ROOT cannot unpack, of which it tells by itself.
  Shell(
      "$KELVO simulate -d fine.toml -o hits.root --tracks 20 --particle mu --kinetic-energy 0.5 "
      "--seed 1");
  std::string bytes = fFolder.Read("hits.root");
  for (std::size_t at = 300; at < bytes.size(); at += 100)
    bytes[at] = static_cast<char>(bytes[at] + 1);
  fFolder.Write("hits.root", bytes);
  const std::string printed = Shell("$KELVO fit hits.root -d fine.toml -o fits.root; echo $?");
  EXPECT_EQ(printed.substr(0, 18), "kelvo: hits.root: ") << printed;
  EXPECT_LE(std::count(printed.begin(), printed.end(), '\n'), 4) << printed;
  EXPECT_EQ(printed.substr(printed.size() - 3), "\n2\n") << printed;
}

TEST_F(FileSafety, NoFileTakesThePlaceOfAClosedStream) {
  Shell("$KELVO fit $HITS -d fine.toml -o fits.root --limit 3 --csv expected.csv");
  for (const std::string closed : {">&-", "2>&-", "<&-", ">&- 2>&- <&-"}) {
    const std::string printed =
        Shell("$KELVO fit $HITS -d fine.toml -o fits.root --limit 3 --csv fits.csv " + closed +
              "; echo $?; cmp expected.csv fits.csv && echo same");
    const bool isTold = closed[0] != '>';
    EXPECT_NE(printed.find(isTold ? "\n0\nsame\n" : "2\nsame\n"), std::string::npos)
        << closed << '\n'
        << printed;
  }
}

TEST_F(FileSafety, TerminalsGetNoControlCharactersFromNames) {
  for (const std::string command :
       {"fit \"$BAD\" -d fine.toml -o fits.root", "fit $HITS -d \"$BAD\" -o fits.root",
        "fit $HITS -d fine.toml -o \"$BAD.root\" --limit 2", "\"$BAD\"", "dedx \"$BAD\"",
        "dedx Iron -o \"$BAD.svg\"", "detector \"$BAD\"", "detector fine.toml -o \"$BAD.svg\"",
        "report \"$BAD\" -o r.html", "display \"$BAD\" --track 1 -o d.svg",
        "fit $HITS -d fine.toml -o fits.root --column \"u=$BAD\"",
        "fit $HITS -d fine.toml -o fits.root --limit \"$BAD\"",
        "simulate -d fine --particle p --beam-momentum 9 --tracks 2 --seed 1 -o \"$BAD.csv\""}) {
    const std::string printed =
        Shell("BAD=$(printf 'a\\033[31m\\302\\233m\\007b'); $KELVO " + command);
    EXPECT_NE(printed.find("a?[31m"), std::string::npos) << command << '\n' << printed;
    EXPECT_EQ(kelvo::Printable(printed), printed) << command;
  }
}

TEST_F(FileSafety, AClosedPipeEndsTheProgramInSilence) {
  const std::string printed = Shell(
      "{ until test -e closed; do :; done; $KELVO materials; echo $? >status; } | "
      "{ exec 0<&-; : >closed; until test -s status; do :; done; cat status; }");
  EXPECT_EQ(printed, "141\n");
}

} // namespace
