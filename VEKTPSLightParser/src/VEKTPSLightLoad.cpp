// Parser entry: the two load operations and their input decoding, and the one load path they share
// with the one-call load: parse, root check, dump, and the walk of each schema.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKSysUncompress.h"
#include "VEKTPSLightParserInternal.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightPipeline.h"
#include "VEKTPSLightRecorder.h"

using vek_parser_detail::VEKForEachChild;
using vek_parser_detail::VEKPassWide;

using vek_parser_detail::VEKLoadBytes;
using vek_parser_detail::VEKLoadOutcome;
using vek_parser_detail::VEKLoadRules;
using vek_parser_detail::VEKOwnedBytes;
using vek_parser_detail::VEKRoots;

namespace {

using vek_parser_detail::kVEKCurrentRoot;
using vek_parser_detail::kVEKLegacyRoot;
using vek_parser_detail::kVEKMaxInflateRatio;

HRESULT VEKDecompressInput(const char* compressedData, int uncompressedSize, int compressedSize,
                           VEKLoadBytes& input) {
  if (uncompressedSize < 0 || compressedSize < 0) return E_FAIL;
  // A declared size that no stream can fill is refused before anything is allocated.
  if (uncompressedSize > static_cast<std::int64_t>(compressedSize) * kVEKMaxInflateRatio) {
    return E_FAIL;
  }
  const auto declared = static_cast<unsigned int>(uncompressedSize);
  // The parser always receives the declared size, and a shorter stream must leave zeros, never
  // indeterminate bytes, in the part it did not fill. Zeroed memory from the system costs no
  // resident page until it is written, and the parser stops at the first zero after the root, so
  // a declared size beyond the stream's output costs address space, not memory.
  VEKOwnedBytes array(static_cast<unsigned char*>(std::calloc(declared, 1)),
                      vek_parser_detail::VEKFreeBlock);
  if (!array) return E_FAIL;
  unsigned int produced = declared;
  if (VEKSysUncompress(compressedData, compressedSize, reinterpret_cast<char*>(array.get()),
                       &produced) < 0) {
    return E_FAIL;
  }
  input.bytes = array.get();
  input.length = declared;
  input.owned = std::move(array);
  return S_OK;
}

HRESULT VEKDecodeText(const VEKUnicodeString& source, unsigned char fromBase64,
                      VEKLoadBytes& input) {
  const char* text = source.ConvertToChar();
  if (!text) return E_FAIL;
  if (fromBase64 != 1) {
    // The character count, not the byte count: a text with multi-byte characters is cut short.
    input.bytes = reinterpret_cast<const unsigned char*>(text);
    input.length = static_cast<std::size_t>(source.GetLengthInChar());
    return S_OK;
  }
  unsigned char* decoded = nullptr;
  unsigned int decodedLength = 0;
  const int decodeResult = VEKCodePage::ConvertFromBase64(text, decoded, decodedLength);
  input.owned = VEKOwnedBytes(decoded, vek_parser_detail::VEKDeleteArray);
  if (decodeResult < 0 || !decoded) return E_FAIL;
  input.bytes = decoded;
  input.length = decodedLength;
  return S_OK;
}

// Stops a load before a set that would bring the objects built past the limit.
class VEKObjectBudget {
 public:
  explicit VEKObjectBudget(std::uint64_t limit) noexcept : limit_(limit) {}
  // Whether a set of `expected` objects may be built after those counted so far; when not, the
  // stop is recorded at `source`.
  [[nodiscard]] bool Allows(std::uint64_t expected, const vek_parser_detail::VEKSource& source) {
    if (limit_ == 0 || built_ + expected <= limit_) return true;
    vek_parser_detail::VEKRecordObjectLimit(source, built_, built_ + expected, limit_);
    return false;
  }
  void Count(std::uint64_t objects) noexcept { built_ += objects; }

