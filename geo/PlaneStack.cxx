#include "geo/PlaneStack.h"

#include "geo/MeanSlab.h"
#include "util/Lanes.h"

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

using kelvo::Lanes;

constexpr double kSpread = 1.7320508075688772; // of an even distribution, in standard deviations

/// A way along z, followed upwards.
class Way {
public:
  Way(const WayPoint* points, std::size_t n) : fPoint(points), fLast(points + n - 2) { Turn(); }

  double Begin() const { return fPoint->fX[2]; }

  /// Goes on to the straight line at z.
  void GoTo(double z) {
    if (fPoint == fLast || z < fPoint[1].fX[2]) return;
    while (fPoint < fLast && z >= fPoint[1].fX[2]) fPoint++;
    Turn();
  }

  double At(std::size_t axis, double z) const {
    return fPoint->fX[axis] + fSlope[axis] * (z - fPoint->fX[2]);
  }
  double Slope(std::size_t axis) const { return fSlope[axis]; }
  /// Returns how far on both sides it may lie.
  double Spread(std::size_t axis) const {
    return kSpread * (fPoint[0].fSig[axis] + fPoint[1].fSig[axis]) / 2;
  }

private:
  void Turn() {
    const double length = fPoint[1].fX[2] - fPoint->fX[2], per = length > 0 ? 1 / length : 0;
    for (std::size_t v = 0; v < 2; v++) fSlope[v] = (fPoint[1].fX[v] - fPoint->fX[v]) * per;
  }

  const WayPoint* fPoint; // the line begins there
  const WayPoint* fLast;  // and the last one here
  double fSlope[2] = {};
};

using Slabs = std::vector<MeanSlab>;

void AddSlab(double begin, double end, const TGeoMaterial* material, Slabs& slabs) {
  if (end > begin) slabs.emplace_back(begin, end).Add(material, 1);
}

/// A row of cells, seen across it; lengths in units of the pitch.
struct Row {
  double fPerPitch;      // [1/cm]
  double fCentre;        // of the first cell
  double fWidth, fInner; // of a cell and of its filling

  Row(const LayerContent& c, const Box& box)
      : fPerPitch(1 / (c.fWidth + c.fGap)),
        fCentre((box.fLow[c.fAxis] + c.fGap + c.fWidth / 2) * fPerPitch),
        fWidth(c.fWidth * fPerPitch),
        fInner((c.fWidth - 2 * c.fWall) * fPerPitch) {}
};

/// A place in a row, spread evenly over two intervals one after the other: beside a line, and along
/// the line's way across the row.
class PlaceInRow {
public:
  PlaceInRow(double middle, double spread, double way) {
    constexpr double kLeast = 1e-5; // of a pitch; more than differences have rounding errors
    const double half = std::max(spread, kLeast), halfWay = std::max(way / 2, kLeast);
    const Lanes ends =
        middle + Lanes{half + halfWay, -half - halfWay, half - halfWay, halfWay - half};
    const Lanes inPitch = ends - Rounded(ends);
    fPlace = Max(inPitch, -1 * inPitch);
    fPerArea = 1 / (4 * half * halfWay);
  }

  /// Returns the mean fraction that is within w / 2 of the middle of a pitch. That is the second
  /// difference of a function whose second derivative is 1 there and 0 elsewhere, by the lengths of
  /// the intervals; as the fraction minus its mean, the function repeats itself from pitch to
  /// pitch.
  double Within(double w) const {
    const Lanes in = Min(fPlace, w / 2);
    const Lanes f = in * in * 0.5 + (fPlace - in) * (w / 2) - fPlace * fPlace * (w / 2);
    return w + (f[0] + f[1] - (f[2] + f[3])) * fPerArea;
  }

private:
  Lanes fPlace{}; // of the ends of both intervals, from the middle of a pitch
  double fPerArea;
};

/// Returns the probability that of a line that goes on by `way` across walls of some width, a
/// second place is in the wall that a first one is in.
double InSameWall(double way, double width) {
  return way < width ? 1 - way / (3 * width) : width / way * (1 - width / (3 * way));
}

/// Which fractions of a line that crosses a row of cells lie in cells and fillings, on average.
/// From line to line they change the less the more of the walls a line crosses, and the better its
/// place is known, as compared with its way in a wall.
struct InRow {
  double fCell, fFilling;
  double fVariance = 0; // of what is not filling, relative

