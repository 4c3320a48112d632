// Parser entry: the two load operations, their input decoding, root check and dispatch, and the
// dump of every parsed current-schema document.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKSysUncompress.h"
#include "VEKTPSLightParserInternal.h"
#include "VEKTPSLightParserUtil.h"

using vek_parser_detail::VEKForEachChild;
using vek_parser_detail::VEKPassWide;

namespace {

// Deflate cannot expand its input by more than 1032 to 1 (a 258-byte match coded in two bits), so
// a declared size beyond that can never be filled and is refused before anything is allocated.
constexpr std::int64_t kMaxInflateRatio = 1032;

struct VEKFreeBytes {
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};

// The bytes handed to the XML parser, and their owner when the load made them.
struct VEKLoadInput {
  const unsigned char* bytes = nullptr;
  int length = 0;
  std::unique_ptr<unsigned char[]> decoded;
  std::unique_ptr<unsigned char, VEKFreeBytes> inflated;
};

HRESULT VEKDecompressInput(const char* compressedData, int uncompressedSize, int compressedSize,
                           VEKLoadInput& input) {
  if (uncompressedSize < 0 || compressedSize < 0) return E_FAIL;
  if (uncompressedSize > static_cast<std::int64_t>(compressedSize) * kMaxInflateRatio) {
    return E_FAIL;
  }
  const auto declared = static_cast<unsigned int>(uncompressedSize);
  // The parser always receives the declared size, and a shorter stream must leave zeros, never
  // indeterminate bytes, in the part it did not fill. Zeroed memory from the system costs no
  // resident page until it is written, and the parser stops at the first zero after the root, so
  // a declared size beyond the stream's output costs address space, not memory.
  std::unique_ptr<unsigned char, VEKFreeBytes> array(
      static_cast<unsigned char*>(std::calloc(declared, 1)));
  if (!array) return E_FAIL;
  unsigned int produced = declared;
  if (VEKSysUncompress(compressedData, compressedSize, reinterpret_cast<char*>(array.get()),
                       &produced) < 0) {
    return E_FAIL;
  }
  input.bytes = array.get();
  input.length = uncompressedSize;
  input.inflated = std::move(array);
  return S_OK;
}

HRESULT VEKDecodeText(const VEKUnicodeString& source, unsigned char fromBase64,
                      VEKLoadInput& input) {
  const char* text = source.ConvertToChar();
  if (!text) return E_FAIL;
  if (fromBase64 != 1) {
    // The character count, not the byte count: a text with multi-byte characters is cut short.
    input.bytes = reinterpret_cast<const unsigned char*>(text);
    input.length = source.GetLengthInChar();
    return S_OK;
  }
  unsigned char* decoded = nullptr;
  unsigned int decodedLength = 0;
  const int decodeResult = VEKCodePage::ConvertFromBase64(text, decoded, decodedLength);
  input.decoded.reset(decoded);
  if (decodeResult < 0 || !decoded || decodedLength > static_cast<unsigned int>(INT_MAX)) {
    return E_FAIL;
  }
  input.bytes = decoded;
  input.length = static_cast<int>(decodedLength);
  return S_OK;
}

// An output stream that writes into an open file; a failed write takes nothing.
class VEKFileOutputStream final : public VEKLightXmlOutputStream {
 public:
  explicit VEKFileOutputStream(std::FILE* file) noexcept : file_(file) {}
  int Write(const unsigned char* bytes, int length) override {
    if (!bytes || length <= 0) return 0;
    const std::size_t written = std::fwrite(bytes, 1, static_cast<std::size_t>(length), file_);
    length_ += static_cast<std::int64_t>(written);
    return static_cast<int>(written);
  }
  int GetLength() const override {
    return static_cast<int>(std::min<std::int64_t>(length_, INT_MAX));
  }
  // What is in the file stays there; only the count restarts.
  void Clear() override { length_ = 0; }

 private:
  std::FILE* file_;
  std::int64_t length_ = 0;
};

}  // namespace

HRESULT VEKTPSLightParserUtil::GenerateLightModelFromBase(
    VEKUnicodeString& source, VEKBaseUnknown* father, VEKITPSLightSet** set,
    unsigned char fromBase64, char* compressedData, int uncompressedSize, int compressedSize) {
  if (!set) return E_FAIL;

  VEKLoadInput input;
  const bool compressed = compressedData && uncompressedSize != 0 && compressedSize != 0;
  const HRESULT decoded =
      compressed ? VEKDecompressInput(compressedData, uncompressedSize, compressedSize, input)
                 : VEKDecodeText(source, fromBase64, input);
  if (VEKFailed(decoded) || !input.bytes) return E_FAIL;

  VEKLightXmlElement root;
  VEKLightXmlParser parser;
  {
    VEKLightXmlInputStreamBuffer stream(input.bytes, input.length);
    if (!parser.Parse(stream, root)) return E_FAIL;
  }
  // The parsed document keeps its own copy of the text, so decoded or inflated bytes are freed
  // before the model is built.
  input.decoded.reset();
  input.inflated.reset();
  input.bytes = nullptr;
  if (root.GetName() != "Functional_Tolerancing_Annotation") return E_FAIL;

  VEKUnicodeString dumpName("E:\\TPSLoadXML.xml");
  (void)GenerateFile(dumpName, root);

  void* position = root.GetChildren();
  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  if (!container) return E_FAIL;

  // The outcome is that of the last set creation; without any "AnnotationSet" it stays E_FAIL.
  HRESULT result = E_FAIL;
  // A caller's value that is not a live set of this model (stale, garbage) is never handed on.
  if (!VEKTPSLightContainer::IsLiveSet(*set)) *set = nullptr;
  while (position) {
    VEKLightXmlElementItf* child = root.GetChild(position);
    if (!child) break;
    const VEKUnicodeString& name = child->GetName();
    // *set is read at each dispatch: the set in force is the one made by the latest
    // "AnnotationSet" before this child (the caller's value before the first).
    if (name == "AnnotationSet") {
      result = container->CreateLightSet(set, father);
      if (VEKSucceeded(result)) (void)SetTPSSetValues(*set, *child);
    } else if (name == "RootTTRSs") {
      (void)GenerateNewTTRS(container.Get(), *set, *child);
    } else if (name == "RootTPSs") {
      (void)GenerateNewAnnotations(container.Get(), *set, *child);
    } else if (name == "RootViews") {
      (void)GenerateNewViews(container.Get(), *set, *child);
    } else if (name == "RootRefs") {
      (void)GenerateNewRefFrame(container.Get(), *set, *child);
    } else if (name == "RootCGs") {
      (void)GenerateNewCG(container.Get(), *set, *child);
    } else if (name == "RootCaps") {
      (void)GenerateNewCapture(container.Get(), *set, *child);
    }
  }
  return result;
}

