#include "geo/PlaneDetector.h"

#include "geo/Matter.h"
#include "geo/OwnMaterial.h"
#include "geo/PlaneDetectorReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace geo {

namespace {

std::unique_ptr<TGeoMaterial> MakeMaterial(const DetectorDescription::Material& m) {
  // A negative radiation length is ROOT's way to say: take this one, compute none.
  if (m.fMatter && m.fRadLength > 0)
    return std::make_unique<Own<MaterialOfMatter>>(m.fName.c_str(), m.fA, m.fZ, m.fRadLength,
                                                   *m.fMatter);
  return std::make_unique<Own<>>(m.fName.c_str(), m.fA, m.fZ, m.fDensity, -m.fRadLength,
                                 GivenIntLen(m.fA, m.fZ, m.fDensity));
}

using Materials = std::vector<std::unique_ptr<TGeoMaterial>>;

LayerContent MakeContent(const DetectorDescription::Part& part, const Materials& materials) {
  const TGeoMaterial* material = materials[part.fMaterial].get();
  LayerContent content{material};
  if (part.fWall == 0 && part.fGap == 0) return content; // cells that touch are one block
  content.fAxis = part.fCount[0] > 0 ? 0 : 1;
  content.fCount = part.fCount[content.fAxis];
  content.fWidth = part.fWidth[content.fAxis];
  content.fGap = part.fGap;
  content.fWall = part.fWall;
  content.fFilling = material;
  if (part.fWall > 0) content.fWallMaterial = materials[part.fWallMaterial].get();
  if (part.fGap > 0) content.fMaterial = materials[part.fGapMaterial].get();
  return content;
}

Box MakeBox(const DetectorDescription::Part& part, const DetectorDescription::Placed& placed) {
  Box box;
  for (int k = 0; k < 2; k++) {
    box.fLow[k] = placed.fCentre[k] - 0.5 * part.fSize[k];
    box.fHigh[k] = placed.fCentre[k] + 0.5 * part.fSize[k];
  }
  box.fLow[2] = placed.fZLow;
  box.fHigh[2] = placed.fZHigh;
  return box;
}

PlaneStack MakeStack(const DetectorDescription& d, const Materials& materials) {
  std::vector<LayerContent> contents;
  for (const auto& part : d.fParts) contents.push_back(MakeContent(part, materials));
  std::vector<PlaneStack::Layer> layers;
  for (const auto& placed : d.fPlaced)
    layers.push_back({MakeBox(d.fParts[placed.fPart], placed), placed.fPart});
  return PlaneStack(materials[d.fWorld].get(), std::move(contents), std::move(layers));
}

CellRow MakeRow(const DetectorDescription::Part& part, const DetectorDescription::Placed& placed,
                int axis) {
  CellRow row;
  row.fCount = part.fCount[axis];
  if (row.fCount == 0) return row;
  row.fWidth = part.fWidth[axis];
  row.fPitch = row.fWidth + part.fGap;
  row.fFirst = placed.fCentre[axis] - 0.5 * (row.fCount - 1) * row.fPitch;
  row.fLength = part.fCount[1 - axis] > 0 ? part.fWidth[1 - axis] : part.fSize[1 - axis];
  row.fResolution = part.fResolution[axis];
  row.fMiddle = placed.fCentre[1 - axis];
  return row;
}

std::vector<Box> MakeSlabs(const DetectorDescription& d) {
  std::vector<Box> slabs;
  for (const auto& placed : d.fPlaced) {
    const DetectorDescription::Part& part = d.fParts[placed.fPart];
    if (part.fCount[0] > 0 || part.fCount[1] > 0) continue;
    const double x = part.fSize[0] / 2;
    const double y = part.fSize[1] / 2;
    slabs.push_back({{placed.fCentre[0] - x, placed.fCentre[1] - y, placed.fZLow},
                     {placed.fCentre[0] + x, placed.fCentre[1] + y, placed.fZHigh}});
  }
  return slabs;
}

std::vector<ActivePlane> MakePlanes(const DetectorDescription& d) {
  std::vector<ActivePlane> planes;
  for (const auto& placed : d.fPlaced) {
    const auto& part = d.fParts[placed.fPart];
    if (part.fCount[0] == 0 && part.fCount[1] == 0) continue;
    planes.push_back({part.fName,
                      {MakeRow(part, placed, 0), MakeRow(part, placed, 1)},
                      placed.fZLow,
                      placed.fZHigh,
                      {placed.fOffset[0], placed.fOffset[1], placed.fOffset[2]}});
  }
  return planes;
}

Box Around(const std::vector<PlaneStack::Layer>& layers) {
  Box all = layers.front().fBox;
  for (const auto& layer : layers)
    for (int k = 0; k < 3; k++) {
      all.fLow[k] = std::min(all.fLow[k], layer.fBox.fLow[k]);
      all.fHigh[k] = std::max(all.fHigh[k], layer.fBox.fHigh[k]);
    }
  return all;
}

std::vector<bool> UsedMaterials(const DetectorDescription& d) {
  std::vector<bool> used(d.fMaterials.size(), false);
  for (const auto& placed : d.fPlaced) {
    const auto& part = d.fParts[placed.fPart];
    used[part.fMaterial] = true;
    if (part.fWall > 0) used[part.fWallMaterial] = true;
    if (part.fGap > 0) used[part.fGapMaterial] = true;
  }
  used[d.fWorld] = false; // it comes first, whatever its place in the file
  return used;
}

Materials MakeMaterials(const DetectorDescription& d) {
  Materials materials;
  for (const auto& m : d.fMaterials) materials.push_back(MakeMaterial(m));
  return materials;
}

} // namespace

