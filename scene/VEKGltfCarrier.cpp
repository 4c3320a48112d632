#include "VEKGltfCarrier.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "GlbContainer.h"

using vek_scenegraph_detail::GlbLayout;

namespace {

// Thrown while a blob is read when it cannot be carried; never leaves this file.
struct Uncarried {};

void Require(bool condition) {
  if (!condition) throw Uncarried{};
}

std::uint32_t Read32(const unsigned char* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

const VEKJson& Items(const VEKJson& gltf, const char* key) {
  static const VEKJson kNone = VEKJson::array();
  const auto found = gltf.find(key);
  if (found == gltf.end()) return kNone;
  Require(found->is_array());
  return *found;
}

// Member `key` as an index below `limit`; -1 when absent.
std::int64_t Index(const VEKJson& object, const char* key, std::size_t limit) {
  const auto found = object.find(key);
  if (found == object.end()) return -1;
  Require(found->is_number_unsigned() && found->get<std::uint64_t>() < limit);
  return found->get<std::int64_t>();
}

std::uint64_t Count(const VEKJson& object, const char* key, std::uint64_t absent) {
  const auto found = object.find(key);
  if (found == object.end()) return absent;
  Require(found->is_number_unsigned());
  return found->get<std::uint64_t>();
}

enum class Kind { Count, Number, String, Bool, Numbers, Object, Any };

bool Is(const VEKJson& value, Kind kind) {
  switch (kind) {
    case Kind::Count:
      return value.is_number_unsigned();
    case Kind::Number:
      return value.is_number() && std::isfinite(value.get<double>());
    case Kind::String:
      return value.is_string();
    case Kind::Bool:
      return value.is_boolean();
    case Kind::Numbers:
      return value.is_array() && std::all_of(value.begin(), value.end(),
                                             [](const VEKJson& v) { return Is(v, Kind::Number); });
    case Kind::Object:
      return value.is_object();
    case Kind::Any:
      return true;
  }
  return false;
}

struct Member {
  const char* key;
  Kind kind;
};

// Copies the members of `from` named in `members`, each of its expected kind; anything else
// (extensions above all, whose indices cannot be re-indexed blindly) is left behind.
void CopyMembers(const VEKJson& from, VEKJson& to, std::initializer_list<Member> members) {
  Require(from.is_object());
  for (const Member& member : members) {
    const auto found = from.find(member.key);
    if (found == from.end()) continue;
    Require(Is(*found, member.kind));
    to[member.key] = *found;
  }
}

// Sets member `key` of `to` to `base` plus the index `key` of `from`, which must be below `limit`.
void Reindex(const VEKJson& from, VEKJson& to, const char* key, std::size_t limit,
             std::size_t base) {
  const std::int64_t index = Index(from, key, limit);
  if (index >= 0) to[key] = base + static_cast<std::size_t>(index);
}

int ComponentSize(std::uint64_t componentType) {
  switch (componentType) {
    case 5120:
    case 5121:
      return 1;
    case 5122:
    case 5123:
      return 2;
    case 5125:
    case 5126:
      return 4;
    default:
      return 0;
  }
}

int Components(const std::string& type) {
  static const std::pair<const char*, int> kTypes[] = {
      {"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4}, {"MAT2", 4}, {"MAT3", 9}, {"MAT4", 16}};
  for (const auto& [name, count] : kTypes) {
    if (type == name) return count;
  }
  return 0;
}

// An accessor of the source blob, its bytes located in the BIN chunk (null without a buffer
// view: its values are zeros).
struct Accessor {
  std::uint64_t count = 0;
  std::uint64_t componentType = 0;
  int components = 0;
  const unsigned char* data = nullptr;
  std::uint64_t stride = 0;
};

class BlobReader {
 public:
  BlobReader(const VEKJson& source, const GlbLayout& container)
      : source_(source), container_(container) {}

  Accessor Read(std::size_t index) const {
    const VEKJson& accessor = Items(source_, "accessors")[index];
    Accessor out;
    out.count = Count(accessor, "count", 0);
    out.componentType = Count(accessor, "componentType", 0);
    Require(accessor.contains("type") && accessor["type"].is_string());
    out.components = Components(accessor["type"].get<std::string>());
    const int size = ComponentSize(out.componentType);
    Require(out.count > 0 && size > 0 && out.components > 0 && !accessor.contains("sparse"));
    const std::uint64_t element = static_cast<std::uint64_t>(size) * out.components;
    const std::int64_t viewIndex =
        Index(accessor, "bufferView", Items(source_, "bufferViews").size());
    if (viewIndex < 0) return out;
    const VEKJson& view = Items(source_, "bufferViews")[viewIndex];
    out.stride = Count(view, "byteStride", element);
    const std::uint64_t offset = Count(accessor, "byteOffset", 0);
    const std::uint64_t length = Count(view, "byteLength", 0);
    // In this order no sum or product can wrap around.
    Require(out.stride >= element && offset % size == 0 && offset <= length &&
            element <= length - offset &&
            out.count - 1 <= (length - offset - element) / out.stride);
    out.data = container_.bin + Count(view, "byteOffset", 0) + offset;
    return out;
  }

 private:
  const VEKJson& source_;
  const GlbLayout& container_;
};

std::uint32_t IndexValue(const Accessor& indices, std::uint64_t k) {
  const unsigned char* at = indices.data + k * indices.stride;
  switch (indices.componentType) {
    case 5121:
      return at[0];
    case 5123:
      return static_cast<std::uint32_t>(at[0] | at[1] << 8);
    default:
      return Read32(at);
  }
}

float FloatAt(const unsigned char* at) {
  const std::uint32_t bits = Read32(at);
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// glTF requires exact bounds on positions; they are taken from the data, not trusted.
void SetPositionBounds(const Accessor& positions, VEKJson& accessor) {
  Require(positions.componentType == 5126 && positions.components == 3);
  float low[3] = {0, 0, 0}, high[3] = {0, 0, 0};
  if (positions.data) {
    for (int axis = 0; axis < 3; ++axis) {
      low[axis] = std::numeric_limits<float>::infinity();
      high[axis] = -std::numeric_limits<float>::infinity();
    }
    for (std::uint64_t k = 0; k < positions.count; ++k) {
      for (int axis = 0; axis < 3; ++axis) {
        const float value = FloatAt(positions.data + k * positions.stride + 4 * axis);
        Require(std::isfinite(value));
        low[axis] = std::min(low[axis], value);
        high[axis] = std::max(high[axis], value);
      }
    }
  }
  accessor["min"] = {low[0], low[1], low[2]};
  accessor["max"] = {high[0], high[1], high[2]};
}

}  // namespace

void VEKGltfCarrier::AddResources(std::string_view glb, Blob& blob) {
  GlbLayout container;
  Require(vek_scenegraph_detail::ReadGlbLayout(reinterpret_cast<const unsigned char*>(glb.data()),
                                               glb.size(), container));
  const VEKJson source = VEKJson::parse(container.json, container.json + container.jsonLength,
                                        nullptr, /*allow_exceptions=*/false);
  Require(source.is_object() && Items(source, "extensionsRequired").empty());
  const BlobReader reader(source, container);

  const VEKJson& buffers = Items(source, "buffers");
  const VEKJson& views = Items(source, "bufferViews");
  const VEKJson& accessors = Items(source, "accessors");
  const VEKJson& images = Items(source, "images");
  const VEKJson& samplers = Items(source, "samplers");
  const VEKJson& textures = Items(source, "textures");
  const VEKJson& materials = Items(source, "materials");
  const VEKJson& meshes = Items(source, "meshes");
  const VEKJson& nodes = Items(source, "nodes");

  // Built aside and appended only once the whole blob has been checked.
  VEKJson out = VEKJson::object();
  for (const char* key :
       {"bufferViews", "accessors", "images", "samplers", "textures", "materials", "meshes"}) {
    out[key] = VEKJson::array();
  }
  auto base = [this](const char* key) {
    const auto found = gltf_.find(key);
    return found == gltf_.end() ? std::size_t{0} : found->size();
  };
  const std::size_t viewBase = base("bufferViews"), accessorBase = base("accessors"),
                    imageBase = base("images"), samplerBase = base("samplers"),
                    textureBase = base("textures"), materialBase = base("materials");
  blob.meshBase = base("meshes");

  // Every buffer view must lie in the BIN chunk (buffer 0 without a URI); its bytes are copied to
  // a 4-byte aligned offset, which keeps every accessor's alignment.
  const std::size_t binBase = (bin_.size() + 3) / 4 * 4;
  std::vector<unsigned char> bytes;
  for (const VEKJson& view : views) {
    Require(Index(view, "buffer", buffers.size()) == 0 && !buffers[0].contains("uri"));
    const std::uint64_t offset = Count(view, "byteOffset", 0);
    const std::uint64_t length = Count(view, "byteLength", 0);
    Require(length > 0 && offset <= container.binLength && length <= container.binLength - offset);
    bytes.resize((bytes.size() + 3) / 4 * 4);
    VEKJson written{{"buffer", 0}, {"byteOffset", binBase + bytes.size()}};
    bytes.insert(bytes.end(), container.bin + offset, container.bin + offset + length);
    CopyMembers(view, written,
                {{"byteLength", Kind::Count},
                 {"byteStride", Kind::Count},
                 {"target", Kind::Count},
                 {"name", Kind::String}});
    out["bufferViews"].push_back(std::move(written));
  }
  for (std::size_t k = 0; k < accessors.size(); ++k) {
    (void)reader.Read(k);  // its elements lie in its buffer view
    VEKJson written = VEKJson::object();
    Reindex(accessors[k], written, "bufferView", views.size(), viewBase);
    CopyMembers(accessors[k], written,
                {{"byteOffset", Kind::Count},
                 {"componentType", Kind::Count},
                 {"normalized", Kind::Bool},
                 {"count", Kind::Count},
                 {"type", Kind::String},
                 {"max", Kind::Numbers},
                 {"min", Kind::Numbers},
                 {"name", Kind::String}});
    out["accessors"].push_back(std::move(written));
  }
  for (const VEKJson& image : images) {
    VEKJson written = VEKJson::object();
    Reindex(image, written, "bufferView", views.size(), viewBase);
    CopyMembers(image, written,
                {{"uri", Kind::String}, {"mimeType", Kind::String}, {"name", Kind::String}});
    // Only embedded data: the reader refuses anything else, and so does the scene.
    const bool inBuffer = written.contains("bufferView");
    Require(inBuffer ? written.contains("mimeType")
                     : written.contains("uri") &&
                           written["uri"].get<std::string>().rfind("data:", 0) == 0);
    out["images"].push_back(std::move(written));
  }
  for (const VEKJson& sampler : samplers) {
    VEKJson written = VEKJson::object();
    CopyMembers(sampler, written,
                {{"magFilter", Kind::Count},
                 {"minFilter", Kind::Count},
                 {"wrapS", Kind::Count},
                 {"wrapT", Kind::Count},
                 {"name", Kind::String}});
    out["samplers"].push_back(std::move(written));
  }
  for (const VEKJson& texture : textures) {
    VEKJson written = VEKJson::object();
    Reindex(texture, written, "sampler", samplers.size(), samplerBase);
    Reindex(texture, written, "source", images.size(), imageBase);
    CopyMembers(texture, written, {{"name", Kind::String}});
    out["textures"].push_back(std::move(written));
  }
  auto textureInfo = [&](const VEKJson& from, VEKJson& to, const char* key) {
    const auto found = from.find(key);
    if (found == from.end()) return;
    Require(found->is_object() && found->contains("index"));
    VEKJson written = VEKJson::object();
    Reindex(*found, written, "index", textures.size(), textureBase);
    CopyMembers(*found, written,
                {{"texCoord", Kind::Count}, {"scale", Kind::Number}, {"strength", Kind::Number}});
    to[key] = std::move(written);
  };
  for (const VEKJson& material : materials) {
    VEKJson written = VEKJson::object();
    CopyMembers(material, written,
                {{"name", Kind::String},
                 {"emissiveFactor", Kind::Numbers},
                 {"alphaMode", Kind::String},
                 {"alphaCutoff", Kind::Number},
                 {"doubleSided", Kind::Bool},
                 {"extras", Kind::Any}});
    const auto pbr = material.find("pbrMetallicRoughness");
    if (pbr != material.end()) {
      VEKJson metallic = VEKJson::object();
      CopyMembers(*pbr, metallic,
                  {{"baseColorFactor", Kind::Numbers},
                   {"metallicFactor", Kind::Number},
                   {"roughnessFactor", Kind::Number}});
      textureInfo(*pbr, metallic, "baseColorTexture");
      textureInfo(*pbr, metallic, "metallicRoughnessTexture");
      written["pbrMetallicRoughness"] = std::move(metallic);
    }
    for (const char* key : {"normalTexture", "occlusionTexture", "emissiveTexture"}) {
      textureInfo(material, written, key);
    }
    out["materials"].push_back(std::move(written));
  }
  for (const VEKJson& mesh : meshes) {
    VEKJson written = VEKJson::object();
    CopyMembers(mesh, written,
                {{"weights", Kind::Numbers}, {"name", Kind::String}, {"extras", Kind::Any}});
    written["primitives"] = VEKJson::array();
    Require(!Items(mesh, "primitives").empty());
    for (const VEKJson& primitive : Items(mesh, "primitives")) {
      VEKJson carried = VEKJson::object();
      CopyMembers(primitive, carried, {{"mode", Kind::Count}, {"extras", Kind::Any}});
      Require(Count(primitive, "mode", 4) <= 6);
      Reindex(primitive, carried, "material", materials.size(), materialBase);
      // Every attribute of a primitive, in every morph target too, has as many elements.
      std::uint64_t vertices = 0;
      auto attributes = [&](const VEKJson& from) {
        Require(from.is_object() && !from.empty());
        VEKJson to = VEKJson::object();
        for (const auto& [name, value] : from.items()) {
          Reindex(from, to, name.c_str(), accessors.size(), accessorBase);
          const std::uint64_t count = reader.Read(value.get<std::size_t>()).count;
          Require(vertices == 0 || count == vertices);
          vertices = count;
        }
        return to;
      };
      const auto attributesFound = primitive.find("attributes");
      Require(attributesFound != primitive.end());
      carried["attributes"] = attributes(*attributesFound);
      const std::int64_t position = Index(*attributesFound, "POSITION", accessors.size());
      if (position >= 0) {
        SetPositionBounds(reader.Read(static_cast<std::size_t>(position)),
                          out["accessors"][static_cast<std::size_t>(position)]);
      }
      if (primitive.contains("targets")) {
        carried["targets"] = VEKJson::array();
        for (const VEKJson& target : Items(primitive, "targets")) {
          carried["targets"].push_back(attributes(target));
        }
      }
      const std::int64_t indexAccessor = Index(primitive, "indices", accessors.size());
      if (indexAccessor >= 0) {
        carried["indices"] = accessorBase + static_cast<std::size_t>(indexAccessor);
        const Accessor indices = reader.Read(static_cast<std::size_t>(indexAccessor));
        Require(indices.components == 1 && indices.componentType != 5120 &&
                indices.componentType != 5122 && indices.componentType != 5126);
        for (std::uint64_t k = 0; indices.data && k < indices.count; ++k) {
          Require(IndexValue(indices, k) < vertices);
        }
      }
      written["primitives"].push_back(std::move(carried));
    }
    out["meshes"].push_back(std::move(written));
  }

  static const std::pair<const char*, std::size_t> kTransformLengths[] = {
      {"matrix", 16}, {"translation", 3}, {"rotation", 4}, {"scale", 3}};
  // Nodes are copied per use; here they are checked and stripped of what the scene does not carry
  // (cameras, skins, extensions). Each node has at most one parent and the graph has no cycle.
  blob.nodes = VEKJson::array();
  std::vector<int> parents(nodes.size(), -1);
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    VEKJson written = VEKJson::object();
    CopyMembers(nodes[k], written,
                {{"name", Kind::String},
                 {"matrix", Kind::Numbers},
                 {"translation", Kind::Numbers},
                 {"rotation", Kind::Numbers},
                 {"scale", Kind::Numbers},
                 {"weights", Kind::Numbers},
                 {"extras", Kind::Any}});
    for (const auto& [key, length] : kTransformLengths) {
      Require(!written.contains(key) || written[key].size() == length);
    }
    Reindex(nodes[k], written, "mesh", meshes.size(), blob.meshBase);
    written["children"] = VEKJson::array();
    for (const VEKJson& child : Items(nodes[k], "children")) {
      Require(child.is_number_unsigned() && child.get<std::uint64_t>() < nodes.size());
      const std::size_t index = child.get<std::size_t>();
      Require(parents[index] < 0 && index != k);
      parents[index] = static_cast<int>(k);
      written["children"].push_back(index);
    }
    blob.nodes.push_back(std::move(written));
  }
  const VEKJson& scenes = Items(source, "scenes");
  const std::int64_t scene =
      scenes.empty() ? -1 : std::max<std::int64_t>(0, Index(source, "scene", scenes.size()));
  if (scene >= 0) {
    for (const VEKJson& root : Items(scenes[scene], "nodes")) {
      Require(root.is_number_unsigned() && root.get<std::uint64_t>() < nodes.size());
      blob.roots.push_back(root.get<int>());
    }
  } else {
    for (std::size_t k = 0; k < nodes.size(); ++k) {
      if (parents[k] < 0) blob.roots.push_back(static_cast<int>(k));
    }
  }
  // A root must not sit below another node, and a cycle leaves nodes reachable from no root.
  std::vector<char> seen(nodes.size(), 0);
  std::vector<int> pending(blob.roots.begin(), blob.roots.end());
  for (int root : blob.roots) Require(parents[root] < 0 && !seen[root]++);
  while (!pending.empty()) {
    const int node = pending.back();
    pending.pop_back();
    for (const VEKJson& child : blob.nodes[node]["children"]) {
      Require(!seen[child.get<std::size_t>()]++);
      pending.push_back(child.get<int>());
    }
  }

  for (const auto& [key, items] : out.items()) {
    VEKJson& target = gltf_[key];
    if (target.is_null()) target = VEKJson::array();
    for (const VEKJson& item : items) target.push_back(item);
  }
  bin_.resize(binBase);
  bin_.insert(bin_.end(), bytes.begin(), bytes.end());
  blob.carried = true;
}

bool VEKGltfCarrier::Carry(const std::vector<unsigned char>& glb, std::vector<int>& roots) {
  const std::string_view key(reinterpret_cast<const char*>(glb.data()), glb.size());
  auto [found, added] = blobs_.try_emplace(key);
  Blob& blob = found->second;
  if (added) {
    try {
      AddResources(key, blob);
    } catch (const Uncarried&) {
      blob = Blob{};
    } catch (const nlohmann::json::exception&) {
      blob = Blob{};
    }
  }
  if (!blob.carried) return false;

  // A copy of the trees below the roots, children after their parent.
  VEKJson& nodes = gltf_["nodes"];
  if (nodes.is_null()) nodes = VEKJson::array();
  roots.clear();
  std::vector<std::pair<int, std::size_t>> pending;  // (blob node, index of its parent's copy)
  for (auto root = blob.roots.rbegin(); root != blob.roots.rend(); ++root) {
    pending.emplace_back(*root, SIZE_MAX);
  }
  while (!pending.empty()) {
    const auto [node, parent] = pending.back();
    pending.pop_back();
    const std::size_t copy = nodes.size();
    VEKJson written = blob.nodes[node];
    written.erase("children");
    nodes.push_back(std::move(written));
    if (parent == SIZE_MAX) {
      roots.push_back(static_cast<int>(copy));
    } else {
      nodes[parent]["children"].push_back(copy);
    }
    const VEKJson& children = blob.nodes[node]["children"];
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
      pending.emplace_back(child->get<int>(), copy);
    }
  }
  return true;
}
