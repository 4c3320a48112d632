// Typed creation of and queries on model objects, for the suites that fill a model by hand or
// read one back.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

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

inline VEKComPtr<VEKTPSLightContainer> MakeContainer() {
  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  return container;
}

inline VEKComPtr<VEKITPSLightSet> MakeSet(VEKTPSLightContainer* container,
                                          VEKBaseUnknown* father = nullptr) {
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(container->CreateLightSet(set.ReleaseAndGetAddressOf(), father), S_OK);
  return set;
}

// The container's creator for family I, chosen by the type of a null I*.
inline auto Creator(VEKITPSLightAnnotation*) { return &VEKTPSLightContainer::CreateAnnotation; }
inline auto Creator(VEKITPSLightView*) { return &VEKTPSLightContainer::CreateView; }
inline auto Creator(VEKITPSLightTTRS*) { return &VEKTPSLightContainer::CreateTTRS; }
inline auto Creator(VEKITPSLightRefFrame*) { return &VEKTPSLightContainer::CreateRefFrame; }
inline auto Creator(VEKITPSLightCG*) { return &VEKTPSLightContainer::CreateCG; }
inline auto Creator(VEKITPSLightCapture*) { return &VEKTPSLightContainer::CreateCapture; }

// A new object of family `I` in `set`, made through the container's creator for `I`.
template <class I>
VEKComPtr<I> Create(VEKTPSLightContainer* container, VEKITPSLightSet* set) {
  VEKComPtr<I> made;
  const auto create = Creator(static_cast<I*>(nullptr));
  EXPECT_EQ((container->*create)(made.ReleaseAndGetAddressOf(), set), S_OK);
  return made;
}

// A real container and one set, with objects made in it, given an id when one is asked for.
class OneSet {
 protected:
  template <class I>
  VEKComPtr<I> Make(std::optional<int> id = std::nullopt) {
    VEKComPtr<I> object = Create<I>(container_.Get(), set_.Get());
    if (id) {
      EXPECT_EQ(Query<VEKITPSLight>(object.Get())->SetId(*id), S_OK);
    }
    return object;
  }

  VEKComPtr<VEKTPSLightContainer> container_ = MakeContainer();
  VEKComPtr<VEKITPSLightSet> set_ = MakeSet(container_.Get());
};

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

}  // namespace vek_test