  /// @param middle of the line
  /// @param spread how far it may be beside it
  /// @param way    how far it goes on across the row
  InRow(double middle, double spread, double way, const Row& row) {
    constexpr double kNone = 1e-9; // a fraction of the rounding of differences
    const PlaceInRow place(middle, spread, way);
    fCell = place.Within(row.fWidth);
    fFilling = place.Within(row.fInner);
    const double wall = 1 - fFilling, width = 1 - row.fInner;
    const double again = InSameWall(way, width), in = std::min(way, width) / 2;
    if (wall > kNone && again > wall)
      fVariance = (again / wall - 1) * (spread * spread) / (spread * spread + in * in);
  }
};

/// Adds what is between the faces and the front or back walls.
void AddWalls(double begin, double end, const InRow& in, const LayerContent& c, Slabs& slabs) {
  if (!(end > begin)) return;
  MeanSlab& slab = slabs.emplace_back(begin, end);
  slab.Add(c.fWallMaterial, in.fCell);
  slab.Add(c.fMaterial, 1 - in.fCell);
}

/// Adds what is between front and back walls.
void AddInner(double begin, double end, const InRow& in, const LayerContent& c, Slabs& slabs) {
  if (!(end > begin)) return;
  MeanSlab& slab = slabs.emplace_back(begin, end);
  slab.Add(c.fFilling, in.fFilling);
  slab.Add(c.fWallMaterial, in.fCell - in.fFilling);
  slab.Add(c.fMaterial, 1 - in.fCell);
  slab.fVariance = in.fVariance;
}

/// The cells of one layer, on a way that crosses them from end to end. What is between cells is the
/// same fraction of front and back walls as of what is next to them.
void AddCells(const Way& way, double begin, double end, const Box& box, const LayerContent& c,
              Slabs& slabs) {
  const Row row(c, box);
  const double front = std::clamp(box.fLow[2] + c.fWall, begin, end);
  const double back = std::clamp(box.fHigh[2] - c.fWall, front, end);
  const double middle = way.At(c.fAxis, (begin + end) / 2) * row.fPerPitch - row.fCentre;
  const double across = std::abs(way.Slope(c.fAxis) * (back - front)) * row.fPerPitch;
  const InRow in(middle, way.Spread(c.fAxis) * row.fPerPitch, across, row);
  AddWalls(begin, front, in, c, slabs);
  AddInner(front, back, in, c, slabs);
  AddWalls(back, end, in, c, slabs);
}

/// Where lines cross all of a layer from front to back, walls at the ends of cells left alone.
Box InsideOf(const Box& box, const LayerContent& c) {
  Box inside = box;
  if (c.fCount == 0) return inside;
  inside.fLow[1 - c.fAxis] += c.fWall;
  inside.fHigh[1 - c.fAxis] -= c.fWall;
  return inside;
}

bool IsInside(double x, double spread, std::size_t axis, const Box& box) {
  return x - spread >= box.fLow[axis] && x + spread < box.fHigh[axis];
}

bool IsInside(const Way& way, double begin, double end, const Box& box) {
  for (std::size_t axis = 0; axis < 2; axis++)
    if (!IsInside(way.At(axis, begin), way.Spread(axis), axis, box) ||
        !IsInside(way.At(axis, end), way.Spread(axis), axis, box))
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

bool PlaneStack::Slabs(const WayPoint* points, std::size_t n, std::vector<MeanSlab>& slabs) const {
  slabs.clear();
  const bool inside = std::all_of(points, points + n, [this](const WayPoint& point) {
    return IsInside(point.fX[0], kSpread * point.fSig[0], 0, fInside) &&
           IsInside(point.fX[1], kSpread * point.fSig[1], 1, fInside);
  });
  Way way(points, n);
  double z = way.Begin();
  const double end = points[n - 1].fX[2];
  auto i =
      static_cast<std::size_t>(std::upper_bound(fZHigh.begin(), fZHigh.end(), z) - fZHigh.begin());
  for (; i < fLayers.size() && z < end; i++) {
    const Box& box = fLayers[i].fBox;
    const double begin = std::clamp(box.fLow[2], z, end), behind = std::min(box.fHigh[2], end);
    AddSlab(z, begin, fWorld, slabs);
    z = begin;
    if (!(behind > begin)) break;
    const LayerContent& content = fContents[fLayers[i].fContent];
    way.GoTo((begin + behind) / 2);
    if (!inside && !IsInside(way, begin, behind, InsideOf(box, content))) return false;
    if (content.fCount == 0)
      AddSlab(begin, behind, content.fMaterial, slabs);
    else
      AddCells(way, begin, behind, box, content, slabs);
    z = behind;
  }
  AddSlab(z, end, fWorld, slabs);
  return true;
}

} // namespace geo
