// glTF JSON read with simdjson's On-Demand API: the text is indexed once and walked once, each
// member a representation needs read into the model and everything else checked to be JSON. The
// decisions are tinygltf's, quirks included, so that a blob reads as tinygltf's model of it would:
// a member given twice keeps its last value, a member of the wrong type reads as absent (or
// refuses the blob where tinygltf requires the member), a primitive without attributes is dropped
// from its mesh. Where the reader decides otherwise, the comment says so.
#include "GltfReader.h"

#include <simdjson.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "RepBuilder.h"
#include "VEKCodePage.h"

namespace vek_scenegraph_detail {
namespace {

namespace od = simdjson::ondemand;
using simdjson::error_code;
using simdjson::SUCCESS;

// tinygltf refuses a view whose stride is larger than this or not a multiple of 4.
constexpr std::uint64_t kMaxByteStride = 252;
constexpr std::uint64_t kFirstComponentType = 5120;  // BYTE
constexpr std::uint64_t kLastComponentType = 5130;   // DOUBLE
// simdjson 3.0.1's get_double misreads "0." followed by 20 digits or more and refuses exponents
// of 20 digits or more; longer numbers with a fraction or an exponent take the exact conversion
// simdjson itself falls back on.
constexpr std::size_t kLongestShortNumber = 21;

// simdjson picks its implementation for the processor on first use, with a few allocations whose
// failure it cannot report; picking it while the library loads keeps them out of every read.
[[maybe_unused]] const bool kImplementationPicked =
    !simdjson::get_active_implementation()->name().empty();

// Whether a number has neither a fraction nor an exponent.
bool IsIntegerLiteral(std::string_view number) {
  return number.find_first_of(".eE") == std::string_view::npos;
}

// The accessor type of a name (the names are in the order of GltfAccessorType); false for none.
bool AccessorType(std::string_view name, GltfAccessorType& type) {
  static constexpr std::string_view kNames[] = {"SCALAR", "VEC2", "VEC3", "VEC4",
                                                "MAT2",   "MAT3", "MAT4"};
  const auto known = std::find(std::begin(kNames), std::end(kNames), name);
  type = static_cast<GltfAccessorType>(known - std::begin(kNames));
  return known != std::end(kNames);
}

// A member tinygltf reads into an int: an integer literal of at most 64 bits (a number with a
// fraction or an exponent, or a longer literal, is none). tinygltf wraps one outside the int
// range to 32 bits, so that 4294967296 reads as 0; here such a value is refused wherever it would
// be used.
struct IntMember {
  enum State : unsigned char { kAbsent, kInt, kWrapped, kNotInt };
  State state = kAbsent;
  int value = 0;

  bool IsInt() const { return state == kInt || state == kWrapped; }
  // The value, or `fallback` when absent or not an integer; false for one outside the int range.
  [[nodiscard]] bool Get(int fallback, int& out) const {
    out = state == kInt ? value : fallback;
    return state != kWrapped;
  }
};

// A member tinygltf reads as unsigned: an integer literal without a sign, of at most 64 bits.
struct UnsignedMember {
  bool valid = false;
  std::uint64_t value = 0;

  std::uint64_t Get(std::uint64_t fallback) const { return valid ? value : fallback; }
};

struct StringMember {
  bool valid = false;
  std::string_view value;
};

// An array of integers, read up to its first element that is not one, as tinygltf reads it.
struct IntList {
  GltfRange range;
  bool wrapped = false;
};

// An array of numbers, read up to its first element that is not one; `complete` when every
// element is one.
struct NumberList {
  GltfRange range;
  bool complete = false;
};

// The run of the items a pool received since it held `first`.
template <typename Item>
GltfRange RunSince(const std::vector<Item>& pool, std::size_t first) {
  return {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(pool.size() - first)};
}

// Whether each section's last occurrence was accepted, and the members of the document itself.
struct Sections {
  bool asset = false;
  bool buffers = true;
  bool bufferViews = true;
  bool accessors = true;
  bool meshes = true;
  bool nodes = true;
  bool scenes = true;
  bool images = true;
  IntMember scene;
};

// The indices or the values of a sparse accessor.
struct SparsePart {
  bool given = false;
  IntMember view;
  IntMember componentType;
};

class Reader {
 public:
  Reader(const od::parser& parser, unsigned char* text, const GlbLayout& layout, GltfModel& model)
      : parser_(parser),
        text_(text),
        layout_(layout),
        model_(model),
        maxNodes_(MaxRepNodes(layout.totalLength)) {}

