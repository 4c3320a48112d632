// Writes light annotation models as current-schema documents ("Functional_Tolerancing_Annotation")
// that the load reads back into the same model: one or more sets in (a document's Sets(), or sets
// a host built through VEKTPSLightContainer), UTF-8 XML out, plain, as base64 text or as a zlib
// stream, to memory or to a file. Each set becomes an "AnnotationSet" followed by its family roots,
// in an order in which every link resolves. What the current schema cannot express is left out
// or written as the nearest value the load gives back, and named in a warning; nothing is dropped
// silently. Nothing is printed, no exception leaves a call, and no process state is touched.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightModel.h"
#include "VEKTypes.h"

struct VEKTPSLightWriteOptions {
  // Plain (the XML), Base64 (the XML's base64 text, on one line) or Zlib (a zlib stream of the
  // XML); Detect is refused (E_INVALIDARG).
  VEKTPSLightForm form = VEKTPSLightForm::Plain;
  // The zlib level: 0 stores, 1 is fastest, 12 smallest; outside 0 to 12 is refused.
  int compressionLevel = 6;
  // Each element on a line of its own, two spaces deeper than its parent.
  bool indent = true;
};

// What a document cannot keep of a model.
enum class VEKTPSLightWriteIssue : int {
  // A value never set that every loaded object has: it comes back as 0, 0.0 or "".
  Unset = 0,
  // A value the document has no place for (a set's id or representation); not written.
  NotKept = 1,
  // A 0 in an integer list (TTRS numbers, geometry, representation numbers), which the load
  // drops; left out.
  ZeroInList = 2,
  // A null TTRS geometry list; written, and read back, as an empty list.
  NullGeometry = 3,
  // An order group without members; it comes back as no group.
  EmptyOrderGroup = 4,
  // A link the load could not follow back to its object: to an object without an id, with id 0
  // (or, in an order group, below 1), of a family the link does not name, of another set, or
  // whose id an earlier object of its family has too. Left out.
  LinkLeftOut = 5,
  // An annotation's views, or a view's captures, that are not what the links that make them give:
  // the load rebuilds them from the views that list the annotation (the captures whose active view
  // the view is), in document order.
  LinksDiffer = 6,
  // Characters XML cannot carry (control characters other than tab and line breaks, U+FFFE,
  // U+FFFF), written as U+FFFD.
  TextReplaced = 7,
  // A graphic read from a blob with bytes after its GLB: only the GLB is written.
  GraphicTrimmed = 8,
};

struct VEKTPSLightWriteWarning {
  VEKTPSLightWriteIssue issue = VEKTPSLightWriteIssue::Unset;
  // 0-based index of the set among those written.
  int set = 0;
  // The VEKTPSLightKind of the object concerned; 0 for the set itself.
  int objectKind = 0;
  // 0-based position of the object in its family list (VEKITPSLightSet::GetViews(), ...); -1 for
  // the set.
  int position = -1;
  // The object's id, when it has one.
  std::optional<int> id;
  // The member of the object's JSON export concerned: "type", "value", "geometry", "views",
  // "camera.type", ...; for NotKept "id" or "rep".
  std::string field;
  // One English sentence naming the object and what is not kept, e.g. `view 7: the link to
  // annotation 12 is left out: annotation 12 at position 3 has that id too, after annotation 12`.
  std::string message;
};

struct VEKTPSLightWriteResult {
  // S_OK when written (warnings or not); E_INVALIDARG for no set, a null set, a null or empty
  // path, or a form or level outside those above; E_OUTOFMEMORY; E_FAIL when the file could not
  // be written (the file named is then as it was).
  HRESULT result = E_OUTOFMEMORY;
  // The document in the form asked for; empty when written to a file, or on failure.
  std::string bytes;
  // Everything not kept, by set, then by family in document order (the set, TTRS, annotations,
  // views, reference frames, construction geometries, captures), then by position.
  std::vector<VEKTPSLightWriteWarning> warnings;
  // Why the write failed, in one English sentence; empty on success.
  std::string error;
};

// Writes `sets` in order into one document.
[[nodiscard]] VEK_API VEKTPSLightWriteResult
VEKWriteSets(const std::vector<VEKComPtr<VEKITPSLightSet>>& sets,
             const VEKTPSLightWriteOptions& options = {}) noexcept;
// Writes every set of `document` (its Sets(), in creation order).
[[nodiscard]] VEK_API VEKTPSLightWriteResult VEKWriteDocument(
    const VEKTPSLightDocument& document, const VEKTPSLightWriteOptions& options = {}) noexcept;

// The same into the file at `path`, which is replaced only by a whole document: the bytes go to
// a new file beside it, created exclusively under a name nobody can guess, renamed over `path`
// once complete.
[[nodiscard]] VEK_API VEKTPSLightWriteResult
VEKWriteSetsFile(const char* path, const std::vector<VEKComPtr<VEKITPSLightSet>>& sets,
                 const VEKTPSLightWriteOptions& options = {}) noexcept;
[[nodiscard]] VEK_API VEKTPSLightWriteResult
VEKWriteDocumentFile(const char* path, const VEKTPSLightDocument& document,
                     const VEKTPSLightWriteOptions& options = {}) noexcept;

// The lower-case name of an issue: "unset", "not-kept", "zero-in-list", "null-geometry",
// "empty-order-group", "link-left-out", "links-differ", "text-replaced", "graphic-trimmed".
VEK_API const char* VEKTPSLightWriteIssueName(VEKTPSLightWriteIssue issue) noexcept;
