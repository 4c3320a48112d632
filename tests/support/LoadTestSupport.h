// What the parser, hostile-input and concurrency tests share: the dump's name, legacy value
// children and a fixture for current-schema loads through the text form.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ScratchDirectory.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKUnicodeString.h"

namespace vek_test {

// Legacy value children: one element per item, its "V" attribute the item.
inline std::string Values(const std::vector<std::string>& items) {
  std::string xml;
  for (const std::string& item : items) xml += "<I V=\"" + item + "\"/>";
  return xml;
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
