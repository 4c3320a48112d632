// Our glTF reader against tinygltf's loader, its oracle, on one blob.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek_fuzz {

enum class GltfReadersVerdict {
  kBothRead,    // both read it into the same values wherever the representation looks, and build
                // the same representation
  kBothRefuse,  // both refuse it (our reader, or the checks of the representation after it)
  // Our reader decides by a rule of its own (the README's design notes): it refuses what tinygltf
  // reads (the container, nesting beyond 64, a URI naming a file, an image view outside its
  // buffer, an integer that tinygltf wraps to 32 bits, data URI text our base64 codec refuses)...
  kRefusedByOurRule,
  // ...or reads what tinygltf refuses only for what the representation never reads (materials,
  // textures, samplers, animations, skins, cameras, lights, images' data) or for the way its own
  // decoder reads a buffer's data URI.
  kReadByOurRule,
  kDisagree,  // anything else: a fault in one of the two
};

// Compares the two readers on the GLB [data, data + size).
GltfReadersVerdict CompareGltfReaders(const std::uint8_t* data, std::size_t size) noexcept;

}  // namespace vek_fuzz
