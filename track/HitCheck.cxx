#include "track/HitCheck.h"

#include "util/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelvo {
namespace {

// Ranges that no detector leaves. Within them no sum of the fit overflows, and the range-out, whose
// steps are at most 10 cm long, ends in time.
constexpr double kLargestCoordinate = 1e5; // cm
constexpr double kSmallestSigma = 1e-7;    // cm
constexpr double kLargestSigma = 1e6;      // cm
constexpr double kLargestWeight = 1e12;
constexpr double kSmallestSpread = 1e-4; // cm; closer hits of a view give it no direction

std::string Name(std::size_t i, const Hit3D& hit) {
  return "hit " + std::to_string(i) + " (z = " + NumberText(hit.fZ) + " cm): ";
}

bool IsCoordinate(double value) {
  return std::abs(value) <= kLargestCoordinate;
}

std::string BadCoordinate(const char* name, double value) {
  if (!std::isfinite(value))
    return std::string(name) + " is " + NumberText(value) + "; it must be a finite number";
  return std::string(name) + " is " + NumberText(value) + " cm; it must be within +-" +
         NumberText(kLargestCoordinate) + " cm";
}

bool IsWithin(double value, double min, double max) {
  return value >= min && value <= max;
}

std::string BadValue(const char* name, double value, double min, double max, const char* unit) {
  return std::string(name) + " is " + NumberText(value) + unit + "; it must be between " +
         NumberText(min) + " and " + NumberText(max) + unit;
}

/// Returns what is wrong, or an empty text.
std::string CheckHit(const Hit3D& hit) {
  const int view = hit.fView;
  if (view != geo::kX && view != geo::kY)
    return "the view is " + std::to_string(view) + "; it must be 0 (measures x) or 1 (measures y)";
  const bool isX = view == geo::kX;
  const double u = isX ? hit.fX : hit.fY, sigma = isX ? hit.fSigX : hit.fSigY;
  if (!IsCoordinate(hit.fZ)) return BadCoordinate("z", hit.fZ);
  if (!IsCoordinate(u)) return BadCoordinate(isX ? "x" : "y", u);
  if (!IsWithin(sigma, kSmallestSigma, kLargestSigma))
    return BadValue(isX ? "the uncertainty of x" : "the uncertainty of y", sigma, kSmallestSigma,
                    kLargestSigma, " cm");
  if (!IsWithin(hit.fSigZ, 0, kLargestSigma))
    return BadValue("the uncertainty of z", hit.fSigZ, 0, kLargestSigma, " cm");
  if (!IsWithin(hit.fW, 0, kLargestWeight))
    return BadValue("the weight", hit.fW, 0, kLargestWeight, "");
  return {};
}

/// The hits of one view: how many, and where they begin and end.
struct ViewCount {
  unsigned int fN = 0;
  double fFirst = std::numeric_limits<double>::infinity(); // cm
  double fLast = -std::numeric_limits<double>::infinity(); // cm
};

Refusal CheckView(const char* name, const ViewCount& view) {
  if (view.fN < 2)
    return {FitStatus::kTooFewHits,
            "view " + std::string(name) + " has " + std::to_string(view.fN) +
                (view.fN == 1 ? " hit" : " hits") + "; a fit needs two or more in each view"};
  if (view.fLast - view.fFirst < kSmallestSpread)
    return {FitStatus::kTooFewHits, "the " + std::to_string(view.fN) + " hits of view " +
                                        std::string(name) +
                                        " are all at z = " + NumberText(view.fFirst) +
                                        " cm; a fit needs two different z in each view"};
  return {};
}

} // namespace

Refusal CheckHits(const HitList3D& hits) {
  ViewCount count[2];
  for (std::size_t i = 0; i < hits.size(); i++) {
    const std::string fault = CheckHit(hits[i]);
    if (!fault.empty()) return {FitStatus::kBadNumber, Name(i, hits[i]) + fault};
    ViewCount& view = count[hits[i].fView];
    view.fN++;
    view.fFirst = std::min(view.fFirst, hits[i].fZ);
    view.fLast = std::max(view.fLast, hits[i].fZ);
  }
  if (Refusal refusal = CheckView("X", count[0])) return refusal;
  return CheckView("Y", count[1]);
}

} // namespace kelvo
