#include "io/HitColumns.h"

#include "io/FileError.h"
#include "util/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace kelvo {

const std::vector<std::string>& HitColumnNames() {
  static const std::vector<std::string> names{"track", "view", "u",    "sigu", "x",
                                              "y",     "sigx", "sigy", "z",    "sigz",
                                              "t",     "sigt", "w",    "q",    "plane"};
  return names;
}

void CheckHitConventions(const HitConventions& conventions) {
  if (!FindLengthUnit(conventions.fUnit))
    throw std::invalid_argument(fmt::format(FMT_STRING("the unit {} is none of {}"),
                                            Shown(conventions.fUnit), kLengthUnitNames));
  if (!(conventions.fSigma >= 0 && std::isfinite(conventions.fSigma)))
    throw std::invalid_argument(
        fmt::format(FMT_STRING("the uncertainty of hits is {}; it must be above 0, or 0 for none"),
                    NumberText(conventions.fSigma)));
  const auto& names = HitColumnNames();
  for (const auto& [name, other] : conventions.fColumns) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    throw std::invalid_argument(fmt::format(
        FMT_STRING("column {} is none of those that hits have: {}"), Shown(name), Joined(names)));
  }
}

HitColumns::HitColumns(const std::string& place, const std::vector<std::string>& inFile,
                       const HitConventions& conventions, bool numbered) {
  CheckHitConventions(conventions);
  fUnit = *FindLengthUnit(conventions.fUnit);
  fSigma = fUnit.ToCm(conventions.fSigma);
  fPlanes = conventions.fPlanes;
  const auto& mapping = conventions.fColumns;
  for (std::size_t c = 0; c < kHitColumns; c++) {
    std::string& name = fNames[c];
    name = HitColumnNames()[c];
    if (const auto other = mapping.find(name); other != mapping.end()) name = other->second;
    const auto found = std::find(inFile.begin(), inFile.end(), name);
    fIndex[c] = found == inFile.end() ? -1 : static_cast<int>(found - inFile.begin());
    if (found != inFile.end() && std::find(found + 1, inFile.end(), name) != inFile.end())
      throw FileError(fmt::format(FMT_STRING("{}: names the column {} twice"), place, Shown(name)));
  }
  fBothViews = !Has(kHitView) && !Has(kHitU) && Has(kHitX) && Has(kHitY);

  const std::vector<HitColumn> ofOne{kHitView, kHitU, kHitZ, kHitSigU};
  const std::vector<HitColumn> ofBoth{kHitZ, kHitX, kHitY, kHitSigX, kHitSigY};
  for (const HitColumn c : fBothViews ? ofOne : ofBoth)
    if (c != kHitZ) fIndex[c] = -1;

  std::vector<HitColumn> needed = fBothViews ? ofBoth : ofOne;
  if (numbered) needed.insert(needed.begin(), kHitTrack);
  if (Has(kHitZ) || !fPlanes) fIndex[kHitPlane] = -1;
  const auto maybeAbsent = [&](HitColumn c) {
    if (mapping.count(HitColumnNames()[c]) > 0) return false;
    if (c == kHitZ) return Has(kHitPlane);
    const bool isSigma = c == kHitSigU || c == kHitSigX || c == kHitSigY;
    return isSigma && (fSigma > 0 || fPlanes);
  };
  for (const HitColumn c : needed)
    if (!Has(c) && !maybeAbsent(c))
      throw FileError(fmt::format(FMT_STRING("{}: there is no column {} but {}; a column of "
                                             "another name needs a mapping, {}=NAME; hits have "
                                             "track,view,u,z,sigu or track,x,y,z,sigx,sigy"),
                                  place, Shown(Name(c)), Shown(Joined(inFile)),
                                  HitColumnNames()[c]));
}

double HitColumns::Sigma(unsigned view, double z) const {
  if (fSigma > 0 || !fPlanes) return fSigma;
  const geo::ActivePlane* plane = fPlanes->NearestPlane(z, view);
  return plane ? plane->fCells[view].fResolution : 0;
}

double HitColumns::PlaneNumber(std::string_view text) const {
  return fPlanes->FindPlane(text);
}

bool HitColumns::IsPlane(double number) const {
  return number >= 0 && number < static_cast<double>(fPlanes->Planes().size()) &&
         number == std::floor(number);
}

double HitColumns::ZOfPlane(double number) const {
  return fPlanes->Planes()[static_cast<std::size_t>(number)].ZOfHits();
}

} // namespace kelvo
