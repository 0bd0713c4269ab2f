// Files of hits: what is read from good ones, what is said about bad ones. The expected hits are
// written down; random damage is checked against a few lines that only look for track numbers.

#include "io/FileError.h"
#include "io/HitReader.h"
#include "test/support/TempFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <charconv>
#include <fstream>
#include <random>
#include <set>
#include <thread>

namespace {

using kelvo::Hit3D;
using kelvo::HitReader;
using kelvo::TrackHits;

std::vector<TrackHits> ReadAll(const std::vector<std::string>& files,
                               const kelvo::HitReaderOptions& options = {}) {
  HitReader reader(files, options);
  std::vector<TrackHits> tracks;
  for (TrackHits track; reader.Next(track);) tracks.push_back(track);
  return tracks;
}

void ExpectHit(const Hit3D& hit, const Hit3D& expected) {
  EXPECT_EQ(hit.fView, expected.fView);
  EXPECT_EQ(hit.fX, expected.fX);
  EXPECT_EQ(hit.fY, expected.fY);
  EXPECT_EQ(hit.fZ, expected.fZ);
  EXPECT_EQ(hit.fT, expected.fT);
  EXPECT_EQ(hit.fSigX, expected.fSigX);
  EXPECT_EQ(hit.fSigY, expected.fSigY);
  EXPECT_EQ(hit.fSigZ, expected.fSigZ);
  EXPECT_EQ(hit.fSigT, expected.fSigT);
  EXPECT_EQ(hit.fW, expected.fW);
}

Hit3D XHit(double x, double z, double sigx) {
  Hit3D hit;
  hit.fView = geo::kX;
  hit.fX = x;
  hit.fZ = z;
  hit.fSigX = sigx;
  return hit;
}

Hit3D YHit(double y, double z, double sigy) {
  Hit3D hit;
  hit.fView = geo::kY;
  hit.fY = y;
  hit.fZ = z;
  hit.fSigY = sigy;
  return hit;
}

const char* const kTwoTracks =
    "track,view,u,z,sigu\n"
    "7,X,1.5,3,0.3\n"
    "7,Y,-2.25,9.05,0.25\n"
    "9,Y,4e-1,3,0.5\n";

void ExpectTwoTracks(const std::vector<TrackHits>& tracks) {
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_EQ(tracks[0].fTrack, 7);
  EXPECT_EQ(tracks[1].fTrack, 9);
  ASSERT_EQ(tracks[0].fHits.size(), 2u);
  ASSERT_EQ(tracks[1].fHits.size(), 1u);
  ExpectHit(tracks[0].fHits[0], XHit(1.5, 3, 0.3));
  ExpectHit(tracks[0].fHits[1], YHit(-2.25, 9.05, 0.25));
  ExpectHit(tracks[1].fHits[0], YHit(0.4, 3, 0.5));
  for (const TrackHits& track : tracks) EXPECT_TRUE(track.Good());
}

TEST(HitReader, GivesTheHitsOfOneTrackAfterTheOther) {
  const test::TempFolder folder;
  const std::string file = folder.Write("hits.csv", kTwoTracks);
  const auto tracks = ReadAll({file});
  ExpectTwoTracks(tracks);
  EXPECT_EQ(tracks[0].Place(), file + ", line 2");
  EXPECT_EQ(tracks[1].Place(), file + ", line 4");
}

TEST(HitReader, ReadsCompressedFilesWhateverTheirName) {
  const test::TempFolder folder;
  ExpectTwoTracks(ReadAll({folder.WriteGzip("hits.csv", kTwoTracks)}));
  ExpectTwoTracks(ReadAll({folder.WriteGzip("hits.csv.gz", kTwoTracks)}));
}

TEST(HitReader, ReadsSeveralFilesInTheirOrderEachWithTracksOfItsOwn) {
  const test::TempFolder folder;
  const std::string a = folder.Write("a.csv", kTwoTracks);
  const std::string b = folder.WriteGzip("b.csv.gz", kTwoTracks);
  auto tracks = ReadAll({a, b});
  ASSERT_EQ(tracks.size(), 4u);
  ExpectTwoTracks({tracks[0], tracks[1]});
  ExpectTwoTracks({tracks[2], tracks[3]});
  EXPECT_EQ(tracks[1].fFile, a);
  EXPECT_EQ(tracks[2].fFile, b);
}

TEST(HitReader, TakesWhatPeopleAndProgramsWrite) {
  const test::TempFolder folder;
  const char* const variants[] = {
      // byte-order mark, line ends of Windows, no end of the last line
      "\xEF\xBB\xBFtrack,view,u,z,sigu\r\n7,X,1.5,3,0.3\r\n7,Y,-2.25,9.05,0.25\r\n9,Y,4e-1,3,0.5",
      // comments, empty lines, blanks
      "# made by hand\n\ntrack, view, u, z, sigu\n7 ,X , 1.5, 3,\t0.3\n\n# the other view\n"
      "7,Y,-2.25,9.05,0.25\n   \n9,Y,4e-1,3,0.5\n\n",
      // another order, more columns, quotes, views as numbers, signs, letter case
      "sigu,energy,\"view\",z,u,\"track\"\n0.3,1,0,+3,+1.5,\"7\"\n0.25,,\"y\",9.05,-2.25,7\n"
      "5.0E-1,x,1,3.0,0.4,9\n",
  };
  for (const char* text : variants) ExpectTwoTracks(ReadAll({folder.Write("hits.csv", text)}));
}

TEST(HitReader, ReadsFieldsBetweenQuotationMarks) {
  const test::TempFolder folder;
  const char* const variants[] = {
      // commas and doubled marks inside, in the names and in the lines
      "track,view,\"energy, GeV\",u,z,sigu\n7,X,\"1,5\",1.5,3,0.3\n"
      "7,Y,\"the \"\"second\"\", seen\",-2.25,9.05,0.25\n9,Y,\"\",4e-1,3,0.5\n",
      // everything between marks, blanks around them, marks inside of a field that has none around
      "\"track\",\"view\",\"u\" , \"z\",\"sigu\",5\" tube\n\"7\",\"X\",\"1.5\",\"3\",\"0.3\",5\"\n"
      "7,\"Y\" ,\t\"-2.25\", \"9.05\",\"0.25\",\"\"\"\"\n9,\"Y\",\"4e-1\",\"3\",\"0.5\",a\"b\"\n",
  };
  for (const char* text : variants) ExpectTwoTracks(ReadAll({folder.Write("hits.csv", text)}));
}

TEST(HitReader, ReadsFieldsBetweenSemicolonsAndTabs) {
  for (const char separator : {';', '\t'}) {
    const test::TempFolder folder;
    std::string text = kTwoTracks;
    std::replace(text.begin(), text.end(), ',', separator);
    ExpectTwoTracks(ReadAll({folder.Write("hits.txt", text)}));
  }
}

TEST(HitReader, KnowsAnEmptyFieldBetweenTabs) {
  const test::TempFolder folder;
  const std::string file = folder.Write("hits.tsv",
                                        "track\tname\tview\tu\tz\tsigu\n"
                                        "7\t\tX\t1.5\t3\t0.3\n"
                                        "7\t\"a\tb\"\tX\t 2.5 \t3\t0.3\n"
                                        "7\t\"\"\tX\t\t3\t0.3\n");
  const auto tracks = ReadAll({file});
  ASSERT_EQ(tracks.size(), 1u);
  ASSERT_EQ(tracks[0].fHits.size(), 2u);
  ExpectHit(tracks[0].fHits[1], XHit(2.5, 3, 0.3));
  EXPECT_EQ(tracks[0].fProblems,
            std::vector<std::string>{file + ", line 4, column u: is empty, a number is expected"});
}

TEST(HitReader, SortsLinesInAnyOrderWhenAsked) {
  const test::TempFolder folder;
  kelvo::HitReaderOptions options;
  options.fSort = true;
  std::string sorted = "track,view,u,z,sigu,q\n", mixed = sorted;
  std::vector<std::pair<int, std::string>> lines;
  for (int track = 0; track < 50; track++)
    for (int i = 0; i < 1 + track % 5; i++)
      lines.emplace_back(track, std::to_string(track) + ",X," + std::to_string(i) + ",2,0.3," +
                                    std::to_string(7 * i + track) + "\n");
  std::shuffle(lines.begin(), lines.end(), std::mt19937(4));
  std::vector<int> order; // of first appearance
  for (const auto& [track, line] : lines) {
    mixed += line;
    if (std::find(order.begin(), order.end(), track) == order.end()) order.push_back(track);
  }
  for (const int track : order)
    for (const auto& [number, line] : lines)
      if (number == track) sorted += line;
  const std::string one = folder.Write("sorted.csv", sorted),
                    other = folder.Write("mixed.csv", mixed);
  const auto expected = ReadAll({one, one}), tracks = ReadAll({other, other}, options);
  ASSERT_EQ(tracks.size(), expected.size());
  for (std::size_t t = 0; t < tracks.size(); t++) {
    EXPECT_EQ(tracks[t].fTrack, expected[t].fTrack);
    EXPECT_TRUE(tracks[t].Good());
    ASSERT_EQ(tracks[t].fHits.size(), expected[t].fHits.size());
    EXPECT_EQ(tracks[t].fCharges, expected[t].fCharges);
    for (std::size_t i = 0; i < tracks[t].fHits.size(); i++)
      ExpectHit(tracks[t].fHits[i], expected[t].fHits[i]);
  }
}

TEST(HitReader, KeepsTheProblemsOfSortedLines) {
  const test::TempFolder folder;
  kelvo::HitReaderOptions options;
  options.fSort = true;
  const std::string file = folder.Write("hits.csv",
                                        "track,view,u,z,sigu\n"
                                        "5,X,1,2,0.3\n6,X,1,2,0.3\n5,X,one,2,0.3\n6,Y,1,2,0.3\n");
  const auto tracks = ReadAll({file}, options);
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_EQ(tracks[0].fProblems,
            std::vector<std::string>{file + ", line 4, column u: \"one\" is not a number"});
  EXPECT_EQ(tracks[0].fBadLines, 1u);
  EXPECT_TRUE(tracks[1].Good());
  EXPECT_EQ(tracks[1].fPlace, 3u);

  const std::string bad =
      folder.Write("bad.csv", "track,view,u,z,sigu\n5,X,1,2,0.3\nfive,X,1,2,0.3\n");
  try {
    ReadAll({bad}, options);
    FAIL() << "no error";
  } catch (const kelvo::FileError& e) {
    EXPECT_EQ(e.what(), bad +
                            ", line 3, column track: \"five\" is not a whole number of 64 bits; of "
                            "lines in any order each must have the number of its track");
  }
}

TEST(HitReader, FindsAColumnByANameWithComma) {
  const test::TempFolder folder;
  kelvo::HitReaderOptions options;
  options.fColumns = {{"u", "u, \"measured\""}};
  ExpectTwoTracks(ReadAll({folder.Write("hits.csv",
                                        "track,view,\"u, \"\"measured\"\"\",z,sigu\n"
                                        "7,X,1.5,3,0.3\n"
                                        "7,Y,-2.25,9.05,0.25\n"
                                        "9,Y,4e-1,3,0.5\n")},
                          options));
}

TEST(HitReader, ReadsNoColumnThatItDoesNotUse) {
  const test::TempFolder folder;
  ExpectTwoTracks(ReadAll({folder.Write("hits.csv",
                                        "track,view,u,z,sigu,x,sigy\n"
                                        "7,X,1.5,3,0.3,left,0\n"
                                        "7,Y,-2.25,9.05,0.25,,-1\n"
                                        "9,Y,4e-1,3,0.5,nan,\n")}));
}

TEST(HitReader, ReadsTheOptionalColumns) {
  const test::TempFolder folder;
  const auto tracks = ReadAll(
      {folder.Write("hits.csv", "track,view,u,z,sigu,sigz,t,sigt,w\n0,X,1,2,0.3,0.5,17,1.25,4\n")});
  Hit3D expected = XHit(1, 2, 0.3);
  expected.fSigZ = 0.5;
  expected.fT = 17;
  expected.fSigT = 1.25;
  expected.fW = 4;
  ASSERT_EQ(tracks.size(), 1u);
  ExpectHit(tracks[0].fHits.at(0), expected);
}

TEST(HitReader, MakesTwoHitsOfAPlaneThatMeasuresBoth) {
  const test::TempFolder folder;
  const auto tracks =
      ReadAll({folder.Write("hits.csv", "track,z,x,y,sigx,sigy,sigz\n0,5,1,2,0.1,0.2,0.3\n")});
  ASSERT_EQ(tracks.size(), 1u);
  ASSERT_EQ(tracks[0].fHits.size(), 2u);
  Hit3D x = XHit(1, 5, 0.1);
  Hit3D y = YHit(2, 5, 0.2);
  x.fSigZ = y.fSigZ = 0.3;
  ExpectHit(tracks[0].fHits[0], x);
  ExpectHit(tracks[0].fHits[1], y);
}

TEST(HitReader, FindsColumnsOfOtherNamesThroughAMapping) {
  const test::TempFolder folder;
  kelvo::HitReaderOptions options;
  options.fColumns = {{"track", "event"}, {"sigu", "error"}};
  ExpectTwoTracks(ReadAll({folder.Write("hits.csv",
                                        "event,view,u,z,error,sigu,track\n"
                                        "7,X,1.5,3,0.3,-,-\n"
                                        "7,Y,-2.25,9.05,0.25,-,-\n"
                                        "9,Y,4e-1,3,0.5,-,-\n")},
                          options));
}

TEST(HitReader, GivesNoTrackForATableWithoutHits) {
  const test::TempFolder folder;
  EXPECT_TRUE(ReadAll({folder.Write("hits.csv", "track,view,u,z,sigu\n")}).empty());
  EXPECT_TRUE(ReadAll({folder.Write("hits.csv", "track,view,u,z,sigu")}).empty());
  EXPECT_TRUE(ReadAll({}).empty());
}

TEST(HitReader, SaysWhatIsWrongWithALine) {
  struct Case {
    const char* fLine;
    const char* fMessage; // behind file and line
  };
  const Case cases[] = {
      {"1,X,abc,3,0.3", ", column u: \"abc\" is not a number"},
      {"1,X,1.5x,3,0.3", ", column u: \"1.5x\" is not a number"},
      {"1,X,+-1,3,0.3", ", column u: \"+-1\" is not a number"},
      {"1,X,0x10,3,0.3", ", column u: \"0x10\" is not a number"},
      {"1,X,1 2,3,0.3", ", column u: \"1 2\" is not a number"},
      {"1,X,nan,3,0.3", ", column u: \"nan\" is not a finite number"},
      {"1,X,1,-inf,0.3", ", column z: \"-inf\" is not a finite number"},
      {"1,X,1e999,3,0.3", ", column u: \"1e999\" is too large or too small for a number"},
      {"1,X,,3,0.3", ", column u: is empty, a number is expected"},
      {"1,X,1,3,", ", column sigu: is empty, a number is expected"},
      {"1,X,1,3,0", ", column sigu: \"0\" is not above 0"},
      {"1,X,1,3,-0.3", ", column sigu: \"-0.3\" is not above 0"},
      {"1,Z,1,3,0.3", ", column view: \"Z\" is not a view, which is X or Y, 0 or 1"},
      {"1,,1,3,0.3", ", column view: \"\" is not a view, which is X or Y, 0 or 1"},
      {"1,X,1,3", ": has 4 fields where 5 columns are named"},
      {"1,X,1,3,0.3,9", ": has 6 fields where 5 columns are named"},
      {"1", ": has 1 fields where 5 columns are named"},
      {"1,X,\"1,3,0.3",
       ": has a field that begins with a quotation mark and does not end with one"},
      {"1,X,\"1\"2,3,0.3",
       ": has a field that begins with a quotation mark and does not end with one"},
      {"1,X,\"1,2\",3,0.3", ", column u: \"1,2\" is not a number"},
      {"1,X,\x01\xC3\xA9,3,0.3", ", column u: \"???\" is not a number"},
      {"1,X,1234567890123456789012345678901234567890123456789012345678901x,3,1",
       ", column u: \"123456789012345678901234567890123456789012345678901234567890...\" is not a "
       "number"},
  };
  const test::TempFolder folder;
  for (const Case& c : cases) {
    const std::string file =
        folder.Write("hits.csv", std::string("track,view,u,z,sigu\n1,X,1,2,0.3\n") + c.fLine +
                                     "\n2,Y,1,2,0.3\n");
    const auto tracks = ReadAll({file});
    ASSERT_EQ(tracks.size(), 2u) << c.fLine;
    EXPECT_EQ(tracks[0].fBadLines, 1u) << c.fLine;
    EXPECT_EQ(tracks[0].fProblems.at(0), file + ", line 3" + c.fMessage);
    EXPECT_EQ(tracks[0].fHits.size(), 1u) << c.fLine;
    EXPECT_TRUE(tracks[1].Good()) << c.fLine;
  }
}

TEST(HitReader, SaysWhatIsWrongWithAnOptionalColumn) {
  struct Case {
    const char* fLine;
    const char* fMessage;
  };
  const Case cases[] = {
      {"1,X,1,2,0.3,-1,0,0,1", "sigz: \"-1\" is below 0"},
      {"1,X,1,2,0.3,0,x,0,1", "t: \"x\" is not a number"},
      {"1,X,1,2,0.3,0,0,-2,1", "sigt: \"-2\" is below 0"},
      {"1,X,1,2,0.3,0,0,0,-0.5", "w: \"-0.5\" is below 0"},
  };
  const test::TempFolder folder;
  for (const Case& c : cases) {
    const std::string file = folder.Write(
        "hits.csv", std::string("track,view,u,z,sigu,sigz,t,sigt,w\n") + c.fLine + "\n");
    EXPECT_EQ(ReadAll({file}).at(0).fProblems.at(0), file + ", line 2, column " + c.fMessage);
  }
}

TEST(HitReader, CountsEveryBadLineAndKeepsTheFirstTen) {
  const test::TempFolder folder;
  std::string text = "track,view,u,z,sigu\n";
  for (int i = 0; i < 25; i++) text += "1,X,?,2,0.3\n";
  const auto tracks = ReadAll({folder.Write("hits.csv", text)});
  EXPECT_EQ(tracks.at(0).fBadLines, 25u);
  EXPECT_EQ(tracks.at(0).fProblems.size(), 10u);
}

TEST(HitReader, CountsALineWithoutTrackNumberForTheTrackAroundIt) {
  const test::TempFolder folder;
  const std::string file = folder.Write("hits.csv",
                                        "track,view,u,z,sigu\n"
                                        "one,X,1,2,0.3\n"
                                        "1,X,1,2,0.3\n"
                                        "2,X,1,2,0.3\n"
                                        "2.0,X,1,2,0.3\n"
                                        ",X,1,2,0.3\n"
                                        "2,X,1,2,0.3\n"
                                        "3,X,1,2,0.3\n"
                                        "99999999999999999999,X,1,2,0.3\n");
  const std::string rest = "is not a whole number of 64 bits";
  const auto tracks = ReadAll({file});
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0].fProblems,
            std::vector<std::string>{file + ", line 2, column track: \"one\" " + rest});
  EXPECT_EQ(tracks[1].fProblems,
            (std::vector<std::string>{
                file + ", line 5, column track: \"2.0\" " + rest,
                file + ", line 6, column track: is empty, a whole number is expected"}));
  EXPECT_EQ(
      tracks[2].fProblems,
      std::vector<std::string>{file + ", line 9, column track: \"99999999999999999999\" " + rest});
}

