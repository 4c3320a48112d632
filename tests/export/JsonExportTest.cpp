// The JSON export on models filled through the real container: every member of every family, in
// order, with nulls for what was never set.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "GlbBuilder.h"
#include "ModelQueries.h"
#include "VEKComPtr.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightModel.h"

namespace {

using Json = nlohmann::ordered_json;

using vek_test::Identity;
using vek_test::Query;

// A representation of `triangles`, `lines` and `points` one-primitive meshes under one root node.
VEKRep* MakeRep(int triangles, int lines, int points, std::size_t* blobSize = nullptr) {
  std::vector<char> glb = vek_test::BuildMeshesGlb(triangles, lines, points);
  if (blobSize) *blobSize = glb.size();
  return VEKReadSceneGraph(glb.data(), static_cast<int>(glb.size()));
}

Json Export(VEKTPSLightSchema schema, HRESULT result, VEKITPSLightSet* set, bool pretty = false) {
  std::string text;
  EXPECT_EQ(S_OK, VEKExportLoadToJson(schema, result, set, pretty, text));
  return Json::parse(text);
}

// The members an object has when nothing was ever set on it, in export order.
const char* const kUnsetCommon =
    R"("id":null,"name":null,"uuid":null,"type":null,"status":null,"rep":null)";

class JsonExport : public testing::Test {
 protected:
  template <class Family>
  VEKComPtr<Family> Make(HRESULT (VEKTPSLightContainer::*create)(Family**, VEKITPSLightSet*)) {
    VEKComPtr<Family> object;
    EXPECT_EQ(S_OK, (container_.Get()->*create)(object.ReleaseAndGetAddressOf(), set_.Get()));
    return object;
  }

  static void SetCommon(VEKBaseUnknown* object, int id, const wchar_t* name) {
    auto light = Query<VEKITPSLight>(object);
    ASSERT_TRUE(light);
    ASSERT_EQ(S_OK, light->SetId(id));
    ASSERT_EQ(S_OK, light->SetName(name));
  }

