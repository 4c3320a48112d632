// Carries GLB blobs into one glTF document: the resources of each distinct blob (meshes, accessors,
// buffer views, materials, textures, images, samplers) once, re-indexed into the document's arrays
// and its one BIN buffer, and a copy of the blob's node trees for every use.
#pragma once

#include <cstddef>
#include <map>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

// Objects keyed by a sorted map: a blob's JSON may hold objects of very many members, which an
// insertion-ordered map would look up in linear time.
using VEKJson = nlohmann::json;

class VEKGltfCarrier {
 public:
  // `gltf` is the document whose arrays grow, `bin` its buffer; both outlive the carrier.
  VEKGltfCarrier(VEKJson& gltf, std::vector<unsigned char>& bin) noexcept
      : gltf_(gltf), bin_(bin) {}

  // Appends a copy of the node trees of `glb` to the document's nodes and sets `roots` to their
  // roots' indices; false, with nothing appended, when the blob cannot be carried. The bytes must
  // stay alive and unchanged while the carrier lives. std::bad_alloc passes through.
  [[nodiscard]] bool Carry(const std::vector<unsigned char>& glb, std::vector<int>& roots);

 private:
  struct Blob {
    bool carried = false;
    VEKJson nodes;             // the blob's nodes, checked, as written
    std::vector<int> roots;    // indices into `nodes`
    std::size_t meshBase = 0;  // index of the blob's first mesh in the document
  };

  void AddResources(std::string_view glb, Blob& blob);

  VEKJson& gltf_;
  std::vector<unsigned char>& bin_;
  // Blobs by their bytes: identical blobs share their resources. Ordered, so that a lookup costs
  // at most a logarithmic number of comparisons whatever the bytes.
  std::map<std::string_view, Blob> blobs_;
};
