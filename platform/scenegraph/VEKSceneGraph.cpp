// Reads binary glTF 2.0 (GLB) blobs into VEKRep: the container is checked, its JSON read once
// into the model (GltfReader.cpp), and every index, offset and length of the model checked again
// before it is followed (RepBuilder.cpp).
#include "VEKSceneGraph.h"

#include "GlbContainer.h"
#include "GltfReader.h"
#include "RepBuilder.h"

#include <cstdint>
#include <memory>

VEKRep::VEKRep() noexcept = default;

VEKRep::~VEKRep() = default;

VEKRep* VEKReadSceneGraph(char* bytes, int length) noexcept {
  try {
    if (bytes == nullptr || length <= 0) {
      return nullptr;
    }
    const auto* blob = reinterpret_cast<const unsigned char*>(bytes);
    vek_scenegraph_detail::GlbLayout layout;
    vek_scenegraph_detail::GltfModel model;
    if (!vek_scenegraph_detail::ReadGlbLayout(blob, static_cast<std::uint64_t>(length), layout) ||
        !vek_scenegraph_detail::ReadGltf(layout, model)) {
      return nullptr;
    }
    return vek_scenegraph_detail::BuildRep(model, blob, layout.totalLength,
                                           static_cast<std::size_t>(length))
        .release();
  } catch (...) {
    // Memory ran out.
    return nullptr;
  }
}