  // False when the document is malformed or refused.
  bool Read(od::document& document) {
    od::object root;
    if (document.get_object().get(root) != SUCCESS) return false;
    Sections sections;
    for (auto field : root) {
      od::field member;
      std::string_view key;
      if (std::move(field).get(member) != SUCCESS ||
          Unescape(member.key(), false, key) != SUCCESS ||
          RootMember(key, member.value(), sections) != SUCCESS) {
        return false;
      }
    }
    // Nothing may follow the document.
    return document.current_location().error() == simdjson::OUT_OF_BOUNDS && Decide(sections);
  }

 private:
  static constexpr int kMemberDepth = 2;

  error_code RootMember(std::string_view key, od::value& value, Sections& sections) {
    if (key == "asset") return Asset(value, kMemberDepth, sections.asset);
    if (key == "scene") return Int(value, kMemberDepth, sections.scene);
    if (key == "buffers") return Section(value, model_.buffers, sections.buffers, &Reader::Buffer);
    if (key == "bufferViews") {
      return Section(value, model_.bufferViews, sections.bufferViews, &Reader::BufferView);
    }
    if (key == "accessors") {
      return Section(value, model_.accessors, sections.accessors, &Reader::Accessor);
    }
    if (key == "meshes") return Section(value, model_.meshes, sections.meshes, &Reader::Mesh);
    if (key == "nodes") return Section(value, model_.nodes, sections.nodes, &Reader::Node);
    if (key == "scenes") return Section(value, model_.scenes, sections.scenes, &Reader::Scene);
    if (key == "images") return Section(value, imageViews_, sections.images, &Reader::Image);
    return Skip(value, kMemberDepth);
  }

  // The checks tinygltf makes across sections, once each section holds its last occurrence.
  bool Decide(const Sections& sections) {
    if (!sections.asset || !sections.buffers || !sections.bufferViews || !sections.accessors ||
        !sections.meshes || !sections.nodes || !sections.scenes || !sections.images ||
        !sections.scene.Get(-1, model_.defaultScene)) {
      return false;
    }
    // A primitive's indices must name an accessor with a buffer view.
    for (const GltfMesh& mesh : model_.meshes) {
      for (const GltfPrimitive& primitive : model_.Primitives(mesh)) {
        if (primitive.indices < 0) continue;
        if (static_cast<std::size_t>(primitive.indices) >= model_.accessors.size()) return false;
        const int view = model_.accessors[static_cast<std::size_t>(primitive.indices)].bufferView;
        if (view < 0 || static_cast<std::size_t>(view) >= model_.bufferViews.size()) return false;
      }
    }
    // tinygltf takes the address of an image's bytes from its view without checking the view's
    // range; a view outside its buffer is refused here.
    for (const int index : imageViews_) {
      if (index < 0 || static_cast<std::size_t>(index) >= model_.bufferViews.size()) return false;
      const GltfBufferView& view = model_.bufferViews[static_cast<std::size_t>(index)];
      if (view.buffer < 0 || static_cast<std::size_t>(view.buffer) >= model_.buffers.size() ||
          !RangeWithin(view.byteOffset, view.byteLength,
                       model_.buffers[static_cast<std::size_t>(view.buffer)].size)) {
        return false;
      }
    }
    return true;
  }

  // Sections: arrays of objects, each read by `readItem` into `items`, which the last occurrence
  // of the section fills. tinygltf refuses a section with an element that is not an object, and
  // ignores one that is not an array.
  using ItemReader = error_code (Reader::*)(od::value&, int, bool&);
  template <typename Items>
  error_code Section(od::value& value, Items& items, bool& accepted, ItemReader readItem) {
    items.clear();
    const int depth = kMemberDepth;
    accepted = true;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::array) return Skip(value, depth);
    return Array(value, depth, [&](od::value& element, int elementDepth) -> error_code {
      if (accepted) {
        SIMDJSON_TRY(element.type().get(type));
        if (type == od::json_type::object) {
          return (this->*readItem)(element, elementDepth, accepted);
        }
        accepted = false;
      }
      return Skip(element, elementDepth);
    });
  }