TEST(HitReader, TakesALineWithoutTrackNumberBetweenTwoTracksForOneOfEither) {
  const test::TempFolder folder;
  const std::string file = folder.Write("hits.csv",
                                        "track,view,u,z,sigu\n"
                                        "1,X,1,2,0.3\n"
                                        "x,X,1,2,0.3\n"
                                        "2,X,1,2,0.3\n"
                                        "3,X,1,2,0.3\n");
  const std::string problem =
      file + ", line 3, column track: \"x\" is not a whole number of 64 bits";
  const auto tracks = ReadAll({file});
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0].fProblems, std::vector<std::string>{problem});
  EXPECT_EQ(tracks[1].fProblems,
            std::vector<std::string>{problem + "; the line may be one of this track"});
  EXPECT_FALSE(tracks[0].Good());
  EXPECT_FALSE(tracks[1].Good());
  EXPECT_TRUE(tracks[2].Good());
  EXPECT_EQ(tracks[0].fBadLines + tracks[1].fBadLines, 1u);
}

TEST(HitReader, NamesTheLineAtWhichATrackReturns) {
  const test::TempFolder folder;
  const std::string file = folder.Write("hits.csv",
                                        "track,view,u,z,sigu\n"
                                        "5,X,1,2,0.3\n"
                                        "6,X,1,2,0.3\n"
                                        "5,X,1,2,0.3\n"
                                        "5,Y,1,2,0.3\n");
  const auto tracks = ReadAll({file});
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_TRUE(tracks[0].Good());
  EXPECT_TRUE(tracks[1].Good());
  EXPECT_EQ(tracks[2].fTrack, 5);
  EXPECT_EQ(
      tracks[2].fProblems,
      std::vector<std::string>{file + ", line 4, column track: track 5 had lines further up; the "
                                      "lines of a track must stand together"});
}

