// Fits in a data frame: the bits of those from file to file, for any number of threads and for
// columns of any type, and sentences for what cannot be used.

#include "geo/PlaneDetector.h"
#include "io/FitReader.h"
#include "run/FitFile.h"
#include "run/FitFrame.h"
#include "test/support/BundledDetector.h"
#include "test/support/SameColumn.h"
#include "test/support/TempFolder.h"

#include <TFile.h>
#include <TROOT.h>
#include <TTree.h>
#include <gtest/gtest.h>

#include <ROOT/RDFHelpers.hxx>
#include <ROOT/RDataFrame.hxx>
#include <regex>

#include <cmath>
#include <map>
#include <random>

namespace {

using kelvo::FitRow;
using ROOT::RDF::RNode;

const char* const kDetector = KELVO_SOURCE_DIR "/detectors/fine.toml";

std::shared_ptr<const geo::PlaneDetector> Fine() {
  return std::make_shared<geo::PlaneDetector>(geo::PlaneDetector::FromFile(kDetector));
}

std::string ReadText(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

/// The hits of one track, as columns.
struct Track {
  std::vector<int> fView;
  std::vector<double> fU, fZ, fSigU;
};

/// Nearly straight tracks of 4 to 23 planes. All numbers are exact in single precision. Of twenty,
/// one has a single hit and one a hit that cannot be used.
std::vector<Track> MakeTracks(std::size_t n) {
  std::mt19937 random(7);
  std::normal_distribution<double> gauss(0, 0.25);
  std::vector<Track> tracks(n);
  for (std::size_t i = 0; i < n; i++) {
    const std::size_t planes = i % 20 == 13 ? 1 : 4 + i % 20;
    for (std::size_t p = 0; p < planes; p++) {
      const double z = 3 + 6 * static_cast<double>(p);
      tracks[i].fView.push_back(p % 2 == 0 ? 0 : 1);
      tracks[i].fZ.push_back(z);
      tracks[i].fU.push_back(static_cast<float>(0.125 * z + gauss(random)));
      tracks[i].fSigU.push_back(0.25);
    }
    if (i % 20 == 17) tracks[i].fSigU[2] = 0;
  }
  return tracks;
}

/// Writes them as a tree of several clusters, so that threads share its entries.
std::string WriteTree(const std::string& name, const std::vector<Track>& tracks) {
  TFile file(name.c_str(), "RECREATE");
  auto* tree = new TTree("hits", "");
  tree->SetAutoFlush(10);
  Long64_t number = 0;
  Track track;
  tree->Branch("track", &number);
  tree->Branch("view", &track.fView);
  tree->Branch("u", &track.fU);
  tree->Branch("z", &track.fZ);
  tree->Branch("sigu", &track.fSigU);
  for (const Track& one : tracks) {
    track = one;
    tree->Fill();
    number++;
  }
  file.Write();
  return name;
}

std::vector<FitRow> FitFromFileToFile(const test::TempFolder& folder, const std::string& hits,
                                      const geo::PlaneDetector& detector,
                                      const kelvo::TrackFitOptions& fit = {}) {
  kelvo::FitFileOptions options;
  options.fInputs = {hits};
  options.fOutput = folder.Path("fits.root");
  options.fFit = fit;
  kelvo::FitFile(detector, options);
  kelvo::FitReader reader(options.fOutput);
  std::vector<FitRow> rows;
  for (long long i = 0; i < reader.Entries(); i++)
    rows.push_back(reader.Read(i, kelvo::FitPart::kAll));
  return rows;
}

/// Messages of a file begin with the place of the track in it.
std::string WithoutPlace(const std::string& message) {
  const std::size_t hit = message.find(", hit ");
  return hit == std::string::npos ? message : message.substr(hit + 2);
}
template <typename T>
const T& WithoutPlace(const T& value) {
  return value;
}

/// Compares the columns of a frame with the rows of a file. What is booked is compared later, when
/// all columns can be had in one go.
class Comparison {
public:
  Comparison(const RNode& fits, const std::vector<FitRow>& rows, std::size_t hypotheses)
      : fFits(fits), fRows(rows), fEach(hypotheses), fTrack(fFits.Take<Long64_t>("track")) {
    kelvo::VisitScalars([this](const std::string& name, auto member) {
      if (name != "track") Book<true>(name, member);
    });
    kelvo::VisitVectors(
        [this](const std::string& name, auto member) { Book<false>(name, member); });
  }

  void Run() {
    EXPECT_EQ(fTrack->size(), fRows.size() / fEach);
    for (const auto& compare : fComparisons) compare();
  }

private:
  const FitRow& Row(std::size_t i, std::size_t h) {
    return fRows[static_cast<std::size_t>(fTrack->at(i)) * fEach + h];
  }

  std::size_t Best(std::size_t i) {
    for (std::size_t h = 0; h < fEach; h++)
      if (Row(i, h).fBest) return h;
    return 0;
  }

  template <bool kEach, typename T>
  void Book(const std::string& name, T FitRow::*member) {
    auto best = fFits.Take<T>("fit_" + name);
    fComparisons.push_back([=]() mutable {
      for (std::size_t i = 0; i < fTrack->size(); i++)
        EXPECT_TRUE(test::SameColumn<T>(best->at(i), WithoutPlace(Row(i, Best(i)).*member)))
            << name << ", track " << fTrack->at(i);
    });
    if constexpr (kEach) {
      auto each = fFits.Take<ROOT::RVec<T>>("fit_each_" + name);
      fComparisons.push_back([=]() mutable {
        for (std::size_t i = 0; i < fTrack->size(); i++) {
          ASSERT_EQ(each->at(i).size(), fEach);
          for (std::size_t h = 0; h < fEach; h++)
            EXPECT_TRUE(test::SameColumn<T>(each->at(i)[h], WithoutPlace(Row(i, h).*member)))
                << name << ", track " << fTrack->at(i) << ", hypothesis " << h;
        }
      });
    }
  }

  RNode fFits;
  const std::vector<FitRow>& fRows;
  std::size_t fEach;
  ROOT::RDF::RResultPtr<std::vector<Long64_t>> fTrack;
  std::vector<std::function<void()>> fComparisons;
};

void Compare(const RNode& fits, const std::vector<FitRow>& rows, std::size_t hypotheses = 3) {
  Comparison(fits, rows, hypotheses).Run();
}

TEST(FitFrame, GivesTheBitsOfTheFileForAnyNumberOfThreads) {
  const test::TempFolder folder;
  const std::string hits = WriteTree(folder.Path("hits.root"), MakeTracks(400));
  const auto rows = FitFromFileToFile(folder, hits, *Fine());
  for (const unsigned threads : {1u, 2u, 4u}) {
    if (threads > 1) ROOT::EnableImplicitMT(threads);
    Compare(kelvo::DefineFit(ROOT::RDataFrame("hits", hits), Fine()), rows);
    if (threads > 1) ROOT::DisableImplicitMT();
  }
}

TEST(FitFrame, FitsAsTheOptionsSay) {
  const test::TempFolder folder;
  const std::string hits = WriteTree(folder.Path("hits.root"), MakeTracks(40));
  kelvo::TrackFitOptions options;
  options.fHypotheses = {2212, 13};
  options.fBeamMomentum = 2;
  const auto rows = FitFromFileToFile(folder, hits, *Fine(), options);
  Compare(kelvo::DefineFit(ROOT::RDataFrame("hits", hits), Fine(), options), rows, 2);
}

TEST(FitFrame, AddsTheOffsetsOfPlanesToTheirHits) {
  const test::TempFolder folder;
  const std::string hits = WriteTree(folder.Path("hits.root"), MakeTracks(40));
  std::string text = ReadText(kDetector);
  const std::string stack = "\n[[stack]]\n";
  ASSERT_NE(text.find(stack), std::string::npos);
  text.insert(text.find(stack) + stack.size(), "offset = [0.5, -0.5]\n");
  const auto detector =
      std::make_shared<geo::PlaneDetector>(geo::PlaneDetector::FromText(text, "shifted"));
  const auto rows = FitFromFileToFile(folder, hits, *detector);
  Compare(kelvo::DefineFit(ROOT::RDataFrame("hits", hits), detector), rows);
}

/// A frame without a file, whose columns are of the types that are asked for.
template <typename Vector, typename Views>
RNode FrameOf(const std::vector<Track>& tracks) {
  const auto column = [&tracks](auto member, auto vector) {
    return [&tracks, member](ULong64_t entry) {
      decltype(vector) values;
      for (const auto& value : tracks[entry].*member) {
        using T = typename decltype(vector)::value_type;
        if constexpr (std::is_same_v<T, std::string>)
          values.push_back(value == 0 ? "X" : "Y");
        else
          values.push_back(static_cast<T>(value));
      }
      return values;
    };
  };
  return ROOT::RDataFrame(tracks.size())
      .Define("track", [](ULong64_t entry) { return static_cast<Long64_t>(entry); }, {"rdfentry_"})
      .Define("view", column(&Track::fView, Views()), {"rdfentry_"})
      .Define("u", column(&Track::fU, Vector()), {"rdfentry_"})
      .Define("z", column(&Track::fZ, Vector()), {"rdfentry_"})
      .Define("sigu", column(&Track::fSigU, Vector()), {"rdfentry_"});
}

TEST(FitFrame, ReadsVectorsOfAnyType) {
  const test::TempFolder folder;
  const auto tracks = MakeTracks(30);
  const auto rows = FitFromFileToFile(folder, WriteTree(folder.Path("hits.root"), tracks), *Fine());
  const auto compare = [&](const RNode& frame) { Compare(kelvo::DefineFit(frame, Fine()), rows); };
  compare(FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks));
  compare(FrameOf<ROOT::RVecF, ROOT::RVec<char>>(tracks));
  compare(FrameOf<std::vector<double>, std::vector<std::string>>(tracks));
  compare(FrameOf<std::vector<float>, std::vector<short>>(tracks));
  compare(FrameOf<ROOT::RVecF, ROOT::RVec<bool>>(tracks));
  compare(FrameOf<std::vector<float>, std::vector<std::int64_t>>(tracks));
  compare(FrameOf<std::vector<float>, std::vector<unsigned char>>(tracks));
}

TEST(FitFrame, ReadsColumnsOfOtherNames) {
  const auto tracks = MakeTracks(3);
  const RNode frame = FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks);
  const RNode renamed =
      ROOT::RDF::RNode(frame).Define("measured", [](const ROOT::RVecD& u) { return u + 1; }, {"u"});
  auto fits = kelvo::DefineFit(renamed, Fine(), {}, {{"u", "measured"}});
  auto x = fits.Take<double>("fit_x");
  auto here = kelvo::DefineFit(frame, Fine()).Take<double>("fit_x");
  for (std::size_t i = 0; i < 3; i++) EXPECT_NEAR(x->at(i), here->at(i) + 1, 0.05);
}

