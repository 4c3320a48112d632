// The one-call load: input read and decoded, the load run with a recorder on the calling thread,
// and everything a host needs kept in the document.
#include "VEKTPSLightDocument.h"

#include <algorithm>
#include <climits>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

#include "VEKTPSLightInput.h"
#include "VEKTPSLightLinks.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightPipeline.h"
#include "VEKTPSLightRecorder.h"

using vek_parser_detail::VEKLoadBytes;
using vek_parser_detail::VEKLoadOutcome;

struct VEKTPSLightDocument::State {
  VEKTPSLightLoadStatus status = VEKTPSLightLoadStatus::OutOfMemory;
  HRESULT result = E_OUTOFMEMORY;
  VEKTPSLightForm form = VEKTPSLightForm::Detect;
  std::optional<VEKTPSLightSchema> schema;
  std::string error;
  int errorLine = 0;
  int errorColumn = 0;
  std::vector<VEKComPtr<VEKITPSLightSet>> sets;
  std::vector<VEKTPSLightDiagnostic> diagnostics;
  std::uint64_t objects = 0;
  bool dumped = false;
  // The links of each set, built on first use.
  struct LinksSlot {
    std::once_flag built;
    std::unique_ptr<VEKTPSLightLinks> links;
  };
  std::unique_ptr<LinksSlot[]> links;
};

struct VEKTPSLightDocumentAccess {
  static VEKTPSLightDocument Make(std::unique_ptr<VEKTPSLightDocument::State> state) noexcept {
    VEKTPSLightDocument document;
    document.state_ = std::move(state);
    return document;
  }
};

namespace {

using State = VEKTPSLightDocument::State;

using vek_parser_detail::kVEKCurrentRoot;
using vek_parser_detail::kVEKLegacyRoot;

// What a document without a load reads as.
const State& NoLoad() noexcept {
  static const State none;
  return none;
}

void Fail(State& state, VEKTPSLightLoadStatus status) noexcept {
  state.status = status;
  state.result = status == VEKTPSLightLoadStatus::OutOfMemory ? E_OUTOFMEMORY : E_FAIL;
  // Short enough to be held without allocating.
  if (status == VEKTPSLightLoadStatus::OutOfMemory) state.error = "memory ran out";
}

std::string Quoted(const VEKUnicodeString& text) {
  return "\"" + std::string(text.ConvertToChar(), text.GetLengthInByte()) + "\"";
}

std::string UnknownRootText(const VEKLoadOutcome& outcome, const VEKTPSLightLoadOptions& options) {
  const std::string root = "the root element is " + Quoted(outcome.rootName);
  if (!outcome.schema) {
    return root + ", neither \"" + kVEKCurrentRoot + "\" (current schema) nor \"" + kVEKLegacyRoot +
           "\" (legacy schema)";
  }
  const bool current = options.schema == VEKTPSLightSchema::Current;
  return root + ", not the \"" + (current ? kVEKCurrentRoot : kVEKLegacyRoot) + "\" of the " +
         (current ? "current" : "legacy") + " schema asked for";
}

std::string NoSetText(const VEKLoadOutcome& outcome) {
  if (outcome.annotationSets == 0) return "the root has no AnnotationSet child, so no set is made";
  if (outcome.schema == VEKTPSLightSchema::Legacy) {
    return "no AnnotationSet holds exactly 5 values, so no set gets its values and objects";
  }
  return "no set could be made";
}

// Runs the load on decoded bytes and keeps what it gave.
void LoadBytes(State& state, VEKLoadBytes& input, const VEKTPSLightLoadOptions& options) {
  if (input.length > static_cast<std::size_t>(INT_MAX)) {
    Fail(state, VEKTPSLightLoadStatus::TooLarge);
    state.error = "the document holds more than 2147483647 bytes, the most the XML parser reads";
    return;
  }
  vek_parser_detail::VEKLoadRules rules;
  if (options.schema) {
    rules.roots = *options.schema == VEKTPSLightSchema::Current
                      ? vek_parser_detail::VEKRoots::Current
                      : vek_parser_detail::VEKRoots::Legacy;
  }
  rules.dumpPath = options.dumpPath.empty() ? nullptr : options.dumpPath.c_str();
  rules.maxObjects = options.maxObjects;

  vek_parser_detail::VEKLoadRecorder recorder;
  VEKLoadOutcome outcome;
  VEKITPSLightSet* last = nullptr;
  HRESULT result = E_FAIL;
  {
    const vek_parser_detail::VEKRecorderScope recording(recorder);
    VEKTPSLightParserUtil parser;
    result = vek_parser_detail::VEKRunLoad(parser, input, rules, nullptr, &last, outcome);
  }
  // Every set of the load stays reachable from the last, which carries the load's reference.
  VEKComPtr<VEKITPSLightSet> lastSet;
  lastSet.Attach(last);
  state.result = result;
  state.schema = outcome.schema;
  state.dumped = outcome.dumped;
  switch (outcome.stage) {
    case VEKLoadOutcome::Stage::XmlError:
      Fail(state, VEKTPSLightLoadStatus::XmlError);
      state.error = outcome.xmlError;
      state.errorLine = outcome.errorLine;
      state.errorColumn = outcome.errorColumn;
      return;
    case VEKLoadOutcome::Stage::OutOfMemory:
      Fail(state, VEKTPSLightLoadStatus::OutOfMemory);
      return;
    case VEKLoadOutcome::Stage::UnknownRoot:
      Fail(state, VEKTPSLightLoadStatus::UnknownRoot);
      state.error = UnknownRootText(outcome, options);
      return;
    case VEKLoadOutcome::Stage::Walked:
      break;
  }
  if (VEKFailed(VEKGetSetsOfLoad(last, state.sets))) {
    Fail(state, VEKTPSLightLoadStatus::OutOfMemory);
    return;
  }
  for (const VEKComPtr<VEKITPSLightSet>& set : state.sets)
    state.objects += vek_parser_detail::VEKObjectsOf(*set.Get());
  // Without room for the slots the document still loads; only Links() answers null.
  state.links.reset(new (std::nothrow) State::LinksSlot[state.sets.size()]);
  state.diagnostics = std::move(recorder.Records());
  if (VEKSucceeded(result)) {
    state.status = VEKTPSLightLoadStatus::Loaded;
  } else if (result == E_OUTOFMEMORY || outcome.outOfMemory) {
    Fail(state, VEKTPSLightLoadStatus::OutOfMemory);
  } else {
    state.status = VEKTPSLightLoadStatus::NoSet;
    state.error = NoSetText(outcome);
  }
}

// Finds the form, decodes, and loads.
void LoadInput(State& state, VEKLoadBytes& input, const VEKTPSLightLoadOptions& options) {
  state.form = options.form == VEKTPSLightForm::Detect
                   ? vek_parser_detail::VEKDetectForm(input.bytes, input.length)
                   : options.form;
  const VEKTPSLightLoadStatus decoded =
      vek_parser_detail::VEKDecodeDocument(state.form, options.maxInputBytes, input, state.error);
  if (decoded != VEKTPSLightLoadStatus::Loaded) {
    Fail(state, decoded);
    return;
  }
  LoadBytes(state, input, options);
}

// A new document with the load `load` makes into its state.
template <class Load>
VEKTPSLightDocument LoadDocument(const VEKTPSLightLoadOptions& options, Load&& load) noexcept {
  std::unique_ptr<State> state(new (std::nothrow) State());
  if (!state) return {};
  try {
    state->form = options.form;
    load(*state);
  } catch (const std::exception&) {
    // Strings and lists are the only things that throw, and only for want of memory.
    Fail(*state, VEKTPSLightLoadStatus::OutOfMemory);
  }
  return VEKTPSLightDocumentAccess::Make(std::move(state));
}

}  // namespace