TEST(HitReader, RemembersTracksInWhateverOrderTheyCome) {
  const test::TempFolder folder;
  std::vector<int> numbers(2000);
  for (int i = 0; i < 2000; i++) numbers[static_cast<std::size_t>(i)] = 3 * (i / 2) + i % 2 - 1000;
  std::shuffle(numbers.begin(), numbers.end(), std::mt19937(4));
  std::string text = "track,view,u,z,sigu\n";
  for (const int number : numbers) text += std::to_string(number) + ",X,1,2,0.3\n";
  auto tracks = ReadAll({folder.Write("hits.csv", text)});
  ASSERT_EQ(tracks.size(), numbers.size());
  for (const TrackHits& track : tracks) EXPECT_TRUE(track.Good());

  for (const int number : numbers) text += std::to_string(number) + ",X,1,2,0.3\n";
  tracks = ReadAll({folder.Write("hits.csv", text)});
  ASSERT_EQ(tracks.size(), 2 * numbers.size());
  for (std::size_t i = 0; i < tracks.size(); i++)
    EXPECT_EQ(tracks[i].Good(), i < numbers.size()) << i;
}

std::string ErrorOf(const std::vector<std::string>& files,
                    const kelvo::HitReaderOptions& options = {}) {
  try {
    ReadAll(files, options);
  } catch (const kelvo::FileError& e) {
    return e.what();
  }
  return "no error";
}