TEST(FitFrame, ReadsPlanesThatMeasureBothCoordinates) {
  const auto telescope = std::make_shared<geo::PlaneDetector>(
      geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/telescope.toml"));
  const auto along = [&](double at0, double slope, std::size_t axis) {
    return [=](ULong64_t) {
      ROOT::RVecD values;
      for (const geo::ActivePlane& plane : telescope->Planes())
        values.push_back(at0 + slope * (plane.ZMid() - plane.fOffset[2]) - plane.fOffset[axis]);
      return values;
    };
  };
  const auto constant = [&](double value) {
    return [=](ULong64_t) { return ROOT::RVecD(telescope->Planes().size(), value); };
  };
  kelvo::TrackFitOptions beam;
  beam.fBeamMomentum = 120;
  auto fits = kelvo::DefineFit(ROOT::RDataFrame(1)
                                   .Define("x", along(1, 0.01, 0), {"rdfentry_"})
                                   .Define("y", along(1, -0.02, 1), {"rdfentry_"})
                                   .Define("z", along(0, 1, 2), {"rdfentry_"})
                                   .Define("sigx", constant(0.007), {"rdfentry_"})
                                   .Define("sigy", constant(0.0014), {"rdfentry_"}),
                               telescope, beam);
  auto chi2x = fits.Max<double>("fit_chi2_x");
  auto chi2y = fits.Max<double>("fit_chi2_y");
  auto slope = fits.Define("slope", "fit_uy / fit_uz").Max<double>("slope");
  EXPECT_LT(*chi2x, 1e-12);
  EXPECT_LT(*chi2y, 1e-12);
  EXPECT_NEAR(*slope, -0.02, 1e-9);
}

TEST(FitFrame, SaysWhatIsWrongWithATrack) {
  auto tracks = MakeTracks(6);
  tracks[0].fU[2] = std::numeric_limits<double>::quiet_NaN();
  tracks[1].fView[1] = 7;
  tracks[2].fU.pop_back();
  tracks[3] = Track();
  tracks[4].fSigU[0] = -1;
  auto fits = kelvo::DefineFit(FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks), Fine());
  auto status = fits.Take<int>("fit_status");
  auto message = fits.Take<std::string>("fit_message");
  auto p = fits.Take<double>("fit_p");
  auto pulls = fits.Take<ROOT::RVec<float>>("fit_pull");
  EXPECT_EQ(*status, (std::vector<int>{2, 2, 2, 1, 2, 0}));
  EXPECT_EQ(message->at(0), "hit 2, column u: is not a finite number");
  EXPECT_EQ(message->at(1), "hit 1, column view: is not a view, which is X or Y, 0 or 1");
  EXPECT_EQ(message->at(2), "column u: has 5 values where column z has 6");
  EXPECT_EQ(message->at(4), "hit 0, column sigu: is not above 0");
  EXPECT_EQ(message->at(5), "");
  for (std::size_t i = 0; i < 5; i++) {
    EXPECT_TRUE(std::isnan(p->at(i)));
    EXPECT_TRUE(pulls->at(i).empty());
  }
}

