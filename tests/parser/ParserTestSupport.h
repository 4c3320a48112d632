// Helpers for the parser tests: inline documents parsed into elements, the base64 and compressed
// forms of a document, reading model values back, and a scratch working directory.
#pragma once

#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "GlbBuilder.h"
#include "RecordingModel.h"
#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKLightXml.h"
#include "VEKTPSLightModel.h"
#include "VEKUnicodeString.h"

namespace vek_test {

// Parses `xml` into a new root element; the element designates nothing when parsing fails.
inline VEKLightXmlElement ParseXml(const std::string& xml) {
  VEKLightXmlElement root;
  VEKLightXmlParser parser;
  VEKLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                     static_cast<int>(xml.size()));
  (void)parser.Parse(input, root);
  return root;
}

// The first child of `parent` named `name`; an element designating nothing when there is none.
inline VEKLightXmlElement FirstChild(const VEKLightXmlElementItf& parent, const char* name) {
  VEKLightXmlElement found;
  void* position = parent.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = parent.GetChild(position);
    if (child && child->GetName() == name) {
      (void)found.SetElement(child);
      break;
    }
  }
  return found;
}

// Base64 form of `bytes` (standard alphabet, padded).
inline std::string ToBase64(const std::string& bytes) {
  VEKUnicodeString text;
  (void)VEKCodePage::ConvertToBase64(reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<unsigned int>(bytes.size()), text);
  return text.ConvertToChar();
}

// zlib-format (RFC 1950) compressed form of `bytes`.
inline std::string ZlibCompress(const std::string& bytes) {
  uLongf capacity = compressBound(static_cast<uLong>(bytes.size()));
  std::string out(capacity, '\0');
  if (compress2(reinterpret_cast<Bytef*>(out.data()), &capacity,
                reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()),
                Z_BEST_COMPRESSION) != Z_OK) {
    return std::string();
  }
  out.resize(capacity);
  return out;
}

// A "Rep" element of the given type whose buffer holds a valid scene of `meshes` meshes.
inline std::string RepXml(const char* type, int meshes = 1) {
  const std::vector<char> glb = BuildMeshesGlb(meshes, 0, 0);
  return std::string("<Rep Type='") + type + "'><Buf>" +
         EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()) +
         "</Buf></Rep>";
}

// Legacy value children: one element per item, its "V" attribute the item.
inline std::string Values(const std::vector<std::string>& items) {
  std::string xml;
  for (const std::string& item : items) xml += "<I V=\"" + item + "\"/>";
  return xml;
}

// UTF-8 text of a string value; "<unset>" for a value that was never set.
inline std::string Utf8(const VEKUnicodeString& text) { return text.ConvertToChar(); }
inline std::string Utf8(const std::optional<VEKUnicodeString>& text) {
  return text ? std::string(text->ConvertToChar()) : std::string("<unset>");
}

// Interface U of `object` (U::kIID), or an empty holder when it does not answer it.
template <class U>
VEKComPtr<U> Query(VEKBaseUnknown* object) {
  VEKComPtr<U> out;
  if (object) (void)object->QueryInterface(U::kIID, out.ReleaseAndGetVoidAddressOf());
  return out;
}

// The VEKBaseUnknown identity of `object`, without keeping a reference (for comparing links).
inline const VEKBaseUnknown* Identity(VEKBaseUnknown* object) {
  return Query<VEKBaseUnknown>(object).Get();
}

// Identities of the objects of a model list, in order.
inline std::vector<const VEKBaseUnknown*> Identities(const VEKLightObjectList& list) {
  std::vector<const VEKBaseUnknown*> out;
  for (int i = 0; i < list.Count(); ++i) out.push_back(Identity(list.Get(i)));
  return out;
}

// Items of a 1-based int list, in order.
inline std::vector<int> Items(const VEKRawCollint& list) {
  std::vector<int> out;
  for (int i = 1; i <= list.Size(); ++i) out.push_back(list[i]);
  return out;
}

// Items of a 1-based string list, as UTF-8, in order.
inline std::vector<std::string> Items(const VEKListValVEKUnicodeString& list) {
  std::vector<std::string> out;
  for (int i = 1; i <= list.Size(); ++i) out.push_back(list[i].ConvertToChar());
  return out;
}

// The whole content of a file; empty when it cannot be read.
inline std::string ReadFileBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Makes a fresh empty directory the working directory for the holder's lifetime, then restores
// the previous one and removes the directory with everything in it.
class ScopedWorkingDirectory {
 public:
  ScopedWorkingDirectory() {
    previous_ = std::filesystem::current_path();
    std::string pattern = (std::filesystem::temp_directory_path() / "vekparser-XXXXXX").string();
    if (mkdtemp(pattern.data())) {
      directory_ = pattern;
      std::filesystem::current_path(directory_);
    }
  }
  ~ScopedWorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
    if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
  }
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

  const std::filesystem::path& Path() const { return directory_; }

 private:
  std::filesystem::path previous_;
  std::filesystem::path directory_;
};

// Name of the dump file written by every current-schema load, relative to the working directory.
inline const char* DumpFileName() { return "E:\\TPSLoadXML.xml"; }

}  // namespace vek_test
