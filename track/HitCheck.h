#pragma once

#include "func/HitList3D.h"
#include "track/TrackFit.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kelvo {

/// Why a track or a hypothesis is not fitted; fStatus is kFitted where there is no reason.
struct Refusal {
  FitStatus fStatus = FitStatus::kFitted;
  std::string fMessage;

  explicit operator bool() const { return fStatus != FitStatus::kFitted; }
};

/// Checks what the library would choke on: views, finite numbers of a sane size, positive
/// uncertainties, and two hits at different z in each view. The first fault is told.
Refusal CheckHits(const HitList3D& hits);

/// Checks that hits of a view fix a line, of which there are n from z first to z last [cm].
/// @param name of the view
Refusal CheckView(const char* name, std::size_t n, double first, double last);

/// Checks that deposits are as many as hits, or none, and finite numbers or infinity, which stands
/// for none.
Refusal CheckCharges(std::size_t hits, const std::vector<double>& charges);

} // namespace kelvo
