// From a glTF model to the representation a host reads: every index, offset and length the model
// gives is checked before it is followed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "GltfModel.h"

class VEKRep;

namespace vek_scenegraph_detail {

// A representation holds at most this many bytes per byte of its GLB, plus kRepBaseBytes.
constexpr std::uint64_t kRepBytesPerGlbByte = 8;
constexpr std::uint64_t kRepBaseBytes = 64 * 1024;

// The most nodes a representation of a GLB of `glbLength` bytes can hold; a model with more is
// refused.
std::uint64_t MaxRepNodes(std::size_t glbLength);

// Whether [offset, offset + size) lies within `limit` bytes, without overflow.
bool RangeWithin(std::uint64_t offset, std::uint64_t size, std::uint64_t limit);

// The representation of `model`, which was read from the GLB [glb, glb + glbLength) found at the
// start of a blob of `blobSize` bytes. Null when an index, offset or length is out of range, the
// node graph is not a forest, or the representation would hold more than the bound above. Throws
// std::bad_alloc when memory runs out. The caller links VEKSceneGraph, which defines VEKRep.
std::unique_ptr<VEKRep> BuildRep(const GltfModel& model, const unsigned char* glb,
                                 std::size_t glbLength, std::size_t blobSize);

}  // namespace vek_scenegraph_detail
