// The JSON of a GLB read into the model a representation is built from, in one pass.
#pragma once

#include <string_view>

#include "GlbContainer.h"
#include "GltfModel.h"

namespace vek_scenegraph_detail {

// Deepest nesting of the JSON read, the document counting as one level.
constexpr int kMaxJsonDepth = 64;

// Reads the JSON chunk of `layout` into the empty `model`, with the BIN chunk for the buffers
// that name no URI. False for JSON that is malformed or nested deeper than 64 levels, for what
// tinygltf's loader refuses, and for what the representation cannot take: an external file, an
// index that tinygltf would wrap to 32 bits, an image whose buffer view lies outside its buffer,
// more nodes than a representation of the blob can hold.
// Sections the representation never reads (materials, textures, samplers, animations, skins,
// cameras, lights) are only checked to be JSON. May throw std::bad_alloc.
[[nodiscard]] bool ReadGltf(const GlbLayout& layout, GltfModel& model);

// The base64 text of a data URI of one of the media types tinygltf takes as embedded data; false
// for any other URI, which names a file.
bool DataUriPayload(std::string_view uri, std::string_view& payload);

}  // namespace vek_scenegraph_detail
