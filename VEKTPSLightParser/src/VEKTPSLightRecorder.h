// What the parser passes over or cannot resolve, recorded while it builds. Recording happens only
// while a VEKRecorderScope is alive on the calling thread (the one-call load installs one for its
// duration); otherwise every function here does its model call alone, so hosts that call the
// builders directly, and the two load operations, record nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VEKComPtr.h"
#include "VEKLightXml.h"
#include "VEKLists.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightModel.h"

namespace vek_parser_detail {

// Where a record points: an element of the parsed document, read when the record is made, or a
// place saved earlier. The document must outlive the set being built.
class VEKSource {
 public:
  // Implicit on purpose: every element is a source.
  VEKSource(const VEKLightXmlElementItf& element) noexcept : element_(&element) {}  // NOLINT
  VEKSource() noexcept = default;

  std::ptrdiff_t Offset() const noexcept {
    return element_ ? element_->GetSourceOffset() : offset_;
  }
  const VEKUnicodeString* Tag() const noexcept { return element_ ? &element_->GetName() : tag_; }
  // The same place, no longer tied to the element handle.
  VEKSource Saved() const noexcept {
    VEKSource saved;
    saved.offset_ = Offset();
    saved.tag_ = Tag();
    return saved;
  }

 private:
  const VEKLightXmlElementItf* element_ = nullptr;
  std::ptrdiff_t offset_ = -1;
  const VEKUnicodeString* tag_ = nullptr;
};

// One object naming another by id: the element that holds the id, the naming object (its kind and
// any face of it, borrowed) and how it names it, e.g. " as a datum" (empty for a plain mention).
struct VEKReference {
  VEKSource source;
  VEKTPSLightKind namerKind;
  VEKBaseUnknown* namer;
  const char* role = "";
};

// Collects the records of one load; installed on a thread by VEKRecorderScope and reached by the
// functions below.
class VEKLoadRecorder {
 public:
  VEKLoadRecorder() noexcept = default;
  VEKLoadRecorder(const VEKLoadRecorder&) = delete;
  VEKLoadRecorder& operator=(const VEKLoadRecorder&) = delete;

  // The records, in document order within each set; whether any was dropped for want of memory.
  std::vector<VEKTPSLightDiagnostic>& Records() noexcept { return records_; }
  bool LostRecords() const noexcept { return lost_; }
  void MarkLost() noexcept { lost_ = true; }

  void UseLines(const VEKLightXmlParser* parser) noexcept { lines_ = parser; }
  void BeginSet(VEKITPSLightSet* set) noexcept;
  void EndSet() noexcept;
  VEKITPSLightSet* Set() const noexcept { return set_; }
  // Adds a record for the set being built; drops it when memory runs out.
  void Add(VEKTPSLightDiagnosticKind kind, int objectKind, int id, const VEKSource& source,
           std::string text, std::string message) noexcept;
  // Adds a record about the whole load.
  void AddForLoad(VEKTPSLightDiagnosticKind kind, const VEKSource& source,
                  std::string message) noexcept;
  // Keeps `id` of `kind`, named by `by`, to be checked when the set ends.
  void Note(VEKTPSLightDiagnosticKind kind, VEKTPSLightKind objectKind, int id,
            const VEKReference& by) noexcept;
  void NoteGroupSource(const void* group, const VEKSource& source) noexcept;
  VEKSource GroupSource(const void* group) const noexcept;

 private:
  // A reference checked when its set ends: a failed lookup (to tell whether the object comes later
  // in the document), a TTRS id or an annotation's reference frame.
  struct Pending {
    VEKTPSLightDiagnosticKind kind;
    VEKTPSLightKind objectKind;
    int id;
    VEKSource source;
    VEKTPSLightKind namerKind;
    VEKBaseUnknown* namer;
    const char* role;
  };

  void CheckPending();
  int LineOf(const VEKSource& source) const noexcept;

  const VEKLightXmlParser* lines_ = nullptr;
  VEKITPSLightSet* set_ = nullptr;
  int setIndex_ = -1;
  std::size_t firstOfSet_ = 0;
  std::vector<VEKTPSLightDiagnostic> records_;
  std::vector<Pending> pending_;
  std::unordered_map<const void*, VEKSource> groupSources_;
  bool lost_ = false;
};

// Installs `recorder` on the calling thread for the scope's lifetime.
class VEKRecorderScope {
 public:
  explicit VEKRecorderScope(VEKLoadRecorder& recorder) noexcept;
  ~VEKRecorderScope();
  VEKRecorderScope(const VEKRecorderScope&) = delete;
  VEKRecorderScope& operator=(const VEKRecorderScope&) = delete;

