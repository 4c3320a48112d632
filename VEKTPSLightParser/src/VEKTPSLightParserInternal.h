// Helpers shared by the parser's source files: wide strings for model calls, typed interface
// queries and the child walk over parsed elements.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "VEKBaseUnknown.h"
#include "VEKComPtr.h"
#include "VEKLightXml.h"
#include "VEKLists.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightRecorder.h"
#include "VEKUnicodeString.h"

namespace vek_parser_detail {

// A zero-terminated UTF-32 copy of a UTF-8 text, made for one model call and dropped right after
// it. Names, uuids and numbers fit the inline room; longer text gets a heap array. Get() is null
// when that array could not be allocated: the caller then skips that call.
class VEKWideString {
 public:
  explicit VEKWideString(std::string_view utf8) noexcept {
    // A character takes at least one byte, so the byte count bounds the characters.
    if (utf8.size() >= kInline) {
      heap_.reset(new (std::nothrow) wchar_t[utf8.size() + 1]);
      chars_ = heap_.get();
    }
    VEKUnicodeString::ConvertViewToWChar(utf8, chars_);
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
void VEKPassWide(std::string_view text, Call&& call) {
  VEKWideString wide(text);
  if (wide.Get()) call(wide.Get());
}
template <class Call>
void VEKPassWide(const VEKUnicodeString& text, Call&& call) {
  VEKPassWide(text.View(), std::forward<Call>(call));
}

// Byte-level reading of UTF-8 text, with the clamping rules of VEKUnicodeString's SubString and
// SearchSubString. Both texts are valid UTF-8, so a byte match starts on a character boundary and
// byte positions cut exactly where character positions would.

// Position of `what` at or after byte `start` (a negative start counts as 0), or -1; empty `what`
// is found at `start` when start is within the text or at its end.
inline int VEKFindText(std::string_view text, std::string_view what, int start) noexcept {
  if (start < 0) start = 0;
  if (static_cast<std::size_t>(start) > text.size()) return -1;
  const std::size_t found = text.find(what, static_cast<std::size_t>(start));
  return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

// The `length` bytes from `start`, clamped to the text: a negative start counts from 0, a
// non-positive length or a start past the end gives empty text.
inline std::string_view VEKSubView(std::string_view text, int start, int length) noexcept {
  if (start < 0) start = 0;
  if (length <= 0 || static_cast<std::size_t>(start) >= text.size()) return {};
  return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(length));
}

// Bytes of the character at byte `at` of `text`; 1 at or past the end.
inline int VEKCharacterLengthAt(std::string_view text, int at) noexcept {
  if (at < 0 || static_cast<std::size_t>(at) >= text.size()) return 1;
  const auto lead = static_cast<unsigned char>(text[static_cast<std::size_t>(at)]);
  const int length = lead < 0xC0 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  return std::min<int>(length, static_cast<int>(text.size()) - at);
}

// Calls `visit` with each item of the list `text` as GetListOfUnicode cuts it: the first
// character never belongs to an item (data is expected to open with the separator), empty pieces
// are skipped, the search goes on one character past where a separator starts, and when no
// separator is left the whole text, not the remainder, becomes the last item.
template <class Visit>
void VEKForEachListItem(std::string_view text, std::string_view separator, Visit&& visit) {
  const int length = static_cast<int>(text.size());
  if (length == 0) return;
  int start = VEKCharacterLengthAt(text, 0);
  for (;;) {
    const int found = VEKFindText(text, separator, start);
    if (found < 0) {
      visit(text);
      return;
    }
    if (start < found) visit(text.substr(start, found - start));
    start = found + VEKCharacterLengthAt(text, found);
    if (start >= length) return;
  }
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

// The first child of `parent` named `name`, or null. Direct children only: the cost stays
// bounded by the parent's own child count.
inline VEKLightXmlElementItf* VEKFirstChildNamed(const VEKLightXmlElementItf& parent,
                                                 std::string_view name) {
  void* position = parent.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = parent.GetChild(position);
    if (!child) break;
    if (child->GetNameView() == name) return child;
  }
  return nullptr;
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
    if (child.GetNameView() == tag) (void)(parser.*build)(container, set, child);
  });
}

// The positional values of a legacy object: item k (from 1) is the "V" attribute of its k-th
// value child, as views into the element's document. Reading outside 1..Size() gives empty text.
// Objects hold a handful of values, which fit the inline room; more spill to the heap.
class VEKValueItems {
 public:
  VEKValueItems() noexcept = default;
  VEKValueItems(const VEKValueItems&) = delete;
  VEKValueItems& operator=(const VEKValueItems&) = delete;

  void Append(std::string_view value) noexcept {
    if (count_ < kInline) {
      inline_[count_++] = value;
      return;
    }
    try {
      more_.push_back(value);
      ++count_;
    } catch (const std::bad_alloc&) {
      complete_ = false;
    }
  }
  int Size() const noexcept { return static_cast<int>(count_); }
  bool Complete() const noexcept { return complete_; }
  std::string_view operator[](int index) const noexcept {
    if (index < 1 || static_cast<std::size_t>(index) > count_) return {};
    const auto at = static_cast<std::size_t>(index - 1);
    return at < kInline ? inline_[at] : more_[at - kInline];
  }

 private:
  static constexpr std::size_t kInline = 16;
  std::string_view inline_[kInline];
  std::vector<std::string_view> more_;
  std::size_t count_ = 0;
  bool complete_ = true;
};

// Calls `use(name, value, nested)` for each child of `element` as ForEachChildValue visits it.
template <class Use>
void VEKForEachChildValue(const VEKLightXmlElementItf& element, std::string_view attribute,
                          std::string_view descendInto, Use&& use) {
  struct Adapter final : VEKLightXmlValueVisitor {
    explicit Adapter(Use& use) noexcept : use_(use) {}
    void Visit(std::string_view name, std::string_view value, bool nested) override {
      use_(name, value, nested);
    }
    Use& use_;
  } adapter(use);
  element.ForEachChildValue(attribute, descendInto, adapter);
}

// Calls `visit` with the "V" attribute of each named child of `element`, in order: the values
// GetNodeValue lists.
template <class Visit>
void VEKForEachValue(const VEKLightXmlElementItf& element, Visit&& visit) {
  VEKForEachChildValue(element, "V", {}, [&](std::string_view name, std::string_view value, bool) {
    if (!name.empty()) visit(value);
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
