// The GLB reader on generated scenes, on corrupted copies of them and on the shared corpus's
// malformed containers; the representations' world-space triangles and line segments, for hosts
// that draw them, and the memory one GLB may make them hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DocumentForms.h"
#include "GlbBuilder.h"
#include "VEKSceneGraph.h"

namespace {

using Json = nlohmann::json;
using vek_test::BuildGlb;
using vek_test::MakeMeshesParts;

std::unique_ptr<VEKRep> Read(std::vector<char> glb) {
  return std::unique_ptr<VEKRep>(VEKReadSceneGraph(glb.data(), static_cast<int>(glb.size())));
}

// GLB's little-endian fields, on the little-endian hosts the project builds for.
std::uint32_t Get32(const std::vector<char>& glb, std::size_t offset) {
  std::uint32_t value = 0;
  std::memcpy(&value, glb.data() + offset, 4);
  return value;
}

void Put32(std::vector<char>& glb, std::size_t offset, std::uint32_t value) {
  std::memcpy(glb.data() + offset, &value, 4);
}

std::size_t JsonChunkEnd(const std::vector<char>& glb) { return 20 + Get32(glb, 12); }

constexpr int kNotIndexed = 0;
constexpr int kByte = 5121;
constexpr int kShort = 5123;
constexpr int kInt = 5125;
constexpr int kFloat = 5126;

// A glTF document over one buffer of `bufferLength` bytes.
Json Gltf(std::size_t bufferLength, const Json& views, const Json& accessors,
          const Json& meshes = Json::array(), const Json& nodes = Json::array()) {
  return {{"asset", {{"version", "2.0"}}},
          {"buffers", {{{"byteLength", bufferLength}}}},
          {"bufferViews", views},
          {"accessors", accessors},
          {"meshes", meshes},
          {"nodes", nodes}};
}

Json Accessor(int view, int componentType, std::uint64_t count, const char* type) {
  return {{"bufferView", view}, {"componentType", componentType}, {"count", count}, {"type", type}};
}

// One mesh drawing the positions of accessor 0 as points.
const Json kPointsMeshes = Json::array(
    {{{"primitives", Json::array({{{"attributes", {{"POSITION", 0}}}, {"mode", 0}}})}}});

void ExpectNear(const std::vector<float>& actual, const std::vector<float>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], 1e-5) << i;
  }
}

TEST(SceneGraphRead, GeneratedSceneKeepsMeshesNodesAndTransforms) {
  std::vector<char> glb = vek_test::BuildMeshesGlb(2, 1, 1);
  const std::size_t glbSize = glb.size();
  glb.insert(glb.end(), 3, '\x7F');  // bytes after the GLB are not kept with it
  const auto rep = Read(glb);
  ASSERT_TRUE(rep);
  EXPECT_EQ(rep->GetBlobSize(), glbSize + 3);
  EXPECT_EQ(rep->GetGlb(), std::vector<unsigned char>(glb.begin(), glb.begin() + glbSize));

  struct Expected {
    int mode, vertexCount, indexCount;
  };
  const Expected expected[] = {{4, 3, 3}, {4, 3, 3}, {1, 2, 0}, {0, 1, 0}};
  ASSERT_EQ(rep->GetMeshes().size(), 4u);
  for (int mesh = 0; mesh < 4; ++mesh) {
    SCOPED_TRACE(mesh);
    EXPECT_TRUE(rep->GetMeshes()[mesh].name == ("shape" + std::to_string(mesh)).c_str());
    ASSERT_EQ(rep->GetMeshes()[mesh].primitives.size(), 1u);
    const VEKRepPrimitive& primitive = rep->GetMeshes()[mesh].primitives[0];
    EXPECT_EQ(primitive.mode, expected[mesh].mode);
    EXPECT_EQ(primitive.vertexCount, expected[mesh].vertexCount);
    EXPECT_EQ(primitive.indexCount, expected[mesh].indexCount);
    ASSERT_TRUE(primitive.positions);
    EXPECT_EQ(primitive.positions->size(), 3u * expected[mesh].vertexCount);
    EXPECT_FALSE(primitive.normals);
    EXPECT_EQ(primitive.indices != nullptr, expected[mesh].indexCount != 0);
  }

  const std::vector<VEKRepNode>& nodes = rep->GetNodes();
  ASSERT_EQ(nodes.size(), 5u);
  EXPECT_EQ(rep->GetRootNodes(), std::vector<int>{0});
  EXPECT_TRUE(nodes[0].name == "root");
  EXPECT_EQ(nodes[0].mesh, -1);
  EXPECT_EQ(nodes[0].parent, -1);
  EXPECT_EQ(nodes[0].children, (std::vector<int>{1, 2, 3, 4}));
  // translation (1, 2, 3) * quarter turn about z * scale 2, column-major
  const double root[16] = {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 1, 2, 3, 1};
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(nodes[0].matrix[i], root[i], 1e-12) << i;
  EXPECT_EQ(nodes[3].mesh, 2);
  EXPECT_EQ(nodes[3].parent, 0);
  EXPECT_TRUE(nodes[3].children.empty());

  // Vertex v of mesh m, (m, v, 0.5) in node m + 1, which moves it by (m, 0, 0); the root scales
  // by 2, turns a quarter about z and moves by (1, 2, 3): (1 - 2v, 2 + 4m, 4).
  std::vector<float> triangles;
  ASSERT_EQ(VEKRepTriangles(*rep, triangles), S_OK);
  ExpectNear(triangles, {1, 2, 4, -1, 2, 4, -3, 2, 4, 1, 6, 4, -1, 6, 4, -3, 6, 4});
  std::vector<float> lines = {42};
  ASSERT_EQ(VEKRepLines(*rep, lines), S_OK);
  ExpectNear(lines, {1, 10, 4, -1, 10, 4});
}

