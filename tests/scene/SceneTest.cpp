// The glTF scene of a load: object nodes, cameras and extras against the model, and the written
// GLB read back by the library's own scene-graph reader as the oracle for every graphic's
// world-space geometry.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "GlbBuilder.h"
#include "ModelQueries.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightScene.h"

namespace {

using Json = nlohmann::json;
using Sets = std::vector<VEKComPtr<VEKITPSLightSet>>;

using vek_test::Query;

Json JsonOf(const std::vector<char>& glb) {
  std::uint32_t length = 0;
  std::memcpy(&length, glb.data() + 12, 4);
  return Json::parse(glb.begin() + 20, glb.begin() + 20 + length);
}

std::vector<char> Build(const Sets& sets, HRESULT expected = S_OK,
                        VEKTPSLightSceneCounts* counts = nullptr) {
  std::vector<char> glb;
  EXPECT_EQ(expected, VEKBuildScene(sets, glb, counts));
  return glb;
}

// The graphics of an object, as the scene carries them.
std::vector<const VEKRep*> GraphicsOf(VEKBaseUnknown* object) {
  std::vector<const VEKRep*> reps;
  if (auto annotation = Query<VEKITPSLightAnnotation>(object))
    reps.push_back(annotation->GetGraphicRep());
  if (auto capture = Query<VEKITPSLightCapture>(object)) reps.push_back(capture->GetGraphicRep());
  if (auto light = Query<VEKITPSLight>(object)) reps.push_back(light->GetRep());
  reps.erase(std::remove(reps.begin(), reps.end(), nullptr), reps.end());
  return reps;
}

// The families of a set, in the order of kFamilies.
const char* const kFamilies[] = {"ttrs", "annotations", "views", "refFrames", "cgs", "captures"};
std::vector<const VEKLightObjectList*> Lists(VEKITPSLightSet& set) {
  return {&set.GetTTRS(),      set.GetAnnotations(), &set.GetViews(),
          &set.GetRefFrames(), &set.GetCGs(),        &set.GetCaptures()};
}

// World-space triangles (9 floats) and segments (6 floats) of a representation, sorted so that
// two representations of the same geometry compare equal whatever their node order.
using Shapes = std::array<std::vector<std::vector<float>>, 2>;
void AddShapes(const VEKRep& rep, Shapes& shapes) {
  std::vector<float> triangles, lines;
  ASSERT_EQ(S_OK, VEKRepTriangles(rep, triangles));
  ASSERT_EQ(S_OK, VEKRepLines(rep, lines));
  for (std::size_t k = 0; k < triangles.size(); k += 9) {
    shapes[0].emplace_back(triangles.begin() + k, triangles.begin() + k + 9);
  }
  for (std::size_t k = 0; k < lines.size(); k += 6) {
    shapes[1].emplace_back(lines.begin() + k, lines.begin() + k + 6);
  }
}

// Everything the scene of `sets` must hold, checked against the model: one object node per view,
// per capture and per other object with a graphic, in model order, its extras naming it; a camera
// per capture that has a position and a direction or target; and, read back through
// VEKReadSceneGraph, exactly the world-space triangles and segments of all the graphics.
void ExpectSceneOfModel(const Sets& sets, const std::vector<char>& glb) {
  const Json gltf = JsonOf(glb);
  std::vector<std::string> expected, written;
  Shapes modelShapes, sceneShapes;
  std::set<std::vector<unsigned char>> distinctBlobs;
  std::size_t distinctMeshes = 0;
  int cameras = 0;
  for (std::size_t s = 0; s < sets.size(); ++s) {
    for (std::size_t family = 0; family < std::size(kFamilies); ++family) {
      const VEKLightObjectList& list = *Lists(*sets[s].Get())[family];
      const std::string name = kFamilies[family];
      for (int k = 0; k < list.Count(); ++k) {
        const std::vector<const VEKRep*> reps = GraphicsOf(list.Get(k));
        if (reps.empty() && name != "views" && name != "captures") continue;
        const std::optional<int> id = Query<VEKITPSLight>(list.Get(k))->GetId();
        expected.push_back(name + " " + std::to_string(s) + " " + std::to_string(k) + " " +
                           (id ? std::to_string(*id) : "null"));
        for (const VEKRep* rep : reps) {
          AddShapes(*rep, modelShapes);
          if (distinctBlobs.insert(rep->GetGlb()).second) distinctMeshes += rep->GetMeshes().size();
        }
        if (auto capture = Query<VEKITPSLightCapture>(list.Get(k))) {
          cameras += capture->GetCameraPosition() &&
                     (capture->GetCameraDirection() || capture->GetCameraTarget());
        }
      }
    }
  }
  for (const Json& node : gltf["nodes"]) {
    if (!node.contains("extras") || !node["extras"].contains("family")) continue;
    const Json& extras = node["extras"];
    written.push_back(extras["family"].get<std::string>() + " " + extras["set"].dump() + " " +
                      extras["index"].dump() + " " + extras["id"].dump());
  }
  EXPECT_EQ(expected, written);
  EXPECT_EQ(cameras, gltf.contains("cameras") ? static_cast<int>(gltf["cameras"].size()) : 0);
  // Identical blobs share their meshes.
  EXPECT_EQ(distinctMeshes, gltf.contains("meshes") ? gltf["meshes"].size() : 0u);

  std::vector<char> copy = glb;
  std::unique_ptr<VEKRep> back(VEKReadSceneGraph(copy.data(), static_cast<int>(copy.size())));
  ASSERT_TRUE(back);
  AddShapes(*back, sceneShapes);
  for (int kind = 0; kind < 2; ++kind) {
    std::sort(modelShapes[kind].begin(), modelShapes[kind].end());
    std::sort(sceneShapes[kind].begin(), sceneShapes[kind].end());
    EXPECT_EQ(modelShapes[kind], sceneShapes[kind]) << (kind ? "segments" : "triangles");
  }
}

TEST(Scene, BundledAndGeneratedDocumentsHoldTheirModel) {
  std::vector<std::pair<std::string, VEKTPSLightDocument>> documents;
  for (const char* name : {"pump_housing.xml", "bracket.xml", "gear_shaft_legacy.xml"}) {
    documents.emplace_back(
        name, VEKLoadDocumentFile((std::string(VEK_EXAMPLES_DIR) + "/" + name).c_str()));
  }
  // Generated documents share identical graphics among their annotations.
  for (const VEKGeneratedSchema schema :
       {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
    const std::string xml = VEKGenerateDocument({schema, 400, 7});
    documents.emplace_back("generated", VEKLoadDocument(xml.data(), xml.size()));
  }
  for (const auto& [name, document] : documents) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(document.Loaded());
    ExpectSceneOfModel(document.Sets(), Build(document.Sets()));
  }
}

class SceneModel : public testing::Test, protected vek_test::OneSet {
 protected:
  Sets sets_{set_};
};

using Vec = std::array<double, 3>;

Vec Rotate(const Json& q, Vec v) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  // v + 2w(u x v) + 2u x (u x v), u = (x, y, z)
  const Vec uv = {y * v[2] - z * v[1], z * v[0] - x * v[2], x * v[1] - y * v[0]};
  const Vec uuv = {y * uv[2] - z * uv[1], z * uv[0] - x * uv[2], x * uv[1] - y * uv[0]};
  return {v[0] + 2 * (w * uv[0] + uuv[0]), v[1] + 2 * (w * uv[1] + uuv[1]),
          v[2] + 2 * (w * uv[2] + uuv[2])};
}

