// Reads binary glTF 2.0 (GLB) blobs into VEKRep. Blobs of the common shape are read directly;
// for the others the container, the JSON nesting and the buffer views of images are checked here
// before tinygltf sees them. Every index, offset and length of the model, however it was read, is
// checked again before it is followed, because tinygltf trusts them.
#include "VEKSceneGraph.h"

#include "GlbContainer.h"
#include "GltfSubsetReader.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tiny_gltf.h>
#include <nlohmann/json.hpp>

namespace {

// Deepest bracket nesting accepted in the JSON chunk: parts of the JSON reading recurse once per
// level, and real scene graphs stay far below this.
constexpr int kMaxJsonDepth = 64;
constexpr int kLastPrimitiveMode = TINYGLTF_MODE_TRIANGLE_FAN;

// The bytes that the nesting scan below must look at.
constexpr std::array<bool, 256> MakeJsonSyntax() {
  std::array<bool, 256> syntax{};
  for (const char c : {'"', '\\', '[', ']', '{', '}'}) syntax[static_cast<unsigned char>(c)] = true;
  return syntax;
}
constexpr std::array<bool, 256> kJsonSyntax = MakeJsonSyntax();

// Linear scan of the bracket nesting outside strings (escapes honoured), so that no text nested
// deeper than `maxDepth` reaches the recursive parts of the JSON reading.
bool JsonNestingWithin(const char* text, std::size_t length, int maxDepth) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < length; ++i) {
    const char c = text[i];
    // Most bytes are neither quotes, escapes nor brackets; one table lookup passes them.
    if (!kJsonSyntax[static_cast<unsigned char>(c)]) continue;
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth) {
        return false;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return true;
}

// Whether [offset, offset + size) lies within `limit` bytes, without overflow.
bool RangeWithin(std::uint64_t offset, std::uint64_t size, std::uint64_t limit) {
  return offset <= limit && size <= limit - offset;
}

// Reads the unsigned integer `key` of `object` into `value`, which keeps its value when the key
// is absent and not required. False for a missing required key or a value of another type.
bool ReadUnsignedMember(const nlohmann::json& object, const char* key, bool required,
                        std::uint64_t& value) {
  const auto member = object.find(key);
  if (member == object.end()) {
    return !required;
  }
  if (!member->is_number_unsigned()) {
    return false;
  }
  value = member->get<std::uint64_t>();
  return true;
}

// tinygltf takes the address of an image's bytes in its buffer view before anything checks the
// view's range, so every view that an image names is checked in the JSON first (the buffer it
// reads from holds exactly its declared byteLength). Anything unexpected is refused.
bool ImageViewsWithinBuffers(const char* json, std::size_t length) {
  // Without a backslash the key can only be spelled "images". Where it is absent, the only thing
  // left to refuse is text that is not a JSON object, which tinygltf refuses as well when it
  // parses the same text, so this second parse is skipped.
  const std::string_view text(json, length);
  if (text.find('\\') == std::string_view::npos &&
      text.find("\"images\"") == std::string_view::npos) {
    return true;
  }
  const nlohmann::json document = nlohmann::json::parse(json, json + length, nullptr, false);
  if (!document.is_object()) {
    return false;
  }
  const auto images = document.find("images");
  if (images == document.end() || !images->is_array()) {
    return true;
  }
  const auto views = document.find("bufferViews");
  const auto buffers = document.find("buffers");
  for (const nlohmann::json& image : *images) {
    if (!image.is_object() || image.find("bufferView") == image.end()) {
      continue;
    }
    std::uint64_t viewIndex = 0;
    if (!ReadUnsignedMember(image, "bufferView", true, viewIndex) || views == document.end() ||
        !views->is_array() || viewIndex >= views->size() || buffers == document.end() ||
        !buffers->is_array()) {
      return false;
    }
    const nlohmann::json& view = (*views)[static_cast<std::size_t>(viewIndex)];
    std::uint64_t bufferIndex = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    if (!view.is_object() || !ReadUnsignedMember(view, "buffer", true, bufferIndex) ||
        !ReadUnsignedMember(view, "byteOffset", false, offset) ||
        !ReadUnsignedMember(view, "byteLength", true, size) || bufferIndex >= buffers->size()) {
      return false;
    }
    const nlohmann::json& buffer = (*buffers)[static_cast<std::size_t>(bufferIndex)];
    std::uint64_t bufferSize = 0;
    if (!buffer.is_object() || !ReadUnsignedMember(buffer, "byteLength", true, bufferSize) ||
        !RangeWithin(offset, size, bufferSize)) {
      return false;
    }
  }
  return true;
}