TEST(SceneGraphRead, EveryTruncationIsRejected) {
  std::vector<char> glb = vek_test::BuildMeshesGlb(1, 0, 0);
  EXPECT_EQ(VEKReadSceneGraph(nullptr, 100), nullptr);
  EXPECT_EQ(VEKReadSceneGraph(glb.data(), -1), nullptr);
  for (std::size_t length = 0; length < glb.size(); ++length) {
    std::vector<char> prefix(glb.begin(), glb.begin() + length);
    EXPECT_FALSE(Read(prefix)) << length;
    if (length >= 12) {  // the same cut with a header that agrees with it
      Put32(prefix, 8, static_cast<std::uint32_t>(length));
      EXPECT_FALSE(Read(prefix)) << length << " with matching header";
    }
  }
}

using Glb = std::vector<char>;

struct ContainerCase {
  const char* name;
  std::function<void(Glb&)> corrupt;
};

TEST(SceneGraphRead, MalformedContainersAreRejected) {
  const auto setJsonLength = [](std::uint32_t delta) {
    return [delta](Glb& glb) { Put32(glb, 12, Get32(glb, 12) + delta); };
  };
  const auto setBinLength = [](std::uint32_t delta) {
    return
        [delta](Glb& glb) { Put32(glb, JsonChunkEnd(glb), Get32(glb, JsonChunkEnd(glb)) + delta); };
  };
  const ContainerCase cases[] = {
      {"magic", [](Glb& glb) { glb[0] = 'G'; }},
      {"version 1", [](Glb& glb) { Put32(glb, 4, 1); }},
      {"version 3", [](Glb& glb) { Put32(glb, 4, 3); }},
      {"total one byte over", [](Glb& glb) { Put32(glb, 8, glb.size() + 1); }},
      {"total below header", [](Glb& glb) { Put32(glb, 8, 19); }},
      {"total INT_MAX + 1", [](Glb& glb) { Put32(glb, 8, 0x80000000u); }},
      {"total UINT32_MAX", [](Glb& glb) { Put32(glb, 8, 0xFFFFFFFFu); }},
      {"JSON chunk type", [](Glb& glb) { glb[16] = 'j'; }},
      {"JSON length 0", [](Glb& glb) { Put32(glb, 12, 0); }},
      {"JSON length unaligned", setJsonLength(1)},
      {"JSON length + 4", setJsonLength(4)},
      {"JSON length - 4", setJsonLength(static_cast<std::uint32_t>(-4))},
      {"JSON length past 4 GiB", [](Glb& glb) { Put32(glb, 12, 0xFFFFFFFCu); }},
      {"BIN chunk type", [](Glb& glb) { glb[JsonChunkEnd(glb) + 4] = 'X'; }},
      {"BIN length + 4", setBinLength(4)},
      {"BIN length - 4", setBinLength(static_cast<std::uint32_t>(-4))},
      {"BIN length unaligned", setBinLength(static_cast<std::uint32_t>(-1))},
      {"BIN length and total unaligned",
       [](Glb& glb) {
         glb.pop_back();
         Put32(glb, 8, glb.size());
         Put32(glb, JsonChunkEnd(glb), Get32(glb, JsonChunkEnd(glb)) - 1);
       }},
      {"BIN length 0", [](Glb& glb) { Put32(glb, JsonChunkEnd(glb), 0); }},
      {"BIN length past 4 GiB", [](Glb& glb) { Put32(glb, JsonChunkEnd(glb), 0xFFFFFFF0u); }},
      {"BIN chunk missing",
       [](Glb& glb) {
         glb.resize(JsonChunkEnd(glb));
         Put32(glb, 8, glb.size());
       }},
      {"chunk after BIN",
       [](Glb& glb) {
         const char unknown[] = {4, 0, 0, 0, 'U', 'N', 'K', 0, 1, 2, 3, 4};
         glb.insert(glb.end(), unknown, unknown + sizeof unknown);
         Put32(glb, 8, glb.size());
       }},
  };
  for (const ContainerCase& row : cases) {
    std::vector<char> glb = vek_test::BuildMeshesGlb(1, 0, 0);
    row.corrupt(glb);
    EXPECT_FALSE(Read(glb)) << row.name;
  }
  const vek_test::GlbParts parts = MakeMeshesParts(1, 0, 0);
  EXPECT_FALSE(Read(BuildGlb("\xEF\xBB\xBF" + parts.json, parts.bin))) << "byte order mark";
}

