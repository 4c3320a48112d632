// Helpers for the light annotation model tests, beside the typed creation and queries of
// ModelQueries.h: stray set pointers and an object that comes from no model.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "ModelQueries.h"

namespace vek_test {

// A value a host may leave in a set pointer that is not a live set.
struct StraySet {
  const char* what;
  VEKITPSLightSet* value;
};

// A freed set's address, a small integer and the address of `stackBytes`, filled with garbage.
inline std::vector<StraySet> StraySets(unsigned char (&stackBytes)[64]) {
  std::memset(stackBytes, 0xA5, sizeof stackBytes);
  VEKITPSLightSet* freed = MakeSet(MakeContainer().Get()).Get();  // released to zero here
  return {{"freed set", freed},
          {"small integer", reinterpret_cast<VEKITPSLightSet*>(0x1234)},
          {"stack bytes", reinterpret_cast<VEKITPSLightSet*>(stackBytes)}};
}

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
