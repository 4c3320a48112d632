// The oracle: tinygltf reads a copy of the JSON from which what our reader decides by rules of its
// own is taken out (the sections the representation never reads, images' data URIs, buffers' data
// URIs in our codec's spelling), and must then make the same decision and fill the same model.
// The rules themselves are checked on nlohmann-json's reading of the text, the one under tinygltf.
#include "GltfReadersAgree.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tiny_gltf.h>
#include <nlohmann/json.hpp>

#include "GlbContainer.h"
#include "GltfReader.h"
#include "RepBuilder.h"
#include "VEKCodePage.h"
#include "VEKGlbWriter.h"
#include "VEKSceneGraph.h"

namespace vek_fuzz {
namespace {

using Json = nlohmann::json;
using vek_scenegraph_detail::GltfAccessorType;
using vek_scenegraph_detail::GltfModel;

// The sections whose checks are tinygltf's alone: the representation never reads them.
constexpr const char* kUnreadSections[] = {"materials", "textures", "samplers",  "animations",
                                           "skins",     "cameras",  "extensions"};

// Models compare by every value the representation is built from; doubles by their bits, so that
// a 0.0 read as -0.0 is a difference too.
bool SameNumbers(vek_scenegraph_detail::GltfItems<double> left,
                 vek_scenegraph_detail::GltfItems<double> right) {
  return left.size == right.size &&
         (left.size == 0 || std::memcmp(left.data, right.data, left.size * sizeof(double)) == 0);
}

template <typename Items, typename Same>
bool SameItems(const Items& left, const Items& right, Same same) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(), same);
}

bool SameModels(const GltfModel& left, const GltfModel& right) {
  using namespace vek_scenegraph_detail;
  return left.defaultScene == right.defaultScene &&
         SameItems(left.buffers, right.buffers,
                   [](const GltfBuffer& a, const GltfBuffer& b) {
                     return a.size == b.size && std::memcmp(a.data, b.data, a.size) == 0;
                   }) &&
         SameItems(left.bufferViews, right.bufferViews,
                   [](const GltfBufferView& a, const GltfBufferView& b) {
                     return a.buffer == b.buffer && a.byteOffset == b.byteOffset &&
                            a.byteLength == b.byteLength && a.byteStride == b.byteStride &&
                            a.hasExtensions == b.hasExtensions;
                   }) &&
         SameItems(left.accessors, right.accessors,
                   [](const GltfAccessor& a, const GltfAccessor& b) {
                     return a.bufferView == b.bufferView && a.byteOffset == b.byteOffset &&
                            a.componentType == b.componentType && a.type == b.type &&
                            a.count == b.count && a.sparse == b.sparse &&
                            a.sparseIndicesView == b.sparseIndicesView &&
                            a.sparseValuesView == b.sparseValuesView;
                   }) &&
         SameItems(left.meshes, right.meshes,
                   [&](const GltfMesh& a, const GltfMesh& b) {
                     return a.name == b.name &&
                            SameItems(
                                left.Primitives(a), right.Primitives(b),
                                [&](const GltfPrimitive& p, const GltfPrimitive& q) {
                                  return p.mode == q.mode && p.indices == q.indices &&
                                         SameItems(
                                             left.Attributes(p), right.Attributes(q),
                                             [](const GltfAttribute& x, const GltfAttribute& y) {
                                               return x.name == y.name && x.accessor == y.accessor;
                                             });
                                });
                   }) &&
         SameItems(left.nodes, right.nodes,
                   [&](const GltfNode& a, const GltfNode& b) {
                     return a.name == b.name && a.mesh == b.mesh &&
                            SameItems(left.Indices(a.children), right.Indices(b.children),
                                      std::equal_to<int>()) &&
                            SameNumbers(left.Numbers(a.matrix), right.Numbers(b.matrix)) &&
                            SameNumbers(left.Numbers(a.translation),
                                        right.Numbers(b.translation)) &&
                            SameNumbers(left.Numbers(a.rotation), right.Numbers(b.rotation)) &&
                            SameNumbers(left.Numbers(a.scale), right.Numbers(b.scale));
                   }) &&
         SameItems(left.scenes, right.scenes, [&](const GltfScene& a, const GltfScene& b) {
           return SameItems(left.Indices(a.nodes), right.Indices(b.nodes), std::equal_to<int>());
         });
}

