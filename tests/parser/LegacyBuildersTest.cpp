// Legacy-schema builders and the order-group pass against the real light model: every value and
// link is read back from the set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Items;
using vek_test::ModelText;
using vek_test::Query;
using vek_test::Values;
using Rows = std::vector<std::vector<std::string>>;

class LegacyBuilders : public ::testing::Test {
 protected:
  void SetUp() override {
    container_.Attach(new VEKTPSLightContainer());
    ASSERT_EQ(S_OK, container_->CreateLightSet(set_.ReleaseAndGetAddressOf(), nullptr));
  }

  // Parses `xml` ("TolerancingData" around it) and keeps the root for the builders.
  VEKLightXmlElement& Document(const std::string& xml) {
    root_ = vek_test::ParseXml("<TolerancingData>" + xml + "</TolerancingData>");
    EXPECT_FALSE(root_.IsNull());
    return root_;
  }
  // `root` holding one `element` per row of items.
  static std::string Family(const char* root, const char* element, const Rows& rows) {
    std::string xml = std::string("<") + root + ">";
    for (const auto& items : rows) {
      xml += std::string("<") + element + ">" + Values(items) + "</" + element + ">";
    }
    return xml + "</" + root + ">";
  }
  // The annotations of the set, built from one "TPS" per row of eleven items.
  void BuildAnnotations(const Rows& rows) {
    ASSERT_EQ(S_OK, parser_.GenerateAnnotations(container_.Get(), set_.Get(),
                                                Document(Family("Annotations", "TPS", rows))));
  }
  const VEKLightObjectList* GroupOf(int position) {
    return Query<VEKITPSLightModel>(set_->GetAnnotations()->Get(position))->GetOrderGroup();
  }

  VEKTPSLightParserUtil parser_;
  VEKComPtr<VEKTPSLightContainer> container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKLightXmlElement root_;
};

// An annotation row: type, value, name, id, default, reference, status, uuid, attribute, TTRS
// numbers, order group.
std::vector<std::string> AnnotationRow(const std::string& id, const std::string& group = "") {
  return {"1", "0.5", "A" + id, id, "0", "0", "0", "u" + id, "", "", group};
}

// The model line of AnnotationRow(id) with the given order group and views.
std::string AnnotationLine(int position, const std::string& id, const char* group,
                           const char* views) {
  return "\nA" + std::to_string(position) + " A" + id + "/u" + id + "/1/" + id +
         "/0 rep=- value=0.5 default=0 reference=0 attribute= graphic=- ttrs=[] group=" + group +
         " views=" + views;
}

