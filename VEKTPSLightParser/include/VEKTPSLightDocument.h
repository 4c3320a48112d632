// One call to load any annotation document: the input form and the schema are found from the
// bytes, every set of the load is kept in creation order, and what the parser passed over or could
// not resolve is recorded as diagnostics a host reads. Nothing is printed, no exception leaves a
// call, no file is written unless the caller names one, and no process state (working directory,
// locale, signals) is touched: loads may run in any number of threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "VEKTypes.h"

class VEKTPSLightLinks;

// How the document's bytes are given.
enum class VEKTPSLightForm : int {
  Detect = 0,  // found from the bytes: a zlib header, base64 text, else XML
  Plain = 1,   // XML text: UTF-8 (with or without a byte order mark) or UTF-16 with one
  Base64 = 2,  // base64 of the XML bytes; blanks and line breaks anywhere are skipped
  Zlib = 3,    // a zlib stream of the XML bytes; its uncompressed size is learned, never supplied
};

enum class VEKTPSLightSchema : int {
  Current = 0,  // root "Functional_Tolerancing_Annotation"
  Legacy = 1,   // root "TolerancingData"
};

struct VEKTPSLightLoadOptions {
  VEKTPSLightForm form = VEKTPSLightForm::Detect;
  // Forces a schema: a document whose root is not that schema's fails. Empty: from the root.
  std::optional<VEKTPSLightSchema> schema;
  // Where a current-schema load writes its dump of the parsed document (replaced whole, never
  // half-written). Empty: no dump.
  std::string dumpPath;
  // Most objects (of all families and sets, the sets included) one load builds. A legacy document
  // rebuilds every object once per set, so a small document can ask for a very large model. Before
  // each set the load checks that the set would stay within the limit (a legacy set costs what
  // the set before it cost; a current-schema set is counted as its one object, its objects being
  // bounded by the document); when it would not, no further set is built, what was built is kept
  // and an ObjectLimit diagnostic says so. 0: no limit. The default, five million, is about
  // 2.5 GB of model (an object without a graphic costs some 520 bytes).
  std::uint64_t maxObjects = 5000000;
  // Most bytes read from a file or stream, and most bytes a document may decode or inflate to.
  std::uint64_t maxInputBytes = 2147483647;
};

// Why a load did not give a model.
enum class VEKTPSLightLoadStatus : int {
  Loaded = 0,        // at least one set was made
  NoSet = 1,         // the document parsed but no set was made whole (the load's result is kept)
  ReadFailed = 2,    // the file could not be opened or read
  TooLarge = 3,      // the input, or what it decodes to, passes maxInputBytes
  DecodeFailed = 4,  // base64 text or zlib data that does not decode
  XmlError = 5,      // not well-formed XML (ErrorLine and ErrorColumn say where)
  UnknownRoot = 6,   // well-formed, but neither schema's root (or not the forced one)
  OutOfMemory = 7,   // memory ran out before a model could be made
};

// What the parser passed over or could not resolve while it built the model.
enum class VEKTPSLightDiagnosticKind : int {
  UnresolvedId = 0,        // an id looked up that no earlier object of that kind carries
  DuplicateId = 1,         // an id given to a second object of the same kind in one set
  UnknownTTRS = 2,         // a TTRS id (an integer reference) that no TTRS of the set carries
  UnknownRefFrame = 3,     // an annotation's "Ref" that no reference frame of the set carries
  BadNumber = 4,           // a number that did not convert; the value kept its default
  LegacyValueCount = 5,    // a legacy object passed over for a wrong count of values
  LegacySetsMultiply = 6,  // several legacy sets each rebuilt every object of the document
  ObjectLimit = 7,         // the load stopped building sets at maxObjects
  FamilyBeforeSet = 8,     // a current-schema family root before any AnnotationSet: not built
};

struct VEKTPSLightDiagnostic {
  VEKTPSLightDiagnosticKind kind = VEKTPSLightDiagnosticKind::UnresolvedId;
  // 0-based index of the set being built (into VEKTPSLightDocument::Sets); -1 for a record about
  // the whole load (LegacySetsMultiply, ObjectLimit).
  int set = -1;
  // The VEKTPSLightKind of the id concerned; 0 when no id is concerned.
  int objectKind = 0;
  // The id concerned (looked up, duplicated, named); 0 when none.
  int id = 0;
  // 1-based line of the element concerned in the XML text; 0 when unknown.
  int line = 0;
  // The element concerned, e.g. "TPSView"; for references, the element that names the id.
  std::string element;
  // The text as written where it matters (a number that did not convert), else empty.
  std::string text;
  // One English sentence, e.g. `view 7 names annotation 999, which no annotation carries`.
  std::string message;
};