// Appends `values` to `pool` and gives their run.
template <typename Item>
vek_scenegraph_detail::GltfRange Append(std::vector<Item>& pool, const std::vector<Item>& values) {
  const auto first = static_cast<std::uint32_t>(pool.size());
  pool.insert(pool.end(), values.begin(), values.end());
  return {first, static_cast<std::uint32_t>(values.size())};
}

GltfAccessorType AccessorType(int type) {
  // tinygltf's codes in the order of our enum.
  constexpr int kTypes[] = {TINYGLTF_TYPE_SCALAR, TINYGLTF_TYPE_VEC2, TINYGLTF_TYPE_VEC3,
                            TINYGLTF_TYPE_VEC4,   TINYGLTF_TYPE_MAT2, TINYGLTF_TYPE_MAT3,
                            TINYGLTF_TYPE_MAT4};
  const int* found = std::find(std::begin(kTypes), std::end(kTypes), type);
  return found == std::end(kTypes) ? GltfAccessorType::kScalar
                                   : static_cast<GltfAccessorType>(found - kTypes);
}

// tinygltf's model as ours; it points into `source`.
GltfModel Converted(const tinygltf::Model& source) {
  using namespace vek_scenegraph_detail;
  GltfModel model;
  model.defaultScene = source.defaultScene;
  for (const tinygltf::Buffer& buffer : source.buffers) {
    model.buffers.push_back({buffer.data.data(), buffer.data.size()});
  }
  for (const tinygltf::BufferView& view : source.bufferViews) {
    model.bufferViews.push_back(
        {view.buffer, view.byteOffset, view.byteLength, view.byteStride, !view.extensions.empty()});
  }
  for (const tinygltf::Accessor& accessor : source.accessors) {
    const bool sparse = accessor.sparse.isSparse;
    model.accessors.push_back({accessor.bufferView, accessor.byteOffset, accessor.componentType,
                               AccessorType(accessor.type), accessor.count, sparse,
                               sparse ? accessor.sparse.indices.bufferView : -1,
                               sparse ? accessor.sparse.values.bufferView : -1});
  }
  for (const tinygltf::Mesh& mesh : source.meshes) {
    std::vector<GltfPrimitive> primitives;
    for (const tinygltf::Primitive& primitive : mesh.primitives) {
      std::vector<GltfAttribute> attributes;
      for (const auto& attribute : primitive.attributes) {
        attributes.push_back({attribute.first, attribute.second});
      }
      primitives.push_back(
          {primitive.mode, primitive.indices, Append(model.attributes, attributes)});
    }
    model.meshes.push_back({mesh.name, Append(model.primitives, primitives)});
  }
  for (const tinygltf::Node& node : source.nodes) {
    model.nodes.push_back(
        {node.name, node.mesh, Append(model.indices, node.children),
         Append(model.numbers, node.matrix), Append(model.numbers, node.translation),
         Append(model.numbers, node.rotation), Append(model.numbers, node.scale)});
  }
  for (const tinygltf::Scene& scene : source.scenes) {
    model.scenes.push_back({Append(model.indices, scene.nodes)});
  }
  return model;
}

// The DOM as tinygltf reads it.

const Json* Member(const Json& object, const char* name) {
  if (!object.is_object()) return nullptr;
  const auto member = object.find(name);
  return member == object.end() ? nullptr : &*member;
}

// The element of `items` that `index` names, as tinygltf reads an int: from an integer literal, by
// wrapping its 64 bits to 32. A negative one wraps past any size.
const Json* At(const Json& items, const Json* index) {
  if (index == nullptr || !index->is_number_integer()) return nullptr;
  const auto at = static_cast<std::size_t>(static_cast<int>(index->get<std::int64_t>()));
  return at < items.size() ? &items[at] : nullptr;
}

std::uint64_t TinygltfUnsigned(const Json* value, std::uint64_t fallback) {
  return value != nullptr && value->is_number_unsigned() ? value->get<std::uint64_t>() : fallback;
}

// The prefix and base64 text of a data URI tinygltf takes as embedded data.
bool DataUri(const Json* uri, std::string_view& prefix, std::string_view& payload) {
  if (uri == nullptr || !uri->is_string()) return false;
  const std::string_view text = uri->get_ref<const std::string&>();
  if (!vek_scenegraph_detail::DataUriPayload(text, payload)) return false;
  prefix = text.substr(0, text.size() - payload.size());
  return true;
}

