// The binary glTF container: a header, one JSON chunk and at most one BIN chunk.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek_scenegraph_detail {

// The parts of a well-formed container that the readers need.
struct GlbLayout {
  std::uint32_t totalLength = 0;
  const char* json = nullptr;
  std::size_t jsonLength = 0;
  const unsigned char* bin = nullptr;  // null without a BIN chunk
  std::size_t binLength = 0;
};

// Accepts a header, one JSON chunk and at most one non-empty BIN chunk that fill exactly the
// declared length (bytes after it are ignored), with chunk lengths in multiples of 4 and no byte
// order mark before the JSON. Chunks after these are refused rather than skipped, so that
// tinygltf reads exactly what was checked here. False for anything else.
bool ReadGlbLayout(const unsigned char* bytes, std::uint64_t length, GlbLayout& layout) noexcept;

}  // namespace vek_scenegraph_detail
