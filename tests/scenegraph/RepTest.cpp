// Representations: their world-space triangles and line segments, for hosts that draw them, and
// the memory one GLB may make them hold.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "GlbBuilder.h"
#include "VEKSceneGraph.h"

namespace {

using Json = nlohmann::json;

std::unique_ptr<VEKRep> Read(std::vector<char> glb) {
  return std::unique_ptr<VEKRep>(VEKReadSceneGraph(glb.data(), static_cast<int>(glb.size())));
}

void ExpectNear(const std::vector<float>& actual, const std::vector<float>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], 1e-5) << i;
  }
}

TEST(RepGeometry, GeneratedSceneInWorldSpace) {
  const auto rep = Read(vek_test::BuildMeshesGlb(2, 1, 1));
  ASSERT_TRUE(rep);
  // Vertex v of mesh m, (m, v, 0.5) in node m + 1, which moves it by (m, 0, 0); the root scales
  // by 2, turns a quarter about z and moves by (1, 2, 3): (1 - 2v, 2 + 4m, 4).
  std::vector<float> triangles;
  ASSERT_EQ(VEKRepTriangles(*rep, triangles), S_OK);
  ExpectNear(triangles, {1, 2, 4, -1, 2, 4, -3, 2, 4, 1, 6, 4, -1, 6, 4, -3, 6, 4});
  std::vector<float> lines = {42};
  ASSERT_EQ(VEKRepLines(*rep, lines), S_OK);
  ExpectNear(lines, {1, 10, 4, -1, 10, 4});
}

constexpr int kNotIndexed = 0;
constexpr int kByte = 5121;
constexpr int kShort = 5123;
constexpr int kInt = 5125;
constexpr int kFloat = 5126;

struct ModeCase {
  const char* name;
  int mode;
  int indexType;
  std::vector<std::uint32_t> indices;
  int vertexCount;
  std::vector<std::vector<int>> elements;  // vertices of each triangle or segment drawn
};

// One node showing one primitive whose vertex k is at (k, k + 0.5, -k).
std::vector<char> PrimitiveGlb(const ModeCase& row) {
  std::vector<float> positions;
  for (int vertex = 0; vertex < row.vertexCount; ++vertex) {
    positions.insert(positions.end(), {float(vertex), vertex + 0.5f, -float(vertex)});
  }
  std::vector<unsigned char> bin = vek_test::FloatBytes(positions);
  Json primitive = {{"attributes", {{"POSITION", 0}}}, {"mode", row.mode}};
  Json views = {{{"buffer", 0}, {"byteLength", bin.size()}}};
  Json accessors = {
      {{"bufferView", 0}, {"componentType", kFloat}, {"count", row.vertexCount}, {"type", "VEC3"}}};
  if (row.indexType != kNotIndexed) {
    const std::size_t size = row.indexType == kByte ? 1 : row.indexType == kShort ? 2 : 4;
    const std::size_t start = bin.size();
    for (const std::uint32_t index : row.indices) {
      const std::uint32_t value = row.indexType == kFloat ? 0x3F800000u : index;
      for (std::size_t byte = 0; byte < size; ++byte) bin.push_back((value >> (8 * byte)) & 0xFF);
    }
    views.push_back({{"buffer", 0}, {"byteOffset", start}, {"byteLength", bin.size() - start}});
    accessors.push_back({{"bufferView", 1},
                         {"componentType", row.indexType},
                         {"count", row.indices.size()},
                         {"type", "SCALAR"}});
    primitive["indices"] = 1;
  }
  while (bin.size() % 4 != 0) bin.push_back(0);
  const Json gltf = {{"asset", {{"version", "2.0"}}},
                     {"buffers", {{{"byteLength", bin.size()}}}},
                     {"bufferViews", views},
                     {"accessors", accessors},
                     {"meshes", {{{"primitives", {primitive}}}}},
                     {"nodes", {{{"mesh", 0}}}}};
  return vek_test::BuildGlb(gltf.dump(), bin);
}

