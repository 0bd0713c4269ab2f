#include "app/Command.h"
#include "app/CommandParts.h"
#include "draw/ReportData.h"
#include "draw/TrackDisplay.h"
#include "draw/TrackPage.h"
#include "geo/Detector.h"
#include "io/FileNames.h"
#include "io/FitReader.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo display fits.root --track 17 -o track17.svg
      draws track 17 under the hypothesis that fits it best
  kelvo display fits.root --track 17 --hypothesis p -o track17.pdf
      draws it as a proton, for print
  kelvo display fits.root --track 3 17 --worst 10 -o tracks.html
      shows two tracks and the ten with the smallest probability of chi-square on one page, to be
      enlarged and moved; with -o track.svg they are track-3.svg, track-17.svg and so on
Exit status: 0 all is written, 1 some tracks are not fitted, 2 wrong usage or files.)";

struct DisplayArguments {
  std::string fFits;
  std::vector<long long> fTracks;
  std::size_t fWorst = 0;
  std::string fHypothesis;
  std::string fOutput;
};

/// What a file has of one track.
struct FoundTrack {
  long long fEntry = -1;        // of the wanted hypothesis, -1: none
  long long fFirst = -1;        // any entry of the track, -1: none
  unsigned long long fMore = 0; // further tracks of that number
  std::string fHypotheses;      // of the track, for messages
};

std::map<long long, FoundTrack> Find(FitReader& fits, const std::vector<long long>& tracks,
                                     const Particle* wanted) {
  std::map<long long, FoundTrack> all;
  for (const long long track : tracks) all[track];
  for (long long i = 0; i < fits.Entries() && !all.empty(); i++) {
    const FitRow& row = fits.Read(i, FitPart::kNames);
    const auto at = all.find(row.fTrack);
    if (at == all.end()) continue;
    FoundTrack& found = at->second;
    const Particle* particle = FindParticle(row.fPDG);
    const std::string name = particle ? particle->fName : std::to_string(row.fPDG);
    const bool isWanted = wanted ? particle == wanted : row.fBest;
    if (isWanted && found.fEntry >= 0) found.fMore++;
    if (isWanted && found.fEntry < 0) found.fEntry = i;
    if (found.fFirst < 0) found.fFirst = i;
    if (found.fHypotheses.find(name) == std::string::npos)
      found.fHypotheses += (found.fHypotheses.empty() ? "" : ", ") + name;
  }
  return all;
}

long long EntryToDraw(const FoundTrack& found, long long number, const DisplayArguments& a) {
  const std::string track = std::to_string(number);
  if (found.fFirst < 0) throw std::invalid_argument(a.fFits + ": has no track " + track);
  if (!a.fHypothesis.empty() && found.fEntry < 0)
    throw std::invalid_argument(a.fFits + ": track " + track + " is not there as " + a.fHypothesis +
                                ", only as " + found.fHypotheses);
  if (found.fMore > 0)
    std::cerr << "kelvo: " << a.fFits << " has " << found.fMore + 1 << " tracks of the number "
              << track << "; the first is drawn\n";
  return found.fEntry >= 0 ? found.fEntry : found.fFirst;
}

/// The tracks that are asked for by their numbers, then the worst ones; each once.
std::vector<long long> EntriesToDraw(FitReader& fits, const DisplayArguments& a) {
  const Particle* wanted = a.fHypothesis.empty() ? nullptr : FindParticle(a.fHypothesis);
  const auto found = Find(fits, a.fTracks, wanted);
  std::vector<long long> entries;
  const auto add = [&entries](long long entry) {
    if (std::find(entries.begin(), entries.end(), entry) == entries.end()) entries.push_back(entry);
  };
  for (const long long track : a.fTracks) add(EntryToDraw(found.at(track), track, a));
  if (a.fWorst > 0)
    for (const long long entry : WorstTracks(fits, a.fWorst)) add(entry);
  return entries;
}