  error_code Asset(od::value& value, int depth, bool& hasVersion) {
    StringMember version;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::object) {
      hasVersion = false;
      return Skip(value, depth);
    }
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          return key == "version" ? String(member, memberDepth, version)
                                  : Skip(member, memberDepth);
        }));
    hasVersion = version.valid;
    return SUCCESS;
  }

  error_code Buffer(od::value& value, int depth, bool& accepted) {
    UnsignedMember byteLength;
    StringMember uri;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "byteLength") return Unsigned(member, memberDepth, byteLength);
          if (key == "uri") return String(member, memberDepth, uri);
          return Skip(member, memberDepth);
        }));
    GltfBuffer buffer;
    accepted = byteLength.valid && FillBuffer(byteLength.value, uri.valid ? uri.value : "", buffer);
    if (accepted) model_.buffers.push_back(buffer);
    return SUCCESS;
  }

  // A buffer without a URI holds the first `byteLength` bytes of the BIN chunk, as tinygltf has
  // it; one with a data URI its decoded bytes, exactly `byteLength` of them. Nothing outside the
  // blob is ever read.
  bool FillBuffer(std::uint64_t byteLength, std::string_view uri, GltfBuffer& buffer) {
    if (byteLength == 0) return false;
    if (uri.empty()) {
      if (layout_.bin == nullptr || byteLength > layout_.binLength) return false;
      buffer = {layout_.bin, static_cast<std::size_t>(byteLength)};
      return true;
    }
    std::string_view payload;
    if (!DataUriPayload(uri, payload) || byteLength > payload.size() / 4 * 3) return false;
    const auto size = static_cast<std::size_t>(byteLength);
    std::unique_ptr<unsigned char[]> decoded(new unsigned char[size]);
    unsigned char* bytes = model_.storage.emplace_back(std::move(decoded)).get();
    if (VEKCodePage::ReadBase64(payload.data(), payload.size(), bytes, size) !=
        static_cast<std::int64_t>(size)) {
      return false;
    }
    buffer = {bytes, size};
    return true;
  }

  error_code BufferView(od::value& value, int depth, bool& accepted) {
    IntMember buffer;
    UnsignedMember byteOffset, byteLength, byteStride;
    bool hasExtensions = false;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "buffer") return Int(member, memberDepth, buffer);
          if (key == "byteOffset") return Unsigned(member, memberDepth, byteOffset);
          if (key == "byteLength") return Unsigned(member, memberDepth, byteLength);
          if (key == "byteStride") return Unsigned(member, memberDepth, byteStride);
          if (key == "extensions") return Extensions(member, memberDepth, hasExtensions);
          return Skip(member, memberDepth);
        }));
    GltfBufferView view;
    view.byteStride = byteStride.Get(0);
    accepted = buffer.IsInt() && byteLength.valid && view.byteStride <= kMaxByteStride &&
               view.byteStride % 4 == 0 && buffer.Get(-1, view.buffer);
    if (!accepted) return SUCCESS;
    view.byteOffset = byteOffset.Get(0);
    view.byteLength = byteLength.value;
    view.hasExtensions = hasExtensions;
    model_.bufferViews.push_back(view);
    return SUCCESS;
  }

  // tinygltf keeps the extensions whose values are objects.
  error_code Extensions(od::value& value, int depth, bool& any) {
    any = false;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::object) return Skip(value, depth);
    // The JSON library under tinygltf keeps the last of a member given twice, as the map does.
    std::map<std::string_view, bool> isObject;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          Keep(key);
          SIMDJSON_TRY(member.type().get(type));
          isObject[key] = type == od::json_type::object;
          return Skip(member, memberDepth);
        }));
    for (const auto& member : isObject) any |= member.second;
    return SUCCESS;
  }

  error_code Accessor(od::value& value, int depth, bool& accepted) {
    IntMember bufferView;
    UnsignedMember byteOffset, componentType, count;
    StringMember type;
    bool sparseGiven = false, sparseComplete = false;
    GltfAccessor accessor;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "bufferView") return Int(member, memberDepth, bufferView);
          if (key == "byteOffset") return Unsigned(member, memberDepth, byteOffset);
          if (key == "componentType") return Unsigned(member, memberDepth, componentType);
          if (key == "count") return Unsigned(member, memberDepth, count);
          if (key == "type") return String(member, memberDepth, type);
          if (key == "sparse") {
            sparseGiven = true;
            return Sparse(member, memberDepth, accessor, sparseComplete);
          }
          return Skip(member, memberDepth);
        }));
    accessor.sparse = sparseGiven;
    accepted = componentType.valid && count.valid && type.valid &&
               AccessorType(type.value, accessor.type) &&
               componentType.value >= kFirstComponentType &&
               componentType.value <= kLastComponentType &&
               bufferView.Get(-1, accessor.bufferView) && (!sparseGiven || sparseComplete);
    if (!accepted) return SUCCESS;
    accessor.byteOffset = byteOffset.Get(0);
    accessor.componentType = static_cast<int>(componentType.value);
    accessor.count = count.value;
    model_.accessors.push_back(accessor);
    return SUCCESS;
  }

  // tinygltf requires of a sparse accessor an integer count, and integers for its indices' buffer
  // view and component type and for its values' buffer view.
  error_code Sparse(od::value& value, int depth, GltfAccessor& accessor, bool& complete) {
    complete = false;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::object) return Skip(value, depth);
    IntMember count;
    SparsePart indices, values;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "count") return Int(member, memberDepth, count);
          if (key == "indices") return Part(member, memberDepth, indices);
          if (key == "values") return Part(member, memberDepth, values);
          return Skip(member, memberDepth);
        }));
    complete = count.IsInt() && indices.given && indices.componentType.IsInt() &&
               indices.view.IsInt() && values.given && values.view.IsInt() &&
               indices.view.Get(-1, accessor.sparseIndicesView) &&
               values.view.Get(-1, accessor.sparseValuesView);
    return SUCCESS;
  }

  error_code Part(od::value& value, int depth, SparsePart& part) {
    part = SparsePart();
    part.given = true;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::object) return Skip(value, depth);
    return Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
      if (key == "bufferView") return Int(member, memberDepth, part.view);
      if (key == "componentType") return Int(member, memberDepth, part.componentType);
      return Skip(member, memberDepth);
    });
  }

  error_code Mesh(od::value& value, int depth, bool& accepted) {
    StringMember name;
    GltfMesh mesh;
    bool primitivesAccepted = true;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "name") return String(member, memberDepth, name);
          if (key == "primitives") {
            return Primitives(member, memberDepth, mesh.primitives, primitivesAccepted);
          }
          return Skip(member, memberDepth);
        }));
    accepted = primitivesAccepted;
    if (!accepted) return SUCCESS;
    mesh.name = name.value;
    model_.meshes.push_back(std::move(mesh));
    return SUCCESS;
  }

  // tinygltf drops a primitive that is not an object, has no attributes object, or an attribute
  // whose accessor is not an integer.
  error_code Primitives(od::value& value, int depth, GltfRange& primitives, bool& accepted) {
    const std::size_t first = model_.primitives.size();
    primitives = GltfRange();
    accepted = true;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::array) return Skip(value, depth);
    SIMDJSON_TRY(Array(value, depth, [&](od::value& element, int elementDepth) -> error_code {
      SIMDJSON_TRY(element.type().get(type));
      if (!accepted || type != od::json_type::object) return Skip(element, elementDepth);
      GltfPrimitive primitive;
      bool kept = false;
      SIMDJSON_TRY(Primitive(element, elementDepth, primitive, kept, accepted));
      if (kept && accepted) model_.primitives.push_back(primitive);
      return SUCCESS;
    }));
    primitives = RunSince(model_.primitives, first);
    return SUCCESS;
  }

  error_code Primitive(od::value& value, int depth, GltfPrimitive& primitive, bool& kept,
                       bool& accepted) {
    IntMember mode, indices;
    bool attributesGiven = false;
    std::map<std::string_view, IntMember> attributes;  // the last of a name given twice, sorted
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "mode") return Int(member, memberDepth, mode);
          if (key == "indices") return Int(member, memberDepth, indices);
          if (key != "attributes") return Skip(member, memberDepth);
          attributes.clear();
          od::json_type type;
          SIMDJSON_TRY(member.type().get(type));
          attributesGiven = type == od::json_type::object;
          if (!attributesGiven) return Skip(member, memberDepth);
          return Object(member, memberDepth,
                        [&](std::string_view name, od::value& accessor, int accessorDepth) {
                          Keep(name);
                          return Int(accessor, accessorDepth, attributes[name]);
                        });
        }));
    kept = attributesGiven && std::all_of(attributes.begin(), attributes.end(),
                                          [](const auto& member) { return member.second.IsInt(); });
    if (!kept) return SUCCESS;
    accepted = mode.Get(4, primitive.mode) && indices.Get(-1, primitive.indices);
    const std::size_t first = model_.attributes.size();
    for (const auto& member : attributes) {
      GltfAttribute& attribute = model_.attributes.emplace_back();
      attribute.name = member.first;
      accepted &= member.second.Get(-1, attribute.accessor);
    }
    primitive.attributes = RunSince(model_.attributes, first);
    return SUCCESS;
  }

  error_code Node(od::value& value, int depth, bool& accepted) {
    StringMember name;
    IntMember mesh;
    IntList children;
    NumberList matrix, translation, rotation, scale;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "name") return String(member, memberDepth, name);
          if (key == "mesh") return Int(member, memberDepth, mesh);
          if (key == "children") return Ints(member, memberDepth, children);
          if (key == "matrix") return Numbers(member, memberDepth, matrix);
          if (key == "translation") return Numbers(member, memberDepth, translation);
          if (key == "rotation") return Numbers(member, memberDepth, rotation);
          if (key == "scale") return Numbers(member, memberDepth, scale);
          return Skip(member, memberDepth);
        }));
    GltfNode node;
    // More nodes than a representation can hold are refused here, before they take memory.
    accepted = mesh.Get(-1, node.mesh) && !children.wrapped && model_.nodes.size() < maxNodes_;
    if (!accepted) return SUCCESS;
    node.name = name.value;
    node.children = children.range;
    node.matrix = matrix.range;
    // tinygltf reads the translation, rotation and scale only when the matrix is not an array of
    // numbers.
    if (!matrix.complete) {
      node.translation = translation.range;
      node.rotation = rotation.range;
      node.scale = scale.range;
    }
    model_.nodes.push_back(node);
    return SUCCESS;
  }

  error_code Scene(od::value& value, int depth, bool& accepted) {
    IntList nodes;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          return key == "nodes" ? Ints(member, memberDepth, nodes) : Skip(member, memberDepth);
        }));
    accepted = !nodes.wrapped;
    if (accepted) model_.scenes.push_back({nodes.range});
    return SUCCESS;
  }

  // An image gives exactly one of a buffer view and a URI. A data URI is not decoded (nothing
  // reads an image's pixels); any other URI names a file and refuses the blob. Views are checked
  // once every section is read.
  error_code Image(od::value& value, int depth, bool& accepted) {
    bool viewGiven = false, uriGiven = false;
    IntMember view;
    StringMember uri;
    SIMDJSON_TRY(
        Object(value, depth, [&](std::string_view key, od::value& member, int memberDepth) {
          if (key == "bufferView") {
            viewGiven = true;
            return Int(member, memberDepth, view);
          }
          if (key == "uri") {
            uriGiven = true;
            return String(member, memberDepth, uri);
          }
          return Skip(member, memberDepth);
        }));
    std::string_view payload;
    int index = -1;
    if (viewGiven == uriGiven) {
      accepted = false;
    } else if (uriGiven) {
      accepted = uri.valid && DataUriPayload(uri.value, payload);
    } else {
      accepted = view.IsInt() && view.Get(-1, index);
      if (accepted && index != -1) imageViews_.push_back(index);
    }
    return SUCCESS;
  }

  // Values.

  template <typename ReadMember>
  error_code Object(od::value& value, int depth, ReadMember&& readMember) {
    if (depth > kMaxJsonDepth) return simdjson::DEPTH_ERROR;
    od::object object;
    SIMDJSON_TRY(value.get_object().get(object));
    for (auto field : object) {
      od::field member;
      std::string_view key;
      SIMDJSON_TRY(std::move(field).get(member));
      SIMDJSON_TRY(Unescape(member.key(), false, key));
      SIMDJSON_TRY(readMember(key, member.value(), depth + 1));
    }
    return SUCCESS;
  }

  template <typename ReadElement>
  error_code Array(od::value& value, int depth, ReadElement&& readElement) {
    if (depth > kMaxJsonDepth) return simdjson::DEPTH_ERROR;
    od::array array;
    SIMDJSON_TRY(value.get_array().get(array));
    for (auto element : array) {
      od::value item;
      SIMDJSON_TRY(std::move(element).get(item));
      SIMDJSON_TRY(readElement(item, depth + 1));
    }
    return SUCCESS;
  }

  // Checks a value that is not read, so that the whole text is JSON.
  error_code Skip(od::value& value, int depth) {
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    switch (type) {
      case od::json_type::object:
        return Object(value, depth, [this](std::string_view, od::value& member, int memberDepth) {
          return Skip(member, memberDepth);
        });
      case od::json_type::array:
        return Array(value, depth, [this](od::value& element, int elementDepth) {
          return Skip(element, elementDepth);
        });
      case od::json_type::string: {
        od::raw_json_string raw;
        std::string_view text;
        SIMDJSON_TRY(value.get_raw_json_string().get(raw));
        return Unescape(raw, false, text);
      }
      case od::json_type::number: {
        double number = 0;
        return Number(value, number);
      }
      case od::json_type::boolean: {
        bool boolean = false;
        return value.get_bool().get(boolean);
      }
      case od::json_type::null: {
        bool null = false;
        SIMDJSON_TRY(value.is_null().get(null));
        return null ? SUCCESS : simdjson::INCORRECT_TYPE;
      }
    }
    return simdjson::INCORRECT_TYPE;
  }

  // Unescapes a string into the text storage, where `keep` leaves it for the model.
  error_code Unescape(od::raw_json_string raw, bool keep, std::string_view& text) {
    std::uint8_t* end = text_;
    SIMDJSON_TRY(parser_.unescape(raw, end).get(text));
    if (keep) text_ = end;
    return SUCCESS;
  }

  // Keeps the string last unescaped without keeping, a member's name that the model needs.
  void Keep(std::string_view text) {
    text_ = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data())) + text.size();
  }

  error_code String(od::value& value, int depth, StringMember& member) {
    member = StringMember();
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    member.valid = type == od::json_type::string;
    if (!member.valid) return Skip(value, depth);
    od::raw_json_string raw;
    SIMDJSON_TRY(value.get_raw_json_string().get(raw));
    return Unescape(raw, true, member.value);
  }

  // A number as the JSON library under tinygltf gives it: correctly rounded, an integer literal
  // through its integer value (so that "-0" reads as 0.0).
  error_code Number(od::value& value, double& number) {
    std::string_view token = value.raw_json_token();
    if (token.size() > kLongestShortNumber) {
      token = token.substr(0, token.find_last_not_of(" \t\n\r") + 1);
      if (token.size() > kLongestShortNumber && !IsIntegerLiteral(token)) {
        od::number checked;
        SIMDJSON_TRY(value.get_number().get(checked));
        number = simdjson::internal::from_chars(token.data(), token.data() + token.size());
        return std::isfinite(number) ? SUCCESS : simdjson::NUMBER_ERROR;
      }
    }
    SIMDJSON_TRY(value.get_double().get(number));
    if (number == 0 && std::signbit(number) && IsIntegerLiteral(token)) number = 0;
    return SUCCESS;
  }

  error_code Int(od::value& value, int depth, IntMember& member) {
    member = IntMember();
    member.state = IntMember::kNotInt;
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::number) return Skip(value, depth);
    std::int64_t signedValue = 0;
    std::uint64_t unsignedValue = 0;
    if (value.get_int64().get(signedValue) == SUCCESS) {
      const bool fits = signedValue >= INT_MIN && signedValue <= INT_MAX;
      member.state = fits ? IntMember::kInt : IntMember::kWrapped;
      member.value = fits ? static_cast<int>(signedValue) : 0;
      return SUCCESS;
    }
    if (value.get_uint64().get(unsignedValue) == SUCCESS) {
      member.state = IntMember::kWrapped;
      return SUCCESS;
    }
    double number = 0;
    return Number(value, number);
  }

  error_code Unsigned(od::value& value, int depth, UnsignedMember& member) {
    member = UnsignedMember();
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::number) return Skip(value, depth);
    member.valid = value.get_uint64().get(member.value) == SUCCESS;
    if (member.valid) return SUCCESS;
    double number = 0;
    return Number(value, number);
  }

  error_code Ints(od::value& value, int depth, IntList& list) {
    list = IntList();
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::array) return Skip(value, depth);
    const std::size_t first = model_.indices.size();
    bool reading = true;
    SIMDJSON_TRY(Array(value, depth, [&](od::value& element, int elementDepth) -> error_code {
      if (!reading) return Skip(element, elementDepth);
      IntMember member;
      SIMDJSON_TRY(Int(element, elementDepth, member));
      reading = member.IsInt();
      if (reading) {
        list.wrapped |= member.state == IntMember::kWrapped;
        model_.indices.push_back(member.value);
      }
      return SUCCESS;
    }));
    list.range = RunSince(model_.indices, first);
    return SUCCESS;
  }

  error_code Numbers(od::value& value, int depth, NumberList& list) {
    list = NumberList();
    od::json_type type;
    SIMDJSON_TRY(value.type().get(type));
    if (type != od::json_type::array) return Skip(value, depth);
    const std::size_t first = model_.numbers.size();
    list.complete = true;
    SIMDJSON_TRY(Array(value, depth, [&](od::value& element, int elementDepth) -> error_code {
      if (list.complete) {
        SIMDJSON_TRY(element.type().get(type));
        list.complete = type == od::json_type::number;
      }
      if (!list.complete) return Skip(element, elementDepth);
      double number = 0;
      SIMDJSON_TRY(Number(element, number));
      model_.numbers.push_back(number);
      return SUCCESS;
    }));
    list.range = RunSince(model_.numbers, first);
    return SUCCESS;
  }

  const od::parser& parser_;
  std::uint8_t* text_;  // where the next string is unescaped
  const GlbLayout& layout_;
  GltfModel& model_;
  const std::uint64_t maxNodes_;
  std::vector<int> imageViews_;  // the views the images name
};

}  // namespace