// The outcome of one load: the sets (each with a reference held by the document), the form and
// schema found, the load's result code, an error with its place, and the diagnostics. Movable;
// freeing it releases the document's references (objects a host still holds stay alive). A
// document made by the default constructor, or moved from, holds no load and reads as one that ran
// out of memory before it began (OutOfMemory, E_OUTOFMEMORY, nothing else).
class VEK_API VEKTPSLightDocument {
 public:
  VEKTPSLightDocument() noexcept;
  ~VEKTPSLightDocument();
  VEKTPSLightDocument(VEKTPSLightDocument&&) noexcept;
  VEKTPSLightDocument& operator=(VEKTPSLightDocument&&) noexcept;
  VEKTPSLightDocument(const VEKTPSLightDocument&) = delete;
  VEKTPSLightDocument& operator=(const VEKTPSLightDocument&) = delete;

  VEKTPSLightLoadStatus Status() const noexcept;
  // Loaded: Status() is Loaded.
  bool Loaded() const noexcept;
  // The result code of the underlying load (E_FAIL when it never ran, E_OUTOFMEMORY when memory
  // ran out); on success the result of the last set creation.
  HRESULT Result() const noexcept;
  // The form the bytes were read in (never Detect once the bytes were read).
  VEKTPSLightForm Form() const noexcept;
  // The schema of the root; empty when the document did not parse to a known root.
  std::optional<VEKTPSLightSchema> Schema() const noexcept;
  // Why the load failed, in one English sentence; empty when it loaded.
  const std::string& Error() const noexcept;
  // 1-based line and column (in characters, a byte order mark not counted) of an XML error; 0
  // when the error has no place. Lines end at a line feed, a carriage return and line feed pair,
  // or a lone carriage return.
  int ErrorLine() const noexcept;
  int ErrorColumn() const noexcept;

  // Every set of the load in creation order; borrowed, valid while the document or another
  // reference to the set lives.
  const std::vector<VEKComPtr<VEKITPSLightSet>>& Sets() const noexcept;
  // What the parser recorded while building, in document order within each set; records about
  // the whole load come last.
  const std::vector<VEKTPSLightDiagnostic>& Diagnostics() const noexcept;
  // The number of model objects the load built (sets included).
  std::uint64_t ObjectsBuilt() const noexcept;
  // Whether the dump that options.dumpPath asked for was written whole (only a current-schema
  // document whose root matched is dumped; a dump that cannot be written leaves the file as it
  // was and changes nothing else of the load).
  bool Dumped() const noexcept;

  // The links of set `index` in both directions, built on first use (safe from several threads at
  // once); null for an index outside Sets() or when memory runs out.
  const VEKTPSLightLinks* Links(int index) const noexcept;

  struct State;

 private:
  friend struct VEKTPSLightDocumentAccess;
  std::unique_ptr<State> state_;
};

// Every set of one load in creation order, reached through VEKITPSLightSet::GetPreviousSet from
// `lastSet` (null gives none), each with a reference of its own. E_OUTOFMEMORY leaves `sets`
// empty.
VEK_API HRESULT VEKGetSetsOfLoad(VEKITPSLightSet* lastSet,
                                 std::vector<VEKComPtr<VEKITPSLightSet>>& sets) noexcept;

// Loads a document held in memory (`length` bytes; not copied when the form is plain UTF-8).
VEK_API VEKTPSLightDocument VEKLoadDocument(const void* bytes, std::size_t length,
                                            const VEKTPSLightLoadOptions& options = {}) noexcept;
// Loads the document at `path`; "-" is not special here. A file larger than maxInputBytes is
// refused before it is read. A regular file of 1 MiB or more is mapped read-only instead of read,
// and unmapped once it is parsed, before the model is built; as with any program that maps files,
// a file cut short by another process during that parse raises SIGBUS. A host that loads files
// others may truncate meanwhile reads them itself and calls VEKLoadDocument.
VEK_API VEKTPSLightDocument
VEKLoadDocumentFile(const char* path, const VEKTPSLightLoadOptions& options = {}) noexcept;

// The lower-case name of a form ("plain", "base64", "zlib", "detect") or schema ("current",
// "legacy"), and of a diagnostic kind ("unresolved-id", "duplicate-id", "unknown-ttrs",
// "unknown-ref-frame", "bad-number", "legacy-value-count", "legacy-sets-multiply",
// "object-limit", "family-before-set").
VEK_API const char* VEKTPSLightFormName(VEKTPSLightForm form) noexcept;
VEK_API const char* VEKTPSLightSchemaName(VEKTPSLightSchema schema) noexcept;
VEK_API const char* VEKTPSLightDiagnosticKindName(VEKTPSLightDiagnosticKind kind) noexcept;
// The noun of an object kind (VEKTPSLightKind) as messages use it: "annotation", "view", "TTRS",
// "reference frame", "construction geometry", "capture"; "set" for 0, "object" for any other.
VEK_API const char* VEKTPSLightKindName(int objectKind) noexcept;
