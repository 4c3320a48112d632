// Helpers for the parser tests: inline documents parsed into elements, the base64 and compressed
// forms of a document, reading model values back, and a fixture for current-schema loads.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DocumentForms.h"
#include "GlbBuilder.h"
#include "ModelQueries.h"
#include "RecordingModel.h"
#include "ScratchDirectory.h"
#include "VEKComPtr.h"
#include "VEKLightXml.h"
#include "VEKTPSLightModel.h"
#include "VEKTPSLightParserUtil.h"
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

// A "Rep" element of `type` holding `triangles`, `lines` and `points` one-primitive meshes.
inline std::string RepXml(const char* type, int triangles = 1, int lines = 0, int points = 0) {
  const std::vector<char> glb = BuildMeshesGlb(triangles, lines, points);
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

// Name of the dump file written by every current-schema load, relative to the working directory.
inline const char* DumpFileName() { return "E:\\TPSLoadXML.xml"; }

// Current-schema loads through the text form, in a scratch working directory for their dump.
class CurrentLoadTest : public ::testing::Test {
 protected:
  // Loads `xml` as text over the caller's value in `*slot`.
  HRESULT LoadInto(const std::string& xml, VEKITPSLightSet** slot, unsigned char fromBase64 = 0) {
    VEKUnicodeString source(xml.c_str());
    return util_.GenerateLightModelFromBase(source, nullptr, slot, fromBase64, nullptr, 0, 0);
  }
  // Loads `xml` as text into `set`, or into a set dropped at once.
  HRESULT LoadText(const std::string& xml, VEKComPtr<VEKITPSLightSet>& set,
                   unsigned char fromBase64 = 0) {
    return LoadInto(xml, set.ReleaseAndGetAddressOf(), fromBase64);
  }
  HRESULT LoadText(const std::string& xml) {
    VEKComPtr<VEKITPSLightSet> set;
    return LoadText(xml, set);
  }

  ScratchDirectory directory_;
  VEKTPSLightParserUtil util_;
};

}  // namespace vek_test