TEST(HitReader, RefusesWhatIsNoTableOfHits) {
  const test::TempFolder folder;
  const auto error = [&folder](const std::string& text) {
    return ErrorOf({folder.Write("hits.csv", text)});
  };
  const std::string file = folder.Path("hits.csv");
  const std::string empty =
      file + ": is empty; the first line must name the columns, such as track,view,u,z,sigu";
  EXPECT_EQ(error(""), empty);
  EXPECT_EQ(error("\n# nothing\n"), empty);
  EXPECT_EQ(error("PAR1"), file +
                               ": this is a Parquet file; kelvo.fit_tracks of the Python package "
                               "reads it, or write its hits as CSV");
  EXPECT_EQ(error("event,view,u,z,sigu\n"),
            file +
                ", line 1: there is no column \"track\" but \"event, view, u, z, sigu\"; a column "
                "of another name needs a mapping, track=NAME; hits have track,view,u,z,sigu or "
                "track,x,y,z,sigx,sigy");
  EXPECT_EQ(
      error("# hits\ntrack,z,x,y,sigx,sigma_y\n"),
      file +
          ", line 2: there is no column \"sigy\" but \"track, z, x, y, sigx, sigma_y\"; a "
          "column of another name needs a mapping, sigy=NAME; hits have track,view,u,z,sigu or "
          "track,x,y,z,sigx,sigy");
  EXPECT_EQ(error("track,u,view,u,z,sigu\n"), file + ", line 1: names the column \"u\" twice");
  EXPECT_EQ(error("track,view,u,z,sigu\nx,X,1,2,0.3\ny,X,1,2,0.3\n"),
            file +
                ", line 2, column track: \"x\" is not a whole number of 64 bits; no line of the "
                "file has a readable track number");
  EXPECT_EQ(error("track,view,u,z,sigu\n1" + std::string(3 << 20, ' ') + ",X,1,2,0.3\n"),
            file + ", line 2: longer than 1 MiB; this is not a table of hits");
}

