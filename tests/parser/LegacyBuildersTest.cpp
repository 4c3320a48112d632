// Legacy-schema builders and the order-group pass against the real light model: values and links
// are read back from the set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Identities;
using vek_test::Identity;
using vek_test::Items;
using vek_test::Query;
using vek_test::Utf8;

// Value children: one element per item, its "V" attribute the item.
std::string Values(const std::vector<std::string>& items) {
  std::string xml;
  for (const std::string& item : items) xml += "<I V=\"" + item + "\"/>";
  return xml;
}

std::vector<double> Coordinates(const std::optional<VEKVector3>& vector) {
  if (!vector) return {};
  return {vector->x, vector->y, vector->z};
}

class LegacyBuilders : public ::testing::Test {
 protected:
  void SetUp() override {
    container_.Attach(new VEKTPSLightContainer());
    ASSERT_TRUE(container_);
    ASSERT_EQ(S_OK, container_->CreateLightSet(set_.GetAddressOf(), nullptr));
  }

  // Parses `xml` ("TolerancingData" around it) and keeps the root for the builders.
  VEKLightXmlElement& Document(const std::string& xml) {
    root_ = vek_test::ParseXml("<TolerancingData>" + xml + "</TolerancingData>");
    EXPECT_FALSE(root_.IsNull());
    return root_;
  }
  // The first object element under the family root `family` of the document.
  VEKLightXmlElement Object(const char* family, const char* object) {
    return vek_test::FirstChild(vek_test::FirstChild(root_, family), object);
  }
  VEKComPtr<VEKITPSLight> Light(const VEKLightObjectList& list, int position) {
    return Query<VEKITPSLight>(list.Get(position));
  }
  // The annotations of the set, built from one "TPS" per row of eleven items.
  void BuildAnnotations(const std::vector<std::vector<std::string>>& rows) {
    std::string xml = "<Annotations>";
    for (const auto& row : rows) xml += "<TPS>" + Values(row) + "</TPS>";
    ASSERT_EQ(S_OK, parser_.GenerateAnnotations(container_.Get(), set_.Get(),
                                                Document(xml + "</Annotations>")));
  }

  VEKTPSLightParserUtil parser_;
  VEKComPtr<VEKTPSLightContainer> container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKLightXmlElement root_;
};

// An annotation row: type, value, name, id, default, reference, status, uuid, attribute, TTRS
// numbers, order group.
std::vector<std::string> Annotation(const std::string& id, const std::string& group = "") {
  return {"1", "0.5", "A" + id, id, "0", "0", "0", "u" + id, "", "", group};
}

