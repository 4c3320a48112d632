// The timed operations of the benchmark. Each returns the time of its measured part only:
// preparing the input and tearing down the result (freeing a DOM, releasing a model) stay
// outside the clock, the same way for our loads and for the libraries they are compared with.
// Our current and legacy loads and pugixml's parse time their teardown on a clock of its own.
// A load that fails throws std::runtime_error, so no failed run is ever reported as a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKUnicodeString.h"

// The time one measured call took: elapsed, and spent on a CPU by this process (user and system).
// On a machine shared with other work only the CPU time stays steady, so the report's figures
// use it; both are kept.
struct VEKBenchTime {
  double wall = 0;
  double cpu = 0;
  // CPU time of releasing what the call made, where the measure times it; 0 elsewhere.
  double teardown = 0;
};

// Starts both clocks when made.
class VEKBenchStopwatch {
 public:
  VEKBenchStopwatch();
  VEKBenchTime Read() const;

 private:
  double wallStart_;
  double cpuStart_;
};

// A current-schema document in the three forms its load accepts, prepared once. The sources are
// what a host holds before it calls the load.
struct VEKBenchDocument {
  std::string xml;
  std::string base64;
  std::string zlib;
  VEKUnicodeString plainSource;
  VEKUnicodeString base64Source;
  std::int64_t annotations = 0;
};

// Builds every form of `xml`; throws std::runtime_error when the zlib stream cannot be made.
void VEKPrepareBenchDocument(std::string xml, std::int64_t annotations, bool allForms,
                             VEKBenchDocument& document);

// Our current-schema load of `document` in `form`, dump included (written to the working
// directory).
VEKBenchTime VEKTimeCurrentLoad(VEKBenchDocument& document, VEKGeneratedForm form);
// The one-call load (VEKLoadDocument) of the plain text, which writes no dump.
VEKBenchTime VEKTimeDocumentLoad(const VEKBenchDocument& document);
// Our current-schema writer of `model` (the document's sets, loaded beforehand) in `form`, into
// memory; what it wrote is freed after the clock stops.
VEKBenchTime VEKTimeWrite(const VEKTPSLightDocument& model, VEKGeneratedForm form);
// Our legacy-schema load of `xml`, which must hold `annotations` annotations.
VEKBenchTime VEKTimeLegacyLoad(const std::string& xml, std::int64_t annotations);

// pugixml's load_buffer with its default options (it copies the bytes).
VEKBenchTime VEKTimePugixmlParse(const std::string& xml);
// pugixml's save of a parsed document to `path`, unindented: the floor of writing the dump.
VEKBenchTime VEKTimePugixmlSave(const std::string& xml, const char* path);
// libxml2's xmlReadMemory with no options.
VEKBenchTime VEKTimeLibxml2Parse(const std::string& xml);

// Reusable output buffers, touched once so that no run pays for first-touch page faults.
class VEKBenchTarget {
 public:
  char* Reserve(std::size_t size);

 private:
  std::vector<char> bytes_;
};

VEKBenchTime VEKTimeMemcpy(const std::string& bytes, VEKBenchTarget& target);
// libdeflate's bare zlib decompression of `zlib` into `size` bytes.
VEKBenchTime VEKTimeInflate(const std::string& zlib, std::size_t size, VEKBenchTarget& target);
// Our base64 decoder (VEKCodePage) on `text`, which must give `size` bytes: the decoding step of a
// base64-form load, its allocation of the output included.
VEKBenchTime VEKTimeBase64Decode(const std::string& text, std::size_t size);

// What reading graphics costs: `times` reads of one GLB blob with our scene-graph reader
// (container, JSON and representation), or with tinygltf's loader, the reference, which builds its
// model only (no file system, no image decoding).
enum class VEKGlbRead { OurReader, Tinygltf };
VEKBenchTime VEKTimeGlbReads(const std::vector<char>& glb, VEKGlbRead how, int times);