/// Tells the tracks that are not fitted, and leaves them out.
void DropUnfitted(FitReader& fits, std::vector<long long>& entries) {
  const auto isUnfitted = [&fits](long long entry) {
    const FitRow& row = fits.Read(entry, FitPart::kScalars);
    if (row.fStatus != 0)
      std::cerr << "kelvo: track " << row.fTrack << " is not fitted: " << row.fMessage << '\n';
    return row.fStatus != 0;
  };
  entries.erase(std::remove_if(entries.begin(), entries.end(), isUnfitted), entries.end());
}

bool IsPage(const std::string& file) {
  return EndsIn({".html", ".htm"})(file).empty();
}

/// The name of each picture: the given one for one picture, else with the track's number before the
/// ending.
std::vector<std::string> PictureNames(FitReader& fits, const std::vector<long long>& entries,
                                      const std::string& output) {
  if (entries.size() == 1) return {output};
  const std::filesystem::path path(output);
  const std::string stem = (path.parent_path() / path.stem()).string();
  std::map<std::string, int> seen; // several files of hits may each have a track of a number
  std::vector<std::string> names;
  for (const long long entry : entries) {
    std::string name = stem + "-" + std::to_string(fits.Read(entry, FitPart::kNames).fTrack);
    if (const int again = seen[name]++) name += "-" + std::to_string(again + 1);
    names.push_back(name + path.extension().string());
  }
  return names;
}

int Run(const DisplayArguments& a) {
  if (a.fTracks.empty() && a.fWorst == 0)
    throw std::invalid_argument("which tracks? --track ID... or --worst N says it");
  CheckApart({a.fFits}, {a.fOutput});
  FitReader fits(a.fFits);
  if (!fits.HasVectors())
    throw std::invalid_argument(a.fFits +
                                ": has no hits and planes to draw; fit again without --scalars");
  std::vector<long long> entries = EntriesToDraw(fits, a);
  const std::size_t wanted = entries.size();
  DropUnfitted(fits, entries);
  const int status = entries.size() < wanted ? kSomeUnusable : 0;
  if (entries.empty()) return kSomeUnusable;
  const auto detector = geo::Detector::PlanesOfText(fits.Text("detector"), a.fFits + ", detector");
  if (IsPage(a.fOutput)) {
    WriteTrackPage(fits, detector.get(), entries, a.fOutput);
    std::printf("written: %s\n", Printable(a.fOutput).c_str());
    return status;
  }
  const std::vector<std::string> names = PictureNames(fits, entries, a.fOutput);
  CheckApart({a.fFits}, names);
  for (std::size_t i = 0; i < entries.size(); i++) {
    DrawTrack(detector.get(), fits.Read(entries[i], FitPart::kAll)).Save(names[i]);
    std::printf("written: %s\n", Printable(names[i]).c_str());
  }
  return status;
}

CLI::Validator PageOrPictureName() {
  const auto check = [](std::string& text) -> std::string {
    if (IsPage(text)) return "";
    const std::string problem = PictureName()(text);
    return problem.empty() ? "" : problem + ", or in .html for a page";
  };
  return {check, ""};
}

} // namespace

Command MakeDisplayCommand(CLI::App& program) {
  CLI::App* display = program.add_subcommand("display", "Draws fitted tracks.");
  display->footer(kExamples);
  auto arguments = std::make_shared<DisplayArguments>();
  display->add_option("fits", arguments->fFits, "File of fits, from kelvo fit")
      ->required()
      ->type_name("FILE");
  display->add_option("--track", arguments->fTracks, "Numbers of tracks")
      ->expected(1, -1)
      ->check(WholeNumber())
      ->type_name("ID...");
  display
      ->add_option("--worst", arguments->fWorst,
                   "Also this many tracks with the smallest probability of chi-square")
      ->check(WholeNumberWithin(1, 1000))
      ->type_name("N");
  display
      ->add_option("--hypothesis", arguments->fHypothesis,
                   "mu, pi or p for the tracks of --track (default: the one that fits best)")
      ->check(OneOf(ParticleNames()))
      ->type_name("NAME");
  display
      ->add_option("-o,--output", arguments->fOutput,
                   "Picture to be written; its ending says how: .svg, .png or .pdf; or a page with "
                   "all tracks, .html")
      ->required()
      ->check(PageOrPictureName())
      ->type_name("FILE");
  return {display, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