TEST(HitReader, RefusesFilesThatCannotBeRead) {
  const test::TempFolder folder;
  const std::string missing = folder.Path("missing.csv");
  EXPECT_EQ(ErrorOf({folder.Write("hits.csv", kTwoTracks), missing}),
            missing + ": cannot be opened: No such file or directory");
  std::filesystem::create_directory(folder.Path("folder"));
  EXPECT_EQ(ErrorOf({folder.Path("folder")}),
            folder.Path("folder") + ": is a folder, a file of hits is expected");
}

/// Many lines that do not compress well, so that there is something behind each cut.
std::string LongTable() {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> coordinate(-60, 60);
  std::string text = "track,view,u,z,sigu\n";
  for (int i = 0; i < 20000; i++)
    text += std::to_string(i / 10) + ",X," + std::to_string(coordinate(random)) + "," +
            std::to_string(i % 10) + ",0.3\n";
  return text;
}

TEST(HitReader, ReportsCompressedDataThatEndTooEarly) {
  const test::TempFolder folder;
  folder.WriteGzip("whole.gz", LongTable());
  const std::string whole = folder.Read("whole.gz");
  for (const double fraction : {0.001, 0.3, 0.7, 0.99999}) {
    const auto size = static_cast<std::size_t>(fraction * static_cast<double>(whole.size()));
    const std::string file = folder.Write("cut.gz", whole.substr(0, size));
    const std::string error = ErrorOf({file});
    EXPECT_EQ(error.find(file + ": cannot be read on after line "), 0u) << error;
    EXPECT_NE(error.find(": the compressed data end too early"), std::string::npos) << error;
  }
}

