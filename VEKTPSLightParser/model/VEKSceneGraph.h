// Graphic representations read from binary glTF 2.0 (GLB) scene graphs held in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "VEKExport.h"
#include "VEKTypes.h"
#include "VEKUnicodeString.h"

// One drawable piece of a mesh. An array read from one accessor is shared by every primitive
// that uses it, as positions or normals alike.
struct VEKRepPrimitive {
  // glTF primitive mode: 0 points, 1 lines, 2 line loop, 3 line strip, 4 triangles, 5 triangle
  // strip, 6 triangle fan.
  int mode = 4;
  // Number of vertices (count of the POSITION accessor; 0 without one).
  int vertexCount = 0;
  // Number of indices (0 for a non-indexed primitive).
  int indexCount = 0;
  // Vertex positions as x, y, z triples: 3 * vertexCount floats when they could be read (a plain
  // float VEC3 accessor over a buffer view), null otherwise.
  std::shared_ptr<const std::vector<float>> positions;
  // Vertex normals (NORMAL) as x, y, z triples, 3 * vertexCount floats, when they could be read
  // like positions and their accessor has vertexCount elements; null otherwise.
  std::shared_ptr<const std::vector<float>> normals;
  // The indices widened to 32 bits, indexCount values, when they could be read (unsigned byte,
  // short or int scalars over a buffer view); null for a non-indexed primitive and for indices
  // that could not be read. Values are as stored, so one may be vertexCount or more.
  std::shared_ptr<const std::vector<std::uint32_t>> indices;
};

struct VEKRepMesh {
  VEKUnicodeString name;
  std::vector<VEKRepPrimitive> primitives;
};

struct VEKRepNode {
  VEKUnicodeString name;
  // Local transform, column-major 4x4 (from the node's matrix, or its translation, rotation and
  // scale); identity when the node gives none.
  double matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  // World transform, column-major: the parent's world matrix times `matrix`, so the product of
  // the local matrices from the top of the node's tree down to it.
  double worldMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  // Index into VEKRep::GetNodes() of the node that lists this one as a child, or -1.
  int parent = -1;
  // Index into VEKRep::GetMeshes(), or -1.
  int mesh = -1;
  // Indices into VEKRep::GetNodes().
  std::vector<int> children;
};

// A scene graph: the nodes form acyclic trees, each node with at most one parent; the roots are
// those of the default scene (or of the first scene); every index is within range.
class VEK_API VEKRep {
 public:
  VEKRep() noexcept;
  ~VEKRep();
  VEKRep(const VEKRep&) = delete;
  VEKRep& operator=(const VEKRep&) = delete;

  // Size in bytes of the blob the representation was read from.
  std::size_t GetBlobSize() const noexcept { return blobSize_; }
  // The GLB itself, for a host's own glTF loader: the blob's first bytes, as many as its header
  // declares (bytes after them are not kept).
  const std::vector<unsigned char>& GetGlb() const noexcept { return glb_; }
  // Bytes the representation holds: nodes, meshes, arrays (a shared one once) and the GLB. Never
  // more than 8 * GetGlb().size() + 65536: a blob whose representation would need more is refused.
  std::size_t GetHeldBytes() const noexcept { return heldBytes_; }
  const std::vector<VEKRepNode>& GetNodes() const noexcept { return nodes_; }
  // The scene's root nodes, indices into GetNodes().
  const std::vector<int>& GetRootNodes() const noexcept { return roots_; }
  const std::vector<VEKRepMesh>& GetMeshes() const noexcept { return meshes_; }

 private:
  friend class VEKSceneGraphBuilder;
  std::size_t blobSize_ = 0;
  std::size_t heldBytes_ = 0;
  std::vector<unsigned char> glb_;
  std::vector<VEKRepNode> nodes_;
  std::vector<int> roots_;
  std::vector<VEKRepMesh> meshes_;
};

// Builds a representation from a GLB blob of `length` bytes; the caller owns the result
// (release with delete). Returns null for a null or malformed blob, one that refers to anything
// outside itself (external files, URIs other than embedded data), one whose indices, offsets or
// lengths are out of range, one whose node graph has a cycle, JSON nested too deep, one whose
// representation would hold more than GetHeldBytes() allows, or when memory runs out. Never
// touches the file system or the network, never decodes images.
[[nodiscard]] VEK_API VEKRep* VEKReadSceneGraph(char* bytes, int length) noexcept;

// World-space triangles of the meshes that the scene shows (those of GetRootNodes() and the
// nodes below them, depth first, each primitive in order), from triangle lists, strips and fans,
// indexed or not: 9 floats per triangle, its corners' x, y, z. A triangle naming a vertex that
// the positions do not hold is skipped, and so is a primitive whose positions or indices could
// not be read. `out` receives them: S_OK; E_OUTOFMEMORY, `out` empty, when they would take more
// than 32 * GetHeldBytes() bytes (a mesh shown by very many nodes) or memory runs out.
[[nodiscard]] VEK_API HRESULT VEKRepTriangles(const VEKRep& rep, std::vector<float>& out) noexcept;

// The same for line segments, 6 floats each, from line lists, loops and strips.
[[nodiscard]] VEK_API HRESULT VEKRepLines(const VEKRep& rep, std::vector<float>& out) noexcept;