VEKTPSLightDocument::VEKTPSLightDocument() noexcept = default;
VEKTPSLightDocument::~VEKTPSLightDocument() = default;
VEKTPSLightDocument::VEKTPSLightDocument(VEKTPSLightDocument&&) noexcept = default;
VEKTPSLightDocument& VEKTPSLightDocument::operator=(VEKTPSLightDocument&&) noexcept = default;

VEKTPSLightLoadStatus VEKTPSLightDocument::Status() const noexcept {
  return (state_ ? *state_ : NoLoad()).status;
}

bool VEKTPSLightDocument::Loaded() const noexcept {
  return Status() == VEKTPSLightLoadStatus::Loaded;
}

HRESULT VEKTPSLightDocument::Result() const noexcept {
  return (state_ ? *state_ : NoLoad()).result;
}

VEKTPSLightForm VEKTPSLightDocument::Form() const noexcept {
  return (state_ ? *state_ : NoLoad()).form;
}

std::optional<VEKTPSLightSchema> VEKTPSLightDocument::Schema() const noexcept {
  return (state_ ? *state_ : NoLoad()).schema;
}

const std::string& VEKTPSLightDocument::Error() const noexcept {
  return (state_ ? *state_ : NoLoad()).error;
}

int VEKTPSLightDocument::ErrorLine() const noexcept {
  return (state_ ? *state_ : NoLoad()).errorLine;
}

int VEKTPSLightDocument::ErrorColumn() const noexcept {
  return (state_ ? *state_ : NoLoad()).errorColumn;
}

const std::vector<VEKComPtr<VEKITPSLightSet>>& VEKTPSLightDocument::Sets() const noexcept {
  return (state_ ? *state_ : NoLoad()).sets;
}

const std::vector<VEKTPSLightDiagnostic>& VEKTPSLightDocument::Diagnostics() const noexcept {
  return (state_ ? *state_ : NoLoad()).diagnostics;
}

std::uint64_t VEKTPSLightDocument::ObjectsBuilt() const noexcept {
  return (state_ ? *state_ : NoLoad()).objects;
}