TEST(HitReader, ReportsDamagedCompressedData) {
  const test::TempFolder folder;
  folder.WriteGzip("whole.gz", LongTable());
  std::string damaged = folder.Read("whole.gz");
  for (std::size_t i = damaged.size() / 2; i < damaged.size() / 2 + 200; i++) damaged[i] ^= 0x55;
  const std::string file = folder.Write("damaged.gz", damaged);
  const std::string error = ErrorOf({file});
  EXPECT_EQ(error.find(file + ": cannot be read on after line "), 0u) << error;
  EXPECT_NE(error.find(": the compressed data are damaged ("), std::string::npos) << error;
}

TEST(HitReader, ReportsWhatFollowsCompressedDataWithoutBeingCompressed) {
  const test::TempFolder folder;
  folder.WriteGzip("one.gz", kTwoTracks);
  const std::string one = folder.Read("one.gz");
  const std::string error = ErrorOf({folder.Write("mixed.gz", one + "11,X,1.5,3,0.3\n")});
  EXPECT_EQ(error, folder.Path("mixed.gz") +
                       ": cannot be read on after line 4: something that is not compressed "
                       "follows the compressed data");
}

TEST(HitReader, ReadsSeveralCompressedPartsAndTheZerosBehindThem) {
  const test::TempFolder folder;
  folder.WriteGzip("one.gz", kTwoTracks);
  folder.WriteGzip("more.gz", "11,X,1.5,3,0.3\n");
  const std::string parts = folder.Read("one.gz") + folder.Read("more.gz");
  for (const std::size_t zeros : {0u, 1u, 1000u, 1000000u}) {
    const auto tracks = ReadAll({folder.Write("parts.gz", parts + std::string(zeros, '\0'))});
    ASSERT_EQ(tracks.size(), 3u);
    EXPECT_EQ(tracks[2].fTrack, 11);
  }
}

