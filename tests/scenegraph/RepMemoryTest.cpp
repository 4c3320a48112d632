// What one GLB may make a representation hold: arrays shared per accessor, and a bound in
// proportion to the blob.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "GlbBuilder.h"
#include "VEKSceneGraph.h"

namespace {

using Json = nlohmann::json;

constexpr int kVertices = 20000;  // 240,000 bytes of positions

std::unique_ptr<VEKRep> Read(std::vector<char> glb) {
  return std::unique_ptr<VEKRep>(VEKReadSceneGraph(glb.data(), static_cast<int>(glb.size())));
}

std::size_t Bound(std::size_t glbSize) { return 8 * glbSize + 65536; }

// One buffer view of kVertices float triples, then kVertices byte indices; `accessors` VEC3
// accessors over the whole view, and one index accessor.
struct SharedScene {
  Json gltf;
  std::vector<unsigned char> bin;
};

SharedScene MakeSharedScene(int vectorAccessors) {
  SharedScene scene;
  scene.bin = vek_test::FloatBytes(std::vector<float>(3 * kVertices, 0.25f));
  scene.bin.resize(scene.bin.size() + kVertices, 1);
  Json accessors = Json::array();
  for (int accessor = 0; accessor < vectorAccessors; ++accessor) {
    accessors.push_back(
        {{"bufferView", 0}, {"componentType", 5126}, {"count", kVertices}, {"type", "VEC3"}});
  }
  accessors.push_back(
      {{"bufferView", 1}, {"componentType", 5121}, {"count", kVertices}, {"type", "SCALAR"}});
  scene.gltf = {{"asset", {{"version", "2.0"}}},
                {"buffers", {{{"byteLength", scene.bin.size()}}}},
                {"bufferViews",
                 {{{"buffer", 0}, {"byteLength", 12 * kVertices}},
                  {{"buffer", 0}, {"byteOffset", 12 * kVertices}, {"byteLength", kVertices}}}},
                {"accessors", accessors},
                {"meshes", Json::array()},
                {"nodes", Json::array()}};
  return scene;
}

TEST(RepMemory, PrimitivesSharingOneAccessorShareItsArrays) {
  SharedScene scene = MakeSharedScene(1);
  // 40 meshes of 25 primitives each, every one with the same positions, normals and indices,
  // each mesh shown by two nodes: copied per primitive, that would be 560 MB.
  const Json primitive = {{"attributes", {{"POSITION", 0}, {"NORMAL", 0}}}, {"indices", 1}};
  for (int mesh = 0; mesh < 40; ++mesh) {
    scene.gltf["meshes"].push_back({{"primitives", Json(25, primitive)}});
    scene.gltf["nodes"].push_back({{"mesh", mesh}});
    scene.gltf["nodes"].push_back({{"mesh", mesh}, {"translation", {1, 0, 0}}});
  }
  const std::vector<char> glb = vek_test::BuildGlb(scene.gltf.dump(), scene.bin);
  const auto rep = Read(glb);
  ASSERT_TRUE(rep);
  std::set<const void*> arrays;
  std::size_t arrayBytes = 0;
  for (const VEKRepMesh& mesh : rep->GetMeshes()) {
    for (const VEKRepPrimitive& p : mesh.primitives) {
      ASSERT_TRUE(p.positions && p.normals && p.indices);
      if (arrays.insert(p.positions.get()).second) arrayBytes += 4 * p.positions->size();
      if (arrays.insert(p.normals.get()).second) arrayBytes += 4 * p.normals->size();
      if (arrays.insert(p.indices.get()).second) arrayBytes += 4 * p.indices->size();
    }
  }
  EXPECT_EQ(arrays.size(), 2u) << "one array of positions and normals, one of indices";
  EXPECT_EQ(arrayBytes, 16u * kVertices);
  EXPECT_GT(rep->GetHeldBytes(), arrayBytes + glb.size());
  EXPECT_LT(rep->GetHeldBytes(), 3 * glb.size());
}

TEST(RepMemory, RepresentationsBeyondTheBoundAreRefused) {
  // Accessors over the same bytes are decoded one by one: 240,000 bytes each, against a bound of
  // 8 times a blob of about 260,000 bytes plus 64 KiB.
  for (const int accessors : {7, 9}) {
    SCOPED_TRACE(testing::Message() << accessors << " accessors");
    SharedScene scene = MakeSharedScene(accessors);
    Json primitives = Json::array();
    for (int accessor = 0; accessor < accessors; ++accessor) {
      primitives.push_back({{"attributes", {{"POSITION", accessor}}}, {"indices", accessors}});
    }
    scene.gltf["meshes"].push_back({{"primitives", primitives}});
    const std::vector<char> glb = vek_test::BuildGlb(scene.gltf.dump(), scene.bin);
    const auto rep = Read(glb);
    EXPECT_EQ(rep != nullptr, accessors == 7);
    if (rep) {
      EXPECT_GT(rep->GetHeldBytes(), 7u * 12 * kVertices);
      EXPECT_LE(rep->GetHeldBytes(), Bound(glb.size()));
    }
  }
}

TEST(RepMemory, NodesCountTowardsTheBound) {
  // Each empty node takes 3 bytes of JSON and a few hundred in the representation.
  for (const int nodes : {100, 30000}) {
    SCOPED_TRACE(nodes);
    const Json gltf = {{"asset", {{"version", "2.0"}}}, {"nodes", Json(nodes, Json::object())}};
    const std::vector<char> glb = vek_test::BuildGlb(gltf.dump());
    const auto rep = Read(glb);
    EXPECT_EQ(rep != nullptr, nodes == 100);
  }
}

}  // namespace
