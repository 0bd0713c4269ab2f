#pragma once

#include <TDataType.h>

namespace kelvo {

/// Calls f with a value of the type that ROOT names so.
/// @return false for a type that is no number
template <typename F>
bool WithType(EDataType type, F f) {
  switch (type) {
    case kBool_t:
      f(Bool_t());
      return true;
    case kChar_t:
      f(Char_t());
      return true;
    case kUChar_t:
      f(UChar_t());
      return true;
    case kShort_t:
      f(Short_t());
      return true;
    case kUShort_t:
      f(UShort_t());
      return true;
    case kInt_t:
      f(Int_t());
      return true;
    case kUInt_t:
      f(UInt_t());
      return true;
    case kLong_t:
      f(Long_t());
      return true;
    case kULong_t:
      f(ULong_t());
      return true;
    case kLong64_t:
      f(Long64_t());
      return true;
    case kULong64_t:
      f(ULong64_t());
      return true;
    case kFloat_t:
      f(Float_t());
      return true;
    case kDouble_t:
      f(Double_t());
      return true;
    default:
      return false;
  }
}

} // namespace kelvo
