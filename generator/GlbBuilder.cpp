#include "GlbBuilder.h"

#include <cstdint>
#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

#include "VEKCodePage.h"
#include "VEKGlbWriter.h"

namespace vek_test {
namespace {

constexpr int kArrayBufferTarget = 34962;
constexpr int kElementArrayBufferTarget = 34963;
constexpr int kUnsignedShort = 5123;
constexpr int kFloat = 5126;
constexpr int kModeTriangles = 4;
constexpr int kModeLines = 1;
constexpr int kModePoints = 0;

// Appends a buffer view over `bytes` (starting 4-aligned) and returns its index.
int AppendView(nlohmann::json& gltf, std::vector<unsigned char>& bin,
               const std::vector<unsigned char>& bytes, int target) {
  bin.resize((bin.size() + 3) / 4 * 4, 0);
  gltf["bufferViews"].push_back({{"buffer", 0},
                                 {"byteOffset", bin.size()},
                                 {"byteLength", bytes.size()},
                                 {"target", target}});
  bin.insert(bin.end(), bytes.begin(), bytes.end());
  return static_cast<int>(gltf["bufferViews"].size()) - 1;
}

}  // namespace

std::vector<char> BuildGlb(const std::string& json, const std::vector<unsigned char>& bin) {
  std::vector<char> glb;
  // A failure leaves the container empty.
  (void)VEKWriteGlb(json, bin.data(), bin.size(), glb);
  return glb;
}

std::vector<char> BuildGlb(const GlbParts& parts) { return BuildGlb(parts.json, parts.bin); }

std::vector<unsigned char> FloatBytes(const std::vector<float>& values) {
  std::vector<unsigned char> bytes;
  for (float value : values) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int shift = 0; shift < 32; shift += 8) {
      bytes.push_back(static_cast<unsigned char>((bits >> shift) & 0xFF));
    }
  }
  return bytes;
}

std::string EncodeBase64(const unsigned char* bytes, std::size_t length) {
  std::string text(VEKCodePage::Base64Length(length), '\0');
  if (VEKCodePage::WriteBase64(bytes, length, text.data(), text.size()) != text.size())
    text.clear();
  return text;
}

GlbParts MakeMeshesParts(int triangles, int lines, int points) {
  nlohmann::json gltf = {
      {"asset", {{"version", "2.0"}}},
      {"scene", 0},
      {"scenes", nlohmann::json::array({{{"nodes", nlohmann::json::array({0})}}})},
      {"accessors", nlohmann::json::array()},
      {"bufferViews", nlohmann::json::array()},
      {"meshes", nlohmann::json::array()}};
  const double halfTurn = 0.7071067811865476;  // sin and cos of 45 degrees: a quarter turn about z
  gltf["nodes"] = nlohmann::json::array({{{"name", "root"},
                                          {"translation", {1, 2, 3}},
                                          {"rotation", {0, 0, halfTurn, halfTurn}},
                                          {"scale", {2, 2, 2}},
                                          {"children", nlohmann::json::array()}}});
  GlbParts parts;
  const int meshCount = triangles + lines + points;
  for (int mesh = 0; mesh < meshCount; ++mesh) {
    const bool isTriangle = mesh < triangles;
    const int mode = isTriangle                 ? kModeTriangles
                     : mesh < triangles + lines ? kModeLines
                                                : kModePoints;
    const int vertexCount = isTriangle ? 3 : mode == kModeLines ? 2 : 1;
    std::vector<float> positions;
    for (int vertex = 0; vertex < vertexCount; ++vertex) {
      positions.insert(positions.end(), {float(mesh), float(vertex), 0.5f});
    }
    const int positionView = AppendView(gltf, parts.bin, FloatBytes(positions), kArrayBufferTarget);
    gltf["accessors"].push_back({{"bufferView", positionView},
                                 {"componentType", kFloat},
                                 {"count", vertexCount},
                                 {"type", "VEC3"},
                                 {"min", {mesh, 0, 0.5}},
                                 {"max", {mesh, vertexCount - 1, 0.5}}});
    nlohmann::json primitive = {{"attributes", {{"POSITION", gltf["accessors"].size() - 1}}},
                                {"mode", mode}};
    if (isTriangle) {
      const int indexView =
          AppendView(gltf, parts.bin, {0, 0, 1, 0, 2, 0}, kElementArrayBufferTarget);
      gltf["accessors"].push_back({{"bufferView", indexView},
                                   {"componentType", kUnsignedShort},
                                   {"count", 3},
                                   {"type", "SCALAR"}});
      primitive["indices"] = gltf["accessors"].size() - 1;
    }
    gltf["meshes"].push_back({{"name", "shape" + std::to_string(mesh)},
                              {"primitives", nlohmann::json::array({primitive})}});
    gltf["nodes"].push_back(
        {{"name", "mesh" + std::to_string(mesh)}, {"mesh", mesh}, {"translation", {mesh, 0, 0}}});
    gltf["nodes"][0]["children"].push_back(mesh + 1);
  }
  if (!parts.bin.empty()) {
    gltf["buffers"] = nlohmann::json::array({{{"byteLength", parts.bin.size()}}});
  }
  parts.json = gltf.dump();
  return parts;
}

std::vector<char> BuildMeshesGlb(int triangles, int lines, int points) {
  return BuildGlb(MakeMeshesParts(triangles, lines, points));
}

}  // namespace vek_test
