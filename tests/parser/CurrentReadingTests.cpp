// Element navigation, value splitting and the typed readers.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "VEKTPSLightParserUtil.h"

using vek_test::Items;
using vek_test::ParseXml;
using vek_test::Utf8;

TEST(CurrentNavigation, FoundRootNodeTakesTheFirstDirectChildOfThatName) {
  VEKTPSLightParserUtil util;
  VEKLightXmlElement root = ParseXml("<R><A V='1'/><B><C/></B><A V='2'/></R>");
  VEKLightXmlElement found;
  ASSERT_EQ(util.FoundRootNode(root, "A", found), S_OK);
  EXPECT_EQ(Utf8(found.GetAttributeValue("V")), "1");

  VEKLightXmlElement untouched;
  EXPECT_EQ(util.FoundRootNode(root, "C", untouched), E_FAIL);   // a grandchild only
  EXPECT_EQ(util.FoundRootNode(root, "a", untouched), E_FAIL);   // case matters
  EXPECT_EQ(util.FoundRootNode(found, "A", untouched), E_FAIL);  // no children at all
  EXPECT_TRUE(untouched.IsNull());
}

TEST(CurrentNavigation, GetNodeValueKeepsOnePlacePerChild) {
  VEKTPSLightParserUtil util;
  VEKListValVEKUnicodeString values;
  (void)values.Append("old");
  VEKLightXmlElement root = ParseXml("<E><A V='1'/><B/><C V='x'/></E>");
  EXPECT_EQ(util.GetNodeValue(root, &values), S_OK);
  EXPECT_EQ(Items(values), (std::vector<std::string>{"old", "1", "", "x"}));

  VEKLightXmlElement leaf;
  ASSERT_EQ(util.FoundRootNode(root, "B", leaf), S_OK);
  EXPECT_EQ(util.GetNodeValue(leaf, &values), S_OK);
  EXPECT_EQ(values.Size(), 4);
  EXPECT_EQ(util.GetNodeValue(root, nullptr), E_FAIL);
}

TEST(CurrentNavigation, GetListOfUnicodeSkipsTheFirstCharacterAndEndsWithTheWholeText) {
  struct Case {
    const char* text;
    const char* separator;
    std::vector<std::string> items;
  };
  const Case cases[] = {
      {";a;b;", ";", {"kept", "a", "b"}},
      {";a;;b;", ";", {"kept", "a", "b"}},
      {"a;b;", ";", {"kept", "b"}},
      {";a;b", ";", {"kept", "a", ";a;b"}},
      {"abc", ";", {"kept", "abc"}},
      {"", ";", {"kept"}},
      {";", ";", {"kept", ";"}},
      {" 12 14 ", " ", {"kept", "12", "14"}},
      {";\xC3\xA9;\xE2\x93\x82;", ";", {"kept", "\xC3\xA9", "\xE2\x93\x82"}},
  };
  VEKTPSLightParserUtil util;
  for (const Case& row : cases) {
    VEKListValVEKUnicodeString items;
    (void)items.Append("kept");
    EXPECT_EQ(util.GetListOfUnicode(row.text, row.separator, &items), S_OK) << row.text;
    EXPECT_EQ(Items(items), row.items) << '"' << row.text << '"';
  }
  EXPECT_EQ(util.GetListOfUnicode(";a;", ";", nullptr), E_FAIL);
}

TEST(CurrentReaders, ReadListIntDropsZerosAndAppends) {
  struct Case {
    const char* text;
    std::vector<int> items;
  };
  const Case cases[] = {
      {"4 0 7", {-1, 4, 7}},
      {"4  7", {-1, 4, 7}},
      {"12", {-1, 12}},
      {"0", {-1}},
      {"", {-1}},
      {" 5 ", {-1, 5}},
      {"-3 x 9", {-1, -3, 9}},
      {"2147483648", {-1, INT_MAX}},
      {"1 2 3 4 5 6", {-1, 1, 2, 3, 4, 5, 6}},
  };
  VEKTPSLightParserUtil util;
  for (const Case& row : cases) {
    VEKLightXmlElement element = ParseXml(std::string("<GeoP>") + row.text + "</GeoP>");
    VEKRawCollint values(0);
    (void)values.Append(-1);
    EXPECT_EQ(util.ReadListInt(element, values), S_OK);
    EXPECT_EQ(Items(values), row.items) << '"' << row.text << '"';
  }
}