bool VEKTPSLightDocument::Dumped() const noexcept { return (state_ ? *state_ : NoLoad()).dumped; }

const VEKTPSLightLinks* VEKTPSLightDocument::Links(int index) const noexcept {
  if (!state_ || !state_->links || index < 0 || index >= static_cast<int>(state_->sets.size()))
    return nullptr;
  State::LinksSlot& slot = state_->links[static_cast<std::size_t>(index)];
  try {
    std::call_once(slot.built, [&] {
      slot.links = VEKTPSLightLinks::Build(state_->sets[static_cast<std::size_t>(index)].Get());
    });
  } catch (const std::system_error&) {
    return nullptr;
  }
  return slot.links.get();
}

HRESULT VEKGetSetsOfLoad(VEKITPSLightSet* lastSet,
                         std::vector<VEKComPtr<VEKITPSLightSet>>& sets) noexcept {
  sets.clear();
  try {
    // The sets of one load are chained from the last to the first.
    for (VEKComPtr<VEKITPSLightSet> set(lastSet); set;) {
      VEKComPtr<VEKITPSLightSet> previous;
      (void)set->GetPreviousSet(previous.ReleaseAndGetAddressOf());
      sets.push_back(std::move(set));
      set = std::move(previous);
    }
  } catch (const std::bad_alloc&) {
    sets.clear();
    return E_OUTOFMEMORY;
  }
  std::reverse(sets.begin(), sets.end());
  return S_OK;
}

VEKTPSLightDocument VEKLoadDocument(const void* bytes, std::size_t length,
                                    const VEKTPSLightLoadOptions& options) noexcept {
  return LoadDocument(options, [&](State& state) {
    if (length > options.maxInputBytes) {
      Fail(state, VEKTPSLightLoadStatus::TooLarge);
      state.error = "the input holds " + std::to_string(length) + " bytes, more than the " +
                    std::to_string(options.maxInputBytes) + " a document may have";
      return;
    }
    VEKLoadBytes input;
    input.bytes = static_cast<const unsigned char*>(bytes);
    input.length = bytes ? length : 0;
    LoadInput(state, input, options);
  });
}

VEKTPSLightDocument VEKLoadDocumentFile(const char* path,
                                        const VEKTPSLightLoadOptions& options) noexcept {
  return LoadDocument(options, [&](State& state) {
    VEKLoadBytes input;
    const VEKTPSLightLoadStatus read = path ? vek_parser_detail::VEKReadDocumentFile(
                                                  path, options.maxInputBytes, input, state.error)
                                            : VEKTPSLightLoadStatus::ReadFailed;
    if (read != VEKTPSLightLoadStatus::Loaded) {
      Fail(state, read);
      return;
    }
    LoadInput(state, input, options);
  });
}

const char* VEKTPSLightFormName(VEKTPSLightForm form) noexcept {
  switch (form) {
    case VEKTPSLightForm::Plain:
      return "plain";
    case VEKTPSLightForm::Base64:
      return "base64";
    case VEKTPSLightForm::Zlib:
      return "zlib";
    default:
      return "detect";
  }
}

const char* VEKTPSLightSchemaName(VEKTPSLightSchema schema) noexcept {
  return schema == VEKTPSLightSchema::Legacy ? "legacy" : "current";
}

const char* VEKTPSLightDiagnosticKindName(VEKTPSLightDiagnosticKind kind) noexcept {
  switch (kind) {
    case VEKTPSLightDiagnosticKind::UnresolvedId:
      return "unresolved-id";
    case VEKTPSLightDiagnosticKind::DuplicateId:
      return "duplicate-id";
    case VEKTPSLightDiagnosticKind::UnknownTTRS:
      return "unknown-ttrs";
    case VEKTPSLightDiagnosticKind::UnknownRefFrame:
      return "unknown-ref-frame";
    case VEKTPSLightDiagnosticKind::BadNumber:
      return "bad-number";
    case VEKTPSLightDiagnosticKind::LegacyValueCount:
      return "legacy-value-count";
    case VEKTPSLightDiagnosticKind::LegacySetsMultiply:
      return "legacy-sets-multiply";
    case VEKTPSLightDiagnosticKind::ObjectLimit:
      return "object-limit";
    case VEKTPSLightDiagnosticKind::FamilyBeforeSet:
      return "family-before-set";
  }
  return "unknown";
}

const char* VEKTPSLightKindName(int objectKind) noexcept {
  switch (objectKind) {
    case 0:
      return "set";
    case VEKTPSLightKindAnnotation:
      return "annotation";
    case VEKTPSLightKindView:
      return "view";
    case VEKTPSLightKindTTRS:
      return "TTRS";
    case VEKTPSLightKindRefFrame:
      return "reference frame";
    case VEKTPSLightKindCG:
      return "construction geometry";
    case VEKTPSLightKindCapture:
      return "capture";
    default:
      return "object";
  }
}
