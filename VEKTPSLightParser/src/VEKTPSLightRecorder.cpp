// The records a load makes while it builds: kept per thread for the one-call load only.
#include "VEKTPSLightRecorder.h"

#include <algorithm>
#include <climits>
#include <new>
#include <unordered_set>
#include <utility>

namespace vek_parser_detail {

namespace {

thread_local VEKLoadRecorder* tActive = nullptr;

std::string KindName(int kind) { return VEKTPSLightKindName(kind); }

std::string Utf8(const VEKUnicodeString& text) {
  return std::string(text.ConvertToChar(), text.GetLengthInByte());
}

std::string TagOf(const VEKSource& source) {
  const VEKUnicodeString* tag = source.Tag();
  return tag ? Utf8(*tag) : std::string("element");
}

// The naming object as a reader knows it: `view 7 "Front"`.
std::string Describe(VEKTPSLightKind kind, VEKBaseUnknown* object) {
  std::string text = KindName(kind);
  VEKComPtr<VEKITPSLight> light;
  if (!object ||
      VEKFailed(object->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())) ||
      !light) {
    return text;
  }
  if (const std::optional<int> id = light->GetId()) text += " " + std::to_string(*id);
  const std::optional<VEKUnicodeString> name = light->GetName();
  if (name && name->GetLengthInByte() > 0) text += " \"" + Utf8(*name) + "\"";
  return text;
}

// The ids carried by the objects of one family of a set.
std::unordered_set<int> IdsOf(const VEKLightObjectList* family) {
  std::unordered_set<int> ids;
  if (!family) return ids;
  ids.reserve(static_cast<std::size_t>(family->Count()));
  for (int position = 0; position < family->Count(); ++position) {
    VEKComPtr<VEKITPSLight> light;
    VEKBaseUnknown* object = family->Get(position);
    if (object &&
        VEKSucceeded(
            object->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())) &&
        light) {
      if (const std::optional<int> id = light->GetId()) ids.insert(*id);
    }
  }
  return ids;
}

const VEKLightObjectList* FamilyOf(VEKITPSLightSet& set, VEKTPSLightKind kind) {
  switch (kind) {
    case VEKTPSLightKindAnnotation:
      return set.GetAnnotations();
    case VEKTPSLightKindView:
      return &set.GetViews();
    case VEKTPSLightKindTTRS:
      return &set.GetTTRS();
    case VEKTPSLightKindRefFrame:
      return &set.GetRefFrames();
    case VEKTPSLightKindCG:
      return &set.GetCGs();
    default:
      return &set.GetCaptures();
  }
}

template <class Number>
int ReadNumber(std::string_view text, Number& value, const char* format, const char* what,
               const VEKSource& source) noexcept {
  const int converted = VEKUnicodeString::ConvertViewToNum(text, &value, format);
  // 0: text that does not convert; -1 (empty or blank) is a value left out, not a bad one.
  VEKLoadRecorder* recorder = tActive;
  if (converted != 0 || !recorder) return converted;
  try {
    std::string written(text);
    std::string message = "\"" + written + "\" in " + TagOf(source) + " is not " + what +
                          ", so its value is left unset";
    recorder->Add(VEKTPSLightDiagnosticKind::BadNumber, 0, 0, source, std::move(written),
                  std::move(message));
  } catch (const std::bad_alloc&) {
    recorder->MarkLost();
  }
  return converted;
}

}  // namespace

VEKRecorderScope::VEKRecorderScope(VEKLoadRecorder& recorder) noexcept : previous_(tActive) {
  tActive = &recorder;
}

VEKRecorderScope::~VEKRecorderScope() { tActive = previous_; }

VEKLoadRecorder* VEKActiveRecorder() noexcept { return tActive; }

int VEKLoadRecorder::LineOf(const VEKSource& source) const noexcept {
  return lines_ ? lines_->GetLineOf(source.Offset()) : 0;
}

void VEKLoadRecorder::Add(VEKTPSLightDiagnosticKind kind, int objectKind, int id,
                          const VEKSource& source, std::string text, std::string message) noexcept {
  try {
    VEKTPSLightDiagnostic record;
    record.kind = kind;
    record.set = set_ ? setIndex_ : -1;
    record.objectKind = objectKind;
    record.id = id;
    record.line = LineOf(source);
    record.element = TagOf(source);
    record.text = std::move(text);
    record.message = std::move(message);
    records_.push_back(std::move(record));
  } catch (const std::bad_alloc&) {
    lost_ = true;
  }
}

