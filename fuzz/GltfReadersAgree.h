// Runs the direct reader of the common glTF shape and tinygltf side by side on one blob.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek_fuzz {

enum class GltfReadersVerdict {
  kDeclined,  // not a well-formed container, or the direct reader left the blob to tinygltf
  kAgree,     // both read it, into the same values wherever the scene graph looks, and the
              // representations built from the two agree in every value (or both are refused)
  kDisagree,  // the direct reader read it, and tinygltf refused it or read other values
};

// Compares the two readers on the GLB [data, data + size).
GltfReadersVerdict CompareGltfReaders(const std::uint8_t* data, std::size_t size) noexcept;

}  // namespace vek_fuzz