// File-system callbacks that refuse everything: a buffer that names an external file fails to
// load, and nothing outside the blob is ever opened.
bool RefuseFileExists(const std::string&, void*) { return false; }
std::string KeepFilePath(const std::string& path, void*) { return path; }
bool RefuseReadWholeFile(std::vector<unsigned char>*, std::string*, const std::string&, void*) {
  return false;
}
bool RefuseWriteWholeFile(std::string*, const std::string&, const std::vector<unsigned char>&,
                          void*) {
  return false;
}

// Images are never decoded: a representation needs none of their pixels.
bool SkipImageDecoding(tinygltf::Image*, const int, std::string*, std::string*, int, int,
                       const unsigned char*, int, void*) {
  return true;
}

bool IsIndex(int index, std::size_t count) {
  return index >= 0 && static_cast<std::size_t>(index) < count;
}

bool IsOptionalIndex(int index, std::size_t count) { return index == -1 || IsIndex(index, count); }

bool BufferViewsValid(const tinygltf::Model& model) {
  for (const tinygltf::BufferView& view : model.bufferViews) {
    if (!IsIndex(view.buffer, model.buffers.size()) ||
        !RangeWithin(view.byteOffset, view.byteLength,
                     model.buffers[static_cast<std::size_t>(view.buffer)].data.size())) {
      return false;
    }
  }
  return true;
}

// Bytes one element occupies, with matrix columns padded to 4 bytes; 0 for an unknown type.
std::uint64_t ElementSize(const tinygltf::Accessor& accessor) {
  const int componentSize =
      tinygltf::GetComponentSizeInBytes(static_cast<std::uint32_t>(accessor.componentType));
  const int components =
      tinygltf::GetNumComponentsInType(static_cast<std::uint32_t>(accessor.type));
  if (componentSize <= 0 || components <= 0) {
    return 0;
  }
  const int matrixRows = accessor.type == TINYGLTF_TYPE_MAT2   ? 2
                         : accessor.type == TINYGLTF_TYPE_MAT3 ? 3
                         : accessor.type == TINYGLTF_TYPE_MAT4 ? 4
                                                               : 0;
  if (matrixRows == 0) {
    return std::uint64_t(componentSize) * std::uint64_t(components);
  }
  const std::uint64_t columnSize = (std::uint64_t(componentSize) * matrixRows + 3) / 4 * 4;
  return columnSize * matrixRows;
}

// Every element of an accessor with a buffer view must lie within that view; sparse parts are
// only index-checked since they are never read.
bool AccessorsValid(const tinygltf::Model& model) {
  for (const tinygltf::Accessor& accessor : model.accessors) {
    const std::uint64_t elementSize = ElementSize(accessor);
    if (elementSize == 0 || accessor.count > static_cast<std::size_t>(INT_MAX) ||
        !IsOptionalIndex(accessor.bufferView, model.bufferViews.size())) {
      return false;
    }
    if (accessor.sparse.isSparse &&
        (!IsIndex(accessor.sparse.indices.bufferView, model.bufferViews.size()) ||
         !IsIndex(accessor.sparse.values.bufferView, model.bufferViews.size()))) {
      return false;
    }
    if (accessor.bufferView == -1) {
      continue;
    }
    const tinygltf::BufferView& view =
        model.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
    const std::uint64_t stride = view.byteStride != 0 ? view.byteStride : elementSize;
    if (stride < elementSize || accessor.byteOffset > view.byteLength) {
      return false;
    }
    if (accessor.count == 0) {
      continue;
    }
    // (count - 1) is bounded by the view length before it is multiplied, so nothing overflows.
    const std::uint64_t available = view.byteLength - accessor.byteOffset;
    const std::uint64_t steps = accessor.count - 1;
    if (steps > available / stride || !RangeWithin(steps * stride, elementSize, available)) {
      return false;
    }
  }
  return true;
}