TEST_F(LegacyBuilders, TTRSIdentityFollowsOrderAndUuidNeedsExactlyThreeItems) {
  Document(
      "<TTRSRoot>"
      "<TTRS><In V=\"7\"/><Na V=\"A\"/><Ui V=\"u\"/></TTRS>"
      "<Other><Na V=\"skipped\"/></Other>"
      "<TTRS><Na V=\"two\"/><In V=\"12\"/></TTRS>"
      "<TTRS><Na V=\"four\"/><In V=\"4\"/><Ui V=\"u\"/><Na V=\"x\"/></TTRS>"
      "<TTRS><Ui V=\"one\"/></TTRS>"
      "<TTRS><Gd><I V=\";1;\"/></Gd></TTRS>"
      "</TTRSRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateTTRS(container_.Get(), set_.Get(), root_));
  const VEKLightObjectList& ttrs = set_->GetTTRS();
  ASSERT_EQ(4, ttrs.Count());  // the one with only "Gd" is refused
  const std::vector<std::vector<std::string>> expected = {
      {"7", "0", "u"}, {"two", "12", "<unset>"}, {"four", "4", "<unset>"}, {"one", "0", "<unset>"}};
  for (int i = 0; i < 4; ++i) {
    auto light = Light(ttrs, i);
    EXPECT_EQ(expected[i][0], Utf8(light->GetName())) << i;
    EXPECT_EQ(std::stoi(expected[i][1]), light->GetId().value_or(-1)) << i;
    EXPECT_EQ(expected[i][2], Utf8(light->GetUuid())) << i;
  }
  VEKLightXmlElement onlyGeometry = vek_test::ParseXml("<TTRS><Gd><I V=\";1;\"/></Gd></TTRS>");
  EXPECT_EQ(E_FAIL, parser_.BuildTTRS(container_.Get(), set_.Get(), onlyGeometry));
  EXPECT_EQ(4, ttrs.Count());
}

TEST_F(LegacyBuilders, TTRSPackedItemsSkipFirstCharacterAndKeepOnlyTheLastZero) {
  struct Row {
    const char* packed;
    std::vector<int> ids;
  } rows[] = {
      {";0;5;0", {5, 0}}, {";7;;8;", {7, 8, 0}}, {";12", {12}},   {"x", {0}},
      {"15", {5}},        {";a;3", {3}},         {";4;", {4, 0}},
  };
  std::string xml = "<TTRSRoot><TTRS><Na V=\"g\"/><Gd><I V=\"\"/>";
  for (const Row& row : rows) xml += std::string("<I V=\"") + row.packed + "\"/>";
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
  VEKLightObjectList* list = set_->GetAnnotations();
  ASSERT_EQ(2, list->Count());

  auto light = Query<VEKITPSLight>(list->Get(0));
  auto annotation = Query<VEKITPSLightAnnotation>(list->Get(0));
  EXPECT_EQ(1, light->GetType().value_or(0));  // low 16 bits
  EXPECT_EQ(2.5, annotation->GetValue().value_or(0));
  EXPECT_EQ("Flatness", Utf8(light->GetName()));
  EXPECT_EQ(4, light->GetId().value_or(0));
  EXPECT_TRUE(annotation->IsDefault());
  EXPECT_EQ(9, annotation->GetReference().value_or(0));
  EXPECT_EQ(2, light->GetStatus().value_or(0));
  EXPECT_EQ("uid", Utf8(light->GetUuid()));
  EXPECT_EQ("attr", Utf8(annotation->GetAttribute()));
  EXPECT_EQ((std::vector<int>{3, 4}), annotation->GetTTRS());
  EXPECT_EQ(nullptr, annotation->GetGraphicRep());

  // Items that do not convert repeat the number before them; the value stays 0.0.
  light = Query<VEKITPSLight>(list->Get(1));
  annotation = Query<VEKITPSLightAnnotation>(list->Get(1));
  EXPECT_EQ(0.0, annotation->GetValue().value_or(-1));
  EXPECT_EQ(5, light->GetId().value_or(0));
  EXPECT_FALSE(annotation->IsDefault());  // item 5 "0"
  EXPECT_EQ(0, annotation->GetReference().value_or(-1));
  EXPECT_EQ(0, light->GetStatus().value_or(-1));
  EXPECT_TRUE(annotation->GetTTRS().empty());
}

TEST_F(LegacyBuilders, OrderGroupsLinkAnnotationsByCreationPosition) {
  // The first names itself and the second; "x" resolves id 0, the third's id; 9 is only a view.
  BuildAnnotations({Annotation("1", ";1;2;"), Annotation("2"), Annotation("0", ";x;9;")});
  VEKLightObjectList* list = set_->GetAnnotations();
  ASSERT_EQ(3, list->Count());
  auto first = Query<VEKITPSLightModel>(list->Get(0));
  ASSERT_NE(nullptr, first->GetOrderGroup());
  EXPECT_EQ((std::vector<const VEKBaseUnknown*>{Identity(list->Get(0)), Identity(list->Get(1))}),
            Identities(*first->GetOrderGroup()));
  EXPECT_EQ(nullptr, Query<VEKITPSLightModel>(list->Get(1))->GetOrderGroup());
  const VEKLightObjectList* third = Query<VEKITPSLightModel>(list->Get(2))->GetOrderGroup();
  ASSERT_NE(nullptr, third);
  EXPECT_EQ(std::vector<const VEKBaseUnknown*>{Identity(list->Get(2))}, Identities(*third));
}

TEST_F(LegacyBuilders, OrderGroupPassNeedsOneListPerAnnotation) {
  BuildAnnotations({Annotation("1"), Annotation("2")});
  VEKListValVEKUnicodeString ids;
  ASSERT_EQ(S_OK, ids.Append("1"));
  VEKRawCollPV groups(0);
  ASSERT_EQ(S_OK, groups.Append(&ids));
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));  // one list, two annotations
  EXPECT_EQ(nullptr, Query<VEKITPSLightModel>(set_->GetAnnotations()->Get(0))->GetOrderGroup());

  ASSERT_EQ(S_OK, groups.Append(nullptr));
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_NE(nullptr, Query<VEKITPSLightModel>(set_->GetAnnotations()->Get(0))->GetOrderGroup());
  EXPECT_EQ(nullptr, Query<VEKITPSLightModel>(set_->GetAnnotations()->Get(1))->GetOrderGroup());
  EXPECT_EQ(E_FAIL, parser_.AssoTPSOrderGroup(nullptr, groups));
}

