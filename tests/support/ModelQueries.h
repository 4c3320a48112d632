// Typed queries on model objects, for the suites that read a model back.
#pragma once

#include <optional>
#include <string>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"

namespace vek_test {

// Interface U of `object` (U::kIID), or an empty holder when it does not answer it.
template <class U>
VEKComPtr<U> Query(VEKBaseUnknown* object) {
  VEKComPtr<U> face;
  if (object) (void)object->QueryInterface(U::kIID, face.ReleaseAndGetVoidAddressOf());
  return face;
}

// The identity face of `object`, without a reference (the model keeps it alive).
inline VEKBaseUnknown* Identity(VEKBaseUnknown* object) {
  return Query<VEKBaseUnknown>(object).Get();
}

// UTF-8 text of a string value; "<unset>" for a value that was never set.
inline std::string Utf8(const VEKUnicodeString& text) { return text.ConvertToChar(); }
inline std::string Utf8(const std::optional<VEKUnicodeString>& text) {
  return text ? Utf8(*text) : std::string("<unset>");
}

}  // namespace vek_test
