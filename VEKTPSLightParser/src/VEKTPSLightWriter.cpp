// The writer's entry points: the request checked, every set written as XML into memory or
// straight into a file, and the XML turned into the form asked for.
#include "VEKTPSLightWriter.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <new>
#include <system_error>

#include "VEKCodePage.h"
#include "VEKSysCompress.h"
#include "VEKTPSLightPipeline.h"
#include "VEKTPSLightReplacingFile.h"
#include "VEKTPSLightSetWriter.h"

namespace {

using Sets = std::vector<VEKComPtr<VEKITPSLightSet>>;
using Warnings = std::vector<VEKTPSLightWriteWarning>;

constexpr int kMaxCompressionLevel = 12;

// Appends to a string; once memory runs out it takes nothing more.
class StringOutput final : public VEKLightXmlOutputStream {
 public:
  explicit StringOutput(std::string& text) noexcept : text_(text) {}
  int Write(const unsigned char* bytes, int length) override {
    if (!bytes || length <= 0) return 0;
    try {
      text_.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    } catch (const std::exception&) {
      return 0;
    }
    return length;
  }
  int GetLength() const override {
    return static_cast<int>(std::min<std::size_t>(text_.size(), INT_MAX));
  }
  void Clear() override { text_.clear(); }

 private:
  std::string& text_;
};

void Fail(VEKTPSLightWriteResult& result, HRESULT code, std::string error) {
  result.result = code;
  result.bytes.clear();
  result.warnings.clear();
  result.error = std::move(error);
}

// Whether the request can be written; otherwise the result says why.
bool Check(const Sets& sets, const VEKTPSLightWriteOptions& options,
           VEKTPSLightWriteResult& result) {
  if (sets.empty()) {
    Fail(result, E_INVALIDARG, "there is no set to write");
    return false;
  }
  for (std::size_t index = 0; index < sets.size(); ++index) {
    if (!sets[index]) {
      Fail(result, E_INVALIDARG, "set " + std::to_string(index) + " is null");
      return false;
    }
  }
  if (options.form != VEKTPSLightForm::Plain && options.form != VEKTPSLightForm::Base64 &&
      options.form != VEKTPSLightForm::Zlib) {
    Fail(result, E_INVALIDARG, "the form to write must be plain, base64 or zlib");
    return false;
  }
  if (options.compressionLevel < 0 || options.compressionLevel > kMaxCompressionLevel) {
    Fail(result, E_INVALIDARG, "the compression level must be from 0 to 12");
    return false;
  }
  return true;
}

// By set, then by family in document order, then by position; the writer's own order within one
// object.
void SortWarnings(Warnings& warnings) {
  const auto rank = [](const VEKTPSLightWriteWarning& warning) {
    switch (warning.objectKind) {
      case VEKTPSLightKindTTRS:
        return 1;
      case VEKTPSLightKindAnnotation:
        return 2;
      case VEKTPSLightKindView:
        return 3;
      case VEKTPSLightKindRefFrame:
        return 4;
      case VEKTPSLightKindCG:
        return 5;
      case VEKTPSLightKindCapture:
        return 6;
      default:
        return 0;
    }
  };
  std::stable_sort(warnings.begin(), warnings.end(),
                   [&](const VEKTPSLightWriteWarning& a, const VEKTPSLightWriteWarning& b) {
                     if (a.set != b.set) return a.set < b.set;
                     if (rank(a) != rank(b)) return rank(a) < rank(b);
                     return a.position < b.position;
                   });
}

// Writes the document's XML into `output`; false when the stream did not take every byte.
bool WriteXml(const Sets& sets, const VEKTPSLightWriteOptions& options,
              VEKLightXmlOutputStream& output, Warnings& warnings) {
  VEKLightXmlWriter xml(output, options.indent);
  xml.Raw("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  xml.StartElement(vek_parser_detail::kVEKCurrentRoot);
  for (std::size_t index = 0; index < sets.size(); ++index) {
    vek_parser_detail::VEKWriteSetXml(*sets[index].Get(), static_cast<int>(index), xml, warnings);
  }
  xml.EndElement(vek_parser_detail::kVEKCurrentRoot);
  xml.Raw("\n");
  SortWarnings(warnings);
  return xml.Flush();
}

// The XML in the form asked for; the XML itself is given up.
void Encode(std::string& xml, const VEKTPSLightWriteOptions& options, std::string& out) {
  if (options.form == VEKTPSLightForm::Plain) {
    out = std::move(xml);
    return;
  }
  std::string encoded;
  if (options.form == VEKTPSLightForm::Base64) {
    encoded.resize(VEKCodePage::Base64Length(xml.size()));
    encoded.resize(VEKCodePage::WriteBase64(reinterpret_cast<const unsigned char*>(xml.data()),
                                            xml.size(), &encoded[0], encoded.size()));
  } else {
    encoded.resize(VEKSysCompressBound(xml.size()));
    std::size_t length = encoded.size();
    // The only failures left with these arguments: no memory for the compressor.
    if (VEKSysCompress(xml.data(), xml.size(), options.compressionLevel, &encoded[0], &length) != 0)
      throw std::bad_alloc();
    encoded.resize(length);
  }
  std::string().swap(xml);
  out = std::move(encoded);
}

void WriteToMemory(const Sets& sets, const VEKTPSLightWriteOptions& options,
                   VEKTPSLightWriteResult& result) {
  std::string xml;
  StringOutput output(xml);
  if (!WriteXml(sets, options, output, result.warnings)) throw std::bad_alloc();
  Encode(xml, options, result.bytes);
  result.result = S_OK;
}

void WriteToFile(const char* path, const Sets& sets, const VEKTPSLightWriteOptions& options,
                 VEKTPSLightWriteResult& result) {
  const auto failed = [&](int error, const char* what) {
    if (error == ENOMEM) throw std::bad_alloc();
    Fail(result, E_FAIL,
         std::string(what) + " " + path + ": " + std::generic_category().message(error));
  };
  vek_parser_detail::VEKReplacingFile file;
  if (const int error = file.Open(path)) {
    failed(error, "could not create a new file beside");
    return;
  }
  if (options.form == VEKTPSLightForm::Plain) {
    // Straight into the file: the document is never held whole in memory.
    (void)WriteXml(sets, options, file, result.warnings);
  } else {
    WriteToMemory(sets, options, result);
    std::string bytes;
    bytes.swap(result.bytes);
    (void)file.WriteAll(bytes.data(), bytes.size());
  }
  if (const int error = file.Commit()) {
    failed(error, "could not write");
    return;
  }
  result.result = S_OK;
}

template <class Run>
VEKTPSLightWriteResult Guarded(Run&& run) noexcept {
  VEKTPSLightWriteResult result;
  try {
    run(result);
  } catch (const std::bad_alloc&) {
    // Short enough to be held without allocating.
    Fail(result, E_OUTOFMEMORY, "memory ran out");
  } catch (...) {
    Fail(result, E_FAIL, "the model threw");
  }
  return result;
}

}  // namespace

VEKTPSLightWriteResult VEKWriteSets(const Sets& sets,
                                    const VEKTPSLightWriteOptions& options) noexcept {
  return Guarded([&](VEKTPSLightWriteResult& result) {
    if (Check(sets, options, result)) WriteToMemory(sets, options, result);
  });
}

VEKTPSLightWriteResult VEKWriteDocument(const VEKTPSLightDocument& document,
                                        const VEKTPSLightWriteOptions& options) noexcept {
  return VEKWriteSets(document.Sets(), options);
}

VEKTPSLightWriteResult VEKWriteSetsFile(const char* path, const Sets& sets,
                                        const VEKTPSLightWriteOptions& options) noexcept {
  return Guarded([&](VEKTPSLightWriteResult& result) {
    if (!path || !*path) {
      Fail(result, E_INVALIDARG, "there is no file name to write to");
      return;
    }
    if (Check(sets, options, result)) WriteToFile(path, sets, options, result);
  });
}

VEKTPSLightWriteResult VEKWriteDocumentFile(const char* path, const VEKTPSLightDocument& document,
                                            const VEKTPSLightWriteOptions& options) noexcept {
  return VEKWriteSetsFile(path, document.Sets(), options);
}

const char* VEKTPSLightWriteIssueName(VEKTPSLightWriteIssue issue) noexcept {
  switch (issue) {
    case VEKTPSLightWriteIssue::Unset:
      return "unset";
    case VEKTPSLightWriteIssue::NotKept:
      return "not-kept";
    case VEKTPSLightWriteIssue::ZeroInList:
      return "zero-in-list";
    case VEKTPSLightWriteIssue::NullGeometry:
      return "null-geometry";
    case VEKTPSLightWriteIssue::EmptyOrderGroup:
      return "empty-order-group";
    case VEKTPSLightWriteIssue::LinkLeftOut:
      return "link-left-out";
    case VEKTPSLightWriteIssue::LinksDiffer:
      return "links-differ";
    case VEKTPSLightWriteIssue::TextReplaced:
      return "text-replaced";
    case VEKTPSLightWriteIssue::GraphicTrimmed:
      return "graphic-trimmed";
  }
  return "unknown";
}
