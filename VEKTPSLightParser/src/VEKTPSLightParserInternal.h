// Helpers shared by the parser's source files: wide strings for model calls, typed interface
// queries and the child walk over parsed elements.
#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include "VEKBaseUnknown.h"
#include "VEKComPtr.h"
#include "VEKLightXml.h"
#include "VEKLists.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightRecorder.h"
#include "VEKUnicodeString.h"

namespace vek_parser_detail {

// A zero-terminated UTF-32 copy of a string, made for one model call and dropped right after it.
// Names, uuids and numbers fit the inline room; longer text gets a heap array. Get() is null when
// that array could not be allocated: the caller then skips that call.
class VEKWideString {
 public:
  explicit VEKWideString(const VEKUnicodeString& text) noexcept {
    const std::size_t length = static_cast<std::size_t>(text.GetLengthInChar());
    if (length >= kInline) {
      heap_.reset(new (std::nothrow) wchar_t[length + 1]);
      chars_ = heap_.get();
    }
    if (chars_) text.ConvertToWChar(chars_);
  }
  VEKWideString(const VEKWideString&) = delete;
  VEKWideString& operator=(const VEKWideString&) = delete;

  const wchar_t* Get() const noexcept { return chars_; }

 private:
  static constexpr std::size_t kInline = 64;
  wchar_t inline_[kInline];
  std::unique_ptr<wchar_t[]> heap_;
  wchar_t* chars_ = inline_;
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

// Makes `activeViewId` (0: none) the active view of `capture` when the set's broker finds it: the
// view learns of the capture first, when it is a view, then the capture takes the object found,
// view or not.
void VEKLinkActiveView(VEKITPSIdBroker& broker, VEKITPSLightCapture& capture, int activeViewId,
                       const VEKLightXmlElementItf& element) noexcept;

// A vector setter of a model object, and the element name that carries its three numbers.
template <class Object>
struct VEKNamedVector {
  const char* name;
  HRESULT (Object::*set)(double, double, double);
};

// Looks each id of `ids` up in `broker` with `kind` and hands every object found to `use`;
// ids that resolve to nothing are passed over.
template <class Use>
void VEKForEachFoundObject(VEKITPSIdBroker& broker, const VEKRawCollint& ids, VEKTPSLightKind kind,
                           const VEKReference& by, Use&& use) {
  for (int position = 1; position <= ids.Size(); ++position) {
    VEKComPtr<VEKBaseUnknown> found;
    if (VEKFindObject(broker, ids[position], kind, found, by)) use(found.Get());
  }
}

// Calls `use` with each integer of `ids`, in order.
template <class Use>
void VEKForEachInt(const VEKRawCollint& ids, Use&& use) {
  for (int position = 1; position <= ids.Size(); ++position) use(ids[position]);
}

// A view shows `annotation`: the annotation learns of the view first (when it is an annotation),
// then the view of the annotation.
inline void VEKShowAnnotation(VEKITPSLightView& view, VEKBaseUnknown* annotation) noexcept {
  VEKComPtr<VEKITPSLightModel> model;
  if (VEKSucceeded(VEKQueryInterface(annotation, model)) && model) (void)model->SetView(&view);
  model.Reset();
  (void)view.AddTPS(annotation);
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