struct JsonCase {
  const char* name;
  std::function<void(Json&)> corrupt;
};

// The one-triangle scene with its JSON changed by `change`, read.
std::unique_ptr<VEKRep> ReadChanged(const std::function<void(Json&)>& change) {
  const vek_test::GlbParts parts = MakeMeshesParts(1, 0, 0);
  Json gltf = Json::parse(parts.json);
  change(gltf);
  return Read(BuildGlb(gltf.dump(), parts.bin));
}

TEST(SceneGraphRead, OutOfRangeIndicesOffsetsAndCyclesAreRejected) {
  const Json huge = UINT64_MAX;
  const JsonCase cases[] = {
      {"accessor offset past its view", [](Json& g) { g["accessors"][0]["byteOffset"] = 40; }},
      {"accessor offset near 2^64", [&](Json& g) { g["accessors"][0]["byteOffset"] = huge; }},
      {"accessor count past its view", [](Json& g) { g["accessors"][0]["count"] = 4; }},
      {"accessor count INT_MAX + 1", [](Json& g) { g["accessors"][0]["count"] = 1u << 31; }},
      {"accessor count 2^64 - 1", [&](Json& g) { g["accessors"][0]["count"] = huge; }},
      {"accessor without view, count INT_MAX + 1",
       [](Json& g) {
         g["accessors"][0].erase("bufferView");
         g["accessors"][0]["count"] = 1u << 31;
       }},
      {"accessor view index", [](Json& g) { g["accessors"][0]["bufferView"] = 9; }},
      {"view length past buffer", [](Json& g) { g["bufferViews"][0]["byteLength"] = 1000; }},
      {"view offset near 2^64", [&](Json& g) { g["bufferViews"][0]["byteOffset"] = huge; }},
      {"view buffer index", [](Json& g) { g["bufferViews"][0]["buffer"] = 1; }},
      {"view buffer index -1", [](Json& g) { g["bufferViews"][0]["buffer"] = -1; }},
      {"POSITION accessor index",
       [](Json& g) { g["meshes"][0]["primitives"][0]["attributes"]["POSITION"] = 7; }},
      {"POSITION accessor -2",
       [](Json& g) { g["meshes"][0]["primitives"][0]["attributes"]["POSITION"] = -2; }},
      {"indices accessor index", [](Json& g) { g["meshes"][0]["primitives"][0]["indices"] = 7; }},
      {"primitive mode 7", [](Json& g) { g["meshes"][0]["primitives"][0]["mode"] = 7; }},
      {"node mesh index", [](Json& g) { g["nodes"][1]["mesh"] = 2; }},
      {"node mesh -2", [](Json& g) { g["nodes"][1]["mesh"] = -2; }},
      {"child index", [](Json& g) { g["nodes"][0]["children"].push_back(3); }},
      {"child -1", [](Json& g) { g["nodes"][0]["children"].push_back(-1); }},
      {"node its own child", [](Json& g) { g["nodes"][2]["children"] = {2}; }},
      {"cycle through the root", [](Json& g) { g["nodes"][1]["children"] = {0}; }},
      {"cycle outside the scene",
       [](Json& g) {
         g["nodes"].push_back({{"children", {3}}});
         g["nodes"].push_back({{"children", {2}}});
       }},
      {"node with two parents",
       [](Json& g) {
         g["nodes"].push_back({{"name", "shared"}});
         g["nodes"][0]["children"].push_back(2);
         g["nodes"][1]["children"] = {2};
       }},
      {"child listed twice", [](Json& g) { g["nodes"][0]["children"].push_back(1); }},
      {"scene node index", [](Json& g) { g["scenes"][0]["nodes"] = {3}; }},
      {"scene lists a child node", [](Json& g) { g["scenes"][0]["nodes"] = {1}; }},
      {"scene lists a node twice", [](Json& g) { g["scenes"][0]["nodes"] = Json(2, 0); }},
      {"matrix of 15 values", [](Json& g) { g["nodes"][1]["matrix"] = Json(15, 1.0); }},
      {"image over a view far past its buffer",
       [&](Json& g) {
         g["bufferViews"].push_back(
             {{"buffer", 0}, {"byteOffset", UINT64_MAX - 8}, {"byteLength", 4}});
         g["images"] = {{{"bufferView", 2}, {"mimeType", "image/png"}}};
       }},
  };
  ASSERT_TRUE(ReadChanged([](Json&) {}));
  for (const JsonCase& row : cases) EXPECT_FALSE(ReadChanged(row.corrupt)) << row.name;
}