Vec Unit(Vec v) {
  const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  return {v[0] / length, v[1] / length, v[2] / length};
}

// Each camera node also names what its capture shows.
TEST_F(SceneModel, CaptureCameraLooksAlongItsDirectionWithItsZenithUp) {
  struct Row {
    std::optional<Vec> position, direction, zenith, target;
    std::optional<Vec> forward, up;  // expected; no forward: no camera
  };
  const double inf = INFINITY;
  const Row rows[] = {
      {Vec{0, -400, 0}, Vec{0, 1, 0}, Vec{0, 0, 1}, Vec{0, 0, 0}, Vec{0, 1, 0}, Vec{0, 0, 1}},
      // The zenith is made perpendicular to the direction.
      {Vec{310, -240, 180}, Vec{-0.72, 0.55, -0.42}, Vec{0, 0, 1}, std::nullopt,
       Unit({-0.72, 0.55, -0.42}), Unit({-0.72 * 0.42, 0.55 * 0.42, 0.72 * 0.72 + 0.55 * 0.55})},
      // Without a direction the camera looks at its target.
      {Vec{0, 0, 50}, std::nullopt, Vec{0, 1, 0}, Vec{0, 0, 0}, Vec{0, 0, -1}, Vec{0, 1, 0}},
      // A zenith along the direction leaves some perpendicular up.
      {Vec{0, 0, 50}, Vec{0, 0, -1}, Vec{0, 0, 1}, std::nullopt, Vec{0, 0, -1}, std::nullopt},
      {std::nullopt, Vec{0, 0, -1}, Vec{0, 1, 0}, Vec{0, 0, 0}, std::nullopt, std::nullopt},
      {Vec{0, 0, 5}, Vec{inf, 0, 0}, Vec{0, 1, 0}, std::nullopt, std::nullopt, std::nullopt},
      {Vec{0, 0, 5}, Vec{0, 0, 0}, Vec{0, 1, 0}, Vec{0, 0, 5}, std::nullopt, std::nullopt},
  };
  VEKComPtr<VEKITPSLightCapture> first;
  for (const Row& row : rows) {
    auto capture = Make<VEKITPSLightCapture>(500);
    if (!first) first = capture;
    auto set = [&](HRESULT (VEKITPSLightCapture::*setter)(double, double, double),
                   const std::optional<Vec>& v) {
      if (v) {
        ASSERT_EQ(S_OK, (capture.Get()->*setter)((*v)[0], (*v)[1], (*v)[2]));
      }
    };
    set(&VEKITPSLightCapture::SetCameraPosition, row.position);
    set(&VEKITPSLightCapture::SetCameraDirection, row.direction);
    set(&VEKITPSLightCapture::SetCameraZenith, row.zenith);
    set(&VEKITPSLightCapture::SetCameraTarget, row.target);
  }
  auto annotation = Make<VEKITPSLightAnnotation>(7);
  auto view = Make<VEKITPSLightView>(201);
  auto cg = Make<VEKITPSLightCG>(401);
  ASSERT_EQ(S_OK, first->AddTPS(Query<VEKBaseUnknown>(annotation.Get()).Get()));
  ASSERT_EQ(S_OK, first->AddView(Query<VEKBaseUnknown>(view.Get()).Get()));
  ASSERT_EQ(S_OK, first->SetActiveView(Query<VEKBaseUnknown>(view.Get()).Get()));
  ASSERT_EQ(S_OK, view->AddCapture(Query<VEKBaseUnknown>(first.Get()).Get()));
  ASSERT_EQ(S_OK, first->AddCG(Query<VEKBaseUnknown>(cg.Get()).Get()));
  ASSERT_EQ(S_OK, first->SetClippingPlane(1));
  ASSERT_EQ(S_OK, first->SetCameraType(1));
  ASSERT_EQ(S_OK, view->SetOrigin(0, 0, 0));
  ASSERT_EQ(S_OK, view->SetNormal(0, -1, 0));
  const Json gltf = JsonOf(Build(sets_));
  std::vector<const Json*> cameraNodes;
  Json viewNode;
  for (const Json& node : gltf["nodes"]) {
    if (node.contains("camera")) cameraNodes.push_back(&node);
    if (node.contains("extras") && node["extras"].value("family", "") == "views")
      viewNode = node["extras"];
  }
  ASSERT_FALSE(cameraNodes.empty());
  EXPECT_EQ(Json::parse(R"({"capture":500,"cameraType":1,"target":[0.0,0.0,0.0],
    "annotations":[7],"views":[201],"cgs":[401],"activeView":201,"clipping":1})"),
            (*cameraNodes[0])["extras"]);
  EXPECT_EQ(Json::parse(R"([0.0,-1.0,0.0])"), viewNode["normal"]);
  EXPECT_EQ(Json::parse(R"([500])"), viewNode["captures"]);
  std::size_t next = 0;
  for (const Row& row : rows) {
    if (!row.forward) continue;
    ASSERT_LT(next, cameraNodes.size());
    const Json& node = *cameraNodes[next++];
    const Vec forward = Rotate(node["rotation"], {0, 0, -1});
    const Vec up = Rotate(node["rotation"], {0, 1, 0});
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR((*row.forward)[axis], forward[axis], 1e-9);
      if (row.up) {
        EXPECT_NEAR((*row.up)[axis], up[axis], 1e-9);
      }
      EXPECT_EQ((*row.position)[axis], node["translation"][axis].get<double>());
    }
    EXPECT_NEAR(0, forward[0] * up[0] + forward[1] * up[1] + forward[2] * up[2], 1e-9);
  }
  EXPECT_EQ(next, cameraNodes.size());
  EXPECT_NEAR(kVEKSceneFieldOfView, gltf["cameras"][0]["perspective"]["yfov"].get<double>(), 0);
}