 private:
  VEKLoadRecorder* previous_;
};

// The recorder installed on the calling thread; null when none is.
VEKLoadRecorder* VEKActiveRecorder() noexcept;

// The load's side: where lines are found (the parser of the document, kept alive until the last
// set ends; null to forget it), and the sets as they are built. A set's references are checked
// against its objects when it ends.
void VEKRecorderUseLines(const VEKLightXmlParser* parser) noexcept;
void VEKRecorderBeginSet(VEKITPSLightSet* set) noexcept;
void VEKRecorderEndSet() noexcept;
// The legacy load stopped before the AnnotationSet at `source`: another set would have brought
// the objects built from `built` to `wouldBe`, past `limit`.
void VEKRecordObjectLimit(const VEKSource& source, std::uint64_t built, std::uint64_t wouldBe,
                          std::uint64_t limit) noexcept;
// `sets` legacy sets each rebuilt every object of the document (`objectsPerSet`, the set
// included); `second` is where the first rebuild began.
void VEKRecordSetsMultiply(const VEKSource& second, int sets, std::uint64_t objectsPerSet) noexcept;

// The current-schema family root `root` came before any "AnnotationSet": its objects are not built.
void VEKRecordFamilyBeforeSet(const VEKSource& root) noexcept;

// The builders' side: each does what the parser must do and records what goes wrong.

// ConvertToNum with "%d" or "%le"; a non-empty text that does not convert is recorded against
// `source`. Returns ConvertToNum's result; `value` is written only on success.
int VEKReadNumber(std::string_view text, int& value, const VEKSource& source) noexcept;
int VEKReadNumber(std::string_view text, double& value, const VEKSource& source) noexcept;
inline int VEKReadNumber(const VEKUnicodeString& text, int& value,
                         const VEKSource& source) noexcept {
  return VEKReadNumber(text.View(), value, source);
}
inline int VEKReadNumber(const VEKUnicodeString& text, double& value,
                         const VEKSource& source) noexcept {
  return VEKReadNumber(text.View(), value, source);
}

// Looks `id` of `kind` up in `broker`; a lookup that fails, or succeeds with nothing, is recorded
// and gives false.
[[nodiscard]] bool VEKFindObject(VEKITPSIdBroker& broker, int id, VEKTPSLightKind kind,
                                 VEKComPtr<VEKBaseUnknown>& found, const VEKReference& by) noexcept;

// SetId on an object of the set being built; an id that another object of its kind already
// carries is recorded against `source`.
HRESULT VEKSetId(VEKITPSLight& object, int id, const VEKSource& source) noexcept;

// AddTTRS and SetReference: a TTRS id that no TTRS of the set carries, or a reference that no
// reference frame carries, is recorded when the set ends. Id 0 names nothing and is not checked.
template <class Object>
HRESULT VEKAddTTRS(Object& object, int ttrsId, const VEKReference& by) noexcept;
HRESULT VEKSetReference(VEKITPSLightAnnotation& annotation, int reference,
                        const VEKReference& by) noexcept;

// Whether a legacy object's values number `expected` and were all held; a wrong count (not a list
// that lost an item for want of memory) is recorded as the object passed over, `consequence`
// saying what follows (", so it is passed over"). `expected` of -1 means one or more.
[[nodiscard]] bool VEKHasValueCount(int count, bool complete, int expected, const VEKSource& source,
                                    const char* consequence) noexcept;
template <class Values>
[[nodiscard]] bool VEKHasValueCount(const Values& values, int expected, const VEKSource& source,
                                    const char* consequence) noexcept {
  return VEKHasValueCount(values.Size(), values.Complete(), expected, source, consequence);
}

// Where the order-group list `group` was read, so that the lookups made when groups are linked
// point there; a source that designates nothing when it was not noted.
void VEKNoteGroupSource(const void* group, const VEKSource& source) noexcept;
VEKSource VEKGroupSource(const void* group) noexcept;

// Records that `id` is named by `by`, to be checked against the objects of `kind` when the set
// ends; used through VEKAddTTRS and VEKSetReference.
void VEKNoteNamedId(VEKTPSLightKind kind, int id, const VEKReference& by) noexcept;

template <class Object>
HRESULT VEKAddTTRS(Object& object, int ttrsId, const VEKReference& by) noexcept {
  if (ttrsId != 0 && VEKActiveRecorder()) VEKNoteNamedId(VEKTPSLightKindTTRS, ttrsId, by);
  return object.AddTTRS(ttrsId);
}

}  // namespace vek_parser_detail
