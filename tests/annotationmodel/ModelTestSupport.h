// Helpers for the light annotation model tests, beside the typed creation and queries of
// ModelQueries.h: an object that comes from no model.
#pragma once

#include <cstdint>

#include "ModelQueries.h"

namespace vek_test {

// A component of no model: counts its references and answers only VEKBaseUnknown.
class ForeignObject : public VEKBaseUnknown {
 public:
  HRESULT QueryInterface(const IID& iid, void** out) override {
    if (!out) return E_POINTER;
    *out = iid == VEKBaseUnknown::kIID ? this : nullptr;
    if (!*out) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  std::uint32_t AddRef() override { return ++references; }
  std::uint32_t Release() override { return --references; }

  std::uint32_t references = 1;
};

}  // namespace vek_test
