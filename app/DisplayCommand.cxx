#include "app/Command.h"
#include "app/CommandParts.h"
#include "draw/TrackDisplay.h"
#include "geo/Detector.h"
#include "io/FileNames.h"
#include "io/FitReader.h"
#include "util/Particles.h"
#include "util/Text.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace kelvo::app {

namespace {

const char* const kExamples = R"(
Examples:
  kelvo display fits.root --track 17 -o track17.svg
      draws track 17 under the hypothesis that fits it best
  kelvo display fits.root --track 17 --hypothesis p -o track17.pdf
      draws it as a proton, for print
Exit status: 0 the picture is written, 1 the track is not fitted, 2 wrong usage or files.)";

struct DisplayArguments {
  std::string fFits;
  long long fTrack = 0;
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

FoundTrack Find(FitReader& fits, long long track, const Particle* wanted) {
  FoundTrack found;
  for (long long i = 0; i < fits.Entries(); i++) {
    const FitRow& row = fits.Read(i, FitPart::kNames);
    if (row.fTrack != track) continue;
    const Particle* particle = FindParticle(row.fPDG);
    const std::string name = particle ? particle->fName : std::to_string(row.fPDG);
    const bool isWanted = wanted ? particle == wanted : row.fBest;
    if (isWanted && found.fEntry >= 0) found.fMore++;
    if (isWanted && found.fEntry < 0) found.fEntry = i;
    if (found.fFirst < 0) found.fFirst = i;
    if (found.fHypotheses.find(name) == std::string::npos)
      found.fHypotheses += (found.fHypotheses.empty() ? "" : ", ") + name;
  }
  return found;
}

long long EntryToDraw(FitReader& fits, const DisplayArguments& a) {
  const Particle* wanted = a.fHypothesis.empty() ? nullptr : FindParticle(a.fHypothesis);
  const FoundTrack found = Find(fits, a.fTrack, wanted);
  const std::string track = std::to_string(a.fTrack);
  if (found.fFirst < 0) throw std::invalid_argument(a.fFits + ": has no track " + track);
  if (wanted && found.fEntry < 0)
    throw std::invalid_argument(a.fFits + ": track " + track + " is not there as " + a.fHypothesis +
                                ", only as " + found.fHypotheses);
  if (found.fMore > 0)
    std::cerr << "kelvo: " << a.fFits << " has " << found.fMore + 1 << " tracks of the number "
              << track << "; the first is drawn\n";
  return found.fEntry >= 0 ? found.fEntry : found.fFirst;
}

int Run(const DisplayArguments& a) {
  CheckApart({a.fFits}, {a.fOutput});
  FitReader fits(a.fFits);
  if (!fits.HasVectors())
    throw std::invalid_argument(a.fFits +
                                ": has no hits and planes to draw; fit again without --scalars");
  const FitRow& row = fits.Read(EntryToDraw(fits, a), FitPart::kAll);
  if (row.fStatus != 0) {
    std::cerr << "kelvo: track " << a.fTrack << " is not fitted: " << row.fMessage << '\n';
    return 1;
  }
  const auto detector = geo::Detector::PlanesOfText(fits.Text("detector"), a.fFits + ", detector");
  DrawTrack(detector.get(), row).Save(a.fOutput);
  std::printf("written: %s\n", Printable(a.fOutput).c_str());
  return 0;
}

} // namespace

Command MakeDisplayCommand(CLI::App& program) {
  CLI::App* display = program.add_subcommand("display", "Draws one fitted track.");
  display->footer(kExamples);
  auto arguments = std::make_shared<DisplayArguments>();
  display->add_option("fits", arguments->fFits, "File of fits, from kelvo fit")
      ->required()
      ->type_name("FILE");
  display->add_option("--track", arguments->fTrack, "Number of the track")
      ->required()
      ->check(WholeNumber())
      ->type_name("ID");
  display
      ->add_option("--hypothesis", arguments->fHypothesis,
                   "mu, pi or p (default: the one that fits best)")
      ->check(OneOf(ParticleNames()))
      ->type_name("NAME");
  display
      ->add_option("-o,--output", arguments->fOutput,
                   "Picture to be written; its ending says how: .svg, .png or .pdf")
      ->required()
      ->check(PictureName())
      ->type_name("FILE");
  return {display, [arguments] { return Run(*arguments); }};
}

} // namespace kelvo::app