bool MeshesValid(const tinygltf::Model& model) {
  for (const tinygltf::Mesh& mesh : model.meshes) {
    for (const tinygltf::Primitive& primitive : mesh.primitives) {
      if (primitive.mode < 0 || primitive.mode > kLastPrimitiveMode ||
          !IsOptionalIndex(primitive.indices, model.accessors.size())) {
        return false;
      }
      for (const auto& attribute : primitive.attributes) {
        if (!IsIndex(attribute.second, model.accessors.size())) {
          return false;
        }
      }
    }
  }
  return true;
}

// The node graph must be a forest: indices in range, at most one parent per node, no cycle
// (an iterative depth-first walk with colours). `hasParent` receives which nodes are children.
bool NodesFormForest(const tinygltf::Model& model, std::vector<char>& hasParent) {
  const std::size_t nodeCount = model.nodes.size();
  hasParent.assign(nodeCount, 0);
  for (const tinygltf::Node& node : model.nodes) {
    if (!IsOptionalIndex(node.mesh, model.meshes.size())) {
      return false;
    }
    for (int child : node.children) {
      if (!IsIndex(child, nodeCount) || hasParent[static_cast<std::size_t>(child)]) {
        return false;
      }
      hasParent[static_cast<std::size_t>(child)] = 1;
    }
  }

  enum : char { kUnvisited, kOnPath, kFinished };
  std::vector<char> colour(nodeCount, kUnvisited);
  std::vector<std::pair<std::size_t, std::size_t>> path;  // node, next child position
  for (std::size_t start = 0; start < nodeCount; ++start) {
    if (colour[start] != kUnvisited) {
      continue;
    }
    colour[start] = kOnPath;
    path.emplace_back(start, 0);
    while (!path.empty()) {
      const std::size_t node = path.back().first;
      const std::vector<int>& children = model.nodes[node].children;
      if (path.back().second == children.size()) {
        colour[node] = kFinished;
        path.pop_back();
        continue;
      }
      const auto child = static_cast<std::size_t>(children[path.back().second++]);
      if (colour[child] == kOnPath) {
        return false;
      }
      if (colour[child] == kUnvisited) {
        colour[child] = kOnPath;
        path.emplace_back(child, 0);
      }
    }
  }
  return true;
}

// The default scene's nodes, or the first scene's, or without scenes every node without a
// parent. Every scene must list distinct nodes that have no parent.
bool SelectRoots(const tinygltf::Model& model, const std::vector<char>& hasParent,
                 std::vector<int>& roots) {
  if (!IsOptionalIndex(model.defaultScene, model.scenes.size())) {
    return false;
  }
  std::vector<std::size_t> listedInScene(model.nodes.size(), 0);  // scene number + 1
  for (std::size_t scene = 0; scene < model.scenes.size(); ++scene) {
    for (int node : model.scenes[scene].nodes) {
      if (!IsIndex(node, model.nodes.size())) {
        return false;
      }
      const auto index = static_cast<std::size_t>(node);
      if (hasParent[index] || listedInScene[index] == scene + 1) {
        return false;
      }
      listedInScene[index] = scene + 1;
    }
  }
  if (model.defaultScene >= 0) {
    roots = model.scenes[static_cast<std::size_t>(model.defaultScene)].nodes;
  } else if (!model.scenes.empty()) {
    roots = model.scenes.front().nodes;
  } else {
    roots.clear();
    for (std::size_t node = 0; node < model.nodes.size(); ++node) {
      if (!hasParent[node]) {
        roots.push_back(static_cast<int>(node));
      }
    }
  }
  return true;
}

