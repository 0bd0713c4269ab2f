#include "track/ErrorSentence.h"

#include "func/KelvoException.h"
#include "util/Text.h"

namespace kelvo {

std::string ErrorSentence(unsigned int code, double value) {
  const std::string number = NumberText(value);
  switch (code) {
    case kBadKE:
      return "a kinetic energy or thickness along the track comes out at " + number +
             ", below 0; check that the hits lie in this detector";
    case kBadRadLength:
      return "a material on the track has a radiation length of " + number +
             " cm; give it one above 0 in the detector's description";
    case kBadNScat:
      return "a view has no more measurements than scattering planes";
    case kIndexProblem:
      return "the detector reports no material along the track; check that the hits lie in it";
    case kNaN:
      return "a quantity of the fit is not a number; check hits and detector for extreme values";
    case kBadSigX:
      return "the uncertainty of a measurement is " + number + " cm; it must be above 0";
    case kBadSigSJ:
      return "the width of a scattering angle is " + number + " rad; it must be above 0";
    case kBadP:
    case kBadBeta:
      return "the momentum or velocity at a scattering plane comes out at " + number +
             ", out of range; check that the hits lie in this detector";
    case kNDOFTooSmall:
    case kTooFewPlanes:
      return "a view has too few hits for a fit";
    case kTrackingFailure:
      return "the track has no direction at one of its points, since two of them coincide";
    default:
      return "the fit library raised the unknown error " + std::to_string(code) + " with value " +
             number;
  }
}

} // namespace kelvo