struct BoundaryCase {
  const char* name;
  int bufferLength;  // of the buffer's 264 bytes in the BIN chunk
  int viewOffset, viewLength;
  int stride;  // -1: none given
  int accessorOffset;
  int componentType;
  const char* type;
  int count;
  bool accepted;
};

// A buffer view and one accessor over it, exactly at and one byte beyond each limit.
TEST(SceneGraphRead, RangesAndStridesAtTheirLimits) {
  const BoundaryCase cases[] = {
      {"view ends at the buffer's end", 100, 40, 60, -1, 0, kFloat, "VEC3", 1, true},
      {"view one byte past the buffer's end", 100, 40, 61, -1, 0, kFloat, "VEC3", 1, false},
      {"last element ends at the view's end", 264, 0, 36, -1, 0, kFloat, "VEC3", 3, true},
      {"last element one byte past the view's end", 264, 0, 35, -1, 0, kFloat, "VEC3", 3, false},
      {"offset element ends at the view's end", 264, 0, 40, -1, 4, kFloat, "VEC3", 3, true},
      {"offset element one byte past the view's end", 264, 0, 39, -1, 4, kFloat, "VEC3", 3, false},
      {"strided element ends at the view's end", 264, 0, 44, 16, 0, kFloat, "VEC3", 3, true},
      {"strided element one byte past the view's end", 264, 0, 43, 16, 0, kFloat, "VEC3", 3, false},
      {"stride 4, the smallest", 264, 0, 8, 4, 0, kFloat, "SCALAR", 2, true},
      {"stride 252, the largest", 264, 0, 256, 252, 0, kFloat, "SCALAR", 2, true},
      {"stride 253", 264, 0, 257, 253, 0, kFloat, "SCALAR", 2, false},
      {"stride 256", 264, 0, 260, 256, 0, kFloat, "SCALAR", 2, false},
      {"stride 6, not a multiple of 4", 264, 0, 10, 6, 0, kFloat, "SCALAR", 2, false},
      {"stride 3, the element's size", 264, 0, 6, 3, 0, kByte, "VEC3", 2, false},
      // An explicit 0 reads as no stride (as tinygltf has it), although glTF wants at least 4.
      {"stride 0, tightly packed", 264, 0, 24, 0, 0, kFloat, "VEC3", 2, true},
      {"stride 12, the element's size", 264, 0, 36, 12, 0, kFloat, "VEC3", 3, true},
      {"stride 8, below the element's size", 264, 0, 36, 8, 0, kFloat, "VEC3", 3, false},
  };
  const std::vector<unsigned char> bin(264, 0);
  for (const BoundaryCase& row : cases) {
    Json view = {{"buffer", 0}, {"byteOffset", row.viewOffset}, {"byteLength", row.viewLength}};
    if (row.stride >= 0) view["byteStride"] = row.stride;
    Json accessor = Accessor(0, row.componentType, row.count, row.type);
    accessor["byteOffset"] = row.accessorOffset;
    const Json gltf =
        Gltf(row.bufferLength, Json::array({view}), Json::array({accessor}), kPointsMeshes);
    EXPECT_EQ(Read(BuildGlb(gltf.dump(), bin)) != nullptr, row.accepted) << row.name;
  }
}

