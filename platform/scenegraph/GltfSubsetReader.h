// A fast reader for the JSON of the scene graphs that annotation documents carry, which fills a
// tinygltf model exactly as tinygltf's own loader would, or declines.
#pragma once

#include <cstddef>

namespace tinygltf {
class Model;
}

namespace vek_scenegraph_detail {

// Reads the JSON chunk [json, json + jsonLength) of a GLB whose BIN chunk is [bin, bin +
// binLength) into the empty `model`, for the shape that meshes exported for annotations take:
// an asset, buffers held in the BIN chunk, buffer views, accessors, meshes, nodes and scenes,
// with members of the expected types, ASCII strings without escapes and no member given twice.
// True when the blob has that shape and tinygltf's loader would accept it: `model` then holds
// what that loader would put in the buffers, views, accessors, meshes, nodes, scenes and default
// scene, except the asset's strings and the accessors' bounds, which nothing reads. False for
// anything else, `model` left partly filled: the caller then loads the blob with tinygltf, which
// makes the decision. May throw std::bad_alloc.
bool ReadCommonGltf(const char* json, std::size_t jsonLength, const unsigned char* bin,
                    std::size_t binLength, tinygltf::Model& model);

}  // namespace vek_scenegraph_detail