// The node's local transform, column-major: its matrix, or translation * rotation * scale with
// the missing parts left as identity. False when an array has the wrong number of values.
bool ComposeLocalMatrix(const tinygltf::Node& node, double (&matrix)[16]) {
  if (!node.matrix.empty()) {
    if (node.matrix.size() != 16) {
      return false;
    }
    std::copy(node.matrix.begin(), node.matrix.end(), matrix);
    return true;
  }
  if ((!node.translation.empty() && node.translation.size() != 3) ||
      (!node.rotation.empty() && node.rotation.size() != 4) ||
      (!node.scale.empty() && node.scale.size() != 3)) {
    return false;
  }
  const double x = node.rotation.empty() ? 0.0 : node.rotation[0];
  const double y = node.rotation.empty() ? 0.0 : node.rotation[1];
  const double z = node.rotation.empty() ? 0.0 : node.rotation[2];
  const double w = node.rotation.empty() ? 1.0 : node.rotation[3];
  const double rotation[3][3] = {
      // columns of the rotation matrix of the unit quaternion (x, y, z, w)
      {1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
      {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
      {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)},
  };
  for (int column = 0; column < 3; ++column) {
    const double scale = node.scale.empty() ? 1.0 : node.scale[column];
    for (int row = 0; row < 3; ++row) {
      matrix[column * 4 + row] = rotation[column][row] * scale;
    }
    matrix[column * 4 + 3] = 0.0;
    matrix[12 + column] = node.translation.empty() ? 0.0 : node.translation[column];
  }
  matrix[15] = 1.0;
  return true;
}

// Positions of a plain float VEC3 accessor over a buffer view (already range-checked); anything
// else (sparse, quantized, compressed views) leaves `positions` empty.
void ReadPositions(const tinygltf::Model& model, const tinygltf::Accessor& accessor,
                   std::vector<float>& positions) {
  if (accessor.sparse.isSparse || accessor.componentType != TINYGLTF_COMPONENT_TYPE_FLOAT ||
      accessor.type != TINYGLTF_TYPE_VEC3 || accessor.bufferView == -1) {
    return;
  }
  const tinygltf::BufferView& view =
      model.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
  // A view with an extension (meshopt compression) holds encoded bytes, not plain floats.
  if (!view.extensions.empty()) {
    return;
  }
  const unsigned char* data = model.buffers[static_cast<std::size_t>(view.buffer)].data.data() +
                              view.byteOffset + accessor.byteOffset;
  constexpr std::size_t kVertexSize = 3 * sizeof(float);
  const std::size_t stride = view.byteStride != 0 ? view.byteStride : kVertexSize;
  positions.resize(accessor.count * 3);
  for (std::size_t vertex = 0; vertex < accessor.count; ++vertex) {
    std::memcpy(&positions[vertex * 3], data + vertex * stride, kVertexSize);
  }
}

}  // namespace

// Fills a VEKRep's members from a loaded model; the only code that sees them.
class VEKSceneGraphBuilder {
 public:
  // False when an index, offset or length is out of range, an external reference remains or the
  // node graph is not a forest; `rep` is then partly filled and must be discarded.
  static bool Fill(const tinygltf::Model& model, std::size_t blobSize, VEKRep& rep) {
    std::vector<char> hasParent;
    if (!ExternalReferencesAbsent(model) || !BufferViewsValid(model) || !AccessorsValid(model) ||
        !MeshesValid(model) || !NodesFormForest(model, hasParent) ||
        !SelectRoots(model, hasParent, rep.roots_)) {
      return false;
    }
    rep.blobSize_ = blobSize;
    rep.nodes_.resize(model.nodes.size());
    for (std::size_t index = 0; index < model.nodes.size(); ++index) {
      const tinygltf::Node& source = model.nodes[index];
      VEKRepNode& node = rep.nodes_[index];
      if (!ComposeLocalMatrix(source, node.matrix)) {
        return false;
      }
      node.name = VEKUnicodeString(source.name.data(), source.name.size());
      node.mesh = source.mesh;
      node.children = source.children;
    }
    rep.meshes_.resize(model.meshes.size());
    for (std::size_t index = 0; index < model.meshes.size(); ++index) {
      FillMesh(model, model.meshes[index], rep.meshes_[index]);
    }
    return true;
  }

