#include "RepBuilder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "VEKSceneGraph.h"

namespace vek_scenegraph_detail {

bool RangeWithin(std::uint64_t offset, std::uint64_t size, std::uint64_t limit) {
  return offset <= limit && size <= limit - offset;
}

std::uint64_t MaxRepNodes(std::size_t glbLength) {
  return (kRepBytesPerGlbByte * glbLength + kRepBaseBytes) / sizeof(VEKRepNode);
}

}  // namespace vek_scenegraph_detail

namespace {

using vek_scenegraph_detail::GltfAccessor;
using vek_scenegraph_detail::GltfAccessorType;
using vek_scenegraph_detail::GltfBufferView;
using vek_scenegraph_detail::GltfMesh;
using vek_scenegraph_detail::GltfModel;
using vek_scenegraph_detail::GltfNode;
using vek_scenegraph_detail::GltfPrimitive;
using vek_scenegraph_detail::RangeWithin;

constexpr int kLastPrimitiveMode = 6;  // triangle fan
constexpr int kUnsignedByte = 5121;
constexpr int kUnsignedShort = 5123;
constexpr int kUnsignedInt = 5125;
constexpr int kFloat = 5126;

bool IsIndex(int index, std::size_t count) {
  return index >= 0 && static_cast<std::size_t>(index) < count;
}

bool IsOptionalIndex(int index, std::size_t count) { return index == -1 || IsIndex(index, count); }

bool BufferViewsValid(const GltfModel& model) {
  for (const GltfBufferView& view : model.bufferViews) {
    if (!IsIndex(view.buffer, model.buffers.size()) ||
        !RangeWithin(view.byteOffset, view.byteLength,
                     model.buffers[static_cast<std::size_t>(view.buffer)].size)) {
      return false;
    }
  }
  return true;
}

// Bytes of one component; 0 for a type that names none.
std::uint64_t ComponentSize(int componentType) {
  switch (componentType) {
    case 5120:  // byte
    case kUnsignedByte:
      return 1;
    case 5122:  // short
    case kUnsignedShort:
      return 2;
    case 5124:  // int
    case kUnsignedInt:
    case kFloat:
      return 4;
    case 5130:  // double
      return 8;
    default:
      return 0;
  }
}

// Bytes one element occupies, with matrix columns padded to 4 bytes; 0 for an unknown type.
std::uint64_t ElementSize(const GltfAccessor& accessor) {
  static constexpr std::uint64_t kComponents[] = {1, 2, 3, 4, 4, 9, 16};
  static constexpr std::uint64_t kMatrixRows[] = {0, 0, 0, 0, 2, 3, 4};
  const std::uint64_t componentSize = ComponentSize(accessor.componentType);
  const auto type = static_cast<std::size_t>(accessor.type);
  const std::uint64_t matrixRows = kMatrixRows[type];
  if (matrixRows == 0) {
    return componentSize * kComponents[type];
  }
  const std::uint64_t columnSize = (componentSize * matrixRows + 3) / 4 * 4;
  return columnSize * matrixRows;
}

// Every element of an accessor with a buffer view must lie within that view; sparse parts are
// only index-checked since they are never read.
bool AccessorsValid(const GltfModel& model) {
  for (const GltfAccessor& accessor : model.accessors) {
    const std::uint64_t elementSize = ElementSize(accessor);
    if (elementSize == 0 || accessor.count > static_cast<std::size_t>(INT_MAX) ||
        !IsOptionalIndex(accessor.bufferView, model.bufferViews.size())) {
      return false;
    }
    if (accessor.sparse && (!IsIndex(accessor.sparseIndicesView, model.bufferViews.size()) ||
                            !IsIndex(accessor.sparseValuesView, model.bufferViews.size()))) {
      return false;
    }
    if (accessor.bufferView == -1) {
      continue;
    }
    const GltfBufferView& view = model.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
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

bool MeshesValid(const GltfModel& model) {
  for (const GltfMesh& mesh : model.meshes) {
    for (const GltfPrimitive& primitive : model.Primitives(mesh)) {
      if (primitive.mode < 0 || primitive.mode > kLastPrimitiveMode ||
          !IsOptionalIndex(primitive.indices, model.accessors.size())) {
        return false;
      }
      for (const auto& attribute : model.Attributes(primitive)) {
        if (!IsIndex(attribute.accessor, model.accessors.size())) {
          return false;
        }
      }
    }
  }
  return true;
}

// The node graph must be a forest: indices in range, at most one parent per node, no cycle
// (an iterative depth-first walk with colours). `parents` receives each node's parent or -1.
bool NodesFormForest(const GltfModel& model, std::vector<int>& parents) {
  const std::size_t nodeCount = model.nodes.size();
  parents.assign(nodeCount, -1);
  for (std::size_t node = 0; node < nodeCount; ++node) {
    if (!IsOptionalIndex(model.nodes[node].mesh, model.meshes.size())) {
      return false;
    }
    for (int child : model.Indices(model.nodes[node].children)) {
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
      const auto children = model.Indices(model.nodes[node].children);
      if (path.back().second == children.size) {
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
bool SelectRoots(const GltfModel& model, const std::vector<int>& parents, std::vector<int>& roots) {
  if (!IsOptionalIndex(model.defaultScene, model.scenes.size())) {
    return false;
  }
  std::vector<std::size_t> listedInScene(model.nodes.size(), 0);  // scene number + 1
  for (std::size_t scene = 0; scene < model.scenes.size(); ++scene) {
    for (int node : model.Indices(model.scenes[scene].nodes)) {
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
  if (!model.scenes.empty()) {
    const auto nodes = model.Indices(
        model.scenes[model.defaultScene >= 0 ? static_cast<std::size_t>(model.defaultScene) : 0]
            .nodes);
    roots.assign(nodes.begin(), nodes.end());
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
bool ComposeLocalMatrix(const GltfModel& model, const GltfNode& node, double (&matrix)[16]) {
  const auto given = model.Numbers(node.matrix);
  if (given.size != 0) {
    if (given.size != 16) {
      return false;
    }
    std::copy(given.begin(), given.end(), matrix);
    return true;
  }
  const auto translation = model.Numbers(node.translation);
  const auto rotation = model.Numbers(node.rotation);
  const auto scale = model.Numbers(node.scale);
  if ((translation.size != 0 && translation.size != 3) ||
      (rotation.size != 0 && rotation.size != 4) || (scale.size != 0 && scale.size != 3)) {
    return false;
  }
  const double x = rotation.size == 0 ? 0.0 : rotation[0];
  const double y = rotation.size == 0 ? 0.0 : rotation[1];
  const double z = rotation.size == 0 ? 0.0 : rotation[2];
  const double w = rotation.size == 0 ? 1.0 : rotation[3];
  const double turn[3][3] = {
      // columns of the rotation matrix of the unit quaternion (x, y, z, w)
      {1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
      {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
      {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)},
  };
  for (int column = 0; column < 3; ++column) {
    const double factor = scale.size == 0 ? 1.0 : scale[column];
    for (int row = 0; row < 3; ++row) {
      matrix[column * 4 + row] = turn[column][row] * factor;
    }
    matrix[column * 4 + 3] = 0.0;
    matrix[12 + column] = translation.size == 0 ? 0.0 : translation[column];
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
const unsigned char* PlainElements(const GltfModel& model, const GltfAccessor& accessor,
                                   std::size_t& stride) {
  if (accessor.sparse || accessor.bufferView == -1) {
    return nullptr;
  }
  const GltfBufferView& view = model.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
  if (view.hasExtensions) {
    return nullptr;
  }
  stride = static_cast<std::size_t>(view.byteStride != 0 ? view.byteStride : ElementSize(accessor));
  return model.buffers[static_cast<std::size_t>(view.buffer)].data + view.byteOffset +
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
  AccessorArrays(const GltfModel& model, ByteBudget& budget)
      : model_(model),
        budget_(budget),
        vectors_(model.accessors.size()),
        indices_(model.accessors.size()) {}

  // x, y, z triples of a plain float VEC3 accessor, null for any other; false when they would
  // pass the budget.
  bool Vectors(int index, FloatArray& vectors) {
    FloatArray& decoded = vectors_[static_cast<std::size_t>(index)];
    const GltfAccessor& accessor = model_.accessors[static_cast<std::size_t>(index)];
    std::size_t stride = 0;
    const unsigned char* data = decoded ? nullptr : PlainElements(model_, accessor, stride);
    if (data != nullptr && accessor.componentType == kFloat &&
        accessor.type == GltfAccessorType::kVec3) {
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
    const GltfAccessor& accessor = model_.accessors[static_cast<std::size_t>(index)];
    const int type = accessor.componentType;
    std::size_t stride = 0;
    const unsigned char* data = decoded ? nullptr : PlainElements(model_, accessor, stride);
    if (data != nullptr && accessor.type == GltfAccessorType::kScalar &&
        (type == kUnsignedByte || type == kUnsignedShort || type == kUnsignedInt)) {
      const auto values = Allocate<std::uint32_t>(accessor.count);
      if (!values) {
        return false;
      }
      if (type == kUnsignedByte) {
        WidenIndices<std::uint8_t>(data, stride, *values);
      } else if (type == kUnsignedShort) {
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

  const GltfModel& model_;
  ByteBudget& budget_;
  std::vector<FloatArray> vectors_;
  std::vector<IndexArray> indices_;
};

// The accessor of the attribute `name`, or -1.
int AttributeAccessor(const GltfModel& model, const GltfPrimitive& primitive,
                      std::string_view name) {
  for (const auto& attribute : model.Attributes(primitive)) {
    if (attribute.name == name) return attribute.accessor;
  }
  return -1;
}

// Takes from `budget` the representation's own structure: the GLB copy, nodes (world matrices
// included), meshes, primitives, names and index lists. False when it does not fit.
bool TakeStructure(const GltfModel& model, std::size_t rootCount, std::size_t glbLength,
                   ByteBudget& budget) {
  if (!budget.Take(glbLength, 1) || !budget.Take(rootCount, sizeof(int)) ||
      !budget.Take(model.nodes.size(), sizeof(VEKRepNode)) ||
      !budget.Take(model.meshes.size(), sizeof(VEKRepMesh))) {
    return false;
  }
  for (const GltfNode& node : model.nodes) {
    if (!budget.Take(node.children.count, sizeof(int)) || !budget.Take(node.name.size(), 1)) {
      return false;
    }
  }
  for (const GltfMesh& mesh : model.meshes) {
    if (!budget.Take(mesh.primitives.count, sizeof(VEKRepPrimitive)) ||
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
  static std::unique_ptr<VEKRep> Build(const GltfModel& model, const unsigned char* glb,
                                       std::size_t glbLength, std::size_t blobSize) {
    auto rep = std::make_unique<VEKRep>();
    std::vector<int> parents;
    ByteBudget budget(vek_scenegraph_detail::kRepBytesPerGlbByte * glbLength +
                      vek_scenegraph_detail::kRepBaseBytes);
    if (!BufferViewsValid(model) || !AccessorsValid(model) || !MeshesValid(model) ||
        !NodesFormForest(model, parents) || !SelectRoots(model, parents, rep->roots_) ||
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
  // Names, links and matrices of every node; world matrices from the top of each tree down, in
  // breadth-first order so that a parent's comes before its children's.
  static bool FillNodes(const GltfModel& model, const std::vector<int>& parents, VEKRep& rep) {
    rep.nodes_.resize(model.nodes.size());
    std::vector<int> order;
    order.reserve(model.nodes.size());
    for (std::size_t index = 0; index < model.nodes.size(); ++index) {
      const GltfNode& source = model.nodes[index];
      VEKRepNode& node = rep.nodes_[index];
      if (!ComposeLocalMatrix(model, source, node.matrix)) {
        return false;
      }
      node.name = VEKUnicodeString(source.name.data(), source.name.size());
      node.parent = parents[index];
      node.mesh = source.mesh;
      const auto children = model.Indices(source.children);
      node.children.assign(children.begin(), children.end());
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
  static bool FillMesh(const GltfModel& model, const GltfMesh& source, AccessorArrays& arrays,
                       VEKRepMesh& mesh) {
    mesh.name = VEKUnicodeString(source.name.data(), source.name.size());
    const auto primitives = model.Primitives(source);
    mesh.primitives.resize(primitives.size);
    for (std::size_t index = 0; index < primitives.size; ++index) {
      const GltfPrimitive& primitive = primitives[index];
      VEKRepPrimitive& target = mesh.primitives[index];
      target.mode = primitive.mode;
      if (primitive.indices != -1) {
        target.indexCount =
            static_cast<int>(model.accessors[static_cast<std::size_t>(primitive.indices)].count);
        if (!arrays.Indices(primitive.indices, target.indices)) {
          return false;
        }
      }
      const int position = AttributeAccessor(model, primitive, "POSITION");
      if (position != -1) {
        target.vertexCount =
            static_cast<int>(model.accessors[static_cast<std::size_t>(position)].count);
        if (!arrays.Vectors(position, target.positions)) {
          return false;
        }
      }
      const int normal = AttributeAccessor(model, primitive, "NORMAL");
      if (normal != -1 &&
          model.accessors[static_cast<std::size_t>(normal)].count ==
              static_cast<std::uint64_t>(target.vertexCount) &&
          !arrays.Vectors(normal, target.normals)) {
        return false;
      }
    }
    return true;
  }
};

namespace vek_scenegraph_detail {

std::unique_ptr<VEKRep> BuildRep(const GltfModel& model, const unsigned char* glb,
                                 std::size_t glbLength, std::size_t blobSize) {
  return VEKSceneGraphBuilder::Build(model, glb, glbLength, blobSize);
}

}  // namespace vek_scenegraph_detail
