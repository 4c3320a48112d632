#include "RepBuilder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>
#include <vector>

#include <tiny_gltf.h>

#include "VEKSceneGraph.h"

namespace vek_scenegraph_detail {

bool RangeWithin(std::uint64_t offset, std::uint64_t size, std::uint64_t limit) {
  return offset <= limit && size <= limit - offset;
}

}  // namespace vek_scenegraph_detail

namespace {

using vek_scenegraph_detail::RangeWithin;

constexpr int kLastPrimitiveMode = TINYGLTF_MODE_TRIANGLE_FAN;

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
// (an iterative depth-first walk with colours). `parents` receives each node's parent or -1.
bool NodesFormForest(const tinygltf::Model& model, std::vector<int>& parents) {
  const std::size_t nodeCount = model.nodes.size();
  parents.assign(nodeCount, -1);
  for (std::size_t node = 0; node < nodeCount; ++node) {
    if (!IsOptionalIndex(model.nodes[node].mesh, model.meshes.size())) {
      return false;
    }
    for (int child : model.nodes[node].children) {
      if (!IsIndex(child, nodeCount) || parents[static_cast<std::size_t>(child)] != -1) {
        return false;
      }
      parents[static_cast<std::size_t>(child)] = static_cast<int>(node);
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
bool SelectRoots(const tinygltf::Model& model, const std::vector<int>& parents,
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
      if (parents[index] != -1 || listedInScene[index] == scene + 1) {
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
      if (parents[node] == -1) {
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

// product = left * right, all column-major.
void MultiplyMatrices(const double (&left)[16], const double (&right)[16], double (&product)[16]) {
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      double sum = 0.0;
      for (int k = 0; k < 4; ++k) {
        sum += left[k * 4 + row] * right[column * 4 + k];
      }
      product[column * 4 + row] = sum;
    }
  }
}

// The first element of a plain accessor (no sparse part, over a buffer view without an
// extension such as meshopt compression, whose bytes are encoded) and the distance between
// elements; null for any other accessor. The accessor has been range-checked.
const unsigned char* PlainElements(const tinygltf::Model& model, const tinygltf::Accessor& accessor,
                                   std::size_t& stride) {
  if (accessor.sparse.isSparse || accessor.bufferView == -1) {
    return nullptr;
  }
  const tinygltf::BufferView& view =
      model.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
  if (!view.extensions.empty()) {
    return nullptr;
  }
  stride = view.byteStride != 0 ? view.byteStride : static_cast<std::size_t>(ElementSize(accessor));
  return model.buffers[static_cast<std::size_t>(view.buffer)].data.data() + view.byteOffset +
         accessor.byteOffset;
}

using FloatArray = std::shared_ptr<const std::vector<float>>;
using IndexArray = std::shared_ptr<const std::vector<std::uint32_t>>;

// Bytes counted for each decoded array besides its values: the shared owner's block and the
// vector itself.
constexpr std::uint64_t kArrayOverheadBytes = 64;

// What a representation may take, counted before each allocation it makes.
class ByteBudget {
 public:
  explicit ByteBudget(std::uint64_t limit) : limit_(limit) {}

  // Takes `count` items of `size` bytes; false, taking nothing, when they would pass the limit.
  [[nodiscard]] bool Take(std::uint64_t count, std::uint64_t size) {
    if (size != 0 && count > (limit_ - used_) / size) {
      return false;
    }
    used_ += count * size;
    return true;
  }

  std::uint64_t Used() const { return used_; }

 private:
  std::uint64_t limit_;
  std::uint64_t used_ = 0;
};

template <typename Component>
void WidenIndices(const unsigned char* data, std::size_t stride, std::vector<std::uint32_t>& out) {
  for (std::size_t element = 0; element < out.size(); ++element) {
    Component value;
    std::memcpy(&value, data + element * stride, sizeof value);
    out[element] = value;
  }
}

// The arrays decoded from a model's accessors, each decoded once however many primitives use it
// (as positions or normals alike), within the representation's budget.
class AccessorArrays {
 public:
  AccessorArrays(const tinygltf::Model& model, ByteBudget& budget)
      : model_(model),
        budget_(budget),
        vectors_(model.accessors.size()),
        indices_(model.accessors.size()) {}

  // x, y, z triples of a plain float VEC3 accessor, null for any other; false when they would
  // pass the budget.
  bool Vectors(int index, FloatArray& vectors) {
    FloatArray& decoded = vectors_[static_cast<std::size_t>(index)];
    const tinygltf::Accessor& accessor = model_.accessors[static_cast<std::size_t>(index)];
    std::size_t stride = 0;
    const unsigned char* data = decoded ? nullptr : PlainElements(model_, accessor, stride);
    if (data != nullptr && accessor.componentType == TINYGLTF_COMPONENT_TYPE_FLOAT &&
        accessor.type == TINYGLTF_TYPE_VEC3) {
      const auto values = Allocate<float>(accessor.count * 3);
      if (!values) {
        return false;
      }
      for (std::size_t element = 0; element < accessor.count; ++element) {
        std::memcpy(&(*values)[element * 3], data + element * stride, 3 * sizeof(float));
      }
      decoded = values;
    }
    vectors = decoded;
    return true;
  }

  // The values of a plain unsigned byte, short or int SCALAR accessor, widened; null for any
  // other; false when they would pass the budget.
  bool Indices(int index, IndexArray& indices) {
    IndexArray& decoded = indices_[static_cast<std::size_t>(index)];
    const tinygltf::Accessor& accessor = model_.accessors[static_cast<std::size_t>(index)];
    const int type = accessor.componentType;
    std::size_t stride = 0;
    const unsigned char* data = decoded ? nullptr : PlainElements(model_, accessor, stride);
    if (data != nullptr && accessor.type == TINYGLTF_TYPE_SCALAR &&
        (type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE ||
         type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT ||
         type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)) {
      const auto values = Allocate<std::uint32_t>(accessor.count);
      if (!values) {
        return false;
      }
      if (type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE) {
        WidenIndices<std::uint8_t>(data, stride, *values);
      } else if (type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT) {
        WidenIndices<std::uint16_t>(data, stride, *values);
      } else {
        WidenIndices<std::uint32_t>(data, stride, *values);
      }
      decoded = values;
    }
    indices = decoded;
    return true;
  }

 private:
  // A new array of `count` values, or null when it would pass the budget.
  template <typename Value>
  std::shared_ptr<std::vector<Value>> Allocate(std::uint64_t count) {
    if (!budget_.Take(1, kArrayOverheadBytes) || !budget_.Take(count, sizeof(Value))) {
      return nullptr;
    }
    return std::make_shared<std::vector<Value>>(static_cast<std::size_t>(count));
  }

  const tinygltf::Model& model_;
  ByteBudget& budget_;
  std::vector<FloatArray> vectors_;
  std::vector<IndexArray> indices_;
};

// Takes from `budget` the representation's own structure: the GLB copy, nodes (world matrices
// included), meshes, primitives, names and index lists. False when it does not fit.
bool TakeStructure(const tinygltf::Model& model, std::size_t rootCount, std::size_t glbLength,
                   ByteBudget& budget) {
  if (!budget.Take(glbLength, 1) || !budget.Take(rootCount, sizeof(int)) ||
      !budget.Take(model.nodes.size(), sizeof(VEKRepNode)) ||
      !budget.Take(model.meshes.size(), sizeof(VEKRepMesh))) {
    return false;
  }
  for (const tinygltf::Node& node : model.nodes) {
    if (!budget.Take(node.children.size(), sizeof(int)) || !budget.Take(node.name.size(), 1)) {
      return false;
    }
  }
  for (const tinygltf::Mesh& mesh : model.meshes) {
    if (!budget.Take(mesh.primitives.size(), sizeof(VEKRepPrimitive)) ||
        !budget.Take(mesh.name.size(), 1)) {
      return false;
    }
  }
  return true;
}

}  // namespace

// Fills a VEKRep's members from a checked model; the only code that sees them.
class VEKSceneGraphBuilder {
 public:
  static std::unique_ptr<VEKRep> Build(const tinygltf::Model& model, const unsigned char* glb,
                                       std::size_t glbLength, std::size_t blobSize) {
    auto rep = std::make_unique<VEKRep>();
    std::vector<int> parents;
    ByteBudget budget(vek_scenegraph_detail::kRepBytesPerGlbByte * glbLength +
                      vek_scenegraph_detail::kRepBaseBytes);
    if (!ExternalReferencesAbsent(model) || !BufferViewsValid(model) || !AccessorsValid(model) ||
        !MeshesValid(model) || !NodesFormForest(model, parents) ||
        !SelectRoots(model, parents, rep->roots_) ||
        !TakeStructure(model, rep->roots_.size(), glbLength, budget) ||
        !FillNodes(model, parents, *rep)) {
      return nullptr;
    }
    AccessorArrays arrays(model, budget);
    rep->meshes_.resize(model.meshes.size());
    for (std::size_t index = 0; index < model.meshes.size(); ++index) {
      if (!FillMesh(model, model.meshes[index], arrays, rep->meshes_[index])) {
        return nullptr;
      }
    }
    rep->glb_.assign(glb, glb + glbLength);
    rep->blobSize_ = blobSize;
    rep->heldBytes_ = static_cast<std::size_t>(budget.Used());
    return rep;
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

  // Names, links and matrices of every node; world matrices from the top of each tree down, in
  // breadth-first order so that a parent's comes before its children's.
  static bool FillNodes(const tinygltf::Model& model, const std::vector<int>& parents,
                        VEKRep& rep) {
    rep.nodes_.resize(model.nodes.size());
    std::vector<int> order;
    order.reserve(model.nodes.size());
    for (std::size_t index = 0; index < model.nodes.size(); ++index) {
      const tinygltf::Node& source = model.nodes[index];
      VEKRepNode& node = rep.nodes_[index];
      if (!ComposeLocalMatrix(source, node.matrix)) {
        return false;
      }
      node.name = VEKUnicodeString(source.name.data(), source.name.size());
      node.parent = parents[index];
      node.mesh = source.mesh;
      node.children = source.children;
      if (node.parent == -1) {
        order.push_back(static_cast<int>(index));
      }
    }
    for (std::size_t next = 0; next < order.size(); ++next) {
      VEKRepNode& node = rep.nodes_[static_cast<std::size_t>(order[next])];
      if (node.parent == -1) {
        std::copy(std::begin(node.matrix), std::end(node.matrix), node.worldMatrix);
      } else {
        MultiplyMatrices(rep.nodes_[static_cast<std::size_t>(node.parent)].worldMatrix, node.matrix,
                         node.worldMatrix);
      }
      order.insert(order.end(), node.children.begin(), node.children.end());
    }
    return true;
  }

  // False when its arrays would pass the budget.
  static bool FillMesh(const tinygltf::Model& model, const tinygltf::Mesh& source,
                       AccessorArrays& arrays, VEKRepMesh& mesh) {
    mesh.name = VEKUnicodeString(source.name.data(), source.name.size());
    mesh.primitives.resize(source.primitives.size());
    for (std::size_t index = 0; index < source.primitives.size(); ++index) {
      const tinygltf::Primitive& primitive = source.primitives[index];
      VEKRepPrimitive& target = mesh.primitives[index];
      target.mode = primitive.mode;
      if (primitive.indices != -1) {
        target.indexCount =
            static_cast<int>(model.accessors[static_cast<std::size_t>(primitive.indices)].count);
        if (!arrays.Indices(primitive.indices, target.indices)) {
          return false;
        }
      }
      const auto position = primitive.attributes.find("POSITION");
      if (position != primitive.attributes.end()) {
        target.vertexCount =
            static_cast<int>(model.accessors[static_cast<std::size_t>(position->second)].count);
        if (!arrays.Vectors(position->second, target.positions)) {
          return false;
        }
      }
      const auto normal = primitive.attributes.find("NORMAL");
      if (normal != primitive.attributes.end() &&
          model.accessors[static_cast<std::size_t>(normal->second)].count ==
              static_cast<std::size_t>(target.vertexCount) &&
          !arrays.Vectors(normal->second, target.normals)) {
        return false;
      }
    }
    return true;
  }
};

namespace vek_scenegraph_detail {

std::unique_ptr<VEKRep> BuildRep(const tinygltf::Model& model, const unsigned char* glb,
                                 std::size_t glbLength, std::size_t blobSize) {
  return VEKSceneGraphBuilder::Build(model, glb, glbLength, blobSize);
}

}  // namespace vek_scenegraph_detail
