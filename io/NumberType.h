#pragma once

#include <TDataType.h>

#include <typeinfo>

namespace kelvo {

/// Calls f with a value of the type that ROOT names so.
/// @return false for a type that is no number
template <typename F>
bool WithType(EDataType type, F f) {
  const auto callIf = [&](auto zero) {
    if (type != TDataType::GetType(typeid(zero))) return false;
    f(zero);
    return true;
  };
  return callIf(Bool_t()) || callIf(Char_t()) || callIf(UChar_t()) || callIf(Short_t()) ||
         callIf(UShort_t()) || callIf(Int_t()) || callIf(UInt_t()) || callIf(Long_t()) ||
         callIf(ULong_t()) || callIf(Long64_t()) || callIf(ULong64_t()) || callIf(Float_t()) ||
         callIf(Double_t());
}

} // namespace kelvo
