#include "run/PlaneEfficiencies.h"

#include "io/FileError.h"
#include "util/Text.h"

#include <Math/QuantFuncMathCore.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>

namespace kelvo {

EfficiencyInterval ClopperPearson(unsigned long long k, unsigned long long n) {
  constexpr double kOutside = 1 - 0.6826894921370859; // of one standard deviation
  const auto found = static_cast<double>(k), lost = static_cast<double>(n - k);
  return {k == 0 ? 0 : ROOT::Math::beta_quantile(kOutside / 2, found, lost + 1),
          k == n ? 1 : ROOT::Math::beta_quantile_c(kOutside / 2, found + 1, lost)};
}

void PlaneEfficiencies::Count(const TrackFit& fit) {
  if (!fit.Fitted()) return;
  const HypothesisFit& best = fit.fHypothesis[static_cast<std::size_t>(fit.fBest)];
  for (const CrossedPlane& crossing : best.fCrossing) {
    Counts& counts = fCounts[{crossing.fPlane, crossing.fView}];
    counts.fCrossed++;
    counts.fFound += crossing.fFound ? 1 : 0;
  }
}

void PlaneEfficiencies::Add(const PlaneEfficiencies& other) {
  for (const auto& [plane, added] : other.fCounts) {
    Counts& counts = fCounts[plane];
    counts.fCrossed += added.fCrossed;
    counts.fFound += added.fFound;
  }
}

PlaneEfficiencies::Counts PlaneEfficiencies::Of(unsigned int plane, unsigned int view) const {
  const auto found = fCounts.find({plane, view});
  return found == fCounts.end() ? Counts() : found->second;
}

void WriteEfficiencies(const geo::PlaneDetector& detector, const PlaneEfficiencies& efficiencies,
                       const PendingFile& file) {
  std::ofstream out(file.Partial(), std::ios::binary);
  out << "plane,name,view,z,crossed,found,efficiency,low,high\n";
  for (unsigned int p = 0; p < detector.Planes().size(); p++)
    for (unsigned int view = 0; view < 2; view++) {
      const geo::ActivePlane& plane = detector.Planes()[p];
      if (!plane.Measures(view)) continue;
      const PlaneEfficiencies::Counts counts = efficiencies.Of(p, view);
      const auto [low, high] = ClopperPearson(counts.fFound, counts.fCrossed);
      const double value =
          static_cast<double>(counts.fFound) / static_cast<double>(counts.fCrossed);
      out << fmt::format(FMT_STRING("{},{},{},{},{},{},{},{:.6g},{:.6g}\n"), p, Quoted(plane.fName),
                         view == 0 ? 'X' : 'Y', NumberText(plane.ZMid()), counts.fCrossed,
                         counts.fFound, counts.fCrossed > 0 ? NumberText(value) : "", low, high);
    }
  errno = 0;
  out.close();
  if (!out) throw FileError(file.Name() + ": cannot be written: " + std::strerror(errno));
}

} // namespace kelvo
