#include "geo/PlaneStack.h"

#include "geo/LaneSlabs.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace geo {

namespace {

// Shortest step that is listed [cm]. Far above the rounding of coordinates of some metres, where a
// boundary may be met twice, and far below the size of an atom.
constexpr double kShortest = 1e-10;

// A direction whose component is smaller than this stays in its plane over any distance.
constexpr double kParallel = 1e-150;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Stretch of the line, as distances from its start [cm]. Empty unless fIn < fOut.
struct Stretch {
  double fIn;
  double fOut;
};

Stretch Common(Stretch a, Stretch b) {
  return {std::max(a.fIn, b.fIn), std::min(a.fOut, b.fOut)};
}

double Distance(double dx, double dy, double dz) {
  const double d2 = dx * dx + dy * dy + dz * dz;
  if (d2 > 1e-200 && d2 < 1e200) return std::sqrt(d2);
  return std::hypot(dx, dy, dz); // slower, but without overflow
}

/// The line r(s) = a + u s, 0 <= s <= L.
class Ray {
public:
  Ray(const double* a, const double* b, double length) : fLength(length) {
    for (int k = 0; k < 3; k++) {
      const double d = b[k] - a[k];
      fStart[k] = a[k];
      fDir[k] = std::abs(d) > kParallel * length ? d / length : 0;
      fPerCm[k] = fDir[k] != 0 ? length / d : 0;
    }
  }

  double Length() const { return fLength; }
  double At(unsigned axis, double s) const { return fStart[axis] + fDir[axis] * s; }
  double Dir(unsigned axis) const { return fDir[axis]; }

  /// Where low <= r < high along one axis.
  Stretch Between(unsigned axis, double low, double high) const {
    const double a = fStart[axis];
    if (fDir[axis] == 0) {
      const bool inside = low <= a && a < high;
      return inside ? Stretch{-kInfinity, kInfinity} : Stretch{kInfinity, -kInfinity};
    }
    const double s1 = (low - a) * fPerCm[axis];
    const double s2 = (high - a) * fPerCm[axis];
    return {std::min(s1, s2), std::max(s1, s2)};
  }

private:
  double fStart[3] = {};
  double fDir[3] = {};
  double fPerCm[3] = {}; // 1/u [cm of way per cm along the axis], 0 for u = 0
  double fLength;
};

/// Collects the steps: told where a material begins, it closes the step before.
class StepList {
public:
  StepList(const TGeoMaterial* first, double length, std::vector<double>& ends,
           std::vector<const TGeoMaterial*>& mats)
      : fCurrent(first), fLength(length), fEnds(ends), fMats(mats) {}

  void From(double s, const TGeoMaterial* material) {
    if (material == fCurrent || s >= fLength) return;
    if (s - Start() > kShortest)
      Push(s);
    else if (!fMats.empty() && fMats.back() == material)
      Pop(); // nothing was between: the step before goes on
    fCurrent = material;
  }

  /// Ends the last step and turns the ends into lengths.
  void Finish() {
    if (fEnds.empty() || fLength - Start() > kShortest) Push(fLength);
    fEnds.back() = fLength;
    for (std::size_t i = fEnds.size() - 1; i > 0; --i) fEnds[i] -= fEnds[i - 1];
  }

private:
  double Start() const { return fEnds.empty() ? 0 : fEnds.back(); }

  void Push(double end) {
    fEnds.push_back(end);
    fMats.push_back(fCurrent);
  }

  void Pop() {
    fEnds.pop_back();
    fMats.pop_back();
  }

