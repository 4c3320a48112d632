// The JSON export on models filled through the real container: every member of every family, in
// order, with nulls for what was never set.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ParserTestSupport.h"
#include "VEKComPtr.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightModel.h"

namespace {

using Json = nlohmann::ordered_json;
using vek_test::RepXml;

std::string Bytes(int triangles, int lines, int points) {
  return std::to_string(vek_test::BuildMeshesGlb(triangles, lines, points).size());
}

// `text` with each key of `values` replaced by its value wherever it stands.
std::string Fill(std::string text, const std::map<std::string, std::string>& values) {
  for (const auto& [key, value] : values) {
    for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at))
      text.replace(at, key.size(), value);
  }
  return text;
}

Json Export(VEKTPSLightSchema schema, HRESULT result, VEKITPSLightSet* set) {
  std::string text;
  EXPECT_EQ(S_OK, VEKExportLoadToJson(schema, result, set, false, text));
  return Json::parse(text);
}

class JsonExport : public testing::Test, protected vek_test::OneSet {};

TEST(JsonExportDocument, EveryMemberOfEveryFamilyInOrder) {
  const std::string xml =
      "<Functional_Tolerancing_Annotation><AnnotationSet Standard='ISO 1101'>"
      "<TPSId Name='Pump \xE2\x8C\x80' Uuid='set-1'/><TPSLoc Type='3' Status='65535'/>"
      "</AnnotationSet><RootTTRSs><TTRS><TPSId Name='Face' Uuid='t-101'/>"
      "<TPSLoc Type='2' Id='101'/>" +
      RepXml("3") +
      "<GeoP>4 -7</GeoP><GeoP/></TTRS></RootTTRSs><RootTPSs>"
      "<TPS><TPSId Name='Datum A'/><TPSLoc Id='1'/><Grou/></TPS>"
      "<TPS Val='0.1' Def='1' Ref='21' Att='\xE2\x8C\x80"
      "0.05 \xE2\x93\x82'>"
      "<TPSId Name='Position'/><TPSLoc Id='2'/>" +
      RepXml("2", 1, 1, 1) +
      "<TTRS>101 101</TTRS><Grou>2 1</Grou></TPS></RootTPSs><RootViews><TPSView>"
      "<TPSId Name='Front'/><TPSLoc Id='11'/><TPSs>2 2</TPSs>"
      "<Math><Or>0 0.5 -2</Or><No>0 0 1</No><Di>1 0 0</Di></Math></TPSView></RootViews>"
      "<RootRefs><RefFrame Att='A|B'><TPSId Name='A|B'/><TPSLoc Id='21'/><Datum>1</Datum>"
      "<TTRS>101</TTRS></RefFrame></RootRefs><RootCGs><TPSCG Att=''><TPSId Name='Axis'/>"
      "<TPSLoc Id='31'/><TTRS>101</TTRS><TRep>7</TRep><TRep>8</TRep></TPSCG></RootCGs>"
      "<RootCaps><TPSCap ActVie='11' ClipPla='-1'><TPSId Name='Main'/><TPSLoc Id='41'/>" +
      RepXml("2", 0, 2, 0) +
      "<TPSs>1</TPSs><Views>11 9</Views><CGs>31 3</CGs><Cam Type='2'><Po>250 -180 160</Po>"
      "<Di>-0.7 0.5 -0.5</Di><Ze>0 0 1</Ze><Ta>1e-3 2.5e10 0</Ta></Cam></TPSCap></RootCaps>"
      "</Functional_Tolerancing_Annotation>";
  const VEKTPSLightDocument document = VEKLoadDocument(xml.data(), xml.size());
  ASSERT_TRUE(document.Loaded()) << document.Error();
  const Json expected = Json::parse(Fill(
      R"({"schema":"current","result":"0x00000000","sets":[{
        "name":"Pump ⌀","standard":"ISO 1101","uuid":"set-1","type":3,"status":65535,
        "ttrs":[{"id":101,"name":"Face","uuid":"t-101","type":2,"status":0,
          "rep":{"nodes":2,"meshes":1,"primitives":1,"vertices":3,"bytes":$glb100},
          "geometry":[[4,-7],[]]}],
        "annotations":[
          {"id":1,"name":"Datum A",$common,
           "value":0.0,"default":false,"reference":0,"attribute":"","ttrs":[],
           "graphic":null,"views":[],"orderGroup":null},
          {"id":2,"name":"Position",$common,
           "value":0.1,"default":true,"reference":21,"attribute":"⌀0.05 Ⓜ","ttrs":[101,101],
           "graphic":{"nodes":4,"meshes":3,"primitives":3,"vertices":6,"bytes":$glb111},
           "views":[11,11],"orderGroup":[2,1]}],
        "views":[
          {"id":11,"name":"Front",$common,
           "origin":[0.0,0.5,-2.0],"normal":[0.0,0.0,1.0],"direction":[1.0,0.0,0.0],
           "annotations":[2,2],"captures":[41]}],
        "refFrames":[{"id":21,"name":"A|B",$common,
           "attribute":"A|B","datums":[1],"ttrs":[101]}],
        "cgs":[{"id":31,"name":"Axis",$common,
           "attribute":"","ttrs":[101],"treps":[7,8]}],
        "captures":[{"id":41,"name":"Main",$common,
           "activeView":11,"clippingPlane":-1,
           "camera":{"type":2,"position":[250.0,-180.0,160.0],"direction":[-0.7,0.5,-0.5],
                     "zenith":[0.0,0.0,1.0],"target":[0.001,2.5e10,0.0]},
           "annotations":[1],"views":[11],"cgs":[31],
           "graphic":{"nodes":3,"meshes":2,"primitives":2,"vertices":4,"bytes":$glb020}}],
        "unresolved":[{"kind":2,"id":9},{"kind":5,"id":3}]}]})",
      {{"$common", R"("uuid":"","type":0,"status":0,"rep":null)"},
       {"$glb100", Bytes(1, 0, 0)},
       {"$glb111", Bytes(1, 1, 1)},
       {"$glb020", Bytes(0, 2, 0)}}));
  // Dumps compare member order as well as values.
  EXPECT_EQ(expected.dump(),
            Export(VEKTPSLightSchema::Current, S_OK, document.Sets()[0].Get()).dump());
}

