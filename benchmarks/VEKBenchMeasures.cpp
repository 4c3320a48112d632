#include "VEKBenchMeasures.h"

#include <libdeflate.h>
#include <libxml/parser.h>
#include <time.h>

#include <tiny_gltf.h>
#include <cstdio>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <stdexcept>
#include <utility>

#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKSceneGraph.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightWriter.h"

namespace {

// The file every current-schema load writes into the working directory.
constexpr char kDumpFile[] = "E:\\TPSLoadXML.xml";

double Seconds(clockid_t clock) {
  timespec now{};
  (void)clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void ExpectAnnotations(HRESULT result, VEKITPSLightSet* set, std::int64_t annotations,
                       const char* load) {
  if (result != S_OK || !set || set->GetAnnotations()->Count() != annotations) {
    throw std::runtime_error(std::string(load) + " did not build the document's model");
  }
}

bool SkipImageDecoding(tinygltf::Image*, const int, std::string*, std::string*, int, int,
                       const unsigned char*, int, void*) {
  return true;
}

struct DecompressorDeleter {
  void operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
  }
};

}  // namespace

VEKBenchStopwatch::VEKBenchStopwatch()
    : wallStart_(Seconds(CLOCK_MONOTONIC)), cpuStart_(Seconds(CLOCK_PROCESS_CPUTIME_ID)) {}

VEKBenchTime VEKBenchStopwatch::Read() const {
  return {Seconds(CLOCK_MONOTONIC) - wallStart_, Seconds(CLOCK_PROCESS_CPUTIME_ID) - cpuStart_};
}

void VEKPrepareBenchDocument(std::string xml, std::int64_t annotations, bool allForms,
                             VEKBenchDocument& document) {
  document.xml = std::move(xml);
  document.annotations = annotations;
  document.plainSource = VEKUnicodeString(document.xml.data(), document.xml.size());
  if (!allForms) return;
  if (!VEKEncodeDocumentForm(document.xml, VEKGeneratedForm::Base64, document.base64) ||
      !VEKEncodeDocumentForm(document.xml, VEKGeneratedForm::Zlib, document.zlib)) {
    throw std::runtime_error("the document's encoded forms could not be made");
  }
  document.base64Source = VEKUnicodeString(document.base64.data(), document.base64.size());
}

VEKBenchTime VEKTimeCurrentLoad(VEKBenchDocument& document, VEKGeneratedForm form) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  HRESULT result = E_FAIL;
  const VEKBenchStopwatch stopwatch;
  switch (form) {
    case VEKGeneratedForm::Plain:
      result = parser.GenerateLightModelFromBase(document.plainSource, nullptr,
                                                 set.ReleaseAndGetAddressOf(), 0, nullptr, 0, 0);
      break;
    case VEKGeneratedForm::Base64:
      result = parser.GenerateLightModelFromBase(document.base64Source, nullptr,
                                                 set.ReleaseAndGetAddressOf(), 1, nullptr, 0, 0);
      break;
    case VEKGeneratedForm::Zlib:
      result = parser.GenerateLightModelFromBase(
          document.plainSource, nullptr, set.ReleaseAndGetAddressOf(), 0, document.zlib.data(),
          static_cast<int>(document.xml.size()), static_cast<int>(document.zlib.size()));
      break;
  }
  VEKBenchTime time = stopwatch.Read();
  ExpectAnnotations(result, set.Get(), document.annotations, "the current-schema load");
  const VEKBenchStopwatch teardown;
  set.Reset();
  time.teardown = teardown.Read().cpu;
  // Every run then writes its dump afresh, instead of first truncating the previous run's dump,
  // whose size belongs to whatever document ran before.
  (void)std::remove(kDumpFile);
  return time;
}

VEKBenchTime VEKTimeDocumentLoad(const VEKBenchDocument& document) {
  const VEKBenchStopwatch stopwatch;
  const VEKTPSLightDocument model = VEKLoadDocument(document.xml.data(), document.xml.size());
  const VEKBenchTime time = stopwatch.Read();
  const std::vector<VEKComPtr<VEKITPSLightSet>>& sets = model.Sets();
  ExpectAnnotations(model.Result(), sets.empty() ? nullptr : sets.back().Get(),
                    document.annotations, "the one-call load");
  return time;
}

VEKBenchTime VEKTimeWrite(const VEKTPSLightDocument& model, VEKGeneratedForm form) {
  VEKTPSLightWriteOptions options;
  options.form = form == VEKGeneratedForm::Plain    ? VEKTPSLightForm::Plain
                 : form == VEKGeneratedForm::Base64 ? VEKTPSLightForm::Base64
                                                    : VEKTPSLightForm::Zlib;
  const VEKBenchStopwatch stopwatch;
  const VEKTPSLightWriteResult written = VEKWriteDocument(model, options);
  const VEKBenchTime time = stopwatch.Read();
  if (written.result != S_OK || !written.warnings.empty()) {
    throw std::runtime_error("the writer did not write the whole model: " + written.error);
  }
  return time;
}

