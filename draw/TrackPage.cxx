#include "draw/TrackPage.h"

#include "draw/PageParts.h"
#include "draw/TrackDisplay.h"
#include "util/Particles.h"

#include <fmt/format.h>

namespace kelvo {

void WriteTrackPage(FitReader& fits, const geo::PlaneDetector* detector,
                    const std::vector<long long>& entries, const std::string& file) {
  const std::string title = "Tracks of " + fits.File();
  std::string links;
  std::string figures;
  for (const long long entry : entries) {
    const FitRow& row = fits.Read(entry, FitPart::kAll);
    links += fmt::format(FMT_STRING("<a href=\"#entry-{}\">{} as {}</a> "), entry, row.fTrack,
                         ParticleWord(row.fPDG));
    figures += fmt::format(FMT_STRING("<figure class=\"zoom\" id=\"entry-{}\">\n"), entry) +
               ZoomButtons() + DrawTrack(detector, row).Svg() + "\n</figure>\n";
  }
  SavePage(file, PageHead(title, fits.File()) + "<h1>" + Safe(title) + "</h1>\n<nav>" + links +
                     "</nav>\n<p class=\"soft\">Point at a hit for its numbers. Ctrl and the wheel "
                     "enlarge a picture as the buttons do; drag to move it; a double click shows "
                     "all again.</p>\n<div class=\"grid tracks\">\n" +
                     figures + "</div>\n" + PageEnd());
}

} // namespace kelvo