  VEKComPtr<VEKTPSLightContainer> container_ = [] {
    VEKComPtr<VEKTPSLightContainer> container;
    container.Attach(new VEKTPSLightContainer());
    return container;
  }();
  VEKComPtr<VEKITPSLightSet> set_ = [this] {
    VEKComPtr<VEKITPSLightSet> set;
    EXPECT_EQ(S_OK, container_->CreateLightSet(set.ReleaseAndGetAddressOf(), nullptr));
    return set;
  }();
};

TEST_F(JsonExport, EveryMemberOfEveryFamilyInOrder) {
  auto setLight = Query<VEKITPSLight>(set_.Get());
  ASSERT_EQ(S_OK, setLight->SetName(L"Pump \u2300"));
  ASSERT_EQ(S_OK, set_->SetStandard(L"ISO 1101"));
  ASSERT_EQ(S_OK, setLight->SetUuid(L"set-1"));
  ASSERT_EQ(S_OK, setLight->SetType(3));
  ASSERT_EQ(S_OK, setLight->SetStatus(65535));

  auto ttrs = Make(&VEKTPSLightContainer::CreateTTRS);
  SetCommon(ttrs.Get(), 101, L"Face");
  auto ttrsLight = Query<VEKITPSLight>(ttrs.Get());
  ASSERT_EQ(S_OK, ttrsLight->SetUuid(L"t-101"));
  ASSERT_EQ(S_OK, ttrsLight->SetType(2));
  ASSERT_EQ(S_OK, ttrsLight->SetStatus(0));
  std::size_t commonBytes = 0;
  ASSERT_EQ(S_OK, ttrsLight->SetRep(MakeRep(1, 0, 0, &commonBytes)));
  auto* geometry = new VEKRawCollint();
  ASSERT_EQ(S_OK, geometry->Append(4));
  ASSERT_EQ(S_OK, geometry->Append(-7));
  ASSERT_EQ(S_OK, ttrs->AddGeometry(geometry));
  ASSERT_EQ(S_OK, ttrs->AddGeometry(nullptr));
  ASSERT_EQ(S_OK, ttrs->AddGeometry(new VEKRawCollint()));

  auto datum = Make(&VEKTPSLightContainer::CreateAnnotation);
  SetCommon(datum.Get(), 1, L"Datum A");
  auto position = Make(&VEKTPSLightContainer::CreateAnnotation);
  SetCommon(position.Get(), 2, L"Position");
  ASSERT_EQ(S_OK, position->SetValue(0.1));
  ASSERT_EQ(S_OK, position->SetDefault(1));
  ASSERT_EQ(S_OK, position->SetReference(21));
  ASSERT_EQ(S_OK, position->SetAttribute(L"\u2300"
                                         L"0.05 \u24C2"));
  ASSERT_EQ(S_OK, position->AddTTRS(101));
  ASSERT_EQ(S_OK, position->AddTTRS(101));
  std::size_t graphicBytes = 0;
  ASSERT_EQ(S_OK, position->SetRep(MakeRep(1, 1, 1, &graphicBytes)));
  auto group = new VEKLightObjectList();
  ASSERT_EQ(S_OK, group->Append(Identity(position.Get())));
  ASSERT_EQ(S_OK, group->Append(Identity(datum.Get())));
  ASSERT_EQ(S_OK, Query<VEKITPSLightModel>(position.Get())->SetOrderGroup(group));

  auto front = Make(&VEKTPSLightContainer::CreateView);
  SetCommon(front.Get(), 11, L"Front");
  ASSERT_EQ(S_OK, front->SetOrigin(0, 0.5, -2));
  ASSERT_EQ(S_OK, front->SetNormal(0, 0, 1));
  ASSERT_EQ(S_OK, front->SetDirection(1, 0, 0));
  for (auto* annotation : {position.Get(), position.Get()}) {
    ASSERT_EQ(S_OK, front->AddTPS(Identity(annotation)));
    ASSERT_EQ(S_OK, Query<VEKITPSLightModel>(annotation)->SetView(front.Get()));
  }
  auto unnamed = Make(&VEKTPSLightContainer::CreateView);

  auto frame = Make(&VEKTPSLightContainer::CreateRefFrame);
  SetCommon(frame.Get(), 21, L"A|B");
  ASSERT_EQ(S_OK, frame->SetAttribute(L"A|B"));
  ASSERT_EQ(S_OK, frame->AddDatum(Identity(datum.Get())));
  ASSERT_EQ(S_OK, frame->AddTTRS(101));

  auto cg = Make(&VEKTPSLightContainer::CreateCG);
  SetCommon(cg.Get(), 31, L"Axis");
  ASSERT_EQ(S_OK, cg->SetAttribute(L""));
  ASSERT_EQ(S_OK, cg->AddTTRS(101));
  ASSERT_EQ(S_OK, cg->AddTRep(7));
  ASSERT_EQ(S_OK, cg->AddTRep(8));

  auto capture = Make(&VEKTPSLightContainer::CreateCapture);
  SetCommon(capture.Get(), 41, L"Main");
  ASSERT_EQ(S_OK, capture->SetActiveView(Identity(front.Get())));
  ASSERT_EQ(S_OK, front->AddCapture(Identity(capture.Get())));
  ASSERT_EQ(S_OK, capture->SetClippingPlane(-1));
  ASSERT_EQ(S_OK, capture->SetCameraType(2));
  ASSERT_EQ(S_OK, capture->SetCameraPosition(250, -180, 160));
  ASSERT_EQ(S_OK, capture->SetCameraDirection(-0.7, 0.5, -0.5));
  ASSERT_EQ(S_OK, capture->SetCameraZenith(0, 0, 1));
  ASSERT_EQ(S_OK, capture->SetCameraTarget(1e-3, 2.5e10, 0));
  ASSERT_EQ(S_OK, capture->AddTPS(Identity(datum.Get())));
  ASSERT_EQ(S_OK, capture->AddView(Identity(front.Get())));
  // A linked object without an id is written as null.
  ASSERT_EQ(S_OK, capture->AddView(Identity(unnamed.Get())));
  ASSERT_EQ(S_OK, capture->AddCG(Identity(cg.Get())));
  ASSERT_EQ(S_OK, capture->SetRep(MakeRep(0, 2, 0)));

  VEKComPtr<VEKBaseUnknown> found;
  auto broker = Query<VEKITPSIdBroker>(set_.Get());
  EXPECT_EQ(E_FAIL,
            broker->GetObjectFromId(9, VEKTPSLightKindView, found.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_FAIL, broker->GetObjectFromId(3, VEKTPSLightKindCG, found.ReleaseAndGetAddressOf()));

  const std::string bytes = std::to_string(commonBytes);
  const std::string graphic = std::to_string(graphicBytes);
  const Json expected = Json::parse(
      R"({"schema":"current","result":"0x00000000","sets":[{
        "name":"Pump ⌀","standard":"ISO 1101","uuid":"set-1","type":3,"status":65535,
        "ttrs":[{"id":101,"name":"Face","uuid":"t-101","type":2,"status":0,
          "rep":{"nodes":2,"meshes":1,"primitives":1,"vertices":3,"bytes":)" +
      bytes + R"(},
          "geometry":[[4,-7],null,[]]}],
        "annotations":[
          {"id":1,"name":"Datum A","uuid":null,"type":null,"status":null,"rep":null,
           "value":null,"default":false,"reference":null,"attribute":null,"ttrs":[],
           "graphic":null,"views":[],"orderGroup":null},
          {"id":2,"name":"Position","uuid":null,"type":null,"status":null,"rep":null,
           "value":0.1,"default":true,"reference":21,"attribute":"⌀0.05 Ⓜ","ttrs":[101,101],
           "graphic":{"nodes":4,"meshes":3,"primitives":3,"vertices":6,"bytes":)" +
      graphic + R"(},
           "views":[11,11],"orderGroup":[2,1]}],
        "views":[
          {"id":11,"name":"Front","uuid":null,"type":null,"status":null,"rep":null,
           "origin":[0.0,0.5,-2.0],"normal":[0.0,0.0,1.0],"direction":[1.0,0.0,0.0],
           "annotations":[2,2],"captures":[41]},
          {"id":null,"name":null,"uuid":null,"type":null,"status":null,"rep":null,
           "origin":null,"normal":null,"direction":null,"annotations":[],"captures":[]}],
        "refFrames":[{"id":21,"name":"A|B","uuid":null,"type":null,"status":null,"rep":null,
           "attribute":"A|B","datums":[1],"ttrs":[101]}],
        "cgs":[{"id":31,"name":"Axis","uuid":null,"type":null,"status":null,"rep":null,
           "attribute":"","ttrs":[101],"treps":[7,8]}],
        "captures":[{"id":41,"name":"Main","uuid":null,"type":null,"status":null,"rep":null,
           "activeView":11,"clippingPlane":-1,
           "camera":{"type":2,"position":[250.0,-180.0,160.0],"direction":[-0.7,0.5,-0.5],
                     "zenith":[0.0,0.0,1.0],"target":[0.001,2.5e10,0.0]},
           "annotations":[1],"views":[11,null],"cgs":[31],
           "graphic":{"nodes":3,"meshes":2,"primitives":2,"vertices":4,"bytes":)" +
      std::to_string(vek_test::BuildMeshesGlb(0, 2, 0).size()) + R"(}}],
        "unresolved":[{"kind":2,"id":9},{"kind":5,"id":3}]}]})");
  // Dumps compare member order as well as values.
  EXPECT_EQ(expected.dump(), Export(VEKTPSLightSchema::Current, S_OK, set_.Get()).dump());
}

TEST_F(JsonExport, NothingSetIsNull) {
  (void)Make(&VEKTPSLightContainer::CreateTTRS);
  (void)Make(&VEKTPSLightContainer::CreateAnnotation);
  (void)Make(&VEKTPSLightContainer::CreateView);
  (void)Make(&VEKTPSLightContainer::CreateRefFrame);
  (void)Make(&VEKTPSLightContainer::CreateCG);
  (void)Make(&VEKTPSLightContainer::CreateCapture);
  const std::string common = kUnsetCommon;
  const Json expected = Json::parse(
      R"({"schema":"legacy","result":"0x80004005","sets":[{
        "name":null,"standard":null,"uuid":null,"type":null,"status":null,
        "ttrs":[{)" +
      common + R"(,"geometry":[]}],
        "annotations":[{)" +
      common +
      R"(,"value":null,"default":false,"reference":null,"attribute":null,
          "ttrs":[],"graphic":null,"views":[],"orderGroup":null}],
        "views":[{)" +
      common +
      R"(,"origin":null,"normal":null,"direction":null,"annotations":[],"captures":[]}],
        "refFrames":[{)" +
      common + R"(,"attribute":null,"datums":[],"ttrs":[]}],
        "cgs":[{)" +
      common + R"(,"attribute":null,"ttrs":[],"treps":[]}],
        "captures":[{)" +
      common +
      R"(,"activeView":null,"clippingPlane":null,
          "camera":{"type":null,"position":null,"direction":null,"zenith":null,"target":null},
          "annotations":[],"views":[],"cgs":[],"graphic":null}],
        "unresolved":[]}]})");
  EXPECT_EQ(expected.dump(), Export(VEKTPSLightSchema::Legacy, E_FAIL, set_.Get()).dump());
}