VEKBenchTime VEKTimeLegacyLoad(const std::string& xml, std::int64_t annotations) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  const VEKBenchStopwatch stopwatch;
  const HRESULT result =
      parser.GenerateLightModel(xml.c_str(), nullptr, set.ReleaseAndGetAddressOf());
  VEKBenchTime time = stopwatch.Read();
  ExpectAnnotations(result, set.Get(), annotations, "the legacy load");
  const VEKBenchStopwatch teardown;
  set.Reset();
  time.teardown = teardown.Read().cpu;
  return time;
}

VEKBenchTime VEKTimePugixmlParse(const std::string& xml) {
  pugi::xml_document document;
  const VEKBenchStopwatch stopwatch;
  const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size());
  VEKBenchTime time = stopwatch.Read();
  if (!result) throw std::runtime_error("pugixml could not parse the document");
  const VEKBenchStopwatch teardown;
  document.reset();
  time.teardown = teardown.Read().cpu;
  return time;
}

VEKBenchTime VEKTimePugixmlSave(const std::string& xml, const char* path) {
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size())) {
    throw std::runtime_error("pugixml could not parse the document");
  }
  const VEKBenchStopwatch stopwatch;
  const bool saved = document.save_file(path, "", pugi::format_raw);
  const VEKBenchTime time = stopwatch.Read();
  if (!saved) throw std::runtime_error("pugixml could not save the document");
  return time;
}

VEKBenchTime VEKTimeLibxml2Parse(const std::string& xml) {
  const VEKBenchStopwatch stopwatch;
  xmlDocPtr document =
      xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "document.xml", nullptr, 0);
  const VEKBenchTime time = stopwatch.Read();
  if (!document) throw std::runtime_error("libxml2 could not parse the document");
  xmlFreeDoc(document);
  return time;
}

char* VEKBenchTarget::Reserve(std::size_t size) {
  if (bytes_.size() < size) bytes_.assign(size, '\0');
  return bytes_.data();
}

VEKBenchTime VEKTimeMemcpy(const std::string& bytes, VEKBenchTarget& target) {
  char* out = target.Reserve(bytes.size());
  const VEKBenchStopwatch stopwatch;
  std::memcpy(out, bytes.data(), bytes.size());
  const VEKBenchTime time = stopwatch.Read();
  if (std::memcmp(out, bytes.data(), 64 < bytes.size() ? 64 : bytes.size()) != 0) {
    throw std::runtime_error("memcpy lost bytes");
  }
  return time;
}

VEKBenchTime VEKTimeInflate(const std::string& zlib, std::size_t size, VEKBenchTarget& target) {
  char* out = target.Reserve(size);
  const std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> decompressor(
      libdeflate_alloc_decompressor());
  if (!decompressor) throw std::runtime_error("no libdeflate decompressor");
  std::size_t produced = 0;
  const VEKBenchStopwatch stopwatch;
  const libdeflate_result result = libdeflate_zlib_decompress(decompressor.get(), zlib.data(),
                                                              zlib.size(), out, size, &produced);
  const VEKBenchTime time = stopwatch.Read();
  if (result != LIBDEFLATE_SUCCESS || produced != size) {
    throw std::runtime_error("libdeflate could not inflate the document");
  }
  return time;
}

VEKBenchTime VEKTimeBase64Decode(const std::string& text, std::size_t size) {
  unsigned char* bytes = nullptr;
  unsigned int length = 0;
  const VEKBenchStopwatch stopwatch;
  const int result = VEKCodePage::ConvertFromBase64(text.c_str(), bytes, length);
  const VEKBenchTime time = stopwatch.Read();
  delete[] bytes;
  if (result != 0 || length != size) {
    throw std::runtime_error("the base64 text did not decode to the document");
  }
  return time;
}

VEKBenchTime VEKTimeGlbReads(const std::vector<char>& glb, VEKGlbRead how, int times) {
  std::vector<char> blob = glb;
  tinygltf::TinyGLTF loader;
  loader.SetImageLoader(&SkipImageDecoding, nullptr);
  std::string error, warning;
  int read = 0;
  const VEKBenchStopwatch stopwatch;
  for (int k = 0; k < times; ++k) {
    if (how == VEKGlbRead::OurReader) {
      const std::unique_ptr<VEKRep> rep(
          VEKReadSceneGraph(blob.data(), static_cast<int>(blob.size())));
      read += rep != nullptr;
    } else {
      tinygltf::Model model;
      read += loader.LoadBinaryFromMemory(&model, &error, &warning,
                                          reinterpret_cast<const unsigned char*>(blob.data()),
                                          static_cast<unsigned int>(blob.size()));
    }
  }
  const VEKBenchTime time = stopwatch.Read();
  if (read != times) throw std::runtime_error("a GLB read failed");
  return time;
}