 private:
  std::uint64_t limit_;
  std::uint64_t built_ = 0;
};

// The builder of a current-schema family root; null for any other name.
vek_parser_detail::VEKBuilder FamilyRootBuilder(std::string_view name) noexcept {
  static constexpr struct {
    const char* tag;
    vek_parser_detail::VEKBuilder build;
  } kRoots[] = {
      {"RootTTRSs", &VEKTPSLightParserUtil::GenerateNewTTRS},
      {"RootTPSs", &VEKTPSLightParserUtil::GenerateNewAnnotations},
      {"RootViews", &VEKTPSLightParserUtil::GenerateNewViews},
      {"RootRefs", &VEKTPSLightParserUtil::GenerateNewRefFrame},
      {"RootCGs", &VEKTPSLightParserUtil::GenerateNewCG},
      {"RootCaps", &VEKTPSLightParserUtil::GenerateNewCapture},
  };
  for (const auto& root : kRoots) {
    if (name == root.tag) return root.build;
  }
  return nullptr;
}

// Current schema: the root's children in document order, each family root handed to its builder
// with the set made by the latest "AnnotationSet" before it.
HRESULT VEKWalkCurrent(VEKTPSLightParserUtil& parser, VEKLightXmlElement& root,
                       const VEKLoadRules& rules, VEKBaseUnknown* father, VEKITPSLightSet** set,
                       VEKLoadOutcome& outcome) {
  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  if (!container) {
    outcome.outOfMemory = true;
    return E_FAIL;
  }

  // The outcome is that of the last set creation; without any "AnnotationSet" it stays E_FAIL.
  HRESULT result = E_FAIL;
  // A caller's value that is not a live set of this model (stale, garbage) is never handed on.
  if (!VEKTPSLightContainer::IsLiveSet(*set)) *set = nullptr;
  VEKObjectBudget budget(rules.maxObjects);
  // The set being built, counted into the budget when the next one begins.
  VEKITPSLightSet* open = nullptr;
  const auto closeSet = [&] {
    vek_parser_detail::VEKRecorderEndSet();
    if (open) budget.Count(vek_parser_detail::VEKObjectsOf(*open));
    open = nullptr;
  };
  bool stopped = false;
  VEKForEachChild(root, [&](VEKLightXmlElementItf& child) {
    if (stopped) return;
    const std::string_view name = child.GetNameView();
    // *set is read at each dispatch: the set in force is the one made by the latest
    // "AnnotationSet" before this child (the caller's value before the first).
    if (name == "AnnotationSet") {
      ++outcome.annotationSets;
      closeSet();
      if (!budget.Allows(1, child)) {
        stopped = true;
        return;
      }
      result = container->CreateLightSet(set, father);
      if (VEKSucceeded(result) && *set) {
        open = *set;
        vek_parser_detail::VEKRecorderBeginSet(open);
        (void)parser.SetTPSSetValues(*set, child);
      }
    } else if (const vek_parser_detail::VEKBuilder build = FamilyRootBuilder(name)) {
      if (!*set) vek_parser_detail::VEKRecordFamilyBeforeSet(child);
      (void)(parser.*build)(container.Get(), *set, child);
    }
  });
  closeSet();
  if (result == E_OUTOFMEMORY) outcome.outOfMemory = true;
  return result;
}

// A legacy set's own values: name, standard, type, status and uuid, items 1 to 5.
void SetLegacySetValues(VEKITPSLightSet* set, const vek_parser_detail::VEKValueItems& items,
                        const VEKLightXmlElementItf& element) {
  VEKComPtr<VEKITPSLight> light;
  if (!set ||
      VEKFailed(set->QueryInterface(IID_VEKITPSLight, light.ReleaseAndGetVoidAddressOf())) ||
      !light) {
    return;
  }
  VEKPassWide(items[1], [&](const wchar_t* text) { (void)light->SetName(text); });
  VEKPassWide(items[2], [&](const wchar_t* text) { (void)set->SetStandard(text); });
  // Type and status share one integer, so an unreadable status repeats the type.
  int number = 0;
  (void)vek_parser_detail::VEKReadNumber(items[3], number, element);
  (void)light->SetType(static_cast<unsigned short>(number));
  (void)vek_parser_detail::VEKReadNumber(items[4], number, element);
  (void)light->SetStatus(static_cast<unsigned short>(number));
  VEKPassWide(items[5], [&](const wchar_t* text) { (void)light->SetUuid(text); });
  light.Reset();
}

// Legacy schema: one set per "AnnotationSet" child with exactly five values, each built from the
// whole document.
HRESULT VEKWalkLegacy(VEKTPSLightParserUtil& parser, VEKLightXmlElement& root,
                      const VEKLoadRules& rules, VEKBaseUnknown* father, VEKITPSLightSet** set,
                      VEKLoadOutcome& outcome) {
  HRESULT result = E_FAIL;
  if (!root.GetChildren()) return result;

  VEKObjectBudget budget(rules.maxObjects);
  // Every set that gets its values builds the same objects: the first tells what the next costs.
  std::uint64_t objectsPerSet = 0;
  int builtSets = 0;
  vek_parser_detail::VEKSource firstRebuild;
  bool stopped = false;
  VEKForEachChild(root, [&](VEKLightXmlElementItf& child) {
    if (stopped || child.GetNameView() != "AnnotationSet") return;
    ++outcome.annotationSets;
    const bool builds = child.GetChildCount() == 5 && objectsPerSet > 0;
    if (!budget.Allows(builds ? objectsPerSet : 1, child)) {
      stopped = true;
      return;
    }
    // One container per set, released once its builders are done.
    VEKComPtr<VEKTPSLightContainer> container;
    container.Attach(new VEKTPSLightContainer());
    if (!container) {
      outcome.outOfMemory = true;
      return;
    }
    const HRESULT created = container->CreateLightSet(set, father);
    if (VEKFailed(created)) {
      if (created == E_OUTOFMEMORY) outcome.outOfMemory = true;
      return;
    }
    VEKITPSLightSet* current = *set;
    vek_parser_detail::VEKRecorderBeginSet(current);

    // The set's values are positional: item k is the "V" of the k-th child, whatever its name.
    vek_parser_detail::VEKValueItems items;
    vek_parser_detail::VEKForEachChildValue(
        child, "V", {},
        [&](std::string_view, std::string_view value, bool) { items.Append(value); });
    if (!vek_parser_detail::VEKHasValueCount(items, 5, child,
                                             ", so its set gets no values and no objects")) {
      if (!items.Complete()) outcome.outOfMemory = true;
      vek_parser_detail::VEKRecorderEndSet();
      budget.Count(1);
      return;
    }

    SetLegacySetValues(current, items, child);
    // Every builder reads the whole document from its root.
    (void)parser.GenerateTTRS(container.Get(), current, root);
    (void)parser.GenerateAnnotations(container.Get(), current, root);
    (void)parser.GenerateViews(container.Get(), current, root);
    (void)parser.GenerateRefFrame(container.Get(), current, root);
    (void)parser.GenerateCG(container.Get(), current, root);
    (void)parser.GenerateCapture(container.Get(), current, root);
    result = S_OK;
    vek_parser_detail::VEKRecorderEndSet();
    objectsPerSet = current ? vek_parser_detail::VEKObjectsOf(*current) : 1;
    budget.Count(objectsPerSet);
    if (++builtSets == 2) firstRebuild = vek_parser_detail::VEKSource(child).Saved();
  });
  if (builtSets > 1)
    vek_parser_detail::VEKRecordSetsMultiply(firstRebuild, builtSets, objectsPerSet);
  return result;
}

// Forgets the document's lines when the load ends, whichever way.
class VEKLinesInUse {
 public:
  explicit VEKLinesInUse(const VEKLightXmlParser& parser) noexcept {
    vek_parser_detail::VEKRecorderUseLines(&parser);
  }
  ~VEKLinesInUse() { vek_parser_detail::VEKRecorderUseLines(nullptr); }
  VEKLinesInUse(const VEKLinesInUse&) = delete;
  VEKLinesInUse& operator=(const VEKLinesInUse&) = delete;
};

}  // namespace