int CellRow::Cell(double u) const {
  const double i = std::floor((u - fFirst) / fPitch + 0.5);
  return i >= 0 && i < fCount ? static_cast<int>(i) : -1;
}

const char* ActivePlane::View() const {
  return !Measures(1) ? "X" : !Measures(0) ? "Y" : "XY";
}

bool ActivePlane::Holds(double z) const {
  constexpr double kMinDepth = 0.1; // cm
  const double half = 0.5 * (fZHigh - fZLow);
  // A little more than half, since a hit may be at the face.
  return std::abs(z - ZMid()) <= std::max(1.001 * half, kMinDepth);
}

PlaneDetector PlaneDetector::FromFile(const std::string& file) {
  return PlaneDetector(ReadDetectorFile(file));
}

PlaneDetector PlaneDetector::FromText(const std::string& text, const std::string& file) {
  return PlaneDetector(ReadDetectorText(text, file));
}

PlaneDetector::PlaneDetector(const DetectorDescription& d)
    : fName(d.fName),
      fText(d.fText),
      fMaterials(MakeMaterials(d)),
      fPlanes(MakePlanes(d)),
      fSlabs(MakeSlabs(d)),
      fStack(MakeStack(d, fMaterials)),
      fExtent(Around(fStack.Layers())) {
  const std::vector<bool> used = UsedMaterials(d);
  fUsed.push_back(fMaterials[d.fWorld].get());
  for (std::size_t i = 0; i < used.size(); i++)
    if (used[i]) fUsed.push_back(fMaterials[i].get());
}

void PlaneDetector::MaterialsBetweenPoints(const double* p0, const double* p1,
                                           std::vector<double>& ds,
                                           std::vector<const TGeoMaterial*>& mats) const {
  fStack.Steps(p0, p1, ds, mats);
}

bool PlaneDetector::MeanMaterials(const WayPoint* points, std::size_t n,
                                  std::vector<MeanSlab>& slabs) const {
  return fStack.Slabs(points, n, slabs);
}

unsigned PlaneDetector::NearestPlane(double z) const {
  const auto below = [](double value, const ActivePlane& plane) { return value <= plane.ZMid(); };
  const auto next = std::upper_bound(fPlanes.begin(), fPlanes.end(), z, below);
  auto i = static_cast<unsigned>(next - fPlanes.begin()); // first plane at or behind z
  if (i == 0) return 0;
  if (i == fPlanes.size()) return i - 1;
  return z - fPlanes[i - 1].ZMid() <= fPlanes[i].ZMid() - z ? i - 1 : i;
}

const ActivePlane* PlaneDetector::NearestPlane(double z, unsigned view) const {
  const auto nearest = fPlanes.begin() + NearestPlane(z);
  const auto measures = [view](const ActivePlane& plane) { return plane.Measures(view); };
  const auto above = std::find_if(nearest, fPlanes.end(), measures);
  const auto below = std::find_if(std::make_reverse_iterator(nearest), fPlanes.rend(), measures);
  if (above == fPlanes.end()) return below == fPlanes.rend() ? nullptr : &*below;
  if (below == fPlanes.rend()) return &*above;
  return z - below->ZMid() < std::abs(above->ZMid() - z) ? &*below : &*above;
}

int PlaneDetector::FindPlane(std::string_view nameOrNumber) const {
  double number = -1;
  const char* end = nameOrNumber.data() + nameOrNumber.size();
  const auto [stop, error] = std::from_chars(nameOrNumber.data(), end, number);
  if (error == std::errc() && stop == end) {
    const bool isPlane =
        number >= 0 && number < static_cast<double>(fPlanes.size()) && number == std::floor(number);
    return isPlane ? static_cast<int>(number) : -1;
  }
  const auto named = [nameOrNumber](const ActivePlane& p) { return p.fName == nameOrNumber; };
  const auto found = std::find_if(fPlanes.begin(), fPlanes.end(), named);
  const bool one = found != fPlanes.end() && std::none_of(found + 1, fPlanes.end(), named);
  return one ? static_cast<int>(found - fPlanes.begin()) : -1;
}

std::vector<std::string> PlaneDetector::MaterialNames() const {
  std::vector<std::string> names;
  for (const TGeoMaterial* m : fUsed) names.emplace_back(m->GetName());
  return names;
}

std::vector<MaterialThickness> ThicknessBetweenPoints(const GeometryBase& geo, const double* p0,
                                                      const double* p1) {
  std::vector<double> ds;
  std::vector<const TGeoMaterial*> mats;
  geo.MaterialsBetweenPoints(p0, p1, ds, mats);
  std::vector<MaterialThickness> sums;
  for (std::size_t i = 0; i < ds.size(); i++) {
    const auto same = [&](const MaterialThickness& sum) { return sum.fMaterial == mats[i]; };
    auto sum = std::find_if(sums.begin(), sums.end(), same);
    if (sum == sums.end()) sum = sums.insert(sums.end(), {mats[i], 0, 0});
    sum->fLength += ds[i];
  }
  for (MaterialThickness& sum : sums) sum.fRadLengths = sum.fLength / sum.fMaterial->GetRadLen();
  return sums;
}

} // namespace geo
