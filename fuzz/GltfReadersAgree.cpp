#include "GltfReadersAgree.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <tiny_gltf.h>

#include "GlbContainer.h"
#include "GltfSubsetReader.h"
#include "RepBuilder.h"
#include "VEKSceneGraph.h"

namespace vek_fuzz {
namespace {

// Doubles compare by their bits, so that a 0.0 read as -0.0 (or a NaN) is a difference too.
bool SameNumbers(const std::vector<double>& left, const std::vector<double>& right) {
  return left.size() == right.size() &&
         (left.empty() ||
          std::memcmp(left.data(), right.data(), left.size() * sizeof(double)) == 0);
}

bool SameBuffersAndViews(const tinygltf::Model& left, const tinygltf::Model& right) {
  if (left.buffers.size() != right.buffers.size() ||
      left.bufferViews.size() != right.bufferViews.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.buffers.size(); ++index) {
    if (left.buffers[index].data != right.buffers[index].data ||
        left.buffers[index].uri != right.buffers[index].uri) {
      return false;
    }
  }
  for (std::size_t index = 0; index < left.bufferViews.size(); ++index) {
    const tinygltf::BufferView& a = left.bufferViews[index];
    const tinygltf::BufferView& b = right.bufferViews[index];
    if (a.buffer != b.buffer || a.byteOffset != b.byteOffset || a.byteLength != b.byteLength ||
        a.byteStride != b.byteStride || a.extensions.size() != b.extensions.size()) {
      return false;
    }
  }
  return true;
}

bool SameAccessors(const tinygltf::Model& left, const tinygltf::Model& right) {
  if (left.accessors.size() != right.accessors.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.accessors.size(); ++index) {
    const tinygltf::Accessor& a = left.accessors[index];
    const tinygltf::Accessor& b = right.accessors[index];
    if (a.bufferView != b.bufferView || a.byteOffset != b.byteOffset ||
        a.normalized != b.normalized || a.componentType != b.componentType || a.count != b.count ||
        a.type != b.type || a.sparse.isSparse != b.sparse.isSparse) {
      return false;
    }
  }
  return true;
}

bool SameMeshes(const tinygltf::Model& left, const tinygltf::Model& right) {
  if (left.meshes.size() != right.meshes.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.meshes.size(); ++index) {
    const tinygltf::Mesh& a = left.meshes[index];
    const tinygltf::Mesh& b = right.meshes[index];
    if (a.name != b.name || a.primitives.size() != b.primitives.size()) {
      return false;
    }
    for (std::size_t primitive = 0; primitive < a.primitives.size(); ++primitive) {
      const tinygltf::Primitive& p = a.primitives[primitive];
      const tinygltf::Primitive& q = b.primitives[primitive];
      if (p.mode != q.mode || p.indices != q.indices || p.attributes != q.attributes) {
        return false;
      }
    }
  }
  return true;
}

bool SameNodesAndScenes(const tinygltf::Model& left, const tinygltf::Model& right) {
  if (left.nodes.size() != right.nodes.size() || left.scenes.size() != right.scenes.size() ||
      left.defaultScene != right.defaultScene || left.images.size() != right.images.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.nodes.size(); ++index) {
    const tinygltf::Node& a = left.nodes[index];
    const tinygltf::Node& b = right.nodes[index];
    if (a.name != b.name || a.mesh != b.mesh || a.children != b.children ||
        !SameNumbers(a.matrix, b.matrix) || !SameNumbers(a.translation, b.translation) ||
        !SameNumbers(a.rotation, b.rotation) || !SameNumbers(a.scale, b.scale)) {
      return false;
    }
  }
  for (std::size_t index = 0; index < left.scenes.size(); ++index) {
    if (left.scenes[index].nodes != right.scenes[index].nodes) {
      return false;
    }
  }
  return true;
}

// Arrays compare by their bytes, so that floats differing only in sign or NaN payload differ too.
template <typename Value>
bool SameArrays(const std::shared_ptr<const std::vector<Value>>& left,
                const std::shared_ptr<const std::vector<Value>>& right) {
  if (!left || !right) {
    return !left && !right;
  }
  return left->size() == right->size() &&
         (left->empty() ||
          std::memcmp(left->data(), right->data(), left->size() * sizeof(Value)) == 0);
}

bool SameRepMeshes(const VEKRep& left, const VEKRep& right) {
  if (left.GetMeshes().size() != right.GetMeshes().size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.GetMeshes().size(); ++index) {
    const VEKRepMesh& a = left.GetMeshes()[index];
    const VEKRepMesh& b = right.GetMeshes()[index];
    if (a.name != b.name || a.primitives.size() != b.primitives.size()) {
      return false;
    }
    for (std::size_t primitive = 0; primitive < a.primitives.size(); ++primitive) {
      const VEKRepPrimitive& p = a.primitives[primitive];
      const VEKRepPrimitive& q = b.primitives[primitive];
      if (p.mode != q.mode || p.vertexCount != q.vertexCount || p.indexCount != q.indexCount ||
          !SameArrays(p.positions, q.positions) || !SameArrays(p.normals, q.normals) ||
          !SameArrays(p.indices, q.indices)) {
        return false;
      }
    }
  }
  return true;
}

bool SameRepNodes(const VEKRep& left, const VEKRep& right) {
  if (left.GetNodes().size() != right.GetNodes().size() ||
      left.GetRootNodes() != right.GetRootNodes()) {
    return false;
  }
  for (std::size_t index = 0; index < left.GetNodes().size(); ++index) {
    const VEKRepNode& a = left.GetNodes()[index];
    const VEKRepNode& b = right.GetNodes()[index];
    if (a.name != b.name || a.parent != b.parent || a.mesh != b.mesh || a.children != b.children ||
        std::memcmp(a.matrix, b.matrix, sizeof a.matrix) != 0 ||
        std::memcmp(a.worldMatrix, b.worldMatrix, sizeof a.worldMatrix) != 0) {
      return false;
    }
  }
  return true;
}

// Every value a host reads from two representations of one blob (the blob and the GLB copy are
// the same by construction), or that both were refused.
bool SameReps(const VEKRep* left, const VEKRep* right) {
  if (left == nullptr || right == nullptr) {
    return left == right;
  }
  return left->GetHeldBytes() == right->GetHeldBytes() && SameRepNodes(*left, *right) &&
         SameRepMeshes(*left, *right);
}

bool RefuseReadWholeFile(std::vector<unsigned char>*, std::string*, const std::string&, void*) {
  return false;
}

}  // namespace

GltfReadersVerdict CompareGltfReaders(const std::uint8_t* data, std::size_t size) noexcept {
  try {
    vek_scenegraph_detail::GlbLayout layout;
    if (!vek_scenegraph_detail::ReadGlbLayout(data, size, layout)) {
      return GltfReadersVerdict::kDeclined;
    }
    tinygltf::Model direct;
    if (!vek_scenegraph_detail::ReadCommonGltf(layout.json, layout.jsonLength, layout.bin,
                                               layout.binLength, direct)) {
      return GltfReadersVerdict::kDeclined;
    }
    tinygltf::TinyGLTF loader;
    // Nothing the direct reader accepts names a file; should tinygltf look for one, it fails.
    loader.SetFsCallbacks(
        tinygltf::FsCallbacks{nullptr, nullptr, &RefuseReadWholeFile, nullptr, nullptr});
    tinygltf::Model full;
    std::string error;
    std::string warning;
    const bool read =
        loader.LoadBinaryFromMemory(&full, &error, &warning, data, layout.totalLength);
    if (!read || !SameBuffersAndViews(direct, full) || !SameAccessors(direct, full) ||
        !SameMeshes(direct, full) || !SameNodesAndScenes(direct, full)) {
      return GltfReadersVerdict::kDisagree;
    }
    // The models agree on what the representation is built from; the representations must agree
    // on everything built from that (positions, normals, indices, world matrices, sharing).
    const auto directRep = vek_scenegraph_detail::BuildRep(direct, data, layout.totalLength, size);
    const auto fullRep = vek_scenegraph_detail::BuildRep(full, data, layout.totalLength, size);
    return SameReps(directRep.get(), fullRep.get()) ? GltfReadersVerdict::kAgree
                                                    : GltfReadersVerdict::kDisagree;
  } catch (...) {
    return GltfReadersVerdict::kDisagree;
  }
}

}  // namespace vek_fuzz