// What no document gives: values never set, a null geometry list, a link to an object without
// an id.
TEST_F(JsonExport, NothingSetIsNull) {
  ASSERT_EQ(S_OK, Make<VEKITPSLightTTRS>()->AddGeometry(nullptr));
  (void)Make<VEKITPSLightAnnotation>();
  auto view = Make<VEKITPSLightView>();
  (void)Make<VEKITPSLightRefFrame>();
  (void)Make<VEKITPSLightCG>();
  ASSERT_EQ(S_OK, Make<VEKITPSLightCapture>()->AddView(view.Get()));
  const Json expected = Json::parse(Fill(
      R"({"schema":"legacy","result":"0x8007000e","sets":[{
        "name":null,"standard":null,"uuid":null,"type":null,"status":null,
        "ttrs":[{$common,"geometry":[null]}],
        "annotations":[{$common,"value":null,"default":false,"reference":null,"attribute":null,
          "ttrs":[],"graphic":null,"views":[],"orderGroup":null}],
        "views":[{$common,
          "origin":null,"normal":null,"direction":null,"annotations":[],"captures":[]}],
        "refFrames":[{$common,"attribute":null,"datums":[],"ttrs":[]}],
        "cgs":[{$common,"attribute":null,"ttrs":[],"treps":[]}],
        "captures":[{$common,"activeView":null,"clippingPlane":null,
          "camera":{"type":null,"position":null,"direction":null,"zenith":null,"target":null},
          "annotations":[],"views":[null],"cgs":[],"graphic":null}],
        "unresolved":[]}]})",
      {{"$common", R"("id":null,"name":null,"uuid":null,"type":null,"status":null,"rep":null)"}}));
  EXPECT_EQ(expected.dump(), Export(VEKTPSLightSchema::Legacy, E_OUTOFMEMORY, set_.Get()).dump());
}

}  // namespace