std::string ErrorOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "no error";
}

TEST(FitFrame, SaysWhichColumnIsMissingAndWhichThereAre) {
  const auto tracks = MakeTracks(1);
  RNode frame = ROOT::RDataFrame(1)
                    .Define("u", [] { return ROOT::RVecD(); })
                    .Define("view", [] { return ROOT::RVecI(); })
                    .Define("depth", [] { return ROOT::RVecD(); });
  EXPECT_EQ(ErrorOf([&] { kelvo::DefineFit(frame, Fine()); }),
            "the data frame: there is no column \"z\" but \"depth, u, view\"; a column of another "
            "name needs a mapping, z=NAME; hits have track,view,u,z,sigu or track,x,y,z,sigx,sigy");
  EXPECT_EQ(
      ErrorOf([&] {
        kelvo::DefineFit(frame, Fine(), {}, {{"Z", "depth"}});
      }),
      "column \"Z\" is none of those that hits have: track, view, u, sigu, x, y, sigx, sigy, z, "
      "sigz, t, sigt, w, q, plane");
}

TEST(FitFrame, RefusesWhatIsNoVectorOfNumbers) {
  const auto tracks = MakeTracks(1);
  const RNode frame = FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks);
  const auto error = [&](const RNode& other) {
    return ErrorOf([&] { kelvo::DefineFit(other, Fine(), {}, {{"sigu", "other"}}); });
  };
  const std::string begin = "the data frame, column other: is of the type ";
  const std::string end = ", which is no vector of numbers";
  EXPECT_EQ(error(RNode(frame).Define("other", [] { return 0.25; })), begin + "double" + end);
  const std::string nested =
      error(RNode(frame).Define("other", [] { return std::vector<std::vector<int>>(); }));
  EXPECT_NE(nested.find("vector<vector<int>"), std::string::npos) << nested;
  EXPECT_NE(nested.find(end), std::string::npos) << nested;
}