TEST_F(LegacyBuilders, TTRSIdentityFollowsOrderAndUuidNeedsExactlyThreeItems) {
  Document(
      "<TTRSRoot><TTRS><In V=\"7\"/><Na V=\"A\"/><Ui V=\"u\"/></TTRS>"
      "<Other><Na V=\"skipped\"/></Other><TTRS><Na V=\"two\"/><In V=\"12\"/></TTRS>"
      "<TTRS><Na V=\"four\"/><In V=\"4\"/><Ui V=\"u\"/><Na V=\"x\"/></TTRS>"
      "<TTRS><Ui V=\"one\"/></TTRS><TTRS><Gd><I V=\";1;\"/></Gd></TTRS></TTRSRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateTTRS(container_.Get(), set_.Get(), root_));
  // The one with only "Gd" is refused.
  EXPECT_EQ(ModelText(set_.Get()),
            "S1 -/-/-/-/- rep=- standard=- unresolved=[] duplicates=[0:3]\n"
            "T1 7/u/-/0/- rep=- geometry=\nT2 two/-/-/12/- rep=- geometry=\n"
            "T3 four/-/-/4/- rep=- geometry=\nT4 one/-/-/0/- rep=- geometry=");
  VEKLightXmlElement onlyGeometry = vek_test::ParseXml("<TTRS><Gd><I V=\";1;\"/></Gd></TTRS>");
  EXPECT_EQ(E_FAIL, parser_.BuildTTRS(container_.Get(), set_.Get(), onlyGeometry));
  EXPECT_EQ(4, set_->GetTTRS().Count());
}

TEST_F(LegacyBuilders, TTRSPackedItemsSkipFirstCharacterAndKeepOnlyTheLastZero) {
  const struct {
    const char* packed;
    std::vector<int> ids;
  } rows[] = {
      {";0;5;0", {5, 0}}, {";7;;8;", {7, 8, 0}}, {";12", {12}},   {"x", {0}},
      {"15", {5}},        {";a;3", {3}},         {";4;", {4, 0}},
  };
  std::string xml = "<TTRSRoot><TTRS><Na V=\"g\"/><Gd><I V=\"\"/>";
  for (const auto& row : rows) xml += std::string("<I V=\"") + row.packed + "\"/>";
  Document(xml + "</Gd></TTRS></TTRSRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateTTRS(container_.Get(), set_.Get(), root_));
  auto ttrs = Query<VEKITPSLightTTRS>(set_->GetTTRS().Get(0));
  ASSERT_TRUE(ttrs);
  ASSERT_EQ(static_cast<int>(std::size(rows)), ttrs->GetGeometryCount());  // empty item: no list
  for (int i = 0; i < ttrs->GetGeometryCount(); ++i) {
    ASSERT_NE(nullptr, ttrs->GetGeometry(i));
    EXPECT_EQ(rows[i].ids, Items(*ttrs->GetGeometry(i))) << rows[i].packed;
  }
}

TEST_F(LegacyBuilders, AnnotationTakesElevenPositionalItems) {
  BuildAnnotations(
      {{"65537", "2.5", "Flatness", "4", "3", "9", "65538", "uid", "attr", ";3;4;", ""},
       {"1", "1"},  // too few items: refused
       {"5", "x", "Other", "x", "0", "x", "x", "u", "", "", "", "extra"}});
  ASSERT_EQ(1, set_->GetAnnotations()->Count());
  BuildAnnotations({{"5", "x", "Second", "x", "0", "x", "x", "u", "", "", ""}});
  // Type and status keep their low 16 bits; items that do not convert repeat the number before
  // them, and the value stays 0.0.
  EXPECT_EQ(ModelText(set_.Get()),
            "S1 -/-/-/-/- rep=- standard=- unresolved=[] duplicates=[]\n"
            "A1 Flatness/uid/1/4/2 rep=- value=2.5 default=1 reference=9 attribute=attr "
            "graphic=- ttrs=[3,4] group=- views=[]\n"
            "A2 Second/u/5/5/0 rep=- value=0 default=0 reference=0 attribute= graphic=- ttrs=[] "
            "group=- views=[]");
}

TEST_F(LegacyBuilders, OrderGroupsLinkAnnotationsByCreationPosition) {
  // The first names itself and the second; "x" resolves id 0, the third's id; 9 is only a view.
  BuildAnnotations({AnnotationRow("1", ";1;2;"), AnnotationRow("2"), AnnotationRow("0", ";x;9;")});
  EXPECT_EQ(ModelText(set_.Get()), "S1 -/-/-/-/- rep=- standard=- unresolved=[9:1] duplicates=[]" +
                                       AnnotationLine(1, "1", "[A1,A2]", "[]") +
                                       AnnotationLine(2, "2", "-", "[]") +
                                       AnnotationLine(3, "0", "[A3]", "[]"));
}

TEST_F(LegacyBuilders, OrderGroupPassNeedsOneListPerAnnotation) {
  BuildAnnotations({AnnotationRow("1"), AnnotationRow("2")});
  VEKListValVEKUnicodeString ids;
  ASSERT_EQ(S_OK, ids.Append("1"));
  VEKRawCollPV groups(0);
  ASSERT_EQ(S_OK, groups.Append(&ids));
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));  // one list, two annotations
  EXPECT_EQ(nullptr, GroupOf(0));

  ASSERT_EQ(S_OK, groups.Append(nullptr));
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_NE(nullptr, GroupOf(0));
  EXPECT_EQ(nullptr, GroupOf(1));
  EXPECT_EQ(E_FAIL, parser_.AssoTPSOrderGroup(nullptr, groups));
}

