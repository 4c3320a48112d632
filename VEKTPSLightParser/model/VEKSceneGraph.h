// Graphic representations read from binary glTF 2.0 (GLB) scene graphs held in memory.
#pragma once

#include <cstddef>
#include <vector>

#include "VEKExport.h"
#include "VEKUnicodeString.h"

// One drawable piece of a mesh.
struct VEKRepPrimitive {
  // glTF primitive mode: 0 points, 1 lines, 2 line loop, 3 line strip, 4 triangles, 5 triangle
  // strip, 6 triangle fan.
  int mode = 4;
  // Number of vertices (count of the POSITION accessor; 0 without one).
  int vertexCount = 0;
  // Number of indices (0 for a non-indexed primitive).
  int indexCount = 0;
  // Vertex positions as x, y, z triples: 3 * vertexCount floats when they could be read (a plain
  // float VEC3 accessor over a buffer view), empty otherwise.
  std::vector<float> positions;
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
  // Index into VEKRep::GetMeshes(), or -1.
  int mesh = -1;
  // Indices into VEKRep::GetNodes().
  std::vector<int> children;
};

// A scene graph: the nodes of the default scene (or of the first scene) and everything below
// them form an acyclic tree; every index is within range.
class VEK_API VEKRep {
 public:
  VEKRep() noexcept;
  ~VEKRep();
  VEKRep(const VEKRep&) = delete;
  VEKRep& operator=(const VEKRep&) = delete;

  // Size in bytes of the blob the representation was read from.
  std::size_t GetBlobSize() const noexcept { return blobSize_; }
  const std::vector<VEKRepNode>& GetNodes() const noexcept { return nodes_; }
  // The scene's root nodes, indices into GetNodes().
  const std::vector<int>& GetRootNodes() const noexcept { return roots_; }
  const std::vector<VEKRepMesh>& GetMeshes() const noexcept { return meshes_; }

 private:
  friend class VEKSceneGraphBuilder;
  std::size_t blobSize_ = 0;
  std::vector<VEKRepNode> nodes_;
  std::vector<int> roots_;
  std::vector<VEKRepMesh> meshes_;
};

// Builds a representation from a GLB blob of `length` bytes; the caller owns the result
// (release with delete). Returns null for a null or malformed blob, one that refers to anything
// outside itself (external files, URIs other than embedded data), one whose indices, offsets or
// lengths are out of range, one whose node graph has a cycle, JSON nested too deep, or when memory
// runs out. Never touches the file system or the network, never decodes images.
VEK_API VEKRep* VEKReadSceneGraph(char* bytes, int length) noexcept;