void VEKLoadRecorder::AddForLoad(VEKTPSLightDiagnosticKind kind, const VEKSource& source,
                                 std::string message) noexcept {
  VEKITPSLightSet* open = set_;
  set_ = nullptr;
  Add(kind, 0, 0, source, {}, std::move(message));
  set_ = open;
}

void VEKLoadRecorder::Note(VEKTPSLightDiagnosticKind kind, VEKTPSLightKind objectKind, int id,
                           const VEKReference& by) noexcept {
  if (!set_) return;
  try {
    pending_.push_back({kind, objectKind, id, by.source.Saved(), by.namerKind, by.namer, by.role});
  } catch (const std::bad_alloc&) {
    lost_ = true;
  }
}

void VEKLoadRecorder::NoteGroupSource(const void* group, const VEKSource& source) noexcept {
  try {
    groupSources_.insert_or_assign(group, source.Saved());
  } catch (const std::bad_alloc&) {
    lost_ = true;
  }
}

VEKSource VEKLoadRecorder::GroupSource(const void* group) const noexcept {
  const auto found = groupSources_.find(group);
  return found == groupSources_.end() ? VEKSource() : found->second;
}

void VEKLoadRecorder::BeginSet(VEKITPSLightSet* set) noexcept {
  EndSet();
  if (!set) return;
  set_ = set;
  ++setIndex_;
  firstOfSet_ = records_.size();
}

void VEKLoadRecorder::EndSet() noexcept {
  if (!set_) return;
  try {
    CheckPending();
  } catch (const std::bad_alloc&) {
    lost_ = true;
  }
  pending_.clear();
  groupSources_.clear();
  // Records come in the order the builders meet them; a reader wants the document's.
  const auto byLine = [](const VEKTPSLightDiagnostic& a, const VEKTPSLightDiagnostic& b) {
    return (a.line == 0 ? INT_MAX : a.line) < (b.line == 0 ? INT_MAX : b.line);
  };
  try {
    std::stable_sort(records_.begin() + static_cast<std::ptrdiff_t>(firstOfSet_), records_.end(),
                     byLine);
  } catch (const std::bad_alloc&) {
    lost_ = true;
  }
  set_ = nullptr;
}

void VEKLoadRecorder::CheckPending() {
  constexpr int kKinds = VEKTPSLightKindCapture;
  std::unordered_set<int> carried[kKinds];
  bool known[kKinds] = {};
  for (const Pending& pending : pending_) {
    const int family = pending.objectKind - 1;
    if (!known[family]) {
      carried[family] = IdsOf(FamilyOf(*set_, pending.objectKind));
      known[family] = true;
    }
    const bool exists = carried[family].count(pending.id) > 0;
    if (exists && pending.kind != VEKTPSLightDiagnosticKind::UnresolvedId) continue;
    const std::string target = KindName(pending.objectKind);
    std::string message = Describe(pending.namerKind, pending.namer) + " names " + target + " " +
                          std::to_string(pending.id) + pending.role;
    // A lookup finds only what was built before it: the object may come later in the document.
    message += exists ? ", which comes later in the document; a reference finds only objects "
                        "built before it"
                      : ", which no " + target + " of the set carries";
    Add(pending.kind, pending.objectKind, pending.id, pending.source, {}, std::move(message));
  }
}

void VEKRecorderUseLines(const VEKLightXmlParser* parser) noexcept {
  if (tActive) tActive->UseLines(parser);
}

void VEKRecorderBeginSet(VEKITPSLightSet* set) noexcept {
  if (tActive) tActive->BeginSet(set);
}

void VEKRecorderEndSet() noexcept {
  if (tActive) tActive->EndSet();
}

void VEKRecordObjectLimit(const VEKSource& source, std::uint64_t built, std::uint64_t wouldBe,
                          std::uint64_t limit) noexcept {
  VEKLoadRecorder* recorder = tActive;
  if (!recorder) return;
  try {
    recorder->AddForLoad(VEKTPSLightDiagnosticKind::ObjectLimit, source,
                         "the load stops before this AnnotationSet: its set would bring the " +
                             std::to_string(built) + " objects built to " +
                             std::to_string(wouldBe) + ", past the limit of " +
                             std::to_string(limit));
  } catch (const std::bad_alloc&) {
    recorder->MarkLost();
  }
}