// A blob is carried whole or not at all: one the scene cannot carry faithfully, or whose indices
// or offsets are out of range, is left out and its object keeps its node.
TEST_F(SceneModel, BlobsThatCannotBeCarriedAreLeftOut) {
  struct Row {
    const char* what;
    void (*spoil)(Json& json, std::vector<unsigned char>& bin);
    bool carried;
  };
  const Row rows[] = {
      {"as generated", [](Json&, std::vector<unsigned char>&) {}, true},
      {"a required extension",
       [](Json& json, std::vector<unsigned char>&) {
         json["extensionsUsed"] = json["extensionsRequired"] = {"EXT_meshopt_compression"};
       },
       false},
      {"an index past the vertices",
       [](Json& json, std::vector<unsigned char>& bin) {
         const std::size_t view = json["accessors"][1]["bufferView"];
         bin[json["bufferViews"][view]["byteOffset"].get<std::size_t>()] = 9;
       },
       false},
      {"a sparse accessor",
       [](Json& json, std::vector<unsigned char>&) {
         json["accessors"][0]["sparse"] = {
             {"count", 1},
             {"indices", {{"bufferView", 1}, {"componentType", 5123}}},
             {"values", {{"bufferView", 0}}}};
       },
       false},
      {"a morph target of fewer vertices",
       [](Json& json, std::vector<unsigned char>&) {
         const Json line = json["meshes"][1]["primitives"][0]["attributes"]["POSITION"];
         json["meshes"][0]["primitives"][0]["targets"] = {{{"POSITION", line}}};
       },
       false},
  };
  for (const Row& row : rows) {
    vek_test::GlbParts parts = vek_test::MakeMeshesParts(1, 1, 0);
    Json json = Json::parse(parts.json);
    row.spoil(json, parts.bin);
    std::vector<char> glb = vek_test::BuildGlb(json.dump(), parts.bin);
    VEKRep* rep = VEKReadSceneGraph(glb.data(), static_cast<int>(glb.size()));
    ASSERT_TRUE(rep) << row.what;
    auto annotation = Make<VEKITPSLightAnnotation>(1);
    ASSERT_EQ(S_OK, annotation->SetRep(rep));
  }
  VEKTPSLightSceneCounts counts;
  const Json gltf = JsonOf(Build(sets_, S_FALSE, &counts));
  std::vector<bool> carried;
  for (const Json& node : gltf["nodes"]) {
    if (node.contains("extras") && node["extras"].value("family", "") == "annotations") {
      carried.push_back(node.contains("children"));
    }
  }
  ASSERT_EQ(std::size(rows), carried.size());
  for (std::size_t k = 0; k < carried.size(); ++k)
    EXPECT_EQ(rows[k].carried, carried[k]) << rows[k].what;
  EXPECT_EQ(1, counts.graphics);
  EXPECT_EQ(4, counts.skipped);
}

}  // namespace