TEST(HitReader, ReadsAPipeFromItsFirstByte) {
  const test::TempFolder folder;
  folder.WriteGzip("packed.gz", kTwoTracks);
  for (const std::string& bytes : {std::string(kTwoTracks), folder.Read("packed.gz")}) {
    const std::string pipe = folder.Path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(pipe, std::ios::binary) << bytes; });
    ExpectTwoTracks(ReadAll({pipe}));
    writer.join();
    std::filesystem::remove(pipe);
  }
}

TEST(HitReader, EndsSoonForFilesThatUnpackToNothing) {
  const test::TempFolder folder;
  folder.WriteGzip("empty.gz", std::string(5'000'000, '\n'));
  EXPECT_EQ(ErrorOf({folder.Path("empty.gz")}),
            folder.Path("empty.gz") +
                ", line 1000000: 1000000 lines without data one after the "
                "other; this is not a table of hits");
  std::string text = kTwoTracks;
  for (int i = 0; i < 1'000'001; i++) text += "9,X,1,2,3\n";
  EXPECT_EQ(ErrorOf({folder.Write("long.csv", text)}),
            folder.Path("long.csv") +
                ", line 1000004: track 9 has more than 1000000 hits; is "
                "column track the number of the track?");
}

TEST(HitReader, ConvertsLengthsFromTheUnitOfTheFiles) {
  const test::TempFolder folder;
  const std::string header = "track,x,y,sigx,sigy,z,sigz,t,sigt,w\n";
  const std::string cm = folder.Write("cm.csv", header + "7,1.5,-3,0.3,0.25,9,0.1,5,2,3\n");
  const Hit3D x = ReadAll({cm})[0].fHits[0];
  const Hit3D y = ReadAll({cm})[0].fHits[1];
  for (const auto& [unit, line] :
       std::map<std::string, std::string>{{"cm", "7,1.5,-3,0.3,0.25,9,0.1,5,2,3\n"},
                                          {"mm", "7,15,-30,3,2.5,90,1,5,2,3\n"},
                                          {"m", "7,0.015,-0.03,0.003,0.0025,0.09,0.001,5,2,3\n"},
                                          {"um", "7,15000,-30000,3000,2500,90000,1000,5,2,3\n"}}) {
    kelvo::HitReaderOptions options;
    options.fUnit = unit;
    const auto tracks = ReadAll({folder.Write(unit + ".csv", header + line)}, options);
    ASSERT_EQ(tracks.size(), 1u);
    ExpectHit(tracks[0].fHits[0], x);
    ExpectHit(tracks[0].fHits[1], y);
  }
  kelvo::HitReaderOptions options;
  options.fUnit = "inch";
  try {
    const HitReader reader({}, options);
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "the unit \"inch\" is none of cm, mm, m or um");
  }
}