  const TGeoMaterial* fCurrent;
  double fLength; // of the whole line [cm]
  std::vector<double>& fEnds;
  std::vector<const TGeoMaterial*>& fMats;
};

/// The cells of one layer, along the stretch of the line inside the layer's box.
void WalkCells(const Ray& ray, const Box& box, const LayerContent& c, Stretch in, StepList& steps) {
  const unsigned across = c.fAxis;
  const unsigned along = 1 - across;
  const double pitch = c.fWidth + c.fGap;
  // Depth and length of the filling are common to all cells.
  const Stretch filled =
      Common(Common(ray.Between(2, box.fLow[2] + c.fWall, box.fHigh[2] - c.fWall),
                    ray.Between(along, box.fLow[along] + c.fWall, box.fHigh[along] - c.fWall)),
             in);
  const double first = box.fLow[across] + c.fGap;
  const int last = static_cast<int>(c.fCount) - 1;
  const double dir = ray.Dir(across);
  const int next = dir < 0 ? -1 : 1;
  // The cell at the start, or the one below it where the start is between two.
  const double u = (ray.At(across, in.fIn) - first) / pitch;
  int i = static_cast<int>(std::clamp(std::floor(u), 0., static_cast<double>(last)));

  steps.From(in.fIn, c.fMaterial);
  for (; i >= 0 && i <= last; i += next) {
    const double low = first + i * pitch;
    const double high = low + c.fWidth;
    const Stretch cell = Common(ray.Between(across, low, high), in);
    if (cell.fIn >= in.fOut) break;
    if (cell.fIn < cell.fOut) {
      steps.From(cell.fIn, c.fWallMaterial);
      const Stretch inner =
          Common(ray.Between(across, low + c.fWall, high - c.fWall), Common(filled, cell));
      if (inner.fIn < inner.fOut) {
        steps.From(inner.fIn, c.fFilling);
        steps.From(inner.fOut, c.fWallMaterial);
      }
      steps.From(cell.fOut, c.fMaterial);
    }
    if (dir == 0) break;
  }
}

/// Absent walls and gaps take the material of their neighbour, so that the walk needs no cases and
/// the rounding of a boundary shows no material that is not there.
LayerContent Completed(LayerContent c) {
  if (c.fCount == 0) return c;
  if (c.fWall == 0) c.fWallMaterial = c.fFilling;
  if (c.fGap == 0) c.fMaterial = c.fWallMaterial;
  if (c.fMaterial == c.fWallMaterial && c.fWallMaterial == c.fFilling) c.fCount = 0;
  return c;
}

void CheckFinite(const double* p0, const double* p1, double length) {
  for (const double* p : {p0, p1})
    if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]))
      throw std::invalid_argument("material steps between two points: a coordinate is not finite");
  if (!std::isfinite(length))
    throw std::invalid_argument("material steps between two points: they are too far apart");
}

constexpr double kNone = 1e-6; // a fraction above the rounding of differences of coordinates

void AddSlab(double begin, double end, const TGeoMaterial* material, LaneSlabs& slabs) {
  if (!(end > begin)) return;
  slabs.fSlabs.emplace_back(begin, end);
  slabs.fSlabs.back().Add(material, 1);
}

/// A row of cells, seen across it; lengths in units of the pitch.
struct Row {
  double fPerPitch; // [1/cm]
  double fFirst;    // low side of the first cell
  double fWidth, fWall, fInner;

  Row(const LayerContent& c, const Box& box)
      : fPerPitch(1 / (c.fWidth + c.fGap)),
        fFirst((box.fLow[c.fAxis] + c.fGap) * fPerPitch),
        fWidth(c.fWidth * fPerPitch),
        fWall(c.fWall * fPerPitch),
        fInner(fWidth - 2 * fWall) {}
};

/// How much of a row of cells lies before a place in it.
struct BeforeInRow {
  Lanes fAll, fCells{}, fFillings{};

  BeforeInRow(const Lanes& place, const Row& row) : fAll(place) {
    const Lanes index = Rounded(place - 0.5); // at a side of the pitch either one is right
    const Lanes inPitch = place - index;
    fCells = index * row.fWidth + Min(inPitch, row.fWidth);
    fFillings = index * row.fInner + Min(Max(inPitch - row.fWall, 0), row.fInner);
  }
};

