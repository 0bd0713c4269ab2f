#include "func/KelvoException.h"

#include <iostream>

namespace kelvo {

namespace {

const char* Message(unsigned int code) {
  switch (code) {
    case kBadKE:
      return "bad KE";
    case kBadRadLength:
      return "bad radiation length";
    // The text users know; the condition is that measurements do not outnumber the surfaces.
    case kBadNScat:
      return "num scat surf <= num measurements";
    case kIndexProblem:
      return "index problem";
    case kNaN:
      return "nan encountered";
    case kBadSigX:
      return "bad sigx";
    case kBadSigSJ:
      return "bad sigSJ";
    case kBadP:
      return "bad value for p";
    case kBadBeta:
      return "bad value for beta";
    case kNDOFTooSmall:
      return "track NDOF is too small";
    case kTooFewPlanes:
      return "too few planes in one view";
    case kTrackingFailure:
      return "tracking failure";
    default:
      return "UNKNOWN";
  }
}

} // namespace

KelvoException::KelvoException(const char* file, unsigned int line, unsigned int code, double value)
    : fFile(file), fLine(line), fCode(code), fValue(value) {}

KelvoException::~KelvoException() = default;

void KelvoException::Print() {
  std::cout << "\nKelvoException " << Message(fCode) << " with value = " << fValue << " found in "
            << fFile << " at line " << fLine << "." << std::endl;
}

} // namespace kelvo