TEST(HitReader, TakesWhatHitsLackFromTheDetector) {
  const test::TempFolder folder;
  const auto detector = geo::PlaneDetector::FromText(R"(name = "two"
world = "Vacuum"
[[material]]
name = "Vacuum"
density = 1e-25
[[plane]]
name = "first"
view = "X"
count = 4
cell = { width = 3, length = 12, depth = 1 }
filling = "Vacuum"
resolution = 0.25
[[plane]]
name = "second"
view = "Y"
count = 4
cell = { width = 3, length = 12, depth = 1 }
filling = "Vacuum"
resolution = 0.5
[[stack]]
parts = ["first", 2]
[[stack]]
parts = ["second", 1, "second"]
offset = [0, 0, 0.125]
)",
                                                     "two.toml");
  kelvo::HitReaderOptions options;
  options.fPlanes = &detector;
  // Hits have the nominal position of a plane, without its offset.
  const std::string text = "track,view,u,plane\n1,X,1,0\n1,X,2,first\n1,Y,3,2\n1,X,4,2\n";
  const auto hits = ReadAll({folder.Write("bare.csv", text)}, options)[0].fHits;
  ASSERT_EQ(hits.size(), 4u);
  ExpectHit(hits[0], XHit(1, 0.5, 0.25));
  ExpectHit(hits[1], XHit(2, 0.5, 0.25));
  ExpectHit(hits[2], YHit(3, 5.5, 0.5));
  ExpectHit(hits[3], XHit(4, 5.5, 0.25)); // of the plane of its view

  options.fSigma = 3;
  options.fUnit = "mm";
  const std::string depths = folder.Write("z.csv", "track,view,u,z\n1,X,10,5\n");
  ExpectHit(ReadAll({depths}, options)[0].fHits[0], XHit(1, 0.5, 0.3));
  // What is in the file counts; a column of planes beside z is not looked at.
  const std::string full = folder.Write("u.csv", "track,view,u,z,sigu,plane\n1,X,10,5,2,?\n");
  ExpectHit(ReadAll({full}, options)[0].fHits[0], XHit(1, 0.5, 0.2));

  for (const std::string plane : {"3", "-1", "0.5", "second", "third", ""}) {
    const auto track =
        ReadAll({folder.Write("bad.csv", "track,view,u,plane\n1,X,1," + plane + "\n")}, options)[0];
    EXPECT_FALSE(track.Good()) << plane;
    EXPECT_EQ(track.fProblems[0], folder.Path("bad.csv") + ", line 2, column plane: \"" + plane +
                                      "\" is not the number, from 0, or name of one plane");
  }
}

TEST(HitReader, RefusesAMappingOfAColumnThatHitsDoNotHave) {
  kelvo::HitReaderOptions options;
  options.fColumns = {{"energy", "E"}};
  try {
    const HitReader reader({}, options);
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(),
                 "column \"energy\" is none of those that hits have: track, view, u, sigu, x, y, "
                 "sigx, sigy, z, sigz, t, sigt, w, q, plane");
  }
}

TEST(HitReader, KnowsHowFarItIs) {
  const test::TempFolder folder;
  const std::string file = folder.WriteGzip("hits.csv.gz", LongTable());
  HitReader reader({file, file});
  EXPECT_EQ(reader.Fraction(), 0);
  double last = 0;
  bool middle = false;
  for (TrackHits track; reader.Next(track);) {
    EXPECT_GE(reader.Fraction(), last);
    last = reader.Fraction();
    middle = middle || (last > 0.4 && last < 0.6);
  }
  EXPECT_TRUE(middle);
  EXPECT_EQ(reader.Fraction(), 1);
}

/// The numbers that begin lines, by another way: what a reader must not lose.
std::set<long long> TrackNumbers(const std::string& text) {
  std::set<long long> numbers;
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::string field = line.substr(0, line.find(','));
    if (!field.empty() && field.back() == '\r') field.pop_back();
    long long number = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
    if (error == std::errc() && end == field.data() + field.size()) numbers.insert(number);
  }
  return numbers;
}

TEST(HitReader, LosesNoTrackInDamagedFiles) {
  const test::TempFolder folder;
  std::mt19937 random(6);
  const std::string header = "track,view,u,z,sigu\n";
  std::string good;
  for (int i = 0; i < 300; i++)
    good += std::to_string(100 + i / 6) + (i % 2 ? ",X," : ",Y,") + std::to_string(i * 0.37) + "," +
            std::to_string(i % 6) + ".5,0.3\n";
  // Blanks and quotes around a number are taken off by the reader and not by the other way.
  const std::string bytes = "0123456789.,,,\n\n\rXYxy-+eE#nainf\0\x80z;\xFF";
  for (int round = 0; round < 500; round++) {
    std::string body = good;
    const int damages = 1 + static_cast<int>(random() % 20);
    for (int d = 0; d < damages; d++) {
      const std::size_t at = random() % body.size();
      const char byte = bytes[random() % bytes.size()];
      switch (random() % 4) {
        case 0:
          body[at] = byte;
          break;
        case 1:
          body.insert(at, 1, byte);
          break;
        case 2:
          body.erase(at, 1 + random() % 30);
          break;
        case 3:
          body.insert(at, body.substr(random() % body.size(), random() % 60));
          break;
      }
    }
    const std::string text = header + body;
    std::set<long long> found;
    for (const TrackHits& track : ReadAll({folder.Write("hits.csv", text)})) {
      found.insert(track.fTrack);
      EXPECT_EQ(track.Good(), track.fProblems.empty());
      for (const Hit3D& hit : track.fHits) {
        EXPECT_TRUE(std::isfinite(hit.fX) && std::isfinite(hit.fY) && std::isfinite(hit.fZ));
        EXPECT_GT(hit.fView == geo::kX ? hit.fSigX : hit.fSigY, 0);
      }
    }
    EXPECT_EQ(found, TrackNumbers(text)) << "round " << round;
  }
}

} // namespace
