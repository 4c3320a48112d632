// The W3C XML conformance suite: every document parses or fails cleanly, every accepted document
// writes back to the same tree, every well-formed standalone document is accepted and most
// malformed ones are rejected. The parser is not a validating or fully conforming one.
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DocumentForms.h"
#include "LightXmlTestSupport.h"
#include "VEKLightXml.h"

namespace {

using lightxml_test::Children;
using lightxml_test::Dump;
using lightxml_test::Parse;
using lightxml_test::Text;
using lightxml_test::Tree;
using vek_test::ReadFileBytes;

const std::string kSuite = std::string(VEK_SHARED_DIR) + "/corpora/xmlconf";
// The share of malformed standalone documents rejected, a little below the one reached.
constexpr int kRejectedPercentFloor = 97;

struct TestCase {
  std::string type;
  std::string path;
};

// Every element of the tree under `root`, itself included, without recursion.
std::vector<const VEKLightXmlElementItf*> Elements(const VEKLightXmlElementItf& root) {
  std::vector<const VEKLightXmlElementItf*> elements{&root};
  for (std::size_t next = 0; next < elements.size(); ++next) {
    for (const VEKLightXmlElementItf* child : Children(*elements[next])) elements.push_back(child);
  }
  return elements;
}

bool Applies(const VEKLightXmlElementItf& test) {
  const std::string entities = Text(test.GetAttributeValue("ENTITIES", "none"));
  const std::string recommendation = Text(test.GetAttributeValue("RECOMMENDATION", "XML1.0"));
  const std::string version = Text(test.GetAttributeValue("VERSION", "1.0"));
  std::istringstream editions(Text(test.GetAttributeValue("EDITION", "5")));
  bool fifthEdition = false;
  for (std::string edition; editions >> edition;) fifthEdition |= edition == "5";
  return entities == "none" && recommendation.rfind("XML1.1", 0) != 0 &&
         recommendation.rfind("NS", 0) != 0 && version == "1.0" && fifthEdition;
}

// The suite's catalog includes one catalog per collection through external entities, which the
// parser leaves unexpanded: their files come from the entity declarations.
std::vector<TestCase> StandaloneTests() {
  const std::string top = ReadFileBytes(kSuite + "/xmlconf.xml");
  std::map<std::string, std::string> catalogs;
  for (std::size_t at = top.find("<!ENTITY"); at != std::string::npos;
       at = top.find("<!ENTITY", at + 1)) {
    std::istringstream declaration(top.substr(at, top.find('>', at) - at));
    std::string keyword, name, system, file;
    declaration >> keyword >> name >> system >> file;
    catalogs[name] = file.substr(1, file.size() - 2);
  }
  VEKLightXmlElement suite;
  if (!Parse(top, suite)) return {};
  std::vector<TestCase> tests;
  for (const VEKLightXmlElementItf* group : Children(suite)) {
    const std::string base = Text(group->GetAttributeValue("xml:base"));
    std::istringstream references(Text(group->GetValue()));
    for (std::string reference; references >> reference;) {
      std::string catalog =
          ReadFileBytes(kSuite + "/" + catalogs[reference.substr(1, reference.size() - 2)]);
      if (catalog.rfind("<?xml", 0) == 0) catalog.erase(0, catalog.find("?>") + 2);
      VEKLightXmlElement cases;
      EXPECT_TRUE(Parse("<w>" + catalog + "</w>", cases)) << reference;
      for (const VEKLightXmlElementItf* test : Elements(cases)) {
        if (test->GetName() != "TEST" || !Applies(*test)) continue;
        tests.push_back(
            {Text(test->GetAttributeValue("TYPE")), base + Text(test->GetAttributeValue("URI"))});
      }
    }
  }
  return tests;
}

TEST(XmlConformanceTest, ParsesOrRejectsEveryStandaloneDocument) {
  if (ReadFileBytes(kSuite + "/xmlconf.xml").empty()) {
    GTEST_SKIP() << "no conformance suite in " << kSuite;
  }
  const std::vector<TestCase> tests = StandaloneTests();
  ASSERT_GT(tests.size(), 1000u);
  std::map<std::string, std::pair<int, int>> acceptedRejected;
  for (const TestCase& test : tests) {
    ASSERT_TRUE(std::filesystem::is_regular_file(kSuite + "/" + test.path)) << test.path;
    const std::string document = ReadFileBytes(kSuite + "/" + test.path);
    VEKLightXmlElement root;
    VEKLightXmlParser parser;
    const bool accepted = Parse(document, root, &parser);
    (accepted ? acceptedRejected[test.type].first : acceptedRejected[test.type].second)++;
    if (!accepted) {
      EXPECT_TRUE(root.IsNull()) << test.path;
      EXPECT_STRNE(parser.GetErrorDescription(), "") << test.path;
      continue;
    }
    VEKLightXmlElement reparsed;
    ASSERT_TRUE(Parse(Dump(root), reparsed)) << test.path;
    EXPECT_EQ(Tree(reparsed), Tree(root)) << test.path;
  }
  for (const auto& [type, counts] : acceptedRejected) {
    std::cout << type << ": " << counts.first << " accepted, " << counts.second << " rejected\n";
    RecordProperty(type + "_accepted", counts.first);
    RecordProperty(type + "_rejected", counts.second);
  }
  // Every well-formed document is accepted; the share of malformed ones rejected may only grow.
  EXPECT_EQ(acceptedRejected["valid"].second, 0);
  EXPECT_EQ(acceptedRejected["invalid"].second, 0);
  const auto& malformed = acceptedRejected["not-wf"];
  EXPECT_GE(malformed.second * 100, kRejectedPercentFloor * (malformed.first + malformed.second));
}

}  // namespace