HRESULT VEKTPSLightParserUtil::GenerateLightModel(const char* xmlText, VEKBaseUnknown* father,
                                                  VEKITPSLightSet** set) {
  if (!xmlText || !set) return E_FAIL;
  HRESULT result = E_FAIL;
  const std::size_t textLength = std::strlen(xmlText);
  if (textLength == 0 || textLength > static_cast<std::size_t>(INT_MAX)) return result;

  VEKLightXmlElement root;
  VEKLightXmlParser parser;
  VEKLightXmlInputStreamBuffer stream(reinterpret_cast<const unsigned char*>(xmlText),
                                      static_cast<int>(textLength));
  if (!parser.Parse(stream, root)) return result;
  if (root.GetName() != "TolerancingData" || !root.GetChildren()) return result;

  const VEKUnicodeString valueName("V");
  const VEKUnicodeString absent;
  VEKForEachChild(root, [&](VEKLightXmlElementItf& child) {
    if (child.GetName() != "AnnotationSet") return;
    // One container per set, released once its builders are done.
    VEKComPtr<VEKTPSLightContainer> container;
    container.Attach(new VEKTPSLightContainer());
    if (!container) return;
    if (VEKFailed(container->CreateLightSet(set, father))) return;

    // The set's values are positional: item k is the "V" of the k-th child, whatever its name.
    VEKListValVEKUnicodeString items;
    VEKForEachChild(child, [&](VEKLightXmlElementItf& item) {
      (void)items.Append(item.GetAttributeValue(valueName, absent));
    });
    if (items.Size() != 5 || !items.Complete()) return;

    VEKITPSLightSet* current = *set;
    VEKComPtr<VEKITPSLight> light;
    if (current &&
        VEKSucceeded(current->QueryInterface(IID_VEKITPSLight, light.ReleaseAndGetVoidAddressOf())) &&
        light) {
      VEKPassWide(items[1], [&](const wchar_t* text) { (void)light->SetName(text); });
      VEKPassWide(items[2], [&](const wchar_t* text) { (void)current->SetStandard(text); });
      // Type and status share one integer, so an unreadable status repeats the type.
      int number = 0;
      (void)items[3].ConvertToNum(&number, "%d");
      (void)light->SetType(static_cast<unsigned short>(number));
      (void)items[4].ConvertToNum(&number, "%d");
      (void)light->SetStatus(static_cast<unsigned short>(number));
      VEKPassWide(items[5], [&](const wchar_t* text) { (void)light->SetUuid(text); });
      light.Reset();
    }

    // Every builder reads the whole document from its root.
    (void)GenerateTTRS(container.Get(), current, root);
    (void)GenerateAnnotations(container.Get(), current, root);
    (void)GenerateViews(container.Get(), current, root);
    (void)GenerateRefFrame(container.Get(), current, root);
    (void)GenerateCG(container.Get(), current, root);
    (void)GenerateCapture(container.Get(), current, root);
    result = S_OK;
  });
  return result;
}

HRESULT VEKTPSLightParserUtil::GenerateFile(VEKUnicodeString& fileName,
                                            VEKLightXmlElementItf& element) {
  if (fileName.GetLengthInChar() == 0) return E_FAIL;
  // The text is written under a name of this thread's own and then renamed over the file, so that
  // loads running at once always leave one whole document in it, never an interleaving of two.
  const char* finalName = fileName.CastToCharPtr();
  std::string temporaryName;
  try {
    temporaryName = std::string(finalName) + "." + std::to_string(getpid()) + "." +
                    std::to_string(gettid()) + ".tmp";
  } catch (const std::bad_alloc&) {
    return S_OK;
  }
  // A file that cannot be opened or written is skipped without a word.
  const int descriptor =
      open(temporaryName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) return S_OK;
  std::FILE* file = fdopen(descriptor, "wb");
  if (!file) {
    (void)close(descriptor);
    (void)unlink(temporaryName.c_str());
    return S_OK;
  }
  // The text goes straight into the file: no copy of the whole document is ever held.
  VEKFileOutputStream output(file);
  VEKLightXmlParser parser;
  (void)parser.GetXml(element, output);
  (void)std::fflush(file);
  (void)std::fclose(file);
  if (std::rename(temporaryName.c_str(), finalName) != 0) {
    (void)unlink(temporaryName.c_str());
  }
  return S_OK;
}