TEST(SceneGraphRead, UnreadablePositionsKeepCountsOnly) {
  const JsonCase cases[] = {
      {"no buffer view", [](Json& g) { g["accessors"][0].erase("bufferView"); }},
      {"integer components", [](Json& g) { g["accessors"][0]["componentType"] = 5125; }},
      {"sparse",
       [](Json& g) {
         g["accessors"][0]["sparse"] = {{"count", 1},
                                        {"indices", {{"bufferView", 1}, {"componentType", 5123}}},
                                        {"values", {{"bufferView", 0}}}};
       }},
      {"compressed view",
       [](Json& g) {
         g["bufferViews"][0]["extensions"]["EXT_meshopt_compression"] = Json::object();
       }},
  };
  for (const JsonCase& row : cases) {
    const auto rep = ReadChanged(row.corrupt);
    ASSERT_TRUE(rep) << row.name;
    EXPECT_EQ(rep->GetMeshes()[0].primitives[0].vertexCount, 3) << row.name;
    EXPECT_FALSE(rep->GetMeshes()[0].primitives[0].positions) << row.name;
  }
}

TEST(SceneGraphRead, NormalsAreReadWhenTheyMatchThePositions) {
  struct NormalCase {
    const char* name;
    int accessor;  // 0 the positions, 1 the indices, 2 two float triples
    bool read;
  };
  for (const NormalCase& row : {NormalCase{"the positions' accessor", 0, true},
                                NormalCase{"unsigned short scalars", 1, false},
                                NormalCase{"fewer than the positions", 2, false}}) {
    const auto rep = ReadChanged([&](Json& gltf) {
      gltf["accessors"].push_back(Accessor(0, kFloat, 2, "VEC3"));
      gltf["meshes"][0]["primitives"][0]["attributes"]["NORMAL"] = row.accessor;
    });
    ASSERT_TRUE(rep) << row.name;
    const VEKRepPrimitive& primitive = rep->GetMeshes()[0].primitives[0];
    ASSERT_EQ(primitive.normals != nullptr, row.read) << row.name;
    if (row.read) {
      EXPECT_EQ(*primitive.normals, *primitive.positions);
    }
  }
}

// A valid document whose "extras" holds `depth` nested arrays.
std::string NestedJson(int depth, const std::string& generator = "") {
  return R"({"asset":{"version":"2.0","generator":")" + generator + R"("},"extras":)" +
         std::string(depth, '[') + std::string(depth, ']') + "}";
}

TEST(SceneGraphRead, JsonNestingIsLimited) {
  EXPECT_TRUE(Read(BuildGlb(NestedJson(63)))) << "64 levels with the document";
  EXPECT_FALSE(Read(BuildGlb(NestedJson(64)))) << "65 levels";
  EXPECT_FALSE(Read(BuildGlb(NestedJson(100000))));
  // Brackets inside strings do not count, escaped quotes do not end them, and an escaped
  // backslash does not hide the closing quote.
  EXPECT_TRUE(Read(BuildGlb(NestedJson(1, R"(\")" + std::string(1000, '[')))));
  EXPECT_FALSE(Read(BuildGlb(NestedJson(64, R"(x\\)"))));
}

struct ModeCase {
  const char* name;
  int mode;
  int indexType;
  std::vector<std::uint32_t> indices;
  int vertexCount;
  std::vector<std::vector<int>> elements;  // vertices of each triangle or segment drawn
};

