#include "draw/FittedTrack.h"

#include <algorithm>

namespace kelvo {

namespace {

// The first hit, the planes behind it and the hits of the view. A plane without a hit of the view
// behind it has no kink there, so that the last piece goes straight on.
std::vector<Point> KnownPoints(const FitRow& row, std::size_t view) {
  std::vector<Point> points{{row.fZ, view == 0 ? row.fX : row.fY}};
  const auto& planes = view == 0 ? row.fPlaneX : row.fPlaneY;
  for (std::size_t j = 0; j < planes.size(); j++)
    points.push_back({static_cast<double>(row.fPlaneZ[j]), static_cast<double>(planes[j])});
  for (std::size_t i = 0; i < row.fHitZ.size(); i++)
    if (row.fHitView[i] == static_cast<int>(view)) points.push_back({row.fHitZ[i], row.fFitU[i]});
  const auto isOutside = [&row](const Point& p) {
    return p.fX < row.fZ || p.fX > row.fHitZ.back();
  };
  points.erase(std::remove_if(points.begin(), points.end(), isOutside), points.end());
  std::sort(points.begin(), points.end(),
            [](const Point& a, const Point& b) { return a.fX < b.fX; });
  const auto isSamePlace = [](const Point& a, const Point& b) { return a.fX == b.fX; };
  points.erase(std::unique(points.begin(), points.end(), isSamePlace), points.end());
  return points;
}

} // namespace

FittedTrack::FittedTrack(const FitRow& row) : fLines{KnownPoints(row, 0), KnownPoints(row, 1)} {
  const double last = row.fHitZ.back();
  for (std::size_t view = 0; view < 2; view++)
    if (fLines[view].back().fX < last) fLines[view].push_back({last, At(view, last)});
}

double FittedTrack::At(std::size_t view, double z) const {
  const std::vector<Point>& line = fLines[view];
  const auto isBefore = [](const Point& point, double at) { return point.fX < at; };
  const auto next = std::lower_bound(line.begin() + 1, line.end() - 1, z, isBefore);
  const Point& p = *(next - 1);
  const Point& q = *next;
  return p.fY + (z - p.fX) / (q.fX - p.fX) * (q.fY - p.fY);
}

} // namespace kelvo