void VEKRecordSetsMultiply(const VEKSource& second, int sets,
                           std::uint64_t objectsPerSet) noexcept {
  VEKLoadRecorder* recorder = tActive;
  if (!recorder) return;
  try {
    recorder->AddForLoad(VEKTPSLightDiagnosticKind::LegacySetsMultiply, second,
                         std::to_string(sets) +
                             " AnnotationSets each rebuilt every object of the document: " +
                             std::to_string(sets) + " sets of " + std::to_string(objectsPerSet) +
                             " objects, " + std::to_string(objectsPerSet * sets) + " in all");
  } catch (const std::bad_alloc&) {
    recorder->MarkLost();
  }
}

void VEKRecordFamilyBeforeSet(const VEKSource& root) noexcept {
  VEKLoadRecorder* recorder = tActive;
  if (!recorder) return;
  try {
    const VEKUnicodeString* tag = root.Tag();
    recorder->Add(VEKTPSLightDiagnosticKind::FamilyBeforeSet, 0, 0, root, "",
                  std::string(tag ? tag->ConvertToChar() : "A family root") +
                      " comes before any AnnotationSet, so its objects are not built");
  } catch (const std::bad_alloc&) {
    recorder->MarkLost();
  }
}

int VEKReadNumber(std::string_view text, int& value, const VEKSource& source) noexcept {
  return ReadNumber(text, value, "%d", "an integer", source);
}

int VEKReadNumber(std::string_view text, double& value, const VEKSource& source) noexcept {
  return ReadNumber(text, value, "%le", "a number", source);
}

bool VEKFindObject(VEKITPSIdBroker& broker, int id, VEKTPSLightKind kind,
                   VEKComPtr<VEKBaseUnknown>& found, const VEKReference& by) noexcept {
  const HRESULT result = broker.GetObjectFromId(id, kind, found.ReleaseAndGetAddressOf());
  if (VEKSucceeded(result) && found) return true;
  if (tActive) tActive->Note(VEKTPSLightDiagnosticKind::UnresolvedId, kind, id, by);
  return false;
}

HRESULT VEKSetId(VEKITPSLight& object, int id, const VEKSource& source) noexcept {
  VEKLoadRecorder* recorder = tActive;
  VEKITPSLightSet* set = recorder ? recorder->Set() : nullptr;
  if (!set) return object.SetId(id);
  const std::vector<VEKTPSLightUnresolved>& duplicates = set->GetDuplicateIds();
  const std::size_t before = duplicates.size();
  const HRESULT result = object.SetId(id);
  if (duplicates.size() == before) return result;
  const VEKTPSLightUnresolved duplicate = duplicates.back();
  try {
    const std::string kind = KindName(duplicate.kind);
    recorder->Add(VEKTPSLightDiagnosticKind::DuplicateId, duplicate.kind, duplicate.id, source, {},
                  "duplicate " + kind + " id " + std::to_string(duplicate.id) + ": an earlier " +
                      kind + " of the set carries it too");
  } catch (const std::bad_alloc&) {
    recorder->MarkLost();
  }
  return result;
}

HRESULT VEKSetReference(VEKITPSLightAnnotation& annotation, int reference,
                        const VEKReference& by) noexcept {
  if (reference != 0 && tActive) VEKNoteNamedId(VEKTPSLightKindRefFrame, reference, by);
  return annotation.SetReference(reference);
}

void VEKNoteNamedId(VEKTPSLightKind kind, int id, const VEKReference& by) noexcept {
  if (!tActive) return;
  tActive->Note(kind == VEKTPSLightKindTTRS ? VEKTPSLightDiagnosticKind::UnknownTTRS
                                            : VEKTPSLightDiagnosticKind::UnknownRefFrame,
                kind, id, by);
}

bool VEKHasValueCount(int count, bool complete, int expected, const VEKSource& source,
                      const char* consequence) noexcept {
  // A list that lost an item for want of memory says nothing about the document.
  if (!complete) return false;
  if (expected < 0 ? count > 0 : count == expected) return true;
  VEKLoadRecorder* recorder = tActive;
  if (!recorder) return false;
  try {
    recorder->Add(VEKTPSLightDiagnosticKind::LegacyValueCount, 0, 0, source, {},
                  TagOf(source) + " holds " + std::to_string(count) + " values, not " +
                      (expected < 0 ? std::string("1 or more") : std::to_string(expected)) +
                      consequence);
  } catch (const std::bad_alloc&) {
    recorder->MarkLost();
  }
  return false;
}

void VEKNoteGroupSource(const void* group, const VEKSource& source) noexcept {
  if (tActive && group) tActive->NoteGroupSource(group, source);
}

VEKSource VEKGroupSource(const void* group) noexcept {
  return tActive ? tActive->GroupSource(group) : VEKSource();
}

}  // namespace vek_parser_detail