bool DataUriPayload(std::string_view uri, std::string_view& payload) {
  static constexpr std::string_view kPrefixes[] = {"data:application/octet-stream;base64,",
                                                   "data:image/jpeg;base64,",
                                                   "data:image/png;base64,",
                                                   "data:image/bmp;base64,",
                                                   "data:image/gif;base64,",
                                                   "data:text/plain;base64,",
                                                   "data:application/gltf-buffer;base64,"};
  for (const std::string_view prefix : kPrefixes) {
    if (uri.substr(0, prefix.size()) == prefix) {
      payload = uri.substr(prefix.size());
      return true;
    }
  }
  return false;
}

bool ReadGltf(const GlbLayout& layout, GltfModel& model) {
  // The JSON library under tinygltf ends the text at a zero byte (some writers pad the chunk with
  // zeros), whatever follows it.
  const void* zero = std::memchr(layout.json, 0, layout.jsonLength);
  const std::size_t length =
      zero ? static_cast<std::size_t>(static_cast<const char*>(zero) - layout.json)
           : layout.jsonLength;
  simdjson::padded_string json(layout.json, length);
  od::parser parser;
  if (json.data() == nullptr || parser.allocate(json.size(), kMaxJsonDepth + 1) != SUCCESS) {
    return false;
  }
  // Strings are unescaped into storage of the model's own, which names then point into, sized as
  // simdjson sizes its string buffer. The parser's own string buffer is never written: simdjson
  // 3.0.1 does not check that its allocation succeeded.
  const std::size_t textSize = (5 * json.size() / 3 + simdjson::SIMDJSON_PADDING + 63) / 64 * 64;
  std::unique_ptr<unsigned char[]> text(new (std::nothrow) unsigned char[textSize]);
  if (!text) return false;
  unsigned char* const textStart = text.get();
  model.storage.push_back(std::move(text));
  od::document document;
  return parser.iterate(json).get(document) == SUCCESS &&
         Reader(parser, textStart, layout, model).Read(document);
}

}  // namespace vek_scenegraph_detail
