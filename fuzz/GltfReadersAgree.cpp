#include "GltfReadersAgree.h"

#include <cstring>
#include <string>
#include <vector>

#include <tiny_gltf.h>

#include "GlbContainer.h"
#include "GltfSubsetReader.h"

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
    return read && SameBuffersAndViews(direct, full) && SameAccessors(direct, full) &&
                   SameMeshes(direct, full) && SameNodesAndScenes(direct, full)
               ? GltfReadersVerdict::kAgree
               : GltfReadersVerdict::kDisagree;
  } catch (...) {
    return GltfReadersVerdict::kDisagree;
  }
}

}  // namespace vek_fuzz
