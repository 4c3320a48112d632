// Deterministic writer of annotation documents of either schema, at any object count, for the
// benchmarks and the tests. The same options always give the same bytes, on every platform: the
// only source of variation is a seeded generator of our own.
//
// A document holds one annotation set and its six families in the order that lets every reference
// resolve while it is built: TTRS, annotations, views, reference frames, construction geometries,
// captures. Of the objects about 15% are TTRS, 50% annotations, 10% views, 5% reference frames,
// 10% construction geometries and 10% captures. Every fifth annotation carries a GLB
// representation of a few KB. Every identifier a document names belongs to an object of the
// family the reference expects, and every annotation carries exactly one order-group list, so the
// groups take effect. The text is ASCII and pretty-printed.
#pragma once

#include <cstdint>
#include <string>

enum class VEKGeneratedSchema { Current, Legacy };

// The bytes a load is handed: the XML itself, its base64 text, or its zlib (RFC 1950) stream.
enum class VEKGeneratedForm { Plain, Base64, Zlib };

// Objects per family.
struct VEKFamilyCounts {
  std::int64_t ttrs = 0;
  std::int64_t annotations = 0;
  std::int64_t views = 0;
  std::int64_t refFrames = 0;
  std::int64_t cgs = 0;
  std::int64_t captures = 0;

  std::int64_t Total() const { return ttrs + annotations + views + refFrames + cgs + captures; }
};

struct VEKGeneratorOptions {
  VEKGeneratedSchema schema = VEKGeneratedSchema::Current;
  // Objects over the six families (the set itself not counted).
  std::int64_t objects = 1000;
  std::uint64_t seed = 1;
};

// The largest object count a document may have: identifiers stay well inside int.
constexpr std::int64_t kVEKMaxGeneratedObjects = 100'000'000;

// How `objects` split into families: the proportions above, rounded down, the rest going to the
// annotations; every family has at least one object once there are six. Counts outside 0 to
// kVEKMaxGeneratedObjects are clamped into it.
VEKFamilyCounts VEKCountFamilies(std::int64_t objects);

// The XML text of the document the options describe. Throws std::bad_alloc when memory runs out.
std::string VEKGenerateDocument(const VEKGeneratorOptions& options);

// The object count whose document of `schema` comes closest to `bytes` bytes (at least 1),
// measured on a sample document of the same seed.
std::int64_t VEKObjectsForBytes(VEKGeneratedSchema schema, std::uint64_t bytes, std::uint64_t seed);

// Writes `xml` in `form` into `out` (plain copies it; zlib compresses at level 6 with zlib's
// compress2). False, with `out` empty, when the zlib stream cannot be made.
bool VEKEncodeDocumentForm(const std::string& xml, VEKGeneratedForm form, std::string& out);

// The form's name on the command line and in reports: "plain", "base64", "zlib".
const char* VEKGeneratedFormName(VEKGeneratedForm form);