 private:
  // Buffers naming a file never load; images keep their external URI, so they are refused here.
  static bool ExternalReferencesAbsent(const tinygltf::Model& model) {
    for (const tinygltf::Image& image : model.images) {
      if (!image.uri.empty()) {
        return false;
      }
    }
    return true;
  }

  static void FillMesh(const tinygltf::Model& model, const tinygltf::Mesh& source,
                       VEKRepMesh& mesh) {
    mesh.name = VEKUnicodeString(source.name.data(), source.name.size());
    mesh.primitives.resize(source.primitives.size());
    for (std::size_t index = 0; index < source.primitives.size(); ++index) {
      const tinygltf::Primitive& primitive = source.primitives[index];
      VEKRepPrimitive& target = mesh.primitives[index];
      target.mode = primitive.mode;
      if (primitive.indices != -1) {
        target.indexCount =
            static_cast<int>(model.accessors[static_cast<std::size_t>(primitive.indices)].count);
      }
      const auto position = primitive.attributes.find("POSITION");
      if (position != primitive.attributes.end()) {
        const tinygltf::Accessor& accessor =
            model.accessors[static_cast<std::size_t>(position->second)];
        target.vertexCount = static_cast<int>(accessor.count);
        ReadPositions(model, accessor, target.positions);
      }
    }
  }
};

VEKRep::VEKRep() noexcept = default;

VEKRep::~VEKRep() = default;

namespace {

// A representation of a loaded model, or null when the model fails the checks. Memory running out
// throws, so that it ends the read rather than sending the blob down the other path.
std::unique_ptr<VEKRep> BuildRep(const tinygltf::Model& model, std::size_t blobSize) {
  auto rep = std::make_unique<VEKRep>();
  if (!VEKSceneGraphBuilder::Fill(model, blobSize, *rep)) {
    return nullptr;
  }
  return rep;
}

}  // namespace

VEKRep* VEKReadSceneGraph(char* bytes, int length) noexcept {
  try {
    if (bytes == nullptr || length <= 0) {
      return nullptr;
    }
    const auto* blob = reinterpret_cast<const unsigned char*>(bytes);
    const auto blobSize = static_cast<std::size_t>(length);
    vek_scenegraph_detail::GlbLayout layout;
    if (!vek_scenegraph_detail::ReadGlbLayout(blob, static_cast<std::uint64_t>(length), layout)) {
      return nullptr;
    }
    // The common shape is read directly. Everything else, and any model that fails the checks,
    // goes through tinygltf, which has the last word. Memory running out on either path ends the
    // read (the catch below).
    {
      tinygltf::Model model;
      if (vek_scenegraph_detail::ReadCommonGltf(layout.json, layout.jsonLength, layout.bin,
                                                layout.binLength, model)) {
        if (std::unique_ptr<VEKRep> rep = BuildRep(model, blobSize)) {
          return rep.release();
        }
      }
    }
    if (!JsonNestingWithin(layout.json, layout.jsonLength, kMaxJsonDepth) ||
        !ImageViewsWithinBuffers(layout.json, layout.jsonLength)) {
      return nullptr;
    }

    tinygltf::TinyGLTF loader;
    loader.SetFsCallbacks(tinygltf::FsCallbacks{
        &RefuseFileExists, &KeepFilePath, &RefuseReadWholeFile, &RefuseWriteWholeFile, nullptr});
    loader.SetImageLoader(&SkipImageDecoding, nullptr);
    tinygltf::Model model;
    std::string error;
    std::string warning;
    // Warnings and non-fatal errors (tinygltf reports some for valid files) are not looked at:
    // what matters is the result and the checks that follow.
    if (!loader.LoadBinaryFromMemory(&model, &error, &warning, blob, layout.totalLength)) {
      return nullptr;
    }
    return BuildRep(model, blobSize).release();
  } catch (...) {
    return nullptr;
  }
}