namespace vek_parser_detail {

void VEKDeleteArray(unsigned char* bytes) noexcept { delete[] bytes; }

void VEKFreeBlock(unsigned char* bytes) noexcept { std::free(bytes); }

std::uint64_t VEKObjectsOf(VEKITPSLightSet& set) noexcept {
  const VEKLightObjectList* annotations = set.GetAnnotations();
  return 1 + static_cast<std::uint64_t>(annotations ? annotations->Count() : 0) +
         static_cast<std::uint64_t>(set.GetTTRS().Count()) +
         static_cast<std::uint64_t>(set.GetViews().Count()) +
         static_cast<std::uint64_t>(set.GetRefFrames().Count()) +
         static_cast<std::uint64_t>(set.GetCGs().Count()) +
         static_cast<std::uint64_t>(set.GetCaptures().Count());
}

HRESULT VEKRunLoad(VEKTPSLightParserUtil& parser, VEKLoadBytes& input, const VEKLoadRules& rules,
                   VEKBaseUnknown* father, VEKITPSLightSet** set,
                   VEKLoadOutcome& outcome) noexcept {
  if (input.length > static_cast<std::size_t>(INT_MAX)) return E_FAIL;
  VEKLightXmlElement root;
  VEKLightXmlParser xml;
  // Lines cost a note per line: only a load that records asks for them.
  xml.KeepLineStarts(VEKActiveRecorder() != nullptr);
  VEKLightXmlInputStreamBuffer stream(input.bytes, static_cast<int>(input.length));
  if (!xml.Parse(stream, root)) {
    outcome.stage =
        xml.OutOfMemory() ? VEKLoadOutcome::Stage::OutOfMemory : VEKLoadOutcome::Stage::XmlError;
    outcome.xmlError = xml.GetErrorDescription();
    outcome.errorLine = xml.GetErrorLine();
    outcome.errorColumn = xml.GetErrorColumn();
    return E_FAIL;
  }
  // The parsed document keeps its own copy of the text, so decoded or inflated bytes are freed
  // before the model is built, once the dump has had them.
  const auto releaseInput = [&input] {
    input.owned.reset();
    input.bytes = nullptr;
    input.length = 0;
  };

  const VEKUnicodeString& name = root.GetName();
  // A parsed element always has a name: an empty one could not be held for want of memory.
  if (name.GetLengthInByte() == 0) {
    outcome.stage = VEKLoadOutcome::Stage::OutOfMemory;
    return E_FAIL;
  }
  if (name == kVEKCurrentRoot) {
    outcome.schema = VEKTPSLightSchema::Current;
  } else if (name == kVEKLegacyRoot) {
    outcome.schema = VEKTPSLightSchema::Legacy;
  }
  const bool accepted = outcome.schema && (rules.roots == VEKRoots::Either ||
                                           (rules.roots == VEKRoots::Current) ==
                                               (*outcome.schema == VEKTPSLightSchema::Current));
  if (!accepted) {
    outcome.stage = VEKLoadOutcome::Stage::UnknownRoot;
    outcome.rootName = name;
    return E_FAIL;
  }
  if (rules.dumpPath && *outcome.schema == VEKTPSLightSchema::Current) {
    // A dump that cannot be written never changes the load.
    try {
      outcome.dumped = VEKWriteDump(rules.dumpPath, root, &xml, &stream);
    } catch (const std::bad_alloc&) {
      outcome.dumped = false;
    }
  }
  releaseInput();
  outcome.stage = VEKLoadOutcome::Stage::Walked;
  const VEKLinesInUse lines(xml);
  return *outcome.schema == VEKTPSLightSchema::Current
             ? VEKWalkCurrent(parser, root, rules, father, set, outcome)
             : VEKWalkLegacy(parser, root, rules, father, set, outcome);
}

}  // namespace vek_parser_detail

