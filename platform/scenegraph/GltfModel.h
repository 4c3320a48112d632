// The parts of a glTF model that a representation is built from, as the JSON gave them: indices,
// offsets and lengths are checked only when the representation is built (RepBuilder.cpp). Lists
// inside items are runs in pools of the model, so that reading a model takes a few allocations
// whatever its number of items.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace vek_scenegraph_detail {

enum class GltfAccessorType : unsigned char { kScalar, kVec2, kVec3, kVec4, kMat2, kMat3, kMat4 };

// A run of items in one of the model's pools.
struct GltfRange {
  std::uint32_t first = 0;
  std::uint32_t count = 0;
};

// The items of a run, read-only.
template <typename Item>
struct GltfItems {
  const Item* data = nullptr;
  std::size_t size = 0;

  const Item* begin() const { return data; }
  const Item* end() const { return data + size; }
  const Item& operator[](std::size_t index) const { return data[index]; }
};

// Bytes of a buffer: part of the BIN chunk, or decoded from a data URI into the model's storage.
struct GltfBuffer {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
};

struct GltfBufferView {
  int buffer = -1;
  std::uint64_t byteOffset = 0;
  std::uint64_t byteLength = 0;
  std::uint64_t byteStride = 0;  // 0 when the elements are tightly packed
  bool hasExtensions = false;    // such as a compression, which leaves the bytes encoded
};

struct GltfAccessor {
  int bufferView = -1;
  std::uint64_t byteOffset = 0;
  int componentType = 0;  // 5120 to 5130
  GltfAccessorType type = GltfAccessorType::kScalar;
  std::uint64_t count = 0;
  bool sparse = false;
  int sparseIndicesView = -1;  // both given when sparse
  int sparseValuesView = -1;
};

struct GltfAttribute {
  std::string_view name;
  int accessor = -1;
};

struct GltfPrimitive {
  int mode = 4;
  int indices = -1;
  GltfRange attributes;  // in GltfModel::attributes, sorted by name, each name once
};

struct GltfMesh {
  std::string_view name;
  GltfRange primitives;  // in GltfModel::primitives
};

// The transform's runs hold as many values as the JSON gave (checked when the matrix is made).
struct GltfNode {
  std::string_view name;
  int mesh = -1;
  GltfRange children;  // in GltfModel::indices
  GltfRange matrix;    // these four in GltfModel::numbers
  GltfRange translation;
  GltfRange rotation;
  GltfRange scale;
};

struct GltfScene {
  GltfRange nodes;  // in GltfModel::indices
};

// Names and decoded buffers point into `storage`, so a model can be moved but not copied.
struct GltfModel {
  std::vector<GltfBuffer> buffers;
  std::vector<GltfBufferView> bufferViews;
  std::vector<GltfAccessor> accessors;
  std::vector<GltfMesh> meshes;
  std::vector<GltfNode> nodes;
  std::vector<GltfScene> scenes;
  int defaultScene = -1;

  std::vector<GltfPrimitive> primitives;
  std::vector<GltfAttribute> attributes;
  std::vector<int> indices;
  std::vector<double> numbers;
  std::vector<std::unique_ptr<unsigned char[]>> storage;

  template <typename Item>
  static GltfItems<Item> Run(const std::vector<Item>& pool, GltfRange range) {
    return {range.count == 0 ? nullptr : pool.data() + range.first, range.count};
  }
  GltfItems<GltfPrimitive> Primitives(const GltfMesh& mesh) const {
    return Run(primitives, mesh.primitives);
  }
  GltfItems<GltfAttribute> Attributes(const GltfPrimitive& primitive) const {
    return Run(attributes, primitive.attributes);
  }
  GltfItems<int> Indices(GltfRange range) const { return Run(indices, range); }
  GltfItems<double> Numbers(GltfRange range) const { return Run(numbers, range); }
};

}  // namespace vek_scenegraph_detail