TEST(RepGeometry, EveryModeIndexedOrNot) {
  const ModeCase cases[] = {
      {"points", 0, kNotIndexed, {}, 3, {}},
      {"lines", 1, kNotIndexed, {}, 5, {{0, 1}, {2, 3}}},
      {"line loop", 2, kShort, {2, 0, 1}, 3, {{2, 0}, {0, 1}, {1, 2}}},
      {"line strip past the vertices", 3, kInt, {0, 0xFFFFFFFFu, 1, 2}, 3, {{1, 2}}},
      {"triangles", 4, kNotIndexed, {}, 7, {{0, 1, 2}, {3, 4, 5}}},
      {"triangles past the vertices", 4, kByte, {0, 1, 3, 2, 1, 0}, 3, {{2, 1, 0}}},
      {"triangle strip", 5, kShort, {0, 1, 2, 3, 4}, 5, {{0, 1, 2}, {1, 3, 2}, {2, 3, 4}}},
      {"strip of two", 5, kNotIndexed, {}, 2, {}},
      {"triangle fan", 6, kInt, {0, 1, 2, 3}, 4, {{1, 2, 0}, {2, 3, 0}}},
      {"unreadable indices", 4, kFloat, {0, 1, 2}, 3, {}},
  };
  for (const ModeCase& row : cases) {
    SCOPED_TRACE(row.name);
    const auto rep = Read(PrimitiveGlb(row));
    ASSERT_TRUE(rep);
    std::vector<float> expected;
    for (const std::vector<int>& element : row.elements) {
      for (const int vertex : element) {
        expected.insert(expected.end(), {float(vertex), vertex + 0.5f, -float(vertex)});
      }
    }
    std::vector<float> triangles;
    std::vector<float> lines;
    ASSERT_EQ(VEKRepTriangles(*rep, triangles), S_OK);
    ASSERT_EQ(VEKRepLines(*rep, lines), S_OK);
    const bool drawsTriangles = row.mode >= 4;
    EXPECT_EQ(triangles, drawsTriangles ? expected : std::vector<float>{});
    EXPECT_EQ(lines, drawsTriangles ? std::vector<float>{} : expected);
  }
}

TEST(RepGeometry, OutputBeyondTheBoundIsRefused) {
  // A strip of 10,000 byte indices naming one vertex, shown by `nodes` nodes: 360,000 bytes of
  // triangles per node, from a blob of about 11,000 bytes.
  std::vector<unsigned char> bin = vek_test::FloatBytes({1, 2, 3});
  bin.resize(bin.size() + 10000, 0);
  for (const int nodes : {1, 100}) {
    SCOPED_TRACE(nodes);
    const Json gltf = {
        {"asset", {{"version", "2.0"}}},
        {"buffers", {{{"byteLength", bin.size()}}}},
        {"bufferViews",
         {{{"buffer", 0}, {"byteLength", 12}},
          {{"buffer", 0}, {"byteOffset", 12}, {"byteLength", 10000}}}},
        {"accessors",
         {{{"bufferView", 0}, {"componentType", kFloat}, {"count", 1}, {"type", "VEC3"}},
          {{"bufferView", 1}, {"componentType", kByte}, {"count", 10000}, {"type", "SCALAR"}}}},
        {"meshes",
         {{{"primitives", {{{"attributes", {{"POSITION", 0}}}, {"indices", 1}, {"mode", 5}}}}}}},
        {"nodes", Json(nodes, {{"mesh", 0}})}};
    const auto rep = Read(vek_test::BuildGlb(gltf.dump(), bin));
    ASSERT_TRUE(rep);
    std::vector<float> triangles = {42};
    if (nodes == 1) {
      ASSERT_EQ(VEKRepTriangles(*rep, triangles), S_OK);
      EXPECT_EQ(triangles.size(), 9u * 9998);
    } else {
      EXPECT_EQ(VEKRepTriangles(*rep, triangles), E_OUTOFMEMORY);
      EXPECT_TRUE(triangles.empty());
    }
  }
}

// What one GLB may make a representation hold: arrays shared per accessor, and a bound in
// proportion to the blob.
constexpr int kVertices = 20000;  // 240,000 bytes of positions

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
        {{"bufferView", 0}, {"componentType", kFloat}, {"count", kVertices}, {"type", "VEC3"}});
  }
  accessors.push_back(
      {{"bufferView", 1}, {"componentType", kByte}, {"count", kVertices}, {"type", "SCALAR"}});
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