TEST_F(JsonExport, EverySetOfTheLoadInCreationOrder) {
  ASSERT_EQ(S_OK, Query<VEKITPSLight>(set_.Get())->SetName(L"first"));
  VEKITPSLightSet* chained = set_.Get();
  chained->AddRef();
  ASSERT_EQ(S_OK, container_->CreateLightSet(&chained, nullptr));
  VEKComPtr<VEKITPSLightSet> second;
  second.Attach(chained);
  ASSERT_EQ(S_OK, Query<VEKITPSLight>(second.Get())->SetName(L"second"));
  set_.Reset();

  const Json json = Export(VEKTPSLightSchema::Legacy, S_OK, second.Get());
  ASSERT_EQ(2u, json["sets"].size());
  EXPECT_EQ("first", json["sets"][0]["name"]);
  EXPECT_EQ("second", json["sets"][1]["name"]);
  EXPECT_EQ(Json::array(), Export(VEKTPSLightSchema::Current, E_FAIL, nullptr)["sets"]);
}

TEST(JsonExportResult, EightLowercaseHexDigits) {
  const struct {
    HRESULT result;
    const char* text;
  } rows[] = {{S_OK, "0x00000000"},
              {S_FALSE, "0x00000001"},
              {E_FAIL, "0x80004005"},
              {E_OUTOFMEMORY, "0x8007000e"},
              {static_cast<HRESULT>(0xFFFFFFFFu), "0xffffffff"}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.text, Export(VEKTPSLightSchema::Current, row.result, nullptr)["result"])
        << row.text;
  }
}