// The bytes our codec decodes from a buffer's data URI, when exactly `byteLength` of them.
bool DecodedByOurCodec(std::string_view payload, std::uint64_t byteLength,
                       std::vector<unsigned char>& bytes) {
  if (byteLength == 0 || byteLength > payload.size() / 4 * 3) return false;
  bytes.resize(static_cast<std::size_t>(byteLength));
  return VEKCodePage::ReadBase64(payload.data(), payload.size(), bytes.data(), bytes.size()) ==
         static_cast<std::int64_t>(bytes.size());
}

const Json& Items(const Json& document, const char* section) {
  static const Json kNone = Json::array();
  const Json* items = Member(document, section);
  return items != nullptr && items->is_array() ? *items : kNone;
}

// Whether a rule of our reader's own refuses the document: data URI text our codec refuses, an
// image URI naming a file, an image view outside its buffer (where tinygltf would take an address
// outside the buffer, so it is not run).
bool RefusedByOurRule(const Json& document) {
  const Json& buffers = Items(document, "buffers");
  std::string_view prefix, payload;
  std::vector<unsigned char> bytes;
  for (const Json& buffer : buffers) {
    const Json* byteLength = Member(buffer, "byteLength");
    if (byteLength != nullptr && byteLength->is_number_unsigned() &&
        DataUri(Member(buffer, "uri"), prefix, payload) &&
        !DecodedByOurCodec(payload, byteLength->get<std::uint64_t>(), bytes)) {
      return true;
    }
  }
  const Json& views = Items(document, "bufferViews");
  for (const Json& image : Items(document, "images")) {
    const Json* uri = Member(image, "uri");
    const Json* viewIndex = Member(image, "bufferView");
    if ((uri == nullptr) == (viewIndex == nullptr)) continue;
    if (uri != nullptr) {
      if (uri->is_string() && !DataUri(uri, prefix, payload)) return true;
      continue;
    }
    const Json* view = At(views, viewIndex);
    const Json* buffer = view != nullptr ? At(buffers, Member(*view, "buffer")) : nullptr;
    if (buffer == nullptr) continue;
    if (!vek_scenegraph_detail::RangeWithin(TinygltfUnsigned(Member(*view, "byteOffset"), 0),
                                            TinygltfUnsigned(Member(*view, "byteLength"), 0),
                                            TinygltfUnsigned(Member(*buffer, "byteLength"), 0))) {
      return true;
    }
  }
  return false;
}

// Whether the document holds an integer literal that tinygltf would wrap to 32 bits.
bool HoldsWrappedInteger(const Json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>() > INT_MAX;
  if (value.is_number_integer()) return value.get<std::int64_t>() < INT_MIN;
  if (!value.is_structured()) return false;
  return std::any_of(value.begin(), value.end(),
                     [](const Json& item) { return HoldsWrappedInteger(item); });
}

// The elements of the section `name` when it is an array, as tinygltf reads them; none otherwise.
template <typename Visit>
void ForEachItem(Json& document, const char* name, Visit visit) {
  const auto section = document.find(name);
  if (section == document.end() || !section->is_array()) return;
  for (Json& item : *section) {
    if (item.is_object()) visit(item);
  }
}

// The document with what our reader decides by its own rules taken out.
Json Normalized(Json document) {
  if (!document.is_object()) return document;
  for (const char* section : kUnreadSections) document.erase(section);
  std::string_view prefix, payload;
  std::vector<unsigned char> bytes;
  ForEachItem(document, "buffers", [&](Json& buffer) {
    const Json* byteLength = Member(buffer, "byteLength");
    if (byteLength != nullptr && byteLength->is_number_unsigned() &&
        DataUri(Member(buffer, "uri"), prefix, payload) &&
        DecodedByOurCodec(payload, byteLength->get<std::uint64_t>(), bytes)) {
      std::string text(VEKCodePage::Base64Length(bytes.size()), '\0');
      (void)VEKCodePage::WriteBase64(bytes.data(), bytes.size(), text.data(), text.size());
      buffer["uri"] = std::string(prefix) + text;
    }
  });
  ForEachItem(document, "images", [&](Json& image) {
    if (DataUri(Member(image, "uri"), prefix, payload)) image["uri"] = "data:image/png;base64,AAAA";
  });
  return document;
}

