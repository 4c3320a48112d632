// The one load path: parse the bytes, check the root, dump, walk the sets. Both load operations and
// the one-call load run it; they differ only in how they turn their input into bytes and in the
// rules they give it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "VEKLightXml.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightParserUtil.h"

namespace vek_parser_detail {

// The root element of each schema.
constexpr const char* kVEKCurrentRoot = "Functional_Tolerancing_Annotation";
constexpr const char* kVEKLegacyRoot = "TolerancingData";

// Deflate cannot expand its input by more than 1032 to 1 (a 258-byte match coded in two bits), so
// no zlib stream fills more than 1032 times its length.
constexpr std::int64_t kVEKMaxInflateRatio = 1032;

// How bytes a load made are given back: by the function that frees them (free, delete[]), or, for
// a mapped file, by unmapping its length.
class VEKBytesRelease {
 public:
  // Implicit, so that a holder is made with the function that frees its bytes.
  VEKBytesRelease(void (*freeBytes)(unsigned char*)) noexcept : free_(freeBytes) {}
  static VEKBytesRelease Unmap(std::size_t length) noexcept;
  void operator()(unsigned char* bytes) const noexcept;

 private:
  void (*free_)(unsigned char*);
  std::size_t mappedLength_ = 0;
};

// Bytes a load made (decoded, inflated, read or mapped), released as soon as they are parsed.
using VEKOwnedBytes = std::unique_ptr<unsigned char, VEKBytesRelease>;
void VEKDeleteArray(unsigned char* bytes) noexcept;
void VEKFreeBlock(unsigned char* bytes) noexcept;
inline VEKOwnedBytes VEKNoBytes() noexcept { return VEKOwnedBytes(nullptr, VEKFreeBlock); }

// The bytes handed to the XML parser: the caller's, or owned by the load.
struct VEKLoadBytes {
  const unsigned char* bytes = nullptr;
  std::size_t length = 0;
  VEKOwnedBytes owned = VEKNoBytes();
  // Whether a zero byte follows the bytes, so that they can be read as a C string.
  bool zeroAfter = false;
};

enum class VEKRoots { Current, Legacy, Either };

struct VEKLoadRules {
  VEKRoots roots = VEKRoots::Either;
  // Where a current-schema load dumps the parsed document; null: no dump.
  const char* dumpPath = nullptr;
  // Most objects a load builds, checked before each set; 0: no limit.
  std::uint64_t maxObjects = 0;
};

// How far a load went, and what the one-call load reports of it.
struct VEKLoadOutcome {
  enum class Stage { XmlError, OutOfMemory, UnknownRoot, Walked };
  Stage stage = Stage::XmlError;
  // The root's schema, when it is one of the two.
  std::optional<VEKTPSLightSchema> schema;
  VEKUnicodeString rootName;
  const char* xmlError = "";
  int errorLine = 0;
  int errorColumn = 0;
  // "AnnotationSet" children of the root, and whether memory ran out where a set was due.
  int annotationSets = 0;
  bool outOfMemory = false;
  // Whether the dump asked for was written whole.
  bool dumped = false;
};

// Writes `element` to the file `finalName`, replacing it only with a whole document: on any error
// the temporary file goes and the earlier file stays as it was. With the parser that parsed
// `input` into `element`, the dump is the input's own bytes of the root where they stand for it.
// Throws std::bad_alloc.
[[nodiscard]] bool VEKWriteDump(const std::string& finalName, const VEKLightXmlElementItf& element,
                                VEKLightXmlParser* parsedBy = nullptr,
                                const VEKLightXmlInputStream* input = nullptr);

// Runs one load of `input` into `*set` (never null) under `rules`. Returns the load's result code:
// that of the last set creation (current schema), S_OK when a legacy set got its values and
// objects, E_FAIL otherwise.
HRESULT VEKRunLoad(VEKTPSLightParserUtil& parser, VEKLoadBytes& input, const VEKLoadRules& rules,
                   VEKBaseUnknown* father, VEKITPSLightSet** set, VEKLoadOutcome& outcome) noexcept;

// The objects of `set`, the set included.
std::uint64_t VEKObjectsOf(VEKITPSLightSet& set) noexcept;

}  // namespace vek_parser_detail
