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

bool IsWithin(double value, double min, double max) {
  return value >= min && value <= max;
}

std::string BadCoordinate(const char* name, double value) {
  if (!std::isfinite(value))
    return std::string(name) + " is " + NumberText(value) + "; it must be a finite number";
  return std::string(name) + " is " + NumberText(value) + " cm; it must be within +-" +
         NumberText(kLargestCoordinate) + " cm";
}

std::string BadValue(const char* name, double value, double min, double max, const char* unit) {
  return std::string(name) + " is " + NumberText(value) + unit + "; it must be between " +
         NumberText(min) + " and " + NumberText(max) + unit;
}

/// A hit as it is checked. There is a text only of what is wrong.
struct CheckedHit {
  const Hit3D& fHit;
  bool fIsX = fHit.fView == geo::kX;
  double fU = fIsX ? fHit.fX : fHit.fY;
  double fSigma = fIsX ? fHit.fSigX : fHit.fSigY;

  bool HasView() const { return fIsX || fHit.fView == geo::kY; }
  bool HasZ() const { return std::abs(fHit.fZ) <= kLargestCoordinate; }
  bool HasU() const { return std::abs(fU) <= kLargestCoordinate; }
  bool HasSigma() const { return IsWithin(fSigma, kSmallestSigma, kLargestSigma); }
  bool HasSigZ() const { return IsWithin(fHit.fSigZ, 0, kLargestSigma); }
  bool HasWeight() const { return IsWithin(fHit.fW, 0, kLargestWeight); }

  bool IsGood() const {
    return HasView() && HasZ() && HasU() && HasSigma() && HasSigZ() && HasWeight();
  }
  std::string Fault() const {
    if (!HasView())
      return "the view is " + std::to_string(fHit.fView) +
             "; it must be 0 (measures x) or 1 (measures y)";
    if (!HasZ()) return BadCoordinate("z", fHit.fZ);
    if (!HasU()) return BadCoordinate(fIsX ? "x" : "y", fU);
    if (!HasSigma())
      return BadValue(fIsX ? "the uncertainty of x" : "the uncertainty of y", fSigma,
                      kSmallestSigma, kLargestSigma, " cm");
    if (!HasSigZ()) return BadValue("the uncertainty of z", fHit.fSigZ, 0, kLargestSigma, " cm");
    return BadValue("the weight", fHit.fW, 0, kLargestWeight, "");
  }
};

/// The hits of one view: how many, and where they begin and end.
struct ViewCount {
  std::size_t fN = 0;
  double fFirst = std::numeric_limits<double>::infinity(); // cm
  double fLast = -std::numeric_limits<double>::infinity(); // cm
};

} // namespace

Refusal CheckView(const char* name, std::size_t n, double first, double last) {
  if (n < 2)
    return {FitStatus::kTooFewHits, "view " + std::string(name) + " has " + std::to_string(n) +
                                        (n == 1 ? " hit" : " hits") +
                                        "; a fit needs two or more in each view"};
  if (last - first < kSmallestSpread)
    return {FitStatus::kTooFewHits, "the " + std::to_string(n) + " hits of view " +
                                        std::string(name) + " are all at z = " + NumberText(first) +
                                        " cm; a fit needs two different z in each view"};
  return {};
}

Refusal CheckHits(const HitList3D& hits) {
  ViewCount count[2];
  for (std::size_t i = 0; i < hits.size(); i++) {
    const CheckedHit hit{hits[i]};
    if (!hit.IsGood()) return {FitStatus::kBadNumber, Name(i, hits[i]) + hit.Fault()};
    ViewCount& view = count[hits[i].fView];
    view.fN++;
    view.fFirst = std::min(view.fFirst, hits[i].fZ);
    view.fLast = std::max(view.fLast, hits[i].fZ);
  }
  if (Refusal refusal = CheckView("X", count[0].fN, count[0].fFirst, count[0].fLast))
    return refusal;
  return CheckView("Y", count[1].fN, count[1].fFirst, count[1].fLast);
}

Refusal CheckCharges(std::size_t hits, const std::vector<double>& charges) {
  if (!charges.empty() && charges.size() != hits)
    return {FitStatus::kBadNumber, "there are " + std::to_string(charges.size()) +
                                       " deposits for " + std::to_string(hits) +
                                       " hits; there must be one for each, or none"};
  for (std::size_t i = 0; i < charges.size(); i++)
    if (!(charges[i] > -std::numeric_limits<double>::infinity()))
      return {FitStatus::kBadNumber, "the deposit of hit " + std::to_string(i) + " is " +
                                         NumberText(charges[i]) +
                                         "; it must be a number, or infinity where there is none"};
  return {};
}

} // namespace kelvo