/// Adds what is between the faces and the front or back walls.
void AddWalls(double begin, double end, const Lanes& cell, const LayerContent& c,
              LaneSlabs& slabs) {
  if (!(end > begin)) return;
  if (AreAbove(cell, 1 - kNone)) return AddSlab(begin, end, c.fWallMaterial, slabs);
  LaneSlab& slab = slabs.fSlabs.emplace_back(begin, end);
  slab.Add(c.fWallMaterial, cell);
  slab.Add(c.fMaterial, Max(1 - cell, 0));
}

/// Adds what is between front and back walls.
void AddInner(double begin, double end, const Lanes& cell, const Lanes& filling,
              const LayerContent& c, LaneSlabs& slabs) {
  if (AreAbove(filling, 1 - kNone)) return AddSlab(begin, end, c.fFilling, slabs);
  LaneSlab& slab = slabs.fSlabs.emplace_back(begin, end);
  slab.Add(c.fFilling, filling);
  slab.Add(c.fWallMaterial, Max(cell - filling, 0));
  slab.Add(c.fMaterial, Max(1 - cell, 0));
}

/// The cells of one layer, on lines that cross them from end to end. How much of a line lies in
/// cells and fillings is the difference of what lies before its ends. What is between cells is the
/// same fraction of front and back walls as of what is next to them.
void AddCells(const LaneLines& lines, double begin, double end, const Box& box,
              const LayerContent& c, LaneSlabs& slabs) {
  // A line along the walls is inclined by some hundred atoms in a layer: there is no other case.
  constexpr double kLeastSlope = 1e-6;
  const double front = std::clamp(box.fLow[2] + c.fWall, begin, end);
  const double back = std::clamp(box.fHigh[2] - c.fWall, front, end);
  const bool inWall = !(back > front);
  const double cut[] = {inWall ? begin : front, std::clamp(lines.fCut, front, back),
                        inWall ? end : back};
  const Row row(c, box);
  const Lanes given = lines.fSlope[c.fAxis] * row.fPerPitch;
  const Lanes slope = WhereAbove(Max(given, -1 * given), kLeastSlope, given, kLeastSlope);
  const Lanes from = lines.At(c.fAxis, begin) * row.fPerPitch - row.fFirst;
  BeforeInRow before(from + slope * (cut[0] - begin), row);
  Lanes cell{};
  for (int k = 0; k < 2; k++) {
    if (!(cut[k + 1] > cut[k])) continue;
    const BeforeInRow next(from + slope * (cut[k + 1] - begin), row);
    const Lanes perWay = 1 / (next.fAll - before.fAll);
    cell = (next.fCells - before.fCells) * perWay;
    if (inWall) {
      AddWalls(cut[k], cut[k + 1], cell, c, slabs);
    } else {
      if (cut[k] == front) AddWalls(begin, front, cell, c, slabs);
      AddInner(cut[k], cut[k + 1], cell, (next.fFillings - before.fFillings) * perWay, c, slabs);
    }
    before = next;
  }
  if (!inWall) AddWalls(back, end, cell, c, slabs);
}

/// Where lines cross all of a layer from front to back, walls at the ends of cells left alone.
Box InsideOf(const Box& box, const LayerContent& c) {
  Box inside = box;
  if (c.fCount == 0) return inside;
  inside.fLow[1 - c.fAxis] += c.fWall;
  inside.fHigh[1 - c.fAxis] -= c.fWall;
  return inside;
}

bool AreInside(const LaneLines& lines, double begin, double end, const Box& box) {
  for (std::size_t axis = 0; axis < 2; axis++)
    if (!AreBetween(lines.At(axis, begin), box.fLow[axis], box.fHigh[axis]) ||
        !AreBetween(lines.At(axis, end), box.fLow[axis], box.fHigh[axis]))
      return false;
  return true;
}

} // namespace