TEST_F(JsonExport, DoublesInTheShortestFormThatReadsBack) {
  const struct {
    double value;
    const char* text;
  } rows[] = {{0.1, "0.1"},
              {0.02, "0.02"},
              {1e-300, "1e-300"},
              {5e-324, "5e-324"},
              {123456.789, "123456.789"},
              {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
              {-2.5, "-2.5"}};
  for (const auto& row : rows) {
    auto annotation = Make(&VEKTPSLightContainer::CreateAnnotation);
    ASSERT_EQ(S_OK, annotation->SetValue(row.value));
    std::string text;
    ASSERT_EQ(S_OK, VEKExportLoadToJson(VEKTPSLightSchema::Current, S_OK, set_.Get(), false, text));
    EXPECT_NE(std::string::npos, text.find(std::string("\"value\":") + row.text)) << row.text;
    const Json json = Json::parse(text);
    EXPECT_EQ(row.value, json["sets"][0]["annotations"].back()["value"].get<double>()) << row.text;
  }
}

TEST_F(JsonExport, PrettyIndentsTheSameContent) {
  (void)Make(&VEKTPSLightContainer::CreateView);
  std::string compact;
  std::string pretty;
  ASSERT_EQ(S_OK,
            VEKExportLoadToJson(VEKTPSLightSchema::Current, S_OK, set_.Get(), false, compact));
  ASSERT_EQ(S_OK, VEKExportLoadToJson(VEKTPSLightSchema::Current, S_OK, set_.Get(), true, pretty));
  EXPECT_EQ(std::string::npos, compact.find('\n'));
  EXPECT_EQ(0u, pretty.find("{\n  \"schema\": \"current\",\n"));
  EXPECT_EQ(Json::parse(compact), Json::parse(pretty));
}

}  // namespace
