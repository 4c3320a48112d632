// Helpers shared by the parser's source files: wide strings for model calls, typed interface
// queries and the child walk over parsed elements.
#pragma once

#include <cstddef>
#include <new>

#include "VEKBaseUnknown.h"
#include "VEKComPtr.h"
#include "VEKLightXml.h"
#include "VEKLists.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKUnicodeString.h"

namespace vek_parser_detail {

// A zero-terminated UTF-32 copy of a string, made for one model call and freed right after it:
// an array of GetLengthInChar() + 1 wide characters. Get() is null when the array could not be
// allocated: the caller then skips that call.
class VEKWideString {
 public:
  explicit VEKWideString(const VEKUnicodeString& text) noexcept
      : chars_(new (std::nothrow) wchar_t[static_cast<std::size_t>(text.GetLengthInChar()) + 1]) {
    if (chars_) text.ConvertToWChar(chars_);
  }
  ~VEKWideString() { delete[] chars_; }
  VEKWideString(const VEKWideString&) = delete;
  VEKWideString& operator=(const VEKWideString&) = delete;

  const wchar_t* Get() const noexcept { return chars_; }

 private:
  wchar_t* chars_;
};

// Calls `call` with the wide form of `text`; skips the call when the array cannot be allocated.
template <class Call>
void VEKPassWide(const VEKUnicodeString& text, Call&& call) {
  VEKWideString wide(text);
  if (wide.Get()) call(wide.Get());
}

// Asks `object` for interface U (identified by U::kIID) into `out`; E_POINTER for a null object.
template <class U>
HRESULT VEKQueryInterface(VEKBaseUnknown* object, VEKComPtr<U>& out) noexcept {
  if (!object) {
    out.Reset();
    return E_POINTER;
  }
  return object->QueryInterface(U::kIID, out.ReleaseAndGetVoidAddressOf());
}

// Visits the children of `parent` in document order, each once.
template <class Visit>
void VEKForEachChild(const VEKLightXmlElementItf& parent, Visit&& visit) {
  void* position = parent.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = parent.GetChild(position);
    if (!child) break;
    visit(*child);
  }
}

// A builder member: makes one object from one element.
using VEKBuilder = HRESULT (VEKTPSLightParserUtil::*)(VEKTPSLightContainer*, VEKITPSLightSet*,
                                                      VEKLightXmlElementItf&);

// Calls `build` on every child of `parent` named `tag`, in document order. A child that fails to
// build does not stop the walk.
inline void VEKBuildChildren(VEKTPSLightParserUtil& parser, VEKBuilder build,
                             VEKTPSLightContainer* container, VEKITPSLightSet* set,
                             const VEKLightXmlElementItf& parent, const char* tag) {
  VEKForEachChild(parent, [&](VEKLightXmlElementItf& child) {
    if (child.GetName() == tag) (void)(parser.*build)(container, set, child);
  });
}

// Owns the id lists collected for order groups: each entry is a heap VEKListValVEKUnicodeString
// (or null where one could not be made), freed with the holder.
class VEKOrderGroupLists {
 public:
  VEKOrderGroupLists() noexcept : lists_(0) {}
  ~VEKOrderGroupLists() {
    for (int k = 1; k <= lists_.Size(); ++k) {
      delete static_cast<VEKListValVEKUnicodeString*>(lists_[k]);
    }
  }
  VEKOrderGroupLists(const VEKOrderGroupLists&) = delete;
  VEKOrderGroupLists& operator=(const VEKOrderGroupLists&) = delete;

  VEKRawCollPV& Lists() noexcept { return lists_; }

 private:
  VEKRawCollPV lists_;
};

}  // namespace vek_parser_detail