HRESULT VEKTPSLightParserUtil::GenerateLightModelFromBase(
    VEKUnicodeString& source, VEKBaseUnknown* father, VEKITPSLightSet** set,
    unsigned char fromBase64, char* compressedData, int uncompressedSize, int compressedSize) {
  if (!set) return E_FAIL;
  VEKLoadBytes input;
  const bool compressed = compressedData && uncompressedSize != 0 && compressedSize != 0;
  const HRESULT decoded =
      compressed ? VEKDecompressInput(compressedData, uncompressedSize, compressedSize, input)
                 : VEKDecodeText(source, fromBase64, input);
  if (VEKFailed(decoded) || !input.bytes) return E_FAIL;
  VEKLoadRules rules;
  rules.roots = VEKRoots::Current;
  rules.dumpPath = "E:\\TPSLoadXML.xml";
  VEKLoadOutcome outcome;
  return vek_parser_detail::VEKRunLoad(*this, input, rules, father, set, outcome);
}

HRESULT VEKTPSLightParserUtil::GenerateLightModel(const char* xmlText, VEKBaseUnknown* father,
                                                  VEKITPSLightSet** set) {
  if (!xmlText || !set) return E_FAIL;
  const std::size_t textLength = std::strlen(xmlText);
  if (textLength == 0) return E_FAIL;
  VEKLoadBytes input;
  input.bytes = reinterpret_cast<const unsigned char*>(xmlText);
  input.length = textLength;
  VEKLoadRules rules;
  rules.roots = VEKRoots::Legacy;
  VEKLoadOutcome outcome;
  return vek_parser_detail::VEKRunLoad(*this, input, rules, father, set, outcome);
}