TEST(FitFrame, RefusesWhatCannotBeFittedBeforeTheFirstTrack) {
  const auto tracks = MakeTracks(1);
  const RNode frame = FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks);
  EXPECT_EQ(ErrorOf([&] { kelvo::DefineFit(frame, nullptr); }),
            "there is no detector: its pointer is null");
  kelvo::TrackFitOptions options;
  options.fScatteringFactor = 0;
  EXPECT_EQ(ErrorOf([&] { kelvo::DefineFit(frame, Fine(), options); }),
            "fScatteringFactor is 0; it must be above 0 and at most 100");
  const auto telescope = std::make_shared<geo::PlaneDetector>(geo::PlaneDetector::FromText(
      std::regex_replace(BundledDetector("telescope").Text(), std::regex("\"Air\""), "\"Mist\""),
      "telescope.toml"));
  EXPECT_EQ(ErrorOf([&] { kelvo::DefineFit(frame, telescope); }).substr(0, 49),
            "the detector \"telescope\" has Mist, of which neith");
}

TEST(FitFrame, KeepsItsDetector) {
  const auto tracks = MakeTracks(2);
  std::weak_ptr<const geo::PlaneDetector> watched;
  {
    auto detector = Fine();
    watched = detector;
    auto fits = kelvo::DefineFit(FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks), detector);
    detector.reset();
    EXPECT_FALSE(watched.expired());
    EXPECT_EQ(*fits.Max<int>("fit_status"), 0);
  }
  EXPECT_TRUE(watched.expired());
}