TEST_F(LegacyBuilders, ViewLinksItsAnnotationsAndReadsItsPlane) {
  BuildAnnotations({AnnotationRow("1"), AnnotationRow("2")});
  Document("<ViewRoot><View>" + Values({"3", "Front"}) +
           "<Mt><I V=\"0;0;1;1;0;0\"/><I V=\"4;5;6\"/></Mt>" + Values({"8", "vu", ";1;5;2;"}) +
           "</View><View>" + Values({"7", "Normal only", "x", "", ""}) +
           "<Mt><I V=\"1;2;3\"/></Mt></View><View>" + Values({"1", "Cut", "9", "", ""}) +
           "<Mt><I V=\"5\"/><I V=\"1;2\"/></Mt></View><View>" + Values({"1", "four", "2", ""}) +
           "</View></ViewRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateViews(container_.Get(), set_.Get(), root_));
  // Id 5 names nothing. The second view's items 1 and 3 share one integer; its three numbers set
  // the normal only. In the third, every piece after a missing separator keeps the previous
  // component. The fourth, with four items, is refused.
  EXPECT_EQ(ModelText(set_.Get()),
            "S1 -/-/-/-/- rep=- standard=- unresolved=[5:1] duplicates=[]" +
                AnnotationLine(1, "1", "-", "[V1]") + AnnotationLine(2, "2", "-", "[V1]") +
                "\nV1 Front/vu/3/8/- rep=- origin=4,5,6 normal=0,0,1 direction=1,0,0 tps=[A1,A2] "
                "captures=[]\n"
                "V2 Normal only//7/7/- rep=- origin=- normal=1,2,3 direction=- tps=[] captures=[]\n"
                "V3 Cut//1/9/- rep=- origin=1,0,0 normal=0,0,0 direction=- tps=[] captures=[]");
}

TEST_F(LegacyBuilders, RefFrameNumberDefaultsTo32AndDatumsResolveAnnotations) {
  BuildAnnotations({AnnotationRow("1"), AnnotationRow("2")});
  Document("<ReferenceFrame><RefFrame>" + Values({"A|B", "x", "attr", "ru", ";2;7;1;", ";3;x;"}) +
           "</RefFrame><RefFrame>" + Values({"five", "1", "", "", ""}) + "</RefFrame><Other>" +
           Values({"o", "1", "", "", "", ""}) + "</Other><RefFrame>" +
           Values({"B", "7", "", "", "", ""}) + "</RefFrame></ReferenceFrame>");
  ASSERT_EQ(S_OK, parser_.GenerateRefFrame(container_.Get(), set_.Get(), root_));
  EXPECT_EQ(ModelText(set_.Get()),
            "S1 -/-/-/-/- rep=- standard=- unresolved=[7:1] duplicates=[]" +
                AnnotationLine(1, "1", "-", "[]") + AnnotationLine(2, "2", "-", "[]") +
                "\nR1 A|B/ru/-/32/- rep=- attribute=attr datums=[A2,A1] ttrs=[3,0]\n"
                "R2 B//-/7/- rep=- attribute= datums=[] ttrs=[]");
}

TEST_F(LegacyBuilders, CGSharesOneIntegerAndAlwaysReportsFailure) {
  Document(Family("CGRoot", "CG",
                  {{"5", "Axis", "x", "2", "attr", "cu", ";4;x;", ";9;"},
                   {"1", "seven", "1", "1", "", "", ""},
                   {"70000", "Plane", "3", "65537", "", "", "", ""},
                   {"1", "Status", "9", "x", "", "", "", ""}}));
  ASSERT_EQ(S_OK, parser_.GenerateCG(container_.Get(), set_.Get(), root_));
  // A complete build still reports E_FAIL.
  VEKLightXmlElement firstCG = vek_test::FirstChild(vek_test::FirstChild(root_, "CGRoot"), "CG");
  EXPECT_EQ(E_FAIL, parser_.BuildCG(container_.Get(), set_.Get(), firstCG));
  // Seven items are refused; the id carries over from the type, the status from the number.
  EXPECT_EQ(ModelText(set_.Get()),
            "S1 -/-/-/-/- rep=- standard=- unresolved=[] duplicates=[5:5]\n"
            "G1 Axis/cu/5/5/2 rep=- attribute=attr ttrs=[4,0] treps=[9]\n"
            "G2 Plane//4464/3/1 rep=- attribute= ttrs=[] treps=[]\n"
            "G3 Status//1/9/9 rep=- attribute= ttrs=[] treps=[]\n"
            "G4 Axis/cu/5/5/2 rep=- attribute=attr ttrs=[4,0] treps=[9]");
}

TEST_F(LegacyBuilders, CaptureCameraReadsBlankSeparatedTriplesAndSharesItsNumbers) {
  const Rows cameras = {
      // Five items: all calls; a doubled blank cuts y as empty text and z reads "2 3".
      {"1 2 3", "4  5 6", "7 8 9", "1 2 3", "4"},
      // Three items: no target, no type; an empty item is skipped whole. Pieces cut at a blank
      // that is not there keep the components of the item before.
      {"1 2 3", "", "x 5"},
      // Four items: the missing type reads as empty text and passes the clipping plane on.
      {"", "1 2", "3", ""},
      // One item: items 2 and 3 are past the end and skipped.
      {"1 2 3"},
  };
  std::string xml = "<CaptureRoot>";
  for (const auto& camera : cameras) {
    xml += "<Capture>" + Values({"11", "0", "6", "Cap", "cu", "", "", ""}) + "<Cam>" +
           Values(camera) + "</Cam><Gd><I V=\"1\"/></Gd></Capture>";
  }
  Document(xml + "<Capture>" + Values({"1", "0", "6", "No camera", "", "", ""}) +
           "</Capture></CaptureRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateCapture(container_.Get(), set_.Get(), root_));
  // Seven items are refused; item 2 "0" names no active view.
  const std::string common = " rep=- graphic=- active=- clip=6 position=";
  EXPECT_EQ(ModelText(set_.Get()),
            "S1 -/-/-/-/- rep=- standard=- unresolved=[] duplicates=[11:6,11:6,11:6]\n"
            "C1 Cap/cu/-/11/-" +
                common +
                "1,2,3 direction=4,2,5 zenith=7,8,9 target=1,2,3 type=4 tps=[] views=[] "
                "cgs=[]\nC2 Cap/cu/-/11/-" +
                common +
                "1,2,3 direction=- zenith=1,2,3 target=- type=- tps=[] views=[] cgs=[]\n"
                "C3 Cap/cu/-/11/-" +
                common +
                "- direction=1,0,0 zenith=1,0,0 target=- type=6 tps=[] views=[] cgs=[]\n"
                "C4 Cap/cu/-/11/-" +
                common + "1,2,3 direction=- zenith=- target=- type=- tps=[] views=[] cgs=[]");
}

}  // namespace
