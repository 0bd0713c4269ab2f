#pragma once

#include "func/KelvoException.h"
#include "track/DetectorMaterials.h"
#include "track/ErrorSentence.h"
#include "track/HitCheck.h"

#include <exception>

namespace kelvo {

/// Calls work() and returns its Refusal; an exception becomes one, too.
template <class Work>
Refusal Guarded(Work&& work) {
  try {
    return work();
  } catch (const GeometryRefusal& refusal) {
    return {FitStatus::kBadGeometry, refusal.fMessage};
  } catch (const KelvoException& error) {
    return {FitStatus::kLibraryError, ErrorSentence(error.fCode, error.fValue)};
  } catch (const std::exception& error) {
    return {FitStatus::kLibraryError, std::string("the fit stopped with: ") + error.what()};
  }
}

} // namespace kelvo