// What a column holds for a variation of the hits must not depend on which one was fitted last.
TEST(FitFrame, FitsEachVariationOfTheHits) {
  const auto tracks = MakeTracks(4);
  const auto shifted = [](const ROOT::RVecD& u) { return ROOT::RVec<ROOT::RVecD>{u + 10, u + 20}; };
  RNode varied = FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks).Vary("u", shifted, {"u"}, 2, "shift");
  auto fits = kelvo::DefineFit(varied, Fine());
  auto nominal = fits.Sum<double>("fit_x");
  auto all = ROOT::RDF::Experimental::VariationsFor(nominal);
  auto nominalSlopes = fits.Sum<double>("fit_ux");
  auto allSlopes = ROOT::RDF::Experimental::VariationsFor(nominalSlopes);
  EXPECT_NEAR(all["shift:0"], all["nominal"] + 4 * 10, 0.5);
  EXPECT_NEAR(all["shift:1"], all["nominal"] + 4 * 20, 1);
  EXPECT_EQ(
      all["nominal"],
      *kelvo::DefineFit(FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks), Fine()).Sum<double>("fit_x"));
  EXPECT_NEAR(allSlopes["shift:0"], allSlopes["nominal"], 0.02);
}

TEST(FitFrame, HasRoomForASecondFit) {
  const auto tracks = MakeTracks(4);
  kelvo::TrackFitOptions pion;
  pion.fHypotheses = {211};
  const RNode frame = FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks);
  auto both = kelvo::DefineFit(kelvo::DefineFit(frame, Fine()), Fine(), pion, {}, "pion_");
  auto three = both.Take<ROOT::RVecI>("fit_each_pdg");
  auto one = both.Take<ROOT::RVecI>("pion_each_pdg");
  auto p = both.Take<double>("pion_p");
  auto alone = kelvo::DefineFit(frame, Fine(), pion).Take<double>("fit_p");
  for (std::size_t i = 0; i < 4; i++) {
    EXPECT_EQ(three->at(i).size(), 3u);
    EXPECT_EQ(one->at(i).size(), 1u);
    EXPECT_EQ(p->at(i), alone->at(i));
  }
}

TEST(FitFrame, StoresWhatUsersSeeAndNoMore) {
  const test::TempFolder folder;
  const auto tracks = MakeTracks(20);
  auto fits = kelvo::DefineFit(FrameOf<ROOT::RVecD, ROOT::RVecI>(tracks), Fine());
  const auto names = fits.GetColumnNames();
  for (const std::string& name : names) EXPECT_NE(name.substr(0, 3), "rdf") << name;
  fits.Snapshot("fits", folder.Path("fits.root"));
  ROOT::RDataFrame stored("fits", folder.Path("fits.root"));
  const auto sorted = [](std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
  };
  EXPECT_EQ(sorted(stored.GetColumnNames()), sorted(names));
  EXPECT_EQ(*stored.Sum<int>("fit_ndf"), *fits.Sum<int>("fit_ndf"));
}

} // namespace