// One node showing one primitive whose vertex k is at (k, k + 0.5, -k), with 4 bytes of padding
// after each vertex.
std::vector<char> PrimitiveGlb(const ModeCase& row) {
  std::vector<float> positions;
  for (int vertex = 0; vertex < row.vertexCount; ++vertex) {
    positions.insert(positions.end(), {float(vertex), vertex + 0.5f, -float(vertex), -1});
  }
  std::vector<unsigned char> bin = vek_test::FloatBytes(positions);
  Json primitive = {{"attributes", {{"POSITION", 0}}}, {"mode", row.mode}};
  Json views = {{{"buffer", 0}, {"byteLength", bin.size()}, {"byteStride", 16}}};
  Json accessors = Json::array({Accessor(0, kFloat, row.vertexCount, "VEC3")});
  if (row.indexType != kNotIndexed) {
    const std::size_t size = row.indexType == kByte ? 1 : row.indexType == kShort ? 2 : 4;
    const std::size_t start = bin.size();
    for (const std::uint32_t index : row.indices) {
      const std::uint32_t value = row.indexType == kFloat ? 0x3F800000u : index;
      for (std::size_t byte = 0; byte < size; ++byte) bin.push_back((value >> (8 * byte)) & 0xFF);
    }
    views.push_back({{"buffer", 0}, {"byteOffset", start}, {"byteLength", bin.size() - start}});
    accessors.push_back(Accessor(1, row.indexType, row.indices.size(), "SCALAR"));
    primitive["indices"] = 1;
  }
  while (bin.size() % 4 != 0) bin.push_back(0);
  const Json gltf =
      Gltf(bin.size(), views, accessors, Json::array({{{"primitives", Json::array({primitive})}}}),
           Json::array({{{"mesh", 0}}}));
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
    std::vector<float> triangles, lines;
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
    const Json strip = {{"attributes", {{"POSITION", 0}}}, {"indices", 1}, {"mode", 5}};
    const Json gltf =
        Gltf(bin.size(),
             Json::array({{{"buffer", 0}, {"byteLength", 12}},
                          {{"buffer", 0}, {"byteOffset", 12}, {"byteLength", 10000}}}),
             Json::array({Accessor(0, kFloat, 1, "VEC3"), Accessor(1, kByte, 10000, "SCALAR")}),
             Json::array({{{"primitives", Json::array({strip})}}}), Json(nodes, {{"mesh", 0}}));
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
  Json accessors(vectorAccessors, Accessor(0, kFloat, kVertices, "VEC3"));
  accessors.push_back(Accessor(1, kByte, kVertices, "SCALAR"));
  scene.gltf = Gltf(
      scene.bin.size(),
      Json::array({{{"buffer", 0}, {"byteLength", 12 * kVertices}},
                   {{"buffer", 0}, {"byteOffset", 12 * kVertices}, {"byteLength", kVertices}}}),
      accessors);
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
      EXPECT_LE(rep->GetHeldBytes(), 8 * glb.size() + 65536);
    }
  }
}

TEST(RepMemory, NodesCountTowardsTheBound) {
  // Each empty node takes 3 bytes of JSON and a few hundred in the representation.
  for (const int nodes : {100, 30000}) {
    SCOPED_TRACE(nodes);
    const Json gltf = {{"asset", {{"version", "2.0"}}}, {"nodes", Json(nodes, Json::object())}};
    EXPECT_EQ(Read(vek_test::BuildGlb(gltf.dump())) != nullptr, nodes == 100);
  }
}

// The shared corpus's container edge cases; its real files are compared with tinygltf by the
// gltf_readers fuzz target's replay.
TEST(SceneGraphCorpus, OnlyWellFormedContainersLoad) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(VEK_SHARED_DIR) / "corpora" / "glb" / "malformed";
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no corpus at " << folder;
  // Every other file has container or buffer errors, or (buffer_data_uri, a data URI that is not
  // base64, and buffer_valid_placeholder, a buffer with no data) cannot be read by tinygltf.
  const std::set<std::string> loading = {
      "buffer_extra_padding.glb", "buffer_valid.glb", "glb_extra_data.glb",
      "glb_two_images.glb",       "glb_valid.glb",    "glb_valid_buffer.glb",
      "image_data_uri.glb",       "image_valid.glb"};
  int files = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".glb") continue;
    ++files;
    const std::string name = entry.path().filename().string();
    const std::string glb = vek_test::ReadFileBytes(entry.path());
    EXPECT_EQ(Read({glb.begin(), glb.end()}) != nullptr, loading.count(name) == 1) << name;
  }
  EXPECT_EQ(files, 37);
}

}  // namespace
