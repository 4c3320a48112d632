// World-space triangles and line segments of a representation, for hosts that draw it.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "VEKSceneGraph.h"

namespace {

// The output may take this many bytes per byte the representation holds. One instance of a
// primitive gives at most 36 bytes per index (a strip) from the 4 its widened array holds, and
// usually 12 (a triangle list); the rest allows a mesh shown by several nodes.
constexpr std::uint64_t kOutputBytesPerHeldByte = 32;

enum Mode : int {
  kLines = 1,
  kLineLoop = 2,
  kLineStrip = 3,
  kTriangles = 4,
  kTriangleStrip = 5,
  kTriangleFan = 6
};

// The elements a helper hands out: triangles or segments, and the modes that draw them.
struct Shape {
  std::size_t corners;
  int firstMode;
  int lastMode;
};
constexpr Shape kTriangleShape{3, kTriangles, kTriangleFan};
constexpr Shape kLineShape{2, kLines, kLineStrip};

// How many elements `mode` draws from a sequence of n vertices.
std::size_t ElementCount(int mode, std::size_t n) {
  switch (mode) {
    case kLines:
      return n / 2;
    case kLineLoop:
      return n >= 2 ? n : 0;
    case kLineStrip:
      return n >= 2 ? n - 1 : 0;
    case kTriangles:
      return n / 3;
    case kTriangleStrip:
    case kTriangleFan:
      return n >= 3 ? n - 2 : 0;
    default:
      return 0;
  }
}

// Positions in the vertex sequence of n vertices of element `i`'s corners; strips alternate
// their winding so that every triangle faces the same way.
void ElementCorners(int mode, std::size_t i, std::size_t n, std::size_t (&corner)[3]) {
  switch (mode) {
    case kLines:
      corner[0] = 2 * i, corner[1] = 2 * i + 1;
      break;
    case kLineLoop:
      corner[0] = i, corner[1] = (i + 1) % n;
      break;
    case kLineStrip:
      corner[0] = i, corner[1] = i + 1;
      break;
    case kTriangles:
      corner[0] = 3 * i, corner[1] = 3 * i + 1, corner[2] = 3 * i + 2;
      break;
    case kTriangleStrip:
      corner[0] = i, corner[1] = i + 1 + i % 2, corner[2] = i + 2 - i % 2;
      break;
    default:  // kTriangleFan
      corner[0] = i + 1, corner[1] = i + 2, corner[2] = 0;
      break;
  }
}

// The length of a primitive's vertex sequence (its indices, or its vertices when it has none);
// 0 when it draws no element of `shape` or its positions or indices could not be read.
std::size_t SequenceLength(const VEKRepPrimitive& primitive, const Shape& shape) {
  if (primitive.mode < shape.firstMode || primitive.mode > shape.lastMode || !primitive.positions) {
    return 0;
  }
  if (primitive.indices) {
    return primitive.indices->size();
  }
  return primitive.indexCount == 0 ? primitive.positions->size() / 3 : 0;
}

// The nodes under the roots, depth first, each before its children.
std::vector<int> ShownNodes(const VEKRep& rep) {
  std::vector<int> shown;
  std::vector<int> pending(rep.GetRootNodes().rbegin(), rep.GetRootNodes().rend());
  while (!pending.empty()) {
    const int node = pending.back();
    pending.pop_back();
    shown.push_back(node);
    const std::vector<int>& children = rep.GetNodes()[static_cast<std::size_t>(node)].children;
    pending.insert(pending.end(), children.rbegin(), children.rend());
  }
  return shown;
}

// Appends `primitive`'s elements of `shape`, placed by `world`, skipping those that name a vertex
// the positions do not hold.
void AppendElements(const VEKRepPrimitive& primitive, const Shape& shape, const double (&world)[16],
                    std::vector<float>& out) {
  const std::size_t n = SequenceLength(primitive, shape);
  if (n == 0) {
    return;
  }
  const std::vector<float>& positions = *primitive.positions;
  const std::size_t vertexCount = positions.size() / 3;
  for (std::size_t element = 0; element < ElementCount(primitive.mode, n); ++element) {
    std::size_t corner[3] = {};
    ElementCorners(primitive.mode, element, n, corner);
    std::size_t vertex[3] = {};
    bool inRange = true;
    for (std::size_t c = 0; c < shape.corners; ++c) {
      vertex[c] = primitive.indices ? (*primitive.indices)[corner[c]] : corner[c];
      inRange = inRange && vertex[c] < vertexCount;
    }
    if (!inRange) {
      continue;
    }
    for (std::size_t c = 0; c < shape.corners; ++c) {
      const float* p = &positions[vertex[c] * 3];
      for (int row = 0; row < 3; ++row) {
        out.push_back(static_cast<float>(world[row] * p[0] + world[4 + row] * p[1] +
                                         world[8 + row] * p[2] + world[12 + row]));
      }
    }
  }
}

HRESULT CollectElements(const VEKRep& rep, const Shape& shape, std::vector<float>& out) noexcept {
  out.clear();
  try {
    const std::vector<int> shown = ShownNodes(rep);
    std::uint64_t elements = 0;
    for (const int index : shown) {
      const VEKRepNode& node = rep.GetNodes()[static_cast<std::size_t>(index)];
      if (node.mesh == -1) continue;
      for (const VEKRepPrimitive& primitive :
           rep.GetMeshes()[static_cast<std::size_t>(node.mesh)].primitives) {
        elements += ElementCount(primitive.mode, SequenceLength(primitive, shape));
      }
    }
    const std::uint64_t floatsPerElement = shape.corners * 3;
    if (elements >
        kOutputBytesPerHeldByte * rep.GetHeldBytes() / sizeof(float) / floatsPerElement) {
      return E_OUTOFMEMORY;
    }
    out.reserve(elements * floatsPerElement);
    for (const int index : shown) {
      const VEKRepNode& node = rep.GetNodes()[static_cast<std::size_t>(index)];
      if (node.mesh == -1) continue;
      for (const VEKRepPrimitive& primitive :
           rep.GetMeshes()[static_cast<std::size_t>(node.mesh)].primitives) {
        AppendElements(primitive, shape, node.worldMatrix, out);
      }
    }
    return S_OK;
  } catch (...) {
    out.clear();
    return E_OUTOFMEMORY;
  }
}

}  // namespace

HRESULT VEKRepTriangles(const VEKRep& rep, std::vector<float>& out) noexcept {
  return CollectElements(rep, kTriangleShape, out);
}

HRESULT VEKRepLines(const VEKRep& rep, std::vector<float>& out) noexcept {
  return CollectElements(rep, kLineShape, out);
}