// The text of `value`. Unlike nlohmann-json's dump it writes the integer -0 as such, so that
// tinygltf does not read it back as an unsigned 0.
std::string Text(const Json& value) {
  if (value.is_number_integer() && !value.is_number_unsigned() && value.get<std::int64_t>() == 0) {
    return "-0";
  }
  if (!value.is_structured()) return value.dump();
  std::string text(1, value.is_object() ? '{' : '[');
  for (auto item = value.begin(); item != value.end(); ++item) {
    if (text.size() > 1) text += ',';
    if (value.is_object()) text += Json(item.key()).dump() + ':';
    text += Text(*item);
  }
  return text + (value.is_object() ? '}' : ']');
}

// tinygltf's reading of `json` framed with the BIN chunk of `layout`, with no file system and no
// image decoding. Some of its refusals throw.
bool ReadWithTinygltf(std::string_view json, const vek_scenegraph_detail::GlbLayout& layout,
                      tinygltf::Model& model) {
  std::vector<char> glb;
  if (VEKWriteGlb(json, layout.bin, layout.binLength, glb) != VEKGlbWriteResult::Written) {
    return false;
  }
  tinygltf::TinyGLTF loader;  // built without file callbacks: a URI naming a file fails
  loader.SetImageLoader([](tinygltf::Image*, const int, std::string*, std::string*, int, int,
                           const unsigned char*, int, void*) { return true; },
                        nullptr);
  std::string error, warning;
  try {
    return loader.LoadBinaryFromMemory(&model, &error, &warning,
                                       reinterpret_cast<const unsigned char*>(glb.data()),
                                       static_cast<unsigned int>(glb.size()));
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

GltfReadersVerdict CompareGltfReaders(const std::uint8_t* data, std::size_t size) noexcept {
  using Verdict = GltfReadersVerdict;
  try {
    vek_scenegraph_detail::GlbLayout layout;
    if (!vek_scenegraph_detail::ReadGlbLayout(data, size, layout)) {
      return Verdict::kRefusedByOurRule;
    }
    GltfModel ours;
    const bool ourRead = vek_scenegraph_detail::ReadGltf(layout, ours);

    int depth = 0;
    const Json document = Json::parse(
        layout.json, layout.json + layout.jsonLength,
        [&depth](int level, Json::parse_event_t event, Json&) {
          if (event == Json::parse_event_t::object_start ||
              event == Json::parse_event_t::array_start) {
            depth = std::max(depth, level + 1);
          }
          return true;
        },
        false);
    if (document.is_discarded()) {
      return ourRead ? Verdict::kDisagree : Verdict::kBothRefuse;
    }
    if (depth > vek_scenegraph_detail::kMaxJsonDepth || RefusedByOurRule(document)) {
      return ourRead ? Verdict::kDisagree : Verdict::kRefusedByOurRule;
    }
    const Json normalized = Normalized(document);
    tinygltf::Model theirs;
    const bool theirRead = ReadWithTinygltf(Text(normalized), layout, theirs);
    if (!ourRead && !theirRead) return Verdict::kBothRefuse;
    const GltfModel converted = Converted(theirs);
    const auto theirRep =
        theirRead ? vek_scenegraph_detail::BuildRep(converted, data, layout.totalLength, size)
                  : nullptr;
    if (!ourRead) {
      // Our reader may refuse early what the representation would refuse (too many nodes).
      return !theirRep                       ? Verdict::kBothRefuse
             : HoldsWrappedInteger(document) ? Verdict::kRefusedByOurRule
                                             : Verdict::kDisagree;
    }
    // Equal models build equal representations: both go through the same builder.
    if (!theirRead || !SameModels(ours, converted)) return Verdict::kDisagree;
    if (!theirRep) return Verdict::kBothRefuse;
    // Whether our rules made the difference: tinygltf on the text as it was.
    tinygltf::Model original;
    if (normalized != document &&
        !ReadWithTinygltf(std::string_view(layout.json, layout.jsonLength), layout, original)) {
      return Verdict::kReadByOurRule;
    }
    return Verdict::kBothRead;
  } catch (...) {
    return Verdict::kDisagree;
  }
}

}  // namespace vek_fuzz
