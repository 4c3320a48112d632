// Helpers for the parser tests: inline documents parsed into elements, the base64 and compressed
// forms of a document, and reading model values back.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DocumentForms.h"
#include "GlbBuilder.h"
#include "LoadTestSupport.h"
#include "ModelQueries.h"
#include "RecordingModel.h"
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

// A "Rep" element of `type` holding `triangles`, `lines` and `points` one-primitive meshes.
inline std::string RepXml(const char* type, int triangles = 1, int lines = 0, int points = 0) {
  const std::vector<char> glb = BuildMeshesGlb(triangles, lines, points);
  return std::string("<Rep Type='") + type + "'><Buf>" +
         EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()) +
         "</Buf></Rep>";
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

}  // namespace vek_test