PlaneStack::PlaneStack(const TGeoMaterial* world, std::vector<LayerContent> contents,
                       std::vector<Layer> layers)
    : fWorld(world),
      fContents(std::move(contents)),
      fLayers(std::move(layers)),
      fInside{{-kInfinity, -kInfinity, 0}, {kInfinity, kInfinity, 0}} {
  for (LayerContent& c : fContents) c = Completed(c);
  for (const Layer& layer : fLayers) {
    fZHigh.push_back(layer.fBox.fHigh[2]);
    const Box box = InsideOf(layer.fBox, fContents[layer.fContent]);
    for (int k = 0; k < 2; k++) {
      fInside.fLow[k] = std::max(fInside.fLow[k], box.fLow[k]);
      fInside.fHigh[k] = std::min(fInside.fHigh[k], box.fHigh[k]);
    }
  }
}

void PlaneStack::Steps(const double* p0, const double* p1, std::vector<double>& ds,
                       std::vector<const TGeoMaterial*>& mats) const {
  ds.clear();
  mats.clear();
  const double length = Distance(p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]);
  CheckFinite(p0, p1, length);
  if (length == 0) return;

  // Always walked towards larger z: both directions give the same numbers.
  const auto key = [](const double* p) { return std::make_tuple(p[2], p[0], p[1]); };
  const bool backwards = key(p1) < key(p0);
  const Ray ray(backwards ? p1 : p0, backwards ? p0 : p1, length);
  const double z = ray.At(2, 0);

  StepList steps(fWorld, length, ds, mats);
  auto i = static_cast<size_t>(std::upper_bound(fZHigh.begin(), fZHigh.end(), z) - fZHigh.begin());
  for (; i < fLayers.size(); i++) {
    const Box& box = fLayers[i].fBox;
    const Stretch layer = Common(ray.Between(2, box.fLow[2], box.fHigh[2]), {0, length});
    if (layer.fIn >= length) break;
    const Stretch in = Common(Common(ray.Between(0, box.fLow[0], box.fHigh[0]),
                                     ray.Between(1, box.fLow[1], box.fHigh[1])),
                              layer);
    if (in.fIn >= in.fOut) continue;
    const LayerContent& content = fContents[fLayers[i].fContent];
    if (content.fCount == 0)
      steps.From(in.fIn, content.fMaterial);
    else
      WalkCells(ray, box, content, in, steps);
    steps.From(in.fOut, fWorld);
  }
  steps.Finish();
  if (!backwards) return;
  std::reverse(ds.begin(), ds.end());
  std::reverse(mats.begin(), mats.end());
}

void PlaneStack::Slabs(const LaneLines& lines, LaneSlabs& slabs) const {
  slabs.fSlabs.clear();
  const double end = lines.fEnd;
  const bool inside = AreInside(lines, lines.fBegin, end, fInside);
  double z = lines.fBegin;
  auto i =
      static_cast<std::size_t>(std::upper_bound(fZHigh.begin(), fZHigh.end(), z) - fZHigh.begin());
  for (; i < fLayers.size() && z < end; i++) {
    const Box& box = fLayers[i].fBox;
    const double begin = std::clamp(box.fLow[2], z, end), behind = std::min(box.fHigh[2], end);
    AddSlab(z, begin, fWorld, slabs);
    z = begin;
    if (!(behind > begin)) break;
    const LayerContent& content = fContents[fLayers[i].fContent];
    if (!inside && !AreInside(lines, begin, behind, InsideOf(box, content)))
      AddLineByLine(
          lines, begin, behind,
          [this](const double* p0, const double* p1, auto& ds, auto& mats) {
            Steps(p0, p1, ds, mats);
          },
          slabs);
    else if (content.fCount == 0)
      AddSlab(begin, behind, content.fMaterial, slabs);
    else
      AddCells(lines, begin, behind, box, content, slabs);
    z = behind;
  }
  AddSlab(z, end, fWorld, slabs);
}

} // namespace geo