TEST(CurrentReaders, ReadMathLeavesWhatItCannotReach) {
  struct Case {
    const char* text;
    double x, y, z;
  };
  // Outputs start at 7, 8, 9; fewer than two blanks never read out of range.
  const Case cases[] = {
      {"1 2 3", 1, 2, 3}, {"1e-3 -2.5 4", 0.001, -2.5, 4},
      {"", 7, 8, 9},      {"5", 7, 8, 5},
      {"1 2", 1, 8, 1},   {"1  2 3", 1, 8, 2},
      {"a b c", 7, 8, 9}, {"0x10 inf -0", 16, INFINITY, 0},
  };
  VEKTPSLightParserUtil util;
  for (const Case& row : cases) {
    VEKLightXmlElement element = ParseXml(std::string("<X>") + row.text + "</X>");
    double x = 7, y = 8, z = 9;
    EXPECT_EQ(util.ReadMath(element, x, y, z), S_OK);
    EXPECT_EQ((std::vector<double>{x, y, z}), (std::vector<double>{row.x, row.y, row.z}))
        << row.text;
  }
}

TEST(CurrentReaders, ReadTPSIdAndReadTPSLocTouchOnlyWhatTheyFind) {
  VEKTPSLightParserUtil util;
  VEKUnicodeString name("keep"), uuid("keep");
  VEKLightXmlElement deep = ParseXml("<X><Y><TPSId Name='A' Uuid='u'/></Y></X>");
  (void)util.ReadTPSId(deep, name, uuid);
  EXPECT_EQ(Utf8(name), "keep");
  VEKLightXmlElement partial = ParseXml("<X><TPSId Name='A'/><TPSLoc Type='3' Status='x'/></X>");
  (void)util.ReadTPSId(partial, name, uuid);
  EXPECT_EQ(Utf8(name), "A");
  EXPECT_EQ(Utf8(uuid), "");

  int type = -1, id = -2, status = -3;
  EXPECT_EQ(util.ReadTPSLoc(partial, type, id, status), S_OK);
  EXPECT_EQ((std::vector<int>{type, id, status}), (std::vector<int>{3, -2, -3}));
  VEKLightXmlElement none = ParseXml("<X/>");
  (void)util.ReadTPSLoc(none, type, id, status);
  EXPECT_EQ(type, 3);
}

TEST(CurrentReaders, ReadRepUsesTheFirstRepOfTheType) {
  VEKTPSLightParserUtil util;
  VEKUnicodeString three("3");
  VEKLightXmlElement twoReps =
      ParseXml("<X><Rep Type='2'><Buf>!!</Buf></Rep>" + vek_test::RepXml("3") + "</X>");
  VEKRep* rep = nullptr;
  ASSERT_EQ(util.ReadRep(twoReps, three, &rep), S_OK);
  std::unique_ptr<VEKRep> owned(rep);
  ASSERT_NE(rep, nullptr);
  EXPECT_EQ(rep->GetMeshes().size(), 1u);
  EXPECT_EQ(rep->GetNodes().size(), 2u);
  EXPECT_EQ(util.ReadRep(twoReps, three, nullptr), E_FAIL);

  const char* failures[] = {
      "<X><Rep Type='3'><Buf></Buf></Rep>",  // an empty first match hides the later one
      "<X><Rep Type='3'/>",                  // no "Buf"
      "<X><Rep Type='3'><Buf>@@@@</Buf></Rep>",
      "<X><Rep Type='3'><Buf>AAAA</Buf></Rep>",  // decodes, but is no scene graph
  };
  for (const char* head : failures) {
    VEKLightXmlElement element = ParseXml(std::string(head) + vek_test::RepXml("3") + "</X>");
    VEKRep* untouched = reinterpret_cast<VEKRep*>(&util);
    EXPECT_EQ(util.ReadRep(element, three, &untouched), E_FAIL) << head;
    EXPECT_EQ(untouched, reinterpret_cast<VEKRep*>(&util));
  }

  // Types compare as text: "03" is not "3", so the later "3" is the one used.
  VEKLightXmlElement otherForm =
      ParseXml("<X><Rep Type='03'><Buf>AAAA</Buf></Rep>" + vek_test::RepXml("3") + "</X>");
  rep = nullptr;
  EXPECT_EQ(util.ReadRep(otherForm, three, &rep), S_OK);
  delete rep;
  VEKLightXmlElement noMatch = ParseXml("<X>" + vek_test::RepXml("2") + "</X>");
  EXPECT_EQ(util.ReadRep(noMatch, three, &rep), E_FAIL);
}