TEST_F(LegacyBuilders, ViewLinksItsAnnotationsAndReadsItsPlane) {
  BuildAnnotations({Annotation("1"), Annotation("2")});
  Document(
      "<ViewRoot>"
      "<View>" +
      Values({"3", "Front"}) + "<Mt><I V=\"0;0;1;1;0;0\"/><I V=\"4;5;6\"/></Mt>" +
      Values({"8", "vu", ";1;5;2;"}) +
      "</View>"
      "<View>" +
      Values({"7", "Normal only", "x", "", ""}) +
      "<Mt><I V=\"1;2;3\"/></Mt></View>"
      "<View>" +
      Values({"1", "Cut", "9", "", ""}) +
      "<Mt><I V=\"5\"/><I V=\"1;2\"/></Mt></View>"
      "<View>" +
      Values({"1", "four", "2", ""}) +
      "</View>"
      "</ViewRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateViews(container_.Get(), set_.Get(), root_));
  const VEKLightObjectList& views = set_->GetViews();
  ASSERT_EQ(3, views.Count());

  auto front = Query<VEKITPSLightView>(views.Get(0));
  EXPECT_EQ(3, Light(views, 0)->GetType().value_or(0));
  EXPECT_EQ("Front", Utf8(Light(views, 0)->GetName()));
  EXPECT_EQ(8, Light(views, 0)->GetId().value_or(0));
  EXPECT_EQ("vu", Utf8(Light(views, 0)->GetUuid()));
  EXPECT_EQ((std::vector<double>{0, 0, 1}), Coordinates(front->GetNormal()));
  EXPECT_EQ((std::vector<double>{1, 0, 0}), Coordinates(front->GetDirection()));
  EXPECT_EQ((std::vector<double>{4, 5, 6}), Coordinates(front->GetOrigin()));
  VEKLightObjectList* annotations = set_->GetAnnotations();
  EXPECT_EQ((std::vector<const VEKBaseUnknown*>{Identity(annotations->Get(0)),
                                                Identity(annotations->Get(1))}),
            Identities(front->GetAnnotations()));  // id 5 names nothing
  EXPECT_EQ(std::vector<const VEKBaseUnknown*>{Identity(views.Get(0))},
            Identities(Query<VEKITPSLightModel>(annotations->Get(1))->GetViews()));

  // Items 1 and 3 share one integer; three numbers set the normal only; no origin item.
  auto normalOnly = Query<VEKITPSLightView>(views.Get(1));
  EXPECT_EQ(7, Light(views, 1)->GetId().value_or(0));
  EXPECT_EQ((std::vector<double>{1, 2, 3}), Coordinates(normalOnly->GetNormal()));
  EXPECT_FALSE(normalOnly->GetDirection());
  EXPECT_FALSE(normalOnly->GetOrigin());
  EXPECT_TRUE(normalOnly->GetAnnotations().Count() == 0);

  // Missing separators: every piece after the missing one keeps the previous component.
  auto cut = Query<VEKITPSLightView>(views.Get(2));
  EXPECT_EQ((std::vector<double>{0, 0, 0}), Coordinates(cut->GetNormal()));
  EXPECT_EQ((std::vector<double>{1, 0, 0}), Coordinates(cut->GetOrigin()));
}

TEST_F(LegacyBuilders, RefFrameNumberDefaultsTo32AndDatumsResolveAnnotations) {
  BuildAnnotations({Annotation("1"), Annotation("2")});
  Document(
      "<ReferenceFrame>"
      "<RefFrame>" +
      Values({"A|B", "x", "attr", "ru", ";2;7;1;", ";3;x;"}) +
      "</RefFrame>"
      "<RefFrame>" +
      Values({"five", "1", "", "", ""}) +
      "</RefFrame>"
      "<Other>" +
      Values({"o", "1", "", "", "", ""}) +
      "</Other>"
      "<RefFrame>" +
      Values({"B", "7", "", "", "", ""}) +
      "</RefFrame>"
      "</ReferenceFrame>");
  ASSERT_EQ(S_OK, parser_.GenerateRefFrame(container_.Get(), set_.Get(), root_));
  const VEKLightObjectList& frames = set_->GetRefFrames();
  ASSERT_EQ(2, frames.Count());
  EXPECT_EQ("A|B", Utf8(Light(frames, 0)->GetName()));
  EXPECT_EQ(32, Light(frames, 0)->GetId().value_or(0));
  EXPECT_EQ("ru", Utf8(Light(frames, 0)->GetUuid()));
  auto frame = Query<VEKITPSLightRefFrame>(frames.Get(0));
  EXPECT_EQ("attr", Utf8(frame->GetAttribute()));
  VEKLightObjectList* annotations = set_->GetAnnotations();
  EXPECT_EQ((std::vector<const VEKBaseUnknown*>{Identity(annotations->Get(1)),
                                                Identity(annotations->Get(0))}),
            Identities(frame->GetDatums()));
  EXPECT_EQ((std::vector<int>{3, 0}), frame->GetTTRS());
  EXPECT_EQ(7, Light(frames, 1)->GetId().value_or(0));
  EXPECT_TRUE(Query<VEKITPSLightRefFrame>(frames.Get(1))->GetTTRS().empty());
}

TEST_F(LegacyBuilders, CGSharesOneIntegerAndAlwaysReportsFailure) {
  Document(
      "<CGRoot>"
      "<CG>" +
      Values({"5", "Axis", "x", "2", "attr", "cu", ";4;x;", ";9;"}) +
      "</CG>"
      "<CG>" +
      Values({"1", "seven", "1", "1", "", "", ""}) +
      "</CG>"
      "<CG>" +
      Values({"70000", "Plane", "3", "65537", "", "", "", ""}) +
      "</CG>"
      "<CG>" +
      Values({"1", "Status", "9", "x", "", "", "", ""}) +
      "</CG>"
      "</CGRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateCG(container_.Get(), set_.Get(), root_));
  const VEKLightObjectList& cgs = set_->GetCGs();
  ASSERT_EQ(3, cgs.Count());
  EXPECT_EQ(5, Light(cgs, 0)->GetType().value_or(0));
  EXPECT_EQ("Axis", Utf8(Light(cgs, 0)->GetName()));
  EXPECT_EQ(5, Light(cgs, 0)->GetId().value_or(0));  // carried over from the type
  EXPECT_EQ(2, Light(cgs, 0)->GetStatus().value_or(0));
  EXPECT_EQ("cu", Utf8(Light(cgs, 0)->GetUuid()));
  auto cg = Query<VEKITPSLightCG>(cgs.Get(0));
  EXPECT_EQ("attr", Utf8(cg->GetAttribute()));
  EXPECT_EQ((std::vector<int>{4, 0}), cg->GetTTRS());
  EXPECT_EQ(std::vector<int>{9}, cg->GetTReps());
  EXPECT_EQ(4464, Light(cgs, 1)->GetType().value_or(0));
  EXPECT_EQ(1, Light(cgs, 1)->GetStatus().value_or(0));
  EXPECT_TRUE(Query<VEKITPSLightCG>(cgs.Get(1))->GetTTRS().empty());
  EXPECT_TRUE(Query<VEKITPSLightCG>(cgs.Get(1))->GetTReps().empty());
  EXPECT_EQ(9, Light(cgs, 2)->GetStatus().value_or(0));  // carried over from the number

  // A complete build still reports E_FAIL.
  VEKLightXmlElement firstCG = Object("CGRoot", "CG");
  EXPECT_EQ(E_FAIL, parser_.BuildCG(container_.Get(), set_.Get(), firstCG));
  EXPECT_EQ(4, set_->GetCGs().Count());
}

TEST_F(LegacyBuilders, CaptureCameraReadsBlankSeparatedTriplesAndSharesItsNumbers) {
  struct Row {
    std::vector<std::string> camera;
    std::vector<std::vector<double>> position, direction, zenith, target;
    std::optional<int> type;
  } rows[] = {
      // Five items: all calls; a doubled blank cuts y as empty text and z reads "2 3".
      {{"1 2 3", "4  5 6", "7 8 9", "1 2 3", "4"},
       {{1, 2, 3}},
       {{4, 2, 5}},
       {{7, 8, 9}},
       {{1, 2, 3}},
       4},
      // Three items: no target, no type; an empty item is skipped whole. Pieces cut at a blank
      // that is not there keep the components of the item before.
      {{"1 2 3", "", "x 5"}, {{1, 2, 3}}, {}, {{1, 2, 3}}, {}, std::nullopt},
      // Four items: the missing type reads as empty text and passes the clipping plane on.
      {{"", "1 2", "3", ""}, {}, {{1, 0, 0}}, {{1, 0, 0}}, {}, 6},
      // One item: items 2 and 3 are past the end and skipped.
      {{"1 2 3"}, {{1, 2, 3}}, {}, {}, {}, std::nullopt},
  };
  std::string xml = "<CaptureRoot>";
  for (const Row& row : rows) {
    xml += "<Capture>" + Values({"11", "0", "6", "Cap", "cu", "", "", ""}) + "<Cam>" +
           Values(row.camera) + "</Cam><Gd><I V=\"1\"/></Gd></Capture>";
  }
  Document(xml + "<Capture>" + Values({"1", "0", "6", "No camera", "", "", ""}) +
           "</Capture></CaptureRoot>");
  ASSERT_EQ(S_OK, parser_.GenerateCapture(container_.Get(), set_.Get(), root_));
  const VEKLightObjectList& captures = set_->GetCaptures();
  ASSERT_EQ(static_cast<int>(std::size(rows)), captures.Count());  // seven items: refused
  auto vectors = [](const std::optional<VEKVector3>& vector) {
    return vector ? std::vector<std::vector<double>>{Coordinates(vector)}
                  : std::vector<std::vector<double>>{};
  };
  for (int i = 0; i < captures.Count(); ++i) {
    auto capture = Query<VEKITPSLightCapture>(captures.Get(i));
    EXPECT_EQ(rows[i].position, vectors(capture->GetCameraPosition())) << i;
    EXPECT_EQ(rows[i].direction, vectors(capture->GetCameraDirection())) << i;
    EXPECT_EQ(rows[i].zenith, vectors(capture->GetCameraZenith())) << i;
    EXPECT_EQ(rows[i].target, vectors(capture->GetCameraTarget())) << i;
    EXPECT_EQ(rows[i].type, capture->GetCameraType()) << i;
    EXPECT_EQ(6, capture->GetClippingPlane().value_or(0)) << i;
    EXPECT_EQ(11, Light(captures, i)->GetId().value_or(0)) << i;
    EXPECT_EQ(nullptr, capture->GetActiveView()) << i;  // item 2 "0"
  }
}

}  // namespace
